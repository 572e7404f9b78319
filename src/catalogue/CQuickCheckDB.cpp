#include "catalogue/CQuickCheckDB.h"

#include "catalogue/CSqliteConnection.h"
#include "catalogue/CSqliteStatement.h"
#include "catalogue/modQuickCheckColumns.h"
#include "platform/CFile.h"
#include "platform/modFileStatus.h"
#include "platform/modFileSystem.h"
#include "support/modFSCommon.h"

namespace {

constexpr const char* kQuickCheckSchema =
    "CREATE TABLE IF NOT EXISTS Runs (source BLOB PRIMARY KEY, bid INTEGER, datebk TEXT);"
    "CREATE TABLE IF NOT EXISTS Stamps (source BLOB, folder BLOB, name BLOB, device INTEGER,"
    " inode INTEGER, size INTEGER, mtime INTEGER, ctime INTEGER, md5 TEXT, length INTEGER,"
    " PRIMARY KEY (source, folder, name)) WITHOUT ROWID;";

enum class Keep { kNothing, kUnchanged };

using Reached = std::function<bool(const std::string& folder)>;

// Takes away the rows of every folder of the source that `reached` answers false for, visiting
// each folder once (one seek per folder, not one read per row).
bool ForgetFolders(CSqliteConnection& db, const std::string& source, const Reached& reached) {
    CSqliteStatement next(db.Handle(), "SELECT folder FROM Stamps WHERE source = ?1 AND"
                                       " folder > ?2 ORDER BY folder LIMIT 1");
    CSqliteStatement forget(db.Handle(), "DELETE FROM Stamps WHERE source = ?1 AND folder = ?2");
    if (!next || !forget) return false;
    next.Bind(1, source);
    forget.Bind(1, source);
    std::string folder;
    for (;;) {
        next.Bind(2, folder);
        const int rc = sqlite3_step(next.Get());
        if (rc == SQLITE_ROW) folder = next.Bytes(0);
        sqlite3_reset(next.Get());
        if (rc != SQLITE_ROW) return rc == SQLITE_DONE;
        if (reached(folder)) continue;
        forget.Bind(2, folder);
        if (!forget.StepDone()) return false;
    }
}

bool SaveInto(const std::string& file, const std::string& source, const QuickCheckRun& run,
              Keep keep, const Reached& reached, const CQuickCheckDB::Rows& gone,
              const CQuickCheckDB::Rows& rows) {
    MakePrivateFile(file); // it holds paths of the user's files: private before the engine opens it
    CSqliteConnection db(file, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOFOLLOW);
    // The rows of a run wait in a bounded cache, not all in memory, until the commit.
    if (!db || !db.Run("PRAGMA cache_size = -8192") || !db.Run(kQuickCheckSchema) ||
        !db.Run("BEGIN IMMEDIATE"))
        return false;
    CSqliteStatement forgetAll(db.Handle(), "DELETE FROM Stamps WHERE source = ?1");
    CSqliteStatement forget(db.Handle(),
                            "DELETE FROM Stamps WHERE source = ?1 AND folder = ?2 AND name = ?3");
    CSqliteStatement keepRun(
        db.Handle(), "INSERT OR REPLACE INTO Runs (source, bid, datebk) VALUES (?1, ?2, ?3)");
    CSqliteStatement add(db.Handle(),
                         "INSERT OR REPLACE INTO Stamps (source, folder, name, device, inode, size,"
                         " mtime, ctime, md5, length) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9,"
                         " ?10)");
    bool ok = forgetAll && forget && keepRun && add;
    if (ok) {
        forgetAll.Bind(1, source);
        forget.Bind(1, source);
        keepRun.Bind(1, source);
        keepRun.Bind(2, int64_t{run.bid});
        keepRun.BindText(3, run.datebk);
        add.Bind(1, source);
        ok = (keep == Keep::kUnchanged || forgetAll.StepDone()) && keepRun.StepDone();
    }
    const auto bindPath = [](CSqliteStatement& statement, const std::string& path) {
        const size_t name = CQuickCheckDB::NameStart(path);
        statement.Bind(2, path.substr(0, name));
        statement.Bind(3, path.substr(name));
    };
    ok = ok && (keep == Keep::kNothing || ForgetFolders(db, source, reached));
    ok = ok && gone([&](const QuickCheckRow& row) {
             bindPath(forget, row.path);
             return forget.StepDone();
         });
    ok = ok && rows([&](const QuickCheckRow& row) {
             bindPath(add, row.path);
             BindStampColumns(add, 4, row);
             return add.StepDone();
         });
    if (ok && db.Run("COMMIT")) return true;
    db.Run("ROLLBACK");
    return false;
}

bool NoRows(const std::function<bool(const QuickCheckRow&)>&) {
    return true;
}

} // namespace

std::string CQuickCheckDB::PathBeside(const std::string& cataloguePath) {
    return FSGetPathPart(cataloguePath) + "QuickCheck.db";
}

size_t CQuickCheckDB::NameStart(const std::string& path) {
    for (size_t i = path.size(); i > 0; --i)
        if (IsPathSeparator(path[i - 1])) return i;
    return 0;
}

bool CQuickCheckDB::Load(const std::string& file, const std::string& source,
                         const QuickCheckRun& run, std::vector<QuickCheckRow>& rows) {
    rows.clear();
    if (!StatusOf(file).Exists()) return false; // never created by a read
    CSqliteConnection db(file, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOFOLLOW);
    if (!db) return false;
    if (!HoldsStampsOf(db.Handle(), source, run)) return false;
    CSqliteStatement read(db.Handle(), "SELECT folder, name, device, inode, size, mtime, ctime,"
                                       " md5, length FROM Stamps WHERE source = ?1");
    if (!read) return false;
    read.Bind(1, source);
    int rc;
    while ((rc = sqlite3_step(read.Get())) == SQLITE_ROW) {
        QuickCheckRow& row = rows.emplace_back();
        row.path = read.Bytes(0) + read.Bytes(1);
        ReadStampColumns(read, 2, row);
    }
    if (rc == SQLITE_DONE) return true;
    rows.clear(); // a damaged file: nothing of it is trusted
    return false;
}

bool CQuickCheckDB::Save(const std::string& file, const std::string& source,
                         const QuickCheckRun& run, const std::vector<QuickCheckRow>& rows) {
    return Save(file, source, run, [&rows](const auto& each) {
        for (const QuickCheckRow& row : rows)
            if (!each(row)) return false;
        return true;
    });
}

bool CQuickCheckDB::Save(const std::string& file, const std::string& source,
                         const QuickCheckRun& run, const Rows& rows) {
    if (SaveInto(file, source, run, Keep::kNothing, {}, NoRows, rows)) return true;
    // A damaged or foreign file: it is only a cache, so it starts again empty.
    CSqliteConnection::RemoveFiles(file);
    return SaveInto(file, source, run, Keep::kNothing, {}, NoRows, rows);
}

bool CQuickCheckDB::Update(const std::string& file, const std::string& source,
                           const QuickCheckRun& run,
                           const std::function<bool(const std::string& folder)>& reached,
                           const Rows& gone, const Rows& rows) {
    return SaveInto(file, source, run, Keep::kUnchanged, reached, gone, rows);
}
