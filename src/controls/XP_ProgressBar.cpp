#include "controls/XP_ProgressBar.h"

#include "controls/modAccessible.h"

#include <QAccessible>
#include <QPaintEvent>
#include <QPainter>
#include <QPalette>

#include <algorithm>
#include <cmath>

namespace {

constexpr uint32_t kWhite = 0xFFFFFF;
constexpr uint32_t kSilver = 0xC0C0C0;
constexpr int kBandWidth = 4;
constexpr int kGap = 2;
constexpr int kMarkerLength = 10;

// Where the filled part lies, in whole pixels.
struct FillGeometry {
    int left, top, right, bottom;
    int block, step;
};

void DrawLine(QPainter& painter, int x, int y, int width, int height, const QColor& colour) {
    if (width > 0 && height > 0) painter.fillRect(x, y, width, height, colour);
}

// A linear gradient over `lines` pixel lines: the difference of the two colours split per
// component into equal increments, each line in the accumulated colour, truncated.
QColor GradientLine(const QColor& from, const QColor& to, int line, int lines) {
    const auto component = [&](int a, int b) {
        return static_cast<int>(a + (b - a) / static_cast<double>(lines) * line);
    };
    return QColor(component(from.red(), to.red()), component(from.green(), to.green()),
                  component(from.blue(), to.blue()));
}

// Two gradient bands along the long edges, 4 pixels in from each, light outside and the bar
// colour inside, and the solid bar colour between them, across rows (horizontal bar) or
// columns (vertical bar) [0, thickness), along [start, end).
void DrawShadedFill(QPainter& painter, bool horizontal, int thickness, int start, int end,
                    const QColor& colour) {
    const QColor light = XP_ProgressBar::Lighten(colour, 150);
    const auto across = [&](int at, int width, const QColor& c) {
        if (horizontal)
            DrawLine(painter, start, at, end - start, width, c);
        else
            DrawLine(painter, at, start, width, end - start, c);
    };
    for (int line = 0; line < kBandWidth; ++line) {
        const QColor shade = GradientLine(light, colour, line, kBandWidth);
        across(kBandWidth + line, 1, shade);
        across(thickness - kBandWidth - 1 - line, 1, shade);
    }
    across(2 * kBandWidth, thickness - 4 * kBandWidth, colour);
}

// A 1-pixel rounded border in light greys with a lighter line inside it.
void DrawFrame(QPainter& painter, int width, int height) {
    const auto pixel = [&](int x, int y, uint32_t rgb) {
        painter.fillRect(x, y, 1, 1, QColor(rgb));
    };
    const int r = width - 1, b = height - 1;
    DrawLine(painter, 2, 0, width - 4, 1, XP_ProgressBar::ToColor(0xA7AAAC));  // top
    DrawLine(painter, 2, b, width - 4, 1, XP_ProgressBar::ToColor(0x7D7D7F));  // bottom
    DrawLine(painter, 0, 2, 1, height - 4, XP_ProgressBar::ToColor(0xA6AAAC)); // left
    DrawLine(painter, r, 2, 1, height - 4, XP_ProgressBar::ToColor(0x777777)); // right
    const QColor inner = XP_ProgressBar::ToColor(0xEFEFEF);
    DrawLine(painter, 2, 1, width - 4, 1, inner);
    DrawLine(painter, 2, b - 1, width - 4, 1, inner);
    DrawLine(painter, 1, 2, 1, height - 4, inner);
    DrawLine(painter, r - 1, 2, 1, height - 4, inner);
    for (const auto& [x, y] : {std::pair{0, 0}, {r, 0}, {0, b}, {r, b}})
        pixel(x, y, kWhite);
    for (const auto& [x, y] : {std::pair{1, 0}, {0, 1}, {r - 1, 0}, {r, 1}, {0, b - 1}, {1, b}})
        pixel(x, y, 0xBEBEBE);
    for (const auto& [x, y] : {std::pair{r, b - 1}, {r - 1, b}})
        pixel(x, y, 0x686868);
    for (const auto& [x, y] : {std::pair{1, 1}, {r - 1, 1}, {1, b - 1}, {r - 1, b - 1}})
        pixel(x, y, kWhite);
}

Qt::BrushStyle HatchOf(int32_t style) {
    switch (style) {
    case 0:
        return Qt::HorPattern;
    case 1:
        return Qt::VerPattern;
    case 2:
        return Qt::FDiagPattern;
    case 3:
        return Qt::BDiagPattern;
    case 5:
        return Qt::DiagCrossPattern;
    default:
        return Qt::CrossPattern;
    }
}

} // namespace

