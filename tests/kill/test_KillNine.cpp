// The program killed with SIGKILL at more than a hundred moments: during backups of many small
// files and a few large ones, during compacts after a retention limit of one run, and during
// first starts that create the catalogue. After each kill a clean run completes, and the backup
// folder passes the audit: a sound catalogue, every store file holding the content its name
// signs, every row of every committed run pointing at such a file of its recorded size, no
// committed run lost, and nothing temporary left behind. Every test runs in both staging ways:
// anonymous files, and named temporary files where anonymous ones are refused as on exFAT.

#include "BackupFixture.h"
#include "FSShimEnv.h"
#include "StagingWays.h"
#include "StoreAudit.h"
#include "TestProgram.h"
#include "app/modPaths.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <random>

namespace {

using Lines = std::vector<std::string>;
using Clock = std::chrono::steady_clock;
using Millis = std::chrono::duration<double, std::milli>;

// How long a clean run of `args` takes.
Millis TimeOf(const std::vector<std::string>& args, const ProgramEnv& env) {
    const auto start = Clock::now();
    const ProgramRun run = RunStashwell(args, 120, env);
    EXPECT_EQ(run.exitCode, 0) << run.err;
    return Clock::now() - start;
}

// Kill moments spread over a run's duration, one tenth after another: 1/11 of it, 2/11, ...,
// 10/11, then again. A run that ends before its kill makes the duration taken shorter, so that
// the plan reaches its number of kills whatever the speed of the machine.
class KillPlan {
public:
    KillPlan(int kills, Millis duration, ProgramEnv env)
        : m_target(kills), m_duration(duration), m_env(std::move(env)) {}

    bool Done() const { return m_kills >= m_target || m_tries >= 3 * m_target; }
    int Kills() const { return m_kills; }
    int Tries() const { return m_tries; }

