#pragma once

// A stopwatch over the millisecond tick counter, kept as 32-bit values with signed 32-bit
// differences, as the tick counter it stands in for. A start tick of 0 means "not running",
// so a span started at tick 0 is not counted (a one-millisecond blind spot kept on purpose).

#include <cstdint>
#include <functional>

class CMMTimer {
public:
    double ElapsedTime();
    int32_t ScaleFactor() const { return m_scale; }
    // Values of 0 and below are ignored.
    void ScaleFactor(int32_t value);
    void ResumeTimer();
    void StartTimer();
    void StopTimer();

    // The tick source, replaceable by tests; by default CLOCK_MONOTONIC in milliseconds.
    static void SetTickSource(std::function<uint32_t()> source);
    static uint32_t Now();

private:
    int32_t GetCurrentElapsedTime();

    int32_t m_scale = 1000;
    int32_t m_accumulated = 0;
    int32_t m_startTick = 0;
    bool m_stopped = false;
};
