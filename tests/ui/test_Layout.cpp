// The main window's layout through changes of its size, at the scale this run is given
// (QT_SCALE_FACTOR 1 and 2 are both run): every control comes back to the place it had when the
// window opened once the window has its opening size again, after random sizes, after being
// maximised (which makes the controls larger) and restored, and after being minimised. At the
// desktop's usual font sizes, 10 to 12 point, no two labels, buttons or boxes of a tab overlap,
// each holds its text, and no control runs into the border or title of its frame.

#include "WindowTest.h"

#include "controls/modResize.h"

#include <QAbstractButton>
#include <QDir>
#include <QGroupBox>
#include <QLabel>
#include <QMainWindow>
#include <QMenu>
#include <QTabBar>
#include <QTabWidget>

#include <random>

namespace {

// Every control of the window, "name x,y wxh" in its parent, in a fixed order. (The window's
// inner area, the menus and the tab strip's own buttons are no controls of its design.)
QStringList Layout(const QMainWindow& window) {
    QStringList layout;
    for (const QWidget* control : window.findChildren<QWidget*>()) {
        const QString name = control->objectName();
        if (name.isEmpty() || name.startsWith("qt_") || control == window.centralWidget() ||
            qobject_cast<const QMenu*>(control) ||
            qobject_cast<const QTabBar*>(control->parentWidget()))
            continue;
        const QRect g = control->geometry();
        layout << QStringLiteral("%1 %2,%3 %4x%5")
                      .arg(name)
                      .arg(g.x())
                      .arg(g.y())
                      .arg(g.width())
                      .arg(g.height());
    }
    layout.sort();
    return layout;
}

// Saves what the window shows to <build>/screenshots, named after what it shows and the scale.
void Shoot(QWidget& window, const QString& name) {
    const QString scale = qEnvironmentVariable("QT_SCALE_FACTOR", "1");
    QDir().mkpath(QStringLiteral(QT_TESTCASE_BUILDDIR "/screenshots"));
    window.grab().save(
        QStringLiteral(QT_TESTCASE_BUILDDIR "/screenshots/%1-scale%2.png").arg(name).arg(scale));
}

// Sizes the window as a person or the desktop does; the resize event has been handled on return.
void SizeTo(QWidget& window, QSize size) {
    window.resize(size);
    QApplication::processEvents();
}

// The window opened at its own size, as a person sees it.
frmMain& OpenShown(WindowEnv& w) {
    frmMain& window = w.Open();
    window.Form_Load();
    window.show();
    if (!QTest::qWaitForWindowExposed(&window)) qFatal("the window did not show");
    QApplication::processEvents();
    return window;
}

// `design` (pixels) at the whole-percent scales, as the resizer places it: 15 twips a pixel.
QRect Scaled(QRect design, int horizontal, int vertical) {
    const auto at = [](int pixels, int scale) {
        const int twips = pixels * 15 * scale / 100;
        return (twips + 7) / 15;
    };
    return QRect(at(design.x(), horizontal), at(design.y(), vertical),
                 at(design.width(), horizontal), at(design.height(), vertical));
}

// What does not fit on the tab page shown: controls that lie outside the page or run into
// their frame's border or title, controls with text that overlap one another or are too small
// for their text. One line each.
QStringList Crowding(QWidget* page) {
    QStringList problems;
    const auto inPage = [page](const QWidget* control) {
        return QRect(control->mapTo(page, QPoint(0, 0)), control->size());
    };
    QList<QWidget*> texts;
    for (QWidget* control : page->findChildren<QWidget*>()) {
        if (control->objectName().isEmpty() || !control->isVisible()) continue;
        const QString name = control->objectName();
        if (!page->rect().contains(inPage(control))) problems << name + " lies outside its page";
        if (auto* frame = qobject_cast<QGroupBox*>(control->parentWidget());
            frame && !frame->contentsRect().contains(control->geometry()))
            problems << name + " runs into the border of " + frame->objectName();
        auto* label = qobject_cast<QLabel*>(control);
        if ((label && label->pixmap().isNull()) || qobject_cast<QAbstractButton*>(control))
            texts << control;
    }
    for (int i = 0; i < texts.size(); ++i) {
        QWidget* control = texts[i];
        const QString name = control->objectName();
        const QSize need = control->sizeHint();
        if (need.width() > control->width())
            problems << QStringLiteral("%1 needs %2 pixels, has %3")
                            .arg(name)
                            .arg(need.width())
                            .arg(control->width());
        if (control->fontMetrics().height() > control->height())
            problems << QStringLiteral("%1 is lower than its text").arg(name);
        for (int j = i + 1; j < texts.size(); ++j)
            if (inPage(control).intersects(inPage(texts[j])))
                problems << name + " overlaps " + texts[j]->objectName();
    }
    return problems;
}

} // namespace

class LayoutTest : public QObject {
    Q_OBJECT

private slots:
    void cleanup() { QApplication::setFont(QFont()); }

