#pragma once

// The process entry and start-up sequence: the error handler first, the logger second, the
// daily log under the backup path, unattended mode for a non-empty command line, one instance
// at a time (an exclusive lock in the state folder), the integrity check after an interrupted
// run, then the main window's load. `Main` does not know the window: the program hands it a
// window runner, which it calls when a display is there. Without a display, an empty command
// line says how to run unattended and exits 2; the unattended path exits 0 when it completes
// and 1, with the reason on stderr, when no backup path is set or the backup drive is not
// ready. It works on the backup folder only while it holds the folder's own lock
// (CBackupFolderLock); when another program keeps it busy, the reason goes to stderr and the
// exit status is 3.

#include <functional>
#include <string>

inline constexpr int kExitDone = 0;
inline constexpr int kExitCannotRun = 1;
inline constexpr int kExitNoWindow = 2;
inline constexpr int kExitOtherInstance = 3;

// Shows the main window and runs it to its end (its load performs a non-empty command line);
// the process's exit status.
using WindowRunner = std::function<int(int& argc, char** argv, const std::string& commandLine)>;

int Main(int argc, char** argv, const WindowRunner& runWindow = {});

// Whether the process has a display to show a window on (X11, Wayland, or a Qt platform named
// in QT_QPA_PLATFORM such as offscreen).
bool HasDisplay();

// Opens today's log Logs/QRV-yyyymmdd.LOG at level 1 and writes "QRV x.y.z Started".
void StartDailyLog();
bool InitControls();
// After an interrupted run (the catalogue's journal is there): logs it, runs the integrity
// check and, when the check fails, deletes the journal; an unattended start then warns.
void CheckInterruptedRun(bool unattended);
// The command line as one text: the words joined by single blanks.
std::string CommandLine(int argc, char** argv);
