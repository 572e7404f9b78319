#include "catalogue/CMetadataDB.h"

#include "catalogue/CSqliteConnection.h"
#include "catalogue/CSqliteStatement.h"
#include "platform/CFile.h"
#include "platform/modFileStatus.h"
#include "platform/modFileSystem.h"
#include "support/modFSCommon.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace {

constexpr const char* kMetadataSchema =
    "CREATE TABLE IF NOT EXISTS Runs (bid INTEGER PRIMARY KEY, datebk TEXT NOT NULL);"
    "CREATE TABLE IF NOT EXISTS Entries (bid INTEGER NOT NULL, path BLOB NOT NULL,"
    " seq INTEGER NOT NULL, kind INTEGER NOT NULL, mtime INTEGER NOT NULL, mode INTEGER NOT NULL,"
    " owner INTEGER NOT NULL, grp INTEGER NOT NULL, target BLOB, PRIMARY KEY (bid, path))"
    " WITHOUT ROWID;"
    "CREATE TABLE IF NOT EXISTS Tallies (bid INTEGER PRIMARY KEY, seen INTEGER, added INTEGER,"
    " addedBytes INTEGER, stored INTEGER, empty INTEGER, hidden INTEGER, system INTEGER,"
    " excluded INTEGER, unreadable INTEGER, problems BLOB);";

constexpr const char* kColumns = "path, kind, mtime, mode, owner, grp, target";

// A link standing where the file belongs is never followed. (SQLite's own NOFOLLOW would also
// refuse a backup path that leads through a link to the drive.)
bool IsLink(const std::string& file) {
    return StatusOf(file, true).kind == PathKind::kLink;
}

EntryMetadata EntryOf(const CSqliteStatement& row) {
    EntryMetadata entry;
    entry.path = row.Bytes(0);
    entry.kind = static_cast<EntryMetadata::Kind>(row.Number(1));
    entry.writeNs = row.Number(2);
    entry.mode = static_cast<uint32_t>(row.Number(3));
    entry.owner = static_cast<uint32_t>(row.Number(4));
    entry.group = static_cast<uint32_t>(row.Number(5));
    entry.target = row.Bytes(6);
    return entry;
}

} // namespace

// The record is written on a thread of its own, so that the walk that lists a run's entries
// (which has the run to itself until it ends) does not wait for SQLite: the walk hands entries
// over in batches, and the connection is used by the writing thread alone until Finish.
struct CMetadataDB::Writer {
    // The connection is used by one thread at a time (see above): it needs no lock of its own.
    Writer(const std::string& file, int32_t run)
        : db(file, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX), bid(run) {}
    ~Writer() { Finish(); }

    // The schema, the transaction, and the rows of an earlier record under the same number
    // gone, then the writing thread started; false when the file cannot be used.
    bool Start() {
        // A run's entries stay in memory until the commit (up to 8 MB, some 60,000 entries)
        // instead of spilling into the file page by page.
        if (!db || !db.Run("PRAGMA cache_size = -8192") || !db.Run(kMetadataSchema) ||
            !db.Run("BEGIN IMMEDIATE"))
            return false;
        for (const char* forget :
             {"DELETE FROM Entries WHERE bid = ?1", "DELETE FROM Runs WHERE bid = ?1",
              "DELETE FROM Tallies WHERE bid = ?1"}) {
            CSqliteStatement statement(db.Handle(), forget);
            if (!statement) return false;
            statement.Bind(1, int64_t{bid});
            if (!statement.StepDone()) return false;
        }
        const std::string insert = "INSERT OR REPLACE INTO Entries (bid, seq, path, kind, mtime,"
                                   " mode, owner, grp, target) VALUES ";
        const std::string values = "(?, ?, ?, ?, ?, ?, ?, ?, ?)";
        std::string together = insert + values;
        for (size_t i = 1; i < kEntriesTogether; ++i)
            together += ", " + values;
        add = std::make_unique<CSqliteStatement>(db.Handle(), (insert + values).c_str());
        addTogether = std::make_unique<CSqliteStatement>(db.Handle(), together.c_str());
        if (!*add || !*addTogether) return false;
        writing = std::thread([this] { Write(); });
        return true;
    }

    // Hands one entry to the writing thread; false once an entry could not be written. The
    // walk waits only when the thread is a few batches behind, so memory stays bounded.
    bool Add(EntryMetadata entry) {
        std::unique_lock lock(mutex);
        if (failed) return false;
        drained.wait(lock, [this] { return waiting.size() < kMostWaiting || failed; });
        waiting.push_back(std::move(entry));
        // The first entry is written at once, so the record's transaction is open in its file
        // from the walk's start on, as when it was written entry by entry.
        if (waiting.size() == kBatch || !begun) ready.notify_one();
        return !failed;
    }

