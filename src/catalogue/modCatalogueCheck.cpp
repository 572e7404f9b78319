#include "catalogue/modCatalogueCheck.h"

#include "catalogue/ADOSQLite.h"
#include "catalogue/modBulkQuery.h"
#include "catalogue/modSqliteLibrary.h"
#include "platform/modFileStatus.h"

#include <array>
#include <sqlite3.h>
#include <vector>

namespace {
// The columns of each table that the program reads and writes.
constexpr std::array<const char*, 5> kReads = {
    "SELECT sid, key, value FROM Setup LIMIT 0",
    "SELECT bid, source, datebk FROM Backups LIMIT 0",
    "SELECT fid, bid, md5, path, file, backup, size FROM Files LIMIT 0",
    "SELECT sid, source FROM Sources LIMIT 0",
    "SELECT pid, bid, path FROM Paths LIMIT 0",
};
} // namespace

std::string CatalogueProblem(const std::string& path, uint64_t wholeCheckBytes) {
    sqlite3* db = nullptr;
    PrepareSqliteLibrary();
    if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK) {
        const std::string error = db ? sqlite3_errmsg(db) : "out of memory";
        sqlite3_close_v2(db);
        return error;
    }
    sqlite3_busy_timeout(db, ADOSQLite::kBusyTimeoutMs);
    std::string verdict, error;
    const PathStatus status = StatusOf(path);
    const bool whole = !status.Exists() || status.size <= wholeCheckBytes;
    for (const char* check : whole ? std::vector<const char*>{"PRAGMA quick_check(1)"}
                                   : std::vector<const char*>{"PRAGMA quick_check(Setup)",
                                                              "PRAGMA quick_check(Backups)",
                                                              "PRAGMA quick_check(Sources)"}) {
        const bool checked = ForEachRow(
            db, check, [&](const std::vector<std::string_view>& row) { verdict = row.at(0); },
            error);
        if (checked && verdict != "ok") error = "it is damaged (" + verdict + ")";
        if (!error.empty()) break;
    }
    for (const char* sql : kReads)
        if (error.empty())
            ForEachRow(
                db, sql, [](const auto&) {}, error);
    sqlite3_close_v2(db);
    // The quick check's verdict may span lines; the problem is one.
    for (size_t at; (at = error.find('\n')) != std::string::npos;)
        error.replace(at, 1, "; ");
    return error;
}
