#pragma once

// Windows only: the one include of <windows.h> for the platform layer, without the parts it
// never uses and without the min and max macros that would break std::min and std::max.

#ifdef _WIN32

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#endif
