// The system's clocks and its local time.

#include "platform/modClock.h"

#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <thread>

namespace {

constexpr int64_t kSecondsFrom1601 = 11644473600LL;

TEST(Clock, TheMonotonicClockCountsMilliseconds) {
    const uint32_t start = MonotonicMs();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const uint32_t elapsed = MonotonicMs() - start; // wraps around as the timer's sums do
    EXPECT_GE(elapsed, 40u);
    EXPECT_LT(elapsed, 10000u);
}

TEST(Clock, TheRealTimeIsNow) {
    const int64_t now = std::chrono::duration_cast<std::chrono::nanoseconds>(
                            std::chrono::system_clock::now().time_since_epoch())
                            .count();
    const int64_t real = RealTimeNs();
    EXPECT_LT(real - now, int64_t{2'000'000'000});
    EXPECT_GT(real - now, int64_t{-2'000'000'000});
    EXPECT_GT(RealTimeNs(), int64_t{1'600'000'000} * 1'000'000'000); // after September 2020
}

// A local file time is the same moment in 100-ns units since 1601, moved by the local zone's
// offset; LocalTime breaks the moment down in that zone.
TEST(Clock, TheLocalFileTimeAndTheLocalTimeAgree) {
    // Now, as Windows moves a file time by the offset that holds now.
    const std::time_t when = std::time(nullptr);
    const int64_t ns = int64_t{when} * 1'000'000'000 + 123'456'789;
    const uint64_t units = LocalFileTime(ns);
    EXPECT_EQ(units % 10'000'000, 1'234'567u); // the part of the second, in 100-ns units
    const int64_t localSeconds = static_cast<int64_t>(units / 10'000'000) - kSecondsFrom1601;
    const int64_t offset = localSeconds - when;
    EXPECT_EQ(offset % 60, 0);
    EXPECT_LE(offset, 14 * 3600);
    EXPECT_GE(offset, -12 * 3600);
    // The local time of `when` is the universal time of `when` moved by the offset.
    const std::time_t shifted = static_cast<std::time_t>(when + offset);
    const std::tm expected = *std::gmtime(&shifted);
    const std::tm local = LocalTime(when);
    EXPECT_EQ(local.tm_year, expected.tm_year);
    EXPECT_EQ(local.tm_mon, expected.tm_mon);
    EXPECT_EQ(local.tm_mday, expected.tm_mday);
    EXPECT_EQ(local.tm_hour, expected.tm_hour);
    EXPECT_EQ(local.tm_min, expected.tm_min);
    EXPECT_EQ(local.tm_sec, expected.tm_sec);
    EXPECT_EQ(local.tm_wday, expected.tm_wday);
    EXPECT_EQ(local.tm_yday, expected.tm_yday);
}

TEST(Clock, LocalFileTimesCountFrom1601) {
    // 1 January 1970 at midnight, UTC, is 11644473600 seconds after 1 January 1601.
    const int64_t offset = static_cast<int64_t>(LocalFileTime(0) / 10'000'000) - kSecondsFrom1601;
    EXPECT_GE(offset, -12 * 3600);
    EXPECT_LE(offset, 14 * 3600);
    // A moment before 1970 counts from 1601 too, whole units below it.
    EXPECT_EQ(LocalFileTime(-100), LocalFileTime(0) - 1);
    EXPECT_EQ(LocalFileTime(-1), LocalFileTime(0) - 1);
    EXPECT_EQ(LocalFileTime(99), LocalFileTime(0));
}

TEST(Clock, TheLocalTimeOfAMomentBefore1970IsKnown) {
    const std::tm local = LocalTime(-365 * 86400); // 1 January 1969 at midnight, UTC
    EXPECT_TRUE(local.tm_year == 69 || (local.tm_year == 68 && local.tm_mon == 11))
        << local.tm_year << "-" << local.tm_mon;
    const std::tm later = LocalTime(-365 * 86400 + 180 * 86400);
    EXPECT_EQ(later.tm_year, 69);
    EXPECT_GE(later.tm_mon, 5);
    EXPECT_LE(later.tm_mon, 6);
}

} // namespace
