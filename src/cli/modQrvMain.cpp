#include "cli/modQrvMain.h"

#include "app/modMain.h"
#include "app/modPaths.h"
#include "cli/CQrvArgs.h"
#include "cli/modQrvCheck.h"
#include "cli/modQrvExit.h"
#include "cli/modQrvHelp.h"
#include "cli/modQrvList.h"
#include "cli/modQrvRestore.h"
#include "platform/modFileSystem.h"
#include "platform/modPlatformPaths.h"
#include "support/CProcTrap.h"
#include "support/modFSCommon.h"
#include "support/modMsgBox.h"
#include "support/modServices.h"

#include <algorithm>
#include <ostream>

namespace {

// Boxes of the shared core become lines on stderr; nobody is there to answer, so the first
// button is the answer.
class CQrvMessages : public IMessageBoxService {
public:
    explicit CQrvMessages(std::ostream& err) : m_err(err) {}
    int Show(const std::string& text, int style, const std::string&) override {
        m_err << "qrv: " << text << "\n";
        return FirstButton(style);
    }

private:
    std::ostream& m_err;
};

// The boxes of the shared core go to stderr for as long as it lives.
class CScopedMessages {
public:
    explicit CScopedMessages(std::ostream& err) : m_messages(err) {
        SetMessageBoxService(&m_messages);
    }
    ~CScopedMessages() { SetMessageBoxService(nullptr); }
    CScopedMessages(const CScopedMessages&) = delete;
    CScopedMessages& operator=(const CScopedMessages&) = delete;

private:
    CQrvMessages m_messages;
};

int RunCommand(const std::vector<std::string>& words, std::ostream& out, std::ostream& err) {
    CQrvArgs args;
    if (!args.Parse(words)) {
        err << "qrv: " << args.Problem() << "; see 'qrv --help'\n";
        return kQrvUsage;
    }
    if (args.Version()) {
        out << QrvVersion() << "\n";
        return kQrvDone;
    }
    const std::string& command = args.Command();
    if (args.Help() || command == "help") {
        const std::string& topic =
            command == "help" && !args.Arguments().empty() ? args.Arguments()[0] : command;
        const auto& known = CQrvArgs::Commands();
        if (!topic.empty() && std::find(known.begin(), known.end(), topic) == known.end()) {
            err << "qrv: unknown command '" << topic << "'; see 'qrv --help'\n";
            return kQrvUsage;
        }
        out << QrvHelp(topic);
        return kQrvDone;
    }
    if (command.empty()) {
        err << QrvHelp("");
        return kQrvUsage;
    }
    if (!args.BackupPath().empty()) {
        UseBackupPath(FSFullPath(args.BackupPath()));
    } else if (const std::string settings = SettingsProblem(); !settings.empty()) {
        err << "qrv: cannot read the settings file " << settings << "\n";
        return kQrvCannotOpen;
    }

    const CScopedMessages messages(err);
    // Each command names its failures itself, on stderr; no box and no report file.
    ErrHandler().DisplayMsgOnError(false);
    ErrHandler().Destination({});
    int status = kQrvUsage;
    if (command == "runs") status = QrvRuns(args, out, err);
    if (command == "ls") status = QrvLs(args, out, err);
    if (command == "find") status = QrvFind(args, out, err);
    if (command == "diff") status = QrvDiff(args, out, err);
    if (command == "restore") status = QrvRestore(args, out, err);
    if (command == "check") status = QrvCheck(args, out, err);
    return status;
}

} // namespace

int QrvMain(const std::vector<std::string>& words, std::ostream& out, std::ostream& err) {
    try {
        return RunCommand(words, out, err);
    } catch (...) {
        // An error no command caught: the command did not do all it was asked.
        err << "qrv: stopped at an error: " << CurrentRuntimeError().Description() << "\n";
        return kQrvProblems;
    }
}
