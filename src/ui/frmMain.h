#pragma once

// The main window: the tab strip SSTab1 (tab 0 the sources and the backup run, tab 1 restore,
// tab 2 configuration), the File and Help menus and the logo. It is a view: Form_Load follows
// the start-up order and every handler forwards to the app layer (modMainWindow, CRunControl),
// then shows what that computed. A run's labels, progress and buttons render CRunControl's
// view; a second click on cmdBackup during a run reaches the run through the yield hook and
// cancels it. The restore tab shows CBackupBrowser's tree; the maintenance buttons call
// modMaintenance. The layout is the design geometry, kept proportional by the resizer.

#include "app/CBackupBrowser.h"
#include "app/CRunControl.h"
#include "app/modMainWindow.h"
#include "app/modOptions.h"
#include "app/modSchedule.h"

#include <QMainWindow>
#include <QPointer>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

class CBackupTab;
class CConfigTab;
class CRestoreTab;
class CRunTreeModel;
class frmReport;
class QAbstractButton;
class QAction;
class QLabel;
class QTabWidget;

class frmMain : public QMainWindow, private IMainWindowView {
    Q_OBJECT

public:
    // `commandLine` as the process received it; not empty for an unattended start.
    explicit frmMain(std::string commandLine = {}, QWidget* parent = nullptr);
    ~frmMain() override;

    // The window's load. An exit status when the process is to end (the unattended path is
    // done, or the backup drive is not ready); nothing when the window is to be shown.
    std::optional<int> Form_Load();

    void GotoConfigure() override;
    void cmdBackup_Click();
    void cmdAddSrc_Click();
    void cmdRemove_Click();
    void cmdSelBackupPath_Click();
    void cmdSelBackup_Click();
    void cmdRestore_Click();
    void cmdRestoreTo_Click();
    void cmdFindVersions_Click();
    void cmdCompare_Click();
    void cmdManage_Click();
    void cmdPurge_Click();
    void cmdCompact_Click();
    void mnuExit_Click();
    void mnuManual_Click();
    void mnuAbout_Click();

    // The run's state, as the window shows it.
    const CRunControl& Run() const { return m_run; }
    // The restore tab's tree.
    const CBackupBrowser& Browser() const { return m_browser; }

signals:
    // The window shows a new state of the run (after every event of the engine).
    void RunShown();

protected:
    void resizeEvent(QResizeEvent* event) override;
    // Leaving during a run cancels it first; the window closes once the run has stopped.
    // Leaving during a restore or maintenance waits for it to end.
    void closeEvent(QCloseEvent* event) override;

private:
    using Command = void (frmMain::*)();
    // A command of the window under the error trap, named "frmMain <name>" in the error report
    // (no name: the command's own trap names it).
    std::function<void()> Handler(const char* name, Command command);
    void OnClick(QAbstractButton* button, const char* name, Command command);
    // The load's steps; Form_Load runs them under the error trap.
    std::optional<int> Load();
    // True when a backup path is set; otherwise the person is sent to choose one, as the load
    // does, and the command that asked does nothing.
    bool BackupPathChosen();
    void BuildMenus();
    void ConnectOptions();
    void ShowBackupPath(const std::string& path) override;
    void ShowOptions(const BackupOptions& options) override;
    void ShowStoredSchedule() override;
    void ShowSchedule(const ScheduleView& view);
    void ShowLastBackup(const RunView& view);
    void ShowSources(const std::vector<std::string>& sources) override;
    std::vector<std::string> ListedSources() const override;
    BackupOptions OptionsShown() const override;
    void Render(const RunView& view);
    void ShowReport();
    void ConnectRestore();
    void ConnectMaintenance();
    // A restore (tab 1) or maintenance (tab 2) is under way: the other tabs and the buttons
    // that would start another are disabled until it ends.
    void ShowTab(MainTab tab);
    void SetBusy(MainTab tab, bool busy);
    // The window busy on `tab` for the scope's life; see frmMain.cpp.
    class BusyScope;
    void ShowRun(const std::string& bid);
    void EnableRunCommands(bool runShown);
    void SearchRun();
    void CloseIfAsked();

    std::string m_commandLine;
    QTabWidget* SSTab1;
    CBackupTab* m_backup;
    CRestoreTab* m_restore;
    CConfigTab* m_config;
    QLabel* kvLogo;
    CRunControl m_run;
    RunView m_shown; // what Render shows now
    // When Render last showed a change of the run's progress alone (see Render).
    std::chrono::steady_clock::time_point m_progressShown;
    bool m_lastWasProgress = false;
    CBackupBrowser m_browser;
    CRunTreeModel* m_tree;
    QPointer<frmReport> m_report; // the report shown, while it is open
    int m_checkEditsAtPress = 0;
    bool m_busy = false;
    bool m_closeAfterRun = false;
    bool m_wordsBegun = false;      // the unattended words of the command line began
    bool m_showingSchedule = false; // the time boxes are being set from the stored schedule
};
