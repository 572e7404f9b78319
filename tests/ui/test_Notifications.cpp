// The real program tells the desktop when an unattended run went wrong: a private session bus
// (dbus-daemon) with a stand-in for the notification service (tests/dbus) that records every
// Notify call, and the real stashwell run on it, without a display and with the window
// present: an unplugged drive, a daily run missed because of it (told once, not at each try),
// a missing source, a lost run, a success (told only with the option), and no bus at all (the run's
// outcome and exit status unchanged).

#include "BackupFixture.h"
#include "FakeSchedulerPrograms.h"
#include "TestProgram.h"
#include "app/modOwedRun.h"
#include "app/modPaths.h"
#include "app/modSchedule.h"
#include "platform/modProcess.h"
#include "support/modDateText.h"

#include <QtTest>
#include <sqlite3.h>

#include <chrono>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <memory>
#include <thread>

namespace {

using Lines = std::vector<std::string>;

// A session bus of the test's own and the stand-in serving on it, for as long as the object
// lives.
class PrivateBus {
public:
    explicit PrivateBus(const ScopedTestEnv& env)
        : calls(env.Path("notifications")), m_ready(env.Path("notifications-ready")) {
        const ProgramAnswer daemon = RunAndWait(
            "dbus-daemon", {"--session", "--fork", "--print-address=1", "--print-pid=1"});
        const size_t end = daemon.output.find('\n');
        if (daemon.exitCode != 0 || end == std::string::npos) return;
        address = daemon.output.substr(0, end);
        m_daemon = std::atoi(daemon.output.c_str() + end + 1);
        m_service = std::make_unique<RunningProgram>(
            std::vector<std::string>{address, calls, m_ready}, ProgramEnv{}, FAKE_NOTIFICATIONS);
        for (int i = 0; i < 200 && !Exists(m_ready); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(25));
    }
    ~PrivateBus() {
        m_service.reset();
        if (m_daemon > 0) ::kill(m_daemon, SIGTERM);
    }
    bool Serving() const { return !address.empty() && Exists(m_ready); }
    // The calls recorded, one a line: "app|summary|body".
    Lines Calls() const {
        Lines lines;
        if (!Exists(calls)) return lines;
        const std::string text = ReadFile(calls);
        for (size_t start = 0, end; start < text.size(); start = end + 1) {
            end = text.find('\n', start);
            lines.push_back(text.substr(start, end - start));
        }
        return lines;
    }

    std::string address;
    const std::string calls;

private:
    std::string m_ready;
    int m_daemon = 0;
    std::unique_ptr<RunningProgram> m_service;
};

std::string TodaysLog(const std::string& backup) {
    return backup + "/Logs/QRV-" + DateStamp(std::time(nullptr)) + ".LOG";
}

QString Q(const Lines& lines) {
    QString text;
    for (const std::string& line : lines)
        text += QString::fromStdString(line) + QLatin1Char('\n');
    return text;
}

} // namespace

class NotificationsTest : public QObject {
    Q_OBJECT

private slots:
    void AnUnpluggedDriveIsToldWithAndWithoutTheWindow() {
        for (const bool window : {false, true}) {
            BackupFixture f;
            PrivateBus bus(f.env);
            QVERIFY2(bus.Serving(), "no private session bus could be started");
            const std::string away = f.env.Path("unplugged/drive");
            WriteRegSetting("BackupPath", away);
            ProgramEnv env{{"DBUS_SESSION_BUS_ADDRESS", bus.address}};
            if (window) env.emplace_back("QT_QPA_PLATFORM", "offscreen");
            const ProgramRun run = RunStashwell({"backup"}, 120, env);
            QCOMPARE(run.exitCode, 1);
            QVERIFY2(run.err.find("Error: Backup drive not ready. Please fix and start again.\n") !=
                         std::string::npos,
                     run.err.c_str());
            QCOMPARE(Q(bus.Calls()), Q({"Stashwell|Stashwell|Backup drive " + away +
                                        " is not connected\\nThe log: " + TodaysLog(away)}));
        }
    }