XP_ProgressBar::XP_ProgressBar(QWidget* parent)
    : QWidget(parent), m_font(QStringLiteral("Tahoma"), 8) {
    setAttribute(Qt::WA_OpaquePaintEvent);
    InstallAccessibility();
}

#define XP_SETTER(Name, member)                                                                    \
    void XP_ProgressBar::Name(decltype(member) value) {                                            \
        member = value;                                                                            \
        Changed();                                                                                 \
    }
XP_SETTER(eBrushStyle, m_brushStyle)
XP_SETTER(Color, m_color)
XP_SETTER(Max, m_max)
XP_SETTER(Min, m_min)
XP_SETTER(Orientation, m_orientation)
XP_SETTER(Scrolling, m_scrolling)
XP_SETTER(ShowText, m_showText)
XP_SETTER(FillOrEmpty, m_fillOrEmpty)
XP_SETTER(Value, m_value)
#undef XP_SETTER

void XP_ProgressBar::Image(const QImage& value) {
    m_image = value;
    Changed();
}

void XP_ProgressBar::Font(const QFont& value) {
    m_font = value;
    Changed();
}

void XP_ProgressBar::Changed() {
    repaint(); // the whole bar, at once
    // A screen reader hears the new value and the text that goes with it.
    if (QAccessible::isActive()) {
        QAccessibleValueChangeEvent value(this, m_value);
        QAccessible::updateAccessibility(&value);
        QAccessibleEvent name(this, QAccessible::NameChanged);
        QAccessible::updateAccessibility(&name);
    }
}

void XP_ProgressBar::ReadProperties(const PropertyBag& bag) {
    const auto read = [&](const char* key, const QVariant& fallback) {
        const auto found = bag.find(key);
        return found == bag.end() ? fallback : found->second;
    };
    m_brushStyle = read("BrushStyle", 4).toInt();
    m_color = read("Color", 0x8000000Du).toUInt();
    m_image = read("Image", QImage()).value<QImage>();
    m_max = read("Max", 100).toInt();
    m_min = read("Min", 0).toInt();
    m_orientation = read("Orientation", 0).toInt();
    m_scrolling = read("Scrolling", 0).toInt();
    m_showText = read("ShowText", false).toBool();
    m_fillOrEmpty = read("FillOrEmpty", 1).toInt();
    m_value = read("Value", 0).toInt();
    Changed();
}

XP_ProgressBar::PropertyBag XP_ProgressBar::WriteProperties() const {
    PropertyBag bag;
    const auto write = [&](const char* key, const QVariant& value, const QVariant& fallback) {
        if (value != fallback) bag[key] = value;
    };
    write("BrushStyle", m_brushStyle, 4);
    write("Color", m_color, 0x8000000Du);
    if (!m_image.isNull()) bag["Image"] = m_image;
    write("Max", m_max, 100);
    write("Min", m_min, 0);
    write("Orientation", m_orientation, 0);
    write("Scrolling", m_scrolling, 0);
    write("ShowText", m_showText, false);
    write("FillOrEmpty", m_fillOrEmpty, 1);
    write("Value", m_value, 0);
    return bag;
}

QColor XP_ProgressBar::ToColor(uint32_t value) {
    if (value & 0x80000000u) {
        const QPalette palette;
        switch (value & 0xFF) {
        case 0x05:
            return palette.color(QPalette::Base);
        case 0x08:
            return palette.color(QPalette::Text);
        case 0x0E:
            return palette.color(QPalette::HighlightedText);
        case 0x0F:
            return palette.color(QPalette::Button);
        case 0x12:
            return palette.color(QPalette::ButtonText);
        default:
            return palette.color(QPalette::Highlight);
        }
    }
    return QColor(static_cast<int>(value & 0xFF), static_cast<int>((value >> 8) & 0xFF),
                  static_cast<int>((value >> 16) & 0xFF));
}

QColor XP_ProgressBar::Lighten(const QColor& colour, int amount) {
    const auto lighten = [&](int c) { return std::min(255, c * (255 - amount) / 255 + amount); };
    return QColor(lighten(colour.red()), lighten(colour.green()), lighten(colour.blue()));
}

QString XP_ProgressBar::Caption() const {
    return m_showText ? Text() : QString();
}