    // Every entry handed over is written (or the record failed); the connection is this
    // thread's again. False when an entry could not be written.
    bool Finish() {
        if (writing.joinable()) {
            {
                std::lock_guard lock(mutex);
                finishing = true;
            }
            ready.notify_one();
            writing.join();
        }
        add.reset();
        addTogether.reset();
        return !failed;
    }

    void Write() {
        std::vector<EntryMetadata> batch;
        for (;;) {
            {
                std::unique_lock lock(mutex);
                ready.wait(lock, [this] {
                    return waiting.size() >= kBatch || (!begun && !waiting.empty()) || finishing;
                });
                begun = true;
                if (failed || (waiting.empty() && finishing)) return;
                batch.swap(waiting);
            }
            drained.notify_all();
            // The entries go in kEntriesTogether at a time, for a statement costs SQLite about as
            // much again as the entry it writes; one that fails fails the whole record.
            bool ok = true;
            size_t at = 0;
            for (; ok && batch.size() - at >= kEntriesTogether; at += kEntriesTogether)
                ok = Insert(*addTogether, &batch[at], kEntriesTogether);
            for (; ok && at < batch.size(); ++at)
                ok = Insert(*add, &batch[at], 1);
            batch.clear();
            if (!ok) {
                std::lock_guard lock(mutex);
                failed = true;
                waiting.clear();
                drained.notify_all();
                return;
            }
        }
    }

    // `count` entries through `statement`, which has a row of values for each.
    bool Insert(CSqliteStatement& statement, const EntryMetadata* entries, size_t count) {
        for (size_t i = 0; i < count; ++i) {
            const EntryMetadata& entry = entries[i];
            const int first = static_cast<int>(i * 9 + 1);
            statement.Bind(first, int64_t{bid});
            statement.Bind(first + 1, ++seq);
            statement.BindBorrowed(first + 2, entry.path);
            statement.Bind(first + 3, int64_t{static_cast<int>(entry.kind)});
            statement.Bind(first + 4, entry.writeNs);
            statement.Bind(first + 5, int64_t{entry.mode});
            statement.Bind(first + 6, int64_t{entry.owner});
            statement.Bind(first + 7, int64_t{entry.group});
            statement.BindBorrowed(first + 8, entry.target);
        }
        return statement.StepDoneAndUnbind();
    }

    static constexpr size_t kBatch = 512;
    static constexpr size_t kMostWaiting = 8 * kBatch;
    static constexpr size_t kEntriesTogether = 16;

    CSqliteConnection db;
    int32_t bid;
    int64_t seq = 0; // the writing thread's count of entries written
    std::unique_ptr<CSqliteStatement> add;
    std::unique_ptr<CSqliteStatement> addTogether; // kEntriesTogether entries at once
    std::thread writing;
    std::mutex mutex;
    std::condition_variable ready;   // a batch is waiting, or the record is finishing
    std::condition_variable drained; // the writing thread took the waiting entries
    std::vector<EntryMetadata> waiting;
    bool begun = false; // the writing thread took its first entries
    bool finishing = false;
    bool failed = false;
};

CMetadataDB::CMetadataDB() = default;

CMetadataDB::~CMetadataDB() {
    Abandon();
}

std::string CMetadataDB::PathBeside(const std::string& cataloguePath) {
    return FSGetPathPart(cataloguePath) + "Metadata.db";
}

bool CMetadataDB::Begin(const std::string& file, int32_t bid) {
    Abandon();
    if (IsLink(file)) return false;
    for (int attempt = 0; attempt < 2; ++attempt) {
        // It holds paths and owners of the user's files: private before SQLite opens it.
        MakePrivateFile(file);
        m_writer = std::make_unique<Writer>(file, bid);
        if (m_writer->Start()) return true;
        m_writer.reset();
        // A damaged or foreign file: a new one takes its place; none is left when that fails too.
        CSqliteConnection::RemoveFiles(file);
    }
    return false;
}

bool CMetadataDB::Add(EntryMetadata entry) {
    return m_writer && m_writer->Add(std::move(entry));
}

