#include "ui/CApplication.h"

#include "support/CProcTrap.h"

CApplication::CApplication(int& argc, char** argv) : QApplication(argc, argv) {}

bool CApplication::notify(QObject* receiver, QEvent* event) {
    try {
        return QApplication::notify(receiver, event);
    } catch (...) {
        const QString name =
            receiver && !receiver->objectName().isEmpty()
                ? receiver->objectName()
                : QString::fromLatin1(receiver ? receiver->metaObject()->className() : "event");
        CProcTrap trap(name.toStdString() + " event " + std::to_string(int(event->type())));
        trap.Handle();
        return false;
    }
}
