#include "platform/modClock.h"

#include "platform/modWin32.h"

#include <mmsystem.h>
#include <time.h>

// timeGetTime counts milliseconds from the system's start and wraps around after 49.7 days, as
// the program's timer arithmetic expects. File times are 100-ns units since 1601 (UTC).

namespace {
constexpr int64_t kUnitsFrom1601To1970 = 116444736000000000LL;

uint64_t Units(const FILETIME& time) {
    return (uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime;
}

FILETIME FileTimeOf(uint64_t units) {
    return {static_cast<DWORD>(units), static_cast<DWORD>(units >> 32)};
}

// The local time of `when` through Windows' own calendar, for times the C runtime refuses
// (before 1970, after 3000).
std::tm LocalTimeOfWindows(std::time_t when) {
    std::tm local{};
    const int64_t units = static_cast<int64_t>(when) * 10000000 + kUnitsFrom1601To1970;
    if (units < 0) return local;
    const FILETIME utc = FileTimeOf(static_cast<uint64_t>(units));
    SYSTEMTIME universal{}, here{};
    if (!::FileTimeToSystemTime(&utc, &universal) ||
        !::SystemTimeToTzSpecificLocalTime(nullptr, &universal, &here))
        return local;
    local.tm_year = here.wYear - 1900;
    local.tm_mon = here.wMonth - 1;
    local.tm_mday = here.wDay;
    local.tm_hour = here.wHour;
    local.tm_min = here.wMinute;
    local.tm_sec = here.wSecond;
    local.tm_wday = here.wDayOfWeek;
    static constexpr int kDaysBefore[] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
    const int year = here.wYear;
    const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    local.tm_yday = kDaysBefore[local.tm_mon] + here.wDay - 1 + (leap && local.tm_mon > 1 ? 1 : 0);
    local.tm_isdst = -1;
    return local;
}

} // namespace

uint32_t MonotonicMs() {
    return ::timeGetTime();
}

int64_t RealTimeNs() {
    FILETIME now{};
    ::GetSystemTimePreciseAsFileTime(&now);
    return (static_cast<int64_t>(Units(now)) - kUnitsFrom1601To1970) * 100;
}

std::tm LocalTime(std::time_t when) {
    std::tm local{};
    if (::localtime_s(&local, &when) == 0) return local;
    return LocalTimeOfWindows(when);
}

uint64_t LocalFileTime(int64_t ns) {
    // Floored to whole 100-ns units, also before 1970; nothing comes before 1601.
    int64_t units = ns / 100;
    if (ns % 100 < 0) --units;
    units += kUnitsFrom1601To1970;
    if (units < 0) return 0;
    const FILETIME utc = FileTimeOf(static_cast<uint64_t>(units));
    FILETIME local{};
    if (!::FileTimeToLocalFileTime(&utc, &local)) return static_cast<uint64_t>(units);
    return Units(local);
}
