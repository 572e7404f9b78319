#include "TestProgram.h"

#include "WindowsTestHelpers.h"

#include <chrono>
#include <stdexcept>
#include <thread>
#ifndef _WIN32
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

#ifdef _WIN32

struct RunningProgram::Started {
    std::unique_ptr<WindowsProcess> process;
};

namespace {

// The test's folder: the one that holds the per-user folders ScopedTestEnv points APPDATA to.
std::string TestFolder() {
    const std::string config = WindowsEnvironment("APPDATA");
    const size_t cut = config.find_last_of('\\');
    return cut == std::string::npos ? std::string() : config.substr(0, cut);
}

} // namespace

RunningProgram::RunningProgram(const std::vector<std::string>& args, const ProgramEnv& env,
                               const std::string& program)
    : m_started(std::make_unique<Started>()) {
    const std::string bin = program.empty() ? STASHWELL_BIN : program;
    // Run inside the test's folder, so that relative paths land there.
    m_started->process = std::make_unique<WindowsProcess>(bin, args, env, TestFolder());
    if (!m_started->process->Started())
        throw std::runtime_error("cannot start " + bin + ": " + m_started->process->StartError());
    m_pid = m_started->process->Id();
}

RunningProgram::~RunningProgram() = default;

ProgramRun RunningProgram::Wait(int timeoutSeconds, const std::function<bool()>& killWhen) {
    ProgramRun run;
    WindowsProcess& process = *m_started->process;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeoutSeconds);
    uint32_t code = 0;
    bool killed = false;
    while (true) {
        process.Drain(run.out, run.err);
        if (process.Ended(code)) break;
        if (!killed && ((killWhen && killWhen()) || std::chrono::steady_clock::now() > deadline))
            killed = process.Terminate();
        std::this_thread::sleep_for(std::chrono::microseconds(killWhen && !killed ? 100 : 1000));
    }
    m_waited = true;
    process.Drain(run.out, run.err);
    if (killed) {
        run.signal = kKillSignal;
    } else {
        run.exitCode = static_cast<int>(code);
    }
    return run;
}

#else

struct RunningProgram::Started {};

namespace {

void Drain(int fd, std::string& into) {
    char buf[4096];
    ssize_t n;
    while ((n = ::read(fd, buf, sizeof buf)) > 0)
        into.append(buf, static_cast<size_t>(n));
}

// A test running as root that gave up bypassing file permissions (ScopedNoPermissionOverride)
// runs the program without that power too: root regains every capability at exec unless it
// has left the bounding set.
void KeepPermissionsAsTheTestHasThem() {
    if (::geteuid() != 0) return;
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct caps[2]{};
    if (::syscall(SYS_capget, &header, caps) != 0) return;
    if (caps[0].effective & (1u << CAP_DAC_OVERRIDE)) return;
    ::prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE, 0, 0, 0);
    ::prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH, 0, 0, 0);
}

} // namespace

RunningProgram::RunningProgram(const std::vector<std::string>& args, const ProgramEnv& env,
                               const std::string& program) {
    std::string bin = program.empty() ? STASHWELL_BIN : program;
    int outPipe[2], errPipe[2];
    if (::pipe2(outPipe, O_CLOEXEC) != 0 || ::pipe2(errPipe, O_CLOEXEC) != 0)
        throw std::runtime_error("pipe failed");
    m_pid = ::fork();
    if (m_pid < 0) throw std::runtime_error("fork failed");
    if (m_pid == 0) {
        ::dup2(outPipe[1], 1);
        ::dup2(errPipe[1], 2);
        // No display: the program runs without a window unless the test's `env` gives it one.
        ::unsetenv("DISPLAY");
        ::unsetenv("WAYLAND_DISPLAY");
        ::unsetenv("QT_QPA_PLATFORM");
        // Run inside the test's folder, so that relative paths land there.
        if (const char* config = std::getenv("XDG_CONFIG_HOME")) {
            const std::string root = std::string(config).substr(0, std::string(config).rfind('/'));
            if (::chdir(root.c_str()) != 0) ::_exit(126);
        }
        for (const auto& [name, value] : env)
            ::setenv(name.c_str(), value.c_str(), 1);
        KeepPermissionsAsTheTestHasThem();
        std::vector<char*> argv;
        argv.push_back(bin.data());
        for (const std::string& a : args)
            argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        ::execv(bin.c_str(), argv.data());
        ::_exit(127);
    }
    ::close(outPipe[1]);
    ::close(errPipe[1]);
    m_out = outPipe[0];
    m_err = errPipe[0];
    ::fcntl(m_out, F_SETFL, O_NONBLOCK);
    ::fcntl(m_err, F_SETFL, O_NONBLOCK);
}

RunningProgram::~RunningProgram() {
    if (!m_waited) {
        ::kill(static_cast<pid_t>(m_pid), SIGKILL);
        ::waitpid(static_cast<pid_t>(m_pid), nullptr, 0);
    }
    ::close(m_out);
    ::close(m_err);
}

ProgramRun RunningProgram::Wait(int timeoutSeconds, const std::function<bool()>& killWhen) {
    ProgramRun run;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeoutSeconds);
    int status = 0;
    bool killed = false;
    while (true) {
        Drain(m_out, run.out);
        Drain(m_err, run.err);
        const pid_t done = ::waitpid(static_cast<pid_t>(m_pid), &status, WNOHANG);
        if (done == m_pid) break;
        if (!killed && ((killWhen && killWhen()) || std::chrono::steady_clock::now() > deadline)) {
            ::kill(static_cast<pid_t>(m_pid), SIGKILL);
            killed = true;
        }
        // A kill is timed to a tenth of a millisecond; otherwise a millisecond's poll will do.
        std::this_thread::sleep_for(std::chrono::microseconds(killWhen && !killed ? 100 : 1000));
    }
    m_waited = true;
    Drain(m_out, run.out);
    Drain(m_err, run.err);
    if (WIFEXITED(status)) run.exitCode = WEXITSTATUS(status);
    if (WIFSIGNALED(status)) run.signal = WTERMSIG(status);
    return run;
}

#endif

ProgramRun RunStashwell(const std::vector<std::string>& args, int timeoutSeconds,
                        const ProgramEnv& env) {
    return RunningProgram(args, env).Wait(timeoutSeconds);
}

std::string OnConsole(const std::string& text) {
#ifdef _WIN32
    std::string lines;
    for (char c : text)
        lines += c == '\n' ? std::string("\r\n") : std::string(1, c);
    return lines;
#else
    return text;
#endif
}

std::string QrvProgram() {
    return QRV_BIN;
}

ProgramRun RunQrv(const std::vector<std::string>& args, int timeoutSeconds, const ProgramEnv& env) {
    return RunningProgram(args, env, QrvProgram()).Wait(timeoutSeconds);
}

ProgramRun RunStashwellUntil(const std::vector<std::string>& args,
                             const std::function<bool()>& killWhen, int timeoutSeconds,
                             const ProgramEnv& env) {
    return RunningProgram(args, env).Wait(timeoutSeconds, killWhen);
}
