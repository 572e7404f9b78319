// The elapsed-time stopwatch, driven by a scripted tick counter.

#include "TestSupport.h"

#include "support/CMMTimer.h"

#include <chrono>
#include <cstdint>
#include <gtest/gtest.h>

namespace {

class MMTimerTest : public ::testing::Test {
protected:
    ScopedTestEnv env;
    uint32_t tick = 1000;
    CMMTimer timer;

    MMTimerTest() {
        CMMTimer::SetTickSource([this] { return tick; });
    }

    const CScriptedMessageBox::Call kOverflowBox{"Error: 6. Overflow", 0, ""};
};

TEST_F(MMTimerTest, ElapsedTimeBeforeAnyStartIsZero) {
    EXPECT_EQ(timer.ElapsedTime(), 0.0);
    tick = 50000;
    EXPECT_EQ(timer.ElapsedTime(), 0.0);
}

TEST_F(MMTimerTest, DefaultScaleFactorReportsSecondsWithFraction) {
    EXPECT_EQ(timer.ScaleFactor(), 1000);
    timer.StartTimer();
    tick += 2250;
    EXPECT_DOUBLE_EQ(timer.ElapsedTime(), 2.25);
}

TEST_F(MMTimerTest, ElapsedTimeCanBeReadWhileRunning) {
    timer.StartTimer();
    tick += 1000;
    EXPECT_DOUBLE_EQ(timer.ElapsedTime(), 1.0);
    tick += 500;
    EXPECT_DOUBLE_EQ(timer.ElapsedTime(), 1.5);
}

TEST_F(MMTimerTest, StartStopResumeStopSumsBothSpans) {
    timer.StartTimer();
    tick += 2500;
    timer.StopTimer();
    tick += 60000; // not counted: stopped
    EXPECT_DOUBLE_EQ(timer.ElapsedTime(), 2.5);

    timer.ResumeTimer();
    tick += 500;
    EXPECT_DOUBLE_EQ(timer.ElapsedTime(), 3.0);
    timer.StopTimer();
    tick += 9000;
    EXPECT_DOUBLE_EQ(timer.ElapsedTime(), 3.0);
}

TEST_F(MMTimerTest, SecondStopInARowAddsNothing) {
    timer.StartTimer();
    tick += 1200;
    timer.StopTimer();
    tick += 800;
    timer.StopTimer();
    EXPECT_DOUBLE_EQ(timer.ElapsedTime(), 1.2);
}

TEST_F(MMTimerTest, StartDropsEarlierSpans) {
    timer.StartTimer();
    tick += 4000;
    timer.StopTimer();
    timer.StartTimer();
    tick += 1000;
    EXPECT_DOUBLE_EQ(timer.ElapsedTime(), 1.0);
}

TEST_F(MMTimerTest, StopWithoutStartCountsNothing) {
    tick += 1000;
    timer.StopTimer();
    EXPECT_EQ(timer.ElapsedTime(), 0.0);
}

TEST_F(MMTimerTest, TickZeroAtStartCountsAsNotRunning) {
    tick = 0;
    timer.StartTimer();
    tick = 5000;
    EXPECT_EQ(timer.ElapsedTime(), 0.0);
    timer.StopTimer();
    EXPECT_EQ(timer.ElapsedTime(), 0.0);
    EXPECT_TRUE(env.box.calls.empty());
}

TEST_F(MMTimerTest, ScaleFactorOneReportsMilliseconds) {
    timer.ScaleFactor(1);
    EXPECT_EQ(timer.ScaleFactor(), 1);
    timer.StartTimer();
    tick += 1234;
    EXPECT_EQ(timer.ElapsedTime(), 1234.0);
}

TEST_F(MMTimerTest, ScaleFactorSixtyThousandReportsMinutes) {
    timer.ScaleFactor(60000);
    timer.StartTimer();
    tick += 90000;
    EXPECT_DOUBLE_EQ(timer.ElapsedTime(), 1.5);
}

TEST_F(MMTimerTest, ScaleFactorZeroOrNegativeIsIgnoredSilently) {
    timer.ScaleFactor(0);
    EXPECT_EQ(timer.ScaleFactor(), 1000);
    timer.ScaleFactor(-5);
    EXPECT_EQ(timer.ScaleFactor(), 1000);
    timer.ScaleFactor(1);
    timer.ScaleFactor(-1);
    EXPECT_EQ(timer.ScaleFactor(), 1);
    EXPECT_TRUE(env.box.calls.empty());
}

TEST_F(MMTimerTest, SpanAcrossTheSignedBoundaryShowsOverflowAndCountsZero) {
    tick = 0x7FFFFF00u;
    timer.StartTimer();
    tick = 0x80000100u; // 512 ms later, but past 2^31
    EXPECT_EQ(timer.ElapsedTime(), 0.0);
    ASSERT_EQ(env.box.calls.size(), 1u);
    EXPECT_EQ(env.box.calls[0], kOverflowBox);

    timer.StopTimer();
    EXPECT_EQ(env.box.calls.size(), 2u);
    EXPECT_EQ(timer.ElapsedTime(), 0.0);
    EXPECT_EQ(env.box.calls.size(), 2u); // stopped: no span to read any more
}

TEST_F(MMTimerTest, SpanAcrossTheSignedBoundaryLosesOnlyThatSpan) {
    timer.StartTimer();
    tick += 3000;
    timer.StopTimer();
    tick = 0x7FFFFF00u;
    timer.ResumeTimer();
    tick = 0x80000100u;
    timer.StopTimer();
    EXPECT_DOUBLE_EQ(timer.ElapsedTime(), 3.0);
    EXPECT_EQ(env.box.calls, std::vector<CScriptedMessageBox::Call>{kOverflowBox});
}

TEST_F(MMTimerTest, WrapPastTwoToThe32GivesTheRightSmallDifference) {
    tick = 0xFFFFFF00u;
    timer.StartTimer();
    tick = 0x00000100u;
    EXPECT_DOUBLE_EQ(timer.ElapsedTime(), 0.512);
    timer.StopTimer();
    EXPECT_DOUBLE_EQ(timer.ElapsedTime(), 0.512);
    EXPECT_TRUE(env.box.calls.empty());
}

TEST_F(MMTimerTest, SumBeyondThe32BitRangeShowsOverflow) {
    timer.ScaleFactor(1);
    tick = 1;
    timer.StartTimer();
    tick = 0x7FFFFFFFu;
    timer.StopTimer(); // 2147483646 ms gathered
    EXPECT_EQ(timer.ElapsedTime(), 2147483646.0);
    tick = 10;
    timer.ResumeTimer();
    tick = 12;
    EXPECT_EQ(timer.ElapsedTime(), 0.0);
    EXPECT_EQ(env.box.calls, std::vector<CScriptedMessageBox::Call>{kOverflowBox});
}

TEST_F(MMTimerTest, RealTickCounterIsMonotonicMilliseconds) {
    CMMTimer::SetTickSource(nullptr);
    // steady_clock reads CLOCK_MONOTONIC on Linux.
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    const uint32_t expected =
        static_cast<uint32_t>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
    const uint32_t first = CMMTimer::Now();
    const uint32_t second = CMMTimer::Now();
    EXPECT_LT(first - expected, 1000u);
    EXPECT_LT(second - first, 1000u);
}

} // namespace
