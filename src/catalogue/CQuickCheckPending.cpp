#include "catalogue/CQuickCheckPending.h"

#include "catalogue/CSqliteConnection.h"
#include "catalogue/CSqliteStatement.h"
#include "catalogue/modQuickCheckColumns.h"

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
    BindStampColumns(add, 2, row);
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
        ReadStampColumns(read, 1, row);
        if (!each(row)) return false;
    }
    return rc == SQLITE_DONE;
}
