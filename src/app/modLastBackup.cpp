#include "app/modLastBackup.h"

#include "app/CRunOutcome.h"
#include "platform/modPlatformPaths.h"
#include "support/modDateText.h"
#include "support/modFSCommon.h"
#include "support/modServices.h"

#include <cstdlib>
#include <sstream>

namespace {

constexpr const char* kRecordName = "last-backup";

const char* OutcomeWord(LastBackup::Outcome outcome) {
    switch (outcome) {
    case LastBackup::Outcome::kCompleted:
        return "completed";
    case LastBackup::Outcome::kProblems:
        return "problems";
    case LastBackup::Outcome::kFailed:
        return "failed";
    case LastBackup::Outcome::kNone:
        break;
    }
    return "none";
}

std::time_t Seconds(const std::string& text) {
    char* end = nullptr;
    const long long value = std::strtoll(text.c_str(), &end, 10);
    return end && *end == '\0' && value > 0 ? static_cast<std::time_t>(value) : 0;
}

// Writes the record; a record that cannot be written is logged at level 2 and costs nothing
// else: the run's own outcome stands.
void Write(const LastBackup& last) {
    std::string text = "ended=" + std::to_string(static_cast<long long>(last.ended)) + "\n" +
                       "outcome=" + OutcomeWord(last.outcome) + "\n" +
                       "problems=" + std::to_string(last.problems) + "\n";
    std::string reason = last.reason;
    for (char& c : reason)
        if (c == '\n' || c == '\r') c = ' ';
    text += "reason=" + reason + "\n" +
            "completed=" + std::to_string(static_cast<long long>(last.lastCompleted)) + "\n";
    const std::string path = StateFile(kRecordName);
    if (const std::string problem = FSWriteWhole(path, text); !problem.empty()) {
        try {
            Log(2, "The record of the last backup was not kept: " + problem);
        } catch (...) {
            // a log that cannot be written says nothing either
        }
    }
}

} // namespace

LastBackup ReadLastBackup() {
    LastBackup last;
    std::string text;
    if (!FSReadWhole(StateFile(kRecordName), text)) return last;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const size_t equals = line.find('=');
        if (equals == std::string::npos) continue;
        const std::string key = line.substr(0, equals);
        const std::string value = line.substr(equals + 1);
        if (key == "ended") last.ended = Seconds(value);
        if (key == "outcome") {
            last.outcome = value == "completed"  ? LastBackup::Outcome::kCompleted
                           : value == "problems" ? LastBackup::Outcome::kProblems
                           : value == "failed"   ? LastBackup::Outcome::kFailed
                                                 : LastBackup::Outcome::kNone;
        }
        if (key == "problems") last.problems = std::atoi(value.c_str());
        if (key == "reason") last.reason = value;
        if (key == "completed") last.lastCompleted = Seconds(value);
    }
    if (last.ended == 0) last.outcome = LastBackup::Outcome::kNone;
    return last;
}

void RecordRunEnd(const CRunOutcome& outcome, std::time_t now) {
    LastBackup last = ReadLastBackup();
    last.ended = now;
    last.reason.clear();
    last.problems = static_cast<int>(outcome.Lines().size());
    switch (outcome.Ended()) {
    case CRunOutcome::End::kComplete:
        last.outcome = LastBackup::Outcome::kCompleted;
        last.lastCompleted = now;
        break;
    case CRunOutcome::End::kProblems:
        last.outcome = LastBackup::Outcome::kProblems;
        last.lastCompleted = now;
        break;
    case CRunOutcome::End::kLost:
        // The line that tells which run was lost, else the first.
        last.outcome = LastBackup::Outcome::kFailed;
        last.reason = "a run was lost";
        for (const std::string& line : outcome.Lines())
            if (line.find(" was lost: ") != std::string::npos) {
                last.reason = line;
                break;
            }
        if (last.reason == "a run was lost" && !outcome.Lines().empty())
            last.reason = outcome.Lines()[0];
        break;
    }
    Write(last);
}

void RecordRunFailed(const std::string& reason, std::time_t now) {
    LastBackup last = ReadLastBackup();
    last.ended = now;
    last.outcome = LastBackup::Outcome::kFailed;
    last.problems = 0;
    last.reason = reason;
    Write(last);
}

LastBackupLine LastBackupText(const LastBackup& last, std::time_t now) {
    LastBackupLine line;
    if (last.outcome == LastBackup::Outcome::kNone) {
        line.text = "Last backup: none yet";
        line.warning = true;
        return line;
    }
    line.text = "Last backup: " + DateTimeText(last.ended) + ", ";
    switch (last.outcome) {
    case LastBackup::Outcome::kCompleted:
        line.text += "completed";
        break;
    case LastBackup::Outcome::kProblems:
        line.text += "completed with " + std::to_string(last.problems) +
                     (last.problems == 1 ? " problem" : " problems");
        break;
    default:
        line.text += "failed: " + last.reason;
        break;
    }
    if (last.lastCompleted == 0) {
        line.text += ". No backup has completed yet";
        line.warning = true;
    } else if (now - last.lastCompleted > kBackupOverdueDays * 86400) {
        line.text += ". No backup for " +
                     std::to_string(static_cast<long long>((now - last.lastCompleted) / 86400)) +
                     " days";
        line.warning = true;
    }
    return line;
}
