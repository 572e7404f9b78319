// What a screen reader reads from the main window, asked as a screen reader asks
// (QAccessible::queryAccessibleInterface): the Backup button by its caption, "Cancel" while a
// run goes; the run's labels by the texts they show, with what they mean as description; the
// progress bars as progress bars with their text and value. Before, during and after a run.

#include "WindowTest.h"

#include <QAccessible>
#include <QAccessibleValueInterface>
#include <QDialog>
#include <QKeySequence>
#include <QLabel>

namespace {

QAccessibleInterface* Read(QWidget* control) {
    QAccessibleInterface* read = QAccessible::queryAccessibleInterface(control);
    if (!read) qFatal("no accessible interface for %s", qPrintable(control->objectName()));
    return read;
}

// What a screen reader reads from one control: "name | value | description", and for a
// progress bar also "value min max" of its value.
QString Heard(QWidget* control) {
    QAccessibleInterface* read = Read(control);
    QString heard = read->text(QAccessible::Name) + " | " + read->text(QAccessible::Value) + " | " +
                    read->text(QAccessible::Description);
    if (QAccessibleValueInterface* value = read->valueInterface())
        heard += QStringLiteral(" | %1 %2 %3")
                     .arg(value->currentValue().toInt())
                     .arg(value->minimumValue().toInt())
                     .arg(value->maximumValue().toInt());
    return heard;
}

// The run's labels and progress bar, as heard.
QStringList RunHeard(const WindowEnv& w) {
    QStringList heard;
    for (const char* name :
         {"lblSource", "lblProcessing", "lblCount", "lblDone", "lblThruPut", "XP_PB1", "lblBytes"})
        heard << QString::fromLatin1(name) + ": " + Heard(w.Get<QWidget>(name));
    return heard;
}

QString ButtonName(const WindowEnv& w) {
    return Read(w.Get<QPushButton>("cmdBackup"))->text(QAccessible::Name);
}

} // namespace

class AccessibilityTest : public QObject {
    Q_OBJECT

private slots:
    void BeforeARunTheButtonLabelsAndBarsAreReadAsShown() {
        WindowEnv w;
        w.f.AddSource(w.env.Path("s"));
        w.Open().Form_Load();
        QAccessibleInterface* button = Read(w.Get<QPushButton>("cmdBackup"));
        QCOMPARE(button->role(), QAccessible::Button);
        QCOMPARE(button->text(QAccessible::Name), QStringLiteral("Backup"));
        QCOMPARE(RunHeard(w),
                 (QStringList{"lblSource:  |  | Status", "lblProcessing:  |  | Source",
                              "lblCount:  |  | Files found", "lblDone:  |  | Files done",
                              "lblThruPut: MB/s | MB/s | Throughput",
                              "XP_PB1: 0 % | 0 % | Backup progress | 0 0 100",
                              "lblBytes:  |  | Bytes done"}));
        for (const char* bar : {"XP_PB1", "XP_PB2", "XP_PB3"})
            QCOMPARE(Read(w.Get<QWidget>(bar))->role(), QAccessible::ProgressBar);
        QCOMPARE(Heard(w.Get<QWidget>("XP_PB2")),
                 QStringLiteral("0 % | 0 % | Restore progress | 0 0 100"));
        QCOMPARE(Heard(w.Get<QWidget>("XP_PB3")),
                 QStringLiteral("0 % | 0 % | Maintenance progress | 0 0 100"));
        // A caption is read as it is written.
        QCOMPARE(Read(w.Get<QLabel>("lblCountCaption"))->text(QAccessible::Name),
                 QStringLiteral("Files found:"));
    }

    void DuringARunTheLabelsAndBarAreReadAsTheyShow() {
        WindowEnv w;
        const std::string source = w.env.Path("s");
        CreateTree(source, Dir({{"a.txt", File("a")}, {"b.txt", File("b")}}));
        w.f.AddSource(source);
        frmMain& window = w.Open();
        window.Form_Load();
        QStringList during;
        QObject::connect(&window, &frmMain::RunShown, [&] {
            if (during.isEmpty() && w.Get<QLabel>("lblDone")->text() == "1") during = RunHeard(w);
        });
        QTest::mouseClick(w.Get<QPushButton>("cmdBackup"), Qt::LeftButton);
        // The throughput is the run's own; it is read as shown.
        QVERIFY(during.size() == 7 && during[4].endsWith(" MB/s | Throughput"));
        const QString rate = during[4].section(" | ", 1, 1);
        QCOMPARE(during,
                 (QStringList{"lblSource: Processing 1 of 1 | Processing 1 of 1 | Status",
                              "lblProcessing: " + Q(source) + " | " + Q(source) + " | Source",
                              "lblCount: 2 | 2 | Files found", "lblDone: 1 | 1 | Files done",
                              "lblThruPut: " + rate + " | " + rate + " | Throughput",
                              "XP_PB1: 50 % | 50 % | Backup progress | 50 0 100", during[6]}));
        QVERIFY(during[6].startsWith("lblBytes: ") &&
                during[6].endsWith(" of 2 bytes | Bytes done"));
        // After the run, the summary.
        const QString summary = w.Get<QLabel>("lblSource")->text();
        QVERIFY(summary.startsWith("Backup Complete. MB in 00:00:0"));
        const QStringList after = RunHeard(w);
        QCOMPARE(after[0], "lblSource: " + summary + " | " + summary + " | Status");
        QCOMPARE(after[5], QStringLiteral("XP_PB1: 100 % | 100 % | Backup progress | 100 0 100"));
        QCOMPARE(after[6],
                 QStringLiteral("lblBytes: 2 bytes of 2 bytes | 2 bytes of 2 bytes | Bytes done"));
    }

    void DuringARunTheButtonIsReadAsCancelAndAfterItAsBackupStillOnAltB() {
        WindowEnv w;
        const std::string source = w.env.Path("s");
        CreateTree(source, Dir({{"a.txt", File("a")}, {"b.txt", File("b")}}));
        w.f.AddSource(source);
        frmMain& window = w.Open();
        window.Form_Load();
        QStringList during;
        QObject::connect(&window, &frmMain::RunShown, [&] {
            if (!during.isEmpty()) return;
            auto* button = w.Get<QPushButton>("cmdBackup");
            during << button->text() << ButtonName(w) << button->shortcut().toString();
        });
        QTest::mouseClick(w.Get<QPushButton>("cmdBackup"), Qt::LeftButton);
        QCOMPARE(during, (QStringList{"Cancel", "Cancel", "Alt+B"}));
        QCOMPARE(ButtonName(w), QStringLiteral("Backup"));
        QCOMPARE(w.Get<QPushButton>("cmdBackup")->shortcut(),
                 QKeySequence(QStringLiteral("Alt+B")));
    }

    void TheChosenRunIsReadByItsNumber() {
        WindowEnv w;
        w.OpenAfterOneRun(w.env.Path("s"), Dir({{"a.txt", File("a")}}));
        for (QWidget* report : w.window->findChildren<QDialog*>())
            report->close();
        w.ShowTab(1);
        QVERIFY(ChooseRun(w, "1"));
        QCOMPARE(Heard(w.Get<QLabel>("lblBid")), QStringLiteral("1 | 1 | Backup run"));
    }
};

QTEST_MAIN(AccessibilityTest)
#include "test_Accessibility.moc"
