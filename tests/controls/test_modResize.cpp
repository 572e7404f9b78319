// The proportional resizer on forms made by the test: a form is recorded at the size it is
// shown with, the first resize grows the form to the margins, layouts move in whole-percent
// steps, a minimised form is left alone, members of a control array keep their own records, and
// controls on hidden tab pages follow too.

#include "controls/modResize.h"

#include <QMainWindow>
#include <QPushButton>
#include <QTabWidget>
#include <QtTest>

#include <memory>

namespace {

QPushButton* Control(QWidget* parent, const char* name, QRect geometry, int index = -1) {
    auto* control = new QPushButton(parent);
    control->setObjectName(QString::fromLatin1(name));
    control->setGeometry(geometry);
    MarkControl(control, index);
    return control;
}

// A form of its own for each test.
std::unique_ptr<QWidget> Form(const char* name, QSize size) {
    auto form = std::make_unique<QWidget>();
    form->setObjectName(QString::fromLatin1(name));
    form->resize(size);
    return form;
}

void Show(QWidget* form) {
    form->show();
    QVERIFY(QTest::qWaitForWindowExposed(form));
}

// A form as the program makes one: every resize event hands it to the resizer.
class ResizingForm : public QWidget {
protected:
    void resizeEvent(QResizeEvent*) override { Resize(this); }
};

} // namespace

class ResizeTest : public QObject {
    Q_OBJECT

private slots:
    void cleanup() { ForgetForms(); }

    void FirstResizeGrowsTheFormToHoldEveryControlWithItsMargins() {
        auto form = Form("frmGrow", {300, 200});
        QWidget* wide = Control(form.get(), "cmdWide", {250, 20, 100, 30});
        Control(form.get(), "cmdLow", {10, 150, 60, 40});
        Show(form.get());
        Resize(form.get());
        // Right: (250 + 100) px = 5250 twips + 200; below: (150 + 40) px = 2850 twips + 500.
        QCOMPARE(form->size(), QSize(363, 223)); // 5450 and 3350 twips, in whole pixels
        QCOMPARE(RecordedGeometry(form.get(), wide), QRect(3750, 300, 1500, 450));
    }

    void FormIsRecordedAtTheSizeItIsShownWithNotAtTheFirstSizeGivenAfter() {
        ResizingForm form;
        form.setObjectName(QStringLiteral("frmShown"));
        QWidget* button = Control(&form, "cmdA", {100, 100, 100, 50});
        form.resize(400, 300);
        Show(&form);
        QCOMPARE(RecordedGeometry(&form, button), QRect(1500, 1500, 1500, 750));
        QCOMPARE(HorizontalScale(&form), 100);
        form.resize(800, 600); // maximised, say
        QCOMPARE(button->geometry(), QRect(200, 200, 200, 100));
        form.resize(400, 300);
        QCOMPARE(button->geometry(), QRect(100, 100, 100, 50));
    }

    void FormNeverShownIsNotRecorded() {
        ResizingForm form;
        form.setObjectName(QStringLiteral("frmHidden"));
        QWidget* button = Control(&form, "cmdA", {100, 100, 100, 50});
        form.resize(400, 300);
        Resize(&form);
        QCOMPARE(RecordedGeometry(&form, button), QRect());
        QCOMPARE(form.size(), QSize(400, 300));
        QCOMPARE(button->geometry(), QRect(100, 100, 100, 50));
    }

    void FormLargeEnoughIsNotGrownAndItsControlsKeepTheirPlaces() {
        auto form = Form("frmRoomy", {400, 300});
        QWidget* button = Control(form.get(), "cmdA", {20, 30, 100, 40});
        Show(form.get());
        Resize(form.get());
        QCOMPARE(form->size(), QSize(400, 300));
        QCOMPARE(button->geometry(), QRect(20, 30, 100, 40));
    }

