#include "catalogue/CQuickCheckDB.h"

#include "catalogue/ADOSQLite.h"
#include "platform/CFile.h"
#include "platform/modFileStatus.h"
#include "support/modFSCommon.h"

#include <sqlite3.h>

namespace {

constexpr const char* kSchema =
    "CREATE TABLE IF NOT EXISTS Runs (source BLOB PRIMARY KEY, bid INTEGER, datebk TEXT);"
    "CREATE TABLE IF NOT EXISTS Stamps (source BLOB, path BLOB, device INTEGER, inode INTEGER,"
    " size INTEGER, mtime INTEGER, ctime INTEGER, md5 TEXT, length INTEGER,"
    " PRIMARY KEY (source, path)) WITHOUT ROWID;";

class Connection {
public:
    Connection(const std::string& file, int flags) {
        if (sqlite3_open_v2(file.c_str(), &m_db, flags, nullptr) != SQLITE_OK) Close();
        if (m_db) sqlite3_busy_timeout(m_db, ADOSQLite::kBusyTimeoutMs);
    }
    ~Connection() { Close(); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    explicit operator bool() const { return m_db != nullptr; }
    sqlite3* Handle() const { return m_db; }
    bool Run(const char* sql) {
        return sqlite3_exec(m_db, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
    }

private:
    void Close() {
        sqlite3_close_v2(m_db);
        m_db = nullptr;
    }
    sqlite3* m_db = nullptr;
};

class Statement {
public:
    Statement(sqlite3* db, const char* sql) {
        if (sqlite3_prepare_v2(db, sql, -1, &m_stmt, nullptr) != SQLITE_OK) m_stmt = nullptr;
    }
    ~Statement() { sqlite3_finalize(m_stmt); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    explicit operator bool() const { return m_stmt != nullptr; }
    sqlite3_stmt* Get() const { return m_stmt; }
    void Bind(int index, const std::string& bytes) {
        sqlite3_bind_blob(m_stmt, index, bytes.data(), static_cast<int>(bytes.size()),
                          SQLITE_TRANSIENT);
    }
    void BindText(int index, const std::string& text) {
        sqlite3_bind_text(m_stmt, index, text.data(), static_cast<int>(text.size()),
                          SQLITE_TRANSIENT);
    }
    void Bind(int index, int64_t value) { sqlite3_bind_int64(m_stmt, index, value); }
    std::string Bytes(int column) const {
        const auto* data = static_cast<const char*>(sqlite3_column_blob(m_stmt, column));
        return data ? std::string(data, static_cast<size_t>(sqlite3_column_bytes(m_stmt, column)))
                    : std::string();
    }
    int64_t Number(int column) const { return sqlite3_column_int64(m_stmt, column); }
    // One row written: the statement is ready for the next.
    bool StepDone() {
        const bool done = sqlite3_step(m_stmt) == SQLITE_DONE;
        sqlite3_reset(m_stmt);
        return done;
    }

private:
    sqlite3_stmt* m_stmt = nullptr;
};

bool SaveInto(const std::string& file, const std::string& source, const QuickCheckRun& run,
              const std::vector<QuickCheckRow>& rows) {
    MakePrivateFile(file); // it holds paths of the user's files: private before the engine opens it
    Connection db(file, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOFOLLOW);
    if (!db || !db.Run(kSchema) || !db.Run("BEGIN IMMEDIATE")) return false;
    Statement forget(db.Handle(), "DELETE FROM Stamps WHERE source = ?1");
    Statement keepRun(db.Handle(),
                      "INSERT OR REPLACE INTO Runs (source, bid, datebk) VALUES (?1, ?2, ?3)");
    Statement keep(db.Handle(), "INSERT OR REPLACE INTO Stamps (source, path, device, inode, size,"
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
    const size_t slash = FSLastSeparator(cataloguePath);
    return (slash == std::string::npos ? std::string() : cataloguePath.substr(0, slash + 1)) +
           "QuickCheck.db";
}

bool CQuickCheckDB::Load(const std::string& file, const std::string& source,
                         const QuickCheckRun& run, std::vector<QuickCheckRow>& rows) {
    rows.clear();
    if (!StatusOf(file).Exists()) return false; // never created by a read
    Connection db(file, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOFOLLOW);
    if (!db) return false;
    Statement which(db.Handle(), "SELECT bid, datebk FROM Runs WHERE source = ?1");
    if (!which) return false;
    which.Bind(1, source);
    if (sqlite3_step(which.Get()) != SQLITE_ROW) return false;
    const QuickCheckRun kept{static_cast<int32_t>(which.Number(0)), which.Bytes(1)};
    if (kept != run) return false; // the rows of another run: the source's last run differs
    Statement read(db.Handle(), "SELECT path, device, inode, size, mtime, ctime, md5, length"
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
    for (const char* end : {"", "-journal", "-wal", "-shm"})
        RemoveFile(file + end);
    return SaveInto(file, source, run, rows);
}
