// The daily run as a Task Scheduler task: the definitions written for schtasks (the time, the
// start after a missed time, the program's path escaped), the exact calls made, the next run
// told from the definition kept, a problem told in words; and under Wine, the real schtasks.exe
// registering and deleting the task.

#include "TestSupport.h"
#include "app/CTaskScheduler.h"
#include "platform/modPlatformPaths.h"
#include "support/modDateText.h"

#ifndef _WIN32
#include "FakeSchedulerPrograms.h"
#endif

#include <ctime>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using Lines = std::vector<std::string>;

// UTF-16 little-endian bytes with their mark, back to text (the definitions are ASCII here).
std::string Narrowed(const std::string& bytes) {
    EXPECT_EQ(bytes.substr(0, 2), std::string("\xFF\xFE"));
    std::string text;
    for (size_t i = 2; i + 1 < bytes.size(); i += 2) {
        EXPECT_EQ(bytes[i + 1], 0) << "at " << i;
        text += bytes[i];
    }
    return text;
}

std::time_t NextAt(int hour, int minute) {
    const std::time_t now = std::time(nullptr);
    const std::time_t today = TimeOfDay(now, 0, hour, minute);
    return today > now ? today : TimeOfDay(now, 1, hour, minute);
}

TEST(TaskScheduler, TheDailyTaskRunsTheBackupAtItsTimeAndAfterATimeMissed) {
    const CTaskScheduler scheduler("C:\\Program Files\\Tom & Ann's\\stashwell.exe");
    const std::string task = scheduler.DailyTask(7, 5);
    EXPECT_NE(task.find("<StartBoundary>2000-01-01T07:05:00</StartBoundary>"), std::string::npos);
    EXPECT_NE(task.find("<DaysInterval>1</DaysInterval>"), std::string::npos);
    EXPECT_NE(task.find("<StartWhenAvailable>true</StartWhenAvailable>"), std::string::npos);
    EXPECT_NE(task.find("<LogonType>InteractiveToken</LogonType>"), std::string::npos);
    EXPECT_NE(
        task.find("<Command>C:\\Program Files\\Tom &amp; Ann&apos;s\\stashwell.exe</Command>"),
        std::string::npos);
    EXPECT_NE(task.find("<Arguments>backup</Arguments>"), std::string::npos);
    const std::string retry = scheduler.RetryTask("2026-11-26T21:30:00");
    EXPECT_NE(retry.find("<StartBoundary>2026-11-26T21:30:00</StartBoundary>"), std::string::npos);
    EXPECT_NE(retry.find("<Interval>PT5M</Interval>"), std::string::npos);
    EXPECT_NE(retry.find("<LogonTrigger>"), std::string::npos);
    EXPECT_EQ(scheduler.Name(), "the Task Scheduler task Stashwell\\Daily backup");
}

#ifndef _WIN32

TEST(TaskScheduler, InstallWritesTheDefinitionAndHasSchtasksMakeTheTask) {
    ScopedTestEnv env;
    FakeSchedulerPrograms fake(env);
    fake.Schtasks();
    CTaskScheduler scheduler("/opt/stashwell", "schtasks");
    EXPECT_TRUE(scheduler.Available());
    fake.ForgetCalls();
    EXPECT_EQ(scheduler.NextRun(), "");
    EXPECT_EQ(scheduler.Install(21, 30), "");
    const std::string file = StateFile(CTaskScheduler::kTaskFile);
    EXPECT_EQ(fake.Calls(),
              (Lines{"schtasks /Create /F /TN Stashwell\\Daily backup /XML " + file}));
    EXPECT_EQ(Narrowed(ReadFile(file)), scheduler.DailyTask(21, 30));
    EXPECT_EQ(scheduler.NextRun(), DateTimeText(NextAt(21, 30)));

    fake.ForgetCalls();
    EXPECT_EQ(scheduler.Remove(), "");
    EXPECT_EQ(fake.Calls(), (Lines{"schtasks /Delete /F /TN Stashwell\\Daily backup"}));
    EXPECT_FALSE(Exists(file));
    EXPECT_EQ(scheduler.NextRun(), "");
    // Nothing made, nothing to delete.
    fake.ForgetCalls();
    EXPECT_EQ(scheduler.Remove(), "");
    EXPECT_TRUE(fake.Calls().empty());
}

