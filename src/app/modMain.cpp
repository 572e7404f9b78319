#include "app/modMain.h"

#include "app/CBackupFolderLock.h"
#include "app/CRunControl.h"
#include "app/modIntegrity.h"
#include "app/modOptions.h"
#include "app/modPaths.h"
#include "app/modSetup.h"
#include "support/CProcTrap.h"
#include "support/Version.h"
#include "support/modDateText.h"
#include "support/modMsgBox.h"
#include "support/modNumText.h"
#include "support/modPlatformPaths.h"
#include "support/modServices.h"

#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <iostream>
#include <sys/file.h>
#include <unistd.h>

namespace {

// Held for the process's life: a second instance finds the lock taken.
bool TakeInstanceLock() {
    const int fd =
        ::open(StateFile("QRV.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kPrivateFileMode);
    return fd >= 0 && ::flock(fd, LOCK_EX | LOCK_NB) == 0;
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
    if (!IsBackupPathSet()) {
        std::cerr << "Please define the backup path to proceed" << std::endl;
        return kExitCannotRun;
    }
    if (!IsBackupDriveReady()) {
        std::cerr << "Error: Backup drive not ready. Please fix and start again." << std::endl;
        return kExitCannotRun;
    }
    CBackupFolderLock lock;
    if (!lock.Acquire(GetBackupPath())) {
        std::cerr << lock.Problem() << std::endl;
        Log(1, lock.Problem());
        return kExitOtherInstance;
    }
    try {
        trap.Check();
        CreateDB();
        CRunControl run(FillSources(), LoadOptions());
        run.RunUnattended(commandLine);
    } catch (...) {
        trap.Handle();
    }
    Log(1, "Exiting QRV");
    return kExitDone;
}

} // namespace

std::string CommandLine(int argc, char** argv) {
    std::string line;
    for (int i = 1; i < argc; ++i)
        line += (i > 1 ? " " : "") + std::string(argv[i]);
    return line;
}

void StartDailyLog() {
    CLogger& logger = Logger();
    logger.LogFile(GetLogsPath() + "/QRV-" + DateStamp(std::time(nullptr)) + ".LOG");
    logger.LogLevel(1);
    logger.StartLogger();
    logger.BlankLine();
    Log(1, "QRV " + NumText(version::kMajor) + "." + NumText(version::kMinor) + "." +
               NumText(version::kRevision) + " Started");
}

void CheckInterruptedRun(bool unattended) {
    if (!DBJournalExists()) return;
    Log(1, "Previous Backup process interrupted. Running Integrity Check");
    if (IntegrityCheck()) return; // the database engine deals with the journal itself
    // The warning is for unattended runs only, and only when a journal was deleted.
    if (KillDBJournal() && unattended) {
        MsgBox("Possible QRV database corruption", mb::kCritical | mb::kOKOnly, "QRV - Stashwell");
        Log(1, "Possible QRV database corruption");
    }
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

int Main(int argc, char** argv, const WindowRunner& runWindow) {
    SetUpErrorHandler();
    Logger();
    StartDailyLog();
    const std::string commandLine = CommandLine(argc, argv);
    const bool unattended = !commandLine.empty();
    if (unattended) Log(3, "Start Unattended");
    if (!TakeInstanceLock()) return kExitOtherInstance;
    Log(3, "Loading Controls");
    InitControls();
    CheckInterruptedRun(unattended);
    Log(3, "Loading Main Window");
    if (runWindow && HasDisplay()) return runWindow(argc, argv, commandLine);
    if (!unattended) {
        std::cerr << "Stashwell needs a display to open its window. Without one, run it "
                     "unattended with the words backup and/or compact, for example: stashwell "
                     "backup compact"
                  << std::endl;
        return kExitNoWindow;
    }
    return LoadWithoutWindow(commandLine);
}
