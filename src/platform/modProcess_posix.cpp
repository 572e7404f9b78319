#include "platform/modProcess.h"

#include "platform/modClock.h"

#include <cerrno>
#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

// The program runs as a grandchild in a session of its own, so nothing is left to reap; the
// child between them waits on it when an answer is wanted. A pipe closed on exec tells whether
// it could be executed: one byte written to it is a failure (exec failed, or the program
// answered with a failure status). Everything the children need is made before the fork.
bool StartDetached(const std::string& program, const std::vector<std::string>& arguments,
                   int answerMs) {
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(program.c_str()));
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    int report[2];
    if (::pipe2(report, O_CLOEXEC) != 0) return false;
    const pid_t child = ::fork();
    if (child < 0) {
        ::close(report[0]);
        ::close(report[1]);
        return false;
    }
    if (child == 0) {
        ::setsid();
        const char failed = 1;
        const pid_t started = ::fork();
        if (started != 0) {
            if (started < 0) (void)!::write(report[1], &failed, 1);
            int status = 0;
            for (int waited = 0; started > 0 && waited < answerMs; waited += 20) {
                if (::waitpid(started, &status, WNOHANG) == started) {
                    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
                        (void)!::write(report[1], &failed, 1);
                    break;
                }
                const timespec pause{0, 20 * 1000 * 1000};
                ::nanosleep(&pause, nullptr);
            }
            ::_exit(0);
        }
        const int null = ::open("/dev/null", O_RDWR);
        ::dup2(null, 0);
        ::dup2(null, 1);
        ::dup2(null, 2);
        ::execvp(argv[0], argv.data());
        (void)!::write(report[1], &failed, 1);
        ::_exit(127);
    }
    ::close(report[1]);
    ::waitpid(child, nullptr, 0);
    char failed = 0;
    const bool started = ::read(report[0], &failed, 1) == 0;
    ::close(report[0]);
    return started;
}

namespace {

// Both ends of a pipe, closed when it goes.
struct Pipe {
    int ends[2] = {-1, -1};
    bool Open() { return ::pipe2(ends, O_CLOEXEC) == 0; }
    void Close(int which) {
        if (ends[which] >= 0) ::close(ends[which]);
        ends[which] = -1;
    }
    ~Pipe() {
        Close(0);
        Close(1);
    }
};

} // namespace

// The program is spawned with three pipes; one poll loop writes its input and reads its output
// and errors as they come, so that no pipe fills while another is waited on, until both output
// pipes are closed and the program has ended, or the time is up and it is killed.
ProgramAnswer RunAndWait(const std::string& program, const std::vector<std::string>& arguments,
                         const std::string& input, int timeoutMs) {
    ProgramAnswer answer;
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(program.c_str()));
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    Pipe in, out, err;
    if (!in.Open() || !out.Open() || !err.Open()) return answer;
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, in.ends[0], 0);
    ::posix_spawn_file_actions_adddup2(&actions, out.ends[1], 1);
    ::posix_spawn_file_actions_adddup2(&actions, err.ends[1], 2);
    pid_t pid = 0;
    const int spawned = ::posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) return answer;
    answer.started = true;
    in.Close(0);
    out.Close(1);
    err.Close(1);
    if (input.empty()) in.Close(1);
    // A program that ends without reading all of its input must not end this one: SIGPIPE is
    // blocked in this thread while it writes, and one that came is taken away again.
    ::fcntl(in.ends[1], F_SETFL, O_NONBLOCK);
    sigset_t pipeSignal;
    sigset_t previous;
    ::sigemptyset(&pipeSignal);
    ::sigaddset(&pipeSignal, SIGPIPE);
    ::pthread_sigmask(SIG_BLOCK, &pipeSignal, &previous);
    size_t written = 0;
    const uint32_t start = MonotonicMs();
    const auto left = [&] {
        return static_cast<int64_t>(timeoutMs) - static_cast<int64_t>(MonotonicMs() - start);
    };
    char buffer[4096];
    while ((out.ends[0] >= 0 || err.ends[0] >= 0) && left() > 0) {
        pollfd fds[3] = {
            {out.ends[0], POLLIN, 0}, {err.ends[0], POLLIN, 0}, {in.ends[1], POLLOUT, 0}};
        if (::poll(fds, 3, static_cast<int>(left())) < 0 && errno != EINTR) break;
        if (fds[2].revents & (POLLOUT | POLLERR | POLLHUP)) {
            const ssize_t n = ::write(in.ends[1], input.data() + written, input.size() - written);
            if (n > 0) written += static_cast<size_t>(n);
            if (n < 0 && errno != EAGAIN && errno != EINTR) written = input.size();
            if (written == input.size()) in.Close(1);
        }
        for (int i = 0; i < 2; ++i) {
            if (!(fds[i].revents & (POLLIN | POLLERR | POLLHUP))) continue;
            Pipe& pipe = i == 0 ? out : err;
            const ssize_t n = ::read(pipe.ends[0], buffer, sizeof buffer);
            if (n > 0)
                (i == 0 ? answer.output : answer.errors).append(buffer, static_cast<size_t>(n));
            else if (n == 0 || (errno != EAGAIN && errno != EINTR))
                pipe.Close(0);
        }
    }
    in.Close(1);
    const timespec none{0, 0};
    if (::sigismember(&previous, SIGPIPE) == 0)
        while (::sigtimedwait(&pipeSignal, nullptr, &none) == SIGPIPE) {
        }
    ::pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    // Its output closed, it may still run (or have left a child holding the pipes): it is
    // waited for until the time is up, then killed.
    int status = 0;
    for (;;) {
        const pid_t ended = ::waitpid(pid, &status, WNOHANG);
        if (ended == pid) break;
        if (ended < 0 && errno != EINTR) return answer;
        if (left() <= 0) {
            ::kill(pid, SIGKILL);
            answer.timedOut = true;
            while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
            }
            return answer;
        }
        const timespec pause{0, 5 * 1000 * 1000};
        ::nanosleep(&pause, nullptr);
    }
    if (WIFEXITED(status)) answer.exitCode = WEXITSTATUS(status);
    return answer;
}
