// The real program with a display (the offscreen platform): words on the command line run
// unattended with the window present and end by themselves; the manual lies next to the
// program.

#include "BackupFixture.h"
#include "StoreAudit.h"
#include "TestProgram.h"
#include "app/modPaths.h"

#include <gtest/gtest.h>

namespace {

using Lines = std::vector<std::string>;

const ProgramEnv kOffscreen{{"QT_QPA_PLATFORM", "offscreen"}};

TEST(WindowProgram, WordsWithADisplayRunUnattendedWithTheWindowPresentAndEnd) {
    BackupFixture f;
    const std::string src = f.env.Path("src");
    CreateTree(src, Dir({{"a.txt", File("alpha")}, {"sub", Dir({{"b.txt", File("beta")}})}}));
    f.AddSource(src);
    const ProgramRun run = RunStashwell({"backup", "compact"}, 120, kOffscreen);
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(f.Rows("SELECT file FROM Files ORDER BY fid"),
              (Lines{src + "/a.txt", src + "/sub/b.txt"}));
    EXPECT_EQ(AuditBackupFolder(f.backup), Lines{});
    const Lines log = LogMessages(f.TodaysLog());
    ASSERT_GE(log.size(), 3u);
    EXPECT_EQ(log[log.size() - 2], "Unattended backup complete\r\n");
    EXPECT_EQ(log.back(), "Exiting QRV\r\n");
    EXPECT_NE(std::find(log.begin(), log.end(), "Compacting database\r\n"), log.end());
}

TEST(WindowProgram, WordsWithADisplayAndAnUnreadyDriveEndWithStatusOne) {
    ScopedTestEnv env;
    WriteRegSetting("BackupPath", env.Path("unplugged"));
    const ProgramRun run = RunStashwell({"backup"}, 60, kOffscreen);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_FALSE(Exists(env.Path("unplugged")));
}

TEST(WindowProgram, TheManualLiesNextToTheProgram) {
    const std::string program = STASHWELL_BIN;
    const std::string manual = program.substr(0, program.rfind('/')) + "/QRV Manual.pdf";
    ASSERT_TRUE(Exists(manual));
    EXPECT_EQ(ReadFile(manual).substr(0, 5), "%PDF-");
}

} // namespace
