#pragma once

// The error handler and the logger of the current service context (CServiceContext): one each
// for the process, and fresh ones for each test.

#include "support/CErrHandler.h"
#include "support/CLogger.h"

CErrHandler& ErrHandler();
CLogger& Logger();

// The shared logger's Log, as every part calls it.
inline void Log(int level, const std::string& message) {
    Logger().Log(level, message);
}
