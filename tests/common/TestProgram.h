#pragma once

// Runs the real stashwell program with the test's XDG folders, capturing its output.

#include <functional>
#include <string>
#include <vector>

struct ProgramRun {
    int exitCode = -1; // -1 when killed by a signal
    int signal = 0;    // the signal that ended it, if any
    std::string out;
    std::string err;
};

// Runs the program with `args` and waits (at most `timeoutSeconds`, then kills it).
ProgramRun RunStashwell(const std::vector<std::string>& args, int timeoutSeconds = 120);

// Starts the program and kills it with SIGKILL once `killWhen` returns true (polled every
// millisecond) or the program ends by itself; returns how it ended.
ProgramRun RunStashwellUntil(const std::vector<std::string>& args,
                             const std::function<bool()>& killWhen, int timeoutSeconds = 120);
