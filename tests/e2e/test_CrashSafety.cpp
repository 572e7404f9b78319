// A run killed with SIGKILL at any point leaves a sound catalogue, earlier runs untouched and
// no store file whose content differs from its name; the next start notices the interruption.

#include "BackupFixture.h"
#include "FSShimEnv.h"
#include "StagingWays.h"
#include "StoreAudit.h"
#include "TestProgram.h"

#include <chrono>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <tuple>

namespace {

using Lines = std::vector<std::string>;
using Clock = std::chrono::steady_clock;

// Killed after some milliseconds, in each staging way.
class KilledRun : public ::testing::TestWithParam<std::tuple<StagingWay, int>> {};

TEST_P(KilledRun, LeavesASoundCatalogueAndANextRunCompletes) {
    BackupFixture f;
    const ProgramEnv staging = StagingEnv(std::get<0>(GetParam()), f.backup);
    // An earlier, complete run of a small source.
    CreateTree(f.env.Path("small"), Dir({{"s.txt", File("small source")}}));
    f.AddSource(f.env.Path("small"));
    ASSERT_EQ(RunStashwell({"backup"}, 120, staging).exitCode, 0);
    const Lines firstRun = f.RowTexts("SELECT * FROM Files WHERE bid = 1 ORDER BY fid");

    // A larger source, killed part-way through its run.
    const std::string big = f.env.Path("big");
    std::vector<std::pair<std::string, TestNode>> files;
    for (int i = 0; i < 240; ++i)
        files.emplace_back("f" + std::to_string(i) + ".bin",
                           File(std::to_string(i) + PatternContent(256 * 1024)));
    CreateTree(big, Dir({{"d", Dir(files)}}));
    f.AddSource(big);

    const int delayMs = std::get<1>(GetParam());
    const std::string logPath = f.TodaysLogPath();
    const auto start = Clock::now();
    const ProgramRun killed = RunStashwellUntil(
        {"backup"}, [&] { return Clock::now() - start > std::chrono::milliseconds(delayMs); }, 120,
        staging);
    if (killed.signal == 0) GTEST_SKIP() << "the run ended before the kill";
    EXPECT_EQ(killed.signal, SIGKILL);

    EXPECT_EQ(AuditBackupFolder(f.backup, AuditMoment::kJustKilled), Lines{});
    const bool interrupted = Exists(f.db + "-journal");

    ASSERT_EQ(::truncate(logPath.c_str(), 0), 0);
    const ProgramRun next = RunStashwell({"backup", "compact"}, 120, staging);
    ASSERT_EQ(next.exitCode, 0) << next.err;
    const Lines log = LogMessages(ReadFile(logPath));
    if (interrupted) {
        ASSERT_GE(log.size(), 4u);
        EXPECT_EQ(log[2], "Previous Backup process interrupted. Running Integrity Check\r\n");
        EXPECT_EQ(log[3], "Running Integrity Check\r\n");
    }
    EXPECT_FALSE(Exists(f.db + "-journal"));
    EXPECT_EQ(f.Rows("PRAGMA integrity_check"), Lines{"ok"});
    EXPECT_EQ(f.RowTexts("SELECT * FROM Files WHERE bid = 1 ORDER BY fid"), firstRun);
    EXPECT_EQ(f.Rows("SELECT count(*) FROM Files WHERE bid = (SELECT max(bid) FROM Backups WHERE "
                     "source = '" +
                     big + "')"),
              Lines{"240"});
    EXPECT_EQ(AuditBackupFolder(f.backup), Lines{});
    for (int i : {0, 119, 239})
        EXPECT_TRUE(Exists(StoreFile(f.backup, std::to_string(i) + PatternContent(256 * 1024))));
}

INSTANTIATE_TEST_SUITE_P(AtDifferentPoints, KilledRun,
                         ::testing::Combine(kBothStagingWays,
                                            ::testing::Values(5, 40, 120, 250, 500)),
                         [](const ::testing::TestParamInfo<KilledRun::ParamType>& info) {
                             return StagingWayName({std::get<0>(info.param), info.index}) + "_" +
                                    std::to_string(std::get<1>(info.param)) + "ms";
                         });

TEST(Interrupted, JournalWithASoundCatalogueIsCheckedAndLeftToTheEngine) {
    BackupFixture f;
    // A journal left by a killed writer; the catalogue itself is sound.
    WriteFile(f.db + "-journal", "");
    ASSERT_EQ(RunStashwell({"nothing"}).exitCode, 0);
    const Lines log = LogMessages(f.TodaysLog());
    ASSERT_GE(log.size(), 4u);
    EXPECT_EQ(log[2], "Previous Backup process interrupted. Running Integrity Check\r\n");
    EXPECT_EQ(log[3], "Running Integrity Check\r\n");
    EXPECT_EQ(std::count(log.begin(), log.end(),
                         std::string("Killed DB Journal. Possible previous crash\r\n")),
              0);
}

TEST(Interrupted, JournalWithAFailingCheckUnattendedWarnsOfCorruption) {
    BackupFixture f;
    WriteFile(f.db + "-journal", "");
    WriteFile(f.db, std::string(4096, 'x')); // not a database any more
    const ProgramRun run = RunStashwell({"nothing"});
    EXPECT_TRUE(run.err.starts_with("Possible QRV database corruption\n")) << run.err;
    const Lines log = LogMessages(f.TodaysLog());
    ASSERT_GE(log.size(), 7u);
    // The warning is logged once, by the box of a start without a window.
    EXPECT_EQ(
        Lines(log.begin() + 2, log.begin() + 6),
        (Lines{"Previous Backup process interrupted. Running Integrity Check\r\n",
               "Running Integrity Check\r\n", "Killed DB Journal. Possible previous crash\r\n",
               "Possible QRV database corruption\r\n"}));
    EXPECT_NE(log[6], "Possible QRV database corruption\r\n");
    EXPECT_FALSE(Exists(f.db + "-journal"));
}

} // namespace
