#include "ui/CDBusNotifier.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusError>
#include <QDBusMessage>
#include <QDir>
#include <QFileInfo>
#include <QStringList>
#include <QVariantMap>

#include <memory>

namespace {

constexpr int kAnswerMs = 2000;
const QString kConnectionName = QStringLiteral("stashwell-notifications");

QString SessionBus() {
    const QString address = qEnvironmentVariable("DBUS_SESSION_BUS_ADDRESS");
    if (!address.isEmpty()) return address;
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    const QString bus = QDir(runtime).filePath(QStringLiteral("bus"));
    if (!runtime.isEmpty() && QFileInfo::exists(bus)) return QStringLiteral("unix:path=") + bus;
    return {};
}

} // namespace

std::string CDBusNotifier::Send(const std::string& title, const std::string& body) {
    const QString bus = SessionBus();
    if (bus.isEmpty()) return "there is no session bus (DBUS_SESSION_BUS_ADDRESS is not set)";
    std::unique_ptr<QCoreApplication> own;
    if (!QCoreApplication::instance()) {
        static int argc = 1;
        static char name[] = "stashwell";
        static char* argv[] = {name, nullptr};
        own = std::make_unique<QCoreApplication>(argc, argv);
    }
    std::string problem;
    {
        QDBusConnection connection = QDBusConnection::connectToBus(bus, kConnectionName);
        if (!connection.isConnected()) {
            problem = "the session bus cannot be reached: " +
                      connection.lastError().message().toStdString();
        } else {
            QDBusMessage call = QDBusMessage::createMethodCall(
                QStringLiteral("org.freedesktop.Notifications"),
                QStringLiteral("/org/freedesktop/Notifications"), // not a path separator
                QStringLiteral("org.freedesktop.Notifications"), QStringLiteral("Notify"));
            call << QStringLiteral("Stashwell") << 0u << QStringLiteral("drive-harddisk")
                 << QString::fromStdString(title) << QString::fromStdString(body) << QStringList()
                 << QVariantMap() << -1;
            const QDBusMessage reply = connection.call(call, QDBus::Block, kAnswerMs);
            if (reply.type() == QDBusMessage::ErrorMessage)
                problem = "the notification service did not take it: " +
                          reply.errorMessage().toStdString();
        }
    }
    QDBusConnection::disconnectFromBus(kConnectionName);
    return problem;
}
