#pragma once

// The environment that preloads the file-system shim (FSShim.cpp) into a program the test
// starts: `rules` (for example "no-tmpfile,no-rename-flags") bite below `root` only.

#include "TestProgram.h"

#include <string>

inline ProgramEnv ShimEnv(const std::string& root, const std::string& rules) {
    return {{"LD_PRELOAD", FSSHIM_LIB},
            {"QRV_SHIM_ROOT", root},
            {"QRV_SHIM", rules},
            // A sanitized program refuses a library loaded before its runtime otherwise.
            {"ASAN_OPTIONS", "verify_asan_link_order=0"}};
}
