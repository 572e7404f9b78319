#include "app/modNotify.h"

#include "app/modSetup.h"
#include "support/CServiceContext.h"
#include "support/modServices.h"

namespace {
struct NotifierChoice {
    INotifier* notifier = nullptr;
};
} // namespace

void SetNotifierService(INotifier* notifier) {
    ServicePart<NotifierChoice>().notifier = notifier;
}

RunNotice NoticeOfRunEnd(const std::string& words, const std::vector<std::string>& problems,
                         const std::string& logFile) {
    RunNotice notice;
    notice.body = words;
    if (!problems.empty() && problems.front() != words) notice.body += "\n" + problems.front();
    if (!logFile.empty()) notice.body += "\nThe log: " + logFile;
    return notice;
}

bool TellsSuccess() {
    try {
        return GetSetupValue("NotifySuccess") == "1";
    } catch (...) {
        return false;
    }
}

void TellRunEnd(int status, const std::string& words, const std::vector<std::string>& problems,
                bool toldOnSuccess) {
    if (status == 0 && !toldOnSuccess) return;
    try {
        INotifier* notifier = ServicePart<NotifierChoice>().notifier;
        const RunNotice notice = NoticeOfRunEnd(words, problems, Logger().LogFile());
        const std::string problem =
            notifier ? notifier->Send(notice.title, notice.body) : "this program cannot send any";
        if (!problem.empty()) Log(2, "No desktop notification was sent: " + problem);
    } catch (...) {
        // A notice that cannot be sent or logged changes nothing of the run.
    }
}