QString XP_ProgressBar::Text() const {
    if (m_scrolling == 2) return QStringLiteral("Searching..");
    const double percent = m_max > 0 ? static_cast<double>(m_value) / m_max * 100 : 0;
    return QString::number(static_cast<long long>(std::trunc(percent))) + QStringLiteral(" %");
}

QImage XP_ProgressBar::Render(QSize size) const {
    QImage image(size, QImage::Format_RGB32);
    QPainter painter(&image);
    DrawProgressBar(painter, size);
    return image;
}

void XP_ProgressBar::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    DrawProgressBar(painter, size());
}

void XP_ProgressBar::DrawProgressBar(QPainter& painter, QSize size) const {
    const int width = size.width(), height = size.height();
    const QColor colour = ToColor(m_color);
    const bool horizontal = m_orientation == 0;
    painter.fillRect(0, 0, width, height, QColor(m_scrolling == 6 ? 0x000000 : kWhite));

    // The fill ends on a whole step (block and gap) from its start.
    FillGeometry fill{3, 0, width, height, m_scrolling == 0 ? 6 : 0, 0};
    fill.step = fill.block + kGap;
    const double fraction = m_max > 0 ? std::max(0.0, static_cast<double>(m_value) / m_max) : 0;
    if (horizontal) {
        int right = std::min(width, static_cast<int>(width * fraction));
        right = right > fill.left ? right - (right - fill.left) % fill.step : fill.left;
        fill.right = right;
    } else {
        int top = std::max(0, static_cast<int>(height * (1 - fraction)));
        top = top < fill.bottom ? top + (fill.bottom - top) % fill.step : fill.bottom;
        fill.top = top;
    }
    const int start = horizontal ? fill.left : fill.top;
    const int end = horizontal ? fill.right : fill.bottom;
    const int thickness = horizontal ? height : width;

    switch (m_scrolling) {
    case 2: // the searching marker: three fading blocks from where the fill would end
        for (int i = 0; i < 3; ++i) {
            const int at = (horizontal ? fill.right : fill.top) +
                           (horizontal ? 1 : -1) * i * (kGap + kMarkerLength);
            const QColor from = Lighten(colour, 140 + 40 * i), to = Lighten(colour, 120 + 40 * i);
            for (int line = 2; line < thickness - 2; ++line) {
                const QColor shade = GradientLine(from, to, line - 2, thickness - 4);
                if (horizontal)
                    DrawLine(painter, at, line, kMarkerLength, 1, shade);
                else
                    DrawLine(painter, line, at - kMarkerLength, 1, kMarkerLength, shade);
            }
        }
        break;
    case 3: // solid
        DrawLine(painter, horizontal ? start : 0, horizontal ? 0 : start,
                 horizontal ? end - start : width, horizontal ? height : end - start, colour);
        break;
    case 7: // hatched
        painter.fillRect(
            QRect(QPoint(horizontal ? start : 0, horizontal ? 0 : start),
                  QPoint(horizontal ? end - 1 : width - 1, horizontal ? height - 1 : end - 1)),
            QBrush(colour, HatchOf(m_brushStyle)));
        break;
    case 8: // a pattern made from the image
        if (!m_image.isNull())
            painter.fillRect(
                QRect(QPoint(horizontal ? start : 0, horizontal ? 0 : start),
                      QPoint(horizontal ? end - 1 : width - 1, horizontal ? height - 1 : end - 1)),
                QBrush(m_image));
        break;
    default: // 0, 1, 4, 5, 6, 9 and every other value: the shaded fill
        if (end > start) DrawShadedFill(painter, horizontal, thickness, start, end, colour);
        break;
    }

    // Mode 0 cuts the fill into blocks with white gaps.
    if (m_scrolling == 0) {
        if (horizontal) {
            for (int x = fill.left + fill.block; x < fill.right; x += fill.step)
                DrawLine(painter, x, fill.top, kGap, fill.bottom - fill.top, QColor(kWhite));
        } else {
            for (int y = fill.bottom - fill.block - kGap; y >= fill.top; y -= fill.step)
                DrawLine(painter, fill.left, y, width - fill.left, kGap, QColor(kWhite));
        }
    }

    DrawFrame(painter, width, height);

    const QString caption = Caption();
    if (!caption.isEmpty()) {
        painter.setFont(m_font);
        painter.setPen(QColor(m_scrolling == 6 ? kSilver : 0x000000));
        painter.drawText(QRect(0, 0, width, height), Qt::AlignCenter | Qt::TextSingleLine, caption);
    }
    if (!m_image.isNull() && m_scrolling != 8) painter.drawImage(0, 0, m_image);
}
