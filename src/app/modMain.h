#pragma once

// The process entry and start-up sequence: the error handler first, the logger second, the
// daily log under the backup path, unattended mode for a non-empty command line, one instance
// at a time (an exclusive lock in the state folder), the integrity check after an interrupted
// run, then the main window's load. Without a window, an empty command line exits 2; the
// unattended path exits 0 when it completes and 1, with the reason on stderr, when no backup
// path is set or the backup drive is not ready. It works on the backup folder only while it
// holds the folder's own lock (CBackupFolderLock); when another program keeps it busy, the
// reason goes to stderr and the exit status is 3.

#include <string>

inline constexpr int kExitDone = 0;
inline constexpr int kExitCannotRun = 1;
inline constexpr int kExitNoWindow = 2;
inline constexpr int kExitOtherInstance = 3;

int Main(int argc, char** argv);

// Opens today's log Logs/QRV-yyyymmdd.LOG at level 1 and writes "QRV x.y.z Started".
void StartDailyLog();
bool InitControls();
// After an interrupted run (the catalogue's journal is there): logs it, runs the integrity
// check and, when the check fails, deletes the journal; an unattended start then warns.
void CheckInterruptedRun(bool unattended);
// The command line as one text: the words joined by single blanks.
std::string CommandLine(int argc, char** argv);
