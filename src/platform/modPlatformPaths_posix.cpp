#include "platform/modPlatformPaths.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <sys/stat.h>
#include <unistd.h>

namespace {
std::string EnvOrHome(const char* name, const char* fallbackBelowHome) {
    const char* value = std::getenv(name);
    if (value && *value) return value;
    const char* home = std::getenv("HOME");
    return std::string(home ? home : "") + fallbackBelowHome;
}

bool IsFolder(const std::string& path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}
} // namespace

std::string ConfigHome() {
    return EnvOrHome("XDG_CONFIG_HOME", "/.config");
}

std::string StateFolder() {
    return EnvOrHome("XDG_STATE_HOME", "/.local/state") + "/Korvex/QRV";
}

std::string StateFile(const std::string& name) {
    const std::string folder = StateFolder();
    MakePrivateFolders(folder);
    return folder + "/" + name;
}

std::string EnvironmentValue(const std::string& name) {
    const char* value = std::getenv(name.c_str());
    return value ? value : "";
}

std::vector<std::string> ProgramSearchFolders() {
    const char* path = std::getenv("PATH");
    const std::string list = path ? path : "/usr/local/bin:/usr/bin:/bin";
    std::vector<std::string> folders;
    for (size_t start = 0; start <= list.size();) {
        const size_t colon = std::min(list.find(':', start), list.size());
        if (colon > start) folders.push_back(list.substr(start, colon - start));
        start = colon + 1;
    }
    return folders;
}

std::string ProgramFolder() {
    char buf[PATH_MAX];
    const ssize_t n = ::readlink("/proc/self/exe", buf, sizeof buf - 1);
    if (n <= 0) return CurrentFolder();
    std::string path(buf, static_cast<size_t>(n));
    return path.substr(0, path.rfind('/'));
}

std::string CurrentFolder() {
    char buf[PATH_MAX];
    return ::getcwd(buf, sizeof buf) ? std::string(buf) : std::string();
}

bool MakePrivateFolders(const std::string& path) {
    if (path.empty()) return false;
    for (size_t pos = path.find('/', 1);; pos = path.find('/', pos + 1)) {
        const std::string prefix = path.substr(0, pos);
        if (!prefix.empty() && !IsFolder(prefix) &&
            ::mkdir(prefix.c_str(), kPrivateFolderMode) != 0 && errno != EEXIST)
            return false;
        if (pos == std::string::npos) break;
    }
    return IsFolder(path);
}
