#include "catalogue/modCatalogueCheck.h"

#include "catalogue/ADOSQLite.h"

#include <array>
#include <sqlite3.h>

namespace {
// The columns of each table that the program reads and writes.
constexpr std::array<const char*, 5> kReads = {
    "SELECT sid, key, value FROM Setup LIMIT 0",
    "SELECT bid, source, datebk FROM Backups LIMIT 0",
    "SELECT fid, bid, md5, path, file, backup, size FROM Files LIMIT 0",
    "SELECT sid, source FROM Sources LIMIT 0",
    "SELECT pid, bid, path FROM Paths LIMIT 0",
};

// Runs `sql`; the first column of the first row lands in `first`. The error text, or empty.
std::string Run(sqlite3* db, const char* sql, std::string* first = nullptr) {
    sqlite3_stmt* statement = nullptr;
    int rc = sqlite3_prepare_v2(db, sql, -1, &statement, nullptr);
    if (rc == SQLITE_OK) {
        rc = sqlite3_step(statement);
        if (rc == SQLITE_ROW && first) {
            const unsigned char* text = sqlite3_column_text(statement, 0);
            *first = text ? reinterpret_cast<const char*>(text) : "";
        }
        if (rc == SQLITE_ROW || rc == SQLITE_DONE) rc = SQLITE_OK;
    }
    std::string error = rc == SQLITE_OK ? std::string() : sqlite3_errmsg(db);
    sqlite3_finalize(statement);
    return error;
}
} // namespace

std::string CatalogueProblem(const std::string& path) {
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK) {
        const std::string error = db ? sqlite3_errmsg(db) : "out of memory";
        sqlite3_close_v2(db);
        return error;
    }
    sqlite3_busy_timeout(db, ADOSQLite::kBusyTimeoutMs);
    std::string verdict;
    std::string error = Run(db, "PRAGMA quick_check(1)", &verdict);
    if (error.empty() && verdict != "ok") error = "it is damaged (" + verdict + ")";
    for (const char* sql : kReads)
        if (error.empty()) error = Run(db, sql);
    sqlite3_close_v2(db);
    // The quick check's verdict may span lines; the problem is one.
    for (size_t at; (at = error.find('\n')) != std::string::npos;)
        error.replace(at, 1, "; ");
    return error;
}
