#pragma once

// Desktop notifications through the freedesktop notification service
// (org.freedesktop.Notifications) on the user's session bus, with Qt's D-Bus module: the bus of
// DBUS_SESSION_BUS_ADDRESS, else the one at $XDG_RUNTIME_DIR/bus. A program without a window
// has no Qt application yet: one without a display (QCoreApplication) is made for the call. The
// call waits at most 2 seconds for the service's answer.

#include "app/modNotify.h"

class CDBusNotifier : public INotifier {
public:
    std::string Send(const std::string& title, const std::string& body) override;
};
