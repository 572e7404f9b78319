// The daily backup set from the schedule controls, against a fake systemctl and a fake crontab
// that the test puts first on PATH and that record every call: the exact unit files written
// (and passed through systemd-analyze verify where it is installed), enabling, a change of
// time, turning off and the files' removal; the crontab taking over where no systemd user
// instance answers, with the user's other lines kept byte for byte; a box and the switch back
// off where neither answers; the stored keys, also damaged ones.

#include "BackupFixture.h"
#include "FakeSchedulerPrograms.h"
#include "TestSupport.h"
#include "app/CCronScheduler.h"
#include "app/CSystemdScheduler.h"
#include "app/modOwedRun.h"
#include "app/modSchedule.h"
#include "app/modSetup.h"
#include "platform/modClock.h"
#include "platform/modPlatformPaths.h"
#include "platform/modProcess.h"
#include "support/modDateText.h"

#include <filesystem>
#include <gtest/gtest.h>

namespace {

using Lines = std::vector<std::string>;
using Calls = std::vector<CScriptedMessageBox::Call>;

#ifndef _WIN32

constexpr std::time_t kNextElapse = FakeSchedulerPrograms::kNextElapse;

struct ScheduleTest : ::testing::Test {
    BackupFixture f;
    FakeSchedulerPrograms fakes{f.env};
    std::string log = StartTestLog(f.env);
    std::string units = f.env.ConfigHome() + "/systemd/user";
    const std::string program = "/opt/Stash well/stashwell";

    ScheduleTest() {
        SetSchedulerSource([this] { return SystemSchedulers(program); });
    }

