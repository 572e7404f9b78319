// The quick check through the real program run unattended: the option is read from Setup, the
// stamps are kept beside the catalogue, and a second run of an unchanged tree opens none of its
// files while it records every one of them as the first run did.

#include "BackupFixture.h"
#include "FSShimEnv.h"
#include "OpenWatch.h"
#include "StagingWays.h"
#include "TestProgram.h"

#include <chrono>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <vector>

namespace {

using Lines = std::vector<std::string>;

class QuickCheckProgram : public ::testing::TestWithParam<StagingWay> {
protected:
    QuickCheckProgram() : src(f.env.Path("src")) {
        CreateTree(src, Dir({{"a.txt", File("alpha content")},
                             {"b.txt", File("bravo content")},
                             {"c.txt", File("alpha content")}}));
        f.AddSource(src);
        // The times of the files must lie well before the first run for their stamps to vouch.
        std::this_thread::sleep_for(std::chrono::milliseconds(2100));
    }

    // The program, staging new content in the test's way.
    ProgramRun Backup() const {
        return RunStashwell({"backup"}, 120, StagingEnv(GetParam(), f.backup));
    }

    Lines FileRows(int bid) const {
        return f.RowTexts("SELECT md5, path, file, backup, size FROM Files WHERE bid = " +
                          std::to_string(bid) + " ORDER BY fid");
    }

    BackupFixture f;
    std::string src;
};

TEST_P(QuickCheckProgram, SecondRunOpensNoUnchangedFileAndRecordsEveryOne) {
    f.SetOption("QuickCheck", "1");
    ASSERT_EQ(Backup().exitCode, 0);
    const std::string kept = f.backup + "/db/QuickCheck.db";
    struct stat st {};
    ASSERT_EQ(::stat(kept.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    EXPECT_EQ(SqlRows(kept, "SELECT count(*) FROM Stamps"), (std::vector<Lines>{{"3"}}));

    OpenWatch opened(src);
    const ProgramRun second = Backup();
    EXPECT_EQ(second.exitCode, 0) << second.err;
    EXPECT_EQ(opened.Opened(), Lines{});
    EXPECT_EQ(FileRows(2), FileRows(1));
    EXPECT_EQ(FileRows(2).size(), 3u);
}

TEST_P(QuickCheckProgram, OptionOffReadsEveryFileAndKeepsNoStamps) {
    f.SetOption("QuickCheck", "0");
    ASSERT_EQ(Backup().exitCode, 0);
    OpenWatch opened(src);
    ASSERT_EQ(Backup().exitCode, 0);
    EXPECT_EQ(opened.Opened(), (Lines{"a.txt", "b.txt", "c.txt"}));
    EXPECT_FALSE(Exists(f.backup + "/db/QuickCheck.db"));
    EXPECT_EQ(FileRows(2), FileRows(1));
}

TEST_P(QuickCheckProgram, ChangedFileIsReadAgainAndItsNewContentStored) {
    f.SetOption("QuickCheck", "1");
    ASSERT_EQ(Backup().exitCode, 0);
    WriteFile(src + "/b.txt", "BRAVO CONTENT");
    OpenWatch opened(src);
    ASSERT_EQ(Backup().exitCode, 0);
    EXPECT_EQ(opened.Opened(), Lines{"b.txt"});
    EXPECT_EQ(
        f.RowTexts("SELECT md5, backup FROM Files WHERE bid = 2 AND file = '" + src + "/b.txt'"),
        Lines{TestSignature("BRAVO CONTENT") + "|" + StoreFile(f.backup, "BRAVO CONTENT")});
    EXPECT_EQ(ReadFile(StoreFile(f.backup, "BRAVO CONTENT")), "BRAVO CONTENT");
}

} // namespace

namespace {
STAGING_WAYS_INSTANTIATE(QuickCheckProgram);
} // namespace
