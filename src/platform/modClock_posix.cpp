#include "platform/modClock.h"

#include <time.h>

uint32_t MonotonicMs() {
    timespec ts{};
    ::clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<uint32_t>(static_cast<uint64_t>(ts.tv_sec) * 1000u +
                                 static_cast<uint64_t>(ts.tv_nsec) / 1000000u);
}

int64_t RealTimeNs() {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

std::tm LocalTime(std::time_t when) {
    std::tm local{};
    ::localtime_r(&when, &local);
    return local;
}

uint64_t LocalFileTime(int64_t ns) {
    constexpr int64_t kNano = 1'000'000'000;
    constexpr int64_t kSecondsFrom1601 = 11644473600LL;
    int64_t seconds = ns / kNano;
    int64_t rest = ns % kNano;
    if (rest < 0) {
        rest += kNano;
        --seconds;
    }
    const std::tm local = LocalTime(static_cast<std::time_t>(seconds));
    return static_cast<uint64_t>(seconds + local.tm_gmtoff + kSecondsFrom1601) * 10000000ULL +
           static_cast<uint64_t>(rest / 100);
}
