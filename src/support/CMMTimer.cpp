#include "support/CMMTimer.h"

#include "platform/modClock.h"

#include "support/CRuntimeError.h"
#include "support/CServiceContext.h"
#include "support/modMsgBox.h"
#include "support/modNumText.h"

#include <ctime>
#include <limits>

namespace {
struct TickSource {
    std::function<uint32_t()> source;
};

int32_t CheckedInt32(int64_t value) {
    if (value < std::numeric_limits<int32_t>::min() || value > std::numeric_limits<int32_t>::max())
        Raise(err::kOverflow);
    return static_cast<int32_t>(value);
}

void ShowError(const CRuntimeError& e) {
    MsgBox("Error: " + NumText(e.Number()) + ". " + e.Description());
}
} // namespace

void CMMTimer::SetTickSource(std::function<uint32_t()> source) {
    ServicePart<TickSource>().source = std::move(source);
}

uint32_t CMMTimer::Now() {
    if (const auto& source = ServicePart<TickSource>().source) return source();
    return MonotonicMs();
}

int32_t CMMTimer::GetCurrentElapsedTime() {
    if (m_startTick == 0 || m_stopped) return 0;
    try {
        return CheckedInt32(int64_t{static_cast<int32_t>(Now())} - m_startTick);
    } catch (const CRuntimeError& e) {
        ShowError(e);
        return 0;
    }
}

double CMMTimer::ElapsedTime() {
    try {
        return CheckedInt32(int64_t{m_accumulated} + GetCurrentElapsedTime()) /
               static_cast<double>(m_scale);
    } catch (const CRuntimeError& e) {
        ShowError(e);
        return 0;
    }
}

void CMMTimer::ScaleFactor(int32_t value) {
    if (value > 0) m_scale = value;
}

void CMMTimer::ResumeTimer() {
    m_startTick = static_cast<int32_t>(Now());
    m_stopped = false;
}

void CMMTimer::StartTimer() {
    ResumeTimer();
    m_accumulated = 0;
}

void CMMTimer::StopTimer() {
    try {
        m_accumulated = CheckedInt32(int64_t{m_accumulated} + GetCurrentElapsedTime());
    } catch (const CRuntimeError& e) {
        ShowError(e);
    }
    m_startTick = 0;
    m_stopped = true;
}
