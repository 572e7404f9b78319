#include "catalogue/modBulkQuery.h"

#include "support/modYield.h"

#include <sqlite3.h>

bool ForEachRow(const ADOSQLite& db, const std::string& statement,
                const std::function<void(const std::vector<std::string_view>&)>& row,
                std::string& error) {
    if (!db.Handle()) {
        error = "No database connection";
        return false;
    }
    return ForEachRow(db.Handle(), statement, row, error);
}

bool ForEachRow(sqlite3* db, const std::string& statement,
                const std::function<void(const std::vector<std::string_view>&)>& row,
                std::string& error) {
    sqlite3_stmt* stmt = nullptr;
    if (sqlite3_prepare_v2(db, statement.c_str(), -1, &stmt, nullptr) != SQLITE_OK) {
        error = sqlite3_errmsg(db);
        return false;
    }
    std::vector<std::string_view> values(static_cast<size_t>(sqlite3_column_count(stmt)));
    int rc;
    while ((rc = sqlite3_step(stmt)) == SQLITE_ROW) {
        for (size_t c = 0; c < values.size(); ++c) {
            const auto* text = sqlite3_column_text(stmt, static_cast<int>(c));
            values[c] =
                text ? std::string_view(
                           reinterpret_cast<const char*>(text),
                           static_cast<size_t>(sqlite3_column_bytes(stmt, static_cast<int>(c))))
                     : std::string_view();
        }
        row(values);
        DoEvents();
    }
    if (rc != SQLITE_DONE) error = sqlite3_errmsg(db);
    sqlite3_finalize(stmt);
    return rc == SQLITE_DONE;
}