    ScheduleView Apply(bool enabled, int hour, int minute) {
        return ApplySchedule({enabled, hour, minute}, SystemSchedulers(program));
    }
    Lines Log() const { return LogMessages(ReadFile(log)); }
};

const char* const kService =
    "# Stashwell's daily backup, written by its window when \"Back up every day at\" was\n"
    "# ticked; unticking it removes this file and stashwell-backup.timer again.\n"
    "\n"
    "[Unit]\n"
    "Description=Stashwell backup of every source\n"
    "Documentation=man:stashwell(1) man:qrv(1)\n"
    "\n"
    "[Service]\n"
    "Type=oneshot\n"
    "ExecStart=\"/opt/Stash well/stashwell\" backup\n"
    "# No window: the run is headless and does not depend on the session staying open.\n"
    "UnsetEnvironment=DISPLAY WAYLAND_DISPLAY QT_QPA_PLATFORM\n"
    "# Leave the computer to whoever uses it meanwhile.\n"
    "Nice=19\n"
    "CPUSchedulingPolicy=idle\n"
    "IOSchedulingClass=idle\n";

std::string Timer(const std::string& time) {
    return "# Starts stashwell-backup.service every day at " + time +
           ", written by Stashwell's window.\n"
           "# A day whose time passed while the computer was off is made up soon after the next\n"
           "# start (Persistent=true).\n"
           "\n"
           "[Unit]\n"
           "Description=Daily Stashwell backup at " +
           time +
           "\n"
           "Documentation=man:stashwell(1)\n"
           "\n"
           "[Timer]\n"
           "OnCalendar=*-*-* " +
           time +
           ":00\n"
           "Persistent=true\n"
           "\n"
           "[Install]\n"
           "WantedBy=timers.target\n";
}

const Lines kInstallCalls = {"systemctl --user show-environment", "systemctl --user daemon-reload",
                             "systemctl --user enable stashwell-backup.timer",
                             "systemctl --user restart stashwell-backup.timer",
                             "systemctl --user show stashwell-backup.timer "
                             "--property=NextElapseUSecRealtime --value --timestamp=unix"};

TEST_F(ScheduleTest, TurningItOnWritesTheUnitsEnablesTheTimerAndShowsTheNextRun) {
    fakes.Systemctl();
    const ScheduleView view = Apply(true, 21, 30);
    EXPECT_TRUE(view.enabled);
    EXPECT_EQ(view.next, "Next backup: " + DateTimeText(kNextElapse));
    EXPECT_EQ(fakes.Calls(), kInstallCalls);
    EXPECT_EQ(ReadFile(units + "/stashwell-backup.service"), kService);
    EXPECT_EQ(ReadFile(units + "/stashwell-backup.timer"), Timer("21:30"));
    EXPECT_EQ(ListTree(units), (Lines{"stashwell-backup.service", "stashwell-backup.timer"}));
    EXPECT_EQ(Log().back(), "The daily backup at 21:30 is set through the systemd user timer "
                            "stashwell-backup.timer. Next backup: " +
                                DateTimeText(kNextElapse) + "\r\n");
    EXPECT_TRUE(f.env.box.calls.empty());
}

TEST_F(ScheduleTest, TheUnitsWrittenAreOnesSystemdAccepts) {
    if (!std::filesystem::exists("/usr/bin/systemd-analyze"))
        GTEST_SKIP() << "systemd-analyze is not installed";
    fakes.Systemctl();
    Apply(true, 6, 5);
    // The service's program must exist for verify to accept it: /bin/true stands in.
    const std::string service = ReadFile(units + "/stashwell-backup.service");
    std::string checked = service;
    checked.replace(checked.find("\"/opt/Stash well/stashwell\""), 27, "/bin/true");
    const std::string folder = f.env.Path("verify");
    std::filesystem::create_directories(folder);
    WriteFile(folder + "/stashwell-backup.service", checked);
    WriteFile(folder + "/stashwell-backup.timer", ReadFile(units + "/stashwell-backup.timer"));
    WriteFile(folder + "/stashwell-backup-retry.timer", CSystemdScheduler::RetryTimerText());
    const ProgramAnswer answer =
        RunAndWait("/usr/bin/systemd-analyze",
                   {"verify", "--man=no", folder + "/stashwell-backup.service",
                    folder + "/stashwell-backup.timer", folder + "/stashwell-backup-retry.timer"});
    EXPECT_EQ(answer.exitCode, 0) << answer.errors;
    EXPECT_EQ(answer.errors, "");
}

TEST_F(ScheduleTest, AChangeOfTimeRewritesTheTimerAndRestartsIt) {
    fakes.Systemctl();
    Apply(true, 21, 30);
    fakes.ForgetCalls();
    const ScheduleView view = Apply(true, 6, 5);
    EXPECT_TRUE(view.enabled);
    EXPECT_EQ(fakes.Calls(), kInstallCalls);
    EXPECT_EQ(ReadFile(units + "/stashwell-backup.timer"), Timer("06:05"));
}

TEST_F(ScheduleTest, TurningItOffDisablesTheTimerAndRemovesBothFiles) {
    fakes.Systemctl();
    Apply(true, 21, 30);
    fakes.ForgetCalls();
    const ScheduleView view = Apply(false, 21, 30);
    EXPECT_FALSE(view.enabled);
    EXPECT_EQ(view.next, "");
    EXPECT_EQ(fakes.Calls(), (Lines{"systemctl --user show-environment",
                                    "systemctl --user disable --now stashwell-backup.timer",
                                    "systemctl --user daemon-reload"}));
    EXPECT_EQ(ListTree(units), Lines{});
    EXPECT_EQ(Log().back(), "The daily backup is turned off\r\n");
}

TEST_F(ScheduleTest, TheExampleUnitsOfThePackageAreTakenOver) {
    fakes.Systemctl();
    std::filesystem::create_directories(units);
    WriteFile(units + "/stashwell-backup.service",
              "[Service]\nExecStart=/usr/bin/stashwell backup\n");
    WriteFile(units + "/stashwell-backup.timer", "[Timer]\nOnCalendar=daily\n");
    Apply(true, 2, 0);
    EXPECT_EQ(ListTree(units), (Lines{"stashwell-backup.service", "stashwell-backup.timer"}));
    EXPECT_EQ(ReadFile(units + "/stashwell-backup.service"), kService);
    EXPECT_EQ(ReadFile(units + "/stashwell-backup.timer"), Timer("02:00"));
}

TEST_F(ScheduleTest, AStepThatFailsIsShownAndTheSwitchGoesBackOff) {
    fakes.Systemctl(true, "enable");
    f.SetOption("SchedEnabled", "1");
    const ScheduleView view = Apply(true, 21, 30);
    EXPECT_FALSE(view.enabled);
    const std::string message = "The daily backup at 21:30 could not be set through the systemd "
                                "user timer stashwell-backup.timer: systemctl --user enable "
                                "stashwell-backup.timer failed (status 1): Access denied";
    EXPECT_EQ(f.env.box.calls, (Calls{{message, 48, "QRV - Stashwell"}}));
    EXPECT_EQ(GetSetupValue("SchedEnabled"), "0");
    EXPECT_EQ(Log().back(), "Problem: " + message + "\r\n");
}

TEST_F(ScheduleTest, WithoutASystemdUserInstanceOneCrontabLineIsWrittenAndTheOtherLinesKept) {
    fakes.Systemctl(false);
    fakes.Crontab();
    const std::string own = "MAILTO=me@example.org\n# my jobs\n0 * * * * echo 'hourly' %x\n\n"
                            "@reboot /usr/bin/true # not Stashwell's";
    WriteFile(fakes.crontab, own);
    const ScheduleView view = Apply(true, 21, 30);
    EXPECT_TRUE(view.enabled);
    const std::string line = "30 21 * * * '/opt/Stash well/stashwell' backup # stashwell-backup";
    EXPECT_EQ(ReadFile(fakes.crontab), own + "\n" + line + "\n");
    EXPECT_FALSE(std::filesystem::exists(units));
    EXPECT_EQ(Log().back(), "The daily backup at 21:30 is set through the user's crontab. "
                            "Next backup: " +
                                view.next.substr(13) + "\r\n");
    EXPECT_NE(view.next.find("21:30:00"), std::string::npos) << view.next;

    // Another time replaces the line; turning off takes it away, and the user's lines are as
    // they were, byte for byte.
    Apply(true, 7, 0);
    EXPECT_EQ(ReadFile(fakes.crontab),
              own + "\n0 7 * * * '/opt/Stash well/stashwell' backup # stashwell-backup\n");
    Apply(false, 7, 0);
    EXPECT_EQ(ReadFile(fakes.crontab), own + "\n");
}

TEST_F(ScheduleTest, WithoutAnyCrontabYetOneIsMadeWithTheLineAlone) {
    fakes.Systemctl(false);
    fakes.Crontab();
    Apply(true, 0, 0);
    EXPECT_EQ(ReadFile(fakes.crontab),
              "0 0 * * * '/opt/Stash well/stashwell' backup # stashwell-backup\n");
    fakes.ForgetCalls();
    Apply(false, 0, 0);
    EXPECT_EQ(ReadFile(fakes.crontab), "");
}

TEST_F(ScheduleTest, NoSchedulerShowsTheBoxAndTheSwitchGoesBackOff) {
    // Neither program on the search path.
    f.SetOption("SchedEnabled", "1");
    const ScheduleView view = Apply(true, 21, 30);
    EXPECT_FALSE(view.enabled);
    EXPECT_EQ(view.next, "");
    const std::string message =
        "This system cannot schedule backups: no systemd user instance answers and there is no "
        "crontab. To back up every day, have a scheduler of your choice run \"" +
        ScheduledProgram() + " backup\".";
    EXPECT_EQ(f.env.box.calls, (Calls{{message, 48, "QRV - Stashwell"}}));
    EXPECT_EQ(GetSetupValue("SchedEnabled"), "0");
    EXPECT_EQ(Log().back(), "Problem: " + message + "\r\n");
}

TEST_F(ScheduleTest, TheTimeBoxesWhileTheSwitchIsOffOnlyStoreTheirKeys) {
    fakes.Systemctl();
    const ScheduleView view = ScheduleChanged("Hour", "6");
    EXPECT_FALSE(view.enabled);
    EXPECT_EQ(GetSetupValue("Hour"), "6");
    EXPECT_EQ(fakes.Calls(), Lines{});
}

TEST_F(ScheduleTest, TheSwitchStoresItsKeyAndSetsTheStoredTime) {
    fakes.Systemctl();
    f.SetOption("Hour", "5");
    f.SetOption("Minute", "45");
    const ScheduleView view = ScheduleChanged("SchedEnabled", "1");
    EXPECT_TRUE(view.enabled);
    EXPECT_EQ(GetSetupValue("SchedEnabled"), "1");
    EXPECT_EQ(ReadFile(units + "/stashwell-backup.timer"), Timer("05:45"));
    // The minute box while the switch is on sets the new time at once.
    ScheduleChanged("Minute", "50");
    EXPECT_EQ(ReadFile(units + "/stashwell-backup.timer"), Timer("05:50"));
}

TEST_F(ScheduleTest, AtTheStartTheNextRunIsAskedAndNothingChanged) {
    fakes.Systemctl();
    f.SetOption("SchedEnabled", "1");
    const ScheduleView view = ScheduleAtStart();
    EXPECT_TRUE(view.enabled);
    EXPECT_EQ(view.next, "Next backup: " + DateTimeText(kNextElapse));
    EXPECT_EQ(fakes.Calls(), (Lines{"systemctl --user show-environment",
                                    "systemctl --user show stashwell-backup.timer "
                                    "--property=NextElapseUSecRealtime --value "
                                    "--timestamp=unix"}));
}

const char* const kRetryTimer =
    "# Starts stashwell-backup.service every 5 minutes while a daily backup is owed\n"
    "# because the backup drive was away, written by Stashwell; it is removed again once\n"
    "# the backup was made.\n"
    "\n"
    "[Unit]\n"
    "Description=Stashwell backup owed, tried every 5 minutes\n"
    "Documentation=man:stashwell(1)\n"
    "\n"
    "[Timer]\n"
    "OnActiveSec=5min\n"
    "OnUnitInactiveSec=5min\n"
    "Unit=stashwell-backup.service\n"
    "\n"
    "[Install]\n"
    "WantedBy=timers.target\n";

// A daily backup at 21:30 is set; `missed` is a moment a minute after one of its times.
struct OwedRunTest : ScheduleTest {
    std::time_t missed = DailySlot(21, 30, std::time(nullptr)) + 60;
    std::string record = StateFolder() + "/owed-backup";

