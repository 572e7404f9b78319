#include "support/modYield.h"

#include "support/CServiceContext.h"

#include <atomic>
#include <chrono>
#include <thread>

namespace {
struct YieldHook {
    std::function<void()> hook;
    // Only the thread that installed the hook runs it: the window's events belong to its
    // thread, and the read-ahead's workers call the same copy and hashing code.
    std::atomic<std::thread::id> thread;
    std::chrono::steady_clock::time_point lastRun;
};
constexpr auto kMinInterval = std::chrono::milliseconds(5);
} // namespace

void SetYieldHook(std::function<void()> hook) {
    YieldHook& yield = ServicePart<YieldHook>();
    yield.hook = std::move(hook);
    yield.lastRun = {};
    yield.thread = std::this_thread::get_id();
}

void DoEvents() {
    YieldHook& yield = ServicePart<YieldHook>();
    if (yield.thread.load(std::memory_order_relaxed) != std::this_thread::get_id()) return;
    if (!yield.hook) return;
    const auto now = std::chrono::steady_clock::now();
    if (now - yield.lastRun < kMinInterval) return;
    yield.lastRun = now;
    yield.hook();
}
