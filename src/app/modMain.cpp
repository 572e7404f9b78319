#include "app/modMain.h"

#include "app/CBackupFolderLock.h"
#include "app/CProgramSettings.h"
#include "app/CRunControl.h"
#include "app/CRunOutcome.h"
#include "app/modIntegrity.h"
#include "app/modLastBackup.h"
#include "app/modNotify.h"
#include "app/modOptions.h"
#include "app/modOwedRun.h"
#include "app/modPaths.h"
#include "app/modRetention.h"
#include "app/modSetup.h"
#include "app/modUsage.h"
#include "catalogue/modCatalogueCheck.h"
#include "platform/CLockFile.h"
#include "platform/modFileIO.h"
#include "platform/modFileStatus.h"
#include "platform/modFileSystem.h"
#include "platform/modPlatformKind.h"
#include "platform/modPlatformPaths.h"
#include "support/CProcTrap.h"
#include "support/Version.h"
#include "support/modDateText.h"
#include "support/modFSCommon.h"
#include "support/modMsgBox.h"
#include "support/modNumText.h"
#include "support/modServices.h"

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <optional>
#include <utility>

namespace {

// A backup path that is set but does not begin at the root.
bool IsRelative(const std::string& backupPath) {
    return !backupPath.empty() && !IsAbsolutePath(backupPath);
}

// Why a file cannot be made in `folder` after the system error `error`: a missing folder is
// one that could not be made, so the cause is the first folder on its way that refuses.
std::string WriteProblem(std::string folder, int error) {
    while (error == ENOENT && folder.size() > 1) {
        size_t cut = folder.size() - 1;
        while (cut > 0 && !IsPathSeparator(folder[cut]))
            --cut;
        folder.resize(cut);
        if (!StatusOf(folder).Exists()) continue;
        if (const int refused = WriteAccessError(folder); refused != 0) error = refused;
        break;
    }
    return FSPlainCause(error);
}

// Held for the process's life: a second instance finds the lock taken. The exit status when
// the program cannot go on, with the reason on stderr. A file system that cannot lock at all
// (some network homes) lets the program go on, with a problem line in the log.
std::optional<int> TakeInstanceLock() {
    static CLockFile instance; // held for the process's life
    const std::string path = StateFile("QRV.lock");
    if (!instance.Open(path, true, true)) {
        std::cerr << "Error: Stashwell cannot write its state folder " << StateFolder() << ": "
                  << WriteProblem(StateFolder(), instance.Error()) << std::endl;
        return kExitCannotRun;
    }
    const CLockFile::Attempt attempt = instance.TryLock();
    if (attempt == CLockFile::Attempt::kLocked) return std::nullopt;
    if (attempt == CLockFile::Attempt::kBusy) {
        std::cerr << "Error: Stashwell is already running for this user." << std::endl;
        return kExitOtherInstance;
    }
    Log(1, std::string(kProblemMark) + "The file system of the state folder cannot lock " + path +
               " (" + FSPlainCause(instance.Error()) +
               "), so a second Stashwell of this user could run beside this one");
    return std::nullopt;
}

// How a run over all sources ended, in the words of its notice.
std::string OutcomeWords(const CRunOutcome& outcome) {
    switch (outcome.Ended()) {
    case CRunOutcome::End::kComplete:
        return "Backup completed";
    case CRunOutcome::End::kProblems: {
        const size_t count = outcome.Lines().size();
        return "Backup completed with " + std::to_string(count) +
               (count == 1 ? " problem" : " problems");
    }
    case CRunOutcome::End::kLost:
        break;
    }
    for (const std::string& line : outcome.Lines())
        if (const size_t at = line.find(" was lost: "); at != std::string::npos)
            return "A backup run was lost: " + line.substr(at + 11);
    return "A backup run was lost";
}

// The end of a process that met an error no trap caught: one line on stderr, nothing more in
// the log (whose failure is the likely cause). A failed write of the daily log is named with
// the file and the cause.
int StoppedAtError(int status) {
    const CRuntimeError error = CurrentRuntimeError();
    const CLogger& logger = Logger();
    if (logger.LastWriteError() != 0)
        std::cerr << "Error: Stashwell cannot write its daily log " << logger.LogFile() << ": "
                  << FSPlainCause(logger.LastWriteError()) << std::endl;
    else
        std::cerr << "Error: Stashwell stopped at an error: " << error.Description() << std::endl;
    return status;
}

void SetUpErrorHandler() {
    CErrHandler& handler = ErrHandler();
    handler.AppTitle("Stashwell");
    handler.Destination(StateFile("QRVERR.LOG"));
    handler.DisplayMsgOnError(true);
    handler.IncludeExpandedInfo(true);
    handler.MaxProcStackItems(100);
}

// The main window's load for a process without a window: the unattended path.
int LoadWithoutWindow(const std::string& commandLine) {
    CProcTrap trap("frmMain Form_Load");
    if (const BackupFolderCheck check = CheckBackupFolder();
        check.verdict != BackupFolderCheck::kReady)
        return UnattendedCannotRun(check, commandLine);
    CBackupFolderLock lock;
    if (const std::optional<int> exit = LockForUnattendedRun(lock)) return *exit;
    try {
        trap.Check();
        CreateDB();
        if (const std::string problem = UnusableCatalogue(); !problem.empty())
            return UnattendedCannotRun(problem);
        CRunControl run(FillSources(), LoadOptions());
        return FinishUnattendedRun(run, commandLine);
    } catch (...) {
        // An error that ended the unattended path (the log's drive gone, for one): nothing
        // tells whether the run was recorded, so it counts as lost.
        const std::string error = CurrentRuntimeError().Description();
        std::cerr << "Error: the unattended run stopped at an error: " << error << std::endl;
        trap.Handle();
        TellRunEnd(kExitRunLost, "A backup run was lost: " + error, {});
    }
    try {
        Log(1, "Exiting QRV");
    } catch (...) {
        return StoppedAtError(kExitRunLost);
    }
    return kExitRunLost;
}

// Says on stderr that the display named could not be opened.
void TellDisplayClosed(const std::string& name, bool unattended) {
    if (name.empty()) return; // none was named: the plain headless start
    std::cerr << "Stashwell could not open the display " << name
              << (unattended ? "; the run goes on without a window" : "") << std::endl;
}

// Main's steps from the check after an interrupted run on, with the window's application built
// (`window`) or without a window; `running` turns true when the window takes over.
int FinishStartUp(const std::string& commandLine, IWindowRunner* window, bool& running) {
    const bool unattended = !commandLine.empty();
    // An unattended run without a window would only find the folder busy again.
    const bool checked = CheckInterruptedRun(unattended);
    if (!checked && unattended && !window) return kExitOtherInstance;
    if (checked) TidyMetadata();
    Log(3, "Loading Main Window");
    if (window) {
        running = true;
        return window->Run(commandLine);
    }
    if (!unattended) {
        if (kWindowsBuild)
            std::cerr << "This Windows build of Stashwell has no window yet. Run it unattended "
                         "with the words backup and/or compact, for example: stashwell.exe "
                         "backup compact"
                      << std::endl;
        else
            std::cerr << "Stashwell needs a display to open its window. Without one, run it "
                         "unattended with the words backup and/or compact, for example: "
                         "stashwell backup compact"
                      << std::endl;
        return kExitNoWindow;
    }
    return LoadWithoutWindow(commandLine);
}

// Main's steps up to the window or the unattended run; `running` turns true when the window
// takes over.
int StartUp(int argc, char** argv, IWindowRunner* window, bool& running) {
    SetUpErrorHandler();
    Logger();
    StartDailyLog();
    const std::string commandLine = CommandLine(argc, argv);
    const bool unattended = !commandLine.empty();
    if (unattended) Log(3, "Start Unattended");
    if (const std::optional<int> exit = TakeInstanceLock()) return *exit;
    Log(3, "Loading Controls");
    InitControls();
    if (!window || !window->FindDisplay()) {
        if (window) TellDisplayClosed(window->DisplayName(), unattended);
        return FinishStartUp(commandLine, nullptr, running);
    }
    // The display failed after all while the application was being built: the start goes on
    // as without one, with none of the window's services installed.
    const auto withoutWindow = [&]() -> int {
        try {
            TellDisplayClosed(window->DisplayName(), unattended);
            return FinishStartUp(commandLine, nullptr, running);
        } catch (...) {
            return StoppedAtError(kExitCannotRun);
        }
    };
    // The check after an interrupted run shows its box through the window's service.
    window->Open(argc > 0 ? argv[0] : "stashwell", withoutWindow);
    return FinishStartUp(commandLine, window, running);
}

} // namespace

