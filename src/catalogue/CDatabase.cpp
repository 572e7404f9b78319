#include "catalogue/CDatabase.h"

// Each operation resets the access object, builds one insert or select and runs it on the
// run's one connection; the texts go in as SQL literals (SQLLiteral), numbers go in bare.

#include "catalogue/modSQLQuote.h"
#include "support/modDateText.h"
#include "support/modFSCommon.h"
#include "support/modMsgBox.h"

void CDatabase::Connect(const std::string& db) {
    m_db.Connect(db);
    m_connected = !m_db.Err();
    m_failedWrites = 0;
    m_lastWriteError.clear();
}

void CDatabase::NoteWrite() {
    if (!m_db.Err()) return;
    ++m_failedWrites;
    m_lastWriteError = m_db.ErrMsg();
}

void CDatabase::AddPath(int32_t bid, const std::string& path) {
    if (!m_connected) return;
    m_db.Reset();
    m_db.Table("Paths");
    m_db.Field("bid", std::to_string(bid));
    m_db.Field("path", SQLLiteral(SQLQuoteEncode(path)));
    m_db.Action(sqlaction::kInsert);
    m_db.Exec();
    NoteWrite();
    if (m_db.Err()) MsgBox("Error: " + m_db.ErrMsg(), mb::kOKOnly);
}

int32_t CDatabase::BackupRun(const std::string& source) {
    if (!m_connected) return 0;
    const std::string now = NowText();
    m_db.Reset();
    m_db.Table("Backups");
    m_db.Action(sqlaction::kInsert);
    m_db.Field("source", SQLLiteral(source));
    m_db.Field("datebk", SQLLiteral(now));
    m_db.Exec();
    NoteWrite();
    if (m_db.Err()) {
        MsgBox("Error: " + m_db.ErrMsg(), mb::kOKOnly);
        return -1;
    }
    return static_cast<int32_t>(m_db.LastRowID());
}

void CDatabase::AddBackupRecord(int32_t run, const std::string& sig, const std::string& source,
                                const std::string& target, const std::string& size) {
    if (!m_connected) return;
    m_db.Reset();
    m_db.Table("Files");
    m_db.Action(sqlaction::kInsert);
    m_db.Field("md5", SQLLiteral(sig));
    m_db.Field("file", SQLLiteral(SQLQuoteEncode(source)));
    m_db.Field("backup", SQLLiteral(target));
    m_db.Field("path", SQLLiteral(SQLQuoteEncode(FSGetPathPart(source))));
    m_db.Field("bid", std::to_string(run));
    m_db.Field("size", size);
    m_db.Exec();
    // A failed row is dropped without a word and the run goes on; the run learns of it from
    // FailedWrites.
    NoteWrite();
}

std::string CDatabase::GetFileFromMD5(const std::string& md5) {
    if (!m_connected) return {};
    m_db.Reset();
    m_db.Table("Files");
    m_db.Action(sqlaction::kSelect);
    m_db.Where("md5 = " + SQLLiteral(md5));
    m_db.Exec();
    return m_db.RecordCount() >= 1 ? m_db.Field("file") : std::string();
}
