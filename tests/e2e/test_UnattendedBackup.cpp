// The real program run unattended on folders made by the test: start-up, the words of the
// command line, first and second backups, retention, compaction.

#include "BackupFixture.h"
#include "TestProgram.h"
#include "app/modPaths.h"
#include "catalogue/ADOSQLite.h"
#include "support/Version.h"
#include "support/modNumText.h"

#include <algorithm>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <regex>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using Lines = std::vector<std::string>;

const std::string kStarted = "QRV " + std::to_string(version::kMajor) + "." +
                             std::to_string(version::kMinor) + "." +
                             std::to_string(version::kRevision) + " Started\r\n";

// Log lines of the daily log, without their stamps.
Lines LogOf(const BackupFixture& f) {
    return LogMessages(f.TodaysLog());
}

// Replaces the value of the one line that depends on the machine's speed.
Lines MaskThroughput(Lines lines) {
    static const std::regex throughput(R"(Throughput  : \d+(\.\d+)? MB/s\r\n)");
    for (std::string& line : lines)
        if (std::regex_match(line, throughput)) line = "Throughput  : <rate> MB/s\r\n";
    return lines;
}

Lines Concat(std::initializer_list<Lines> parts) {
    Lines all;
    for (const Lines& p : parts)
        all.insert(all.end(), p.begin(), p.end());
    return all;
}

