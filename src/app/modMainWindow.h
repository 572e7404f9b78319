#pragma once

// What the main window's commands do that needs no widget: the questions of a start whose
// backup drive is not ready, the message that asks for a backup path, the option keys written
// by the option controls (the backup limit with its range check), choosing the backup path, and
// adding and removing sources. The window calls these and shows their outcome; every message
// goes through the message-box service and every folder prompt through the folder picker, so
// all of it is tested without a screen.

#include <optional>
#include <string>

inline constexpr const char* kWindowTitle = "QRV - Stashwell";

// The main window's tabs, in their order (Alt+1, Alt+2 and Alt+3 reach them).
enum class MainTab : int { kBackup = 0, kRestore = 1, kConfiguration = 2 };
inline constexpr int kMainTabCount = 3;

// The window's title: "Korvex QRV - Ver " and the program's version.
std::string MainWindowCaption();

// GotoConfigure's message: "Please define the backup path to proceed".
void AskForBackupPath();
// An interactive start whose backup drive is not ready asks whether to change the path: true
// for Yes. After No the second message has been shown, and the process is to end.
bool AskToChangeBackupPath();

// Stores an option under its key, as every option control does on every change.
void StoreOption(const std::string& key, const std::string& value);
// A log level option button: sets the logger's level (1, 2 or 3) and stores the word under Log.
void SelectLogLevel(const std::string& word);
// The backup limit box changed to `text`: a limit from 1 to 100 is stored and nothing is
// answered; any other text shows "Valid range between 1-100" and answers the text to put back
// (the stored limit, or "10" when none is stored).
std::optional<std::string> MaxBackupsChanged(const std::string& text);

// Asks for a new backup path ("Select Backup Path"). When one is chosen: stores it, creates or
// opens its catalogue and restarts the daily log under it, and names in one box the sources of
// that catalogue that lie in the new backup folder (a run does not back them up); answers the
// path, or "" after a cancel.
std::string SelectBackupPath();
// Asks for a source folder ("Select source to backup") and adds it unless it is listed already
// ("Source already in list") or is the backup folder or lies inside it (a box says why); a
// folder that holds the backup folder is added, since its walk steps around the backup folder.
// True when one was added.
bool AddSource();
// Removes `source` after asking, with its messages; `source` empty means no row is selected.
// True when it was removed.
bool RemoveSource(const std::string& source);
