#pragma once

// Places the window's controls at their design geometry: each control is made with its name
// (the Qt object name that tests find it by), its geometry in device-independent pixels, its
// accessible name, and the resizer's mark, so the layout follows the window's size.

#include "controls/modResize.h"

#include <QGroupBox>
#include <QLabel>
#include <QRect>
#include <QString>
#include <QWidget>

template <class Control>
Control* Place(QWidget* parent, const char* name, QRect geometry, const QString& accessibleName) {
    auto* control = new Control(parent);
    control->setObjectName(QString::fromLatin1(name));
    control->setGeometry(geometry);
    control->setAccessibleName(accessibleName);
    MarkControl(control);
    return control;
}

// A label with its caption.
QLabel* PlaceLabel(QWidget* parent, const char* name, QRect geometry, const QString& caption);
// A label of a dialog laid out by a layout: its text changes as work goes on (a status), and
// wraps.
QLabel* StatusLabel(QWidget* parent, const char* name, const QString& accessibleName);
// A frame with its caption.
QGroupBox* PlaceFrame(QWidget* parent, const char* name, QRect geometry, const QString& caption);
