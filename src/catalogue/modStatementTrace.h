#pragma once

// The statements that the program's connections to the catalogue run, handed one by one to a
// listener: how the tests learn what SQLite is asked, to check how it reads the tables (which
// index, or a whole scan). No listener is set in the program, and then nothing is traced.

#include <functional>
#include <string>

struct sqlite3;

using StatementListener = std::function<void(const std::string& statement)>;

// Sets the listener of connections opened from now on, or none (an empty function). The
// listener may be called from any thread that uses a connection, once per statement run.
void SetStatementListener(StatementListener listener);
// Called by a connection to the catalogue right after it opened.
void TraceStatements(sqlite3* db);