TEST(TaskScheduler, AnOwedRunIsTriedByATaskOfItsOwnUntilStopped) {
    ScopedTestEnv env;
    FakeSchedulerPrograms fake(env);
    fake.Schtasks();
    CTaskScheduler scheduler("/opt/stashwell", "schtasks");
    EXPECT_EQ(scheduler.Install(6, 0), "");
    EXPECT_EQ(scheduler.StartRetry(), "");
    const std::string retry = StateFile(CTaskScheduler::kRetryTaskFile);
    EXPECT_NE(Narrowed(ReadFile(retry)).find("<Interval>PT5M</Interval>"), std::string::npos);
    fake.ForgetCalls();
    EXPECT_EQ(scheduler.StopRetry(), "");
    EXPECT_EQ(fake.Calls(), (Lines{"schtasks /Delete /F /TN Stashwell\\Backup retry"}));
    EXPECT_FALSE(Exists(retry));
    // Removing the schedule also ends the tries.
    EXPECT_EQ(scheduler.StartRetry(), "");
    fake.ForgetCalls();
    EXPECT_EQ(scheduler.Remove(), "");
    EXPECT_EQ(fake.Calls(), (Lines{"schtasks /Delete /F /TN Stashwell\\Backup retry",
                                   "schtasks /Delete /F /TN Stashwell\\Daily backup"}));
}

TEST(TaskScheduler, ARefusalIsToldInWords) {
    ScopedTestEnv env;
    FakeSchedulerPrograms fake(env);
    fake.Schtasks("ERROR: Access is denied.");
    CTaskScheduler scheduler("/opt/stashwell", "schtasks");
    EXPECT_EQ(scheduler.Install(21, 30),
              "schtasks /Create failed (status 1): ERROR: Access is denied.");
}

TEST(TaskScheduler, WithoutSchtasksItIsNotAvailable) {
    ScopedTestEnv env;
    FakeSchedulerPrograms fake(env); // PATH holds only the fakes, and no schtasks
    CTaskScheduler scheduler("/opt/stashwell", "schtasks");
    EXPECT_FALSE(scheduler.Available());
}

#else

// Where Wine's Task Scheduler keeps a registered task.
std::string TaskFile(const std::string& name) {
    const char* root = std::getenv("SystemRoot");
    return std::string(root ? root : "C:\\windows") + "\\system32\\tasks\\" + name;
}

TEST(TaskScheduler, SchtasksRegistersTheDailyTaskAndDeletesIt) {
    ScopedTestEnv env;
    CTaskScheduler scheduler("C:\\Program Files\\Stashwell\\stashwell.exe");
    ASSERT_TRUE(scheduler.Available());
    EXPECT_EQ(scheduler.Install(21, 30), "");
    EXPECT_EQ(Narrowed(ReadFile(StateFile(CTaskScheduler::kTaskFile))),
              scheduler.DailyTask(21, 30));
    EXPECT_TRUE(Exists(TaskFile(CTaskScheduler::kTaskName)));
    EXPECT_EQ(scheduler.NextRun(), DateTimeText(NextAt(21, 30)));
    EXPECT_EQ(scheduler.StartRetry(), "");
    EXPECT_TRUE(Exists(TaskFile(CTaskScheduler::kRetryTaskName)));
    EXPECT_EQ(scheduler.Remove(), "");
    EXPECT_FALSE(Exists(TaskFile(CTaskScheduler::kTaskName)));
    EXPECT_FALSE(Exists(TaskFile(CTaskScheduler::kRetryTaskName)));
    EXPECT_EQ(scheduler.NextRun(), "");
}

#endif

} // namespace
