#include "app/modMainWindow.h"

#include "app/CBackupFolderLock.h"
#include "app/CRunControl.h"
#include "app/modCatalogueQuery.h"
#include "app/modMain.h"
#include "app/modOptions.h"
#include "app/modPaths.h"
#include "app/modSetup.h"
#include "catalogue/ADOSQLite.h"
#include "catalogue/modSQLQuote.h"
#include "support/CProcTrap.h"
#include "support/Version.h"
#include "support/modBrowseFolder.h"
#include "support/modMsgBox.h"
#include "support/modNumText.h"
#include "support/modServices.h"

namespace {

constexpr const char* kLimitRange = "Valid range between 1-100";
constexpr const char* kOwnStore = "Stashwell does not back up its own store";

// After a new backup path is chosen: the sources of its catalogue that lie in it are named in
// one box, since the run will not walk them (it would back up the store into itself). They stay
// listed, for the person to remove them or to choose another backup path.
void NameSourcesInBackupFolder(const std::string& folder) {
    ADOSQLite db;
    QueryCatalogue(db, "Sources", sqlaction::kSelect);
    std::string inside;
    for (db.MoveFirst(); !db.Err() && !db.Eof(); db.MoveNext())
        if (PlaceInBackupFolder(db.Field("source")) != FolderPlace::kOutside)
            inside += "\n" + db.Field("source");
    if (inside.empty()) return; // a catalogue that cannot be read is told of as it is listed
    MsgBox("These sources lie in the backup folder '" + folder +
               "' and will not be backed up, since " + kOwnStore +
               ". Remove them, or choose another backup path:" + inside,
           mb::kInformation, kWindowTitle);
}

} // namespace

std::string MainWindowCaption() {
    return "Korvex QRV - Ver " + NumText(version::kMajor) + "." + NumText(version::kMinor) + "." +
           NumText(version::kRevision);
}

void AskForBackupPath() {
    MsgBox("Please define the backup path to proceed", mb::kInformation, kWindowTitle);
}

bool AskToChangeBackupPath() {
    if (MsgBox("Error: Backup drive not ready. Do you wish to change the path?",
               mb::kYesNo | mb::kCritical, kWindowTitle) == mb::kYes)
        return true;
    MsgBox("Error: Backup drive not ready. Please fix and start again.", mb::kCritical,
           kWindowTitle);
    return false;
}

void StoreOption(const std::string& key, const std::string& value) {
    SetSetupValue(key, value);
}

void SelectLogLevel(const std::string& word) {
    Logger().LogLevel(LogLevelOf(word));
    StoreOption("Log", word);
}

std::optional<std::string> MaxBackupsChanged(const std::string& text) {
    const double limit = Val(text);
    if (!text.empty() && limit >= 1 && limit <= 100) {
        StoreOption("MaxBackups", text);
        return std::nullopt;
    }
    MsgBox(kLimitRange, mb::kInformation, kWindowTitle);
    const std::string stored = GetSetupValue("MaxBackups");
    return stored.empty() ? std::string("10") : stored;
}

std::string SelectBackupPath() {
    const std::string folder = BrowseForFolder("Select Backup Path");
    if (folder.empty()) return folder;
    WriteRegSetting("BackupPath", folder);
    Logger().StopLogger();
    // The backup folders first, so that the daily log opens in the new Logs folder.
    CreateDB();
    StartDailyLog();
    NameSourcesInBackupFolder(folder);
    return folder;
}

bool AddSource() {
    const std::string folder = BrowseForFolder("Select source to backup");
    if (folder.empty()) return false;
    // A folder that holds the backup folder is a source like any other: its walk steps around
    // the backup folder. The backup folder itself, or a folder inside it, is refused.
    if (const FolderPlace place = PlaceInBackupFolder(folder); place != FolderPlace::kOutside) {
        MsgBox("'" + folder + "' " +
                   (place == FolderPlace::kSame
                        ? std::string("is the backup folder")
                        : "lies inside the backup folder '" + GetBackupPath() + "'") +
                   ". " + kOwnStore + ", so it cannot be a source",
               mb::kInformation, kWindowTitle);
        return false;
    }
    ADOSQLite db;
    QueryCatalogue(db, "Sources", sqlaction::kSelect, "source = " + SQLLiteral(folder));
    if (db.RecordCount() > 0) {
        MsgBox("Source already in list", mb::kInformation, kWindowTitle);
        return false;
    }
    db.Reset();
    db.Table("Sources");
    db.Action(sqlaction::kInsert);
    db.Field("source", SQLLiteral(folder));
    db.Exec();
    return true;
}

bool RemoveSource(const std::string& source) {
    if (source.empty()) {
        MsgBox("Please select a Source to remove", mb::kInformation, kWindowTitle);
        return false;
    }
    if (MsgBox("Are you sure you want to remove '" + source + "'", mb::kYesNo | mb::kQuestion,
               kWindowTitle) != mb::kYes)
        return false;
    // Only the entry goes; the runs of the source stay until they are deleted (Manage Backups).
    ADOSQLite db;
    QueryCatalogue(db, "Sources", sqlaction::kDelete, "source = " + SQLLiteral(source));
    if (db.Err()) {
        MsgBox("Error: " + db.ErrMsg(), mb::kCritical, kWindowTitle);
        return false;
    }
    MsgBox("'" + source + "' successfully removed", mb::kInformation, kWindowTitle);
    return true;
}

std::optional<int> LoadMainWindow(IMainWindowView& window, CRunControl& run,
                                  const std::string& commandLine, bool& wordsBegun) {
    const BackupFolderCheck check = CheckBackupFolder();
    if (check.verdict == BackupFolderCheck::kNoBackupPath) {
        window.GotoConfigure();
        return std::nullopt; // the command line waits for a backup path
    }
    window.ShowBackupPath(GetBackupPath());
    const bool unattended = !commandLine.empty();
    if (check.verdict != BackupFolderCheck::kReady && unattended)
        return UnattendedCannotRun(check, commandLine);
    if (check.verdict == BackupFolderCheck::kPathProblem) {
        MsgBox(check.problem, mb::kCritical, kWindowTitle);
        window.GotoConfigure();
        return std::nullopt;
    }
    if (check.verdict == BackupFolderCheck::kDriveNotReady) {
        if (AskToChangeBackupPath()) {
            window.GotoConfigure();
            return std::nullopt;
        }
        return kExitCannotRun;
    }
    // Unattended with the window present: no box waits for a user, no report is shown, and the
    // process ends by itself; the backup folder is held from before the catalogue is opened.
    CBackupFolderLock lock;
    if (unattended) {
        SetMessageBoxService(nullptr);
        if (const std::optional<int> exit = LockForUnattendedRun(lock)) return exit;
    }
    CreateDB();
    if (const std::string problem = UnusableCatalogue(); !problem.empty()) {
        if (unattended) return UnattendedCannotRun(problem);
        MsgBox(problem, mb::kCritical, kWindowTitle);
    }
    window.ShowOptions(LoadOptions());
    window.ShowSources(FillSources());
    if (!unattended) {
        window.ShowStoredSchedule();
        return std::nullopt;
    }
    run.Inputs(window.ListedSources(), window.OptionsShown());
    wordsBegun = true;
    return FinishUnattendedRun(run, commandLine);
}
