// Start-up: the daily log, the command line, the check after an interrupted run, and the
// order of the window's start through Main.

#include "BackupFixture.h"
#include "app/modMain.h"
#include "app/modOptions.h"
#include "app/modPaths.h"
#include "app/modUsage.h"
#include "platform/CFile.h"
#include "platform/CLockFile.h"
#include "support/modDateText.h"
#include "support/modServices.h"

#include <gtest/gtest.h>
#include <sstream>
#include <thread>

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
    CLockFile other;
    ASSERT_TRUE(other.Open(f.backup + Native("/QRV.lock"), false)) << other.Error();
    ASSERT_EQ(other.TryLock(), CLockFile::Attempt::kLocked);
    const bool checked = CheckInterruptedRun(false);
    other.Close();
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
    CLockFile other;
    ASSERT_TRUE(other.Open(f.backup + Native("/QRV.lock"), false)) << other.Error();
    ASSERT_EQ(other.TryLock(), CLockFile::Attempt::kLocked);
    // The other program commits (its journal goes) and lets the folder go.
    std::thread finisher([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        RemoveFile(f.db + "-journal");
        other.Close();
    });
    const bool checked = CheckInterruptedRun(true);
    finisher.join();
    EXPECT_TRUE(checked);
    EXPECT_EQ(ReadFile(log), "");
    EXPECT_TRUE(f.env.box.calls.empty());
}

// The window as Main sees it: a display that opens or not, and an application whose services
// are the test's scripted box, installed at Open as the window installs its Qt box. It records
// what the start-up asked of it, and when the box showed.
class CScriptedWindow : public IWindowRunner {
public:
    CScriptedWindow(CScriptedMessageBox& box, bool opens) : m_box(box), m_opens(opens) {
        m_box.onShow = [this](const CScriptedMessageBox::Call& call) {
            calls.push_back("box " + call.text);
        };
    }
    bool FindDisplay() override {
        calls.push_back("FindDisplay");
        return m_opens;
    }
    std::string DisplayName() const override { return m_opens ? ":0" : ":97"; }
    void Open(const std::string& program, const std::function<int()>&) override {
        calls.push_back("Open " + program);
        SetMessageBoxService(&m_box);
    }
    int Run(const std::string& commandLine) override {
        calls.push_back("Run " + commandLine);
        return kExitDone;
    }

    std::vector<std::string> calls;

private:
    CScriptedMessageBox& m_box;
    bool m_opens;
};

// Main on the words, as the program calls it; what it wrote on stderr goes to `err`.
int StartWith(Lines words, IWindowRunner* window, std::string* err = nullptr) {
    words.insert(words.begin(), "stashwell");
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    testing::internal::CaptureStderr();
    const int status = Main(static_cast<int>(words.size()), argv.data(), window);
    const std::string said = testing::internal::GetCapturedStderr();
    if (err) *err = said;
    return status;
}

// A catalogue that fails the check beside the journal of an interrupted run, and no box service
// of the test's until the window's start installs one: the program's own state at its start.
struct StartAfterACrash : ::testing::Test {
    BackupFixture f;
    void SetUp() override {
        WriteFile(f.db + "-journal", "");
        WriteFile(f.db, std::string(4096, 'x'));
        SetMessageBoxService(nullptr);
    }
    size_t CorruptionLines() const {
        const Lines log = LogMessages(f.TodaysLog());
        return std::count(log.begin(), log.end(), "Possible QRV database corruption\r\n");
    }
};

const Lines kCheckFailed = {" \r\n", "QRV 1.0.0 Started\r\n",
                            "Previous Backup process interrupted. Running Integrity Check\r\n",
                            "Running Integrity Check\r\n",
                            "Killed DB Journal. Possible previous crash\r\n"};

TEST_F(StartAfterACrash, UnattendedWithAWindowShowsTheCorruptionBoxOnceThroughTheWindow) {
    CScriptedWindow window(f.env.box, true);
    std::string err;
    EXPECT_EQ(StartWith({"backup"}, &window, &err), kExitDone);
    // The application is built before the check, so that its box is the window's.
    EXPECT_EQ(window.calls, (Lines{"FindDisplay", "Open stashwell",
                                   "box Possible QRV database corruption", "Run backup"}));
    EXPECT_EQ(f.env.box.calls, (std::vector<CScriptedMessageBox::Call>{
                                   {"Possible QRV database corruption", 16, "QRV - Stashwell"}}));
    Lines expected = kCheckFailed;
    expected.push_back("Possible QRV database corruption\r\n");
    EXPECT_EQ(LogMessages(f.TodaysLog()), expected);
    EXPECT_EQ(err, "");
    EXPECT_FALSE(Exists(f.db + "-journal"));
}

TEST_F(StartAfterACrash, InteractiveWithAWindowShowsNoCorruptionBox) {
    CScriptedWindow window(f.env.box, true);
    EXPECT_EQ(StartWith({}, &window), kExitDone);
    EXPECT_EQ(window.calls, (Lines{"FindDisplay", "Open stashwell", "Run "}));
    EXPECT_TRUE(f.env.box.calls.empty());
    EXPECT_EQ(LogMessages(f.TodaysLog()), kCheckFailed);
    EXPECT_FALSE(Exists(f.db + "-journal"));
}

