// A stand-in for the desktop's notification service, for the tests: it takes the name
// org.freedesktop.Notifications on the bus given (a private session bus the test started) and
// appends every Notify call to a file, one line each: "app|summary|body" with each new line of
// the body written as "\n". Once it serves, it writes "ready" to the file named third.
//
//   fake_notifications BUS-ADDRESS CALLS-FILE READY-FILE

#include <QCoreApplication>
#include <QDBusConnection>
#include <QFile>
#include <QObject>
#include <QStringList>
#include <QVariantMap>

#include <cstdio>

class Notifications : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

public:
    explicit Notifications(QString calls) : m_calls(std::move(calls)) {}

public slots:
    uint Notify(const QString& app, uint, const QString&, const QString& summary,
                const QString& body, const QStringList&, const QVariantMap&, int) {
        QFile file(m_calls);
        if (file.open(QIODevice::Append)) {
            QString text = body;
            text.replace(QLatin1Char('\n'), QStringLiteral("\\n"));
            file.write(
                (app + QLatin1Char('|') + summary + QLatin1Char('|') + text + QLatin1Char('\n'))
                    .toUtf8());
        }
        return ++m_id;
    }
    QStringList GetCapabilities() { return {QStringLiteral("body")}; }
    QString GetServerInformation(QString& vendor, QString& version, QString& protocol) {
        vendor = QStringLiteral("Stashwell tests");
        version = protocol = QStringLiteral("1.2");
        return QStringLiteral("fake_notifications");
    }

private:
    QString m_calls;
    uint m_id = 0;
};

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: fake_notifications BUS-ADDRESS CALLS-FILE READY-FILE\n");
        return 2;
    }
    QCoreApplication app(argc, argv);
    QDBusConnection bus =
        QDBusConnection::connectToBus(QString::fromLocal8Bit(argv[1]), QStringLiteral("fake"));
    Notifications service(QString::fromLocal8Bit(argv[2]));
    if (!bus.isConnected() ||
        !bus.registerObject(QStringLiteral("/org/freedesktop/Notifications"), &service,
                            QDBusConnection::ExportAllSlots) ||
        !bus.registerService(QStringLiteral("org.freedesktop.Notifications"))) {
        std::fprintf(stderr, "fake_notifications: cannot serve on %s\n", argv[1]);
        return 1;
    }
    QFile ready(QString::fromLocal8Bit(argv[3]));
    if (ready.open(QIODevice::WriteOnly)) ready.write("ready\n");
    ready.close();
    return app.exec();
}

#include "FakeNotifications.moc"
