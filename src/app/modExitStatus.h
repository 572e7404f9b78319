#pragma once

// The exit statuses of the program, for a scheduler to act on.

inline constexpr int kExitDone = 0;          // every source backed up and committed
inline constexpr int kExitCannotRun = 1;     // could not start: no path, no drive, no catalogue
inline constexpr int kExitNoWindow = 2;      // no display and nothing to run unattended
inline constexpr int kExitOtherInstance = 3; // could not start: another program is working
inline constexpr int kExitProblems = 4;      // completed with problems
inline constexpr int kExitRunLost = 5;       // a source's run was lost
