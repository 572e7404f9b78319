#include "app/modSchedule.h"

#include "app/CCronScheduler.h"
#include "app/CSystemdScheduler.h"
#include "app/CTaskScheduler.h"
#include "app/modMainWindow.h"
#include "app/modOwedRun.h"
#include "app/modRetention.h"
#include "app/modSetup.h"
#include "platform/modFileStatus.h"
#include "platform/modFileSystem.h"
#include "platform/modPlatformKind.h"
#include "platform/modPlatformPaths.h"
#include "support/CServiceContext.h"
#include "support/modFSCommon.h"
#include "support/modMsgBox.h"
#include "support/modServices.h"

#include <cstdio>
#include <utility>

namespace {

// The stored text of `key` as a whole number from `low` to `high`; `fallback` for an empty text
// and, with a problem line, for any other text.
int StoredNumber(const std::string& key, int low, int high, int fallback) {
    const std::string stored = GetSetupValue(key);
    if (stored.empty()) return fallback;
    int value = 0;
    size_t digits = 0;
    for (; digits < stored.size() && digits < 3 && stored[digits] >= '0' && stored[digits] <= '9';
         ++digits)
        value = value * 10 + (stored[digits] - '0');
    if (digits > 0 && digits == stored.size() && value >= low && value <= high) return value;
    Log(1, std::string(kProblemMark) + "The option " + key + " holds \"" + stored +
               "\", which is not a number from " + std::to_string(low) + " to " +
               std::to_string(high) + "; " + std::to_string(fallback) + " is shown");
    return fallback;
}

std::string Time(int hour, int minute) {
    char text[8];
    std::snprintf(text, sizeof text, "%02d:%02d", hour, minute);
    return text;
}

std::string NextText(IScheduler& scheduler, const Schedule& schedule) {
    const std::string next = scheduler.NextRun();
    return "Next backup: " +
           (next.empty() ? "every day at " + Time(schedule.hour, schedule.minute) : next);
}

// Takes the daily run away from every scheduler that answers but `except`.
void RemoveFromOthers(const std::vector<std::unique_ptr<IScheduler>>& schedulers,
                      const IScheduler* except) {
    for (const auto& scheduler : schedulers) {
        if (scheduler.get() == except || !scheduler->Available()) continue;
        if (const std::string problem = scheduler->Remove(); !problem.empty())
            Log(1, std::string(kProblemMark) + "The daily backup could not be taken away from " +
                       scheduler->Name() + ": " + problem);
    }
}

constexpr const char* kInForceName = "daily-backup";

// Keeps `schedule` as the one in force (none when it is off); a record that cannot be kept is a
// problem in the log and costs nothing else.
void KeepInForce(const Schedule& schedule) {
    const std::string record = StateFile(kInForceName);
    if (!schedule.enabled) {
        if (RemoveFile(record) != 0 && StatusOf(record).Exists())
            Log(1, std::string(kProblemMark) + "The record of the daily backup " + record +
                       " could not be removed");
        return;
    }
    if (const std::string problem =
            FSWriteWhole(record, Time(schedule.hour, schedule.minute) + "\n");
        !problem.empty())
        Log(1,
            std::string(kProblemMark) + "The record of the daily backup was not kept: " + problem);
}

ScheduleView SwitchedBackOff(const std::string& message) {
    KeepInForce({});
    Log(1, std::string(kProblemMark) + message);
    MsgBox(message, mb::kExclamation, kWindowTitle);
    SetSetupValue("SchedEnabled", "0");
    return {};
}

struct SchedulerChoice {
    SchedulerSource source;
};

} // namespace

std::vector<std::unique_ptr<IScheduler>> CurrentSchedulers() {
    const SchedulerSource& source = ServicePart<SchedulerChoice>().source;
    return source ? source() : SystemSchedulers(ScheduledProgram());
}

void SetSchedulerSource(SchedulerSource source) {
    ServicePart<SchedulerChoice>().source = std::move(source);
}

Schedule LoadSchedule() {
    Schedule schedule;
    schedule.enabled = StoredNumber("SchedEnabled", 0, 1, 0) == 1;
    schedule.hour = StoredNumber("Hour", 0, 23, schedule.hour);
    schedule.minute = StoredNumber("Minute", 0, 59, schedule.minute);
    return schedule;
}

Schedule ScheduleInForce() {
    Schedule schedule;
    std::string text;
    int hour = -1;
    int minute = -1;
    char end = 0;
    if (FSReadWhole(StateFile(kInForceName), text) &&
        std::sscanf(text.c_str(), "%2d:%2d%c", &hour, &minute, &end) == 3 && end == '\n' &&
        hour >= 0 && hour <= 23 && minute >= 0 && minute <= 59)
        schedule = {true, hour, minute};
    return schedule;
}

std::string ScheduledProgram() {
    return FSJoinPath(ProgramFolder(), kWindowsBuild ? "stashwell.exe" : "stashwell");
}

std::vector<std::unique_ptr<IScheduler>> SystemSchedulers(const std::string& program) {
    std::vector<std::unique_ptr<IScheduler>> schedulers;
    if (kWindowsBuild) {
        schedulers.push_back(std::make_unique<CTaskScheduler>(program));
    } else {
        schedulers.push_back(std::make_unique<CSystemdScheduler>(program));
        schedulers.push_back(std::make_unique<CCronScheduler>(program));
    }
    return schedulers;
}

std::string NoSchedulerMessage(const std::string& program) {
    return "This system cannot schedule backups: no systemd user instance answers and there is "
           "no crontab. To back up every day, have a scheduler of your choice run \"" +
           program + " backup\".";
}

ScheduleView ApplySchedule(const Schedule& wanted,
                           const std::vector<std::unique_ptr<IScheduler>>& schedulers) {
    if (!wanted.enabled) {
        RemoveFromOthers(schedulers, nullptr);
        KeepInForce({});
        ForgetOwedRun();
        Log(1, "The daily backup is turned off");
        return {};
    }
    const std::string time = Time(wanted.hour, wanted.minute);
    for (const auto& scheduler : schedulers) {
        if (!scheduler->Available()) continue;
        if (const std::string problem = scheduler->Install(wanted.hour, wanted.minute);
            !problem.empty())
            return SwitchedBackOff("The daily backup at " + time + " could not be set through " +
                                   scheduler->Name() + ": " + problem);
        RemoveFromOthers(schedulers, scheduler.get());
        KeepInForce(wanted);
        ScheduleView view{true, NextText(*scheduler, wanted)};
        Log(1, "The daily backup at " + time + " is set through " + scheduler->Name() + ". " +
                   view.next);
        return view;
    }
    return SwitchedBackOff(NoSchedulerMessage(ScheduledProgram()));
}

ScheduleView ShowSchedule(const Schedule& stored,
                          const std::vector<std::unique_ptr<IScheduler>>& schedulers) {
    if (!stored.enabled) return {};
    for (const auto& scheduler : schedulers)
        if (scheduler->Available()) return {true, NextText(*scheduler, stored)};
    return {true, ""};
}

ScheduleView ScheduleChanged(const std::string& key, const std::string& value) {
    StoreOption(key, value);
    const Schedule schedule = LoadSchedule();
    if (key != "SchedEnabled" && !schedule.enabled) return {};
    return ApplySchedule(schedule, CurrentSchedulers());
}

ScheduleView ScheduleAtStart() {
    const Schedule stored = LoadSchedule();
    // A schedule set before its record was kept.
    if (stored.enabled && !ScheduleInForce().enabled) KeepInForce(stored);
    return ShowSchedule(stored, CurrentSchedulers());
}
