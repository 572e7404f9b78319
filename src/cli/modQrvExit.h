#pragma once

// The exit statuses of the command-line companion, as its manual page lists them.

inline constexpr int kQrvDone = 0;       // the command did all it was asked
inline constexpr int kQrvProblems = 1;   // check found something wrong, restore left files out,
                                         // find matched nothing
inline constexpr int kQrvUsage = 2;      // an unknown command or option, a missing argument
inline constexpr int kQrvCannotOpen = 3; // no backup path, folder or catalogue, an unknown run
                                         // or path, a catalogue that cannot be read
inline constexpr int kQrvBusy = 4;       // another program holds the catalogue or the folder
