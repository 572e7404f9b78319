// The metadata record beside the catalogue (db/Metadata.db) through kills with SIGKILL: of a
// backup run while it walks and stores and after its record is kept, of the retention that ends
// a run, of Delete of removed sources and of Compact. Each kill is aimed at a stage of the work
// by watching the journals of the catalogue (C when it comes, c when it goes) and of the record
// (M, m) as the program writes them, and at several moments within that stage. After each kill
// and the start that recovers the catalogue, the catalogue is sound and holds exactly the runs
// the stage leaves; the record can be read as qrv reads it and names exactly those runs; and qrv
// restores surviving runs with each file's mode and write time, the empty file, the link and the
// folders' own, as `find` listed the source when the run was made. Every kill starts from the
// same copy of the backup folder, so that each one meets the same work.
//
// Delete has no word on the command line (only the window's Delete button starts it), so
// DeleteRemovedSources runs in a child process of the test, which is killed.
//
// Two kills need the start that follows them: one that leaves the record's journal hot, and one
// between the drop of runs from the catalogue and the drop of their records; see their tests.

#include "BackupFixture.h"
#include "FindListing.h"
#include "StoreAudit.h"
#include "TestProgram.h"
#include "app/modMaintenance.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <sqlite3.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

using Lines = std::vector<std::string>;
using Listing = std::map<std::string, std::string>;
using Clock = std::chrono::steady_clock;
using Millis = std::chrono::duration<double, std::milli>;
namespace fs = std::filesystem;

constexpr int64_t kSecond = 1'000'000'000;

// ---- The source and what `find` says of it ------------------------------------------------

// Sets the write time of `path` (and its access time, which no listing shows); a link's own.
void SetTime(const std::string& path, int64_t ns) {
    ASSERT_TRUE(SetFileTimes(path, ns, ns)) << path;
}

void SetMeta(const std::string& path, mode_t mode, int64_t ns) {
    ASSERT_EQ(::chmod(path.c_str(), mode), 0) << path;
    SetTime(path, ns);
}

constexpr mode_t kModes[] = {0600, 0640, 0644, 0700, 0750, 0755, 0604, 0711};

