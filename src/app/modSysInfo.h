#pragma once

// The about box's System Info button: start the desktop's system information tool. A tool named
// in the settings store where the Windows build finds it (SOFTWARE\Microsoft\Shared Tools\MSINFO,
// value PATH; or the folder under ...\Shared Tools Location, value MSINFO, holding
// MSINFO32.EXE) comes first; otherwise the first known tool on the PATH (hardinfo, kinfocenter,
// gnome-system-monitor, ...). Without one: "System Information Is Unavailable At This Time".

#include <cstdint>
#include <string>

// Reads one value of the settings store (the registry's stand-in, CProgramSettings' file) under
// `keyName`. A text is taken up to its first NUL; a 32-bit number (stored "dword:0000000a")
// reads "&h" followed by its bytes from the highest to the lowest, each in hexadecimal without
// a leading zero (1 reads "&h0001"). False, and an empty `keyVal`, when the value is missing.
bool GetKeyValue(uint32_t keyRoot, const std::string& keyName, const std::string& subKeyRef,
                 std::string& keyVal);

// The system information tool to start, "" when there is none.
std::string SysInfoProgram();
// Starts it, or says that there is none.
void StartSysInfo();