BackupFolderCheck CheckBackupFolder() {
    if (!IsBackupPathSet()) {
        const std::string settings = SettingsProblem();
        return {BackupFolderCheck::kNoBackupPath,
                settings.empty() ? "Please define the backup path to proceed"
                                 : "Error: Stashwell cannot read its settings file " + settings};
    }
    if (std::string problem = BackupPathProblem(); !problem.empty())
        return {BackupFolderCheck::kPathProblem, std::move(problem)};
    if (!IsBackupDriveReady())
        return {BackupFolderCheck::kDriveNotReady,
                "Error: Backup drive not ready. Please fix and start again."};
    return {};
}

std::string CommandLine(int argc, char** argv) {
    std::string line;
    for (int i = 1; i < argc; ++i)
        line += (i > 1 ? " " : "") + std::string(argv[i]);
    return line;
}

std::string BackupPathProblem() {
    const std::string path = GetBackupPath();
    if (!IsRelative(path)) return {};
    return "Error: The backup path \"" + path +
           "\" is not a full path (one that begins with /). Please choose the backup folder again.";
}

std::string UnusableCatalogue() {
    const std::string problem = CatalogueProblem(GetDBPath());
    if (problem.empty()) return {};
    const std::string text = "The catalogue " + GetDBPath() + " cannot be read: " + problem;
    Log(1, kProblemMark + text);
    return text;
}

