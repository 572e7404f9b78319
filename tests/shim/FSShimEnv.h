#pragma once

// The environment that preloads the file-system shim (FSShim.cpp) into a program the test
// starts: `rules` (for example "no-tmpfile,no-rename-flags") bite below `root` only.

#include "TestProgram.h"
#include "engine/CStore.h"

#include <string>

inline ProgramEnv ShimEnv(const std::string& root, const std::string& rules) {
    return {{"LD_PRELOAD", FSSHIM_LIB},
            {"QRV_SHIM_ROOT", root},
            {"QRV_SHIM", rules},
            // A sanitized program refuses a library loaded before its runtime otherwise.
            {"ASAN_OPTIONS", "verify_asan_link_order=0"}};
}

// The environment in which a program backing up into `backup` stages new content `way`: the
// named way is made sure of by refusing anonymous files below `backup`, as exFAT does.
inline ProgramEnv StagingEnv(StagingWay way, const std::string& backup) {
    return way == StagingWay::kNamed ? ShimEnv(backup, "no-tmpfile") : ProgramEnv{};
}
