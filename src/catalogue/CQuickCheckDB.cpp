#include "catalogue/CQuickCheckDB.h"

#include "catalogue/CSqliteConnection.h"
#include "catalogue/CSqliteStatement.h"
#include "platform/CFile.h"
#include "platform/modFileStatus.h"
#include "support/modFSCommon.h"

namespace {

constexpr const char* kQuickCheckSchema =
    "CREATE TABLE IF NOT EXISTS Runs (source BLOB PRIMARY KEY, bid INTEGER, datebk TEXT);"
    "CREATE TABLE IF NOT EXISTS Stamps (source BLOB, path BLOB, device INTEGER, inode INTEGER,"
    " size INTEGER, mtime INTEGER, ctime INTEGER, md5 TEXT, length INTEGER,"
    " PRIMARY KEY (source, path)) WITHOUT ROWID;";

bool SaveInto(const std::string& file, const std::string& source, const QuickCheckRun& run,
              const std::vector<QuickCheckRow>& rows) {
    MakePrivateFile(file); // it holds paths of the user's files: private before the engine opens it
    CSqliteConnection db(file, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOFOLLOW);
    if (!db || !db.Run(kQuickCheckSchema) || !db.Run("BEGIN IMMEDIATE")) return false;
    CSqliteStatement forget(db.Handle(), "DELETE FROM Stamps WHERE source = ?1");
    CSqliteStatement keepRun(
        db.Handle(), "INSERT OR REPLACE INTO Runs (source, bid, datebk) VALUES (?1, ?2, ?3)");
    CSqliteStatement keep(db.Handle(),
                          "INSERT OR REPLACE INTO Stamps (source, path, device, inode, size,"
                          " mtime, ctime, md5, length) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7,"
                          " ?8, ?9)");
    bool ok = forget && keepRun && keep;
    if (ok) {
        forget.Bind(1, source);
        keepRun.Bind(1, source);
        keepRun.Bind(2, int64_t{run.bid});
        keepRun.BindText(3, run.datebk);
        ok = forget.StepDone() && keepRun.StepDone();
    }
    for (size_t i = 0; ok && i < rows.size(); ++i) {
        const QuickCheckRow& row = rows[i];
        keep.Bind(1, source);
        keep.Bind(2, row.path);
        keep.Bind(3, static_cast<int64_t>(row.stamp.device));
        keep.Bind(4, static_cast<int64_t>(row.stamp.inode));
        keep.Bind(5, row.stamp.size);
        keep.Bind(6, row.stamp.mtimeNs);
        keep.Bind(7, row.stamp.ctimeNs);
        keep.BindText(8, row.signature);
        keep.Bind(9, row.length);
        ok = keep.StepDone();
    }
    if (ok && db.Run("COMMIT")) return true;
    db.Run("ROLLBACK");
    return false;
}

} // namespace

std::string CQuickCheckDB::PathBeside(const std::string& cataloguePath) {
    return FSGetPathPart(cataloguePath) + "QuickCheck.db";
}

bool CQuickCheckDB::Load(const std::string& file, const std::string& source,
                         const QuickCheckRun& run, std::vector<QuickCheckRow>& rows) {
    rows.clear();
    if (!StatusOf(file).Exists()) return false; // never created by a read
    CSqliteConnection db(file, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOFOLLOW);
    if (!db) return false;
    CSqliteStatement which(db.Handle(), "SELECT bid, datebk FROM Runs WHERE source = ?1");
    if (!which) return false;
    which.Bind(1, source);
    if (sqlite3_step(which.Get()) != SQLITE_ROW) return false;
    const QuickCheckRun kept{static_cast<int32_t>(which.Number(0)), which.Bytes(1)};
    if (kept != run) return false; // the rows of another run: the source's last run differs
    CSqliteStatement read(db.Handle(), "SELECT path, device, inode, size, mtime, ctime, md5, length"
                                       " FROM Stamps WHERE source = ?1");
    if (!read) return false;
    read.Bind(1, source);
    int rc;
    while ((rc = sqlite3_step(read.Get())) == SQLITE_ROW) {
        QuickCheckRow& row = rows.emplace_back();
        row.path = read.Bytes(0);
        row.stamp = {static_cast<uint64_t>(read.Number(1)), static_cast<uint64_t>(read.Number(2)),
                     read.Number(3), read.Number(4), read.Number(5)};
        row.signature = read.Bytes(6);
        row.length = read.Number(7);
    }
    if (rc == SQLITE_DONE) return true;
    rows.clear(); // a damaged file: nothing of it is trusted
    return false;
}

bool CQuickCheckDB::Save(const std::string& file, const std::string& source,
                         const QuickCheckRun& run, const std::vector<QuickCheckRow>& rows) {
    if (SaveInto(file, source, run, rows)) return true;
    // A damaged or foreign file: it is only a cache, so it starts again empty.
    CSqliteConnection::RemoveFiles(file);
    return SaveInto(file, source, run, rows);
}
