#pragma once

// The program's own progress bar, drawn pixel by pixel rather than by the style, so it looks
// the same on every desktop: a white bar in a rounded light-grey frame, filled from the left
// (or the bottom) in whole blocks of 6 pixels with 2-pixel white gaps, each block shaded by two
// gradient bands along its long edges, and the percentage centred on it.
//
// Colours are numbers as the window's design holds them, &H00BBGGRR, with the system colours
// &H80000000 + n translated through the palette. Every property write repaints the whole bar.
// The filled fraction is Value / Max: Min is kept but does not enter the drawing, and Max must
// stay above 0. Drawing modes (Scrolling): 0 blocks, 2 a moving "Searching.." marker, 6 dark,
// 7 hatched, 8 an image pattern, 3, 4, 5 and 9 plain variants; any other value draws as 1, a
// fill without gaps. Screen readers read it as a progress bar with its text and value
// (modAccessible).

#include <QFont>
#include <QImage>
#include <QVariant>
#include <QWidget>

#include <cstdint>
#include <map>
#include <string>

class XP_ProgressBar : public QWidget {
    Q_OBJECT

public:
    // A form's saved properties: key -> value.
    using PropertyBag = std::map<std::string, QVariant>;

    explicit XP_ProgressBar(QWidget* parent = nullptr);

    int32_t eBrushStyle() const { return m_brushStyle; }
    void eBrushStyle(int32_t value);
    uint32_t Color() const { return m_color; }
    void Color(uint32_t value);
    const QImage& Image() const { return m_image; }
    void Image(const QImage& value);
    int32_t Max() const { return m_max; }
    void Max(int32_t value);
    int32_t Min() const { return m_min; }
    void Min(int32_t value);
    int32_t Orientation() const { return m_orientation; }
    void Orientation(int32_t value);
    int32_t Scrolling() const { return m_scrolling; }
    void Scrolling(int32_t value);
    bool ShowText() const { return m_showText; }
    void ShowText(bool value);
    int32_t FillOrEmpty() const { return m_fillOrEmpty; }
    void FillOrEmpty(int32_t value);
    int32_t Value() const { return m_value; }
    void Value(int32_t value);
    const QFont& Font() const { return m_font; }
    void Font(const QFont& value);

    // The form's property store: every property under its key, defaults where a key is
    // missing; and back, leaving out every value equal to its default.
    void ReadProperties(const PropertyBag& bag);
    PropertyBag WriteProperties() const;

    // Paints the whole bar into an image of `size` pixels (what the control shows).
    QImage Render(QSize size) const;
    // The text drawn on the bar: "N %" or "Searching..", "" without ShowText.
    QString Caption() const;
    // That text whether it is drawn or not (what a screen reader reads).
    QString Text() const;

    // A colour number (&H00BBGGRR, or a system colour) as the colour to paint.
    static QColor ToColor(uint32_t value);
    // The colour rule: each component c becomes c * (255 - amount) / 255 + amount, at most 255.
    static QColor Lighten(const QColor& colour, int amount);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    void DrawProgressBar(QPainter& painter, QSize size) const;
    void Changed();

    int32_t m_brushStyle = 4;
    uint32_t m_color = 0x8000000Du;
    QImage m_image;
    int32_t m_max = 100;
    int32_t m_min = 0;
    int32_t m_orientation = 0;
    int32_t m_scrolling = 0;
    bool m_showText = false;
    int32_t m_fillOrEmpty = 1;
    int32_t m_value = 0;
    QFont m_font;
};
