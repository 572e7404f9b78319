// Bytes done and the time left, on a scripted clock: the words, when the time left appears, how
// it is smoothed, and how often the words may be shown.

#include "TestSupport.h"

#include "support/CByteProgress.h"
#include "support/CMMTimer.h"

#include <cstdint>
#include <gtest/gtest.h>

namespace {

constexpr uint64_t kMB = 1000 * 1000;

class ByteProgressTest : public ::testing::Test {
protected:
    ScopedTestEnv env;
    uint32_t tick = 5000;
    CByteProgress progress;

    ByteProgressTest() {
        CMMTimer::SetTickSource([this] { return tick; });
    }
};

TEST(ByteSizeText, SizesReadAsAPersonSaysThem) {
    EXPECT_EQ(ByteSizeText(0), "0 bytes");
    EXPECT_EQ(ByteSizeText(1), "1 byte");
    EXPECT_EQ(ByteSizeText(999), "999 bytes");
    EXPECT_EQ(ByteSizeText(1000), "1.0 kB");
    EXPECT_EQ(ByteSizeText(12'345), "12.3 kB");
    EXPECT_EQ(ByteSizeText(99'949), "99.9 kB");
    EXPECT_EQ(ByteSizeText(99'950), "100 kB");
    EXPECT_EQ(ByteSizeText(312 * kMB), "312 MB");
    EXPECT_EQ(ByteSizeText(999'499'999), "999 MB");
    EXPECT_EQ(ByteSizeText(999'500'000), "1.0 GB");
    EXPECT_EQ(ByteSizeText(1'400 * kMB), "1.4 GB");
    EXPECT_EQ(ByteSizeText(3'000'000 * kMB), "3.0 TB");
    EXPECT_EQ(ByteSizeText(UINT64_MAX), "18.4 EB");
}

TEST(TimeLeftText, MinutesAndHoursInWords) {
    EXPECT_EQ(TimeLeftText(0), "less than a minute left");
    EXPECT_EQ(TimeLeftText(59.9), "less than a minute left");
    EXPECT_EQ(TimeLeftText(60), "about 1 minute left");
    EXPECT_EQ(TimeLeftText(89), "about 1 minute left");
    EXPECT_EQ(TimeLeftText(91), "about 2 minutes left");
    EXPECT_EQ(TimeLeftText(59 * 60), "about 59 minutes left");
    EXPECT_EQ(TimeLeftText(3599.9), "about 1 hour left");
    EXPECT_EQ(TimeLeftText(2 * 3600 + 5 * 60), "about 2 hours 5 minutes left");
    EXPECT_EQ(TimeLeftText(25 * 3600 + 60), "about 25 hours 1 minute left");
}

TEST_F(ByteProgressTest, TheTimeLeftAppearsAfterThreeSecondsOfSteadyWork) {
    progress.Start(3000 * kMB);
    EXPECT_TRUE(progress.Update(0));
    EXPECT_EQ(progress.Text(), "0 bytes of 3.0 GB");
    // 10 MB every 200 ms: 50 MB a second.
    for (int step = 1; step < 15; ++step) {
        tick += 200;
        progress.Update(step * 10 * kMB);
        EXPECT_LT(progress.SecondsLeft(), 0) << "after " << step * 200 << " ms";
    }
    tick += 200;
    EXPECT_TRUE(progress.Update(150 * kMB));
    // 2,850 MB to go at 50 MB a second: 57 seconds.
    EXPECT_DOUBLE_EQ(progress.SecondsLeft(), 57);
    EXPECT_EQ(progress.Text(), "150 MB of 3.0 GB, less than a minute left");
}

TEST_F(ByteProgressTest, ASlowStretchMovesTheEstimateAFifthOfTheWayPerSecond) {
    progress.Start(10'000 * kMB);
    // 100 MB a second for 5 seconds.
    for (int second = 1; second <= 5; ++second) {
        tick += 1000;
        progress.Update(second * 100 * kMB);
    }
    EXPECT_DOUBLE_EQ(progress.SecondsLeft(), 95); // 9,500 MB at 100 MB/s
    EXPECT_EQ(progress.Text(), "500 MB of 10.0 GB, about 2 minutes left");
    // One second in which nothing moves (a folder of tiny files, say): the rate drops to
    // 80 MB/s, not to nothing.
    tick += 1000;
    progress.Update(500 * kMB);
    EXPECT_DOUBLE_EQ(progress.SecondsLeft(), 9500.0 / 80);
    EXPECT_EQ(progress.Text(), "500 MB of 10.0 GB, about 2 minutes left");
}

TEST_F(ByteProgressTest, TheWordsAreShownAtMostFiveTimesASecondAndAlwaysAtTheEnd) {
    progress.Start(100 * kMB);
    int shown = 0;
    for (int ms = 0; ms < 1000; ms += 10) {
        tick += 10;
        shown += progress.Update(static_cast<uint64_t>(ms) * 1000) ? 1 : 0;
    }
    EXPECT_EQ(shown, 5); // at 10 ms (the first), 210, 410, 610 and 810 ms
    tick += 10;
    EXPECT_TRUE(progress.Update(100 * kMB));
    EXPECT_EQ(progress.Text(), "100 MB of 100 MB");
    EXPECT_EQ(progress.SecondsLeft(), 0);
}

TEST_F(ByteProgressTest, MoreThanTheTotalOrBackwardsNeverLeavesTheRange) {
    progress.Start(10 * kMB);
    progress.Update(4 * kMB);
    progress.Update(2 * kMB); // a file that shrank is no step back
    EXPECT_EQ(progress.Done(), 4 * kMB);
    progress.Update(50 * kMB);
    EXPECT_EQ(progress.Done(), 10 * kMB);
    EXPECT_EQ(progress.Text(), "10.0 MB of 10.0 MB");
    progress.Start(0);
    EXPECT_TRUE(progress.Update(0));
    EXPECT_EQ(progress.Text(), "0 bytes of 0 bytes");
}

TEST_F(ByteProgressTest, TheClockWrappingAroundKeepsCounting) {
    tick = UINT32_MAX - 500;
    progress.Start(1000 * kMB);
    for (int second = 1; second <= 4; ++second) {
        tick += 1000; // wraps after the first
        progress.Update(second * 100 * kMB);
    }
    EXPECT_DOUBLE_EQ(progress.SecondsLeft(), 6); // 600 MB at 100 MB/s
}

} // namespace
