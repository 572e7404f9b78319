#include "app/CRunOutcome.h"

#include "app/modExitStatus.h"
#include "platform/modFileStatus.h"
#include "support/modFSCommon.h"
#include "support/modNumText.h"

#include <cerrno>

std::string SourceProblem(const std::string& source) {
    const PathStatus status = StatusOf(source);
    if (!status.Exists())
        return status.error == ENOENT ? "it does not exist" : FSPlainCause(status.error);
    if (status.kind != PathKind::kFolder) return "it is not a folder";
    return "it cannot be opened";
}

void CRunOutcome::Clear() {
    m_lines.clear();
    m_lost = 0;
}

void CRunOutcome::SourceSkipped(const std::string& source, const std::string& cause) {
    m_lines.push_back("Source " + source + " was not backed up: " + cause);
}

void CRunOutcome::LimitInvalid(const std::string& text) {
    m_lines.push_back("The number of backups to keep, \"" + text +
                      "\", is not a whole number from 1 to 100; the run stopped there");
}

void CRunOutcome::Stopped(const std::string& error) {
    m_lines.push_back("The run stopped at an error: " + error);
}

void CRunOutcome::EndFailed(const std::string& error) {
    m_lines.push_back("Every run was saved, but the end of the backup failed: " + error);
}

void CRunOutcome::Add(const std::string& source, const SourceProblems& problems) {
    for (std::string& line : ProblemLines(source, problems, kListedPerKind))
        m_lines.push_back(std::move(line));
    if (!problems.lost.empty()) ++m_lost;
}

CRunOutcome::End CRunOutcome::Ended() const {
    if (m_lost > 0) return End::kLost;
    return m_lines.empty() ? End::kComplete : End::kProblems;
}

int CRunOutcome::ExitStatus() const {
    switch (Ended()) {
    case End::kLost:
        return kExitRunLost;
    case End::kProblems:
        return kExitProblems;
    case End::kComplete:
        break;
    }
    return kExitDone;
}

std::string CRunOutcome::Verdict(const std::string& logFile) const {
    switch (Ended()) {
    case End::kLost:
        return "Backup failed: " + NumText(m_lost) + (m_lost == 1 ? " run was" : " runs were") +
               " lost. The log " + logFile + " has the details.";
    case End::kProblems:
        return "Backup completed with problems. The log " + logFile + " has the details.";
    case End::kComplete:
        break;
    }
    return {};
}
