#pragma once

// The proportional control resizer: a form's controls follow the form's size. The first time
// a shown form is resized it is recorded, by its object name, with its inner size and the
// geometry of every control; the form then grows, where needed, so that every control has a
// margin of 200 units at its right and 500 below it. On every later resize each control is
// placed at its recorded geometry scaled by the ratio of the form's inner size to the recorded
// one, in whole per cent, so the layout moves in 1 % steps. A window has its first resize as it
// is shown, at the size its layout was made for, so its layout comes back exactly whenever it
// has that size again, whatever sizes (maximised, minimised, restored) it had in between.
//
// Units are the form's design units, twips: 15 to a device-independent pixel. The inner size
// of a QMainWindow is its central widget's; of any other widget, its own. A form's controls are
// the widgets marked with MarkControl (members of one control array share a name and differ by
// index). A control placed left of 0 is one a tab container parked off its page, 75000 units to
// the left: it is scaled at its real place and stays parked. A minimised form is not touched.

#include <QRect>
#include <QWidget>

#include <string>

inline constexpr int kTwipsPerPixel = 15;

// Marks `control` as a control of its form for the resizer; `index` for a member of a control
// array, -1 otherwise.
void MarkControl(QWidget* control, int index = -1);

// Records `form` on first use, then rescales its controls. Called from the form's resize event.
void Resize(QWidget* form);

// Whole-percent horizontal and vertical scales of a recorded form; 100 for one not recorded.
int HorizontalScale(const QWidget* form);
int VerticalScale(const QWidget* form);

// The geometry recorded for a control, in twips (empty for one not recorded).
QRect RecordedGeometry(const QWidget* form, const QWidget* control);

// Forgets every recorded form (a window made anew is recorded anew).
void ForgetForms();
