// Restores shared out among processes: every outcome comes back in its place whatever process
// restored it, long texts survive the pipe whole, and a worker that dies leaves its files
// named as not restored. Windows makes no such copies of a process: there the calling process
// restores every file itself.

#include "WindowsTestHelpers.h"
#include "cli/CRestoreWorkers.h"

#include <algorithm>
#include <gtest/gtest.h>
#ifndef _WIN32
#include <unistd.h>
#endif

namespace {

// This process's id.
uint32_t ThisProcess() {
#ifdef _WIN32
    return WindowsProcessId();
#else
    return static_cast<uint32_t>(::getpid());
#endif
}

RestoreOutcome Outcome(size_t i) {
    RestoreOutcome outcome;
    outcome.restored = i % 3 != 0;
    outcome.verified = i % 3 == 1;
    outcome.target = "/to/file " + std::to_string(i) + std::string(i % 7 == 0 ? 70000 : 0, 'x');
    outcome.problem = outcome.verified ? "" : "problem of " + std::to_string(i);
    return outcome;
}

void ExpectSame(const RestoreOutcome& got, const RestoreOutcome& want, size_t i) {
    EXPECT_EQ(got.restored, want.restored) << i;
    EXPECT_EQ(got.verified, want.verified) << i;
    EXPECT_EQ(got.target, want.target) << i;
    EXPECT_EQ(got.problem, want.problem) << i;
}

#ifdef _WIN32
TEST(RestoreWorkers, EveryOutcomeComesBackInItsPlaceFromTheCallingProcess) {
    const uint32_t self = ThisProcess();
    const size_t count = 1000;
    std::vector<size_t> progress, told;
    const auto outcomes = CRestoreWorkers(4).Run(
        count,
        [&](size_t i) {
            RestoreOutcome outcome = Outcome(i);
            if (ThisProcess() != self) outcome.problem = "restored in another process";
            return outcome;
        },
        [&](size_t done, size_t i) {
            progress.push_back(done);
            told.push_back(i);
        });
    ASSERT_EQ(outcomes.size(), count);
    for (size_t i = 0; i < count; ++i)
        ExpectSame(outcomes[i], Outcome(i), i);
    ASSERT_FALSE(progress.empty());
    EXPECT_EQ(progress.back(), count);
    // Each file is told once, as its outcome came in.
    EXPECT_EQ(progress.size(), count);
    std::sort(told.begin(), told.end());
    for (size_t i = 0; i < count; ++i)
        EXPECT_EQ(told[i], i);
}
#else
TEST(RestoreWorkers, EveryOutcomeComesBackInItsPlaceFromSeveralProcesses) {
    const pid_t self = ::getpid();
    const size_t count = 1000;
    std::vector<size_t> progress, told;
    const auto outcomes = CRestoreWorkers(4).Run(
        count,
        [&](size_t i) {
            RestoreOutcome outcome = Outcome(i);
            // Restored elsewhere than in this process.
            if (::getpid() == self) outcome.problem = "restored in the calling process";
            return outcome;
        },
        [&](size_t done, size_t i) {
            progress.push_back(done);
            told.push_back(i);
        });
    ASSERT_EQ(outcomes.size(), count);
    for (size_t i = 0; i < count; ++i)
        ExpectSame(outcomes[i], Outcome(i), i);
    ASSERT_FALSE(progress.empty());
    EXPECT_EQ(progress.back(), count);
    // Each file is told once, as its outcome came in.
    EXPECT_EQ(progress.size(), count);
    std::sort(told.begin(), told.end());
    for (size_t i = 0; i < count; ++i)
        EXPECT_EQ(told[i], i);
}
#endif

TEST(RestoreWorkers, FewFilesAreRestoredInTheCallingProcess) {
    const uint32_t self = ThisProcess();
    size_t calls = 0; // counted here only when the calls happen in this process
    const auto outcomes = CRestoreWorkers(4).Run(2 * CRestoreWorkers::kRun - 1,
                                                 [&](size_t i) {
                                                     EXPECT_EQ(ThisProcess(), self);
                                                     ++calls;
                                                     return Outcome(i);
                                                 },
                                                 {});
    EXPECT_EQ(calls, 2 * CRestoreWorkers::kRun - 1);
    for (size_t i = 0; i < outcomes.size(); ++i)
        ExpectSame(outcomes[i], Outcome(i), i);
}

#ifndef _WIN32
TEST(RestoreWorkers, AWorkerThatDiesLeavesItsRemainingFilesNotRestored) {
    const size_t count = 8 * CRestoreWorkers::kRun;
    const size_t fatal = 2 * CRestoreWorkers::kRun + 5; // in the share of worker 2 of 4
    const auto outcomes = CRestoreWorkers(4).Run(count,
                                                 [&](size_t i) {
                                                     if (i == fatal) ::_exit(9);
                                                     return Outcome(i);
                                                 },
                                                 {});
    for (size_t i = 0; i < count; ++i) {
        const bool lost = (i / CRestoreWorkers::kRun) % 4 == 2 && i >= fatal;
        if (!lost) {
            ExpectSame(outcomes[i], Outcome(i), i);
            continue;
        }
        EXPECT_FALSE(outcomes[i].restored) << i;
        EXPECT_EQ(outcomes[i].target, "") << i;
        EXPECT_EQ(outcomes[i].problem, "the worker that restored it stopped unexpectedly") << i;
    }
}
#endif

} // namespace
