#pragma once

// "Let pending window messages run": the one place where the window's events are processed
// during long work. The window installs a hook that processes Qt events; elsewhere nothing runs.
// Calls that come within a few milliseconds of the last one that ran are skipped, so hot loops
// may call DoEvents freely and a Cancel click is still seen within 50 ms of work. Only the
// thread that installed the hook runs it; on any other thread DoEvents does nothing.

#include <functional>

void SetYieldHook(std::function<void()> hook);
void DoEvents();
