#include "ui/modDesign.h"

#include "controls/modAccessible.h"

#include <QAbstractButton>
#include <QKeySequence>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>

void Dress(QWidget* control, const ControlDesign& design) {
    const QString caption = QString::fromUtf8(design.caption);
    if (*design.toolTip) control->setToolTip(QString::fromUtf8(design.toolTip));
    if (design.flags & design::kStartsDisabled) control->setEnabled(false);
    if (auto* label = qobject_cast<QLabel*>(control)) {
        label->setText(caption);
        if (design.kind == ControlKind::kStatusText) MarkStatusText(label);
        if (design.flags & design::kRightAligned)
            label->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    } else if (auto* button = qobject_cast<QAbstractButton*>(control)) {
        button->setText(caption);
        if (design.accessKey)
            button->setShortcut(QKeySequence(Qt::ALT | Qt::Key(design.accessKey)));
        if (design.flags & design::kChecked) button->setChecked(true);
        if (auto* push = qobject_cast<QPushButton*>(control))
            push->setDefault((design.flags & design::kDefault) != 0);
    } else if (auto* frame = qobject_cast<QGroupBox*>(control)) {
        frame->setTitle(caption);
    } else if (auto* box = qobject_cast<QLineEdit*>(control)) {
        box->setText(caption);
        box->setPlaceholderText(QString::fromUtf8(design.hint));
        box->setReadOnly((design.flags & design::kReadOnly) != 0);
    } else if (auto* spin = qobject_cast<QSpinBox*>(control)) {
        spin->setRange(design.low, design.high);
        spin->setValue(design.value);
    }
    if (design.flags & design::kBold) {
        QFont bold = control->font();
        bold.setBold(true);
        control->setFont(bold);
    }
}

QLabel* StatusLabel(QWidget* parent, const char* name, const QString& accessibleName) {
    auto* label = new QLabel(parent);
    label->setObjectName(QString::fromLatin1(name));
    label->setAccessibleName(accessibleName);
    label->setWordWrap(true);
    MarkStatusText(label);
    return label;
}
