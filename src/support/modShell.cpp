#include "support/modShell.h"

#include "support/modText.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// Runs `file` with `argument` detached from this process (a grandchild, so nothing is left to
// reap); true when it could be executed.
bool SpawnDetached(const char* file, const std::string& argument) {
    int report[2];
    if (::pipe2(report, O_CLOEXEC) != 0) return false;
    const pid_t child = ::fork();
    if (child < 0) return false;
    if (child == 0) {
        ::setsid();
        if (::fork() != 0) ::_exit(0);
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
    const bool started = ::read(report[0], &failed, 1) == 0; // closed by a successful exec
    ::close(report[0]);
    return started;
}

class CDesktopOpener : public IDesktopService {
public:
    bool Open(const std::string& target) override { return SpawnDetached("xdg-open", target); }
    bool Start(const std::string& program) override { return SpawnDetached(program.c_str(), ""); }
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
