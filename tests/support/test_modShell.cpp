// Opening documents and web addresses through the desktop: the "http://" rule, and that every
// call reaches the desktop service (recorded by the test environment's double).

#include "TestSupport.h"
#include "support/modShell.h"

#include <gtest/gtest.h>

#include <cstdlib>
#ifndef _WIN32
#include <sys/stat.h>
#endif

namespace {

TEST(ShellOpenUrl, AddressWithoutASchemeGetsHttpInFront) {
    ScopedTestEnv env;
    EXPECT_TRUE(ShellOpenUrl("www.korvex.example/stashwell"));
    EXPECT_EQ(env.desktop.opened, std::vector<std::string>{"http://www.korvex.example/stashwell"});
}

TEST(ShellOpenUrl, AddressBeginningWithHttpInAnyCaseIsLeftAsItIs) {
    ScopedTestEnv env;
    ShellOpenUrl("HTTP://KORVEX.EXAMPLE");
    ShellOpenUrl("https://korvex.example");
    ShellOpenUrl("HttpLikeHost");
    EXPECT_EQ(env.desktop.opened,
              (std::vector<std::string>{"HTTP://KORVEX.EXAMPLE", "https://korvex.example",
                                        "HttpLikeHost"}));
    EXPECT_EQ(WebAddress("ftp://korvex.example"), "http://ftp://korvex.example");
}

TEST(ShellOpenFile, DocumentGoesToTheDesktopAndItsAnswerComesBack) {
    ScopedTestEnv env;
    env.desktop.answer = false;
    EXPECT_FALSE(ShellOpenFile("/opt/stashwell/QRV Manual.pdf"));
    EXPECT_EQ(env.desktop.opened, std::vector<std::string>{"/opt/stashwell/QRV Manual.pdf"});
}

TEST(DesktopOpener, ProgramThatDoesNotExistIsNotStarted) {
    ScopedTestEnv env;
    SetDesktopService(nullptr); // the real opener
    EXPECT_FALSE(DesktopService().Start(env.Path("no such program")));
#ifdef _WIN32
    EXPECT_TRUE(DesktopService().Start("hostname.exe"));
#else
    EXPECT_TRUE(DesktopService().Start("true"));
#endif
}

#ifndef _WIN32
// The Linux desktop's opener is xdg-open, found on PATH; Windows opens documents itself.

// The desktop's opener, with `script` as the only xdg-open on PATH for the life of the object.
class ScopedOpener {
public:
    ScopedOpener(const ScopedTestEnv& env, const std::string& script)
        : m_path(std::getenv("PATH") ? std::getenv("PATH") : "") {
        const std::string folder = env.Path("bin");
        ::mkdir(folder.c_str(), 0700);
        WriteFile(folder + "/xdg-open", "#!/bin/sh\n" + script + "\n");
        ::chmod((folder + "/xdg-open").c_str(), 0700);
        ::setenv("PATH", (folder + ":/usr/bin:/bin").c_str(), 1);
        SetDesktopService(nullptr);
    }
    ~ScopedOpener() { ::setenv("PATH", m_path.c_str(), 1); }

private:
    std::string m_path;
};

// xdg-open ends with status 3 at once when no program takes the document: the manual was not
// opened, and the window says so.
TEST(DesktopOpener, AnOpenerThatFindsNoProgramIsAFailure) {
    ScopedTestEnv env;
    ScopedOpener opener(env, "echo \"$1\" > \"" + env.Path("asked") + "\"; exit 3");
    EXPECT_FALSE(DesktopService().Open("/opt/stashwell/QRV Manual.pdf"));
    EXPECT_EQ(ReadFile(env.Path("asked")), "/opt/stashwell/QRV Manual.pdf\n");
}

TEST(DesktopOpener, AnOpenerThatHandsTheDocumentOverIsASuccess) {
    ScopedTestEnv env;
    ScopedOpener opener(env, "exit 0");
    EXPECT_TRUE(DesktopService().Open("/opt/stashwell/QRV Manual.pdf"));
}

// An opener that runs the viewer itself (xdg-open without a desktop) is still running when the
// program stops waiting: the document is taken as opened.
TEST(DesktopOpener, AnOpenerStillRunningCountsAsOpened) {
    ScopedTestEnv env;
    ScopedOpener opener(env, "exec sleep 5");
    EXPECT_TRUE(DesktopService().Open("/opt/stashwell/QRV Manual.pdf"));
}

TEST(DesktopOpener, NoOpenerAtAllIsAFailure) {
    ScopedTestEnv env;
    ScopedOpener opener(env, "exit 0");
    ::setenv("PATH", env.Path("nothing here").c_str(), 1);
    EXPECT_FALSE(DesktopService().Open("/opt/stashwell/QRV Manual.pdf"));
}
#endif

} // namespace
