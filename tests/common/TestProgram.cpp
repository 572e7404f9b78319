#include "TestProgram.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

void Drain(int fd, std::string& into) {
    char buf[4096];
    ssize_t n;
    while ((n = ::read(fd, buf, sizeof buf)) > 0)
        into.append(buf, static_cast<size_t>(n));
}

ProgramRun Run(const std::vector<std::string>& args, const std::function<bool()>& killWhen,
               int timeoutSeconds) {
    int outPipe[2], errPipe[2];
    if (::pipe2(outPipe, O_CLOEXEC) != 0 || ::pipe2(errPipe, O_CLOEXEC) != 0)
        throw std::runtime_error("pipe failed");
    const pid_t pid = ::fork();
    if (pid < 0) throw std::runtime_error("fork failed");
    if (pid == 0) {
        ::dup2(outPipe[1], 1);
        ::dup2(errPipe[1], 2);
        ::unsetenv("DISPLAY");
        ::unsetenv("WAYLAND_DISPLAY");
        // Run inside the test's folder, so that relative paths land there.
        if (const char* config = std::getenv("XDG_CONFIG_HOME")) {
            const std::string root = std::string(config).substr(0, std::string(config).rfind('/'));
            if (::chdir(root.c_str()) != 0) ::_exit(126);
        }
        std::vector<char*> argv;
        static std::string bin = STASHWELL_BIN;
        argv.push_back(bin.data());
        for (const std::string& a : args)
            argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        ::execv(bin.c_str(), argv.data());
        ::_exit(127);
    }
    ::close(outPipe[1]);
    ::close(errPipe[1]);
    ::fcntl(outPipe[0], F_SETFL, O_NONBLOCK);
    ::fcntl(errPipe[0], F_SETFL, O_NONBLOCK);

    ProgramRun run;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeoutSeconds);
    int status = 0;
    bool killed = false;
    while (true) {
        Drain(outPipe[0], run.out);
        Drain(errPipe[0], run.err);
        const pid_t done = ::waitpid(pid, &status, WNOHANG);
        if (done == pid) break;
        if (!killed && ((killWhen && killWhen()) || std::chrono::steady_clock::now() > deadline)) {
            ::kill(pid, SIGKILL);
            killed = true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    Drain(outPipe[0], run.out);
    Drain(errPipe[0], run.err);
    ::close(outPipe[0]);
    ::close(errPipe[0]);
    if (WIFEXITED(status)) run.exitCode = WEXITSTATUS(status);
    if (WIFSIGNALED(status)) run.signal = WTERMSIG(status);
    return run;
}

} // namespace

ProgramRun RunStashwell(const std::vector<std::string>& args, int timeoutSeconds) {
    return Run(args, nullptr, timeoutSeconds);
}

ProgramRun RunStashwellUntil(const std::vector<std::string>& args,
                             const std::function<bool()>& killWhen, int timeoutSeconds) {
    return Run(args, killWhen, timeoutSeconds);
}
