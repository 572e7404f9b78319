// The program's own progress bar, rendered into images and read pixel by pixel: where the fill
// ends, the blocks and white gaps, the shading bands, the text, the frame, the modes, and the
// property store with its defaults; and what a screen reader reads from it.

#include "controls/XP_ProgressBar.h"

#include <QAccessible>
#include <QAccessibleValueInterface>
#include <QApplication>
#include <QPainter>
#include <QtTest>

#include <memory>

namespace {

constexpr uint32_t kBarColour = 0x004A86E4; // red 228, green 134, blue 74

QRgb Rgb(int r, int g, int b) {
    return qRgb(r, g, b);
}

const QRgb kWhite = Rgb(255, 255, 255);
const QRgb kOrange = Rgb(228, 134, 74);

// How many pixels of `area` are pure black.
int BlackPixels(const QImage& image, QRect area) {
    int black = 0;
    for (int x = area.left(); x <= area.right(); ++x)
        for (int y = area.top(); y <= area.bottom(); ++y)
            black += image.pixel(x, y) == qRgb(0, 0, 0);
    return black;
}

// A bar as the main window sets it up, at `value` of `max`.
XP_ProgressBar* Bar(int32_t value, int32_t max = 100) {
    auto* bar = new XP_ProgressBar;
    bar->eBrushStyle(0);
    bar->Color(kBarColour);
    bar->Max(max);
    bar->Value(value);
    return bar;
}

} // namespace

class XPProgressBarTest : public QObject {
    Q_OBJECT

private slots:
    void ZeroShowsNoFilledBlocksAndZeroPercent() {
        std::unique_ptr<XP_ProgressBar> bar(Bar(0));
        bar->ShowText(true);
        QCOMPARE(bar->Caption(), QStringLiteral("0 %"));
        // Inside the frame: "0 %" in black, centred on white, and nothing else.
        const QImage image = bar->Render({200, 24});
        QImage expected(200, 24, QImage::Format_RGB32);
        expected.fill(Qt::white);
        QPainter painter(&expected);
        painter.setFont(bar->Font());
        painter.setPen(Qt::black);
        painter.drawText(QRect(0, 0, 200, 24), Qt::AlignCenter | Qt::TextSingleLine, "0 %");
        painter.end();
        QCOMPARE(image.copy(2, 2, 196, 20), expected.copy(2, 2, 196, 20));
        // Without the text the inside is all white.
        bar->ShowText(false);
        const QImage plain = bar->Render({200, 24});
        for (int x = 2; x < 198; ++x)
            for (int y = 2; y < 22; ++y)
                QCOMPARE(plain.pixel(x, y), kWhite);
    }

    void HalfOfAWidthOf103EndsOnTheLastWholeBlockBeforePixel51() {
        std::unique_ptr<XP_ProgressBar> bar(Bar(50));
        const QImage image = bar->Render({103, 24});
        const int mid = 12; // a row of the solid middle band
        // Blocks of 6 coloured pixels from x = 3, each followed by a white gap of 2.
        for (int x = 3; x < 51; ++x) {
            const bool gap = (x - 3) % 8 >= 6;
            QCOMPARE(image.pixel(x, mid), gap ? kWhite : kOrange);
        }
        QCOMPARE(image.pixel(48, mid), kOrange); // the last block ends here
        QCOMPARE(image.pixel(49, mid), kWhite);
        for (int x = 51; x < 101; ++x)
            QCOMPARE(image.pixel(x, mid), kWhite);
    }

    void TextAt999Of1000Reads99Percent() {
        std::unique_ptr<XP_ProgressBar> bar(Bar(999, 1000));
        bar->ShowText(true);
        QCOMPARE(bar->Caption(), QStringLiteral("99 %"));
        // The text is drawn in black over the blocks, centred, and only there.
        const QImage image = bar->Render({200, 24});
        QVERIFY(BlackPixels(image, {80, 4, 40, 16}) > 0);
        QCOMPARE(BlackPixels(image, {2, 2, 60, 20}), 0);
        QCOMPARE(BlackPixels(image, {140, 2, 58, 20}), 0);
    }

