#include "catalogue/CDatabase.h"

// Each operation resets the access object, builds one insert or select and runs it on the
// run's one connection; the texts go in as SQL literals (SQLLiteral), numbers go in bare.

#include "catalogue/CSqliteStatement.h"
#include "catalogue/modSQLQuote.h"
#include "support/modDateText.h"
#include "support/modFSCommon.h"
#include "support/modMsgBox.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

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

// The thread that writes a run's Files rows aside: the run hands rows over in batches and goes
// on; it waits only when the thread is a few batches behind, so memory stays bounded.
struct CDatabase::RowWriter {
    using Row = FileRow;

    explicit RowWriter(CDatabase& owner) : db(owner), writing([this] { Write(); }) {}
    ~RowWriter() { Finish(); }

    void Add(Row row) {
        std::unique_lock lock(mutex);
        drained.wait(lock, [this] { return waiting.size() < kMostWaiting; });
        waiting.push_back(std::move(row));
        if (waiting.size() >= kBatch) ready.notify_one();
    }

    // Returns once every row handed over is written and the thread waits for more.
    void Drain() {
        std::unique_lock lock(mutex);
        draining = true;
        ready.notify_one();
        drained.wait(lock, [this] { return waiting.empty() && !busy; });
        draining = false;
    }

    void Finish() {
        if (!writing.joinable()) return;
        {
            std::lock_guard lock(mutex);
            finishing = true;
        }
        ready.notify_one();
        writing.join();
    }

    void Write() {
        std::vector<Row> batch;
        for (;;) {
            {
                std::unique_lock lock(mutex);
                busy = false;
                drained.notify_all();
                ready.wait(lock, [this] {
                    return waiting.size() >= kBatch || finishing || (draining && !waiting.empty());
                });
                if (waiting.empty() && finishing) return;
                batch.swap(waiting);
                busy = true;
            }
            drained.notify_all();
            WriteBatch(batch);
            batch.clear();
        }
    }

    // The rows go in kRowsTogether at a time, for a statement costs SQLite about as much again
    // as the row it writes. Rows that could not be written together are written one by one,
    // so that each row that fails is counted. A failure that ended the run's transaction (SQLite
    // rolls it back on a full disk, say) ends the writing: no later row is written, where it
    // would be committed on its own, and each is counted as failed.
    void WriteBatch(const std::vector<Row>& rows) {
        sqlite3* handle = db.m_db.Handle();
        const auto failedAt = [&](size_t at) {
            lastError = sqlite3_errmsg(handle);
            if (!sqlite3_get_autocommit(handle)) return false;
            transactionEnded = true;
            failed += static_cast<int32_t>(rows.size() - at);
            return true;
        };
        if (transactionEnded) failed += static_cast<int32_t>(rows.size());
        for (size_t at = 0; at < rows.size() && !transactionEnded;) {
            if (rows.size() - at >= kRowsTogether) {
                if (db.AddPreparedTogether(&rows[at])) {
                    at += kRowsTogether;
                    continue;
                }
                if (failedAt(at)) return;
            }
            for (const size_t end = std::min(rows.size(), at + kRowsTogether); at < end; ++at) {
                const Row& row = rows[at];
                if (db.AddPrepared(row)) continue;
                if (failedAt(at)) return;
                ++failed;
            }
        }
    }

    static constexpr size_t kBatch = 256;
    static constexpr size_t kMostWaiting = 16 * kBatch;

    CDatabase& db;
    std::mutex mutex;
    std::condition_variable ready;   // a batch waits, or the rows are drained or finished
    std::condition_variable drained; // the thread took the waiting rows, or is idle
    std::vector<Row> waiting;
    bool busy = false; // the thread is writing a batch
    bool draining = false;
    bool finishing = false;
    int32_t failed = 0; // the thread's own until it is joined
    bool transactionEnded = false;
    std::string lastError;
    std::thread writing; // last: started once the rest is ready
};

CDatabase::CDatabase() = default;

CDatabase::~CDatabase() {
    FinishRows();
}

void CDatabase::WriteRowsAside() {
    if (m_connected && !m_writer) m_writer = std::make_unique<RowWriter>(*this);
}

void CDatabase::FinishRows() {
    if (!m_writer) return;
    m_writer->Finish();
    if (m_writer->failed > 0) {
        m_failedWrites += m_writer->failed;
        m_lastWriteError = m_writer->lastError;
    }
    m_writer.reset();
}

void CDatabase::Commit() {
    FinishRows();
    m_db.Commit();
}

void CDatabase::Rollback() {
    FinishRows();
    m_db.Rollback();
}

void CDatabase::Connect(const std::string& db) {
    FinishRows();
    m_addFile.reset();
    m_addFiles.reset();
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
    const std::optional<int64_t> bytes = PlainWholeNumber(size);
    if (m_writer) {
        if (bytes) {
            m_writer->Add({run, sig, source, target, *bytes});
            return;
        }
        m_writer->Drain(); // the connection is this thread's until the next row goes aside
    }
    m_db.Reset();
    // A row the prepared statement could not write is written again below, which reports it.
    if (bytes && AddPrepared({run, sig, source, target, *bytes})) return;
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

namespace {

constexpr const char* kInsertFiles =
    "INSERT INTO Files (md5, file, backup, path, bid, size) VALUES ";
constexpr const char* kFileRowValues = "(?, ?, ?, ?, ?, ?)";

} // namespace

void CDatabase::BindFileRow(CSqliteStatement& statement, int first, const FileRow& row,
                            std::string& file, std::string& folder) {
    file = SQLQuoteEncode(row.source);
    folder = SQLQuoteEncode(FSGetPathPart(row.source));
    statement.BindTextBorrowed(first, row.sig);
    statement.BindTextBorrowed(first + 1, file);
    statement.BindTextBorrowed(first + 2, row.target);
    statement.BindTextBorrowed(first + 3, folder);
    statement.Bind(first + 4, int64_t{row.run});
    statement.Bind(first + 5, row.size);
}

bool CDatabase::AddPrepared(const FileRow& row) {
    if (!m_addFile)
        m_addFile = std::make_unique<CSqliteStatement>(
            m_db.Handle(), (std::string(kInsertFiles) + kFileRowValues).c_str());
    if (!*m_addFile) return false;
    std::string file, folder;
    BindFileRow(*m_addFile, 1, row, file, folder);
    return m_addFile->StepDoneAndUnbind();
}

bool CDatabase::AddPreparedTogether(const FileRow* rows) {
    if (!m_addFiles) {
        std::string sql = kInsertFiles;
        for (size_t i = 0; i < kRowsTogether; ++i)
            sql += std::string(i == 0 ? "" : ", ") + kFileRowValues;
        m_addFiles = std::make_unique<CSqliteStatement>(m_db.Handle(), sql.c_str());
    }
    if (!*m_addFiles) return false;
    std::array<std::string, kRowsTogether> files, folders; // borrowed until the statement ran
    for (size_t i = 0; i < kRowsTogether; ++i)
        BindFileRow(*m_addFiles, static_cast<int>(i * 6 + 1), rows[i], files[i], folders[i]);
    return m_addFiles->StepDoneAndUnbind();
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