    // Runs `args` and kills it at the next moment, unless it ends first.
    void Run(const std::vector<std::string>& args) {
        const Millis after = m_duration * (1 + m_tries++ % 10) / 11;
        const auto start = Clock::now();
        const ProgramRun run = RunStashwellUntil(
            args, [&] { return Clock::now() - start >= after; }, 120, m_env);
        if (run.signal == SIGKILL)
            ++m_kills;
        else
            m_duration *= 0.85;
    }

private:
    const int m_target;
    Millis m_duration;
    const ProgramEnv m_env;
    int m_kills = 0;
    int m_tries = 0;
};

bool Contains(const Lines& all, const Lines& some) {
    return std::all_of(some.begin(), some.end(),
                       [&](const std::string& x) { return std::count(all.begin(), all.end(), x); });
}

// New content for a share of the files, so that every run has something to store.
void Change(const std::string& root, int round, int share) {
    std::mt19937 random(static_cast<unsigned>(round));
    const std::vector<std::string> files = WalkOrder(root);
    for (size_t i = static_cast<size_t>(round) % static_cast<size_t>(share); i < files.size();
         i += static_cast<size_t>(share)) {
        std::string content = ReadFile(files[i]);
        for (size_t at = 0; at < content.size(); at += 4096)
            content[at] = static_cast<char>(random());
        WriteFile(files[i], content);
    }
}

class KillNine : public ::testing::TestWithParam<StagingWay> {
protected:
    // The program in the test's staging way, for the backup folder `backup`.
    ProgramRun Run(const std::vector<std::string>& args, const std::string& backup) const {
        return RunStashwell(args, 120, StagingEnv(GetParam(), backup));
    }
};

TEST_P(KillNine, DuringBackupsOfManySmallFilesAndAFewLargeOnes) {
    BackupFixture f;
    const ProgramEnv env = StagingEnv(GetParam(), f.backup);
    f.SetOption("MaxBackups", "100");
    const std::string small = f.env.Path("small"), large = f.env.Path("large");
    MakeRandomFiles(small, 300, 1);
    CreateTree(large, Dir({{"a.bin", File(PatternContent(6 << 20))},
                           {"b.bin", File("b" + PatternContent(6 << 20))}}));
    f.AddSource(small);
    f.AddSource(large);
    ASSERT_EQ(Run({"backup"}, f.backup).exitCode, 0);
    // A run after changes like those of every round.
    Change(small, 0, 10);
    Change(large, 0, 2);
    KillPlan plan(40, TimeOf({"backup"}, env), env);
    AuditCache cache;
    for (int k = 1; !plan.Done(); ++k) {
        Change(small, k, 10);
        Change(large, k, 2);
        const Lines before = CommittedRuns(f.backup);
        plan.Run({"backup"});
        EXPECT_EQ(AuditBackupFolder(f.backup, AuditMoment::kJustKilled, &cache), Lines{}) << k;
        const ProgramRun clean = Run({"backup"}, f.backup);
        ASSERT_EQ(clean.exitCode, 0) << k << clean.err;
        EXPECT_EQ(AuditBackupFolder(f.backup, AuditMoment::kAfterCleanRun, &cache), Lines{}) << k;
        EXPECT_TRUE(Contains(CommittedRuns(f.backup), before)) << k;
    }
    EXPECT_EQ(plan.Kills(), 40) << "in " << plan.Tries() << " tries";
}

TEST_P(KillNine, DuringCompactsAfterALimitOfOneRun) {
    BackupFixture f;
    const ProgramEnv env = StagingEnv(GetParam(), f.backup);
    f.SetOption("MaxBackups", "1");
    const std::string src = f.env.Path("src");
    MakeRandomFiles(src, 300, 2);
    CreateTree(src + "/large", Dir({{"a.bin", File(PatternContent(4 << 20))}}));
    f.AddSource(src);
    ASSERT_EQ(Run({"backup"}, f.backup).exitCode, 0);
    Change(src, 0, 3);
    ASSERT_EQ(Run({"backup"}, f.backup).exitCode, 0);
    KillPlan plan(35, TimeOf({"compact"}, env), env);
    AuditCache cache;
    for (int k = 1; !plan.Done(); ++k) {
        Change(src, k, 3);
        ASSERT_EQ(Run({"backup"}, f.backup).exitCode, 0) << k;
        const Lines before = CommittedRuns(f.backup);
        plan.Run({"compact"});
        EXPECT_EQ(AuditBackupFolder(f.backup, AuditMoment::kJustKilled, &cache), Lines{}) << k;
        const ProgramRun clean = Run({"compact"}, f.backup);
        ASSERT_EQ(clean.exitCode, 0) << k << clean.err;
        EXPECT_EQ(AuditBackupFolder(f.backup, AuditMoment::kAfterCleanRun, &cache), Lines{}) << k;
        EXPECT_EQ(CommittedRuns(f.backup), before) << k;
    }
    EXPECT_EQ(plan.Kills(), 35) << "in " << plan.Tries() << " tries";
}

TEST_P(KillNine, DuringFirstStartsThatCreateTheCatalogue) {
    ScopedTestEnv env;
    // Every fresh backup folder lies below this one.
    const ProgramEnv staging = StagingEnv(GetParam(), env.Root());
    const auto freshFolder = [&](int k) {
        const std::string folder = env.Path("fresh" + std::to_string(k));
        CreateTree(folder, Dir());
        WriteRegSetting("BackupPath", folder);
        return folder;
    };
    freshFolder(0);
    KillPlan plan(30, TimeOf({"backup"}, staging), staging);
    for (int k = 1; !plan.Done(); ++k) {
        const std::string folder = freshFolder(k);
        plan.Run({"backup"});
        const ProgramRun clean = RunStashwell({"backup"}, 120, staging);
        ASSERT_EQ(clean.exitCode, 0) << k << clean.err;
        EXPECT_EQ(clean.err, "") << k;
        const std::string db = folder + "/db/Backup.db";
        EXPECT_EQ(SqlRows(db, "SELECT name FROM sqlite_master ORDER BY name"),
                  (std::vector<Lines>{{"Backups"},
                                      {"Files"},
                                      {"IDX_Files_1"},
                                      {"IDX_Files_2"},
                                      {"IDX_Paths_1"},
                                      {"Paths"},
                                      {"Setup"},
                                      {"Sources"}}))
            << k;
        EXPECT_EQ(SqlRows(db, "SELECT key, value FROM Setup"),
                  (std::vector<Lines>{{"DBVersion", "1"}}))
            << k;
        EXPECT_EQ(ListTree(folder + "/db"), Lines{"Backup.db"}) << k;
        EXPECT_EQ(AuditBackupFolder(folder), Lines{}) << k;
    }
    EXPECT_EQ(plan.Kills(), 30) << "in " << plan.Tries() << " tries";
}

} // namespace

namespace {
STAGING_WAYS_INSTANTIATE(KillNine);
} // namespace
