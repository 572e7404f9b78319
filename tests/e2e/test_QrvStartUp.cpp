// qrv's start, with the real companion: a settings file that cannot be read is named with its
// cause instead of passing for a missing backup path, and --backup-path needs no settings.

#include "TestProgram.h"
#include "TestSupport.h"

#include <filesystem>
#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;

struct QrvStartUp : ::testing::Test {
    ScopedTestEnv env;
#ifndef _WIN32
    std::string settings = env.ConfigHome() + "/Korvex/QRV.conf";
    void SetUp() override {
        fs::create_directories(settings);
    } // a folder in the file's place
#endif
};

#ifndef _WIN32 // Windows keeps the settings in the registry
TEST_F(QrvStartUp, SettingsFileThatCannotBeReadIsNamed) {
    for (const char* command : {"runs", "check"}) {
        const ProgramRun run = RunQrv({command});
        EXPECT_EQ(run.signal, 0) << command;
        EXPECT_EQ(run.exitCode, 3) << command;
        EXPECT_EQ(run.out, "") << command;
        EXPECT_EQ(run.err, "qrv: cannot read the settings file " + settings + ": is a directory\n")
            << command;
    }
}
#endif

TEST_F(QrvStartUp, BackupPathGivenNeedsNoSettingsFile) {
    const std::string unplugged = env.Path("unplugged");
    const ProgramRun run = RunQrv({"runs", "--backup-path", unplugged});
    EXPECT_EQ(run.exitCode, 3);
    EXPECT_EQ(run.err, OnConsole("qrv: the backup folder " + unplugged +
                                 " is not there: is its drive plugged in?\n"));
}

} // namespace
