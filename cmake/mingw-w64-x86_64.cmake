# The Windows build: 64-bit Windows programs made on Debian 12 with mingw-w64 and run under Wine.
#
#   cmake -S . -B build-windows -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake
#
# (scripts/build-windows.sh does this and the rest.) The compilers are Debian's posix thread
# model (g++-mingw-w64-x86-64-posix), the one whose C++ runtime has std::thread and std::mutex.
# Every program is linked -static, the C++ runtime, libgcc and winpthread included, so each
# .exe runs alone, without DLLs beside it. A compiler launcher (ccache) is given the usual way,
# with -DCMAKE_CXX_COMPILER_LAUNCHER and -DCMAKE_C_COMPILER_LAUNCHER.

set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(STASHWELL_MINGW_TRIPLE x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${STASHWELL_MINGW_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${STASHWELL_MINGW_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${STASHWELL_MINGW_TRIPLE}-windres)

# Libraries and headers come from the mingw-w64 tree only, never from the Linux system; programs
# the build runs (bash, gzip) are the build machine's.
set(CMAKE_FIND_ROOT_PATH /usr/${STASHWELL_MINGW_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_EXE_LINKER_FLAGS_INIT -static)

# The programs and their tests run under Wine, in a Wine prefix of the build folder's own
# (cmake/wine.sh makes it on first use, one process at a time). CTest runs every Windows test
# program through this, and so does the discovery of the tests inside each.
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/wine.sh ${CMAKE_BINARY_DIR}/wine run)
