#pragma once

// The daily backup that the Configuration tab's schedule controls set: the switch "Back up
// every day at" and the hour and minute boxes write the Setup keys SchedEnabled ("0" or "1"),
// Hour and Minute on every change, and the system's scheduler is made to match: the first of
// the schedulers that answers (the systemd user timer, then the user's crontab) gets the daily
// run of "<program> backup", and the others lose any they had. Where none answers, a box says
// so and how to schedule runs otherwise, and the switch goes back off. Every outcome is logged.

#include "app/IScheduler.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

struct Schedule {
    bool enabled = false;
    int hour = 21;
    int minute = 0;
};

// The schedule as Setup keeps it; a stored text that is not a value of its key (SchedEnabled
// "0" or "1", Hour 0 to 23, Minute 0 to 59) gives the default (off, 21, 0) and a "Problem: "
// line naming the key and the text.
Schedule LoadSchedule();

// The daily time last set through a scheduler (enabled false when none is set), as the state
// folder's record "daily-backup" keeps it ("21:30"): known also while the backup drive, and the
// Setup keys with it, is away. ApplySchedule writes and removes it.
Schedule ScheduleInForce();

// The program a scheduled run starts: the stashwell program in this program's folder.
std::string ScheduledProgram();
// The schedulers of this system, in the order they are tried, for `program`.
std::vector<std::unique_ptr<IScheduler>> SystemSchedulers(const std::string& program);

// What the schedule controls show.
struct ScheduleView {
    bool enabled = false; // the switch
    std::string next;     // "Next backup: ..." while a daily run is set, else ""
};

// Makes the system's schedule what `wanted` says, through `schedulers`, with the boxes and
// log lines described above; answers what the controls show after it.
ScheduleView ApplySchedule(const Schedule& wanted,
                           const std::vector<std::unique_ptr<IScheduler>>& schedulers);
// What the controls show for `stored` without changing anything: the next run as the first
// scheduler that answers tells it.
ScheduleView ShowSchedule(const Schedule& stored,
                          const std::vector<std::unique_ptr<IScheduler>>& schedulers);

// Where the schedulers of ScheduleChanged and ScheduleAtStart come from, in the current service
// context: the system's for ScheduledProgram() unless a test gives others (ScopedTestEnv gives
// none, so that no test reaches the machine's own systemd or crontab).
using SchedulerSource = std::function<std::vector<std::unique_ptr<IScheduler>>()>;
void SetSchedulerSource(SchedulerSource source);
// The schedulers of that source.
std::vector<std::unique_ptr<IScheduler>> CurrentSchedulers();

// A schedule control changed: stores `value` under `key` (SchedEnabled, Hour or Minute), then,
// when the switch was changed or is on, applies the stored schedule through the schedulers of
// the source above.
ScheduleView ScheduleChanged(const std::string& key, const std::string& value);
// The controls' view at the window's start, from what Setup keeps.
ScheduleView ScheduleAtStart();

// The box shown where no scheduler answers, for `program`.
std::string NoSchedulerMessage(const std::string& program);
