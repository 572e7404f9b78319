#include "catalogue/CDatabase.h"

// Each operation resets the access object, builds one insert or select and runs it on the
// run's one connection; the texts go in as SQL literals (SQLLiteral), numbers go in bare.

#include "catalogue/CSqliteStatement.h"
#include "catalogue/modSQLQuote.h"
#include "support/modDateText.h"
#include "support/modFSCommon.h"
#include "support/modMsgBox.h"

#include <charconv>
#include <optional>

namespace {

// The number a size text spells when it is a plain whole number, as NumTextSigned writes it
// (an optional blank or minus sign, then digits); nullopt for any other text.
std::optional<int64_t> PlainWholeNumber(const std::string& text) {
    size_t start = !text.empty() && (text[0] == ' ' || text[0] == '-') ? 1 : 0;
    const char* first = text.data() + start;
    const char* last = text.data() + text.size();
    if (first == last || *first < '0' || *first > '9') return std::nullopt;
    int64_t value = 0;
    const auto [end, fault] = std::from_chars(first, last, value);
    if (fault != std::errc() || end != last) return std::nullopt;
    return text[0] == '-' ? -value : value;
}

} // namespace

CDatabase::CDatabase() = default;
CDatabase::~CDatabase() = default;

void CDatabase::Connect(const std::string& db) {
    m_addFile.reset();
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
    // A row the prepared statement could not write is written again below, which reports it.
    if (const std::optional<int64_t> bytes = PlainWholeNumber(size))
        if (AddPrepared(run, sig, source, target, *bytes)) return;
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

bool CDatabase::AddPrepared(int32_t run, const std::string& sig, const std::string& source,
                            const std::string& target, int64_t size) {
    if (!m_addFile)
        m_addFile = std::make_unique<CSqliteStatement>(
            m_db.Handle(), "INSERT INTO Files (md5, file, backup, path, bid, size)"
                           " VALUES (?1, ?2, ?3, ?4, ?5, ?6)");
    if (!*m_addFile) return false;
    // The same values as the literals below would give: texts as text, numbers as numbers.
    CSqliteStatement& row = *m_addFile;
    row.BindText(1, sig);
    row.BindText(2, SQLQuoteEncode(source));
    row.BindText(3, target);
    row.BindText(4, SQLQuoteEncode(FSGetPathPart(source)));
    row.Bind(5, int64_t{run});
    row.Bind(6, size);
    return row.StepDone();
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
