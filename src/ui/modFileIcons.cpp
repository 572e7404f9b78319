#include "ui/modFileIcons.h"

#include <QFont>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>

#include <initializer_list>

namespace {

// Icon names of the freedesktop.org naming rules, tried in order, by image number.
const std::initializer_list<const char*> kThemeNames[17] = {
    {},
    {"folder"},
    {"folder-open"},
    {"application-x-generic", "unknown"},
    {"application-x-sharedlib", "text-x-script"},
    {"package-x-generic", "application-x-archive"},
    {"application-x-executable", "application-x-msi"},
    {"font-x-generic"},
    {"text-html"},
    {"audio-x-generic"},
    {"video-x-generic"},
    {"image-x-generic"},
    {"x-office-database", "application-vnd.ms-access"},
    {"x-office-spreadsheet"},
    {"x-office-presentation"},
    {"x-office-document"},
    {"text-x-generic"},
};

const QColor kOutline(90, 90, 90);
const QColor kPaper(252, 252, 252);

// Everything is drawn on a grid of 16 by 16 units.
void Folder(QPainter& p, bool open) {
    const QColor back(214, 160, 45), front(246, 200, 90);
    p.setPen(QPen(back.darker(130), 0.8));
    p.setBrush(back);
    p.drawRoundedRect(QRectF(1, 3, 6, 3), 1, 1); // the tab
    p.drawRoundedRect(QRectF(1, 4.5, 14, 9.5), 1, 1);
    p.setBrush(front);
    if (open) {
        QPainterPath flap;
        flap.moveTo(3.5, 7);
        flap.lineTo(15.5, 7);
        flap.lineTo(13.5, 14);
        flap.lineTo(1, 14);
        flap.closeSubpath();
        p.drawPath(flap);
    } else {
        p.drawRoundedRect(QRectF(1, 6, 14, 8), 1, 1);
    }
}

void Page(QPainter& p) {
    QPainterPath page;
    page.moveTo(3, 1);
    page.lineTo(10, 1);
    page.lineTo(13, 4);
    page.lineTo(13, 15);
    page.lineTo(3, 15);
    page.closeSubpath();
    p.setPen(QPen(kOutline, 0.8));
    p.setBrush(kPaper);
    p.drawPath(page);
    p.drawLine(QPointF(10, 1), QPointF(10, 4));
    p.drawLine(QPointF(10, 4), QPointF(13, 4));
}

void TextLines(QPainter& p, const QColor& colour, double top, int lines) {
    p.setPen(QPen(colour, 1));
    for (int i = 0; i < lines; ++i)
        p.drawLine(QPointF(5, top + 2 * i), QPointF(i % 2 ? 9.5 : 11, top + 2 * i));
}

void Gear(QPainter& p) {
    const QColor steel(70, 100, 140);
    p.setPen(QPen(steel, 1.6));
    for (int i = 0; i < 4; ++i) {
        p.save();
        p.translate(8, 9.5);
        p.rotate(45.0 * i);
        p.drawLine(QPointF(-4, 0), QPointF(4, 0));
        p.restore();
    }
    p.setPen(QPen(steel, 0.8));
    p.setBrush(steel.lighter(150));
    p.drawEllipse(QPointF(8, 9.5), 2.6, 2.6);
    p.setBrush(kPaper);
    p.drawEllipse(QPointF(8, 9.5), 1, 1);
}

void Zipper(QPainter& p) {
    const QColor brown(150, 95, 40);
    p.setPen(Qt::NoPen);
    p.setBrush(brown);
    // A band of teeth down the page, left and right in turn, and the pull at its foot.
    for (int i = 0; i < 7; ++i)
        p.drawRect(QRectF(i % 2 ? 8 : 6.5, 1.5 + 1.4 * i, 1.5, 1));
    p.drawRoundedRect(QRectF(6, 11, 4, 3.5), 0.8, 0.8);
    p.setBrush(kPaper);
    p.drawRect(QRectF(7.3, 12.2, 1.4, 1.2));
}

void Package(QPainter& p) {
    const QColor box(200, 140, 70), arrow(40, 150, 60);
    p.setPen(QPen(box.darker(150), 0.8));
    p.setBrush(box);
    p.drawRect(QRectF(2, 8, 12, 7));
    p.setBrush(box.lighter(120));
    p.drawRect(QRectF(2, 8, 12, 2));
    p.setPen(Qt::NoPen);
    p.setBrush(arrow);
    QPainterPath down;
    down.moveTo(6.5, 1);
    down.lineTo(9.5, 1);
    down.lineTo(9.5, 4);
    down.lineTo(12, 4);
    down.lineTo(8, 8);
    down.lineTo(4, 4);
    down.lineTo(6.5, 4);
    down.closeSubpath();
    p.drawPath(down);
}

void Letter(QPainter& p) {
    QFont font(QStringLiteral("DejaVu Serif"));
    font.setPixelSize(10);
    font.setBold(true);
    p.setFont(font);
    p.setPen(QColor(30, 30, 30));
    p.drawText(QRectF(3, 4, 10, 11), Qt::AlignCenter, QStringLiteral("A"));
}

void Globe(QPainter& p) {
    const QColor sea(40, 110, 200);
    p.setPen(QPen(sea.darker(130), 0.8));
    p.setBrush(sea.lighter(160));
    p.drawEllipse(QPointF(8, 9.5), 4.5, 4.5);
    p.setBrush(Qt::NoBrush);
    p.drawEllipse(QPointF(8, 9.5), 2, 4.5);
    p.drawLine(QPointF(3.5, 9.5), QPointF(12.5, 9.5));
}

void Note(QPainter& p) {
    const QColor violet(120, 60, 170);
    p.setPen(QPen(violet, 1.2));
    p.drawLine(QPointF(9.5, 4), QPointF(9.5, 12));
    p.drawLine(QPointF(9.5, 4), QPointF(12, 6));
    p.setPen(Qt::NoPen);
    p.setBrush(violet);
    p.drawEllipse(QPointF(7.8, 12.3), 2.2, 1.7);
}

void Film(QPainter& p) {
    p.setPen(Qt::NoPen);
    p.setBrush(QColor(50, 50, 60));
    p.drawRect(QRectF(4, 3, 8, 11));
    p.setBrush(kPaper);
    for (int i = 0; i < 4; ++i) {
        p.drawRect(QRectF(4.7, 3.8 + 2.6 * i, 1.2, 1.2));
        p.drawRect(QRectF(10.1, 3.8 + 2.6 * i, 1.2, 1.2));
    }
    p.setBrush(QColor(120, 170, 230));
    p.drawRect(QRectF(6.5, 4.5, 3, 3.5));
    p.drawRect(QRectF(6.5, 9, 3, 3.5));
}

void Picture(QPainter& p) {
    p.setPen(Qt::NoPen);
    p.setBrush(QColor(170, 210, 245));
    p.drawRect(QRectF(4, 5, 8, 8));
    p.setBrush(QColor(245, 170, 40));
    p.drawEllipse(QPointF(10, 7), 1.2, 1.2);
    p.setBrush(QColor(60, 150, 70));
    QPainterPath hills;
    hills.moveTo(4, 13);
    hills.lineTo(7, 8.5);
    hills.lineTo(9.5, 11);
    hills.lineTo(10.5, 10);
    hills.lineTo(12, 13);
    hills.closeSubpath();
    p.drawPath(hills);
}

void Cylinder(QPainter& p) {
    const QColor maroon(150, 40, 50);
    p.setPen(QPen(maroon.darker(140), 0.8));
    p.setBrush(maroon);
    p.drawRect(QRectF(4, 5, 8, 8));
    p.drawEllipse(QRectF(4, 11.5, 8, 3));
    p.setPen(Qt::NoPen);
    p.drawRect(QRectF(4.4, 6, 7.2, 7));
    p.setPen(QPen(maroon.darker(140), 0.8));
    p.setBrush(maroon.lighter(150));
    p.drawEllipse(QRectF(4, 3.5, 8, 3));
}

void Grid(QPainter& p) {
    const QColor green(30, 130, 70);
    p.setPen(Qt::NoPen);
    p.setBrush(green);
    p.drawRect(QRectF(4.5, 5, 7, 2));
    p.setPen(QPen(green, 0.8));
    p.setBrush(Qt::NoBrush);
    p.drawRect(QRectF(4.5, 5, 7, 8.5));
    p.drawLine(QPointF(8, 5), QPointF(8, 13.5));
    p.drawLine(QPointF(4.5, 9.5), QPointF(11.5, 9.5));
    p.drawLine(QPointF(4.5, 11.5), QPointF(11.5, 11.5));
}

void Slide(QPainter& p) {
    const QColor orange(220, 90, 30);
    p.setPen(QPen(orange, 0.8));
    p.setBrush(orange.lighter(170));
    p.drawRect(QRectF(4, 4.5, 8, 6.5));
    p.setPen(Qt::NoPen);
    p.setBrush(orange);
    p.drawPie(QRectF(5.5, 5.5, 4.5, 4.5), 90 * 16, 270 * 16);
    p.setPen(QPen(orange.darker(130), 1));
    p.drawLine(QPointF(8, 11), QPointF(8, 14));
}

void Document(QPainter& p) {
    const QColor blue(40, 80, 170);
    p.setPen(Qt::NoPen);
    p.setBrush(blue);
    p.drawRect(QRectF(4.5, 3.5, 5, 2.5));
    TextLines(p, blue, 8, 4);
}

void Draw(QPainter& p, int image) {
    if (image == 1 || image == 2) {
        Folder(p, image == 2);
        return;
    }
    if (image != 6) Page(p);
    switch (image) {
    case 4:
        Gear(p);
        break;
    case 5:
        Zipper(p);
        break;
    case 6:
        Package(p);
        break;
    case 7:
        Letter(p);
        break;
    case 8:
        Globe(p);
        break;
    case 9:
        Note(p);
        break;
    case 10:
        Film(p);
        break;
    case 11:
        Picture(p);
        break;
    case 12:
        Cylinder(p);
        break;
    case 13:
        Grid(p);
        break;
    case 14:
        Slide(p);
        break;
    case 15:
        Document(p);
        break;
    case 16:
        TextLines(p, QColor(110, 110, 110), 4, 6);
        break;
    default:
        break; // 3: a blank page
    }
}

QPixmap Drawn(int image, int size) {
    QPixmap pixmap(size, size);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.scale(size / 16.0, size / 16.0);
    Draw(painter, image);
    return pixmap;
}

int Known(int image) {
    return image >= 1 && image <= 16 ? image : 3;
}

} // namespace

QIcon DrawnFileKindIcon(int image) {
    QIcon icon;
    for (int size : {16, 24, 32, 48, 64})
        icon.addPixmap(Drawn(Known(image), size));
    return icon;
}

QIcon FileKindIcon(int image) {
    image = Known(image);
    for (const char* name : kThemeNames[image]) {
        const QIcon themed = QIcon::fromTheme(QString::fromLatin1(name));
        if (!themed.isNull()) return themed;
    }
    return DrawnFileKindIcon(image);
}

QIcon FolderNodeIcon() {
    const QIcon closed = FileKindIcon(1), open = FileKindIcon(2);
    QIcon both;
    for (int size : {16, 24, 32, 48, 64}) {
        both.addPixmap(closed.pixmap(size), QIcon::Normal);
        both.addPixmap(open.pixmap(size), QIcon::Selected);
    }
    return both;
}
