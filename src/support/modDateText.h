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
