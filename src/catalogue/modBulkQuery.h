#pragma once

// Streams the rows of one statement on an open connection without keeping the whole result,
// for maintenance passes over very large tables. Values are text (NULL reads as "").

#include "catalogue/ADOSQLite.h"

#include <functional>
#include <string>
#include <string_view>
#include <vector>

// Calls `row` once per result row; false (with the engine's text in `error`) on failure.
bool ForEachRow(sqlite3* db, const std::string& statement,
                const std::function<void(const std::vector<std::string_view>&)>& row,
                std::string& error);
// The same on the connection of `db`.
bool ForEachRow(const ADOSQLite& db, const std::string& statement,
                const std::function<void(const std::vector<std::string_view>&)>& row,
                std::string& error);
