#include "ui/modDesign.h"

QLabel* PlaceLabel(QWidget* parent, const char* name, QRect geometry, const QString& caption) {
    auto* label = Place<QLabel>(parent, name, geometry, caption);
    label->setText(caption);
    return label;
}

QGroupBox* PlaceFrame(QWidget* parent, const char* name, QRect geometry, const QString& caption) {
    auto* frame = Place<QGroupBox>(parent, name, geometry, caption);
    frame->setTitle(caption);
    return frame;
}
