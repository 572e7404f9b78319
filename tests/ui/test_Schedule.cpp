// The schedule controls of the Configuration tab, driven as a person would: the switch, the
// hour and minute boxes each write their key on change and set the daily run through the
// scheduler (a recording one here); the stored values are shown at the start, damaged ones
// open the window all the same; with no scheduler at all a box says so and the switch goes back
// off.

#include "WindowTest.h"

#include "app/IScheduler.h"
#include "app/modNotify.h"
#include "app/modSchedule.h"

#include <QCheckBox>
#include <QLabel>
#include <QSpinBox>

namespace {

// A scheduler that answers and records what it is asked.
class RecordingScheduler : public IScheduler {
public:
    explicit RecordingScheduler(QStringList& calls) : m_calls(calls) {}
    std::string Name() const override { return "the test's scheduler"; }
    bool Available() override { return true; }
    std::string Install(int hour, int minute) override {
        m_calls << QStringLiteral("install %1:%2").arg(hour).arg(minute);
        return {};
    }
    std::string Remove() override {
        m_calls << QStringLiteral("remove");
        return {};
    }
    std::string NextRun() override { return "tomorrow at dawn"; }
    std::string StartRetry() override {
        m_calls << QStringLiteral("start retry");
        return {};
    }
    std::string StopRetry() override {
        m_calls << QStringLiteral("stop retry");
        return {};
    }

private:
    QStringList& m_calls;
};

QStringList Stored(WindowEnv& w, const std::string& key) {
    return Rows(w.f, "SELECT value FROM Setup WHERE key = '" + key + "'");
}

} // namespace

class ScheduleTest : public QObject {
    Q_OBJECT

    QStringList calls;

    void UseRecordingScheduler() {
        SetSchedulerSource([this] {
            std::vector<std::unique_ptr<IScheduler>> schedulers;
            schedulers.push_back(std::make_unique<RecordingScheduler>(calls));
            return schedulers;
        });
    }

private slots:
    void init() { calls.clear(); }

    void TheControlsHaveTheirCaptionsTipsAndRanges() {
        WindowEnv w;
        w.Open().Form_Load();
        w.ShowTab(2);
        auto* box = w.Get<QCheckBox>("chkSchedule");
        QCOMPARE(box->text(), QStringLiteral("Back up every day at"));
        QVERIFY(!box->isChecked());
        QVERIFY(!box->toolTip().isEmpty());
        auto* hour = w.Get<QSpinBox>("spnHour");
        auto* minute = w.Get<QSpinBox>("spnMinute");
        QCOMPARE(hour->minimum(), 0);
        QCOMPARE(hour->maximum(), 23);
        QCOMPARE(minute->minimum(), 0);
        QCOMPARE(minute->maximum(), 59);
        QCOMPARE(hour->value(), 21);
        QCOMPARE(minute->value(), 0);
        QCOMPARE(hour->toolTip(), QStringLiteral("The hour of the daily backup, 0 to 23"));
        QCOMPARE(minute->toolTip(), QStringLiteral("The minute of the daily backup, 0 to 59"));
        QVERIFY(!hour->accessibleName().isEmpty());
        QVERIFY(!minute->accessibleName().isEmpty());
        QCOMPARE(w.Get<QLabel>("lblNextBackup")->text(), QString());
        QCOMPARE(w.Get<QWidget>("fraSchedule")->property("title").toString(),
                 QStringLiteral("Schedule"));
    }

    void EachControlWritesItsKeyAndSetsTheDailyRun() {
        WindowEnv w;
        UseRecordingScheduler();
        w.Open().Form_Load();
        w.ShowTab(2);
        auto* box = w.Get<QCheckBox>("chkSchedule");
        Tick(box);
        QVERIFY(box->isChecked());
        QCOMPARE(Stored(w, "SchedEnabled"), QStringList{"1"});
        QCOMPARE(calls, QStringList{"install 21:0"});
        QCOMPARE(w.Get<QLabel>("lblNextBackup")->text(),
                 QStringLiteral("Next backup: tomorrow at dawn"));

        // A typed hour is set once it is complete, not at each digit.
        auto* hour = w.Get<QSpinBox>("spnHour");
        hour->setFocus();
        QTest::keyClick(hour, Qt::Key_A, Qt::ControlModifier);
        QTest::keyClicks(hour, QStringLiteral("6"));
        QTest::keyClick(hour, Qt::Key_Return);
        QCOMPARE(Stored(w, "Hour"), QStringList{"6"});
        auto* minute = w.Get<QSpinBox>("spnMinute");
        minute->setFocus();
        QTest::keyClick(minute, Qt::Key_Up);
        QCOMPARE(Stored(w, "Minute"), QStringList{"1"});
        QCOMPARE(calls, (QStringList{"install 21:0", "install 6:0", "install 6:1"}));

        Tick(box);
        QVERIFY(!box->isChecked());
        QCOMPARE(Stored(w, "SchedEnabled"), QStringList{"0"});
        QCOMPARE(calls.back(), QStringLiteral("remove"));
        QCOMPARE(w.Get<QLabel>("lblNextBackup")->text(), QString());
        // With the switch off the time boxes only keep their keys.
        calls.clear();
        hour->setFocus();
        QTest::keyClick(hour, Qt::Key_Down);
        QCOMPARE(Stored(w, "Hour"), QStringList{"5"});
        QCOMPARE(calls, QStringList{});
        QVERIFY(w.env.box.calls.empty());
    }