int ReportUnattendedEnd(const CRunOutcome& outcome) {
    for (const std::string& line : outcome.Lines())
        std::cerr << line << '\n';
    const std::string verdict = outcome.Verdict(Logger().LogFile());
    if (!verdict.empty()) std::cerr << verdict << '\n';
    std::cerr.flush();
    return outcome.ExitStatus();
}

int UnattendedCannotRun(const std::string& problem) {
    std::cerr << problem << std::endl;
    RecordRunFailed(problem, std::time(nullptr));
    TellRunEnd(kExitCannotRun, "Backup did not start", {problem});
    return kExitCannotRun;
}

int UnattendedCannotRun(const BackupFolderCheck& check, const std::string& commandLine) {
    if (check.verdict != BackupFolderCheck::kDriveNotReady)
        return UnattendedCannotRun(check.problem);
    std::cerr << check.problem << std::endl;
    const std::time_t now = std::time(nullptr);
    RecordRunFailed("backup drive " + GetBackupPath() + " is not connected", now);
    if (HasBackupWord(commandLine) && !OweRun(now))
        Log(2, "No desktop notification was sent: the owed backup was told of already");
    else
        TellRunEnd(kExitCannotRun, "Backup drive " + GetBackupPath() + " is not connected", {});
    return kExitCannotRun;
}

std::optional<int> LockForUnattendedRun(CBackupFolderLock& lock) {
    if (!lock.Acquire(GetBackupPath())) {
        std::cerr << lock.Problem() << std::endl;
        Log(1, lock.Problem());
        TellRunEnd(kExitOtherInstance, "Backup did not start", {lock.Problem()});
        return kExitOtherInstance;
    }
    if (!lock.Unlocked().empty()) std::cerr << lock.Unlocked() << std::endl;
    return std::nullopt;
}

