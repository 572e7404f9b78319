#pragma once

// The system's clocks and its local time.

#include <cstdint>
#include <ctime>

// Milliseconds from a fixed moment (the system's start on Windows, timeGetTime), wrapping
// around as an unsigned 32-bit number.
uint32_t MonotonicMs();
// Nanoseconds since 1970 (UTC), now.
int64_t RealTimeNs();
// The calendar time `when` in the local time zone.
std::tm LocalTime(std::time_t when);
// A time in nanoseconds since 1970 (UTC) as a local file time: 100-ns units since 1601, in
// the local time zone, as Windows reports file times.
uint64_t LocalFileTime(int64_t ns);
