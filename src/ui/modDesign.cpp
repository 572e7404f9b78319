#include "ui/modDesign.h"

#include "controls/modAccessible.h"

QLabel* PlaceLabel(QWidget* parent, const char* name, QRect geometry, const QString& caption) {
    auto* label = Place<QLabel>(parent, name, geometry, caption);
    label->setText(caption);
    return label;
}

QLabel* StatusLabel(QWidget* parent, const char* name, const QString& accessibleName) {
    auto* label = new QLabel(parent);
    label->setObjectName(QString::fromLatin1(name));
    label->setAccessibleName(accessibleName);
    label->setWordWrap(true);
    MarkStatusText(label);
    return label;
}

QGroupBox* PlaceFrame(QWidget* parent, const char* name, QRect geometry, const QString& caption) {
    auto* frame = Place<QGroupBox>(parent, name, geometry, caption);
    frame->setTitle(caption);
    return frame;
}
