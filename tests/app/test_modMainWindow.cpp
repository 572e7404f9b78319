// The main window's commands without the window: the start-up questions, the backup limit's
// range check, choosing the backup path, adding and removing sources, and the system
// information tool with the settings store's values.

#include "BackupFixture.h"
#include "app/CProgramSettings.h"
#include "app/CRunControl.h"
#include "app/modMainWindow.h"
#include "app/modPaths.h"
#include "app/modSetup.h"
#include "app/modSysInfo.h"
#include "app/modWindowDesign.h"
#include "support/modServices.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <set>
#include <stdexcept>
#ifndef _WIN32
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace {

using Calls = std::vector<CScriptedMessageBox::Call>;
using Lines = std::vector<std::string>;

constexpr const char* kTitle = "QRV - Stashwell";

TEST(MainWindow, CaptionIsKorvexQrvWithTheVersion) {
    EXPECT_EQ(MainWindowCaption().rfind("Korvex QRV - Ver ", 0), 0u);
    EXPECT_EQ(MainWindowCaption(), "Korvex QRV - Ver 1.0.0");
}

TEST(MainWindow, DriveNotReadyYesAsksNothingMore) {
    ScopedTestEnv env;
    env.box.Answer(mb::kYes);
    EXPECT_TRUE(AskToChangeBackupPath());
    EXPECT_EQ(
        env.box.calls,
        (Calls{{"Error: Backup drive not ready. Do you wish to change the path?", 20, kTitle}}));
}

TEST(MainWindow, DriveNotReadyNoSaysToFixItAndStart) {
    ScopedTestEnv env;
    env.box.Answer(mb::kNo);
    EXPECT_FALSE(AskToChangeBackupPath());
    EXPECT_EQ(env.box.calls,
              (Calls{{"Error: Backup drive not ready. Do you wish to change the path?", 20, kTitle},
                     {"Error: Backup drive not ready. Please fix and start again.", 16, kTitle}}));
}

TEST(MaxBackups, LimitsFrom1To100AreStored) {
    BackupFixture f;
    for (const char* text : {"1", "15", "100", " 42", "15x"}) {
        EXPECT_EQ(MaxBackupsChanged(text), std::nullopt) << text;
        EXPECT_EQ(GetSetupValue("MaxBackups"), std::string(text).substr(text[0] == ' ')) << text;
    }
    EXPECT_TRUE(f.env.box.calls.empty());
}

TEST(MaxBackups, AnyOtherTextShowsTheRangeAndGivesBackTheStoredLimit) {
    BackupFixture f;
    f.SetOption("MaxBackups", "15");
    for (const char* text : {"", "0", "150", "-3", "abc", "100.5"})
        EXPECT_EQ(MaxBackupsChanged(text), std::optional<std::string>("15")) << text;
    EXPECT_EQ(f.env.box.calls.size(), 6u);
    EXPECT_EQ(f.env.box.calls[0],
              (CScriptedMessageBox::Call{"Valid range between 1-100", 64, kTitle}));
    EXPECT_EQ(GetSetupValue("MaxBackups"), "15");
}

TEST(MaxBackups, WithNothingStoredTheBoxGoesBackTo10) {
    BackupFixture f;
    EXPECT_EQ(MaxBackupsChanged("0"), std::optional<std::string>("10"));
}

TEST(LogLevel, OptionButtonSetsTheLoggersLevelAndStoresItsWord) {
    BackupFixture f;
    SelectLogLevel("Trace");
    EXPECT_EQ(Logger().LogLevel(), 3);
    EXPECT_EQ(GetSetupValue("Log"), "Trace");
    SelectLogLevel("Basic");
    EXPECT_EQ(Logger().LogLevel(), 1);
}

TEST(BackupPath, CancelledPickChangesNothing) {
    BackupFixture f;
    EXPECT_EQ(SelectBackupPath(), "");
    EXPECT_EQ(GetBackupPath(), f.backup);
    EXPECT_EQ(f.env.picker.prompts, Lines{"Select Backup Path"});
}

TEST(BackupPath, ChosenFolderGetsItsCatalogueAndTheDailyLog) {
    BackupFixture f;
    const std::string chosen = f.env.Path("elsewhere");
    CreateTree(chosen, Dir());
    f.env.picker.Answer(chosen);
    EXPECT_EQ(SelectBackupPath(), chosen);
    EXPECT_EQ(ReadRegSetting("BackupPath"), chosen);
    EXPECT_TRUE(Exists(chosen + Native("/db/Backup.db")));
    EXPECT_TRUE(Logger().Started());
    EXPECT_EQ(Logger().LogFile().rfind(chosen + Native("/Logs/QRV-"), 0), 0u);
    EXPECT_TRUE(Exists(Logger().LogFile()));
}

TEST(BackupPath, SourcesThatLieInTheChosenFolderAreNamedInOneBox) {
    BackupFixture f;
    const std::string chosen = f.env.Path("drive/Backup"), outside = f.env.Path("documents");
    CreateTree(chosen + Native("/photos"), Dir());
    // The chosen folder holds a catalogue of its own, with its own sources.
    f.UseBackupPath(chosen);
    for (const std::string& source :
         {chosen + Native("/photos"), outside, chosen, chosen + Native("/gone")})
        f.AddSource(source);
    f.UseBackupPath(f.env.Path("backup"));
    f.env.picker.Answer(chosen);
    EXPECT_EQ(SelectBackupPath(), chosen);
    EXPECT_EQ(
        f.env.box.calls,
        (Calls{{"These sources lie in the backup folder '" + chosen +
                    "' and will not be backed up, since Stashwell does not back up its own "
                    "store. Remove them, or choose another backup path:\n" +
                    chosen + Native("/photos") + "\n" + chosen + "\n" + chosen + Native("/gone"),
                64, kTitle}}));
    // They stay listed: the person removes them or chooses another path.
    EXPECT_EQ(SqlRows(chosen + Native("/db/Backup.db"), "SELECT count(*) FROM Sources"),
              (std::vector<Lines>{{"4"}}));
}

TEST(BackupPath, SourcesOutsideTheChosenFolderOrHoldingItAskNothing) {
    BackupFixture f;
    const std::string drive = f.env.Path("drive"), chosen = drive + Native("/Backup");
    CreateTree(chosen, Dir());
    f.UseBackupPath(chosen);
    f.AddSource(drive);
    f.AddSource(f.env.Path("documents"));
    f.UseBackupPath(f.env.Path("backup"));
    f.env.picker.Answer(chosen);
    EXPECT_EQ(SelectBackupPath(), chosen);
    EXPECT_TRUE(f.env.box.calls.empty());
}

TEST(Sources, AddedFolderWithAnApostropheIsStoredAsItIs) {
    BackupFixture f;
    f.env.picker.Answer("/home/bob/Bob's Documents");
    EXPECT_TRUE(AddSource());
    EXPECT_EQ(f.Rows("SELECT source FROM Sources"), Lines{"/home/bob/Bob's Documents"});
    EXPECT_EQ(f.env.picker.prompts, Lines{"Select source to backup"});
}

TEST(Sources, SameFolderTwiceIsRefused) {
    BackupFixture f;
    f.AddSource("/data");
    f.env.picker.Answer("/data");
    EXPECT_FALSE(AddSource());
    EXPECT_EQ(f.env.box.calls, (Calls{{"Source already in list", 64, kTitle}}));
    EXPECT_EQ(f.Rows("SELECT count(*) FROM Sources"), Lines{"1"});
}

TEST(Sources, TheBackupFolderItselfIsRefusedInAnySpelling) {
    BackupFixture f;
#ifdef _WIN32
    // Wine makes no links.
    for (const std::string& folder : {f.backup, f.backup + Native("/")}) {
#else
    ASSERT_EQ(::symlink(f.backup.c_str(), f.env.Path("to-backup").c_str()), 0);
    for (const std::string& folder : {f.backup, f.backup + "/", f.env.Path("to-backup")}) {
#endif
        f.env.box.calls.clear();
        f.env.picker.Answer(folder);
        EXPECT_FALSE(AddSource()) << folder;
        EXPECT_EQ(f.env.box.calls,
                  (Calls{{"'" + folder +
                              "' is the backup folder. Stashwell does not back up its own store, "
                              "so it cannot be a source",
                          64, kTitle}}));
    }
    EXPECT_EQ(f.Rows("SELECT count(*) FROM Sources"), Lines{"0"});
}

TEST(Sources, AFolderInsideTheBackupFolderIsRefused) {
    BackupFixture f;
    CreateTree(f.backup + Native("/mine"), Dir({{"deeper", Dir()}}));
#ifdef _WIN32
    // Wine makes no links.
    for (const std::string& folder :
         {f.backup + Native("/Files"), f.backup + Native("/mine/deeper")}) {
#else
    ASSERT_EQ(::symlink((f.backup + "/mine").c_str(), f.env.Path("to-mine").c_str()), 0);
    for (const std::string& folder :
         {f.backup + "/Files", f.backup + "/mine/deeper", f.env.Path("to-mine")}) {
#endif
        f.env.box.calls.clear();
        f.env.picker.Answer(folder);
        EXPECT_FALSE(AddSource()) << folder;
        EXPECT_EQ(f.env.box.calls,
                  (Calls{{"'" + folder + "' lies inside the backup folder '" + f.backup +
                              "'. Stashwell does not back up its own store, so it cannot be a "
                              "source",
                          64, kTitle}}));
    }
    EXPECT_EQ(f.Rows("SELECT count(*) FROM Sources"), Lines{"0"});
}

TEST(Sources, AFolderHoldingTheBackupFolderIsAddedSinceItsWalkStepsAroundIt) {
    BackupFixture f;
    const std::string home = f.env.Path("home");
    CreateTree(home + Native("/Backup"), Dir());
    f.UseBackupPath(home + Native("/Backup"));
    f.env.picker.Answer(home);
    EXPECT_TRUE(AddSource());
    EXPECT_TRUE(f.env.box.calls.empty());
    EXPECT_EQ(f.Rows("SELECT source FROM Sources"), Lines{home});
}

TEST(Sources, AFolderBesideTheBackupFolderWithTheSameBeginningIsAdded) {
    BackupFixture f;
    CreateTree(f.backup + "-old", Dir());
    f.env.picker.Answer(f.backup + "-old");
    EXPECT_TRUE(AddSource());
    EXPECT_TRUE(f.env.box.calls.empty());
}

TEST(Sources, RemovingNothingSelectedAsksForASelection) {
    BackupFixture f;
    EXPECT_FALSE(RemoveSource(""));
    EXPECT_EQ(f.env.box.calls, (Calls{{"Please select a Source to remove", 64, kTitle}}));
    EXPECT_EQ(ErrHandler().StackPointer(), 0);
}

TEST(Sources, RemovalOfASourceWithAnApostropheAfterYes) {
    BackupFixture f;
    f.AddSource("/home/Bob's");
    f.env.box.Answer(mb::kYes);
    EXPECT_TRUE(RemoveSource("/home/Bob's"));
    EXPECT_EQ(f.env.box.calls, (Calls{{"Are you sure you want to remove '/home/Bob's'", 36, kTitle},
                                      {"'/home/Bob's' successfully removed", 64, kTitle}}));
    EXPECT_EQ(f.Rows("SELECT count(*) FROM Sources"), Lines{"0"});
}

TEST(Sources, DatabaseErrorOnRemovalIsShownCritical) {
    BackupFixture f;
    f.AddSource("/data");
    SqlRows(f.db, "SELECT 1"); // the catalogue is there
#ifdef _WIN32
    // Its read-only attribute, which Wine running as root does not enforce.
    std::filesystem::permissions(FsPath(f.db), std::filesystem::perms::owner_read,
                                 std::filesystem::perm_options::replace);
    if (std::ofstream(FsPath(f.db), std::ios::app))
        GTEST_SKIP() << "the read-only attribute is not enforced here (Wine running as root)";
#else
    ::chmod(f.db.c_str(), 0400);
    ScopedNoPermissionOverride noOverride;
    if (!noOverride.Ok()) GTEST_SKIP() << "permissions cannot be enforced here";
#endif
    f.env.box.Answer(mb::kYes);
    EXPECT_FALSE(RemoveSource("/data"));
    ASSERT_EQ(f.env.box.calls.size(), 2u);
    EXPECT_EQ(f.env.box.calls[1], (CScriptedMessageBox::Call{
                                      "Error: attempt to write a readonly database", 16, kTitle}));
}

TEST(GetKeyValue, ThirtyTwoBitValueOfOneReadsAsHexadecimalLedByAmpersandH) {
    ScopedTestEnv env;
#ifdef _WIN32
    // The numbers are REG_DWORD values, the text a REG_SZ of the current user's key.
    CRegKey machine, user;
    ASSERT_EQ(machine.Create(env.MachineKey().AsRoot(), "SOFTWARE\\Korvex\\Tools", reg::kAllAccess),
              0);
    ASSERT_EQ(machine.Write("One", RegNumberValue(1)), 0);
    ASSERT_EQ(machine.Write("Big", RegNumberValue(0x0a0b0c0d)), 0);
    ASSERT_EQ(user.Create(env.UserKey().AsRoot(), "SOFTWARE\\Korvex\\Tools", reg::kAllAccess), 0);
    ASSERT_EQ(user.Write("Text", RegTextValue(reg::kString, "hello", true)), 0);
#else
    CreateTree(env.ConfigHome() + Native("/Korvex"), Dir());
    WriteFile(env.ConfigHome() + Native("/Korvex/QRV.conf"),
              "[SOFTWARE\\Korvex\\Tools]\nOne=dword:00000001\nBig=dword:0a0b0c0d\nText=hello\n");
#endif
    std::string value;
    EXPECT_TRUE(
        GetKeyValue(CProgramSettings::kLocalMachine, "SOFTWARE\\Korvex\\Tools", "One", value));
    EXPECT_EQ(value, "&h0001");
    EXPECT_TRUE(
        GetKeyValue(CProgramSettings::kLocalMachine, "SOFTWARE\\Korvex\\Tools", "Big", value));
    EXPECT_EQ(value, "&hABCD");
    EXPECT_TRUE(
        GetKeyValue(CProgramSettings::kCurrentUser, "SOFTWARE\\Korvex\\Tools", "Text", value));
    EXPECT_EQ(value, "hello");
    EXPECT_FALSE(
        GetKeyValue(CProgramSettings::kLocalMachine, "SOFTWARE\\Korvex\\Tools", "None", value));
    EXPECT_EQ(value, "");
}

TEST(SysInfo, WithoutAnyToolItIsUnavailable) {
    ScopedTestEnv env;
    const char* path = std::getenv("PATH");
    const std::string saved = path ? path : "";
    SetEnv("PATH", env.Path("nothing here"));
    EXPECT_EQ(SysInfoProgram(), "");
    StartSysInfo();
    SetEnv("PATH", saved);
    EXPECT_EQ(env.box.calls,
              (Calls{{"System Information Is Unavailable At This Time", 0, kTitle}}));
}

#ifndef _WIN32
// The Linux tools, found on PATH.
TEST(SysInfo, AKnownToolOnThePathIsStarted) {
    ScopedTestEnv env;
    const std::string bin = env.Path("bin");
    CreateTree(bin, Dir({{"kinfocenter", File("#!/bin/sh\n")}}));
    ::chmod((bin + "/kinfocenter").c_str(), 0755);
    const char* path = std::getenv("PATH");
    const std::string saved = path ? path : "";
    ::setenv("PATH", bin.c_str(), 1);
    StartSysInfo();
    ::setenv("PATH", saved.c_str(), 1);
    EXPECT_EQ(env.desktop.started, Lines{bin + "/kinfocenter"});
    EXPECT_TRUE(env.box.calls.empty());
}
#endif

// The load as both windows share it, on a view that records what it was asked to show.
class RecordingView : public IMainWindowView {
public:
    void GotoConfigure() override {
        shown.push_back("GotoConfigure");
        AskForBackupPath();
    }
    void ShowBackupPath(const std::string& path) override { shown.push_back("path " + path); }
    void ShowOptions(const BackupOptions& options) override {
        shown.push_back("options " + options.log + " " + options.exclude);
    }
    void ShowSources(const std::vector<std::string>& list) override {
        sources = list;
        shown.push_back("sources " + std::to_string(list.size()));
    }
    void ShowStoredSchedule() override { shown.push_back("schedule"); }
    std::vector<std::string> ListedSources() const override { return sources; }
    BackupOptions OptionsShown() const override { return BackupOptions{}; }

    std::vector<std::string> shown;
    std::vector<std::string> sources;
};

TEST(MainWindowLoad, WithoutABackupPathOnlyAsksForOne) {
    BackupFixture f;
    WriteRegSetting("BackupPath", "");
    RecordingView view;
    CRunControl run({}, BackupOptions{});
    bool begun = false;
    EXPECT_EQ(LoadMainWindow(view, run, "", begun), std::nullopt);
    EXPECT_EQ(view.shown, (Lines{"GotoConfigure"}));
    EXPECT_EQ(f.env.box.calls, (Calls{{"Please define the backup path to proceed", 64, kTitle}}));
    EXPECT_FALSE(begun);
}

TEST(MainWindowLoad, ShowsThePathTheOptionsTheSourcesAndTheSchedule) {
    BackupFixture f;
    const std::string source = f.env.Path("src");
    CreateTree(source, Dir());
    f.AddSource(source);
    f.SetOption("Exclude", "*.bak");
    f.SetOption("Log", "Trace");
    RecordingView view;
    CRunControl run({}, BackupOptions{});
    bool begun = false;
    EXPECT_EQ(LoadMainWindow(view, run, "", begun), std::nullopt);
    EXPECT_EQ(view.shown,
              (Lines{"path " + f.backup, "options Trace *.bak", "sources 1", "schedule"}));
    EXPECT_EQ(view.sources, (Lines{source}));
    EXPECT_TRUE(f.env.box.calls.empty());
    EXPECT_FALSE(begun);
}

TEST(MainWindowLoad, ACommandLineRunsItsWordsWithTheListedSources) {
    BackupFixture f;
    const std::string source = f.env.Path("src");
    CreateTree(source, Dir({{"a.txt", File("alpha")}}));
    f.AddSource(source);
    RecordingView view;
    CRunControl run({}, BackupOptions{});
    bool begun = false;
    EXPECT_EQ(LoadMainWindow(view, run, "backup", begun), std::optional<int>(0));
    EXPECT_TRUE(begun);
    EXPECT_EQ(view.shown, (Lines{"path " + f.backup, "options Basic *.tmp *.tst", "sources 1"}));
    EXPECT_EQ(f.RowTexts("SELECT file FROM Files"), (Lines{Encoded(source + Native("/a.txt"))}));
}

TEST(MainWindowLoad, ADriveNotReadyWithACommandLineEndsWithoutABox) {
    BackupFixture f;
    WriteRegSetting("BackupPath", f.env.Path("gone"));
    RecordingView view;
    CRunControl run({}, BackupOptions{});
    bool begun = false;
    EXPECT_EQ(LoadMainWindow(view, run, "backup", begun), std::optional<int>(1));
    EXPECT_EQ(view.shown, (Lines{"path " + f.env.Path("gone")}));
    EXPECT_TRUE(f.env.box.calls.empty());
}

// The one design both windows build from.
TEST(WindowDesign, EveryControlHasAUniqueNameAFramedPlaceAndAScreenReaderName) {
    std::set<std::string> names;
    for (const ControlDesign& control : MainWindowControls()) {
        EXPECT_TRUE(names.insert(control.name).second) << control.name;
        EXPECT_FALSE(control.AccessibleName().empty()) << control.name;
        EXPECT_GT(control.geometry.width, 0) << control.name;
        const DesignRect place = PlaceInPage(control);
        // Inside the tab strip's page.
        EXPECT_GE(place.x, 0) << control.name;
        EXPECT_LE(place.x + place.width, kTabStripDesign.width) << control.name;
        EXPECT_LE(place.y + place.height, kTabStripDesign.height) << control.name;
        if (control.frame) {
            const ControlDesign& frame = Design(control.frame);
            EXPECT_EQ(frame.kind, ControlKind::kFrame) << control.name;
            EXPECT_EQ(frame.tab, control.tab) << control.name;
            EXPECT_LE(control.geometry.x + control.geometry.width, frame.geometry.width)
                << control.name;
            EXPECT_LE(control.geometry.y + control.geometry.height, frame.geometry.height)
                << control.name;
        }
    }
    EXPECT_EQ(Design("XP_PB1").geometry.y + Design("fraRun").geometry.y,
              PlaceInPage(Design("XP_PB1")).y);
    EXPECT_EQ(Design("cmdRestoreTo").caption, std::string("Restore to ..."));
    EXPECT_EQ(Design("cmdRestoreTo").AccessibleName(), "Restore to");
    EXPECT_EQ(Design("cmdBackup").AccessibleName(), "Backup");
    EXPECT_THROW(Design("cmdNothing"), std::logic_error);
}

} // namespace
