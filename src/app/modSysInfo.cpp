#include "app/modSysInfo.h"

#include "app/CProgramSettings.h"
#include "platform/modFileStatus.h"
#include "support/modFSCommon.h"
#include "support/modMsgBox.h"
#include "support/modShell.h"

#include <cstdlib>

namespace {

constexpr const char* kMissing = "\x01";
constexpr const char* kNumberPrefix = "dword:";

const char* const kKnownTools[] = {"hardinfo2",           "hardinfo",
                                   "kinfocenter",         "gnome-system-monitor",
                                   "mate-system-monitor", "xfce4-taskmanager"};

std::string HexDigits(unsigned value) {
    static const char* digits = "0123456789ABCDEF";
    std::string text;
    do {
        text.insert(text.begin(), digits[value % 16]);
        value /= 16;
    } while (value > 0);
    return text;
}

bool IsProgram(const std::string& path) {
    return IsRunnableFile(path);
}

// The full path of `name` on the PATH, or "".
std::string OnPath(const std::string& name) {
    const char* path = std::getenv("PATH");
    std::string folders = path ? path : "/usr/local/bin:/usr/bin:/bin";
    for (size_t start = 0; start <= folders.size();) {
        const size_t colon = folders.find(':', start);
        const std::string folder = folders.substr(start, colon - start);
        if (!folder.empty() && IsProgram(folder + "/" + name)) return folder + "/" + name;
        if (colon == std::string::npos) break;
        start = colon + 1;
    }
    return {};
}

} // namespace

bool GetKeyValue(uint32_t /*keyRoot: both roots are the one per-user file*/,
                 const std::string& keyName, const std::string& subKeyRef, std::string& keyVal) {
    keyVal.clear();
    const std::string value = CProgramSettings::ReadEntryAt(keyName, subKeyRef, kMissing);
    if (value == kMissing) return false;
    if (value.rfind(kNumberPrefix, 0) == 0) {
        const unsigned long number = std::strtoul(value.c_str() + 6, nullptr, 16);
        keyVal = "&h";
        for (int shift = 24; shift >= 0; shift -= 8)
            keyVal += HexDigits((number >> shift) & 0xFF);
        return true;
    }
    keyVal = value.substr(0, value.find('\0'));
    return true;
}

std::string SysInfoProgram() {
    std::string found;
    if (GetKeyValue(CProgramSettings::kLocalMachine, "SOFTWARE\\Microsoft\\Shared Tools\\MSINFO",
                    "PATH", found) &&
        IsProgram(found))
        return found;
    if (GetKeyValue(CProgramSettings::kLocalMachine, "SOFTWARE\\Microsoft\\Shared Tools Location",
                    "MSINFO", found) &&
        IsProgram(FSJoinPath(found, "MSINFO32.EXE")))
        return FSJoinPath(found, "MSINFO32.EXE");
    for (const char* tool : kKnownTools)
        if (std::string path = OnPath(tool); !path.empty()) return path;
    return {};
}

void StartSysInfo() {
    const std::string program = SysInfoProgram();
    if (program.empty() || !DesktopService().Start(program))
        MsgBox("System Information Is Unavailable At This Time", mb::kOKOnly, "QRV - Stashwell");
}
