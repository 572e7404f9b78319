#pragma once

// One way of having the program's backup ("<program> backup") run every day at a chosen time:
// the systemd user instance's timer (CSystemdScheduler), a line of the user's crontab
// (CCronScheduler), and on Windows a Task Scheduler task (CTaskScheduler). modSchedule tries them in
// that order and uses the first that answers.

#include <string>

class IScheduler {
public:
    virtual ~IScheduler() = default;
    // How the window and the log name it: "the systemd user timer stashwell-backup.timer".
    virtual std::string Name() const = 0;
    // Whether it answers on this system for this user now.
    virtual bool Available() = 0;
    // Sets the daily run at hour:minute, replacing an earlier one of its own; "" when done, else
    // the problem in words.
    virtual std::string Install(int hour, int minute) = 0;
    // Takes its daily run away, if it has one; "" when done (also when there was none).
    virtual std::string Remove() = 0;
    // The next run as it knows it, in words ("Thu 2026-11-26 21:30:00 CET"); "" when unknown.
    virtual std::string NextRun() = 0;
    // While a run is owed (the backup drive was away at the daily time), the same run is tried
    // again every kRetryMinutes, also after the computer restarted, until StopRetry; "" when
    // done, else the problem in words.
    virtual std::string StartRetry() = 0;
    // Ends those tries, if there are any; "" when done (also when there were none).
    virtual std::string StopRetry() = 0;

    static constexpr int kRetryMinutes = 5;
};
