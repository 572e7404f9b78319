// Every tab of the main window as a person sees it, at the scale this run is given
// (QT_SCALE_FACTOR 1 and 2 are both run): a screenshot of each is saved, and the test fails
// when a control lies outside its parent or the window, or when its text does not fit.

#include "WindowTest.h"

#include <QAbstractButton>
#include <QCheckBox>
#include <QDialog>
#include <QDir>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>

namespace {

// Where the screenshots go: <build>/screenshots, named after what they show and the scale.
QString ShotPath(const QString& name) {
    const QString scale = qEnvironmentVariable("QT_SCALE_FACTOR", "1");
    QDir().mkpath(QStringLiteral(QT_TESTCASE_BUILDDIR "/screenshots"));
    return QStringLiteral(QT_TESTCASE_BUILDDIR "/screenshots/%1-scale%2.png").arg(name).arg(scale);
}

// What is wrong with the controls of the page shown: one line each.
QStringList Problems(QWidget* window, QWidget* page) {
    QStringList problems;
    for (QWidget* control : page->findChildren<QWidget*>()) {
        if (control->objectName().isEmpty() || control->objectName().startsWith("qt_") ||
            !control->isVisible())
            continue;
        const QString name = control->objectName();
        if (!control->parentWidget()->rect().contains(control->geometry()))
            problems << name + " lies outside its parent";
        const QRect inWindow(control->mapTo(window, QPoint(0, 0)), control->size());
        if (!window->rect().contains(inWindow)) problems << name + " lies outside the window";
        const QFontMetrics metrics = control->fontMetrics();
        QString text;
        int room = control->width();
        if (auto* label = qobject_cast<QLabel*>(control); label && label->pixmap().isNull()) {
            text = label->text();
        } else if (auto* check = qobject_cast<QCheckBox*>(control)) {
            if (check->sizeHint().width() > check->width()) problems << name + " is cut off";
        } else if (auto* radio = qobject_cast<QRadioButton*>(control)) {
            if (radio->sizeHint().width() > radio->width()) problems << name + " is cut off";
        } else if (auto* button = qobject_cast<QPushButton*>(control)) {
            text = button->text().remove('&');
            room -= 12; // the button's frame and margins
        }
        if (!text.isEmpty() && metrics.horizontalAdvance(text) > room)
            problems << name + " text is cut off";
        if (!text.isEmpty() && metrics.height() > control->height())
            problems << name + " is too low for its text";
    }
    return problems;
}

} // namespace

class ScreenshotTest : public QObject {
    Q_OBJECT

private slots:
    void EveryTabFitsItsControlsAndTheirTexts() {
        WindowEnv w;
        const std::string source = w.env.Path("Documents");
        CreateTree(source, Dir({{"letter.txt", File("Dear reader")}}));
        w.f.AddSource(source);
        w.f.AddSource(w.env.Path("Pictures"));
        frmMain& window = w.Open();
        QCOMPARE(window.Form_Load(), std::nullopt);
        w.ShowTab(0);
        QTest::mouseClick(w.Get<QPushButton>("cmdBackup"), Qt::LeftButton);
        for (QWidget* report : window.findChildren<QDialog*>())
            report->close();
        w.ShowTab(1);
        QVERIFY(ChooseRun(w, "1"));
        auto* tabs = w.Get<QTabWidget>("SSTab1");
        for (int tab = 0; tab < tabs->count(); ++tab) {
            tabs->setCurrentIndex(tab);
            QApplication::processEvents();
            QVERIFY(window.grab().save(ShotPath(QStringLiteral("tab%1").arg(tab))));
            const QStringList problems = Problems(&window, tabs->widget(tab));
            QVERIFY2(problems.isEmpty(), qPrintable(problems.join("; ")));
        }
        const QStringList outer = Problems(&window, window.centralWidget());
        QVERIFY2(outer.isEmpty(), qPrintable(outer.join("; ")));
    }

    void TheRunListFitsItsControls() {
        WindowEnv w;
        const std::string source = w.env.Path("Documents");
        CreateTree(source, Dir({{"letter.txt", File("Dear reader")}}));
        w.f.AddSource(source);
        frmMain& window = w.Open();
        QCOMPARE(window.Form_Load(), std::nullopt);
        w.ShowTab(0);
        QTest::mouseClick(w.Get<QPushButton>("cmdBackup"), Qt::LeftButton);
        w.ShowTab(1);
        QStringList problems{"the dialog did not show"};
        WhenModal("frmSelBackup", [&](QWidget* dialog) {
            dialog->grab().save(ShotPath(QStringLiteral("select-backup")));
            problems = Problems(dialog, dialog);
            QTest::mouseClick(dialog->findChild<QPushButton*>("CancelButton"), Qt::LeftButton);
        });
        QTest::mouseClick(w.Get<QPushButton>("cmdSelBackup"), Qt::LeftButton);
        QVERIFY2(problems.isEmpty(), qPrintable(problems.join("; ")));
    }
};

QTEST_MAIN(ScreenshotTest)
#include "test_Screenshots.moc"
