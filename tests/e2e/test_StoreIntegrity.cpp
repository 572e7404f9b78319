// The real program in a hostile world: a second configuration on the same backup folder, the
// backup folder reached by another path, limits below one run, the drive taken away during a
// run, apostrophes in every path, a catalogue left empty by a killed first start. After each,
// the backup folder passes the audit: every store file holds the content its name signs and
// every row of every committed run points at such a file of its recorded size.

#include "BackupFixture.h"
#include "StoreAudit.h"
#include "TestProgram.h"
#include "app/modPaths.h"
#include "app/modRestore.h"
#include "support/modServices.h"

#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <thread>
#include <unistd.h>

namespace {

using Lines = std::vector<std::string>;
using Clock = std::chrono::steady_clock;

// Waits until `path` exists (at most ten seconds).
bool AppearsSoon(const std::string& path) {
    const auto deadline = Clock::now() + std::chrono::seconds(10);
    while (!Exists(path)) {
        if (Clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

size_t Position(const Lines& log, const std::string& line) {
    return static_cast<size_t>(std::find(log.begin(), log.end(), line + "\r\n") - log.begin());
}

// ---- a second program on the same backup folder ----

TEST(SecondProgram, BackupFolderInUseIsLeftAloneAndTheReasonGiven) {
    BackupFixture f;
    const std::string src = f.env.Path("src");
    MakeRandomFiles(src, 20, 1);
    f.AddSource(src);
    ASSERT_EQ(RunStashwell({"backup"}).exitCode, 0);
    const Lines store = ListTree(f.backup + "/Files");
    const Lines rows = f.RowTexts("SELECT * FROM Files ORDER BY fid");

    // Another program holds the backup folder.
    const int fd = ::open((f.backup + "/QRV.lock").c_str(), O_RDONLY);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(::flock(fd, LOCK_EX | LOCK_NB), 0);
    const ProgramEnv other{{"XDG_STATE_HOME", f.env.Path("other-state")}};
    for (const std::string word : {"backup", "compact"}) {
        const auto start = Clock::now();
        const ProgramRun run = RunStashwell({word}, 60, other);
        EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(4900)) << word;
        EXPECT_EQ(run.exitCode, 3) << word;
        EXPECT_EQ(run.err, "Error: Another Stashwell is working on the backup folder " + f.backup +
                               ". Please try again when it has finished.\n");
    }
    ::close(fd);
    EXPECT_EQ(ListTree(f.backup + "/Files"), store);
    EXPECT_EQ(f.RowTexts("SELECT * FROM Files ORDER BY fid"), rows);
    const Lines log = LogMessages(f.TodaysLog());
    EXPECT_EQ(std::count(log.begin(), log.end(),
                         "Error: Another Stashwell is working on the backup folder " + f.backup +
                             ". Please try again when it has finished.\r\n"),
              2);
}

TEST(SecondProgram, CompactOfAnotherConfigurationWaitsForTheRunningBackup) {
    BackupFixture f;
    f.SetOption("MaxBackups", "1");
    const std::string src = f.env.Path("src");
    MakeRandomFiles(src, 300, 2);
    CreateTree(src + "/large", Dir({{"a.bin", File(PatternContent(24 << 20))}}));
    f.AddSource(src);
    ASSERT_EQ(RunStashwell({"backup"}).exitCode, 0);
    // New content for every file: the next run drops the first, whose content compact frees.
    std::filesystem::remove_all(src);
    MakeRandomFiles(src, 300, 3);
    CreateTree(src + "/large", Dir({{"a.bin", File("x" + PatternContent(24 << 20))}}));

    RunningProgram backup({"backup"});
    ASSERT_TRUE(AppearsSoon(f.backup + "/Files/.unfinished"));
    const ProgramRun compact =
        RunStashwell({"compact"}, 120, {{"XDG_STATE_HOME", f.env.Path("other-state")}});
    const ProgramRun backedUp = backup.Wait();
    EXPECT_EQ(backedUp.exitCode, 0) << backedUp.err;
    ASSERT_EQ(compact.exitCode, 0) << compact.err;
    const Lines log = LogMessages(f.TodaysLog());
    EXPECT_LT(Position(log, "Backup complete"), Position(log, "Compacting database"));
    EXPECT_EQ(AuditBackupFolder(f.backup), Lines{});
    EXPECT_EQ(f.Rows("SELECT count(*) FROM Files WHERE bid = 2"), Lines{"301"});
}

// ---- the backup folder reached by another path ----

class AnotherSpelling : public ::testing::TestWithParam<std::string> {};

TEST_P(AnotherSpelling, KeepsEveryFileOfTheKeptRunsThroughBackupAndCompact) {
    BackupFixture f;
    f.SetOption("MaxBackups", "2");
    const std::string src = f.env.Path("src");
    f.AddSource(src);
    for (unsigned round = 0; round < 3; ++round) {
        std::filesystem::remove_all(src);
        MakeRandomFiles(src, 120, 10 + round);
        ASSERT_EQ(RunStashwell({"backup"}).exitCode, 0);
    }
    // The same folder, reached another way from now on.
    std::string folder = f.backup;
    const std::string root = f.env.Root();
    const std::string top = root.substr(root.rfind('/') + 1);
    if (GetParam() == "Link") {
        ASSERT_EQ(::symlink(f.backup.c_str(), f.env.Path("link").c_str()), 0);
        WriteRegSetting("BackupPath", f.env.Path("link"));
    } else if (GetParam() == "Moved") {
        folder = f.env.Path("moved");
        ASSERT_EQ(::rename(f.backup.c_str(), folder.c_str()), 0);
        WriteRegSetting("BackupPath", folder);
    } else if (GetParam() == "Dot") {
        WriteRegSetting("BackupPath", root + "/./backup");
    } else if (GetParam() == "DoubleSlash") {
        WriteRegSetting("BackupPath", root + "//backup");
    } else {
        WriteRegSetting("BackupPath", root + "/../" + top + "/backup");
    }
    std::filesystem::remove_all(src);
    MakeRandomFiles(src, 120, 20);
    const ProgramRun run = RunStashwell({"backup", "compact"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(AuditBackupFolder(folder), Lines{});
    EXPECT_EQ(CommittedRuns(folder), (Lines{"3", "4"}));
    EXPECT_EQ(SqlRows(folder + "/db/Backup.db", "SELECT count(*) FROM Files"),
              (std::vector<Lines>{{"240"}}));
}

INSTANTIATE_TEST_SUITE_P(Spellings, AnotherSpelling,
                         ::testing::Values("Link", "Moved", "Dot", "DoubleSlash", "DotDot"),
                         [](const auto& info) { return info.param; });

// ---- limits below one run ----

class LimitBelowOne : public ::testing::TestWithParam<std::string> {};

TEST_P(LimitBelowOne, KeepsTenRunsAndCompactKeepsTheirContent) {
    BackupFixture f;
    f.SetOption("MaxBackups", GetParam());
    const std::string src = f.env.Path("src");
    f.AddSource(src);
    for (unsigned round = 0; round < 3; ++round) {
        std::filesystem::remove_all(src);
        MakeRandomFiles(src, 10, 30 + round);
        ASSERT_EQ(RunStashwell({"backup"}).exitCode, 0);
    }
    ASSERT_EQ(RunStashwell({"compact"}).exitCode, 0);
    EXPECT_EQ(CommittedRuns(f.backup), (Lines{"1", "2", "3"}));
    EXPECT_EQ(f.Rows("SELECT count(*) FROM Files"), Lines{"30"});
    EXPECT_EQ(AuditBackupFolder(f.backup), Lines{});
}

INSTANTIATE_TEST_SUITE_P(Limits, LimitBelowOne, ::testing::Values("0", "-1", "-32768"),
                         [](const auto& info) {
                             return info.param == "0" ? std::string("Zero")
                                                      : "Minus" + info.param.substr(1);
                         });

// ---- the drive taken away during a run ----

TEST(DriveTakenAway, BackupFolderRenamedDuringARunLeavesNothingAtTheOldPath) {
    BackupFixture f;
    const std::string src = f.env.Path("src");
    CreateTree(src, Dir({{"a.bin", File(PatternContent(64 << 20))}}));
    MakeRandomFiles(src + "/small", 40, 4);
    f.AddSource(src);
    RunningProgram backup({"backup"});
    ASSERT_TRUE(AppearsSoon(f.backup + "/Files/.unfinished"));
    const std::string away = f.env.Path("away");
    ASSERT_EQ(::rename(f.backup.c_str(), away.c_str()), 0);
    backup.Wait();
    EXPECT_FALSE(Exists(f.backup));

    // Back in its place, the next run completes and clears what the stopped one left.
    ASSERT_EQ(::rename(away.c_str(), f.backup.c_str()), 0);
    ASSERT_EQ(RunStashwell({"backup"}).exitCode, 0);
    EXPECT_EQ(AuditBackupFolder(f.backup), Lines{});
    EXPECT_EQ(f.Rows("SELECT count(*) FROM Files"), Lines{"41"});
}

TEST(DriveTakenAway, DriveUnmountedDuringARunLeavesNothingOnTheSystemDisk) {
    BackupFixture f;
    const std::string media = f.env.Path("media");
    CreateTree(media, Dir());
    if (::mount("tmpfs", media.c_str(), "tmpfs", 0, "size=512m,mode=0700") != 0)
        GTEST_SKIP() << "cannot mount a file system here";
    f.UseBackupPath(media + "/Backup");
    const std::string src = f.env.Path("src");
    CreateTree(src, Dir({{"a.bin", File(PatternContent(64 << 20))}}));
    MakeRandomFiles(src + "/small", 40, 5);
    f.AddSource(src);
    RunningProgram backup({"backup"});
    const bool writing = AppearsSoon(f.backup + "/Files/.unfinished");
    ASSERT_EQ(::umount2(media.c_str(), MNT_DETACH), 0);
    backup.Wait();
    ASSERT_TRUE(writing);
    // The mount point is a folder of the system disk again: nothing may have been made there.
    EXPECT_EQ(ListTree(media), Lines{});
}

// ---- apostrophes ----

TEST(Apostrophes, BackupPathAndSourceWithApostrophesBackUpCompactAndRestore) {
    BackupFixture f;
    f.UseBackupPath(f.env.Path("Bob's Backup"));
    f.SetOption("MaxBackups", "1");
    const std::string src = f.env.Path("Bob's Documents");
    f.AddSource(src);
    CreateTree(src, Dir({{"it's.txt", File("first")}, {"Ann's", Dir({{"b.txt", File("b")}})}}));
    ASSERT_EQ(RunStashwell({"backup"}).exitCode, 0);
    WriteFile(src + "/it's.txt", "second");
    const ProgramRun run = RunStashwell({"backup", "compact"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(f.RowTexts("SELECT bid, source FROM Backups"), Lines{"2|" + src});
    EXPECT_EQ(f.Rows("SELECT file FROM Files ORDER BY fid"),
              (Lines{f.env.Path("Bob\\s Documents/it\\s.txt"),
                     f.env.Path("Bob\\s Documents/Ann\\s/b.txt")}));
    EXPECT_EQ(AuditBackupFolder(f.backup), Lines{});
    const std::string log = f.TodaysLog();
    EXPECT_EQ(log.find("syntax error"), std::string::npos);
    // The kept run restores its bytes.
    const std::string other = f.env.Path("restored");
    for (const std::string& key : f.Rows("SELECT file FROM Files WHERE bid = 2"))
        RestoreFile("2", key, other, true);
    EXPECT_EQ(ReadFile(other + "/it's.txt"), "second");
    EXPECT_EQ(ReadFile(other + "/Ann's/b.txt"), "b");
    EXPECT_TRUE(f.env.box.calls.empty());
}

// ---- a first start killed while it made the catalogue ----

TEST(FirstStart, EmptyCatalogueLeftByAKilledStartIsMadeAnew) {
    ScopedTestEnv env;
    const std::string backup = env.Path("backup");
    CreateTree(backup, Dir({{"db", Dir({{"Backup.db", File("")}})}}));
    WriteRegSetting("BackupPath", backup);
    const ProgramRun first = RunStashwell({"backup"});
    EXPECT_EQ(first.exitCode, 0);
    EXPECT_EQ(first.err, "");
    EXPECT_EQ(SqlRows(backup + "/db/Backup.db",
                      "SELECT name FROM sqlite_master WHERE type = 'table' ORDER BY name"),
              (std::vector<Lines>{{"Backups"}, {"Files"}, {"Paths"}, {"Setup"}, {"Sources"}}));
    EXPECT_EQ(ListTree(backup + "/db"), Lines{"Backup.db"});
}

} // namespace
