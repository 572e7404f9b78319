#pragma once

// The process-wide service objects: the error handler (made first) and the logger.
// Tests call ResetServices() to start from fresh objects.

#include "support/CErrHandler.h"
#include "support/CLogger.h"

CErrHandler& ErrHandler();
CLogger& Logger();
void ResetServices();

// The shared logger's Log, as every part calls it.
inline void Log(int level, const std::string& message) {
    Logger().Log(level, message);
}
