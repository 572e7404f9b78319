#include "platform/modProcess.h"

#include <ctime>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

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
