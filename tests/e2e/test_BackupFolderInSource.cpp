// The real program backing up a source that holds its own backup folder: the walk steps around
// the backup folder, so no run ever records the store, catalogue or logs of an earlier one, and
// each run says so once in the log. A source that lies inside the backup folder is not backed
// up at all and is named as a problem.

#include "BackupFixture.h"
#include "StoreAudit.h"
#include "TestProgram.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

using Lines = std::vector<std::string>;

// A home folder with two files and the backup folder "Backup" inside it, backed up as one
// source with the log at level 2.
struct BackupFolderInSource : ::testing::Test {
    BackupFixture f;
    std::string home = f.env.Path("home");

    void SetUp() override {
        CreateTree(home, Dir({{"a.txt", File("alpha")},
                              {"docs", Dir({{"d.txt", File("delta")}})},
                              {"Backup", Dir()}}));
    }

    // Backs up `runs` times with the backup path `backupPath`.
    void BackUp(const std::string& backupPath, int runs) {
        f.UseBackupPath(backupPath);
        f.AddSource(home);
        f.SetOption("Log", "Advanced");
        for (int run = 1; run <= runs; ++run) {
            const ProgramRun ran = RunStashwell({"backup"});
            EXPECT_EQ(ran.exitCode, 0) << "run " << run;
            EXPECT_EQ(ran.err, "") << "run " << run;
        }
    }

    size_t Logged(const std::string& line) const {
        const Lines log = LogMessages(f.TodaysLog());
        return static_cast<size_t>(std::count(log.begin(), log.end(), line + "\r\n"));
    }

    // Both runs recorded the two files of the source and nothing of the backup folder.
    void ExpectOnlyTheSourcesOwnFiles() const {
        const std::string a = home + "/a.txt", d = home + "/docs/d.txt";
        EXPECT_EQ(f.RowTexts("SELECT bid, file FROM Files ORDER BY fid"),
                  (Lines{"1|" + a, "1|" + d, "2|" + a, "2|" + d}));
        EXPECT_EQ(f.RowTexts("SELECT bid, path FROM Paths ORDER BY pid"),
                  (Lines{"1|" + home + "/", "1|" + home + "/docs/", "2|" + home + "/",
                         "2|" + home + "/docs/"}));
        EXPECT_EQ(ListTree(home + "/Backup/Files"), StoreEntries({"alpha", "delta"}));
        EXPECT_EQ(AuditBackupFolder(home + "/Backup"), Lines{});
    }
};

TEST_F(BackupFolderInSource, SecondRunRecordsNoneOfTheBackupFoldersFiles) {
    BackUp(home + "/Backup", 2);
    ExpectOnlyTheSourcesOwnFiles();
    EXPECT_EQ(Logged("Skipped the backup folder " + home +
                     "/Backup: Stashwell does not back up its own store"),
              2u);
}

TEST_F(BackupFolderInSource, BackupPathSetThroughALinkIsSteppedAroundAllTheSame) {
    const std::string link = f.env.Path("backup-link");
    ASSERT_EQ(::symlink((home + "/Backup").c_str(), link.c_str()), 0);
    BackUp(link, 2);
    ExpectOnlyTheSourcesOwnFiles();
    // The line names the folder where the walk met it.
    EXPECT_EQ(Logged("Skipped the backup folder " + home +
                     "/Backup: Stashwell does not back up its own store"),
              2u);
}

TEST(BackupFolderHoldsSource, SourceInsideTheBackupFolderIsNamedAndNotBackedUp) {
    BackupFixture f;
    const std::string inside = f.backup + "/Files/../mine";
    CreateTree(f.backup + "/mine", Dir({{"m.txt", File("mine")}}));
    f.AddSource(inside);
    const ProgramRun run = RunStashwell({"backup"});
    EXPECT_EQ(run.exitCode, 4);
    EXPECT_EQ(run.err, "Source " + inside +
                           " was not backed up: it lies inside the backup folder " + f.backup +
                           ", and Stashwell does not back up its own store\n" +
                           "Backup completed with problems. The log " + f.TodaysLogPath() +
                           " has the details.\n");
    const Lines log = LogMessages(f.TodaysLog());
    EXPECT_NE(std::find(log.begin(), log.end(),
                        inside + " lies inside the backup folder " + f.backup + ". Skipping\r\n"),
              log.end());
    EXPECT_EQ(f.Rows("SELECT count(*) FROM Backups"), Lines{"0"});
    EXPECT_EQ(f.Rows("SELECT count(*) FROM Files"), Lines{"0"});
}

} // namespace