    // The daily backup at its time finds the drive away: told once, tried again every few
    // minutes without telling again, and made once the drive is back, which ends the tries.
    void AMissedDailyRunIsToldOnceAndMadeWhenTheDriveIsBack() {
        BackupFixture f;
        PrivateBus bus(f.env);
        QVERIFY(bus.Serving());
        FakeSchedulerPrograms fakes(f.env);
        fakes.Systemctl();
        const std::string src = f.env.Path("src");
        CreateTree(src, Dir({{"a.txt", File("alpha")}}));
        f.AddSource(src);
        QVERIFY(ApplySchedule({true, 21, 30}, SystemSchedulers(STASHWELL_BIN)).enabled);
        const std::string retry = f.env.ConfigHome() + "/systemd/user/stashwell-backup-retry.timer";
        const std::string away = f.backup + "-away";
        std::filesystem::rename(f.backup, away);
        fakes.ForgetCalls();

        const ProgramEnv env{{"DBUS_SESSION_BUS_ADDRESS", bus.address}};
        QCOMPARE(RunStashwell({"backup"}, 120, env).exitCode, 1);
        QCOMPARE(RunStashwell({"backup"}, 120, env).exitCode, 1); // a try, the drive still away
        QCOMPARE(Q(bus.Calls()), Q({"Stashwell|Stashwell|Backup drive " + f.backup +
                                    " is not connected\\nThe log: " + TodaysLog(f.backup)}));
        QVERIFY(Exists(retry));
        QCOMPARE(Q(fakes.Calls()),
                 Q({"systemctl --user show-environment", "systemctl --user daemon-reload",
                    "systemctl --user enable --now stashwell-backup-retry.timer"}));

        std::filesystem::rename(away, f.backup);
        fakes.ForgetCalls();
        const ProgramRun made = RunStashwell({"backup"}, 120, env);
        QCOMPARE(made.exitCode, 0);
        QCOMPARE(bus.Calls().size(), size_t{1});
        QVERIFY(!Exists(retry));
        QCOMPARE(Q(fakes.Calls()), Q({"systemctl --user show-environment",
                                      "systemctl --user disable --now stashwell-backup-retry.timer",
                                      "systemctl --user daemon-reload"}));
        QCOMPARE(ReadOwedRun().slot, std::time_t{0});
        QVERIFY(Exists(StoreFile(f.backup, "alpha")));
    }

    void AMissingSourceIsToldWithItsProblem() {
        BackupFixture f;
        PrivateBus bus(f.env);
        QVERIFY(bus.Serving());
        const std::string gone = f.env.Path("gone");
        f.AddSource(gone);
        const ProgramRun run =
            RunStashwell({"backup"}, 120, {{"DBUS_SESSION_BUS_ADDRESS", bus.address}});
        QCOMPARE(run.exitCode, 4);
        const Lines calls = bus.Calls();
        QCOMPARE(calls.size(), size_t{1});
        const std::string first = run.err.substr(0, run.err.find('\n'));
        QCOMPARE(calls[0], "Stashwell|Stashwell|Backup completed with 1 problem\\n" + first +
                               "\\nThe log: " + TodaysLog(f.backup));
    }

    // A reader that holds the catalogue through the run keeps the run from being recorded.
    void ALostRunIsToldWithItsCause() {
        BackupFixture f;
        PrivateBus bus(f.env);
        QVERIFY(bus.Serving());
        const std::string src = f.env.Path("src");
        CreateTree(src, Dir({{"a.txt", File("alpha")}}));
        f.AddSource(src);
        sqlite3* reader = nullptr;
        QCOMPARE(sqlite3_open(f.db.c_str(), &reader), SQLITE_OK);
        QCOMPARE(
            sqlite3_exec(reader, "BEGIN; SELECT count(*) FROM Backups;", nullptr, nullptr, nullptr),
            SQLITE_OK);
        const ProgramRun run =
            RunStashwell({"backup"}, 120, {{"DBUS_SESSION_BUS_ADDRESS", bus.address}});
        sqlite3_exec(reader, "COMMIT;", nullptr, nullptr, nullptr);
        sqlite3_close(reader);
        QCOMPARE(run.exitCode, 5);
        const std::string lost = "The run of " + src +
                                 " was lost: the catalogue could not record the run: database is "
                                 "locked";
        QCOMPARE(Q(bus.Calls()),
                 Q({"Stashwell|Stashwell|A backup run was lost: the catalogue could not record "
                    "the run: database is locked\\n" +
                    lost + "\\nThe log: " + TodaysLog(f.backup)}));
    }

    void ASuccessIsToldOnlyWithTheOption() {
        BackupFixture f;
        PrivateBus bus(f.env);
        QVERIFY(bus.Serving());
        const std::string src = f.env.Path("src");
        CreateTree(src, Dir({{"a.txt", File("alpha")}}));
        f.AddSource(src);
        const ProgramEnv env{{"DBUS_SESSION_BUS_ADDRESS", bus.address}};
        QCOMPARE(RunStashwell({"backup"}, 120, env).exitCode, 0);
        QCOMPARE(Q(bus.Calls()), QString());
        f.SetOption("NotifySuccess", "1");
        QCOMPARE(RunStashwell({"backup"}, 120, env).exitCode, 0);
        QCOMPARE(Q(bus.Calls()),
                 Q({"Stashwell|Stashwell|Backup completed\\nThe log: " + TodaysLog(f.backup)}));
    }

    void WithoutABusNothingIsSentAndTheRunIsAsItWas() {
        BackupFixture f;
        const std::string gone = f.env.Path("gone");
        f.AddSource(gone);
        std::filesystem::create_directories(f.env.Path("runtime"));
        const ProgramRun run = RunStashwell(
            {"backup"}, 120,
            {{"DBUS_SESSION_BUS_ADDRESS", ""}, {"XDG_RUNTIME_DIR", f.env.Path("runtime")}});
        QCOMPARE(run.exitCode, 4);
        QVERIFY2(run.err.starts_with("Source " + gone + " was not backed up: "), run.err.c_str());
    }
};

QTEST_MAIN(NotificationsTest)
#include "test_Notifications.moc"
