#pragma once

// The daily run as a task of the Windows Task Scheduler, made, changed and deleted with
// schtasks.exe: the task "Stashwell\Daily backup" runs "<program>" backup every day at the
// chosen time, as the user, only while the user is logged on, and starts as soon as it can after
// a time missed while the computer was off (StartWhenAvailable). schtasks sets that only from a
// task definition in XML, which is written (UTF-16, as schtasks reads it) into the state folder
// and kept there as the record of the time set. While a run is owed, the task "Stashwell\Backup
// retry" runs the same backup every kRetryMinutes from now and from each logon.

#include "app/IScheduler.h"

#include <string>

class CTaskScheduler : public IScheduler {
public:
    // `tool`: the program that speaks to the Task Scheduler (schtasks.exe; tests give another).
    explicit CTaskScheduler(std::string program, std::string tool = "schtasks.exe");

    std::string Name() const override;
    bool Available() override;
    std::string Install(int hour, int minute) override;
    std::string Remove() override;
    std::string NextRun() override;
    std::string StartRetry() override;
    std::string StopRetry() override;

    // The task definitions: the daily run at hour:minute, and the tries of an owed run from
    // `start` ("2026-11-26T21:30:00"), as XML text.
    std::string DailyTask(int hour, int minute) const;
    std::string RetryTask(const std::string& start) const;

    static constexpr const char* kTaskName = "Stashwell\\Daily backup";
    static constexpr const char* kRetryTaskName = "Stashwell\\Backup retry";
    // The definitions written for schtasks, in the state folder.
    static constexpr const char* kTaskFile = "daily-backup-task.xml";
    static constexpr const char* kRetryTaskFile = "backup-retry-task.xml";

private:
    // Writes `xml` as `file` in the state folder and has the tool make the task `name` from it,
    // replacing one of that name; "" when done, else the problem in words.
    std::string Create(const std::string& name, const std::string& file, const std::string& xml);
    // Has the tool delete the task `name` when its definition was written; "" when done.
    std::string Delete(const std::string& name, const std::string& file);

    std::string m_program;
    std::string m_tool;
};
