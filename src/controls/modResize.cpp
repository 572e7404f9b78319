#include "controls/modResize.h"

#include <QMainWindow>

#include <algorithm>
#include <vector>

namespace {

constexpr const char* kControlProperty = "qrvControl";
constexpr const char* kIndexProperty = "qrvIndex";
constexpr int kRightMargin = 200;
constexpr int kBottomMargin = 500;
constexpr int kParkedOffset = 75000;

struct ControlRecord {
    std::string name;
    int index;
    QRect geometry; // twips, relative to the control's parent
};

struct FormRecord {
    std::string name;
    int scaleWidth, scaleHeight; // the inner size, twips
    std::vector<ControlRecord> controls;
};

std::vector<FormRecord>& Forms() {
    static std::vector<FormRecord> forms;
    return forms;
}

bool g_resizing = false;

int Twips(int pixels) {
    return pixels * kTwipsPerPixel;
}

int Pixels(int twips) {
    // Whole pixels, rounded; halves away from zero keep parked controls symmetric.
    return twips >= 0 ? (twips + kTwipsPerPixel / 2) / kTwipsPerPixel
                      : -((-twips + kTwipsPerPixel / 2) / kTwipsPerPixel);
}

QWidget* Inner(QWidget* form) {
    auto* window = qobject_cast<QMainWindow*>(form);
    return window && window->centralWidget() ? window->centralWidget() : form;
}

const QWidget* Inner(const QWidget* form) {
    return Inner(const_cast<QWidget*>(form));
}

std::vector<QWidget*> ControlsOf(QWidget* form) {
    std::vector<QWidget*> controls;
    for (QWidget* child : form->findChildren<QWidget*>())
        if (child->property(kControlProperty).toBool()) controls.push_back(child);
    return controls;
}

int IndexOf(const QWidget* control) {
    return control->property(kIndexProperty).toInt();
}

FormRecord* Find(const QWidget* form) {
    const std::string name = form->objectName().toStdString();
    for (FormRecord& record : Forms())
        if (record.name == name) return &record;
    return nullptr;
}

const ControlRecord* FindControl(const FormRecord& form, const QWidget* control) {
    const std::string name = control->objectName().toStdString();
    for (const ControlRecord& record : form.controls)
        if (record.name == name && record.index == IndexOf(control)) return &record;
    return nullptr;
}

QRect TwipsGeometry(const QWidget* control) {
    const QRect g = control->geometry();
    return QRect(Twips(g.x()), Twips(g.y()), Twips(g.width()), Twips(g.height()));
}

// Records the form and its controls, and grows it to hold them all with the margins.
void Record(QWidget* form) {
    FormRecord record{form->objectName().toStdString(),
                      Twips(Inner(form)->width()),
                      Twips(Inner(form)->height()),
                      {}};
    int width = Twips(form->width()), height = Twips(form->height());
    const QWidget* inner = Inner(form);
    for (QWidget* control : ControlsOf(form)) {
        record.controls.push_back(
            {control->objectName().toStdString(), IndexOf(control), TwipsGeometry(control)});
        // The margins are kept in the inner area, where the controls are.
        const QPoint at = control->parentWidget()->mapTo(inner, control->pos());
        if (at.x() < 0) continue; // parked off its page
        width = std::max(width, Twips(at.x() + control->width()) + kRightMargin);
        height = std::max(height, Twips(at.y() + control->height()) + kBottomMargin);
    }
    Forms().push_back(std::move(record));
    form->resize(Pixels(width), Pixels(height));
}

void Rescale(const FormRecord& form, QWidget* control, int horizontal, int vertical) {
    const ControlRecord* record = FindControl(form, control);
    if (!record) return;
    const QRect& g = record->geometry;
    int left = g.x() * horizontal / 100;
    if (g.x() < 0) // parked off its page: scaled at its real place, and parked again
        left = (g.x() + kParkedOffset) * horizontal / 100 - kParkedOffset;
    control->setGeometry(Pixels(left), Pixels(g.y() * vertical / 100),
                         Pixels(g.width() * horizontal / 100), Pixels(g.height() * vertical / 100));
}

} // namespace

void MarkControl(QWidget* control, int index) {
    control->setProperty(kControlProperty, true);
    control->setProperty(kIndexProperty, index);
}

void Resize(QWidget* form) {
    if (g_resizing) return;
    g_resizing = true;
    const bool visible = form->isVisible();
    if (!form->isMinimized()) {
        // A window being shown has its first resize event before it counts as visible: the
        // size it opens at is the one its layout was made for, so that is when it is recorded
        // (not at the first size a person gives it, which may be maximised).
        if (!Find(form) && !form->isHidden()) Record(form);
        if (const FormRecord* record = Find(form)) {
            const int horizontal = HorizontalScale(form), vertical = VerticalScale(form);
            for (QWidget* control : ControlsOf(form))
                Rescale(*record, control, horizontal, vertical);
        }
        // The visible state noted at the start, should the rescaling have changed it.
        if (form->isVisible() != visible) form->setVisible(visible);
    }
    g_resizing = false;
}

int HorizontalScale(const QWidget* form) {
    const FormRecord* record = Find(form);
    return record && record->scaleWidth > 0 ? Twips(Inner(form)->width()) * 100 / record->scaleWidth
                                            : 100;
}

int VerticalScale(const QWidget* form) {
    const FormRecord* record = Find(form);
    return record && record->scaleHeight > 0
               ? Twips(Inner(form)->height()) * 100 / record->scaleHeight
               : 100;
}

QRect RecordedGeometry(const QWidget* form, const QWidget* control) {
    const FormRecord* record = Find(form);
    const ControlRecord* found = record ? FindControl(*record, control) : nullptr;
    return found ? found->geometry : QRect();
}

void ForgetForms() {
    Forms().clear();
}