    void LayoutMovesInWholePercentSteps() {
        auto form = Form("frmSteps", {400, 300});
        QWidget* button = Control(form.get(), "cmdA", {100, 100, 200, 100});
        Show(form.get());
        Resize(form.get());
        form->resize(403, 300); // 100.75 % is 100 %
        Resize(form.get());
        QCOMPARE(HorizontalScale(form.get()), 100);
        QCOMPARE(button->geometry(), QRect(100, 100, 200, 100));
        form->resize(404, 303); // 101 % both ways
        Resize(form.get());
        QCOMPARE(HorizontalScale(form.get()), 101);
        QCOMPARE(VerticalScale(form.get()), 101);
        QCOMPARE(button->geometry(), QRect(101, 101, 202, 101));
        form->resize(800, 150);
        Resize(form.get());
        QCOMPARE(button->geometry(), QRect(200, 50, 400, 50));
    }

    void MinimisedFormIsNotTouchedAndComesBackScaled() {
        auto form = Form("frmMin", {400, 300});
        QWidget* button = Control(form.get(), "cmdA", {100, 100, 100, 50});
        Show(form.get());
        Resize(form.get());
        form->showMinimized();
        form->resize(800, 600);
        Resize(form.get());
        QCOMPARE(button->geometry(), QRect(100, 100, 100, 50));
        form->showNormal();
        Resize(form.get());
        QCOMPARE(button->geometry(), QRect(100 * HorizontalScale(form.get()) / 100,
                                           100 * VerticalScale(form.get()) / 100,
                                           100 * HorizontalScale(form.get()) / 100,
                                           50 * VerticalScale(form.get()) / 100));
        QCOMPARE(HorizontalScale(form.get()), 200);
    }

    void MembersOfAControlArrayKeepSeparateRecords() {
        auto form = Form("frmArray", {400, 300});
        QWidget* first = Control(form.get(), "Option", {10, 10, 80, 20}, 0);
        QWidget* second = Control(form.get(), "Option", {10, 40, 80, 20}, 1);
        Show(form.get());
        Resize(form.get());
        QCOMPARE(RecordedGeometry(form.get(), first), QRect(150, 150, 1200, 300));
        QCOMPARE(RecordedGeometry(form.get(), second), QRect(150, 600, 1200, 300));
        form->resize(800, 600);
        Resize(form.get());
        QCOMPARE(first->geometry(), QRect(20, 20, 160, 40));
        QCOMPARE(second->geometry(), QRect(20, 80, 160, 40));
    }

    void ControlOnAHiddenTabPageStaysHiddenAndShowsAtItsScaledPlace() {
        QMainWindow form;
        form.setObjectName(QStringLiteral("frmTabs"));
        auto* central = new QWidget(&form);
        form.setCentralWidget(central);
        auto* tabs = new QTabWidget(central);
        tabs->setObjectName(QStringLiteral("SSTab1"));
        tabs->setGeometry(0, 0, 400, 300);
        MarkControl(tabs);
        auto* first = new QWidget;
        auto* second = new QWidget;
        tabs->addTab(first, QStringLiteral("One"));
        tabs->addTab(second, QStringLiteral("Two"));
        QWidget* hidden = Control(second, "cmdHidden", {50, 40, 100, 30});
        form.resize(400, 300);
        Show(&form);
        Resize(&form);
        QVERIFY(!hidden->isVisible());
        form.resize(800, 600);
        Resize(&form);
        QVERIFY(!hidden->isVisible());
        const int h = HorizontalScale(&form), v = VerticalScale(&form);
        QCOMPARE(hidden->geometry(),
                 QRect(50 * h / 100, 40 * v / 100, 100 * h / 100, 30 * v / 100));
        tabs->setCurrentIndex(1);
        QVERIFY(hidden->isVisible());
        QCOMPARE(hidden->geometry(),
                 QRect(50 * h / 100, 40 * v / 100, 100 * h / 100, 30 * v / 100));
    }

    void ControlParkedOffItsPageIsScaledAtItsRealPlaceAndStaysParked() {
        auto form = Form("frmParked", {400, 300});
        // 100 px real left, parked 75000 twips (5000 px) to the left.
        QWidget* parked = Control(form.get(), "cmdParked", {100 - 5000, 20, 100, 30});
        Show(form.get());
        Resize(form.get());
        QCOMPARE(form->size(), QSize(400, 300)); // a parked control asks for no room
        form->resize(800, 300);
        Resize(form.get());
        QCOMPARE(parked->geometry(), QRect(200 - 5000, 20, 200, 30));
    }
};

QTEST_MAIN(ResizeTest)
#include "test_modResize.moc"
