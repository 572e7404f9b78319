#pragma once

// Runs the real programs (stashwell, and its command-line companion qrv) with the test's
// per-user folders, in the test's folder, capturing their output: fork and exec on Linux,
// CreateProcessW on Windows (under Wine the build's programs are reached through the drive Z:).

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

// The signal of a kill (SIGKILL); a Windows program ended with TerminateProcess counts as
// killed with it too.
inline constexpr int kKillSignal = 9;

struct ProgramRun {
    int exitCode = -1; // -1 when killed by a signal
    int signal = 0;    // the signal that ended it, if any
    std::string out;
    std::string err;
};

// Environment variables set for the program on top of the test's own ("XDG_STATE_HOME", ...);
// an empty value on Windows removes the variable.
using ProgramEnv = std::vector<std::pair<std::string, std::string>>;

// The program started in the background; Wait collects how it ended.
class RunningProgram {
public:
    // `program` is the path of the program to run; "" for stashwell.
    explicit RunningProgram(const std::vector<std::string>& args, const ProgramEnv& env = {},
                            const std::string& program = {});
    ~RunningProgram();
    RunningProgram(const RunningProgram&) = delete;
    RunningProgram& operator=(const RunningProgram&) = delete;

    // The process id.
    int64_t Pid() const { return m_pid; }
    // Waits for the end (at most `timeoutSeconds`, then kills it); kills it with SIGKILL
    // (TerminateProcess on Windows) as soon as `killWhen` returns true (polled every tenth of a
    // millisecond).
    ProgramRun Wait(int timeoutSeconds = 120, const std::function<bool()>& killWhen = nullptr);

private:
    struct Started; // Windows: the started process
    int64_t m_pid = -1;
    int m_out = -1;
    int m_err = -1;
    bool m_waited = false;
    std::unique_ptr<Started> m_started;
};

// Runs the program with `args` and waits (at most `timeoutSeconds`, then kills it).
ProgramRun RunStashwell(const std::vector<std::string>& args, int timeoutSeconds = 120,
                        const ProgramEnv& env = {});

// Runs the companion qrv with `args` and waits (at most `timeoutSeconds`, then kills it).
ProgramRun RunQrv(const std::vector<std::string>& args, int timeoutSeconds = 120,
                  const ProgramEnv& env = {});
// `text` as a program's console output holds it: each "\n" is "\r\n" on Windows, whose
// console streams write text lines that way.
std::string OnConsole(const std::string& text);
// The path of the companion program.
std::string QrvProgram();

// Starts the program and kills it with SIGKILL once `killWhen` returns true (polled every tenth
// of a millisecond) or the program ends by itself; returns how it ended.
ProgramRun RunStashwellUntil(const std::vector<std::string>& args,
                             const std::function<bool()>& killWhen, int timeoutSeconds = 120,
                             const ProgramEnv& env = {});