    void MinOf50ChangesNothing() {
        std::unique_ptr<XP_ProgressBar> bar(Bar(40));
        bar->ShowText(true);
        const QImage before = bar->Render({160, 24});
        bar->Min(50);
        QCOMPARE(bar->Render({160, 24}), before);
        QCOMPARE(bar->Min(), 50);
    }

    void BlocksAreShadedByTwoBandsAlongTheLongEdges() {
        std::unique_ptr<XP_ProgressBar> bar(Bar(100));
        const QImage image = bar->Render({100, 24});
        const QColor light = XP_ProgressBar::Lighten(QColor(kOrange), 150);
        QCOMPARE(light, QColor(243, 205, 180)); // c * 105 / 255 + 150 for each component
        // Rows 0 to 3 stay white (the frame aside), rows 4 to 7 shade from light to the bar
        // colour, the middle is the bar colour, and the bottom band mirrors the top one.
        QCOMPARE(image.pixel(5, 3), kWhite);
        QCOMPARE(image.pixel(5, 4), light.rgb());
        QCOMPARE(image.pixel(5, 7), Rgb(231, 151, 100)); // light + 3/4 of the difference
        QCOMPARE(image.pixel(5, 8), kOrange);
        QCOMPARE(image.pixel(5, 15), kOrange);
        QCOMPARE(image.pixel(5, 16), Rgb(231, 151, 100));
        QCOMPARE(image.pixel(5, 19), light.rgb());
        QCOMPARE(image.pixel(5, 20), kWhite);
    }

    void FrameIsARoundedLightGreyBorderWithALighterInnerLine() {
        std::unique_ptr<XP_ProgressBar> bar(Bar(0));
        const QImage image = bar->Render({60, 20});
        QCOMPARE(image.pixel(0, 0), kWhite); // rounded corner
        QCOMPARE(image.pixel(1, 0), Rgb(0xBE, 0xBE, 0xBE));
        QCOMPARE(image.pixel(30, 0), Rgb(0xAC, 0xAA, 0xA7));
        QCOMPARE(image.pixel(30, 1), Rgb(0xEF, 0xEF, 0xEF));
        QCOMPARE(image.pixel(30, 19), Rgb(0x7F, 0x7D, 0x7D));
        QCOMPARE(image.pixel(0, 10), Rgb(0xAC, 0xAA, 0xA6));
        QCOMPARE(image.pixel(59, 10), Rgb(0x77, 0x77, 0x77));
    }

    void WithoutGapsOutsideModeZero() {
        std::unique_ptr<XP_ProgressBar> bar(Bar(100));
        bar->Scrolling(1);
        const QImage image = bar->Render({60, 24});
        for (int x = 3; x < 57; ++x)
            QCOMPARE(image.pixel(x, 12), kOrange);
    }

    void VerticalBarFillsFromTheBottomInWholeBlocks() {
        std::unique_ptr<XP_ProgressBar> bar(Bar(50));
        bar->Orientation(1);
        const QImage image = bar->Render({24, 103});
        // From the bottom: 6 coloured rows, then a white gap of 2, the fill ending on a block.
        QCOMPARE(image.pixel(12, 100), kOrange);
        QCOMPARE(image.pixel(12, 96), kWhite); // a gap: rows 95 and 96
        QCOMPARE(image.pixel(12, 94), kOrange);
        QCOMPARE(image.pixel(12, 40), kWhite); // above the fill
    }

    void SearchingModeShowsItsMarkerAndText() {
        std::unique_ptr<XP_ProgressBar> bar(Bar(0));
        bar->Scrolling(2);
        bar->ShowText(true);
        QCOMPARE(bar->Caption(), QStringLiteral("Searching.."));
        const QImage image = bar->Render({200, 24});
        // The first block of the marker starts where the fill would end, faded towards white.
        const QColor first = XP_ProgressBar::Lighten(QColor(kOrange), 140);
        QCOMPARE(QColor(image.pixel(5, 2)), first);
    }

