#include "catalogue/modStatementTrace.h"

#include <sqlite3.h>

#include <mutex>

namespace {

std::mutex& ListenerMutex() {
    static std::mutex mutex;
    return mutex;
}

StatementListener& Listener() {
    static StatementListener listener;
    return listener;
}

int Traced(unsigned, void*, void*, void* text) {
    // A statement's text as it was prepared (its parameters unbound); a trigger's own
    // statements come as comments, which say nothing of how a table is read.
    const std::string statement = static_cast<const char*>(text);
    if (statement.rfind("--", 0) == 0) return 0;
    std::lock_guard lock(ListenerMutex());
    if (Listener()) Listener()(statement);
    return 0;
}

} // namespace

void SetStatementListener(StatementListener listener) {
    std::lock_guard lock(ListenerMutex());
    Listener() = std::move(listener);
}

void TraceStatements(sqlite3* db) {
    {
        std::lock_guard lock(ListenerMutex());
        if (!Listener()) return;
    }
    sqlite3_trace_v2(db, SQLITE_TRACE_STMT, Traced, nullptr);
}
