#include "app/modSysInfo.h"

#include "app/CProgramSettings.h"
#include "platform/modFileStatus.h"
#include "platform/modPlatformPaths.h"
#include "support/modFSCommon.h"
#include "support/modMsgBox.h"
#include "support/modShell.h"

#include <cstdlib>

namespace {

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
    for (const std::string& folder : ProgramSearchFolders())
        if (const std::string path = FSJoinPath(folder, name); IsProgram(path)) return path;
    return {};
}

} // namespace

bool GetKeyValue(uint32_t keyRoot, const std::string& keyName, const std::string& subKeyRef,
                 std::string& keyVal) {
    keyVal.clear();
    std::string value;
    if (!CProgramSettings::ReadStoredAt(keyRoot, keyName, subKeyRef, value)) return false;
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
