#include "controls/modAccessible.h"

#include "controls/XP_ProgressBar.h"

#include <QAccessibleValueInterface>
#include <QAccessibleWidget>
#include <QLabel>

namespace {

constexpr const char* kStatusProperty = "qrvStatusText";

// The meaning of a control, for its description: an explicit description, else its accessible
// name.
QString Meaning(const QWidget* widget) {
    return widget->accessibleDescription().isEmpty() ? widget->accessibleName()
                                                     : widget->accessibleDescription();
}

class CProgressBarAccessible : public QAccessibleWidget, public QAccessibleValueInterface {
public:
    explicit CProgressBarAccessible(XP_ProgressBar* bar)
        : QAccessibleWidget(bar, QAccessible::ProgressBar) {}

    QString text(QAccessible::Text type) const override {
        switch (type) {
        case QAccessible::Name:
        case QAccessible::Value:
            return Bar()->Text();
        case QAccessible::Description:
            return Meaning(widget());
        default:
            return QAccessibleWidget::text(type);
        }
    }

    void* interface_cast(QAccessible::InterfaceType type) override {
        if (type == QAccessible::ValueInterface)
            return static_cast<QAccessibleValueInterface*>(this);
        return QAccessibleWidget::interface_cast(type);
    }

    QVariant currentValue() const override { return Bar()->Value(); }
    void setCurrentValue(const QVariant&) override {} // it shows progress; nobody sets it
    QVariant maximumValue() const override { return Bar()->Max(); }
    QVariant minimumValue() const override { return Bar()->Min(); }
    QVariant minimumStepSize() const override { return 0; }

private:
    const XP_ProgressBar* Bar() const { return static_cast<const XP_ProgressBar*>(object()); }
};

class CStatusTextAccessible : public QAccessibleWidget {
public:
    explicit CStatusTextAccessible(QLabel* label)
        : QAccessibleWidget(label, QAccessible::StaticText) {}

    QString text(QAccessible::Text type) const override {
        switch (type) {
        case QAccessible::Name:
        case QAccessible::Value:
            return static_cast<const QLabel*>(object())->text();
        case QAccessible::Description:
            return Meaning(widget());
        default:
            return QAccessibleWidget::text(type);
        }
    }
};

QAccessibleInterface* Describe(const QString& className, QObject* object) {
    if (className == QLatin1String("XP_ProgressBar"))
        return new CProgressBarAccessible(static_cast<XP_ProgressBar*>(object));
    if (className == QLatin1String("QLabel") && object->property(kStatusProperty).toBool())
        return new CStatusTextAccessible(static_cast<QLabel*>(object));
    return nullptr;
}

} // namespace

void MarkStatusText(QLabel* label) {
    InstallAccessibility();
    label->setProperty(kStatusProperty, true);
    label->setTextFormat(Qt::PlainText); // a path is shown (and read) as it is, never as markup
    // Naming the label made Qt's own description of it, which is kept until the label goes;
    // dropped, the next reader gets this one.
    QAccessibleInterface* made = QAccessible::queryAccessibleInterface(label);
    if (made && !dynamic_cast<CStatusTextAccessible*>(made))
        QAccessible::deleteAccessibleInterface(QAccessible::uniqueId(made));
}

void InstallAccessibility() {
    static const bool installed = (QAccessible::installFactory(Describe), true);
    (void)installed;
}
