#include "support/modServices.h"

#include <memory>

namespace {
std::unique_ptr<CErrHandler> g_errHandler;
std::unique_ptr<CLogger> g_logger;
} // namespace

CErrHandler& ErrHandler() {
    if (!g_errHandler) g_errHandler = std::make_unique<CErrHandler>();
    return *g_errHandler;
}

CLogger& Logger() {
    if (!g_logger) g_logger = std::make_unique<CLogger>();
    return *g_logger;
}

void ResetServices() {
    g_logger.reset();
    g_errHandler.reset();
}
