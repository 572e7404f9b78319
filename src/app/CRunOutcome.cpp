#include "app/CRunOutcome.h"

#include "app/modExitStatus.h"
#include "platform/modFileStatus.h"
#include "support/modFSCommon.h"
#include "support/modNumText.h"

#include <cerrno>

namespace {
std::string Files(size_t count) {
    return NumText(static_cast<double>(count)) + (count == 1 ? " file" : " files");
}
} // namespace

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

void CRunOutcome::AddList(const std::vector<std::string>& items, const std::string& lead,
                          const std::string& source, const std::string& counted) {
    for (size_t i = 0; i < items.size() && i < kListedPerKind; ++i)
        m_lines.push_back(lead + items[i]);
    if (items.size() > kListedPerKind)
        m_lines.push_back("... and " + NumText(static_cast<double>(items.size() - kListedPerKind)) +
                          " more of " + source + " that " + counted);
}

void CRunOutcome::Add(const std::string& source, const SourceProblems& problems) {
    AddList(problems.unreadableFolders, "Could not read the folder ", source, "could not be read");
    AddList(problems.unreadableFiles, "Could not read ", source, "could not be read");
    if (!problems.unreadableFiles.empty())
        m_lines.push_back(Files(problems.unreadableFiles.size()) + " of " + source +
                          " could not be read");
    AddList(problems.notStored, "Not backed up: ", source, "were not backed up");
    AddList(problems.recordedNotStored, "Recorded but not stored: ", source,
            "were recorded but not stored");
    if (!problems.lost.empty()) {
        ++m_lost;
        m_lines.push_back("The run of " + source + " was lost: " + problems.lost);
    }
    if (!problems.afterCommit.empty())
        m_lines.push_back("The run of " + source +
                          " was saved, but a step after saving it failed: " + problems.afterCommit);
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