    void SystemColoursAreTranslatedAndDesignColoursReadAsBlueGreenRed() {
        QCOMPARE(XP_ProgressBar::ToColor(0x00C56A31), QColor(49, 106, 197));
        QCOMPARE(XP_ProgressBar::ToColor(0x8000000D), QPalette().color(QPalette::Highlight));
    }

    void PropertiesHaveTheirDefaultsAndOnlyOtherValuesAreSaved() {
        XP_ProgressBar bar;
        QCOMPARE(bar.eBrushStyle(), 4);
        QCOMPARE(bar.Color(), 0x8000000Du);
        QCOMPARE(bar.Max(), 100);
        QCOMPARE(bar.Min(), 0);
        QCOMPARE(bar.Orientation(), 0);
        QCOMPARE(bar.Scrolling(), 0);
        QCOMPARE(bar.ShowText(), false);
        QCOMPARE(bar.FillOrEmpty(), 1);
        QCOMPARE(bar.Value(), 0);
        QCOMPARE(bar.Font().family(), QStringLiteral("Tahoma"));
        QCOMPARE(bar.Font().pointSize(), 8);
        QVERIFY(bar.WriteProperties().empty());
        bar.ReadProperties({{"Max", 1000}, {"ShowText", true}, {"Color", 0x00C56A31u}});
        QCOMPARE(bar.Max(), 1000);
        QCOMPARE(bar.ShowText(), true);
        QCOMPARE(bar.eBrushStyle(), 4);
        const XP_ProgressBar::PropertyBag saved = bar.WriteProperties();
        QCOMPARE(saved.size(), size_t{3});
        QCOMPARE(saved.at("Max").toInt(), 1000);
        QCOMPARE(saved.at("Color").toUInt(), 0x00C56A31u);
    }

    void EveryPropertyWriteRepaints() {
        XP_ProgressBar bar;
        bar.resize(100, 20);
        bar.show();
        QVERIFY(QTest::qWaitForWindowExposed(&bar));
        bar.Color(kBarColour);
        bar.Value(100);
        const QImage shown = bar.grab().toImage();
        QCOMPARE(shown.pixel(52, 10), kOrange);
    }

    void ScreenReadersReadAProgressBarWithItsTextAndValue() {
        std::unique_ptr<XP_ProgressBar> bar(Bar(999, 1000));
        bar->setAccessibleName(QStringLiteral("Backup progress"));
        bar->Min(50);
        bar->ShowText(true);
        QAccessibleInterface* read = QAccessible::queryAccessibleInterface(bar.get());
        QVERIFY(read);
        QCOMPARE(read->role(), QAccessible::ProgressBar);
        QCOMPARE(read->text(QAccessible::Name), QStringLiteral("99 %"));
        QCOMPARE(read->text(QAccessible::Value), QStringLiteral("99 %"));
        QCOMPARE(read->text(QAccessible::Description), QStringLiteral("Backup progress"));
        QAccessibleValueInterface* value = read->valueInterface();
        QVERIFY(value);
        QCOMPARE(value->currentValue(), QVariant(999));
        QCOMPARE(value->minimumValue(), QVariant(50));
        QCOMPARE(value->maximumValue(), QVariant(1000));
        // Setting the value is the program's, not the reader's.
        value->setCurrentValue(3);
        QCOMPARE(bar->Value(), 999);
        bar->Value(0);
        QCOMPARE(read->text(QAccessible::Name), QStringLiteral("0 %"));
        QCOMPARE(value->currentValue(), QVariant(0));
        // A bar that draws no text is read by its percentage all the same.
        bar->ShowText(false);
        bar->Value(420);
        QCOMPARE(bar->Caption(), QString());
        QCOMPARE(read->text(QAccessible::Name), QStringLiteral("42 %"));
        bar->Scrolling(2);
        QCOMPARE(read->text(QAccessible::Name), QStringLiteral("Searching.."));
        QCOMPARE(read->text(QAccessible::Value), QStringLiteral("Searching.."));
    }
};

QTEST_MAIN(XPProgressBarTest)
#include "test_XP_ProgressBar.moc"