int FinishUnattendedRun(CRunControl& run, const std::string& commandLine) {
    run.RunUnattended(commandLine);
    const int status = ReportUnattendedEnd(run.Outcome());
    TellRunEnd(status, OutcomeWords(run.Outcome()), run.Outcome().Lines(),
               status == kExitDone && TellsSuccess());
    try {
        Log(1, "Exiting QRV");
    } catch (...) {
        // The run ended as its status says; only its log is cut short, which is a problem.
        return StoppedAtError(status == kExitDone ? kExitProblems : status);
    }
    return status;
}

void StartDailyLog() {
    CLogger& logger = Logger();
    // The Logs folder of a backup folder that is there, made before the log's first line.
    const std::string backupPath = GetBackupPath();
    const std::string logs = GetLogsPath();
    if (!backupPath.empty() && !IsRelative(backupPath) && FSFolderExists(backupPath) &&
        !FSFolderExists(logs))
        MakeFolder(logs); // a folder that cannot be made leaves the log to say why
    logger.LogFile(FSJoinPath(logs, "QRV-" + DateStamp(std::time(nullptr)) + ".LOG"));
    logger.LogLevel(1);
    // A backup path that is not a full one is refused; its log would land wherever we are.
    if (!IsRelative(backupPath)) logger.StartLogger();
    logger.BlankLine();
    Log(1, "QRV " + NumText(version::kMajor) + "." + NumText(version::kMinor) + "." +
               NumText(version::kRevision) + " Started");
}

std::string SettingsProblem() {
    const std::string path = CProgramSettings::FilePath();
    if (path.empty()) return {}; // the registry: a read that fails gives no backup path
    // Without waiting on a FIFO in the file's place.
    int error = 0;
    const NativeFile file = OpenFileHandle(path, OpenMode::kReadThrough, error);
    char byte = 0;
    if (file != kNoFile) {
        ReadBytes(file, &byte, 1, nullptr, error);
        CloseFileHandle(file);
    }
    if (error == 0 || error == ENOENT) return {};
    return path + ": " + FSPlainCause(error);
}

bool CheckInterruptedRun(bool unattended) {
    if (!DBJournalExists()) return true;
    CBackupFolderLock lock;
    if (!lock.Acquire(GetBackupPath())) {
        const std::string cause =
            lock.Busy() ? "another program is working on the backup folder " + GetBackupPath()
                        : lock.Problem().substr(std::string("Error: ").size());
        const std::string text = "The catalogue's journal " + GetDBPath() +
                                 "-journal was left alone, unchecked: " + cause;
        if (unattended) std::cerr << text << std::endl;
        Log(1, text);
        return false;
    }
    if (!DBJournalExists()) return true; // the program that held the folder finished its work
    Log(1, "Previous Backup process interrupted. Running Integrity Check");
    if (IntegrityCheck()) return true; // the database engine deals with the journal itself
    // The warning is for unattended runs only, and only when a journal was deleted.
    if (KillDBJournal() && unattended) {
        MsgBox("Possible QRV database corruption", mb::kCritical | mb::kOKOnly, "QRV - Stashwell");
        // Without a window the box itself has written its text to the log.
        if (!MessageBoxService().WritesToLog()) Log(1, "Possible QRV database corruption");
    }
    return true;
}

bool InitControls() {
    return true; // there is no common-controls library to prepare on this platform
}

bool HasDisplay() {
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"}) {
        const char* value = std::getenv(name);
        if (value && *value) return true;
    }
    return false;
}

int Main(int argc, char** argv, IWindowRunner* window) {
    if (const std::optional<int> answered = AnswerInfoRequest(argc, argv, std::cout))
        return *answered;
    bool running = false;
    try {
        return StartUp(argc, argv, window, running);
    } catch (...) {
        // Nothing tells whether the window recorded the run of its words.
        return StoppedAtError(running ? kExitRunLost : kExitCannotRun);
    }
}
