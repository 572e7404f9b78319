#include "ui/modDisplay.h"

#include "app/modMain.h"

#include <QCoreApplication>
#include <QDir>
#include <QJsonArray>
#include <QJsonObject>
#include <QPluginLoader>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <set>
#include <vector>
#include <wayland-client.h>
#include <xcb/xcb.h>

namespace {

std::string Env(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

std::string Lower(std::string text) {
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

// The platforms Qt tries, in its order; each may carry arguments after a colon.
std::vector<std::string> Candidates() {
    std::vector<std::string> order;
    const std::string named = Env("QT_QPA_PLATFORM");
    if (!named.empty()) {
        size_t start = 0;
        while (start <= named.size()) {
            const size_t end = std::min(named.find(';', start), named.size());
            if (end > start) order.push_back(named.substr(start, end - start));
            start = end + 1;
        }
        return order;
    }
    if (std::getenv("WAYLAND_DISPLAY") || Env("XDG_SESSION_TYPE") == "wayland")
        order.push_back("wayland");
    order.push_back("xcb"); // tried for DISPLAY, and last as the build's default
    return order;
}

// The keys of the installed platform plugins, in lower case, from the folders Qt looks in.
std::set<std::string> InstalledPlatforms() {
    QStringList folders;
    for (const QString& path : QCoreApplication::libraryPaths())
        folders << QDir(path).filePath(QStringLiteral("platforms"));
    const QString own = qEnvironmentVariable("QT_QPA_PLATFORM_PLUGIN_PATH");
    if (!own.isEmpty()) folders << own;
    std::set<std::string> keys;
    for (const QString& folder : folders) {
        const QDir dir(folder);
        for (const QString& file : dir.entryList(QDir::Files)) {
            // Reads the plugin's metadata without loading it.
            const QPluginLoader plugin(dir.filePath(file));
            const QJsonObject meta = plugin.metaData().value(QStringLiteral("MetaData")).toObject();
            for (const QJsonValue& key : meta.value(QStringLiteral("Keys")).toArray())
                keys.insert(key.toString().toLower().toStdString());
        }
    }
    return keys;
}

bool X11Answers() {
    // DISPLAY names the server; the authorisation comes from XAUTHORITY as for every client.
    xcb_connection_t* connection = xcb_connect(nullptr, nullptr);
    const bool open = xcb_connection_has_error(connection) == 0;
    xcb_disconnect(connection);
    return open;
}

bool WaylandAnswers() {
    wl_display* display = wl_display_connect(nullptr);
    if (!display) return false;
    wl_display_disconnect(display);
    return true;
}

bool IsWayland(const std::string& base) {
    return base.starts_with("wayland");
}

bool Answers(const std::string& base) {
    if (base == "xcb") return X11Answers();
    if (IsWayland(base)) return WaylandAnswers();
    return true; // offscreen and minimal need nothing; any other is Qt's to open
}

// The display a platform opens, as the messages name it.
std::string DisplayOf(const std::string& base) {
    if (base == "xcb") return Env("DISPLAY");
    if (IsWayland(base)) return Env("WAYLAND_DISPLAY");
    return base;
}

} // namespace

DisplayFound FindDisplay() {
    if (!HasDisplay()) return {};
    const std::set<std::string> installed = InstalledPlatforms();
    DisplayFound found;
    for (const std::string& platform : Candidates()) {
        const std::string base = Lower(platform.substr(0, platform.find(':')));
        const std::string name = DisplayOf(base);
        if (found.name.empty()) found.name = name;
        if (installed.contains(base) && Answers(base)) return {platform, name};
    }
    if (found.name.empty()) found.name = Env("QT_QPA_PLATFORM"); // as "xcb" without DISPLAY
    return found;
}
