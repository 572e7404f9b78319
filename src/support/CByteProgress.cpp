#include "support/CByteProgress.h"

#include "support/CMMTimer.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

// The rate is sampled over a second at least, and each sample moves it a fifth of the way: a
// change of pace shows within a few seconds, a single slow file hardly at all.
constexpr uint32_t kSampleMs = 1000;
constexpr double kSmoothing = 0.2;

std::string Plural(uint64_t count, const char* one) {
    return std::to_string(count) + " " + one + (count == 1 ? "" : "s");
}

} // namespace

void CByteProgress::Start(uint64_t total) {
    *this = CByteProgress();
    m_total = total;
    m_start = m_sampleTime = m_now = CMMTimer::Now();
}

bool CByteProgress::Update(uint64_t done) {
    m_now = CMMTimer::Now();
    m_done = std::min(std::max(done, m_done), m_total);
    if (const uint32_t span = m_now - m_sampleTime; span >= kSampleMs) {
        const double rate = static_cast<double>(m_done - m_sampleDone) / span;
        m_rate = m_rate > 0 ? m_rate + kSmoothing * (rate - m_rate) : rate;
        m_sampleDone = m_done;
        m_sampleTime = m_now;
    }
    if (m_shown && m_done < m_total && m_now - m_lastShown < kShowEveryMs) return false;
    m_shown = true;
    m_lastShown = m_now;
    return true;
}

double CByteProgress::SecondsLeft() const {
    if (m_done >= m_total) return 0;
    if (m_now - m_start < kEstimateAfterMs || m_rate <= 0) return -1;
    return static_cast<double>(m_total - m_done) / m_rate / 1000;
}

std::string CByteProgress::Text() const {
    std::string text = ByteSizeText(m_done) + " of " + ByteSizeText(m_total);
    const double left = SecondsLeft();
    if (left >= 0 && m_done < m_total) text += ", " + TimeLeftText(left);
    return text;
}

std::string ByteSizeText(uint64_t bytes) {
    if (bytes < 1000) return Plural(bytes, "byte");
    static const char* const kUnits[] = {"kB", "MB", "GB", "TB", "PB", "EB"};
    double value = static_cast<double>(bytes) / 1000;
    size_t unit = 0;
    // A value that rounds to 1000 of a unit is shown as 1.0 of the next.
    while (value >= 999.5 && unit + 1 < std::size(kUnits)) {
        value /= 1000;
        ++unit;
    }
    char text[32];
    if (value < 99.95)
        std::snprintf(text, sizeof text, "%.1f %s", value, kUnits[unit]);
    else
        std::snprintf(text, sizeof text, "%.0f %s", value, kUnits[unit]);
    return text;
}

std::string TimeLeftText(double seconds) {
    if (seconds < 60) return "less than a minute left";
    const auto minutes = static_cast<uint64_t>(std::llround(seconds / 60));
    if (minutes < 60) return "about " + Plural(minutes, "minute") + " left";
    const uint64_t hours = minutes / 60, rest = minutes % 60;
    return "about " + Plural(hours, "hour") + (rest > 0 ? " " + Plural(rest, "minute") : "") +
           " left";
}
