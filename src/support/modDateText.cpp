#include "support/modDateText.h"

#include "platform/modClock.h"

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
    // Log lines come by the thousand per second; format each second once.
    thread_local std::time_t cachedAt = -1;
    thread_local std::string cached;
    const std::time_t now = std::time(nullptr);
    if (now != cachedAt) {
        cached = DateTimeText(now);
        cachedAt = now;
    }
    return cached;
}

std::string DateStamp(std::time_t when) {
    return Format(when, "%Y%m%d");
}
