#pragma once

// Date-times as text. Every date written by the program (run dates, log lines, error reports)
// uses one fixed form, dd/MM/yyyy HH:mm:ss in local time, so that the texts that other parts
// read back (the log purge compares run dates with log names) always agree.

#include <ctime>
#include <string>

std::string DateTimeText(std::time_t when);
std::string NowText();
// yyyymmdd of the local date, as daily log names carry it.
std::string DateStamp(std::time_t when);
// hour:minute:00 local time on the day of `when` moved by `days` (back when negative).
std::time_t TimeOfDay(std::time_t when, int days, int hour, int minute);
// The next moment after now at hour:minute, local time: today's, or tomorrow's once it passed.
std::time_t NextTimeOfDay(int hour, int minute);
// A date-time of that fixed form as ISO 8601 with the local offset it had then, for machines:
// "26/11/2026 07:48:57" -> "2026-11-26T07:48:57+01:00". A text of another form comes back as
// it is.
std::string IsoDateText(const std::string& dateText);