// A source of 40 small files in docs/, three of 500 kB in data/, an empty file, a link and an
// empty folder, each with a mode and a write time of its own.
void MakeSource(const std::string& src) {
    std::vector<std::pair<std::string, TestNode>> docs;
    for (int i = 0; i < 40; ++i)
        docs.emplace_back("doc" + std::to_string(i) + ".txt",
                          File("document " + std::to_string(i) + PatternContent(i * 97)));
    CreateTree(src, Dir({{"notes.txt", File("notes")},
                         {"empty.txt", File("")},
                         {"docs", Dir(docs)},
                         {"data", Dir()},
                         {"nothing here", Dir()}}));
    for (int i = 0; i < 40; ++i)
        SetMeta(src + "/docs/doc" + std::to_string(i) + ".txt", kModes[i % 8],
                1'000'000'000 * kSecond + i * 86'400 * kSecond + i * 1'111);
    SetMeta(src + "/notes.txt", 0640, 915'148'800'123'456'789);
    SetMeta(src + "/empty.txt", 0604, 1'200'000'000'000'000'007);
    ASSERT_EQ(::symlink("notes.txt", (src + "/to-notes").c_str()), 0);
    SetTime(src + "/to-notes", 1'234'567'890'000'000'000);
}

// Version `k` of the source: stamp.txt and the files of data/ with new content, modes and times;
// then the folders' own times and modes. What `find` says of it.
Listing MakeVersion(const std::string& src, int k) {
    WriteFile(src + "/stamp.txt", "version " + std::to_string(k));
    SetMeta(src + "/stamp.txt", kModes[k % 8], 1'500'000'000 * kSecond + k * 1'000'003);
    for (int i = 0; i < 3; ++i) {
        const std::string file = src + "/data/part" + std::to_string(i) + ".bin";
        WriteFile(file,
                  "v" + std::to_string(k) + "." + std::to_string(i) + PatternContent(500'000));
        SetMeta(file, kModes[(k + i) % 8], 1'600'000'000 * kSecond + k * 7'000'011 + i);
    }
    SetMeta(src + "/data", 0700, 1'010'000'000'000'000'000 + k);
    SetMeta(src + "/docs", 0755, 1'020'000'000'000'000'000);
    SetMeta(src + "/nothing here", 0711, 1'030'000'000'000'000'000);
    SetMeta(src, 0750, 1'070'000'000'000'000'000 + k);
    return FindListing(src);
}

// ---- The journals, watched ----------------------------------------------------------------

// What came of the journals of the catalogue and of the metadata record: C when the
// catalogue's was made and c when it went, M and m for the record's, in order, each with the
// time it was seen. A journal goes when its transaction commits (or rolls back).
struct Journals {
    std::string trace;
    std::vector<Clock::time_point> seen;
    Clock::time_point start = Clock::now();

    Millis SinceChange() const { return Clock::now() - (seen.empty() ? start : seen.back()); }
    // How long the trace stayed at its first `letters` letters.
    Millis Stayed(size_t letters) const {
        if (letters == 0 || letters >= seen.size()) return Millis(0);
        return seen[letters] - seen[letters - 1];
    }
};

// Watches the journals in the backup folder's db/ folder through inotify, which keeps every
// making and removing in order however short the journal's life; Poll takes in what came.
class JournalWatch {
public:
    explicit JournalWatch(const std::string& backup)
        : m_fd(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
        EXPECT_GE(m_fd, 0);
        EXPECT_GE(::inotify_add_watch(m_fd, (backup + "/db").c_str(),
                                      IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO),
                  0);
    }
    ~JournalWatch() { ::close(m_fd); }
    JournalWatch(const JournalWatch&) = delete;
    JournalWatch& operator=(const JournalWatch&) = delete;

    void Poll() {
        alignas(inotify_event) char buffer[8192];
        ssize_t got;
        while ((got = ::read(m_fd, buffer, sizeof buffer)) > 0) {
            for (char* at = buffer; at < buffer + got;) {
                const auto* event = reinterpret_cast<const inotify_event*>(at);
                const std::string name = event->len ? event->name : "";
                const bool gone = event->mask & (IN_DELETE | IN_MOVED_FROM);
                if (name == "Backup.db-journal") Note(gone ? 'c' : 'C');
                if (name == "Metadata.db-journal") Note(gone ? 'm' : 'M');
                at += sizeof(inotify_event) + event->len;
            }
        }
    }
    const Journals& Seen() const { return m_journals; }
    const std::string& Trace() const { return m_journals.trace; }

private:
    void Note(char letter) {
        m_journals.trace += letter;
        m_journals.seen.push_back(Clock::now());
    }
    int m_fd;
    Journals m_journals;
};

// A moment to kill at: once the trace is `at` and has stayed so for `after` milliseconds. A
// trace that moves on before then passes the moment by.
struct Moment {
    std::string at;
    double after = 0;
};

std::string Name(const Moment& moment) {
    return "'" + moment.at + "'+" + std::to_string(moment.after) + "ms";
}

bool Reached(const JournalWatch& watch, const Moment& moment) {
    return watch.Trace() == moment.at && watch.Seen().SinceChange() >= Millis(moment.after);
}

// How one attempt ended: killed or not, and the journals watched up to then.
struct Attempt {
    bool killed = false;
    Journals journals;
    std::string err;
    Millis tail{0}; // from the last journal's coming or going to the end
    const std::string& Trace() const { return journals.trace; }
};

// Runs stashwell with `words` and kills it at `moment`, when the moment comes.
Attempt RunUntil(const std::vector<std::string>& words, const std::string& backup,
                 const Moment& moment) {
    JournalWatch watch(backup);
    const ProgramRun run = RunStashwellUntil(words, [&] {
        watch.Poll();
        return Reached(watch, moment);
    });
    watch.Poll();
    return {run.signal == SIGKILL, watch.Seen(), run.err, watch.Seen().SinceChange()};
}

// Runs `work` in a child process of the test and kills it at `moment`, when the moment comes.
Attempt ForkUntil(const std::function<void()>& work, const std::string& backup,
                  const Moment& moment) {
    JournalWatch watch(backup);
    std::fflush(nullptr);
    const pid_t child = ::fork();
    if (child == 0) {
        try {
            work();
        } catch (...) {
            ::_exit(2);
        }
        ::_exit(0);
    }
    const auto deadline = Clock::now() + std::chrono::seconds(60);
    bool sent = false, late = false;
    int status = 0;
    while (::waitpid(child, &status, WNOHANG) == 0) {
        watch.Poll();
        late = late || Clock::now() > deadline;
        if (!sent && (Reached(watch, moment) || late)) {
            ::kill(child, SIGKILL);
            sent = true;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    watch.Poll();
    Attempt attempt{WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL && !late,
                    watch.Seen(),
                    {},
                    watch.Seen().SinceChange()};
    if (late)
        attempt.err = "the child did not end within a minute";
    else if (!attempt.killed && !(WIFEXITED(status) && WEXITSTATUS(status) == 0))
        attempt.err = "the child ended with status " + std::to_string(status);
    return attempt;
}

// ---- What a backup folder holds after a kill -----------------------------------------------

// The metadata record read as qrv reads it (read-only, as CMetadataReader opens it): its runs as
// "bid|datebk", ascending, and the runs of entries outside any record. `problem` says why it
// could not be read (such as a journal that only a writer can roll back).
struct RecordRead {
    std::string problem;
    Lines runs;
    Lines loose;
};

RecordRead ReadRecord(const std::string& backup) {
    RecordRead read;
    const std::string file = backup + "/db/Metadata.db";
    if (!Exists(file)) {
        read.problem = "there is no record";
        return read;
    }
    sqlite3* db = nullptr;
    const auto query = [&](const char* sql, Lines& into) {
        sqlite3_stmt* statement = nullptr;
        int code = sqlite3_prepare_v2(db, sql, -1, &statement, nullptr);
        while (statement && (code = sqlite3_step(statement)) == SQLITE_ROW) {
            std::string row;
            for (int c = 0; c < sqlite3_column_count(statement); ++c) {
                const auto* text = sqlite3_column_text(statement, c);
                row +=
                    (c ? "|" : "") + std::string(text ? reinterpret_cast<const char*>(text) : "");
            }
            into.push_back(row);
        }
        if (code != SQLITE_DONE && read.problem.empty())
            read.problem = std::string(sqlite3_errmsg(db)) + " (" +
                           std::to_string(sqlite3_extended_errcode(db)) + ")";
        sqlite3_finalize(statement);
    };
    if (sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
        read.problem = "it cannot be opened";
    } else {
        query("SELECT bid, datebk FROM Runs ORDER BY bid", read.runs);
        query("SELECT DISTINCT bid FROM Entries WHERE bid NOT IN (SELECT bid FROM Runs)",
              read.loose);
    }
    sqlite3_close(db);
    return read;
}

struct MetadataKillsBase : ::testing::Test {
    BackupFixture f;
    std::string src = f.env.Path("src");
    std::string pristine = f.env.Path("pristine");
    std::map<int, Listing> listings; // what `find` said of the source at each run, by bid
    bool killsRuns = true;           // whether the work killed is a backup run
    int restores = 0;

    void Backup() {
        const ProgramRun run = RunStashwell({"backup"});
        ASSERT_EQ(run.exitCode, 0) << run.err;
    }
    // The backup folder as it is now is where every kill starts.
    void KeepPristine() {
        ASSERT_FALSE(Exists(f.db + "-journal"));
        ASSERT_FALSE(Exists(f.backup + "/db/Metadata.db-journal"));
        fs::copy(f.backup, pristine, fs::copy_options::recursive);
    }
    // Puts back the catalogue and the record as they were in the copy, and the store as it was:
    // what a kill added goes (store files, temporary files, the mark of an unfinished run), what
    // a compact deleted comes back, linked to the copy's (store files never change once named).
    // The logs and the folder's lock file stay.
    void BackToPristine() {
        const std::string db = f.backup + "/db";
        for (const fs::directory_entry& entry : fs::directory_iterator(db))
            fs::remove(entry.path());
        for (const fs::directory_entry& entry : fs::directory_iterator(pristine + "/db"))
            fs::copy_file(entry.path(), fs::path(db) / entry.path().filename());
        const std::string store = f.backup + "/Files/", kept = pristine + "/Files/";
        const Lines now = ListTree(store), then = ListTree(kept);
        const std::set<std::string> wanted(then.begin(), then.end());
        const std::set<std::string> there(now.begin(), now.end());
        for (auto entry = now.rbegin(); entry != now.rend(); ++entry) // contents before folders
            if (!wanted.count(*entry)) fs::remove(store + *entry);
        for (const std::string& entry : then) {
            if (there.count(entry)) continue;
            if (entry.back() == '/')
                fs::create_directory(store + entry, kept + entry);
            else
                fs::create_hard_link(kept + entry, store + entry);
        }
    }
    Lines CatalogueRuns() const {
        return f.RowTexts("SELECT bid, datebk FROM Backups ORDER BY bid");
    }
    std::vector<int> Bids() const {
        std::vector<int> bids;
        for (const std::string& bid : f.Rows("SELECT bid FROM Backups ORDER BY bid"))
            bids.push_back(std::stoi(bid));
        return bids;
    }

    // A clean run of the work, unkilled, from the pristine copy, whose journals must come and
    // go as `trace` says; the pristine copy is put back afterwards.
    Attempt Measure(const std::function<Attempt(const Moment&)>& attempt,
                    const std::string& trace) {
        BackToPristine();
        Attempt clean = attempt({"never", 0});
        EXPECT_FALSE(clean.killed);
        EXPECT_EQ(clean.err, "");
        EXPECT_EQ(clean.Trace(), trace) << "the journals came and went in another order: the "
                                           "moments of this test no longer mean their stages";
        BackToPristine();
        return clean;
    }

    // Kills the work at `moment`, from the pristine copy, and answers the trace at the kill. A
    // moment passed by (a stage that went faster than it did when measured), or a kill that
    // landed in the next stage (the program went on between the look and the signal), is tried
    // again with half the delay, a quarter, none.
    std::string KillAt(const std::function<Attempt(const Moment&)>& attempt, Moment moment) {
        for (int tries = 0; tries < 4; ++tries, moment.after = tries < 3 ? moment.after / 2 : 0) {
            BackToPristine();
            const Attempt run = attempt(moment);
            if (run.killed && run.Trace() == moment.at) return run.Trace();
            if (tries == 3)
                ADD_FAILURE() << "never killed at " << Name(moment) << "; the trace was '"
                              << run.Trace() << "' " << (run.killed ? "at the kill" : run.err);
        }
        return {};
    }

    // After a kill: the start that recovers the catalogue, then the catalogue, the store and the
    // record as `runs` (the bids the stage leaves), and qrv's restores of `restore` (bids).
    void ExpectAfterKill(const std::string& tag, const std::vector<int>& runs,
                         const std::vector<int>& restore) {
        const ProgramRun start = RunStashwell({"nothing"});
        ASSERT_EQ(start.exitCode, 0) << tag << start.err;
        // Read as qrv reads it: a journal that still had to be rolled back would give no row.
        EXPECT_EQ(f.Rows("PRAGMA integrity_check"), Lines{"ok"}) << tag;
        // The store, the rows and the record (AuditMetadata) as after a clean run; only the mark
        // of a killed run's unfinished store stays, until the next run opens the store.
        Lines problems = AuditBackupFolder(f.backup, AuditMoment::kAfterCleanRun);
        if (killsRuns) std::erase(problems, std::string("left behind: .unfinished"));
        EXPECT_EQ(problems, Lines{}) << tag;
        EXPECT_EQ(Bids(), runs) << tag;
        const RecordRead record = ReadRecord(f.backup);
        EXPECT_EQ(record.problem, "") << tag;
        EXPECT_EQ(record.runs, CatalogueRuns()) << tag;
        EXPECT_EQ(record.loose, Lines{}) << tag;
        for (int bid : restore)
            ExpectRestored(tag, bid);
    }

    // qrv restores run `bid` elsewhere as `find` listed the source when the run was made.
    void ExpectRestored(const std::string& tag, int bid) {
        const std::string to = f.env.Path("restored" + std::to_string(++restores));
        const ProgramRun run = RunQrv({"restore", std::to_string(bid), "--to", to});
        EXPECT_EQ(run.exitCode, 0) << tag << " run " << bid << ": " << run.err;
        EXPECT_EQ(run.err, "") << tag << " run " << bid;
        EXPECT_EQ(FindListing(to), listings.at(bid)) << tag << " run " << bid;
        fs::remove_all(to);
    }

    // After all kills: a clean backup from where the last kill left the folder, and the whole
    // folder audited.
    void ExpectCleanRunAfterwards() {
        Backup();
        EXPECT_EQ(AuditBackupFolder(f.backup), Lines{});
        const RecordRead record = ReadRecord(f.backup);
        EXPECT_EQ(record.problem, "");
        EXPECT_EQ(record.runs, CatalogueRuns());
    }
};

Attempt BackupUntil(const std::string& backup, const Moment& moment) {
    return RunUntil({"backup"}, backup, moment);
}

// ---- Backup runs ---------------------------------------------------------------------------

// A run of the source in version 2, after run 1 of version 1: the catalogue's journal comes
// first (C), the record's with the first entry of the walk (M); the run's commit removes the
// catalogue's (c), the record's kept removes its own (m).
struct MetadataKillsInBackup : MetadataKillsBase {
    void SetUp() override {
        MakeSource(src);
        f.AddSource(src);
        listings[1] = MakeVersion(src, 1);
        Backup();
        listings[2] = MakeVersion(src, 2);
        KeepPristine();
    }
    std::function<Attempt(const Moment&)> Run() {
        return [this](const Moment& moment) { return BackupUntil(f.backup, moment); };
    }
};

TEST_F(MetadataKillsInBackup, KilledWhileTheRunWalksAndStoresLeavesRunOneWithItsRecord) {
    // How long the walk and the store take: from the record's first entry to the commit.
    const double storing = Measure(Run(), "CMcm").journals.Stayed(2).count();
    ASSERT_GT(storing, 2.0) << "the run stores too fast to be killed within";
    for (double share : {0.0, 0.2, 0.4, 0.6, 0.8}) {
        const Moment moment{"CM", storing * share};
        const std::string trace = KillAt(Run(), moment);
        ASSERT_EQ(trace, "CM") << Name(moment);
        ExpectAfterKill(Name(moment), {1}, {1});
    }
    ExpectCleanRunAfterwards();
    EXPECT_EQ(Bids(), (std::vector<int>{1, 2}));
}

TEST_F(MetadataKillsInBackup, KilledAfterItsRecordIsKeptLeavesBothRunsWithTheirRecords) {
    // What is left of the run once its record is kept: the log's last lines, the logs purged.
    const double tail = Measure(Run(), "CMcm").tail.count();
    for (double share : {0.0, 0.3, 0.6}) {
        const Moment moment{"CMcm", tail * share};
        const std::string trace = KillAt(Run(), moment);
        ASSERT_EQ(trace, "CMcm") << Name(moment);
        ExpectAfterKill(Name(moment), {1, 2}, {1, 2});
    }
    ExpectCleanRunAfterwards();
    EXPECT_EQ(Bids(), (std::vector<int>{1, 2, 3}));
}

// A kill while the record's transaction is being committed, in the few milliseconds after the
// catalogue committed the run, can leave the record's journal hot (synced, its header written).
// The next start rolls it back (a read-only reader could not), so run 1, kept long before,
// restores with its modes and times. Run 2 itself then has no record and restores its bytes
// only.
TEST_F(MetadataKillsInBackup, KilledWhileItsRecordCommitsLeavesRunOneRestorableWithItsModes) {
    const double committing = Measure(Run(), "CMcm").journals.Stayed(3).count();
    for (int tenth = 0; tenth < 10; ++tenth) {
        const Moment moment{"CMc", committing * tenth / 10};
        const std::string trace = KillAt(Run(), moment);
        ASSERT_EQ(trace, "CMc") << Name(moment);
        const ProgramRun start = RunStashwell({"nothing"});
        ASSERT_EQ(start.exitCode, 0) << start.err;
        EXPECT_EQ(Bids(), (std::vector<int>{1, 2}));
        const RecordRead record = ReadRecord(f.backup);
        EXPECT_EQ(record.problem, "") << Name(moment);
        EXPECT_EQ(record.runs.empty() ? "none" : record.runs[0], CatalogueRuns()[0])
            << Name(moment);
        ExpectRestored(Name(moment), 1);
    }
}

// A run whose record outgrows its page cache of 8 MB (here forty thousand empty files with long
// names) writes the record's pages into its file before the commit, and its journal is then hot
// for the rest of the run. After a kill then, the next start rolls it back, and qrv restores
// run 1 with the modes and times its record holds.
TEST_F(MetadataKillsInBackup,
       KilledAfterItsRecordOutgrewTheCacheLeavesRunOneRestorableWithItsModes) {
    std::vector<std::pair<std::string, TestNode>> many;
    for (int i = 0; i < 40000; ++i)
        many.emplace_back(std::to_string(i) + std::string(200, 'e'), File(""));
    CreateTree(src + "/many", Dir(many));
    const std::string file = f.backup + "/db/Metadata.db";
    const auto size = [&] {
        struct stat status;
        return ::stat(file.c_str(), &status) == 0 ? status.st_size : 0;
    };
    BackToPristine();
    const off_t before = size();
    JournalWatch watch(f.backup);
    const ProgramRun killed = RunStashwellUntil({"backup"}, [&] {
        watch.Poll();
        return watch.Trace() == "CM" && size() > before;
    });
    ASSERT_EQ(killed.signal, SIGKILL) << watch.Trace();
    ASSERT_EQ(watch.Trace(), "CM");
    const ProgramRun start = RunStashwell({"nothing"});
    ASSERT_EQ(start.exitCode, 0) << start.err;
    EXPECT_EQ(Bids(), std::vector<int>{1});
    const RecordRead record = ReadRecord(f.backup);
    EXPECT_EQ(record.problem, "");
    EXPECT_EQ(record.runs, CatalogueRuns());
    ExpectRestored("after the kill", 1);
    // The next run writes the record, and so rolls its journal back.
    Backup();
    ExpectRestored("after the next run", 1);
}

// ---- Retention at the end of a run -------------------------------------------------------

// Runs 1 to 3 made with a limit of 100 runs, then a limit of 2: run 4 drops runs 1 and 2 after
// its record is kept, each in a statement of its own (Cc twice), and then their records (Mm).
struct MetadataKillsInRetention : MetadataKillsBase {
    void SetUp() override {
        MakeSource(src);
        f.AddSource(src);
        f.SetOption("MaxBackups", "100");
        for (int k = 1; k <= 3; ++k) {
            listings[k] = MakeVersion(src, k);
            Backup();
        }
        f.SetOption("MaxBackups", "2");
        listings[4] = MakeVersion(src, 4);
        KeepPristine();
    }
    std::function<Attempt(const Moment&)> Run() {
        return [this](const Moment& moment) { return BackupUntil(f.backup, moment); };
    }
};

constexpr const char* kRetentionTrace = "CMcmCcCcMm";

TEST_F(MetadataKillsInRetention, KilledBeforeTheFirstRunIsDroppedLeavesEveryRunWithItsRecord) {
    Measure(Run(), kRetentionTrace);
    // The run's record kept; the first drop begun, not committed.
    for (const Moment& moment : {Moment{"CMcm", 0}, Moment{"CMcm", 0.5}, Moment{"CMcmC", 0}}) {
        const std::string trace = KillAt(Run(), moment);
        ASSERT_EQ(trace, moment.at) << Name(moment);
        ExpectAfterKill(Name(moment), {1, 2, 3, 4}, {1, 4});
    }
    ExpectCleanRunAfterwards();
    EXPECT_EQ(Bids(), (std::vector<int>{4, 5}));
}

TEST_F(MetadataKillsInRetention, KilledAfterTheRecordsOfTheDroppedRunsWentLeavesTheLastTwo) {
    // What is left of the run once the records went: the log's last lines, the logs purged.
    const double tail = Measure(Run(), kRetentionTrace).tail.count();
    for (double share : {0.0, 0.3, 0.6}) {
        const Moment moment{kRetentionTrace, tail * share};
        const std::string trace = KillAt(Run(), moment);
        ASSERT_EQ(trace, moment.at) << Name(moment);
        ExpectAfterKill(Name(moment), {3, 4}, {3, 4});
    }
    ExpectCleanRunAfterwards();
    EXPECT_EQ(Bids(), (std::vector<int>{4, 5}));
}

// A kill after the retention has dropped a run from the catalogue and before the record of that
// run is dropped (each run goes in a statement of its own, the records after the last) leaves
// the record naming runs the catalogue does not hold, for a moment: the next start drops them.
TEST_F(MetadataKillsInRetention, KilledBetweenDroppingRunsAndTheirRecordsLeavesNoRecordOfThem) {
    Measure(Run(), kRetentionTrace);
    const std::vector<std::pair<std::string, std::vector<int>>> stages{{"CMcmCc", {2, 3, 4}},
                                                                       {"CMcmCcCc", {3, 4}}};
    for (const auto& [at, runs] : stages) {
        const Moment moment{at, 0};
        const std::string trace = KillAt(Run(), moment);
        ASSERT_EQ(trace, at);
        ExpectAfterKill(Name(moment), runs, {4});
    }
}

// ---- Delete of removed sources -------------------------------------------------------------

// Run 1 of the source, runs 2, 3 and 4 of three sources that are no longer listed. Delete drops
// the runs of each of them in a statement of its own (Cc three times), then their records (Mm).
struct MetadataKillsInDelete : MetadataKillsBase {
    std::vector<std::string> gone{f.env.Path("gone1"), f.env.Path("gone2"), f.env.Path("gone3")};

    void SetUp() override {
        killsRuns = false;
        MakeSource(src);
        f.AddSource(src);
        for (size_t i = 0; i < gone.size(); ++i) {
            CreateTree(gone[i], Dir({{"g.txt", File("gone " + std::to_string(i))}}));
            SetMeta(gone[i] + "/g.txt", 0640, 1'100'000'000 * kSecond + static_cast<int64_t>(i));
            SetMeta(gone[i], 0750, 1'110'000'000 * kSecond);
            f.AddSource(gone[i]);
        }
        listings[1] = MakeVersion(src, 1);
        for (int bid = 2; bid <= 4; ++bid)
            listings[bid] = FindListing(gone[static_cast<size_t>(bid - 2)]);
        Backup();
        ASSERT_EQ(f.RowTexts("SELECT bid, source FROM Backups ORDER BY bid"),
                  (Lines{"1|" + src, "2|" + gone[0], "3|" + gone[1], "4|" + gone[2]}));
        for (const std::string& source : gone)
            f.Exec("DELETE FROM Sources WHERE source = '" + source + "'");
        KeepPristine();
    }
    // The window's Delete with the source listed alone, answered OK.
    std::function<Attempt(const Moment&)> Run() {
        return [this](const Moment& moment) {
            return ForkUntil([this] { DeleteRemovedSources({src}, nullptr); }, f.backup, moment);
        };
    }
};

constexpr const char* kDeleteTrace = "CcCcCcMm";

TEST_F(MetadataKillsInDelete, KilledBeforeTheFirstSourceIsDroppedLeavesEveryRunWithItsRecord) {
    Measure(Run(), kDeleteTrace);
    for (const Moment& moment : {Moment{"C", 0}, Moment{"C", 0.3}, Moment{"C", 0.6}}) {
        const std::string trace = KillAt(Run(), moment);
        ASSERT_EQ(trace, moment.at) << Name(moment);
        ExpectAfterKill(Name(moment), {1, 2, 3, 4}, {1, 2});
    }
    ExpectCleanRunAfterwards();
    EXPECT_EQ(Bids(), (std::vector<int>{1, 2, 3, 4, 5}));
}

// What the kills are measured against: a Delete left to its end, which comes a moment after the
// records went, too soon to be killed there.
TEST_F(MetadataKillsInDelete, ADeleteLeftToItsEndLeavesTheListedSourceWithItsRecord) {
    const Attempt done = Run()({"never", 0});
    ASSERT_FALSE(done.killed);
    ASSERT_EQ(done.err, "");
    EXPECT_EQ(done.Trace(), kDeleteTrace);
    ExpectAfterKill("not killed", {1}, {1});
}

// The same for Delete: a kill after it dropped the runs of a removed source from the catalogue
// and before their records went; the next start drops them.
TEST_F(MetadataKillsInDelete, KilledBetweenDroppingRunsAndTheirRecordsLeavesNoRecordOfThem) {
    Measure(Run(), kDeleteTrace);
    const std::vector<std::pair<std::string, std::vector<int>>> stages{
        {"Cc", {1, 3, 4}}, {"CcCc", {1, 4}}, {"CcCcCc", {1}}};
    for (const auto& [at, runs] : stages) {
        const Moment moment{at, 0};
        const std::string trace = KillAt(Run(), moment);
        ASSERT_EQ(trace, at);
        ExpectAfterKill(Name(moment), runs, {1});
    }
}

// ---- Compact -------------------------------------------------------------------------------

// Runs 1 to 3 with a limit of 2 runs: runs 2 and 3 stay, the rows and store files of run 1 wait
// for Compact, which drops their rows (Cc), the folders' rows (Cc), deletes the store
// files no row names, compacts the catalogue (Cc) and then the record (Mm). Run 1's record went
// with the retention, so nothing else of the record is written.
struct MetadataKillsInCompact : MetadataKillsBase {
    void SetUp() override {
        killsRuns = false;
        MakeSource(src);
        f.AddSource(src);
        f.SetOption("MaxBackups", "2");
        for (int k = 1; k <= 3; ++k) {
            listings[k] = MakeVersion(src, k);
            Backup();
        }
        ASSERT_EQ(Bids(), (std::vector<int>{2, 3}));
        KeepPristine();
    }
    std::function<Attempt(const Moment&)> Run() {
        return [this](const Moment& moment) { return RunUntil({"compact"}, f.backup, moment); };
    }
};

TEST_F(MetadataKillsInCompact, KilledAtAnyStageLeavesTheLastTwoRunsWithTheirRecords) {
    const double orphans = Measure(Run(), "CcCcCcMm").journals.Stayed(4).count();
    // In the drop of the rows of files, of folders, between them, while the store files go, in
    // the compaction of the catalogue, in that of the record and after it.
    const std::vector<Moment> moments{{"C", 0},
                                      {"Cc", 0},
                                      {"CcC", 0},
                                      {"CcCc", 0},
                                      {"CcCc", orphans * 0.3},
                                      {"CcCc", orphans * 0.6},
                                      {"CcCcC", 0},
                                      {"CcCcCc", 0},
                                      {"CcCcCcM", 0},
                                      {"CcCcCcMm", 0}};
    for (const Moment& moment : moments) {
        const std::string trace = KillAt(Run(), moment);
        ASSERT_EQ(trace, moment.at) << Name(moment);
        ExpectAfterKill(Name(moment), {2, 3}, {2, 3});
    }
    ExpectCleanRunAfterwards();
    EXPECT_EQ(Bids(), (std::vector<int>{3, 4}));
}

} // namespace
