#pragma once

// The daily backup that found the backup drive away stays owed until it is made: while the daily
// schedule is on, an unattended backup that cannot run because the drive is not connected has
// the scheduler try it again every few minutes (IScheduler::StartRetry), so that it is made soon
// after the drive is back rather than a day later. The user is told once per missed daily run,
// not once per try. A backup that runs, from the window or unattended, makes the owed run and
// stops the tries; turning the schedule off forgets it. The state folder's record "owed-backup"
// keeps which daily run is owed and whether its tries were started.

#include <ctime>

struct OwedRun {
    std::time_t slot = 0;  // the daily time whose run is owed; 0 when none is
    bool retrying = false; // its tries were started
};

// The record as it stands; slot 0 when there is none (or it cannot be read).
OwedRun ReadOwedRun();

// The daily time at hour:minute that a run at `now` belongs to: the latest at or before `now`,
// local time.
std::time_t DailySlot(int hour, int minute, std::time_t now);

// An unattended backup at `now` found the backup drive away. With the daily schedule on, its
// run is owed and tried again; the answer is whether the user is to be told, which is once for
// each daily time missed. Without a daily time in force (ScheduleInForce) nothing is owed and the
// answer is true.
bool OweRun(std::time_t now);

// A backup ran: the owed run, if any, is made; its tries stop and the record goes.
void PayOwedRun();

// The daily schedule was turned off: the owed run, if any, is forgotten in the same way.
void ForgetOwedRun();