bool CMetadataDB::Keep(const std::string& datebk, const RunTally* tally) {
    if (!m_writer) return false;
    bool kept = m_writer->Finish();
    if (kept) {
        CSqliteStatement run(m_writer->db.Handle(),
                             "INSERT INTO Runs (bid, datebk) VALUES (?1, ?2)");
        kept = static_cast<bool>(run);
        if (kept) {
            run.Bind(1, int64_t{m_writer->bid});
            run.BindText(2, datebk);
            kept = run.StepDone();
        }
    }
    if (kept && tally) {
        CSqliteStatement row(m_writer->db.Handle(),
                             "INSERT INTO Tallies (bid, seen, added, addedBytes, stored, empty,"
                             " hidden, system, excluded, unreadable, problems)"
                             " VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11)");
        kept = static_cast<bool>(row);
        if (kept) {
            std::string problems;
            // A name may hold a new line, never a NUL.
            for (const std::string& problem : tally->problems)
                problems += problem + '\0';
            int column = 1;
            row.Bind(column++, int64_t{m_writer->bid});
            for (const int64_t number :
                 {tally->seen, tally->added, tally->addedBytes, tally->stored, tally->empty,
                  tally->hidden, tally->system, tally->excluded, tally->unreadable})
                row.Bind(column++, number);
            row.Bind(column, problems);
            kept = row.StepDone();
        }
    }
    kept = kept && m_writer->db.Run("COMMIT");
    if (!kept) m_writer->db.Run("ROLLBACK");
    m_writer.reset();
    return kept;
}

void CMetadataDB::Abandon() {
    if (!m_writer) return;
    m_writer->Finish();
    m_writer->db.Run("ROLLBACK");
    m_writer.reset();
}

bool CMetadataDB::KeepOnly(const std::string& file,
                           const std::vector<std::pair<int32_t, std::string>>& runs) {
    if (IsLink(file)) return false;
    if (!StatusOf(file).Exists()) return true; // no record was ever kept
    CSqliteConnection db(file, SQLITE_OPEN_READWRITE);
    if (!db || !db.Run(kMetadataSchema) || !db.Run("BEGIN IMMEDIATE") ||
        !db.Run("CREATE TEMP TABLE IF NOT EXISTS Kept (bid INTEGER, datebk TEXT)") ||
        !db.Run("DELETE FROM Kept"))
        return false;
    bool ok = true;
    {
        CSqliteStatement kept(db.Handle(), "INSERT INTO Kept (bid, datebk) VALUES (?1, ?2)");
        ok = static_cast<bool>(kept);
        for (size_t i = 0; ok && i < runs.size(); ++i) {
            kept.Bind(1, int64_t{runs[i].first});
            kept.BindText(2, runs[i].second);
            ok = kept.StepDone();
        }
    }
    // The rows of a run are one range of the key, so only the runs that go are visited.
    ok = ok && db.Run("CREATE TEMP TABLE IF NOT EXISTS Gone (bid INTEGER PRIMARY KEY)") &&
         db.Run("DELETE FROM Gone") &&
         db.Run("INSERT INTO Gone SELECT bid FROM Runs WHERE NOT EXISTS (SELECT 1 FROM Kept"
                " WHERE Kept.bid = Runs.bid AND Kept.datebk = Runs.datebk)") &&
         db.Run("DELETE FROM Entries WHERE bid IN (SELECT bid FROM Gone)") &&
         db.Run("DELETE FROM Tallies WHERE bid IN (SELECT bid FROM Gone)") &&
         db.Run("DELETE FROM Runs WHERE bid IN (SELECT bid FROM Gone)") && db.Run("COMMIT");
    if (!ok) db.Run("ROLLBACK");
    return ok;
}

std::vector<KeptTally> CMetadataDB::Tallies(const std::string& file) {
    std::vector<KeptTally> tallies;
    if (!StatusOf(file).Exists() || IsLink(file)) return tallies;
    CSqliteConnection db(file, SQLITE_OPEN_READONLY);
    if (!db) return tallies;
    CSqliteStatement read(db.Handle(),
                          "SELECT r.bid, r.datebk, t.seen, t.added, t.addedBytes, t.stored,"
                          " t.empty, t.hidden, t.system, t.excluded, t.unreadable, t.problems"
                          " FROM Runs r JOIN Tallies t ON t.bid = r.bid ORDER BY r.bid");
    if (!read) return tallies;
    while (sqlite3_step(read.Get()) == SQLITE_ROW) {
        KeptTally kept;
        kept.bid = static_cast<int32_t>(read.Number(0));
        kept.datebk = read.Bytes(1);
        RunTally& tally = kept.tally;
        int column = 2;
        for (int64_t* number :
             {&tally.seen, &tally.added, &tally.addedBytes, &tally.stored, &tally.empty,
              &tally.hidden, &tally.system, &tally.excluded, &tally.unreadable})
            *number = read.Number(column++);
        const std::string problems = read.Bytes(column);
        for (size_t start = 0, end; (end = problems.find('\0', start)) != std::string::npos;
             start = end + 1)
            tally.problems.push_back(problems.substr(start, end - start));
        tallies.push_back(std::move(kept));
    }
    return tallies;
}