    void AfterRandomSizesTheOpeningSizeBringsBackTheOpeningLayout() {
        WindowEnv w;
        frmMain& window = OpenShown(w);
        const QSize opening = window.size();
        const QStringList first = Layout(window);
        std::mt19937 random(20240611);
        std::uniform_int_distribution<int> width(200, 1600), height(150, 1200);
        for (int i = 0; i < 20; ++i) {
            const QSize size(width(random), height(random));
            SizeTo(window, size);
            QCOMPARE(window.size(), size);
        }
        QVERIFY(Layout(window) != first);
        SizeTo(window, opening);
        QCOMPARE(Layout(window), first);
        // And again, from a size that rounds every control differently.
        SizeTo(window, opening + QSize(1, 1));
        SizeTo(window, opening * 3 / 7);
        SizeTo(window, opening);
        QCOMPARE(Layout(window), first);
    }

    void MaximisedTheControlsFollowTheWindowAndRestoredTheyAreAsBefore() {
        WindowEnv w;
        frmMain& window = OpenShown(w);
        const QSize opening = window.size();
        const QSize inner = window.centralWidget()->size();
        auto* tabs = w.Get<QTabWidget>("SSTab1");
        const QRect tabsAtFirst = tabs->geometry();
        const QStringList first = Layout(window);

        window.showMaximized();
        QApplication::processEvents();
        QVERIFY(window.isMaximized());
        const QSize maximised = window.centralWidget()->size();
        QVERIFY(maximised != inner);
        Shoot(window, QStringLiteral("layout-maximised"));
        const int horizontal = HorizontalScale(&window), vertical = VerticalScale(&window);
        // The scales are those of the maximised window against the one that opened (at most
        // 1 % apart: the window opened a few pixels wider than its controls asked for).
        QVERIFY(std::abs(horizontal - maximised.width() * 100 / inner.width()) <= 1);
        QCOMPARE(vertical, maximised.height() * 100 / inner.height());
        QCOMPARE(tabs->geometry(), Scaled(tabsAtFirst, horizontal, vertical));
        // Larger on a screen larger than the window (smaller on a smaller one).
        QCOMPARE(tabs->width() > tabsAtFirst.width(), maximised.width() > inner.width());
        QCOMPARE(tabs->height() > tabsAtFirst.height(), maximised.height() > inner.height());

        window.showNormal();
        QApplication::processEvents();
        QVERIFY(!window.isMaximized());
        QCOMPARE(window.size(), opening);
        QCOMPARE(Layout(window), first);
        Shoot(window, QStringLiteral("layout-restored"));

        // Maximised and restored a second time, after a size of the person's own.
        SizeTo(window, {900, 700});
        window.showMaximized();
        QApplication::processEvents();
        window.showNormal();
        QApplication::processEvents();
        QCOMPARE(window.size(), QSize(900, 700));
        SizeTo(window, opening);
        QCOMPARE(Layout(window), first);
    }

    void OpenedMaximisedTheRestoredWindowHasTheOpeningLayout() {
        WindowEnv w;
        frmMain& window = w.Open();
        window.Form_Load();
        const QStringList designed = Layout(window);
        window.showMaximized();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        QApplication::processEvents();
        QVERIFY(window.isMaximized());
        window.showNormal();
        QApplication::processEvents();
        QCOMPARE(Layout(window), designed);
    }

    void MinimisedTheControlsAreLeftAloneAndRestoredTheyFollowTheWindow() {
        WindowEnv w;
        frmMain& window = OpenShown(w);
        const QSize opening = window.size();
        const QStringList first = Layout(window);
        window.showMinimized();
        QApplication::processEvents();
        QVERIFY(window.isMinimized());
        SizeTo(window, {300, 200});
        QCOMPARE(Layout(window), first);
        window.showNormal();
        QApplication::processEvents();
        SizeTo(window, opening * 2);
        QCOMPARE(HorizontalScale(&window) >= 199, true);
        QCOMPARE(w.Get<QWidget>("SSTab1")->geometry(),
                 Scaled(QRect(8, 8, 624, 514), HorizontalScale(&window), VerticalScale(&window)));
        SizeTo(window, opening);
        QCOMPARE(Layout(window), first);
    }

    void AtTenToTwelvePointEveryTextFitsAndNothingOverlaps() {
        for (const int points : {10, 11, 12}) {
            QFont font = QApplication::font();
            font.setPointSize(points);
            QApplication::setFont(font);
            WindowEnv w;
            frmMain& window = OpenShown(w);
            // The longest texts a run shows in the narrow labels: the most files a source can
            // hold, and a fast drive.
            w.Get<QLabel>("lblCount")->setText(QStringLiteral("512000"));
            w.Get<QLabel>("lblDone")->setText(QStringLiteral("512000"));
            w.Get<QLabel>("lblThruPut")->setText(QStringLiteral("1234.56 MB/s"));
            w.Get<QLabel>("lblBytes")
                ->setText(QStringLiteral("999 GB of 999 GB, about 999 hours 59 minutes left"));
            auto* tabs = w.Get<QTabWidget>("SSTab1");
            for (int tab = 0; tab < tabs->count(); ++tab) {
                tabs->setCurrentIndex(tab);
                QApplication::processEvents();
                Shoot(window, QStringLiteral("layout-%1pt-tab%2").arg(points).arg(tab));
                const QStringList problems = Crowding(tabs->widget(tab));
                QVERIFY2(problems.isEmpty(), qPrintable(QStringLiteral("%1 pt, tab %2: %3")
                                                            .arg(points)
                                                            .arg(tab)
                                                            .arg(problems.join("; "))));
            }
            QCOMPARE(window.font().pointSize(), points);
        }
    }
};

QTEST_MAIN(LayoutTest)
#include "test_Layout.moc"