TEST(Unattended, NoBackupPathStopsWithTheReasonAndStatusOne) {
    ScopedTestEnv env;
    const ProgramRun run = RunStashwell({"backup"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, "Please define the backup path to proceed\n");
}

TEST(Unattended, BackupDriveNotReadyStopsWithTheReasonAndStatusOne) {
    ScopedTestEnv env;
    WriteRegSetting("BackupPath", env.Path("unplugged/drive"));
    const ProgramRun run = RunStashwell({"backup"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, "Error: Backup drive not ready. Please fix and start again.\n");
    EXPECT_FALSE(Exists(env.Path("unplugged")));
}

// Each run keeps how it ended in the state folder, for the window's line "Last backup: ...":
// a start with the drive away as a failure with its reason, a run that completed as such, the
// time of the last completed run kept through a later failure.
TEST(Unattended, EveryEndIsKeptForTheLastBackupLine) {
    BackupFixture f;
    const std::string src = f.env.Path("src");
    CreateTree(src, Dir({{"a.txt", File("alpha")}}));
    f.AddSource(src);
    const std::string record = f.env.StateHome() + "/Korvex/QRV/last-backup";
    EXPECT_FALSE(Exists(record));
    ASSERT_EQ(RunStashwell({"backup"}).exitCode, 0);
    const std::regex completed(
        "ended=(\\d+)\noutcome=completed\nproblems=0\nreason=\ncompleted=(\\d+)\n");
    std::smatch first;
    const std::string afterRun = ReadFile(record);
    ASSERT_TRUE(std::regex_match(afterRun, first, completed)) << afterRun;
    EXPECT_EQ(first[1], first[2]);

    const std::string away = f.env.Path("unplugged/drive");
    WriteRegSetting("BackupPath", away);
    EXPECT_EQ(RunStashwell({"backup"}).exitCode, 1);
    const std::regex failed("ended=\\d+\noutcome=failed\nproblems=0\nreason=backup drive " + away +
                            " is not connected\ncompleted=" + first[2].str() + "\n");
    EXPECT_TRUE(std::regex_match(ReadFile(record), failed)) << ReadFile(record);
}

TEST(Unattended, EmptyCommandLineWithoutADisplaySaysHowToRunUnattended) {
    BackupFixture f;
    const ProgramRun run = RunStashwell({});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.err, "Stashwell needs a display to open its window. Without one, run it "
                       "unattended with the words backup and/or compact, for example: stashwell "
                       "backup compact\n");
    EXPECT_EQ(LogOf(f), (Lines{" \r\n", kStarted}));
}

TEST(Unattended, DailyLogIsNamedAfterTodayUnderTheBackupPath) {
    BackupFixture f;
    ASSERT_EQ(RunStashwell({"nothing"}).exitCode, 0);
    char stamp[16];
    const std::time_t now = std::time(nullptr);
    std::strftime(stamp, sizeof stamp, "%Y%m%d", std::localtime(&now));
    EXPECT_TRUE(Exists(f.backup + "/Logs/QRV-" + stamp + ".LOG"));
    const std::string log = f.TodaysLog();
    EXPECT_TRUE(
        std::regex_search(log, std::regex(R"(^ \r\n\d\d/\d\d/\d{4} \d\d:\d\d:\d\d: QRV )")));
}

TEST(Unattended, UnknownWordStillEndsWithUnattendedBackupComplete) {
    BackupFixture f;
    f.SetOption("Log", "Trace");
    const ProgramRun run = RunStashwell({"-backup"});
    EXPECT_EQ(run.exitCode, 0);
    // The start-up's trace lines come before the stored level is read, at level 1.
    EXPECT_EQ(LogOf(f), (Lines{" \r\n", kStarted, "LogLevel switched to 3\r\n",
                               "Unattended backup complete\r\n", "Exiting QRV\r\n"}));
    EXPECT_EQ(f.Rows("SELECT bid FROM Backups"), Lines{});
}

TEST(Unattended, SingleBlankCommandLineIsUnattended) {
    BackupFixture f;
    const ProgramRun run = RunStashwell({" "});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(LogOf(f),
              (Lines{" \r\n", kStarted, "Unattended backup complete\r\n", "Exiting QRV\r\n"}));
}

TEST(Unattended, CompactInCapitalsIsRecognised) {
    BackupFixture f;
    const ProgramRun run = RunStashwell({"COMPACT"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(LogOf(f),
              (Lines{" \r\n", kStarted, "Compacting database\r\n", "Running Integrity Check\r\n",
                     "Unattended backup complete\r\n", "Exiting QRV\r\n"}));
}

TEST(Unattended, BackupInAnyCaseStartsTheBackup) {
    BackupFixture f;
    CreateTree(f.env.Path("src"), Dir({{"a.txt", File("alpha")}}));
    f.AddSource(f.env.Path("src"));
    ASSERT_EQ(RunStashwell({"BaCkUp"}).exitCode, 0);
    EXPECT_EQ(f.Rows("SELECT bid, source FROM Backups"), (Lines{"1", f.env.Path("src")}));
    EXPECT_TRUE(Exists(StoreFile(f.backup, "alpha")));
}

TEST(Unattended, SecondInstanceSaysSoAndEndsWithStatusThree) {
    BackupFixture f;
    CreateTree(f.env.Path("src"), Dir({{"a.txt", File("alpha")}}));
    f.AddSource(f.env.Path("src"));
    CreateTree(f.env.StateHome() + "/Korvex/QRV", Dir());
    const int fd =
        ::open((f.env.StateHome() + "/Korvex/QRV/QRV.lock").c_str(), O_RDWR | O_CREAT, 0600);
    ASSERT_EQ(::flock(fd, LOCK_EX | LOCK_NB), 0);
    const ProgramRun run = RunStashwell({"backup"});
    ::close(fd);
    EXPECT_EQ(run.exitCode, 3);
    EXPECT_EQ(run.err, "Error: Stashwell is already running for this user.\n");
    EXPECT_EQ(LogOf(f), (Lines{" \r\n", kStarted}));
    EXPECT_EQ(f.Rows("SELECT bid FROM Backups"), Lines{});
}

// A tree with duplicates, odd names, hidden and excluded entries.
struct FirstBackup : ::testing::Test {
    BackupFixture f;
    std::string src = f.env.Path("src");
    const std::string dupContent = PatternContent(10000);

    void SetUp() override {
        CreateTree(src, Dir({
                            {"a.txt", File("alpha")},
                            {"dup1.bin", File(dupContent)},
                            {"sub", Dir({{"dup2.bin", File(dupContent)},
                                         {"Bob's file.txt", File("apostrophe")}})},
                            {"back\\slash.txt", File("backslash")},
                            {"new\nline.txt", File("newline")},
                            {"bad\xff\xfe.bin", File("invalid utf-8")},
                            {".hidden", File("secret")},
                            {"empty.txt", File("")},
                            {"x.tmp", File("temporary")},
                            {"CVS", Dir({{"inside.txt", File("excluded folder")}})},
                            {".dotdir", Dir({{"visible.txt", File("in a hidden folder")}})},
                        }));
        f.AddSource(src);
        f.SetOption("Log", "Advanced");
    }

    // The files a run lists, in its order: no hidden files, no *.tmp, nothing under CVS.
    Lines Listed() const {
        Lines files;
        for (const std::string& path : WalkOrder(src)) {
            const std::string name = path.substr(path.rfind('/') + 1);
            if (name[0] == '.' || name.ends_with(".tmp") || path.find("/CVS/") != std::string::npos)
                continue;
            files.push_back(path);
        }
        return files;
    }
};

TEST_F(FirstBackup, StoresEachContentOnceAndRecordsEveryFile) {
    const ProgramRun run = RunStashwell({"backup"});
    ASSERT_EQ(run.exitCode, 0) << run.err;

    // Store: one file per distinct non-empty content, two folder levels deep.
    Lines expectedStore;
    for (const std::string& path : Listed()) {
        const std::string content = ReadFile(path);
        if (content.empty()) continue;
        const std::string sig = TestSignature(content);
        for (const std::string& entry :
             {sig.substr(0, 2) + "/", sig.substr(0, 2) + "/" + sig.substr(2, 2) + "/",
              sig.substr(0, 2) + "/" + sig.substr(2, 2) + "/" + sig + ".QRV"})
            if (std::find(expectedStore.begin(), expectedStore.end(), entry) == expectedStore.end())
                expectedStore.push_back(entry);
        EXPECT_EQ(ReadFile(StoreFile(f.backup, content)), content) << path;
    }
    std::sort(expectedStore.begin(), expectedStore.end());
    EXPECT_EQ(ListTree(f.backup + "/Files"), expectedStore);

    // Rows: one Backups row, a Files row per non-empty listed file, a Paths row per folder.
    const auto backups = SqlRows(f.db, "SELECT bid, source, datebk FROM Backups");
    ASSERT_EQ(backups.size(), 1u);
    EXPECT_EQ(backups[0][0], "1");
    EXPECT_EQ(backups[0][1], src);
    EXPECT_TRUE(std::regex_match(backups[0][2], std::regex(R"(\d\d/\d\d/\d{4} \d\d:\d\d:\d\d)")));

    Lines expectedFiles;
    for (const std::string& path : Listed()) {
        const std::string content = ReadFile(path);
        if (content.empty()) continue;
        const std::string folder = path.substr(0, path.rfind('/') + 1);
        expectedFiles.push_back("1|" + TestSignature(content) + "|" + Encoded(folder) + "|" +
                                Encoded(path) + "|" + StoreFile(f.backup, content) + "|" +
                                std::to_string(content.size()) + "|");
    }
    EXPECT_EQ(
        f.RowTexts("SELECT bid, md5, path, file, backup, size, filedate FROM Files ORDER BY fid"),
        expectedFiles);
    // The size is written as a bare number into a TEXT column.
    EXPECT_EQ(f.Rows("SELECT typeof(size) FROM Files LIMIT 1"), Lines{"text"});

    Lines paths = f.Rows("SELECT path FROM Paths WHERE bid = 1 ORDER BY pid");
    ASSERT_FALSE(paths.empty());
    EXPECT_EQ(paths[0], src + "/");
    std::sort(paths.begin(), paths.end());
    EXPECT_EQ(paths, (Lines{src + "/", src + "/.dotdir/", src + "/sub/"}));
}

TEST_F(FirstBackup, LogsEveryStepOfTheRun) {
    ASSERT_EQ(RunStashwell({"backup"}).exitCode, 0);

    Lines perFile, duplicates;
    std::vector<std::string> seen;
    double total = 0, duplicateBytes = 0;
    for (const std::string& path : Listed()) {
        const std::string content = ReadFile(path);
        total += content.size();
        const std::string sig = TestSignature(content);
        perFile.push_back("FIL: " + path + "\r\n");
        perFile.push_back("SIZ: " + std::to_string(content.size()) + "\r\n");
        perFile.push_back("MD5: " + sig + "\r\n");
        if (content.empty()) {
            perFile.push_back("Skipping " + path + ". Zero length file\r\n");
        } else if (std::find(seen.begin(), seen.end(), sig) != seen.end()) {
            perFile.push_back("File already in backup collection\r\n");
            duplicates.push_back("Duplicate: " + path + "\r\n");
            duplicateBytes += content.size();
        } else {
            perFile.push_back("COP: " + path + "\r\n");
            seen.push_back(sig);
        }
    }
    ASSERT_EQ(duplicates.size(), 1u);
    const std::string count = std::to_string(Listed().size());
    const Lines expected = Concat({
        {" \r\n", kStarted, "LogLevel switched to 2\r\n", " \r\n", "Backup started\r\n", " \r\n",
         "Source: " + src + "\r\n", "Finding files in source : " + src + "\r\n",
         "Elapsed time : 00:00:00\r\n", "Files found  : " + count + "\r\n"},
        perFile,
        {"List of duplicates\r\n"},
        duplicates,
        {"Total Files : " + count + "\r\n", "Tot Filesize: " + FormatGrouped(total) + "\r\n",
         "Fil not copd: 1\r\n", "Siz not copd: " + FormatGrouped(duplicateBytes) + "\r\n",
         "Elapsed time: 00:00:00\r\n", "Throughput  : <rate> MB/s\r\n", " \r\n",
         "Backup Complete. MB in 00:00:00\r\n", "Backup complete\r\n",
         "Unattended backup complete\r\n", "Exiting QRV\r\n"},
    });
    EXPECT_EQ(MaskThroughput(LogOf(f)), expected);
}

TEST_F(FirstBackup, SecondRunCopiesNothing) {
    ASSERT_EQ(RunStashwell({"backup"}).exitCode, 0);
    const Lines storeAfterFirst = ListTree(f.backup + "/Files");
    ASSERT_EQ(::truncate(f.TodaysLogPath().c_str(), 0), 0);

    ASSERT_EQ(RunStashwell({"backup"}).exitCode, 0);
    EXPECT_EQ(ListTree(f.backup + "/Files"), storeAfterFirst);
    const Lines log = LogOf(f);
    EXPECT_EQ(std::count_if(log.begin(), log.end(), [](auto& l) { return l.starts_with("COP: "); }),
              0);
    const size_t stored = Listed().size() - 1; // the empty file is never stored
    EXPECT_EQ(std::count(log.begin(), log.end(), "File already in backup collection\r\n"),
              static_cast<long>(stored));
    EXPECT_NE(std::find(log.begin(), log.end(), "Fil not copd: " + std::to_string(stored) + "\r\n"),
              log.end());
    EXPECT_EQ(f.Rows("SELECT bid FROM Backups ORDER BY bid"), (Lines{"1", "2"}));
    EXPECT_EQ(f.Rows("SELECT count(*) FROM Files WHERE bid = 2"), Lines{std::to_string(stored)});
}

TEST(Retention, OldestRunsGoAfterEachSourceAndCompactFreesTheirContent) {
    BackupFixture f;
    const std::string a = f.env.Path("a"), b = f.env.Path("b");
    f.AddSource(a);
    f.AddSource(b);
    f.SetOption("MaxBackups", "2");
    CreateTree(b, Dir({{"b.txt", File("source b")}}));
    for (const std::string content : {"first", "second", "third"}) {
        CreateTree(a, Dir({{"f.txt", File(content)}}));
        ASSERT_EQ(RunStashwell({"backup"}).exitCode, 0);
    }
    // Runs 1 (a), 2 (b), 3 (a), 4 (b), 5 (a), 6 (b): the oldest of each source is dropped.
    EXPECT_EQ(f.RowTexts("SELECT bid, source FROM Backups ORDER BY bid"),
              (Lines{"3|" + a, "4|" + b, "5|" + a, "6|" + b}));
    // Dropped runs keep their rows and content until a compact.
    EXPECT_EQ(f.Rows("SELECT DISTINCT bid FROM Files ORDER BY bid"),
              (Lines{"1", "2", "3", "4", "5", "6"}));
    EXPECT_TRUE(Exists(StoreFile(f.backup, "first")));

    ASSERT_EQ(RunStashwell({"compact"}).exitCode, 0);
    EXPECT_EQ(f.Rows("SELECT DISTINCT bid FROM Files ORDER BY bid"), (Lines{"3", "4", "5", "6"}));
    EXPECT_EQ(f.Rows("SELECT DISTINCT bid FROM Paths ORDER BY bid"), (Lines{"3", "4", "5", "6"}));
    EXPECT_FALSE(Exists(StoreFile(f.backup, "first")));
    const std::string firstSig = TestSignature("first");
    EXPECT_FALSE(
        Exists(f.backup + "/Files/" + firstSig.substr(0, 2) + "/" + firstSig.substr(2, 2)));
    for (const char* kept : {"second", "third", "source b"})
        EXPECT_TRUE(Exists(StoreFile(f.backup, kept)));
}

TEST(Retention, BackupThenCompactInOneCommandLine) {
    BackupFixture f;
    const std::string a = f.env.Path("a");
    f.AddSource(a);
    f.SetOption("MaxBackups", "1");
    CreateTree(a, Dir({{"f.txt", File("old")}}));
    ASSERT_EQ(RunStashwell({"backup"}).exitCode, 0);
    CreateTree(a, Dir({{"f.txt", File("new")}}));
    ASSERT_EQ(::truncate(f.TodaysLogPath().c_str(), 0), 0);

    ASSERT_EQ(RunStashwell({"backup", "compact"}).exitCode, 0);
    EXPECT_EQ(f.Rows("SELECT bid FROM Backups"), Lines{"2"});
    EXPECT_EQ(f.Rows("SELECT DISTINCT bid FROM Files"), Lines{"2"});
    EXPECT_FALSE(Exists(StoreFile(f.backup, "old")));
    EXPECT_EQ(ReadFile(StoreFile(f.backup, "new")), "new");
    const Lines log = LogOf(f);
    const auto compacting = std::find(log.begin(), log.end(), "Compacting database\r\n");
    ASSERT_NE(compacting, log.end());
    EXPECT_EQ(Lines(compacting, log.end()),
              (Lines{"Compacting database\r\n", "Running Integrity Check\r\n",
                     "Unattended backup complete\r\n", "Exiting QRV\r\n"}));
}

TEST(Unattended, MissingSourceIsSkippedAndTheOthersRun) {
    BackupFixture f;
    f.AddSource(f.env.Path("gone"));
    CreateTree(f.env.Path("here"), Dir({{"h.txt", File("here")}}));
    f.AddSource(f.env.Path("here"));
    const ProgramRun run = RunStashwell({"backup"});
    EXPECT_EQ(run.exitCode, 4);
    EXPECT_EQ(run.err, "Source " + f.env.Path("gone") +
                           " was not backed up: it does not exist\nBackup completed with problems. "
                           "The log " +
                           f.TodaysLogPath() + " has the details.\n");
    const Lines log = LogOf(f);
    EXPECT_NE(
        std::find(log.begin(), log.end(), f.env.Path("gone") + " not accessible. Skipping\r\n"),
        log.end());
    EXPECT_EQ(f.Rows("SELECT source FROM Backups"), Lines{f.env.Path("here")});
}

TEST(Unattended, EmptySourceListCompletesWithAnEmptySummary) {
    BackupFixture f;
    // Keep today's log: with no run today, the log purge at the end of the run deletes it.
    CreateTree(f.env.Path("keep"), Dir({{"k.txt", File("keep today's log")}}));
    f.AddSource(f.env.Path("keep"));
    ASSERT_EQ(RunStashwell({"backup"}).exitCode, 0);
    ASSERT_EQ(::truncate(f.TodaysLogPath().c_str(), 0), 0);
    ADOSQLite sql;
    sql.Connect(f.db);
    sql.Action(sqlaction::kAsIs);
    std::string statement = "DELETE FROM Sources;";
    sql.Exec(statement);
    ASSERT_FALSE(sql.Err());

    ASSERT_EQ(RunStashwell({"backup"}).exitCode, 0);
    EXPECT_EQ(LogOf(f), (Lines{" \r\n", kStarted, " \r\n", "Backup started\r\n", " \r\n",
                               "Backup Complete. MB in 00:00:00\r\n", "Backup complete\r\n",
                               "Unattended backup complete\r\n", "Exiting QRV\r\n"}));
}

TEST(Unattended, LogOfADayWithoutARunIsPurgedAtTheEndOfTheRun) {
    BackupFixture f;
    ASSERT_EQ(RunStashwell({"backup"}).exitCode, 0);
    EXPECT_FALSE(Exists(f.TodaysLogPath()));
    EXPECT_EQ(f.Rows("SELECT bid FROM Backups"), Lines{});
}

TEST(Unattended, StoreFoldersAndFilesArePrivate) {
    BackupFixture f;
    CreateTree(f.env.Path("src"), Dir({{"a.txt", File("alpha")}}));
    ::chmod(f.env.Path("src/a.txt").c_str(), 0644);
    f.AddSource(f.env.Path("src"));
    ASSERT_EQ(RunStashwell({"backup"}).exitCode, 0);
    auto mode = [](const std::string& p) {
        struct stat st {};
        ::stat(p.c_str(), &st);
        return st.st_mode & 0777;
    };
    const std::string store = StoreFile(f.backup, "alpha");
    EXPECT_EQ(mode(store), 0600u);
    EXPECT_EQ(mode(store.substr(0, store.rfind('/'))), 0700u);
    EXPECT_EQ(mode(f.backup + "/Files"), 0700u);
    EXPECT_EQ(mode(f.db), 0600u);
    EXPECT_EQ(mode(f.TodaysLogPath()), 0600u);
}

} // namespace
