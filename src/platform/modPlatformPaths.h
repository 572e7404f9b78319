#pragma once

// Where the program keeps its own files. On Linux: the settings file under XDG_CONFIG_HOME,
// the error report, trace and lock files under XDG_STATE_HOME, and the private folder rule
// (every folder the program makes is 0700, every file it writes 0600). On Windows: the state
// folder is %LOCALAPPDATA%\Korvex\QRV; the error report and logger files are C:\QRVERR.LOG,
// C:\ERRORS.TXT and C:\LOGGER.TXT, and the trace is trace.log in the program's folder, each
// where this user may write it and in the state folder otherwise (always there while the
// environment variable STASHWELL_PER_USER_STATE is set, as tests set it); a folder the program
// makes lets in only the user, the system and the administrators, and its files inherit that.

#include <string>
#include <vector>

// $XDG_CONFIG_HOME, or ~/.config (Windows: %APPDATA%).
std::string ConfigHome();
// $XDG_STATE_HOME/Korvex/QRV (default ~/.local/state/Korvex/QRV; Windows:
// %LOCALAPPDATA%\Korvex\QRV); not created here.
std::string StateFolder();
// StateFolder() joined with `name`, creating the state folder (0700) when it is missing; on
// Windows C:\ or the program's folder for the error report, logger and trace files when
// this user may write there.
std::string StateFile(const std::string& name);
// The folders the PATH names, in order ("/usr/local/bin", "/usr/bin" and "/bin" without one on
// Linux; the Windows folder and its System32 on Windows).
std::vector<std::string> ProgramSearchFolders();
// The value of the environment variable `name`, in UTF-8; "" when it is not set.
std::string EnvironmentValue(const std::string& name);
// The folder that holds the running program file.
std::string ProgramFolder();
std::string CurrentFolder();

// Creates `path` and every missing folder above it with mode 0700 (Windows: private security);
// true when it exists after.
bool MakePrivateFolders(const std::string& path);

inline constexpr unsigned kPrivateFolderMode = 0700;
inline constexpr unsigned kPrivateFileMode = 0600;
