#pragma once

// The main window on Windows, in plain Win32: the tab strip SSTab1 with its three pages, every
// control of the shared design (app/modWindowDesign) under the name the Qt window gives it, the
// File and Help menus and the logo. Like the Qt window it is a view: its load is the app
// layer's (LoadMainWindow), every handler forwards to the app layer and shows what that
// computed, and a run's labels, progress and buttons render CRunControl's view. The layout is
// the design's geometry at the window's dots per inch, kept proportional on WM_SIZE in whole
// per cent, as the Qt window's resizer does.

#include "app/CBackupBrowser.h"
#include "app/CRunControl.h"
#include "app/modMainWindow.h"
#include "app/modSchedule.h"
#include "platform/modWin32.h"

#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class CWinRunTree;
class frmReport;

class frmMain : public IMainWindowView {
public:
    // `commandLine` as the process received it; not empty for an unattended start.
    explicit frmMain(std::string commandLine = {});
    ~frmMain() override;
    frmMain(const frmMain&) = delete;
    frmMain& operator=(const frmMain&) = delete;

    HWND Handle() const { return m_window; }
    // The window's load: an exit status when the process is to end, nothing when the window is
    // to be shown.
    std::optional<int> Form_Load();
    // Keyboard navigation and the menu keys for a message of this window; true when taken.
    bool Filter(MSG& message);

    // The control of that design name (SSTab1 and kvLogo too); nullptr for none.
    HWND Control(const std::string& name) const;
    MainTab CurrentTab() const;
    void ShowTab(MainTab tab);
    bool TabEnabled(MainTab tab) const { return m_tabEnabled[static_cast<int>(tab)]; }
    const CRunControl& Run() const { return m_run; }
    // The restore tab's tree, and the tree view that shows it.
    const CBackupBrowser& Browser() const { return m_browser; }
    const CWinRunTree& Tree() const { return *m_tree; }
    // The report window of the last run, while it is open.
    frmReport* Report() const { return m_report; }
    const CWinRunTree& RunTree() const { return *m_tree; }

    void GotoConfigure() override;
    void cmdBackup_Click();
    void cmdAddSrc_Click();
    void cmdRemove_Click();
    void cmdSelBackupPath_Click();
    void cmdSelBackup_Click();
    void cmdFindVersions_Click();
    void cmdCompare_Click();
    void cmdRestore_Click();
    void cmdRestoreTo_Click();
    void cmdManage_Click();
    void cmdPurge_Click();
    void cmdCompact_Click();
    void mnuExit_Click();
    void mnuManual_Click();
    void mnuAbout_Click();

private:
    static LRESULT CALLBACK WindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
    static LRESULT CALLBACK PageProc(HWND page, UINT message, WPARAM wParam, LPARAM lParam);
    LRESULT Message(UINT message, WPARAM wParam, LPARAM lParam);
    void Build();
    void BuildMenus();
    void BuildTips();
    void MakeFonts();
    void PadTabs();
    // Places every control at its design geometry, scaled to the window's size in whole per
    // cent and to its dots per inch.
    void Layout();
    void Command(int id, int code);
    LRESULT Notify(const NMHDR& header);
    HBRUSH Colours(HWND control, HDC dc);
    // A click, key or change of the named control.
    void Clicked(const std::string& name, int code);
    void TimeChanged(const std::string& name);

    void ShowBackupPath(const std::string& path) override;
    void ShowOptions(const BackupOptions& options) override;
    void ShowSources(const std::vector<std::string>& sources) override;
    void ShowStoredSchedule() override;
    std::vector<std::string> ListedSources() const override;
    BackupOptions OptionsShown() const override;
    void ShowSchedule(const ScheduleView& view);
    void ShowLastBackup(const RunView& view);
    void Render(const RunView& view);
    void ShowReport();
    void SetTabEnabled(MainTab tab, bool enabled);
    // A maintenance command under way: the other tabs and the commands that would start another
    // are disabled, and the pointer is busy, until it ends.
    void SetBusy(MainTab tab, bool busy);
    class BusyScope;
    bool BackupPathChosen();
    // The run chosen (or none, when `bid` is empty): its bid in lblBid and its tree in tvDirs.
    void ShowRun(const std::string& bid);
    // What needs a run shown: restoring it and searching it.
    void EnableRunCommands(bool runShown);
    void SearchRun();
    void CloseIfAsked();

    // Sets a control's text without its change reaching the handlers (as Qt's textEdited).
    void SetTextQuietly(const std::string& name, const std::string& text);
    bool Checked(const std::string& name) const;
    void Check(const std::string& name, bool checked);
    void Enable(const std::string& name, bool enabled);
    int SpinValue(const std::string& name) const;

    std::string m_commandLine;
    HWND m_window = nullptr;
    HWND m_tabs = nullptr;
    HWND m_pages[kMainTabCount] = {};
    HWND m_logo = nullptr;
    HWND m_tips = nullptr;
    HMENU m_menu = nullptr;
    HACCEL m_keys = nullptr;
    std::vector<HWND> m_controls; // in the order of MainWindowControls()
    std::list<std::wstring> m_tipTexts;
    HFONT m_font = nullptr;
    HFONT m_bold = nullptr;
    HBRUSH m_yellow = nullptr;
    HBRUSH m_logoBrush = nullptr;
    int m_dpi = 96;
    bool m_tabEnabled[kMainTabCount] = {true, true, true};
    MainTab m_tab = MainTab::kBackup;
    std::vector<std::string> m_sources; // the rows of lstSources, as bytes
    bool m_pathMissing = false;         // txtBackupPath shows yellow
    bool m_lastBackupWarning = false;
    CRunControl m_run;
    CBackupBrowser m_browser;
    std::unique_ptr<CWinRunTree> m_tree;
    RunView m_shown;
    frmReport* m_report = nullptr;
    int m_quiet = 0; // texts set by the program, not typed
    bool m_busy = false;
    bool m_closeAfterRun = false;
    bool m_wordsBegun = false;
};
