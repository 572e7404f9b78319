#pragma once

// Where the program keeps its own files on Linux: the settings file under XDG_CONFIG_HOME,
// the error report, trace and lock files under XDG_STATE_HOME, and the private folder rule
// (every folder the program makes is 0700, every file it writes 0600).

#include <string>

// $XDG_CONFIG_HOME, or ~/.config.
std::string ConfigHome();
// $XDG_STATE_HOME/Korvex/QRV (default ~/.local/state/Korvex/QRV); not created here.
std::string StateFolder();
// StateFolder() joined with `name`, creating the state folder (0700) when it is missing.
std::string StateFile(const std::string& name);
// The folder that holds the running program file.
std::string ProgramFolder();
std::string CurrentFolder();

// Creates `path` and every missing folder above it with mode 0700; true when it exists after.
bool MakePrivateFolders(const std::string& path);

inline constexpr unsigned kPrivateFolderMode = 0700;
inline constexpr unsigned kPrivateFileMode = 0600;
