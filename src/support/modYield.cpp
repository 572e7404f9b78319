#include "support/modYield.h"

#include <atomic>
#include <chrono>
#include <thread>

namespace {
std::function<void()> g_hook;
// Only the thread that installed the hook runs it: the window's events belong to its thread,
// and the read-ahead's workers call the same copy and hashing code.
std::atomic<std::thread::id> g_hookThread;
std::chrono::steady_clock::time_point g_lastRun;
constexpr auto kMinInterval = std::chrono::milliseconds(5);
} // namespace

void SetYieldHook(std::function<void()> hook) {
    g_hook = std::move(hook);
    g_lastRun = {};
    g_hookThread = std::this_thread::get_id();
}

void DoEvents() {
    if (g_hookThread.load(std::memory_order_relaxed) != std::this_thread::get_id()) return;
    if (!g_hook) return;
    const auto now = std::chrono::steady_clock::now();
    if (now - g_lastRun < kMinInterval) return;
    g_lastRun = now;
    g_hook();
}
