// Whether standard error is a terminal: never when it goes to a file or to the null device.

#include "TestSupport.h"
#include "platform/modTerminal.h"

#include <gtest/gtest.h>

#ifdef _WIN32
#include "platform/modWin32.h"
#else
#include <fcntl.h>
#include <unistd.h>
#endif

namespace {

#ifndef _WIN32

TEST(Terminal, StandardErrorToAFileOrTheNullDeviceIsNoTerminal) {
    ScopedTestEnv env;
    const int saved = ::dup(STDERR_FILENO);
    for (const std::string& target : {std::string("/dev/null"), env.Path("stderr")}) {
        const int fd = ::open(target.c_str(), O_WRONLY | O_CREAT, 0600);
        ASSERT_GE(fd, 0);
        ::dup2(fd, STDERR_FILENO);
        ::close(fd);
        const bool terminal = StderrIsTerminal();
        ::dup2(saved, STDERR_FILENO);
        EXPECT_FALSE(terminal) << target;
    }
    ::close(saved);
}

#else

TEST(Terminal, StandardErrorToAFileOrTheNullDeviceIsNoTerminal) {
    ScopedTestEnv env;
    const HANDLE saved = ::GetStdHandle(STD_ERROR_HANDLE);
    for (const std::string& target : {std::string("NUL"), env.Path("stderr")}) {
        const HANDLE file = ::CreateFileA(target.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                          OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
        ASSERT_NE(file, INVALID_HANDLE_VALUE);
        ::SetStdHandle(STD_ERROR_HANDLE, file);
        const bool terminal = StderrIsTerminal();
        ::SetStdHandle(STD_ERROR_HANDLE, saved);
        ::CloseHandle(file);
        EXPECT_FALSE(terminal) << target;
    }
}

#endif

} // namespace
