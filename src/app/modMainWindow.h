#pragma once

// What the main window's commands do that needs no widget: the questions of a start whose
// backup drive is not ready, the message that asks for a backup path, the option keys written
// by the option controls (the backup limit with its range check), choosing the backup path, and
// adding and removing sources. The window calls these and shows their outcome; every message
// goes through the message-box service and every folder prompt through the folder picker, so
// all of it is tested without a screen.

#include "app/modOptions.h"

#include <optional>
#include <string>
#include <vector>

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

// What the load asks of a window, whichever toolkit draws it.
class IMainWindowView {
public:
    virtual ~IMainWindowView() = default;
    // Shows tab 2, paints the backup path box yellow and asks for a backup path.
    virtual void GotoConfigure() = 0;
    virtual void ShowBackupPath(const std::string& path) = 0;
    virtual void ShowOptions(const BackupOptions& options) = 0;
    virtual void ShowSources(const std::vector<std::string>& sources) = 0;
    // The schedule controls as Setup keeps them, and the next run as the scheduler tells it.
    virtual void ShowStoredSchedule() = 0;
    virtual std::vector<std::string> ListedSources() const = 0;
    virtual BackupOptions OptionsShown() const = 0;
};

class CRunControl;
// The window's load once it shows tab 0 under its title: the backup folder's checks in their
// order (no path: GotoConfigure; a path that cannot be used: its message, then GotoConfigure; a
// drive not ready: the question, and after No the end), the catalogue, the options, the
// sources and the schedule; with a command line, the unattended run under the backup folder's
// lock, no box waiting for anybody. An exit status when the process is to end; nothing when the
// window is to be shown. `wordsBegun` turns true once the command line's words start.
std::optional<int> LoadMainWindow(IMainWindowView& window, CRunControl& run,
                                  const std::string& commandLine, bool& wordsBegun);
