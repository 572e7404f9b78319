#include "support/modShell.h"

#include "support/modText.h"

#include <ctime>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// How long an opener is given to say that it found no program for a document: xdg-open
// answers at once when it has none, and a desktop's opener hands the document over at once.
constexpr int kOpenerAnswerMs = 1500;

// Runs `file` with `argument` detached from this process (in a process of its own, so nothing
// is left to reap); true when it could be executed. With `answer`, the program is an opener:
// one that ends with a failure status within kOpenerAnswerMs found no program for the
// document, and that is false too; one still running then counts as started.
bool SpawnDetached(const char* file, const std::string& argument, bool answer) {
    int report[2];
    if (::pipe2(report, O_CLOEXEC) != 0) return false;
    const pid_t child = ::fork();
    if (child < 0) return false;
    if (child == 0) {
        ::setsid();
        const pid_t program = ::fork();
        if (program != 0) {
            const char failed = 1;
            if (program < 0) ::write(report[1], &failed, 1);
            int status = 0;
            for (int waited = 0; program > 0 && answer && waited < kOpenerAnswerMs; waited += 20) {
                if (::waitpid(program, &status, WNOHANG) == program) {
                    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
                        ::write(report[1], &failed, 1);
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
        if (argument.empty())
            ::execlp(file, file, static_cast<char*>(nullptr));
        else
            ::execlp(file, file, argument.c_str(), static_cast<char*>(nullptr));
        const char failed = 1; // exec failed: tell the parent through the pipe
        ::write(report[1], &failed, 1);
        ::_exit(127);
    }
    ::close(report[1]);
    ::waitpid(child, nullptr, 0);
    char failed = 0;
    // Closed by a successful exec and by the process that waited on the opener.
    const bool started = ::read(report[0], &failed, 1) == 0;
    ::close(report[0]);
    return started;
}

class CDesktopOpener : public IDesktopService {
public:
    bool Open(const std::string& target) override {
        return SpawnDetached("xdg-open", target, true);
    }
    bool Start(const std::string& program) override {
        return SpawnDetached(program.c_str(), "", false);
    }
};

IDesktopService* g_service = nullptr;

} // namespace

void SetDesktopService(IDesktopService* service) {
    g_service = service;
}

IDesktopService& DesktopService() {
    static CDesktopOpener opener;
    return g_service ? *g_service : opener;
}

bool ShellOpenFile(const std::string& path) {
    return DesktopService().Open(path);
}

std::string WebAddress(const std::string& address) {
    return LowerAscii(address.substr(0, 4)) == "http" ? address : "http://" + address;
}

bool ShellOpenUrl(const std::string& address) {
    return DesktopService().Open(WebAddress(address));
}
