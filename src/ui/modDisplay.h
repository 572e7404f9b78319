#pragma once

// Whether the window can open a display, found out before Qt is asked to: Qt ends the process
// (abort) when no platform it tries can connect, and a stale DISPLAY or WAYLAND_DISPLAY, as in
// a job started from an old session, must not cost a scheduled run. The platforms are tried in
// Qt's own order: those that QT_QPA_PLATFORM lists, or else Wayland first when WAYLAND_DISPLAY
// is set or the session is a Wayland one, then X11. As Qt does, a platform whose plugin is not
// installed is passed over. X11 answers when xcb_connect gets a connection without error (a
// refused authorisation is one), Wayland when wl_display_connect gets one; offscreen and minimal
// need nothing, and any other platform is Qt's to open. The platform found is what the window
// hands Qt as its -platform, so that Qt's choice cannot differ from the probe.

#include <string>

struct DisplayFound {
    // The Qt platform that opens the display, as Qt takes it ("xcb", "wayland", "offscreen");
    // empty when none can.
    std::string platform;
    // The display found or, when none can be opened, the first one named that could not (":97",
    // "wayland-1", a platform's own name); empty when the environment names none.
    std::string name;
};

DisplayFound FindDisplay();