    void TheStoredScheduleIsShownAtTheStart() {
        WindowEnv w;
        UseRecordingScheduler();
        w.f.SetOption("SchedEnabled", "1");
        w.f.SetOption("Hour", "7");
        w.f.SetOption("Minute", "45");
        w.Open().Form_Load();
        QVERIFY(w.Get<QCheckBox>("chkSchedule")->isChecked());
        QCOMPARE(w.Get<QSpinBox>("spnHour")->value(), 7);
        QCOMPARE(w.Get<QSpinBox>("spnMinute")->value(), 45);
        QCOMPARE(w.Get<QLabel>("lblNextBackup")->text(),
                 QStringLiteral("Next backup: tomorrow at dawn"));
        // Showing it set nothing and stored nothing anew.
        QCOMPARE(calls, QStringList{});
        QCOMPARE(Stored(w, "Hour"), QStringList{"7"});
    }

    void DamagedStoredValuesOpenTheWindowWithTheDefaults() {
        WindowEnv w;
        UseRecordingScheduler();
        w.f.SetOption("SchedEnabled", "x");
        w.f.SetOption("Hour", "99");
        w.f.SetOption("Minute", "half past");
        frmMain& window = w.Open();
        QCOMPARE(window.Form_Load(), std::optional<int>());
        w.ShowTab(2);
        QVERIFY(window.isVisible());
        QVERIFY(!w.Get<QCheckBox>("chkSchedule")->isChecked());
        QCOMPARE(w.Get<QSpinBox>("spnHour")->value(), 21);
        QCOMPARE(w.Get<QSpinBox>("spnMinute")->value(), 0);
        QCOMPARE(calls, QStringList{});
        QVERIFY(w.env.box.calls.empty());
    }

    void TheSuccessOptionWritesItsKeyAndIsShownAsStored() {
        {
            WindowEnv w;
            w.Open().Form_Load();
            w.ShowTab(2);
            auto* box = w.Get<QCheckBox>("chkNotifySuccess");
            QCOMPARE(box->text(), QStringLiteral("Tell me when a scheduled backup succeeds"));
            QVERIFY(!box->toolTip().isEmpty());
            QVERIFY(!box->isChecked());
            Tick(box);
            QCOMPARE(Stored(w, "NotifySuccess"), QStringList{"1"});
            QVERIFY(TellsSuccess());
            Tick(box);
            QCOMPARE(Stored(w, "NotifySuccess"), QStringList{"0"});
            QVERIFY(!TellsSuccess());
            QCOMPARE(box->shortcut(), QKeySequence(QStringLiteral("Alt+N")));
        }
        for (const auto& [stored, ticked] :
             {std::pair{"1", true}, std::pair{"0", false}, std::pair{"yes", false}}) {
            WindowEnv w;
            w.f.SetOption("NotifySuccess", stored);
            QCOMPARE(w.Open().Form_Load(), std::optional<int>());
            QCOMPARE(w.Get<QCheckBox>("chkNotifySuccess")->isChecked(), ticked);
            QVERIFY(w.env.box.calls.empty());
        }
    }

    void WithoutAnySchedulerABoxSaysSoAndTheSwitchGoesBackOff() {
        WindowEnv w;
        w.Open().Form_Load();
        w.ShowTab(2);
        auto* box = w.Get<QCheckBox>("chkSchedule");
        Tick(box);
        QVERIFY(!box->isChecked());
        QCOMPARE(Stored(w, "SchedEnabled"), QStringList{"0"});
        QCOMPARE(Boxes(w.env.box.calls), QStringList{Q(NoSchedulerMessage(ScheduledProgram())) +
                                                     " | 48 | QRV - Stashwell"});
    }
};

QTEST_MAIN(ScheduleTest)
#include "test_Schedule.moc"