    void SetDaily() {
        f.SetOption("Hour", "21");
        f.SetOption("Minute", "30");
        ScheduleChanged("SchedEnabled", "1");
        fakes.ForgetCalls();
    }
    std::string Owed(std::time_t slot) const {
        return "The daily backup of " + DateTimeText(slot) + " is owed\r\n";
    }
};

TEST_F(OwedRunTest, AMissedRunStartsItsTriesOnceAndIsToldOncePerDailyTime) {
    fakes.Systemctl();
    SetDaily();
    const std::time_t slot = missed - 60;
    const size_t before = Log().size();
    EXPECT_TRUE(OweRun(missed));
    EXPECT_EQ(fakes.Calls(),
              (Lines{"systemctl --user show-environment", "systemctl --user daemon-reload",
                     "systemctl --user enable --now stashwell-backup-retry.timer"}));
    EXPECT_EQ(ReadFile(units + "/stashwell-backup-retry.timer"), kRetryTimer);
    EXPECT_EQ(ReadOwedRun().slot, slot);
    EXPECT_TRUE(ReadOwedRun().retrying);
    const Lines log = Log();
    EXPECT_EQ(Lines(log.begin() + static_cast<std::ptrdiff_t>(before), log.end()),
              (Lines{Owed(slot), "The owed backup is tried again every 5 minutes through the "
                                 "systemd user timer stashwell-backup.timer until the backup "
                                 "drive is back\r\n"}));

    // The tries find the drive still away: nobody is told again, and nothing is started again.
    fakes.ForgetCalls();
    const size_t tried = Log().size();
    EXPECT_FALSE(OweRun(missed + 5 * 60));
    EXPECT_FALSE(OweRun(missed + 23 * 3600));
    EXPECT_EQ(fakes.Calls(), Lines{});
    EXPECT_EQ(Log().size(), tried);

    // The next day's time passes with the drive still away: that missed run is told.
    EXPECT_TRUE(OweRun(missed + 24 * 3600));
    EXPECT_EQ(Log().back(), Owed(DailySlot(21, 30, missed + 24 * 3600)));
    EXPECT_EQ(fakes.Calls(), Lines{});
}

TEST_F(OwedRunTest, ARunThatIsMadeStopsTheTriesAndTheRecordGoes) {
    fakes.Systemctl();
    SetDaily();
    OweRun(missed);
    fakes.ForgetCalls();
    PayOwedRun();
    EXPECT_EQ(fakes.Calls(), (Lines{"systemctl --user show-environment",
                                    "systemctl --user disable --now stashwell-backup-retry.timer",
                                    "systemctl --user daemon-reload"}));
    EXPECT_EQ(ListTree(units), (Lines{"stashwell-backup.service", "stashwell-backup.timer"}));
    EXPECT_FALSE(std::filesystem::exists(record));
    EXPECT_EQ(ReadOwedRun().slot, 0);
    EXPECT_EQ(Log().back(), "The backup owed since " + DateTimeText(missed - 60) +
                                " was made; its tries are stopped\r\n");

    // Without a run owed, a run that is made asks nothing of the scheduler.
    fakes.ForgetCalls();
    PayOwedRun();
    EXPECT_EQ(fakes.Calls(), Lines{});
}

TEST_F(OwedRunTest, ADamagedRecordStillHasItsTriesStopped) {
    fakes.Systemctl();
    SetDaily();
    OweRun(missed);
    WriteFile(record, "slot=yesterday\x01\n");
    fakes.ForgetCalls();
    PayOwedRun();
    EXPECT_EQ(fakes.Calls(), (Lines{"systemctl --user show-environment",
                                    "systemctl --user disable --now stashwell-backup-retry.timer",
                                    "systemctl --user daemon-reload"}));
    EXPECT_FALSE(std::filesystem::exists(record));
    EXPECT_EQ(Log().back(), "The backup owed was made; its tries are stopped\r\n");
}

TEST_F(OwedRunTest, TurningTheScheduleOffForgetsTheOwedRun) {
    fakes.Systemctl();
    SetDaily();
    OweRun(missed);
    fakes.ForgetCalls();
    ScheduleChanged("SchedEnabled", "0");
    EXPECT_EQ(ListTree(units), Lines{});
    EXPECT_FALSE(std::filesystem::exists(record));
    const Lines log = Log();
    ASSERT_GE(log.size(), 2u);
    EXPECT_EQ(log[log.size() - 2], "The backup owed since " + DateTimeText(missed - 60) +
                                       " is forgotten with the daily schedule\r\n");
    EXPECT_EQ(log.back(), "The daily backup is turned off\r\n");
}

TEST_F(OwedRunTest, TheDailyTimeInForceIsKeptOutsideTheBackupFolder) {
    fakes.Systemctl();
    const std::string kept = StateFolder() + "/daily-backup";
    SetDaily();
    EXPECT_EQ(ReadFile(kept), "21:30\n");
    EXPECT_TRUE(ScheduleInForce().enabled);
    EXPECT_EQ(ScheduleInForce().hour, 21);
    EXPECT_EQ(ScheduleInForce().minute, 30);
    ScheduleChanged("Hour", "6");
    EXPECT_EQ(ReadFile(kept), "06:30\n");
    ScheduleChanged("SchedEnabled", "0");
    EXPECT_FALSE(std::filesystem::exists(kept));
    EXPECT_FALSE(ScheduleInForce().enabled);

    // A schedule that cannot be set is none; a damaged record is none either.
    fakes.Systemctl(true, "enable");
    ScheduleChanged("SchedEnabled", "1");
    EXPECT_FALSE(std::filesystem::exists(kept));
    for (const char* damaged : {"24:00\n", "21:30", "x\n", "", "21:301\n"}) {
        WriteFile(kept, damaged);
        EXPECT_FALSE(ScheduleInForce().enabled) << damaged;
    }

    // A schedule stored before the record was kept gets it at the window's start.
    std::filesystem::remove(kept);
    fakes.Systemctl();
    f.SetOption("SchedEnabled", "1");
    ScheduleAtStart();
    EXPECT_EQ(ReadFile(kept), "06:30\n");
}

TEST_F(OwedRunTest, WithoutTheScheduleNothingIsOwedAndEveryRunIsTold) {
    fakes.Systemctl();
    f.SetOption("SchedEnabled", "1"); // stored, but never set through a scheduler
    EXPECT_TRUE(OweRun(missed));
    EXPECT_TRUE(OweRun(missed + 60));
    EXPECT_EQ(fakes.Calls(), Lines{});
    EXPECT_FALSE(std::filesystem::exists(record));
}

TEST_F(OwedRunTest, ARetryThatCannotStartIsAProblemAndTheRunIsStillTold) {
    fakes.Systemctl(true, "retry");
    SetDaily();
    EXPECT_TRUE(OweRun(missed));
    EXPECT_FALSE(ReadOwedRun().retrying);
    EXPECT_EQ(Log().back(), "Problem: The owed backup cannot be tried again through the systemd "
                            "user timer stashwell-backup.timer: systemctl --user enable --now "
                            "stashwell-backup-retry.timer failed (status 1): Access denied\r\n");
}

TEST_F(OwedRunTest, TheCrontabTriesAnOwedRunWithASecondLineAndTakesItAway) {
    fakes.Systemctl(false);
    fakes.Crontab();
    const std::string own = "MAILTO=me@example.org\n0 * * * * echo 'hourly'\n";
    WriteFile(fakes.crontab, own);
    SetDaily();
    const std::string daily = "30 21 * * * '/opt/Stash well/stashwell' backup # stashwell-backup\n";
    const std::string retry =
        "*/5 * * * * '/opt/Stash well/stashwell' backup # stashwell-backup-retry\n";
    EXPECT_TRUE(OweRun(missed));
    EXPECT_EQ(ReadFile(fakes.crontab), own + daily + retry);
    EXPECT_EQ(Log().back(), "The owed backup is tried again every 5 minutes through the user's "
                            "crontab until the backup drive is back\r\n");
    PayOwedRun();
    EXPECT_EQ(ReadFile(fakes.crontab), own + daily);

    // Turning the schedule off while a run is owed takes both lines away.
    OweRun(missed);
    ScheduleChanged("SchedEnabled", "0");
    EXPECT_EQ(ReadFile(fakes.crontab), own);
}

#endif

TEST(Schedule, TheDailyTimeOfARunIsTheLastOneAtOrBeforeIt) {
    std::tm at = LocalTime(std::time(nullptr));
    at.tm_hour = 22;
    at.tm_min = 0;
    at.tm_sec = 0;
    at.tm_isdst = -1;
    std::tm copy = at;
    const std::time_t tenPm = std::mktime(&copy);
    copy = at;
    copy.tm_hour = 21;
    copy.tm_min = 30;
    const std::time_t today = std::mktime(&copy);
    copy = at;
    copy.tm_mday -= 1;
    copy.tm_hour = 21;
    copy.tm_min = 30;
    const std::time_t yesterday = std::mktime(&copy);
    EXPECT_EQ(DailySlot(21, 30, tenPm), today);
    EXPECT_EQ(DailySlot(21, 30, today), today);
    EXPECT_EQ(DailySlot(21, 30, today - 1), yesterday);
    EXPECT_EQ(DailySlot(23, 0, tenPm), yesterday + 90 * 60);
}

TEST(Schedule, StoredKeysAreReadAndDamagedOnesGiveTheDefaults) {
    BackupFixture f;
    const std::string log = StartTestLog(f.env);
    EXPECT_FALSE(LoadSchedule().enabled);
    EXPECT_EQ(LoadSchedule().hour, 21);
    EXPECT_EQ(LoadSchedule().minute, 0);
    f.SetOption("SchedEnabled", "1");
    f.SetOption("Hour", "7");
    f.SetOption("Minute", "05");
    Schedule stored = LoadSchedule();
    EXPECT_TRUE(stored.enabled);
    EXPECT_EQ(stored.hour, 7);
    EXPECT_EQ(stored.minute, 5);
    EXPECT_TRUE(LogMessages(ReadFile(log)).empty());

    f.SetOption("SchedEnabled", "yes");
    f.SetOption("Hour", "24");
    f.SetOption("Minute", "-1");
    stored = LoadSchedule();
    EXPECT_FALSE(stored.enabled);
    EXPECT_EQ(stored.hour, 21);
    EXPECT_EQ(stored.minute, 0);
    EXPECT_EQ(LogMessages(ReadFile(log)),
              (Lines{"Problem: The option SchedEnabled holds \"yes\", which is not a number from "
                     "0 to 1; 0 is shown\r\n",
                     "Problem: The option Hour holds \"24\", which is not a number from 0 to 23; "
                     "21 is shown\r\n",
                     "Problem: The option Minute holds \"-1\", which is not a number from 0 to "
                     "59; 0 is shown\r\n"}));
}

TEST(Schedule, TheCrontabLineIsFoundAndReplacedAmongOtherLines) {
    const std::string line = "5 4 * * * 'x' backup # stashwell-backup";
    EXPECT_EQ(CCronScheduler::WithLine("", line), line + "\n");
    EXPECT_EQ(CCronScheduler::WithLine("a\nb", line), "a\nb\n" + line + "\n");
    EXPECT_EQ(CCronScheduler::WithLine("a\n1 2 * * * old backup # stashwell-backup\nb\n", line),
              "a\nb\n" + line + "\n");
    EXPECT_EQ(CCronScheduler::WithLine("a\n1 2 * * * old backup # stashwell-backup\nb\n", ""),
              "a\nb\n");
    EXPECT_EQ(CCronScheduler::WithLine("\r\n# stashwell-backup-not\n", ""),
              "\r\n# stashwell-backup-not\n");
    EXPECT_EQ(CCronScheduler("/a'b%c").Line(21, 30),
              "30 21 * * * '/a'\\''b\\%c' backup # stashwell-backup");
}

} // namespace
