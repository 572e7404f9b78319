#pragma once

// Places the window's controls at their design geometry: each control is made with its name
// (the Qt object name that tests find it by), its geometry in device-independent pixels, its
// accessible name, and the resizer's mark, so the layout follows the window's size.

#include "app/modWindowDesign.h"
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

// Gives a control made from the main window's design (modWindowDesign) what the design holds
// beside its place: tool tip, caption or default text, Alt key, grey hint, range, the status
// mark, bold or right-aligned text, and the enabled, checked and default states.
void Dress(QWidget* control, const ControlDesign& design);

// A control of the main window's design, in `parent`: its frame, or its tab's page.
template <class Control> Control* Place(QWidget* parent, const ControlDesign& design) {
    const DesignRect place = design.geometry;
    auto* control =
        Place<Control>(parent, design.name, QRect(place.x, place.y, place.width, place.height),
                       QString::fromStdString(design.AccessibleName()));
    Dress(control, design);
    return control;
}
template <class Control> Control* Place(QWidget* parent, const char* name) {
    return Place<Control>(parent, Design(name));
}

// A label of a dialog laid out by a layout: its text changes as work goes on (a status), and
// wraps.
QLabel* StatusLabel(QWidget* parent, const char* name, const QString& accessibleName);
