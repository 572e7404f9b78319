// How a run's end is told: one plain line per problem, long lists cut short with a count, and
// the exit status and verdict of each kind of end.

#include "app/CRunOutcome.h"

#include "TestSupport.h"

#include <gtest/gtest.h>

namespace {

using Lines = std::vector<std::string>;

TEST(RunOutcome, NothingWrongIsCompleteWithStatusZeroAndNoVerdict) {
    CRunOutcome outcome;
    outcome.Add("/src", SourceProblems{});
    EXPECT_EQ(outcome.Ended(), CRunOutcome::End::kComplete);
    EXPECT_EQ(outcome.ExitStatus(), 0);
    EXPECT_EQ(outcome.Lines(), Lines{});
    EXPECT_EQ(outcome.Verdict("/b/Logs/QRV-20261122.LOG"), "");
}

TEST(RunOutcome, EachKindOfProblemHasItsLineInOrder) {
    SourceProblems problems;
    problems.unreadableFolders = {"/src/locked: permission denied"};
    problems.unreadableFiles = {"/src/a: permission denied", "/src/b: it no longer exists"};
    problems.notStored = {"/src/c: the copy into the store failed"};
    problems.recordedNotStored = {"/src/d: not enough free space on the backup drive"};
    CRunOutcome outcome;
    outcome.SourceSkipped("/gone", "it does not exist");
    outcome.Add("/src", problems);
    EXPECT_EQ(
        outcome.Lines(),
        (Lines{"Source /gone was not backed up: it does not exist",
               "Could not read the folder /src/locked: permission denied",
               "Could not read /src/a: permission denied",
               "Could not read /src/b: it no longer exists", "2 files of /src could not be read",
               "Not backed up: /src/c: the copy into the store failed",
               "Recorded but not stored: /src/d: not enough free space on the backup drive"}));
    EXPECT_EQ(outcome.Ended(), CRunOutcome::End::kProblems);
    EXPECT_EQ(outcome.ExitStatus(), 4);
    EXPECT_EQ(outcome.Verdict("/b/Logs/QRV-20261122.LOG"),
              "Backup completed with problems. The log /b/Logs/QRV-20261122.LOG has the details.");
}

TEST(RunOutcome, ALostRunOutweighsProblems) {
    SourceProblems problems;
    problems.unreadableFiles = {"/one/a: permission denied"};
    problems.lost = "the catalogue could not record the run: database is locked";
    CRunOutcome outcome;
    outcome.Add("/one", problems);
    EXPECT_EQ(outcome.Lines().back(),
              "The run of /one was lost: the catalogue could not record the run: database is "
              "locked");
    EXPECT_EQ(outcome.LostSources(), 1);
    EXPECT_EQ(outcome.ExitStatus(), 5);
    EXPECT_EQ(outcome.Verdict("/L"), "Backup failed: 1 run was lost. The log /L has the details.");
    outcome.Add("/two", problems);
    EXPECT_EQ(outcome.Verdict("/L"),
              "Backup failed: 2 runs were lost. The log /L has the details.");
}

TEST(RunOutcome, WhatFailedAfterACommitIsAProblemOfASavedRunNeverALoss) {
    SourceProblems problems;
    problems.afterCommit = "Overflow";
    CRunOutcome outcome;
    outcome.Add("/src", problems);
    outcome.EndFailed("Device I/O error");
    EXPECT_EQ(outcome.Lines(),
              (Lines{"The run of /src was saved, but a step after saving it failed: Overflow",
                     "Every run was saved, but the end of the backup failed: Device I/O error"}));
    EXPECT_EQ(outcome.LostSources(), 0);
    EXPECT_EQ(outcome.Ended(), CRunOutcome::End::kProblems);
    EXPECT_EQ(outcome.ExitStatus(), 4);
}

TEST(RunOutcome, ALongListIsCutShortWithACount) {
    SourceProblems problems;
    for (size_t i = 0; i < CRunOutcome::kListedPerKind + 3; ++i)
        problems.unreadableFiles.push_back("/src/f" + std::to_string(i) + ": permission denied");
    CRunOutcome outcome;
    outcome.Add("/src", problems);
    const Lines& lines = outcome.Lines();
    ASSERT_EQ(lines.size(), CRunOutcome::kListedPerKind + 2);
    EXPECT_EQ(lines[CRunOutcome::kListedPerKind - 1], "Could not read /src/f49: permission denied");
    EXPECT_EQ(lines[CRunOutcome::kListedPerKind], "... and 3 more of /src that could not be read");
    EXPECT_EQ(lines.back(), "53 files of /src could not be read");
}

TEST(RunOutcome, ClearStartsAfresh) {
    CRunOutcome outcome;
    outcome.Stopped("Overflow");
    outcome.Clear();
    EXPECT_EQ(outcome.ExitStatus(), 0);
    EXPECT_EQ(outcome.Lines(), Lines{});
}

TEST(SourceProblemText, MissingFileAndFolderSources) {
    ScopedTestEnv env;
    WriteFile(env.Path("file.txt"), "x");
    EXPECT_EQ(SourceProblem(env.Path("gone")), "it does not exist");
    EXPECT_EQ(SourceProblem(env.Path("file.txt")), "it is not a folder");
    EXPECT_EQ(SourceProblem(env.Path("file.txt/below")), "not a directory");
}

} // namespace
