#pragma once

// The process entry and start-up sequence: the error handler first, the logger second, the
// daily log under the backup path, unattended mode for a non-empty command line, one instance
// at a time (an exclusive lock in the state folder), the integrity check after an interrupted
// run, then the main window's load. `Main` does not know the window: the program hands it a
// window runner, which finds out first whether a display can really be opened. When it can,
// the window's application is built before the check after an interrupted run, so that the
// check's box is the window's. When none can (none named, or a stale one, as in a job started
// from an old session), words run headless, exactly as without a display, after one stderr
// line naming the display, and an empty command line says how to run unattended and exits 2;
// the same holds when the display fails all the same while the application is being built.
// The one word --help or --version is answered before anything else (modUsage.h).
//
// The unattended path tells the truth in its exit status (modExitStatus.h) and on stderr: 0 only
// when every source was backed up and committed; 1 when it could not start (no backup path, or one
// that is not a full path, a drive not ready, a catalogue that cannot be read, a state folder it
// cannot write); 3 when another program keeps the backup folder or the user's instance busy; 4 when
// the run completed with problems and 5 when a source's run was lost, with one line per problem. It
// works on the backup folder only while it holds the folder's own lock (CBackupFolderLock),
// and that includes the check after an interrupted run: a program that cannot have the lock
// leaves the journal alone, since it may belong to the program that works there now, says so
// in the log (and, unattended, on stderr) and, unattended without a window, exits 3.
//
// No exception leaves `Main`. An error that no trap caught before the window or the unattended
// run began (the daily log that cannot be written, as on a FAT32 drive that takes no appends)
// is one line on stderr, naming the file and the cause where it is a file's, and status 1; one
// that leaves the window is status 5, as nothing tells whether the run of its words was
// recorded. A run whose log cannot take its last line ends with its own status, 4 at least.

#include "app/modExitStatus.h"

#include <functional>
#include <optional>
#include <string>

// The window, as the program built with one hands it to Main.
class IWindowRunner {
public:
    virtual ~IWindowRunner() = default;
    // Whether a display can be opened, found out by connecting to it before the window's
    // libraries are asked to. DisplayName then names the display found or, when none can be
    // opened, the one that could not (":97"); empty when the environment names none.
    virtual bool FindDisplay() = 0;
    virtual std::string DisplayName() const = 0;
    // Builds the window's application on the display found (`program` is the program's path)
    // and installs the window's services: message boxes, folder picker, yield hook. Should the
    // display fail all the same while the application is being built, `withoutWindow` runs
    // instead, and the process ends with its status.
    virtual void Open(const std::string& program, const std::function<int()>& withoutWindow) = 0;
    // Loads the main window and runs it to its end (its load performs a non-empty command
    // line); the process's exit status.
    virtual int Run(const std::string& commandLine) = 0;
};

int Main(int argc, char** argv, IWindowRunner* window = nullptr);

// Whether the environment names a display to show a window on (DISPLAY, WAYLAND_DISPLAY, or a
// Qt platform in QT_QPA_PLATFORM such as offscreen); whether it can be opened is the window
// runner's to find out.
bool HasDisplay();

class CRunOutcome;

// Why the backup path cannot be used as it is written (a path that is not a full one), as the
// message to show; empty when it can.
std::string BackupPathProblem();
// Why the catalogue cannot be used, as the message to show ("The catalogue ... cannot be
// read: ..."), logged as a problem; empty when it can.
std::string UnusableCatalogue();
// The start's one decision on the backup folder, made the same way whether the window shows it
// or an unattended run begins without one: the checks in their order, and what the first that
// fails means.
struct BackupFolderCheck {
    enum Verdict {
        kReady,         // the folder can be used
        kNoBackupPath,  // none is set: a person is to choose one
        kPathProblem,   // the path cannot be used as it is written
        kDriveNotReady, // its drive (or the folder) is not there
    };
    Verdict verdict = kReady;
    // What an unattended start writes on stderr for the verdict (empty for kReady); for
    // kPathProblem also the message a person is shown.
    std::string problem;
};
BackupFolderCheck CheckBackupFolder();
// An unattended start that cannot run: says `problem` on stderr, keeps the failure for the line
// "Last backup: ..." (the drive's absence as "backup drive <path> is not connected", any other
// problem as it is said) and answers the exit status 1. A backup (`commandLine` has the word)
// that finds the drive away while the daily schedule is on is owed and tried again
// (modOwedRun), and its notice is sent once for each daily time missed.
int UnattendedCannotRun(const BackupFolderCheck& check, const std::string& commandLine);
int UnattendedCannotRun(const std::string& problem);

// The end of an unattended run: each problem on stderr, one line each, then the verdict with
// the log's name; the exit status (0, 4 with problems, 5 when a run was lost).
int ReportUnattendedEnd(const CRunOutcome& outcome);

class CBackupFolderLock;
class CRunControl;
// The two halves of an unattended run that the start without a window and the window's
// unattended start share. First, before the catalogue is touched, the backup folder's lock:
// nothing when it is held (a lock left by a program that ended is said on stderr), else the
// exit status 3 after saying on stderr and in the log which program keeps the folder.
std::optional<int> LockForUnattendedRun(CBackupFolderLock& lock);
// Then, the lock held, the words run with the sources and options that `run` holds, the end
// reported (ReportUnattendedEnd) and "Exiting QRV" logged; the exit status. A log that cannot
// be written at the end turns a clean run's status into 4, said on stderr.
int FinishUnattendedRun(CRunControl& run, const std::string& commandLine);

// Opens today's log Logs/QRV-yyyymmdd.LOG at level 1 and writes "QRV x.y.z Started".
void StartDailyLog();
bool InitControls();
// After an interrupted run (the catalogue's journal is there), while holding the backup
// folder's lock: logs it, runs the integrity check and, when the check fails, deletes the
// journal; an unattended start then warns. False when the lock could not be had: the journal
// is left alone, unchecked, and the log (and stderr, unattended) says why.
bool CheckInterruptedRun(bool unattended);
// Why the settings file cannot be read, as its path, ": " and the cause in plain words; empty
// when it can be read or is not there at all.
std::string SettingsProblem();
// The command line as one text: the words joined by single blanks.
std::string CommandLine(int argc, char** argv);
