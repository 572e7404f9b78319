#include "support/modShell.h"

#include "platform/modProcess.h"
#include "support/CServiceContext.h"
#include "support/modText.h"

namespace {

// How long an opener is given to say that it found no program for a document: xdg-open
// answers at once when it has none, and a desktop's opener hands the document over at once.
constexpr int kOpenerAnswerMs = 1500;

class CDesktopOpener : public IDesktopService {
public:
    bool Open(const std::string& target) override {
        return StartDetached("xdg-open", {target}, kOpenerAnswerMs);
    }
    bool Start(const std::string& program) override { return StartDetached(program, {}); }
};

struct DesktopChoice {
    IDesktopService* service = nullptr;
};

} // namespace

void SetDesktopService(IDesktopService* service) {
    ServicePart<DesktopChoice>().service = service;
}

IDesktopService& DesktopService() {
    static CDesktopOpener opener;
    IDesktopService* chosen = ServicePart<DesktopChoice>().service;
    return chosen ? *chosen : opener;
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
