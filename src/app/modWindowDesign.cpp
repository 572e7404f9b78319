#include "app/modWindowDesign.h"

#include <stdexcept>

namespace {

using K = ControlKind;
constexpr MainTab kBackup = MainTab::kBackup;
constexpr MainTab kRestore = MainTab::kRestore;
constexpr MainTab kConfig = MainTab::kConfiguration;

// clang-format off
const ControlDesign kControls[] = {
    // Tab 0: the sources and the run.
    {"lblSources", K::kLabel, kBackup, nullptr, {12, 8, 300, 20}, "Sources to back up:", nullptr, ""},
    {"lstSources", K::kListBox, kBackup, nullptr, {12, 30, 480, 178}, "", "Sources", ""},
    {"cmdAddSrc", K::kButton, kBackup, nullptr, {504, 30, 104, 30}, "Add...", "Add source",
     "Add a folder to back up", 'A'},
    {"cmdRemove", K::kButton, kBackup, nullptr, {504, 68, 104, 30}, "Remove", "Remove source",
     "Remove the selected folder from the list", 'R'},
    {"cmdBackup", K::kButton, kBackup, nullptr, {504, 166, 104, 42}, "Backup", nullptr,
     "Commence backup run", 'B', design::kDefault},
    {"fraRun", K::kFrame, kBackup, nullptr, {12, 218, 596, 176}, "Backup run", nullptr, ""},
    {"lblSource", K::kStatusText, kBackup, "fraRun", {12, 28, 572, 20}, "", "Status", "", 0,
     design::kBold},
    {"lblProcessing", K::kStatusText, kBackup, "fraRun", {12, 50, 572, 20}, "", "Source", ""},
    {"lblCountCaption", K::kLabel, kBackup, "fraRun", {12, 76, 98, 20}, "Files found:", nullptr, ""},
    {"lblCount", K::kStatusText, kBackup, "fraRun", {112, 76, 74, 20}, "", "Files found", ""},
    {"lblDoneCaption", K::kLabel, kBackup, "fraRun", {192, 76, 92, 20}, "Files done:", nullptr, ""},
    {"lblDone", K::kStatusText, kBackup, "fraRun", {286, 76, 74, 20}, "", "Files done", ""},
    {"lblThruPutCaption", K::kLabel, kBackup, "fraRun", {366, 76, 106, 20}, "Throughput:", nullptr,
     ""},
    {"lblThruPut", K::kStatusText, kBackup, "fraRun", {474, 76, 110, 20}, "MB/s", "Throughput", ""},
    {"XP_PB1", K::kProgressBar, kBackup, "fraRun", {12, 106, 572, 26}, "", "Backup progress", ""},
    // The bytes done and the time left, under the bar.
    {"lblBytes", K::kStatusText, kBackup, "fraRun", {12, 140, 572, 20}, "", "Bytes done", ""},
    {"lblLastBackup", K::kStatusText, kBackup, nullptr, {12, 402, 596, 22}, "", "Last backup", ""},

    // Tab 1: choosing a run and restoring from it. Nothing is restored, searched or compared
    // until a run is chosen.
    {"cmdSelBackup", K::kButton, kRestore, nullptr, {12, 10, 130, 30}, "Select Backup", nullptr,
     "Select the files or folders to be restored from Source", 'S'},
    {"lblBidCaption", K::kLabel, kRestore, nullptr, {154, 15, 102, 20}, "Backup run:", nullptr, ""},
    {"lblBid", K::kStatusText, kRestore, nullptr, {258, 15, 350, 20}, "", "Backup run", ""},
    {"txtSearch", K::kTextBox, kRestore, nullptr, {12, 46, 210, 26}, "", "Search this run",
     "Show only the files of this run whose names hold these letters, or match a pattern such "
     "as *.jpg", 0, design::kStartsDisabled, "Search by name or *.jpg"},
    {"cmdFindVersions", K::kButton, kRestore, nullptr, {230, 44, 134, 30}, "Find in all runs",
     nullptr, "List every version of a file that any run holds"},
    {"cmdCompare", K::kButton, kRestore, nullptr, {372, 44, 236, 30}, "Compare with previous run",
     nullptr, "List the files added, changed and removed since the run before this one", 0,
     design::kStartsDisabled},
    {"tvDirs", K::kTreeView, kRestore, nullptr, {12, 80, 596, 280}, "", "Folders and files", ""},
    {"lblFound", K::kStatusText, kRestore, nullptr, {12, 364, 290, 20}, "", "Search result", ""},
    {"lblSelected", K::kStatusText, kRestore, nullptr, {306, 364, 302, 20}, "", "Selected", "", 0,
     design::kRightAligned},
    {"lblRestore", K::kStatusText, kRestore, nullptr, {12, 391, 336, 20}, "", "Restore status", ""},
    {"cmdRestore", K::kButton, kRestore, nullptr, {356, 386, 120, 30}, "Restore", nullptr,
     "Commence restore", 'E', design::kStartsDisabled},
    {"cmdRestoreTo", K::kButton, kRestore, nullptr, {484, 386, 124, 30}, "Restore to ...",
     "Restore to", "Restore to an alternate location", 'T', design::kStartsDisabled},
    {"XP_PB2", K::kProgressBar, kRestore, nullptr, {12, 424, 596, 22}, "", "Restore progress", ""},

    // Tab 2: the configuration.
    {"fraBackupPath", K::kFrame, kConfig, nullptr, {12, 4, 596, 64}, "Backup path", nullptr, ""},
    {"txtBackupPath", K::kTextBox, kConfig, "fraBackupPath", {10, 30, 478, 26}, "", "Backup path",
     "The location where your backup files will be kept", 0, design::kReadOnly},
    {"cmdSelBackupPath", K::kButton, kConfig, "fraBackupPath", {496, 28, 90, 30}, "Browse...",
     "Choose the backup path", "", 'P'},
    {"fraInclude", K::kFrame, kConfig, nullptr, {12, 72, 190, 82}, "Include", nullptr, ""},
    {"chkHidden", K::kCheckBox, kConfig, "fraInclude", {10, 28, 170, 22}, "Hidden files", nullptr,
     ""},
    {"chkSystem", K::kCheckBox, kConfig, "fraInclude", {10, 54, 170, 22}, "System files", nullptr,
     ""},
    {"fraVerification", K::kFrame, kConfig, nullptr, {214, 72, 190, 82}, "Verification", nullptr,
     "Use this if you are paranoid"},
    {"chkBackup", K::kCheckBox, kConfig, "fraVerification", {10, 28, 170, 22}, "On Backup", nullptr,
     ""},
    {"chkRestore", K::kCheckBox, kConfig, "fraVerification", {10, 54, 170, 22}, "On Restore",
     nullptr, ""},
    {"fraLogLevel", K::kFrame, kConfig, nullptr, {416, 72, 192, 108}, "Log Level", nullptr,
     "Basic is for most users. Advanced is for the paranoid. Trace is for nerds"},
    {"Option1", K::kOptionButton, kConfig, "fraLogLevel", {10, 28, 172, 22}, "Basic", nullptr, "", 0,
     design::kChecked},
    {"Option2", K::kOptionButton, kConfig, "fraLogLevel", {10, 54, 172, 22}, "Advanced", nullptr,
     ""},
    {"Option3", K::kOptionButton, kConfig, "fraLogLevel", {10, 80, 172, 22}, "Trace", nullptr, ""},
    {"fraExclude", K::kFrame, kConfig, nullptr, {12, 158, 392, 114}, "Exclude", nullptr, ""},
    {"lblExclude", K::kLabel, kConfig, "fraExclude", {10, 30, 96, 22}, "Extensions:", nullptr, ""},
    {"txtExclude", K::kTextBox, kConfig, "fraExclude", {108, 28, 274, 26}, "*.tmp *.tst",
     "Extensions:", "Space-delimited list of file extensions to exclude from backups"},
    {"lblExDirs", K::kLabel, kConfig, "fraExclude", {10, 60, 96, 22}, "Folders:", nullptr, ""},
    {"txtExDirs", K::kTextBox, kConfig, "fraExclude", {108, 58, 274, 26}, "cvs tmp", "Folders:",
     "Space-delimited list of folders to exclude from backups. CAUTION: It will also exclude any "
     "files and folders below any folders with these names"},
    {"chkExclRecycler", K::kCheckBox, kConfig, "fraExclude", {108, 88, 274, 22},
     "Exclude Recycle Bin", nullptr, "Exclude files already deleted"},
    {"lblMaxBackups", K::kLabel, kConfig, nullptr, {416, 194, 112, 22}, "Backup limit:", nullptr,
     ""},
    {"txtMaxBackups", K::kTextBox, kConfig, nullptr, {530, 192, 60, 26}, "10", "Backup limit:",
     "Maximum number of backups per source. After the number is reached any further backups "
     "will replace the oldest backup"},
    {"fraManage", K::kFrame, kConfig, nullptr, {12, 276, 596, 88}, "Manage Backups", nullptr, ""},
    {"cmdManage", K::kButton, kConfig, "fraManage", {10, 28, 104, 30}, "Delete", nullptr,
     "CAUTION: this deletes all backups of any source not currently shown in the window on the "
     "\"Backup\" tab. Run \"Compact\" after deleting", 'D'},
    {"cmdPurge", K::kButton, kConfig, "fraManage", {122, 28, 120, 30}, "Manual Purge", nullptr,
     "If you have reduced the \"Backup limit\" above, this will purge excess records from the "
     "database. A purge is executed automatically after each backup run", 'U'},
    {"cmdCompact", K::kButton, kConfig, "fraManage", {250, 28, 104, 30}, "Compact", nullptr,
     "Removes orphan files and cleans up the database. Can take many minutes. Normally run after "
     "you \"Delete\" a source", 'C'},
    {"lblStatus", K::kStatusText, kConfig, "fraManage", {362, 33, 224, 20}, "",
     "Maintenance status", ""},
    {"XP_PB3", K::kProgressBar, kConfig, "fraManage", {10, 64, 576, 18}, "", "Maintenance progress",
     ""},
    {"chkQuickCheck", K::kCheckBox, kConfig, nullptr, {22, 368, 586, 22},
     "Skip unchanged files (trust size and modification time)", nullptr,
     "Faster later backups: a file whose size and times have not changed since the last backup "
     "of its source is not read again. A change that keeps the size and the times is then not "
     "noticed"},
    {"fraSchedule", K::kFrame, kConfig, nullptr, {12, 392, 596, 84}, "Schedule", nullptr, ""},
    {"chkSchedule", K::kCheckBox, kConfig, "fraSchedule", {10, 29, 196, 22}, "Back up every day at",
     nullptr,
     "Back up every source every day at this time, also while this window is closed. A backup "
     "missed while the computer was off is made soon after it starts again", 'Y'},
    {"spnHour", K::kSpinBox, kConfig, "fraSchedule", {210, 27, 60, 26}, "", "Hour of the backup",
     "The hour of the daily backup, 0 to 23", 0, 0, "", 0, 23, 21},
    {"lblSchedColon", K::kLabel, kConfig, "fraSchedule", {272, 30, 8, 20}, ":", nullptr, ""},
    {"spnMinute", K::kSpinBox, kConfig, "fraSchedule", {282, 27, 60, 26}, "",
     "Minute of the backup", "The minute of the daily backup, 0 to 59", 0, 0, "", 0, 59, 0},
    {"lblNextBackup", K::kStatusText, kConfig, "fraSchedule", {352, 29, 234, 22}, "",
     "Next backup", ""},
    {"chkNotifySuccess", K::kCheckBox, kConfig, "fraSchedule", {10, 55, 576, 22},
     "Tell me when a scheduled backup succeeds", nullptr,
     "A backup made without this window tells the desktop when it went wrong; with this, also "
     "when it went well", 'N'},
};

const MenuDesign kMenus[] = {
    {"mnuFile", "&File", nullptr},
    {"mnuExit", "E&xit", "mnuFile"},
    {"mnuHelp", "&Help", nullptr},
    {"mnuManual", "&Manual", "mnuHelp"},
    {"mnuAbout", "&About", "mnuHelp"},
};
// clang-format on

} // namespace

std::span<const ControlDesign> MainWindowControls() {
    return kControls;
}

std::span<const MenuDesign> MainWindowMenus() {
    return kMenus;
}

const ControlDesign& Design(const std::string& name) {
    for (const ControlDesign& control : kControls)
        if (name == control.name) return control;
    throw std::logic_error("the main window has no control " + name);
}

DesignRect PlaceInPage(const ControlDesign& control) {
    DesignRect place = control.geometry;
    if (control.frame) {
        const DesignRect frame = Design(control.frame).geometry;
        place.x += frame.x;
        place.y += frame.y;
    }
    return place;
}
