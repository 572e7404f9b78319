#pragma once

// Windows only: the one include of <windows.h> for the platform layer, without the parts it
// never uses and without the min and max macros that would break std::min and std::max; and the
// two conversions between a HANDLE and the number the layer's interfaces keep it as (an
// intptr_t, as NativeFile and the file classes' descriptors).

#ifdef _WIN32

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include <cstdint>

inline HANDLE AsHandle(intptr_t number) {
    return reinterpret_cast<HANDLE>(number);
}

inline intptr_t AsNumber(HANDLE handle) {
    return reinterpret_cast<intptr_t>(handle);
}

#endif
