#include "support/modDateText.h"

#include "platform/modClock.h"

#include <mutex>

namespace {
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
