// Start-up: the daily log, the command line and the check after an interrupted run.

#include "BackupFixture.h"
#include "app/modMain.h"
#include "app/modOptions.h"
#include "app/modPaths.h"
#include "support/modDateText.h"
#include "support/modServices.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <thread>
#include <unistd.h>

namespace {

using Lines = std::vector<std::string>;

struct Interrupted : ::testing::Test {
    BackupFixture f;
    std::string log = f.env.Path("start.log");
    void SetUp() override {
        Logger().LogFile(log);
        ASSERT_TRUE(Logger().StartLogger());
    }
    void BreakCatalogue() { WriteFile(f.db, std::string(4096, 'x')); }
};

TEST_F(Interrupted, NoJournalMeansNoCheck) {
    CheckInterruptedRun(false);
    EXPECT_EQ(ReadFile(log), "");
}

TEST_F(Interrupted, SoundCatalogueIsCheckedAndItsJournalLeftAlone) {
    WriteFile(f.db + "-journal", "");
    CheckInterruptedRun(true);
    EXPECT_EQ(LogMessages(ReadFile(log)),
              (Lines{"Previous Backup process interrupted. Running Integrity Check\r\n",
                     "Running Integrity Check\r\n"}));
    EXPECT_TRUE(f.env.box.calls.empty());
    EXPECT_TRUE(Exists(f.db + "-journal"));
}

TEST_F(Interrupted, FailingCheckInteractiveDeletesTheJournalWithoutABox) {
    WriteFile(f.db + "-journal", "");
    BreakCatalogue();
    CheckInterruptedRun(false);
    EXPECT_EQ(
        LogMessages(ReadFile(log)),
        (Lines{"Previous Backup process interrupted. Running Integrity Check\r\n",
               "Running Integrity Check\r\n", "Killed DB Journal. Possible previous crash\r\n"}));
    EXPECT_TRUE(f.env.box.calls.empty());
    EXPECT_FALSE(Exists(f.db + "-journal"));
}

TEST_F(Interrupted, FailingCheckUnattendedWarnsOfCorruption) {
    WriteFile(f.db + "-journal", "");
    BreakCatalogue();
    CheckInterruptedRun(true);
    EXPECT_EQ(f.env.box.calls, (std::vector<CScriptedMessageBox::Call>{
                                   {"Possible QRV database corruption", 16, "QRV - Stashwell"}}));
    EXPECT_EQ(LogMessages(ReadFile(log)).back(), "Possible QRV database corruption\r\n");
    EXPECT_FALSE(Exists(f.db + "-journal"));
}

TEST_F(Interrupted, FailingCheckWhileAnotherProgramHoldsTheFolderLeavesTheJournal) {
    WriteFile(f.db + "-journal", "");
    BreakCatalogue();
    // Another open file of the lock: to the lock, another program.
    const int other = ::open((f.backup + "/QRV.lock").c_str(), O_RDONLY | O_CREAT, 0600);
    ASSERT_EQ(::flock(other, LOCK_EX | LOCK_NB), 0);
    const bool checked = CheckInterruptedRun(false);
    ::close(other);
    EXPECT_FALSE(checked);
    EXPECT_EQ(LogMessages(ReadFile(log)),
              Lines{"The catalogue's journal " + f.db +
                    "-journal was left alone, unchecked: another program is working on the "
                    "backup folder " +
                    f.backup + "\r\n"});
    EXPECT_TRUE(f.env.box.calls.empty());
    EXPECT_TRUE(Exists(f.db + "-journal"));
}

TEST_F(Interrupted, JournalThatItsProgramEndsWhileTheCheckWaitsIsNotChecked) {
    WriteFile(f.db + "-journal", "");
    BreakCatalogue();
    const int other = ::open((f.backup + "/QRV.lock").c_str(), O_RDONLY | O_CREAT, 0600);
    ASSERT_EQ(::flock(other, LOCK_EX | LOCK_NB), 0);
    // The other program commits (its journal goes) and lets the folder go.
    std::thread finisher([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        ::unlink((f.db + "-journal").c_str());
        ::close(other);
    });
    const bool checked = CheckInterruptedRun(true);
    finisher.join();
    EXPECT_TRUE(checked);
    EXPECT_EQ(ReadFile(log), "");
    EXPECT_TRUE(f.env.box.calls.empty());
}

TEST(StartUp, DailyLogIsOpenedUnderTheBackupPath) {
    BackupFixture f;
    StartDailyLog();
    EXPECT_EQ(Logger().LogFile(), f.backup + "/Logs/QRV-" + DateStamp(std::time(nullptr)) + ".LOG");
    EXPECT_EQ(LogMessages(f.TodaysLog()), (Lines{" \r\n", "QRV 1.0.0 Started\r\n"}));
    EXPECT_EQ(Logger().LogLevel(), 1);
}

TEST(StartUp, DateStampOfTheFourteenthOfMarch2005) {
    std::tm day{};
    day.tm_year = 105;
    day.tm_mon = 2;
    day.tm_mday = 14;
    day.tm_hour = 12;
    EXPECT_EQ(DateStamp(std::mktime(&day)), "20050314");
}

TEST(StartUp, CommandLineJoinsTheWordsWithSingleBlanks) {
    char prog[] = "stashwell", a[] = "backup", b[] = "compact", blank[] = " ";
    char* none[] = {prog};
    char* two[] = {prog, a, b};
    char* one[] = {prog, blank};
    EXPECT_EQ(CommandLine(1, none), "");
    EXPECT_EQ(CommandLine(3, two), "backup compact");
    EXPECT_EQ(CommandLine(2, one), " ");
}

TEST(Options, DesignValuesWhenTheStoreHoldsNothing) {
    BackupFixture f;
    const BackupOptions o = LoadOptions();
    EXPECT_EQ(o.log, "Basic");
    EXPECT_EQ(o.exclude, "*.tmp *.tst");
    EXPECT_EQ(o.exDirs, "cvs tmp");
    EXPECT_EQ(o.maxBackups, "10");
    EXPECT_EQ(o.hidden + o.system + o.backup + o.restore + o.exclRecycler, 0);
}

TEST(Options, StoredValuesReplaceTheDesignValues) {
    BackupFixture f;
    f.SetOption("Exclude", "*.bak");
    f.SetOption("ExDirs", "cache");
    f.SetOption("MaxBackups", "3");
    f.SetOption("Hidden", "1");
    f.SetOption("ExclRecycler", "1");
    f.SetOption("Log", "Advanced");
    const BackupOptions o = LoadOptions();
    EXPECT_EQ(o.exclude, "*.bak");
    EXPECT_EQ(o.exDirs, "cache");
    EXPECT_EQ(o.maxBackups, "3");
    EXPECT_EQ(o.hidden, 1);
    EXPECT_EQ(o.exclRecycler, 1);
    EXPECT_EQ(Logger().LogLevel(), 2);
}

TEST(Options, QuickCheckIsOnOnlyWhenOneIsStored) {
    BackupFixture f;
    EXPECT_EQ(LoadOptions().quickCheck, 0);
    for (const auto& [stored, on] : std::vector<std::pair<std::string, int32_t>>{
             {"1", 1}, {"0", 0}, {"", 0}, {"2", 0}, {"yes", 0}}) {
        f.SetOption("QuickCheck", stored);
        EXPECT_EQ(LoadOptions().quickCheck, on) << stored;
    }
}

TEST(Options, LowerCaseTraceSelectsBasic) {
    BackupFixture f;
    f.SetOption("Log", "trace");
    EXPECT_EQ(LoadOptions().log, "Basic");
    EXPECT_EQ(Logger().LogLevel(), 1);
    EXPECT_EQ(LogLevelOf("Trace"), 3);
    EXPECT_EQ(LogLevelOf("trace"), 1);
}

TEST(Options, RecycleBinTickedWithNoFoldersExcludesOnlyTheRecycler) {
    BackupOptions options;
    options.exDirs = "";
    options.exclRecycler = 1;
    EXPECT_EQ(FoldersToExclude(options), " recycler");
    options.exDirs = "cvs tmp";
    EXPECT_EQ(FoldersToExclude(options), "cvs tmp recycler");
    options.exclRecycler = 2; // only a tick adds the recycler
    EXPECT_EQ(FoldersToExclude(options), "cvs tmp");
    options.exclRecycler = 0;
    EXPECT_EQ(FoldersToExclude(options), "cvs tmp");
}

} // namespace
