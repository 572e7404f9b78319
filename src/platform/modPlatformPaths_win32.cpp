#include "platform/modPlatformPaths.h"

#include "platform/modWin32Security.h"
#include "platform/modWin32Text.h"

#include <algorithm>
#include <shlobj.h>

// The state folder is %LOCALAPPDATA%\Korvex\QRV, the user's own folder that no other user can
// read. The error report (QRVERR.LOG, ERRORS.TXT), the logger file (LOGGER.TXT) and the trace
// (trace.log) have places of their own: C:\ for the first three and the program's folder for the
// trace. A standard user of Windows 10/11 may not make files in C:\, nor in a program folder
// below Program Files, so each is taken when it can be written there and the state folder
// otherwise. With STASHWELL_PER_USER_STATE set (tests, which point LOCALAPPDATA into a
// folder of their own), every file stays in the state folder.

namespace {

std::string Environment(const wchar_t* name) {
    const DWORD size = ::GetEnvironmentVariableW(name, nullptr, 0);
    if (size == 0) return std::string();
    std::wstring value(size, L'\0');
    const DWORD n = ::GetEnvironmentVariableW(name, value.data(), size);
    value.resize(n < size ? n : 0);
    return Narrow(value);
}

// SHGetFolderPathW, which needs no COM library, unlike SHGetKnownFolderPath.
std::string ShellFolder(int id) {
    wchar_t path[MAX_PATH] = {};
    return ::SHGetFolderPathW(nullptr, id, nullptr, SHGFP_TYPE_CURRENT, path) == S_OK
               ? Narrow(path)
               : std::string();
}

std::string EnvOrShellFolder(const wchar_t* name, int id) {
    const std::string value = Environment(name);
    return value.empty() ? ShellFolder(id) : value;
}

bool IsSeparator(char c) {
    return c == '\\' || c == '/';
}

// The end of the part of `path` that names where it starts: "C:\", "\", "\\server\share\",
// "\\?\C:\", "\\?\UNC\server\share\"; 0 for a relative path.
size_t RootLength(const std::string& path) {
    const auto skipPart = [&](size_t from) {
        while (from < path.size() && !IsSeparator(path[from]))
            ++from;
        return from < path.size() ? from + 1 : from;
    };
    size_t at = 0;
    if (path.rfind("\\\\?\\UNC\\", 0) == 0) return skipPart(skipPart(8));
    if (path.rfind("\\\\?\\", 0) == 0 || path.rfind("\\\\.\\", 0) == 0)
        at = 4;
    else if (path.size() >= 2 && IsSeparator(path[0]) && IsSeparator(path[1]))
        return skipPart(skipPart(2));
    if (path.size() >= at + 2 && path[at + 1] == ':') at += 2;
    if (at < path.size() && IsSeparator(path[at])) ++at;
    return at;
}

bool IsFolder(const std::string& path) {
    const DWORD attributes = ::GetFileAttributesW(WidePath(path).c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
}

// Whether this process may write the file `path`: open for appending when it is there, made
// and at once removed again when it is not.
bool IsWritablePlace(const std::string& path) {
    const std::wstring wide = WidePath(path);
    HANDLE file = ::CreateFileW(wide.c_str(), FILE_APPEND_DATA,
                                FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE && ::GetLastError() == ERROR_FILE_NOT_FOUND)
        file =
            ::CreateFileW(wide.c_str(), FILE_APPEND_DATA | DELETE,
                          FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                          CREATE_NEW, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    ::CloseHandle(file);
    return true;
}

// The described place of a state file, or "" for one that has none.
std::string DescribedPlace(const std::string& name) {
    if (name == "QRVERR.LOG" || name == "ERRORS.TXT" || name == "LOGGER.TXT") return "C:\\" + name;
    if (name == "trace.log") return ProgramFolder() + "\\" + name;
    return std::string();
}

} // namespace

// STASHWELL_CONFIG_HOME and STASHWELL_STATE_HOME stand before APPDATA and LOCALAPPDATA, which
// Wine sets from its own prefix whatever the caller gave: the tests point them into their own
// temporary folders.
std::string ConfigHome() {
    const std::string chosen = Environment(L"STASHWELL_CONFIG_HOME");
    return chosen.empty() ? EnvOrShellFolder(L"APPDATA", CSIDL_APPDATA) : chosen;
}

std::string StateFolder() {
    const std::string chosen = Environment(L"STASHWELL_STATE_HOME");
    return (chosen.empty() ? EnvOrShellFolder(L"LOCALAPPDATA", CSIDL_LOCAL_APPDATA) : chosen) +
           "\\Korvex\\QRV";
}

std::string StateFile(const std::string& name) {
    if (Environment(L"STASHWELL_PER_USER_STATE").empty()) {
        const std::string described = DescribedPlace(name);
        if (!described.empty() && IsWritablePlace(described)) return described;
    }
    const std::string folder = StateFolder();
    MakePrivateFolders(folder);
    return folder + "\\" + name;
}

std::string EnvironmentValue(const std::string& name) {
    return Environment(Wide(name).c_str());
}

std::vector<std::string> ProgramSearchFolders() {
    std::wstring list(32767, L'\0');
    const DWORD length =
        ::GetEnvironmentVariableW(L"PATH", list.data(), static_cast<DWORD>(list.size()));
    list.resize(length < list.size() ? length : 0);
    if (list.empty()) {
        std::wstring windows(MAX_PATH, L'\0');
        const UINT got = ::GetWindowsDirectoryW(windows.data(), MAX_PATH);
        windows.resize(got < MAX_PATH ? got : 0);
        list = windows + L"\\System32;" + windows;
    }
    std::vector<std::string> folders;
    for (size_t start = 0; start <= list.size();) {
        const size_t semicolon = std::min(list.find(L';', start), list.size());
        // A folder may be written in quotes, for the ";" it could hold.
        std::wstring folder = list.substr(start, semicolon - start);
        if (folder.size() >= 2 && folder.front() == L'"' && folder.back() == L'"')
            folder = folder.substr(1, folder.size() - 2);
        if (!folder.empty()) folders.push_back(Narrow(folder));
        start = semicolon + 1;
    }
    return folders;
}

std::string ProgramFolder() {
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        const DWORD n = ::GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
        if (n == 0) return CurrentFolder();
        if (n < path.size()) {
            path.resize(n);
            break;
        }
        path.resize(path.size() * 2);
    }
    const std::string program = Narrow(path);
    return program.substr(0, program.find_last_of("\\/"));
}

std::string CurrentFolder() {
    const DWORD size = ::GetCurrentDirectoryW(0, nullptr);
    if (size == 0) return std::string();
    std::wstring folder(size, L'\0');
    const DWORD n = ::GetCurrentDirectoryW(size, folder.data());
    folder.resize(n < size ? n : 0);
    return Narrow(folder);
}

bool MakePrivateFolders(const std::string& path) {
    if (path.empty()) return false;
    CPrivateSecurity security;
    for (size_t end = RootLength(path); end < path.size(); ++end) {
        while (end < path.size() && !IsSeparator(path[end]))
            ++end;
        const std::string prefix = path.substr(0, end);
        if (!IsFolder(prefix) &&
            !::CreateDirectoryW(WidePath(prefix).c_str(), security.Attributes()) &&
            ::GetLastError() != ERROR_ALREADY_EXISTS)
            return false;
    }
    return IsFolder(path);
}
