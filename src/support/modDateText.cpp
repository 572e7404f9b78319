#include "support/modDateText.h"

#include "platform/modClock.h"

#include <cstdio>
#include <mutex>

namespace {
// Days from 1970-01-01 to the civil date y-m-d (proleptic Gregorian).
long long DaysFromCivil(long long y, unsigned m, unsigned d) {
    y -= m <= 2;
    const long long era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<long long>(doe) - 719468;
}

std::string Format(std::time_t when, const char* pattern) {
    const std::tm local = LocalTime(when);
    char buf[64];
    std::strftime(buf, sizeof buf, pattern, &local);
    return buf;
}
} // namespace

std::string DateTimeText(std::time_t when) {
    return Format(when, "%d/%m/%Y %H:%M:%S");
}

std::string NowText() {
    // Log lines come by the thousand per second; format each second once. (Not one cache per
    // thread: the Windows build's freeing of thread_local strings at a thread's end is not
    // safe under Wine.)
    static std::mutex mutex;
    static std::time_t cachedAt = -1;
    static std::string cached;
    const std::time_t now = std::time(nullptr);
    std::lock_guard lock(mutex);
    if (now != cachedAt) {
        cached = DateTimeText(now);
        cachedAt = now;
    }
    return cached;
}

std::string DateStamp(std::time_t when) {
    return Format(when, "%Y%m%d");
}

std::time_t TimeOfDay(std::time_t when, int days, int hour, int minute) {
    std::tm at = LocalTime(when);
    at.tm_mday += days;
    at.tm_hour = hour;
    at.tm_min = minute;
    at.tm_sec = 0;
    at.tm_isdst = -1;
    return std::mktime(&at);
}

std::string IsoDateText(const std::string& dateText) {
    int day = 0, month = 0, year = 0, hour = 0, minute = 0, second = 0;
    char end = 0;
    if (dateText.size() != 19 ||
        std::sscanf(dateText.c_str(), "%2d/%2d/%4d %2d:%2d:%2d%c", &day, &month, &year, &hour,
                    &minute, &second, &end) != 6 ||
        month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 60)
        return dateText;
    std::tm local{};
    local.tm_year = year - 1900;
    local.tm_mon = month - 1;
    local.tm_mday = day;
    local.tm_hour = hour;
    local.tm_min = minute;
    local.tm_sec = second;
    local.tm_isdst = -1;
    const std::time_t when = std::mktime(&local);
    if (when == static_cast<std::time_t>(-1)) return dateText;
    // The offset: the local fields read as if they were UTC, less the moment they name.
    const long long asUtc =
        DaysFromCivil(year, static_cast<unsigned>(month), static_cast<unsigned>(day)) * 86400 +
        hour * 3600 + minute * 60 + second;
    const long long offset = (asUtc - static_cast<long long>(when)) / 60;
    const long long size = offset < 0 ? -offset : offset;
    char text[40];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d%c%02lld:%02lld", year, month,
                  day, hour, minute, second, offset < 0 ? '-' : '+', size / 60, size % 60);
    return text;
}

std::time_t NextTimeOfDay(int hour, int minute) {
    const std::time_t now = std::time(nullptr);
    const std::time_t today = TimeOfDay(now, 0, hour, minute);
    return today > now ? today : TimeOfDay(now, 1, hour, minute);
}