bool CMetadataDB::Vacuum(const std::string& file) {
    if (IsLink(file)) return false;
    if (!StatusOf(file).Exists()) return true;
    CSqliteConnection db(file, SQLITE_OPEN_READWRITE);
    return db && db.Run("VACUUM");
}

struct CMetadataReader::Reader {
    Reader(const std::string& file, int flags) : db(file, flags) {}
    CSqliteConnection db;
    int32_t bid = 0;
    std::unique_ptr<CSqliteStatement> find;
};

CMetadataReader::CMetadataReader() = default;
CMetadataReader::~CMetadataReader() = default;

bool CMetadataReader::Open(const std::string& file, int32_t bid, const std::string& datebk) {
    m_reader.reset();
    if (!StatusOf(file).Exists() || IsLink(file)) return false; // never created by a read
    // Read-only first. A record that a killed writer left with its journal can only be read
    // once the journal is rolled back, which takes a connection that may write (when this
    // user may write there); otherwise every run would restore as if it had no record.
    for (const int flags : {SQLITE_OPEN_READONLY, SQLITE_OPEN_READWRITE}) {
        auto reader = std::make_unique<Reader>(file, flags);
        // One read transaction for every lookup of the restore, instead of the file's lock
        // taken and given back for each (a restore holds the backup folder: no run writes).
        if (!reader->db || !reader->db.Run("BEGIN")) return false;
        int found = SQLITE_ERROR;
        std::string kept;
        {
            CSqliteStatement which(reader->db.Handle(), "SELECT datebk FROM Runs WHERE bid = ?1");
            if (which) {
                which.Bind(1, int64_t{bid});
                found = sqlite3_step(which.Get());
                if (found == SQLITE_ROW) kept = which.Bytes(0);
            }
        }
        if (found == SQLITE_ROW) {
            if (kept != datebk) return false;
            reader->bid = bid;
            reader->find = std::make_unique<CSqliteStatement>(
                reader->db.Handle(),
                (std::string("SELECT ") + kColumns + " FROM Entries WHERE bid = ?1 AND path = ?2")
                    .c_str());
            if (!*reader->find) return false;
            m_reader = std::move(reader);
            return true;
        }
        if (sqlite3_extended_errcode(reader->db.Handle()) != SQLITE_READONLY_ROLLBACK) return false;
    }
    return false;
}

std::optional<EntryMetadata> CMetadataReader::Find(const std::string& path) {
    if (!m_reader) return std::nullopt;
    CSqliteStatement& find = *m_reader->find;
    find.Bind(1, int64_t{m_reader->bid});
    find.Bind(2, path);
    std::optional<EntryMetadata> entry;
    if (sqlite3_step(find.Get()) == SQLITE_ROW) entry = EntryOf(find);
    sqlite3_reset(find.Get());
    return entry;
}

void CMetadataReader::InFolder(const std::string& folder,
                               const std::function<void(const EntryMetadata&)>& entry) {
    if (!m_reader) return;
    // The paths below the folder are one range of the key: from the folder and its separator
    // up to the folder and the byte after the separator.
    std::string from = folder;
    if (from.empty() || !IsPathSeparator(from.back())) from += kPathSeparator;
    std::string to = from;
    to.back() = static_cast<char>(to.back() + 1);
    CSqliteStatement read(m_reader->db.Handle(),
                          (std::string("SELECT ") + kColumns +
                           " FROM Entries WHERE bid = ?1 AND path > ?2 AND path < ?3")
                              .c_str());
    if (!read) return;
    read.Bind(1, int64_t{m_reader->bid});
    read.Bind(2, from);
    read.Bind(3, to);
    while (sqlite3_step(read.Get()) == SQLITE_ROW) {
        const EntryMetadata found = EntryOf(read);
        if (std::none_of(found.path.begin() + static_cast<std::ptrdiff_t>(from.size()),
                         found.path.end(), IsPathSeparator))
            entry(found);
    }
}

std::vector<EntryMetadata> CMetadataReader::OfKind(EntryMetadata::Kind kind) {
    std::vector<EntryMetadata> entries;
    if (!m_reader) return entries;
    CSqliteStatement read(m_reader->db.Handle(),
                          (std::string("SELECT ") + kColumns +
                           " FROM Entries WHERE bid = ?1 AND kind = ?2 ORDER BY seq")
                              .c_str());
    if (!read) return entries;
    read.Bind(1, int64_t{m_reader->bid});
    read.Bind(2, int64_t{static_cast<int>(kind)});
    while (sqlite3_step(read.Get()) == SQLITE_ROW)
        entries.push_back(EntryOf(read));
    return entries;
}
