#pragma once

// Which system this build of the program is for, for the few texts that differ.

#ifdef _WIN32
inline constexpr bool kWindowsBuild = true;
#else
inline constexpr bool kWindowsBuild = false;
#endif
