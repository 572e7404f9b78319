// The record of the last backup and the Backup tab's line made from it: no run ever, a run
// today, a run 8 days ago, runs with problems, a failed last run after a completed one (within
// the week and not), the record's own text, and a damaged record read as none.

#include "TestSupport.h"
#include "app/CRunOutcome.h"
#include "app/modLastBackup.h"
#include "platform/modPlatformPaths.h"
#include "support/modDateText.h"

#include <gtest/gtest.h>

namespace {

constexpr std::time_t kDay = 24 * 60 * 60;
constexpr std::time_t kNow = 1764192600; // Wed 26 Nov 2026, 21:30 UTC

std::string Record() {
    return ReadFile(StateFolder() + Native("/last-backup"));
}

TEST(LastBackup, NoRunEverIsAWarning) {
    ScopedTestEnv env;
    const LastBackupLine line = LastBackupText(ReadLastBackup(), kNow);
    EXPECT_EQ(line.text, "Last backup: none yet");
    EXPECT_TRUE(line.warning);
}

TEST(LastBackup, ARunTodayThatCompletedIsShownPlainly) {
    ScopedTestEnv env;
    RecordRunEnd(CRunOutcome(), kNow - 3600);
    EXPECT_EQ(Record(), "ended=1764189000\noutcome=completed\nproblems=0\nreason=\n"
                        "completed=1764189000\n");
    const LastBackupLine line = LastBackupText(ReadLastBackup(), kNow);
    EXPECT_EQ(line.text, "Last backup: " + DateTimeText(kNow - 3600) + ", completed");
    EXPECT_FALSE(line.warning);
}

TEST(LastBackup, ARunEightDaysAgoIsOverdue) {
    ScopedTestEnv env;
    RecordRunEnd(CRunOutcome(), kNow - 8 * kDay);
    const LastBackupLine line = LastBackupText(ReadLastBackup(), kNow);
    EXPECT_EQ(line.text, "Last backup: " + DateTimeText(kNow - 8 * kDay) +
                             ", completed. No backup for 8 days");
    EXPECT_TRUE(line.warning);
    // Seven days are not overdue yet.
    EXPECT_FALSE(LastBackupText(ReadLastBackup(), kNow - kDay).warning);
}

TEST(LastBackup, ProblemsAreCounted) {
    ScopedTestEnv env;
    CRunOutcome outcome;
    outcome.SourceSkipped("/a", "it does not exist");
    RecordRunEnd(outcome, kNow);
    EXPECT_EQ(LastBackupText(ReadLastBackup(), kNow).text,
              "Last backup: " + DateTimeText(kNow) + ", completed with 1 problem");
    outcome.SourceSkipped("/b", "it does not exist");
    outcome.SourceSkipped("/c", "it does not exist");
    RecordRunEnd(outcome, kNow);
    const LastBackupLine line = LastBackupText(ReadLastBackup(), kNow);
    EXPECT_EQ(line.text, "Last backup: " + DateTimeText(kNow) + ", completed with 3 problems");
    EXPECT_FALSE(line.warning);
}

TEST(LastBackup, AFailedRunAfterACompletedOneIsShownWithItsReason) {
    ScopedTestEnv env;
    RecordRunEnd(CRunOutcome(), kNow - 2 * kDay);
    RecordRunFailed("backup drive /media/usb/Backup is not connected", kNow);
    EXPECT_EQ(Record(), "ended=1764192600\noutcome=failed\nproblems=0\nreason=backup drive "
                        "/media/usb/Backup is not connected\ncompleted=1764019800\n");
    LastBackupLine line = LastBackupText(ReadLastBackup(), kNow);
    EXPECT_EQ(line.text, "Last backup: " + DateTimeText(kNow) +
                             ", failed: backup drive /media/usb/Backup is not connected");
    EXPECT_FALSE(line.warning);
    // Ten days on, with failures only since, the last completed run is overdue.
    RecordRunFailed("backup drive /media/usb/Backup is not connected", kNow + 8 * kDay);
    line = LastBackupText(ReadLastBackup(), kNow + 8 * kDay);
    EXPECT_EQ(line.text, "Last backup: " + DateTimeText(kNow + 8 * kDay) +
                             ", failed: backup drive /media/usb/Backup is not connected. No "
                             "backup for 10 days");
    EXPECT_TRUE(line.warning);
}

TEST(LastBackup, AFailureBeforeAnyCompletedRunSaysSo) {
    ScopedTestEnv env;
    RecordRunFailed("the catalogue cannot be read:\nfile is not a database", kNow);
    const LastBackupLine line = LastBackupText(ReadLastBackup(), kNow);
    EXPECT_EQ(line.text, "Last backup: " + DateTimeText(kNow) +
                             ", failed: the catalogue cannot be read: file is not a database. No "
                             "backup has completed yet");
    EXPECT_TRUE(line.warning);
}

TEST(LastBackup, ALostRunIsAFailure) {
    ScopedTestEnv env;
    RecordRunEnd(CRunOutcome(), kNow - kDay);
    CRunOutcome lost;
    lost.Stopped("Disk full");
    SourceProblems problems;
    problems.lost = "the disk is full";
    lost.Add("/src", problems);
    RecordRunEnd(lost, kNow);
    const LastBackup last = ReadLastBackup();
    EXPECT_EQ(last.outcome, LastBackup::Outcome::kFailed);
    EXPECT_EQ(last.reason, "The run of /src was lost: the disk is full");
    EXPECT_EQ(last.lastCompleted, kNow - kDay);
}

TEST(LastBackup, ADamagedRecordIsReadAsNone) {
    ScopedTestEnv env;
    MakePrivateFolders(StateFolder());
    WriteFile(StateFolder() + Native("/last-backup"), "\x01garbage\nended=yesterday\n");
    EXPECT_EQ(ReadLastBackup().outcome, LastBackup::Outcome::kNone);
    EXPECT_EQ(LastBackupText(ReadLastBackup(), kNow).text, "Last backup: none yet");
}

} // namespace
