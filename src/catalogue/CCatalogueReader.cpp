#include "catalogue/CCatalogueReader.h"

#include "catalogue/ADOSQLite.h"
#include "catalogue/modBulkQuery.h"
#include "catalogue/modSqliteLibrary.h"
#include "catalogue/modStatementTrace.h"

#include <sqlite3.h>

CCatalogueReader::~CCatalogueReader() {
    Close();
}

void CCatalogueReader::Close() {
    if (m_db) sqlite3_close_v2(m_db);
    m_db = nullptr;
}

bool CCatalogueReader::Open(const std::string& path) {
    Close();
    m_failure = Failure::kNone;
    PrepareSqliteLibrary();
    if (sqlite3_open_v2(path.c_str(), &m_db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
        m_error = m_db ? sqlite3_errmsg(m_db) : "out of memory";
        m_failure = Failure::kUnreadable;
        Close();
        return false;
    }
    sqlite3_busy_timeout(m_db, ADOSQLite::kBusyTimeoutMs);
    TraceStatements(m_db);
    return true;
}

bool CCatalogueReader::Rows(const std::string& statement,
                            const std::function<void(const Row&)>& row) {
    m_failure = Failure::kNone;
    if (ForEachRow(m_db, statement, row, m_error)) return true;
    const int code = sqlite3_extended_errcode(m_db);
    if ((code & 0xFF) == SQLITE_BUSY || (code & 0xFF) == SQLITE_LOCKED)
        m_failure = Failure::kBusy;
    else if (code == SQLITE_READONLY_ROLLBACK || code == SQLITE_READONLY_RECOVERY)
        m_failure = Failure::kInterrupted;
    else
        m_failure = Failure::kUnreadable;
    return false;
}

bool SqlLike(const std::string& pattern, const std::string& value) {
    return sqlite3_strlike(pattern.c_str(), value.c_str(), 0) == 0;
}

bool SqlLikeMatchesBlobs() {
    return !sqlite3_compileoption_used("LIKE_DOESNT_MATCH_BLOBS");
}
