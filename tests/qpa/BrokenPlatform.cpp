// A platform plugin that Qt finds under its key "stashwell-broken" and then cannot start: its
// object is no platform integration, so Qt ends the process with a fatal message while the
// application is being built, as it does when a display fails after all. The start-up tests of
// the real program choose it through QT_QPA_PLATFORM and QT_QPA_PLATFORM_PLUGIN_PATH.

#include <QObject>
#include <QtPlugin>

class BrokenPlatform : public QObject {
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "org.qt-project.Qt.QPA.QPlatformIntegrationFactoryInterface.5.3" FILE
                          "BrokenPlatform.json")
};

#include "BrokenPlatform.moc"
