#include "catalogue/CQuickCheckPending.h"

#include "catalogue/CSqliteConnection.h"
#include "catalogue/CSqliteStatement.h"

CQuickCheckPending::CQuickCheckPending() {
    // An empty name is SQLite's private temporary file, deleted when the connection closes.
    m_db = std::make_unique<CSqliteConnection>("", SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    if (!*m_db || !m_db->Run("PRAGMA cache_size = -2048") ||
        !m_db->Run("CREATE TABLE Noted (path BLOB, device INTEGER, inode INTEGER, size INTEGER,"
                   " mtime INTEGER, ctime INTEGER, md5 TEXT, length INTEGER)") ||
        !m_db->Run("BEGIN")) {
        m_failed = true;
        return;
    }
    m_add = std::make_unique<CSqliteStatement>(
        m_db->Handle(), "INSERT INTO Noted (path, device, inode, size, mtime, ctime, md5, length)"
                        " VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8)");
    m_failed = !*m_add;
}

CQuickCheckPending::~CQuickCheckPending() {
    m_add.reset(); // before the connection it belongs to
}

bool CQuickCheckPending::Add(const QuickCheckRow& row) {
    if (m_failed) return false;
    CSqliteStatement& add = *m_add;
    add.Bind(1, row.path);
    add.Bind(2, static_cast<int64_t>(row.stamp.device));
    add.Bind(3, static_cast<int64_t>(row.stamp.inode));
    add.Bind(4, row.stamp.size);
    add.Bind(5, row.stamp.mtimeNs);
    add.Bind(6, row.stamp.ctimeNs);
    add.BindText(7, row.signature);
    add.Bind(8, row.length);
    m_failed = !add.StepDone();
    return !m_failed;
}

bool CQuickCheckPending::ForEach(const std::function<bool(const QuickCheckRow&)>& each) const {
    if (m_failed) return false;
    CSqliteStatement read(m_db->Handle(), "SELECT path, device, inode, size, mtime, ctime, md5,"
                                          " length FROM Noted ORDER BY rowid");
    if (!read) return false;
    QuickCheckRow row;
    int rc;
    while ((rc = sqlite3_step(read.Get())) == SQLITE_ROW) {
        row.path = read.Bytes(0);
        row.stamp = {static_cast<uint64_t>(read.Number(1)), static_cast<uint64_t>(read.Number(2)),
                     read.Number(3), read.Number(4), read.Number(5)};
        row.signature = read.Bytes(6);
        row.length = read.Number(7);
        if (!each(row)) return false;
    }
    return rc == SQLITE_DONE;
}