TEST_F(StartAfterACrash, UnattendedWithoutADisplayWritesTheCorruptionLineOnce) {
    std::string err;
    StartWith({"nothing"}, nullptr, &err);
    EXPECT_TRUE(err.starts_with("Possible QRV database corruption\n")) << err;
    EXPECT_EQ(err.find("Possible QRV database corruption", 1), std::string::npos) << err;
    const Lines log = LogMessages(f.TodaysLog());
    ASSERT_GE(log.size(), 6u);
    Lines expected = kCheckFailed;
    expected.push_back("Possible QRV database corruption\r\n");
    EXPECT_EQ(Lines(log.begin(), log.begin() + 6), expected);
    EXPECT_EQ(CorruptionLines(), 1u);
}

TEST_F(StartAfterACrash, DisplayThatDoesNotOpenRunsTheWordsWithoutTheWindow) {
    CScriptedWindow window(f.env.box, false);
    std::string err;
    StartWith({"nothing"}, &window, &err);
    EXPECT_EQ(window.calls, Lines{"FindDisplay"});
    EXPECT_TRUE(f.env.box.calls.empty());
    EXPECT_TRUE(err.starts_with("Stashwell could not open the display :97; the run goes on "
                                "without a window\nPossible QRV database corruption\n"))
        << err;
    EXPECT_EQ(CorruptionLines(), 1u);
}

TEST(StartUp, DisplayThatDoesNotOpenWithoutWordsSaysSoAndExitsTwo) {
    BackupFixture f;
    CScriptedWindow window(f.env.box, false);
    std::string err;
    EXPECT_EQ(StartWith({}, &window, &err), kExitNoWindow);
    EXPECT_EQ(window.calls, Lines{"FindDisplay"});
#ifdef _WIN32
    EXPECT_EQ(err, "Stashwell could not open the display :97\n"
                   "This Windows build of Stashwell has no window yet. Run it unattended with the "
                   "words backup and/or compact, for example: stashwell.exe backup compact\n");
#else
    EXPECT_EQ(err, "Stashwell could not open the display :97\n"
                   "Stashwell needs a display to open its window. Without one, run it unattended "
                   "with the words backup and/or compact, for example: stashwell backup compact\n");
#endif
    EXPECT_EQ(LogMessages(f.TodaysLog()), (Lines{" \r\n", "QRV 1.0.0 Started\r\n"}));
}

// The one decision on the backup folder that the window and the start without one share.
TEST(StartUp, BackupFolderCheckGivesTheFirstProblemInItsOrder) {
    ScopedTestEnv env;
    WriteRegSetting("BackupPath", "");
    BackupFolderCheck check = CheckBackupFolder();
    EXPECT_EQ(check.verdict, BackupFolderCheck::kNoBackupPath);
    EXPECT_EQ(check.problem, "Please define the backup path to proceed");

    WriteRegSetting("BackupPath", "relative" + std::string(1, kPathSeparator) + "backup");
    check = CheckBackupFolder();
    EXPECT_EQ(check.verdict, BackupFolderCheck::kPathProblem);
    EXPECT_EQ(check.problem, BackupPathProblem());
    EXPECT_FALSE(check.problem.empty());

    WriteRegSetting("BackupPath", env.Path("unplugged"));
    check = CheckBackupFolder();
    EXPECT_EQ(check.verdict, BackupFolderCheck::kDriveNotReady);
    EXPECT_EQ(check.problem, "Error: Backup drive not ready. Please fix and start again.");
    EXPECT_FALSE(Exists(env.Path("unplugged")));

    CreateTree(env.Path("unplugged"), Dir());
    check = CheckBackupFolder();
    EXPECT_EQ(check.verdict, BackupFolderCheck::kReady);
    EXPECT_EQ(check.problem, "");
}

TEST(StartUp, HelpAndVersionAloneAreAnsweredBeforeTheStart) {
    ScopedTestEnv env;
    for (const auto& [word, answer] : std::vector<std::pair<std::string, std::string>>{
             {"--help", StashwellUsage()}, {"--version", "Stashwell 1.0.0\n"}}) {
        std::string arg = word;
        char prog[] = "stashwell";
        char* argv[] = {prog, arg.data(), nullptr};
        std::ostringstream out;
        EXPECT_EQ(AnswerInfoRequest(2, argv, out), std::optional<int>(0)) << word;
        EXPECT_EQ(out.str(), answer) << word;
    }
    EXPECT_EQ(ListTree(env.Root()), Lines{});
}

TEST(StartUp, HelpBesideOtherWordsOrInAnotherSpellingIsAWordLikeOthers) {
    for (const Lines& words : std::vector<Lines>{
             {"backup", "--help"}, {"--version", "backup"}, {"-h"}, {"--HELP"}, {"-backup"}, {}}) {
        Lines args = words;
        args.insert(args.begin(), "stashwell");
        std::vector<char*> argv;
        for (std::string& arg : args)
            argv.push_back(arg.data());
        argv.push_back(nullptr);
        std::ostringstream out;
        EXPECT_EQ(AnswerInfoRequest(static_cast<int>(args.size()), argv.data(), out), std::nullopt)
            << CommandLine(static_cast<int>(args.size()), argv.data());
        EXPECT_EQ(out.str(), "");
    }
}

TEST(StartUp, DailyLogIsOpenedUnderTheBackupPath) {
    BackupFixture f;
    StartDailyLog();
    EXPECT_EQ(Logger().LogFile(),
              f.backup + Native("/Logs/QRV-") + DateStamp(std::time(nullptr)) + ".LOG");
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
