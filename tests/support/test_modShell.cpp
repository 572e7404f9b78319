// Opening documents and web addresses through the desktop: the "http://" rule, and that every
// call reaches the desktop service (recorded by the test environment's double).

#include "TestSupport.h"
#include "support/modShell.h"

#include <gtest/gtest.h>

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
    EXPECT_TRUE(DesktopService().Start("true"));
}

} // namespace
