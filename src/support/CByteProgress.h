#pragma once

// How far a piece of work measured in bytes has come, in words a person reads: "1.4 GB of
// 3.0 GB, about 2 minutes left". The time left is shown once the work has run 3 seconds, from
// a rate smoothed over the last several seconds, so that it does not jump with each file; and
// it is time to show the words again at most 5 times a second, so that showing them never
// slows the work. Times are those of CMMTimer::Now, which tests replace.

#include <cstdint>
#include <string>

class CByteProgress {
public:
    static constexpr uint32_t kShowEveryMs = 200;
    static constexpr uint32_t kEstimateAfterMs = 3000;

    // Starts the work now, with `total` bytes to do.
    void Start(uint64_t total);
    // Records that `done` bytes are done now (more than the total counts as the total). True
    // when the words should be shown again: at the first update, at the end, and once
    // kShowEveryMs have passed since they last were.
    bool Update(uint64_t done);

    uint64_t Done() const { return m_done; }
    uint64_t Total() const { return m_total; }
    // Seconds left, or a negative number while not known (before kEstimateAfterMs of work, or
    // while nothing moved).
    double SecondsLeft() const;
    // "<done> of <total>" and, once known, ", <time left>".
    std::string Text() const;

private:
    uint64_t m_total = 0;
    uint64_t m_done = 0;
    uint32_t m_start = 0;
    bool m_shown = false;
    uint32_t m_lastShown = 0;
    // The rate, smoothed: bytes and time since the last sample, and the rate so far.
    uint64_t m_sampleDone = 0;
    uint32_t m_sampleTime = 0;
    double m_rate = 0; // bytes per millisecond; 0 while unknown
    uint32_t m_now = 0;
};

// A size for a person, in decimal units: "512 bytes", "1 byte", "12.3 kB", "1.4 GB", "312 MB"
// (one decimal below 100 of a unit, none from 100 on).
std::string ByteSizeText(uint64_t bytes);
// The time left, in words: "less than a minute left", "about 1 minute left", "about 5 minutes
// left", "about 1 hour left", "about 2 hours 5 minutes left".
std::string TimeLeftText(double seconds);
