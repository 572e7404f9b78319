#include "support/modYield.h"

#include <chrono>

namespace {
std::function<void()> g_hook;
std::chrono::steady_clock::time_point g_lastRun;
constexpr auto kMinInterval = std::chrono::milliseconds(5);
} // namespace

void SetYieldHook(std::function<void()> hook) {
    g_hook = std::move(hook);
    g_lastRun = {};
}

void DoEvents() {
    if (!g_hook) return;
    const auto now = std::chrono::steady_clock::now();
    if (now - g_lastRun < kMinInterval) return;
    g_lastRun = now;
    g_hook();
}
