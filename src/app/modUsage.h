#pragma once

// The answers to `stashwell --help` and `stashwell --version`, as a Linux program gives them:
// on stdout, with status 0, before the start-up begins, so that no log, lock, settings file or
// catalogue is touched. They are answered only as the one word of the command line; beside
// other words they are words like any other that the unattended run ignores, so a command line
// such as "backup --help" still backs up.

#include <iosfwd>
#include <optional>
#include <string>

// The usage: the command line, its words, the exit statuses and where things live.
std::string StashwellUsage();
// "Stashwell x.y.z".
std::string StashwellVersion();
// For the command line "--help" or "--version": its answer written on `out`, and the exit
// status (0, or 1 when `out` could not take it); nothing for any other command line.
std::optional<int> AnswerInfoRequest(int argc, char** argv, std::ostream& out);
