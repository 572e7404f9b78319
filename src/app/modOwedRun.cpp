#include "app/modOwedRun.h"

#include "app/modRetention.h"
#include "app/modSchedule.h"
#include "platform/modFileStatus.h"
#include "platform/modFileSystem.h"
#include "platform/modPlatformPaths.h"
#include "support/modDateText.h"
#include "support/modFSCommon.h"
#include "support/modServices.h"

#include <cstdlib>
#include <sstream>
#include <string>

namespace {

constexpr const char* kRecordName = "owed-backup";

// Logs `text` at `level`; a log that cannot be written costs the run nothing.
void Say(int level, const std::string& text) {
    try {
        Log(level, text);
    } catch (...) {
        // the run's own outcome stands
    }
}

void Write(const OwedRun& owed) {
    const std::string text = "slot=" + std::to_string(static_cast<long long>(owed.slot)) +
                             "\nretrying=" + (owed.retrying ? "1" : "0") + "\n";
    if (const std::string problem = FSWriteWhole(StateFile(kRecordName), text); !problem.empty())
        Say(2,
            std::string(kProblemMark) + "The record of the owed backup was not kept: " + problem);
}

// Stops the tries through every scheduler that answers and removes the record; `why` ends the
// log line.
void Settle(const std::string& why) {
    const OwedRun owed = ReadOwedRun();
    const std::string record = StateFile(kRecordName);
    if (owed.slot == 0 && !StatusOf(record).Exists()) return;
    // A damaged record (no time in it) may have had its tries started too.
    if (owed.retrying || owed.slot == 0) {
        for (const auto& scheduler : CurrentSchedulers()) {
            if (!scheduler->Available()) continue;
            if (const std::string problem = scheduler->StopRetry(); !problem.empty())
                Say(1, std::string(kProblemMark) +
                           "The tries of the owed backup could not be stopped in " +
                           scheduler->Name() + ": " + problem);
        }
    }
    if (RemoveFile(record) != 0 && StatusOf(record).Exists())
        Say(1, std::string(kProblemMark) + "The record of the owed backup " + record +
                   " could not be removed");
    Say(1, "The backup owed" + (owed.slot != 0 ? " since " + DateTimeText(owed.slot) : "") + why);
}

} // namespace

OwedRun ReadOwedRun() {
    OwedRun owed;
    std::string text;
    if (!FSReadWhole(StateFile(kRecordName), text)) return owed;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("slot=", 0) == 0) {
            char* end = nullptr;
            const long long value = std::strtoll(line.c_str() + 5, &end, 10);
            if (end && *end == '\0' && value > 0) owed.slot = static_cast<std::time_t>(value);
        }
        if (line == "retrying=1") owed.retrying = true;
    }
    if (owed.slot == 0) owed.retrying = false;
    return owed;
}

std::time_t DailySlot(int hour, int minute, std::time_t now) {
    const std::time_t today = TimeOfDay(now, 0, hour, minute);
    return today <= now ? today : TimeOfDay(now, -1, hour, minute);
}

bool OweRun(std::time_t now) {
    const Schedule schedule = ScheduleInForce();
    if (!schedule.enabled) {
        ForgetOwedRun();
        return true;
    }
    OwedRun owed = ReadOwedRun();
    const std::time_t slot = DailySlot(schedule.hour, schedule.minute, now);
    const bool tell = owed.slot != slot;
    if (tell) Say(1, "The daily backup of " + DateTimeText(slot) + " is owed");
    owed.slot = slot;
    if (!owed.retrying) {
        for (const auto& scheduler : CurrentSchedulers()) {
            if (!scheduler->Available()) continue;
            if (const std::string problem = scheduler->StartRetry(); !problem.empty()) {
                Say(1, std::string(kProblemMark) +
                           "The owed backup cannot be tried again through " + scheduler->Name() +
                           ": " + problem);
            } else {
                owed.retrying = true;
                Say(1, "The owed backup is tried again every " +
                           std::to_string(IScheduler::kRetryMinutes) + " minutes through " +
                           scheduler->Name() + " until the backup drive is back");
            }
            break;
        }
    }
    Write(owed);
    return tell;
}

void PayOwedRun() {
    Settle(" was made; its tries are stopped");
}

void ForgetOwedRun() {
    Settle(" is forgotten with the daily schedule");
}
