#include "winui/frmMain.h"

#include "app/modBackupRuns.h"
#include "app/modMain.h"
#include "app/modMaintenance.h"
#include "app/modManual.h"
#include "app/modNotify.h"
#include "app/modPaths.h"
#include "app/modRetention.h"
#include "app/modSetup.h"
#include "app/modWindowDesign.h"
#include "platform/modWin32Text.h"
#include "support/CProcTrap.h"
#include "support/CRuntimeError.h"
#include "support/modServices.h"
#include "winui/CWinProgressBar.h"
#include "winui/CWinRunTree.h"
#include "winui/frmAbout.h"
#include "winui/frmReport.h"
#include "winui/frmRunDiff.h"
#include "winui/frmSelBackup.h"
#include "winui/frmVersions.h"
#include "winui/modWinControls.h"

#include <commctrl.h>

#include <algorithm>
#include <charconv>
#include <iostream>

namespace {

constexpr const wchar_t* kMainClass = L"StashwellMain";
constexpr const wchar_t* kPageClass = L"StashwellPage";
constexpr int kFirstControlId = 1000; // a control's id: this plus twice its place in the design
constexpr int kFirstMenuId = 100;     // a menu item's: this plus its place in the menus
constexpr int kFirstTabKeyId = 200;   // Alt+1, Alt+2 and Alt+3: this plus the tab
constexpr UINT_PTR kSearchTimer = 1;  // the search waits for the typing to pause
constexpr UINT kSearchPauseMs = 250;
// Text that warns (a backup overdue): dark red, readable on the light window background.
constexpr COLORREF kWarningColour = RGB(0xB0, 0x00, 0x20);

int IdOf(size_t index) {
    return kFirstControlId + 2 * static_cast<int>(index);
}

// The design's control with command identifier `id` (its spin box arrows' too); -1 for none.
int IndexOfId(int id) {
    const int index = (id - kFirstControlId) / 2;
    if (id < kFirstControlId || index >= static_cast<int>(MainWindowControls().size())) return -1;
    return index;
}

// The option keys of the check boxes that store their value as they are clicked.
const char* OptionKeyOf(const std::string& name) {
    static const std::pair<const char*, const char*> keys[] = {
        {"chkHidden", "Hidden"},
        {"chkSystem", "System"},
        {"chkBackup", "Backup"},
        {"chkRestore", "Restore"},
        {"chkExclRecycler", "ExclRecycler"},
        {"chkQuickCheck", "QuickCheck"},
        {"chkNotifySuccess", "NotifySuccess"}};
    for (const auto& [control, key] : keys)
        if (name == control) return key;
    return nullptr;
}

} // namespace

// A maintenance command under way: however it ends (an error the handler reported included),
// the window is enabled again, the pointer given back, and the window closed after it when the
// person asked for that meanwhile.
class frmMain::BusyScope {
public:
    BusyScope(frmMain& window, MainTab tab) : m_window(window), m_tab(tab) {
        m_window.SetBusy(m_tab, true);
    }
    ~BusyScope() {
        m_window.SetBusy(m_tab, false);
        if (m_pointer) SetCursor(LoadCursorW(nullptr, IDC_ARROW));
        PostMessageW(m_window.Handle(), WM_NULL, 0, 0);
        m_window.CloseIfAsked();
    }
    BusyScope(const BusyScope&) = delete;
    BusyScope& operator=(const BusyScope&) = delete;

    void Pointer(bool busy) {
        m_pointer = busy;
        SetCursor(LoadCursorW(nullptr, busy ? IDC_WAIT : IDC_ARROW));
    }

private:
    frmMain& m_window;
    MainTab m_tab;
    bool m_pointer = false;
};

frmMain::frmMain(std::string commandLine)
    : m_commandLine(std::move(commandLine)), m_run({}, BackupOptions{}) {
    RegisterProgressBarClass();
    RegisterWindowClass(kMainClass, WindowProc);
    RegisterWindowClass(kPageClass, PageProc);
    HDC screen = GetDC(nullptr);
    m_dpi = GetDeviceCaps(screen, LOGPIXELSX);
    ReleaseDC(nullptr, screen);
    RECT outer = ScaledRect(kMainWindowDesign, m_dpi);
    const DWORD style = WS_OVERLAPPEDWINDOW | WS_CLIPCHILDREN;
    m_menu = CreateMenu();
    AdjustWindowRectEx(&outer, style, TRUE, WS_EX_CONTROLPARENT);
    m_window = CreateWindowExW(WS_EX_CONTROLPARENT, kMainClass, L"Stashwell", style, CW_USEDEFAULT,
                               CW_USEDEFAULT, outer.right - outer.left, outer.bottom - outer.top,
                               nullptr, m_menu, GetModuleHandleW(nullptr), this);
    m_yellow = CreateSolidBrush(RGB(255, 255, 0));
    m_logoBrush = CreateSolidBrush(kRunBarColour);
    Build();
    m_shown.lblThruPut = "MB/s"; // the label's design text
    m_run.OnViewChanged = [this](const RunView& view) { Render(view); };
    m_run.OnShowReport = [this] { ShowReport(); };
    ShowLastBackup(m_run.View());
    m_shown.lblLastBackup = m_run.View().lblLastBackup;
    m_shown.lastBackupWarning = m_run.View().lastBackupWarning;
    SetMaintenanceView({[this](const std::string& text) { SetText(Control("lblStatus"), text); },
                        [this](int32_t percent) { SetProgressValue(Control("XP_PB3"), percent); }});
}

frmMain::~frmMain() {
    SetMaintenanceView({});
    m_tree.reset(); // it follows the browser, which goes after it
    delete m_report;
    if (m_window) {
        SetWindowLongPtrW(m_window, GWLP_USERDATA, 0);
        DestroyWindow(m_window);
    }
    if (m_keys) DestroyAcceleratorTable(m_keys);
    for (HGDIOBJ object : {static_cast<HGDIOBJ>(m_font), static_cast<HGDIOBJ>(m_bold),
                           static_cast<HGDIOBJ>(m_yellow), static_cast<HGDIOBJ>(m_logoBrush)})
        if (object) DeleteObject(object);
}

void frmMain::Build() {
    MakeFonts();
    m_tabs = CreateWindowExW(0, WC_TABCONTROLW, L"",
                             WS_CHILD | WS_VISIBLE | WS_CLIPSIBLINGS | WS_TABSTOP, 0, 0, 0, 0,
                             m_window, nullptr, GetModuleHandleW(nullptr), nullptr);
    NameControl(m_tabs, "SSTab1");
    for (int tab = 0; tab < kMainTabCount; ++tab) {
        std::wstring caption = Wide(kTabCaptions[tab]);
        TCITEMW item{};
        item.mask = TCIF_TEXT;
        item.pszText = caption.data();
        SendMessageW(m_tabs, TCM_INSERTITEMW, static_cast<WPARAM>(tab),
                     reinterpret_cast<LPARAM>(&item));
        m_pages[tab] = CreateWindowExW(WS_EX_CONTROLPARENT, kPageClass, L"",
                                       WS_CHILD | WS_CLIPSIBLINGS | (tab == 0 ? WS_VISIBLE : 0), 0,
                                       0, 0, 0, m_window, nullptr, GetModuleHandleW(nullptr), this);
    }
    m_logo = CreateWindowExW(0, L"STATIC", Wide(kLogoText).c_str(),
                             WS_CHILD | WS_VISIBLE | SS_LEFT | SS_CENTERIMAGE | SS_NOPREFIX, 0, 0,
                             0, 0, m_window, nullptr, GetModuleHandleW(nullptr), nullptr);
    NameControl(m_logo, "kvLogo");

    const auto controls = MainWindowControls();
    for (size_t i = 0; i < controls.size(); ++i) {
        const ControlDesign& design = controls[i];
        m_controls.push_back(MakeControl(m_pages[static_cast<int>(design.tab)], design,
                                         ScaledRect(PlaceInPage(design), m_dpi), IdOf(i)));
    }
    for (HWND bar : {Control("XP_PB1"), Control("XP_PB2"), Control("XP_PB3")})
        SetProgressColour(bar, kDesignBarColour);
    m_tree = std::make_unique<CWinRunTree>(Control("tvDirs"), m_browser);
    m_browser.OnStatus = [this](const std::string& text) { SetText(Control("lblRestore"), text); };
    m_browser.OnProgress = [this](int32_t percent) {
        SetProgressValue(Control("XP_PB2"), percent);
    };
    m_browser.OnSelection = [this] { SetText(Control("lblSelected"), m_browser.SelectionText()); };
    BuildMenus();
    BuildTips();
    SendMessageW(m_tabs, WM_SETFONT, reinterpret_cast<WPARAM>(m_font), FALSE);
    PadTabs();
    SendMessageW(m_logo, WM_SETFONT, reinterpret_cast<WPARAM>(m_bold), FALSE);
    for (size_t i = 0; i < controls.size(); ++i)
        SendMessageW(m_controls[i], WM_SETFONT,
                     reinterpret_cast<WPARAM>(controls[i].flags & design::kBold ? m_bold : m_font),
                     FALSE);
    Layout();
}

void frmMain::MakeFonts() {
    if (m_font) DeleteObject(m_font);
    if (m_bold) DeleteObject(m_bold);
    m_font = MessageFont(m_dpi);
    m_bold = MessageFont(m_dpi, true);
}

// The room around a tab's caption, at the window's dots per inch (the tab control keeps the
// system's otherwise).
void frmMain::PadTabs() {
    SendMessageW(m_tabs, TCM_SETPADDING, 0, MAKELPARAM(Scaled(8, m_dpi), Scaled(4, m_dpi)));
}

void frmMain::BuildMenus() {
    const auto menus = MainWindowMenus();
    std::vector<HMENU> handles(menus.size(), nullptr);
    for (size_t i = 0; i < menus.size(); ++i) {
        const MenuDesign& design = menus[i];
        const std::wstring caption = Wide(design.caption);
        if (!design.menu) {
            handles[i] = CreatePopupMenu();
            AppendMenuW(m_menu, MF_POPUP, reinterpret_cast<UINT_PTR>(handles[i]), caption.c_str());
            continue;
        }
        for (size_t parent = 0; parent < i; ++parent)
            if (std::string(menus[parent].name) == design.menu)
                AppendMenuW(handles[parent], MF_STRING,
                            static_cast<UINT_PTR>(kFirstMenuId + static_cast<int>(i)),
                            caption.c_str());
    }
    DrawMenuBar(m_window);
    // Ctrl+Q leaves, F1 opens the manual and Alt+1, Alt+2 and Alt+3 show the tabs, as in the Qt
    // window.
    const auto idOf = [&menus](const char* name) {
        for (size_t i = 0; i < menus.size(); ++i)
            if (std::string(menus[i].name) == name) return static_cast<WORD>(kFirstMenuId + i);
        return WORD{0};
    };
    ACCEL keys[] = {{FVIRTKEY | FCONTROL, 'Q', idOf("mnuExit")},
                    {FVIRTKEY, VK_F1, idOf("mnuManual")},
                    {FVIRTKEY | FALT, '1', kFirstTabKeyId},
                    {FVIRTKEY | FALT, '2', kFirstTabKeyId + 1},
                    {FVIRTKEY | FALT, '3', kFirstTabKeyId + 2}};
    m_keys = CreateAcceleratorTableW(keys, static_cast<int>(std::size(keys)));
}

void frmMain::BuildTips() {
    m_tips = CreateWindowExW(WS_EX_TOPMOST, TOOLTIPS_CLASSW, nullptr,
                             WS_POPUP | TTS_ALWAYSTIP | TTS_NOPREFIX, CW_USEDEFAULT, CW_USEDEFAULT,
                             CW_USEDEFAULT, CW_USEDEFAULT, m_window, nullptr,
                             GetModuleHandleW(nullptr), nullptr);
    SendMessageW(m_tips, TTM_SETMAXTIPWIDTH, 0, Scaled(400, m_dpi));
    const auto controls = MainWindowControls();
    for (size_t i = 0; i < controls.size(); ++i) {
        if (!*controls[i].toolTip) continue;
        m_tipTexts.push_back(Wide(controls[i].toolTip));
        TTTOOLINFOW tool{};
        tool.cbSize = sizeof tool;
        tool.uFlags = TTF_IDISHWND | TTF_SUBCLASS;
        tool.hwnd = GetParent(m_controls[i]);
        tool.uId = reinterpret_cast<UINT_PTR>(m_controls[i]);
        tool.lpszText = m_tipTexts.back().data();
        SendMessageW(m_tips, TTM_ADDTOOLW, 0, reinterpret_cast<LPARAM>(&tool));
    }
}

void frmMain::Layout() {
    RECT client;
    GetClientRect(m_window, &client);
    if (client.right <= 0 || client.bottom <= 0) return; // minimised
    const RECT design = ScaledRect(kMainWindowDesign, m_dpi);
    // Whole per cent, so the layout moves in 1 % steps and comes back exactly at its size.
    const int across = std::max(1L, client.right * 100 / std::max(1L, design.right));
    const int down = std::max(1L, client.bottom * 100 / std::max(1L, design.bottom));
    const auto scaled = [&](RECT rect) {
        return RECT{MulDiv(rect.left, across, 100), MulDiv(rect.top, down, 100),
                    MulDiv(rect.right, across, 100), MulDiv(rect.bottom, down, 100)};
    };
    const auto place = [&](HWND window, RECT rect) {
        const RECT at = scaled(rect);
        MoveWindow(window, at.left, at.top, at.right - at.left, at.bottom - at.top, TRUE);
    };
    place(m_tabs, ScaledRect(kTabStripDesign, m_dpi));
    place(m_logo, ScaledRect(kLogoDesign, m_dpi));
    RECT pageRect;
    GetWindowRect(m_tabs, &pageRect);
    MapWindowPoints(nullptr, m_window, reinterpret_cast<POINT*>(&pageRect), 2);
    SendMessageW(m_tabs, TCM_ADJUSTRECT, FALSE, reinterpret_cast<LPARAM>(&pageRect));
    for (HWND page : m_pages)
        SetWindowPos(page, HWND_TOP, pageRect.left, pageRect.top, pageRect.right - pageRect.left,
                     pageRect.bottom - pageRect.top, SWP_NOACTIVATE);
    const auto controls = MainWindowControls();
    for (size_t i = 0; i < controls.size(); ++i) {
        if (controls[i].kind != ControlKind::kSpinBox) {
            place(m_controls[i], ScaledRect(PlaceInPage(controls[i]), m_dpi));
            continue;
        }
        // A spin box's arrows take the right of its place, as wide as a scroll bar at the
        // window's dots per inch (the up-down control keeps the system's width otherwise).
        const RECT at = scaled(ScaledRect(PlaceInPage(controls[i]), m_dpi));
        const int arrows = std::min<int>(Scaled(17, m_dpi), (at.right - at.left) / 2);
        MoveWindow(m_controls[i], at.left, at.top, at.right - at.left - arrows, at.bottom - at.top,
                   TRUE);
        MoveWindow(GetDlgItem(GetParent(m_controls[i]), IdOf(i) + 1), at.right - arrows, at.top,
                   arrows, at.bottom - at.top, TRUE);
    }
}

HWND frmMain::Control(const std::string& name) const {
    if (name == "SSTab1") return m_tabs;
    if (name == "kvLogo") return m_logo;
    const auto controls = MainWindowControls();
    for (size_t i = 0; i < controls.size(); ++i)
        if (name == controls[i].name) return m_controls[i];
    return nullptr;
}

LRESULT CALLBACK frmMain::WindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_NCCREATE) {
        auto* self =
            static_cast<frmMain*>(reinterpret_cast<CREATESTRUCTW*>(lParam)->lpCreateParams);
        self->m_window = window;
        SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(self));
    }
    auto* self = reinterpret_cast<frmMain*>(GetWindowLongPtrW(window, GWLP_USERDATA));
    if (!self) return DefWindowProcW(window, message, wParam, lParam);
    LRESULT result = 0;
    // Every message runs under the error trap, so no handler ends the program with an error
    // nothing caught.
    TrappedHandler("frmMain WindowProc",
                   [&] { result = self->Message(message, wParam, lParam); })();
    return result;
}

// A page hands what its controls say to the main window.
LRESULT CALLBACK frmMain::PageProc(HWND page, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case WM_COMMAND:
    case WM_NOTIFY:
    case WM_CTLCOLORSTATIC:
    case WM_CTLCOLOREDIT:
    case WM_CTLCOLORBTN:
    case WM_VSCROLL:
        return SendMessageW(GetParent(page), message, wParam, lParam);
    default:
        return DefWindowProcW(page, message, wParam, lParam);
    }
}

LRESULT frmMain::Message(UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case WM_COMMAND:
        // Enter in the search box searches at once.
        if (LOWORD(wParam) == IDOK && GetFocus() == Control("txtSearch")) {
            KillTimer(m_window, kSearchTimer);
            TrappedHandler("frmMain txtSearch_Change", [this] { SearchRun(); })();
            return 0;
        }
        if (lParam == 0 && HIWORD(wParam) <= 1) { // a menu item or its key
            const int tab = LOWORD(wParam) - kFirstTabKeyId;
            if (tab >= 0 && tab < kMainTabCount) {
                if (m_tabEnabled[tab]) ShowTab(static_cast<MainTab>(tab));
                return 0;
            }
            const size_t item = LOWORD(wParam) - kFirstMenuId;
            const auto menus = MainWindowMenus();
            if (item >= menus.size()) return 0;
            const std::string name = menus[item].name;
            if (name == "mnuExit") mnuExit_Click();
            if (name == "mnuManual") mnuManual_Click();
            if (name == "mnuAbout") mnuAbout_Click();
            return 0;
        }
        Command(LOWORD(wParam), HIWORD(wParam));
        return 0;
    case WM_NOTIFY:
        return Notify(*reinterpret_cast<const NMHDR*>(lParam));
    case WM_TIMER:
        if (wParam == kSearchTimer) {
            KillTimer(m_window, kSearchTimer);
            TrappedHandler("frmMain txtSearch_Change", [this] { SearchRun(); })();
        }
        return 0;
    case WM_VSCROLL: // a spin box's arrows moved its number
        if (lParam) {
            const int index = IndexOfId(GetDlgCtrlID(reinterpret_cast<HWND>(lParam)) - 1);
            if (index >= 0) TimeChanged(MainWindowControls()[static_cast<size_t>(index)].name);
        }
        return 0;
    case WM_CTLCOLORSTATIC:
    case WM_CTLCOLOREDIT:
    case WM_CTLCOLORBTN:
        if (HBRUSH brush = Colours(reinterpret_cast<HWND>(lParam), reinterpret_cast<HDC>(wParam)))
            return reinterpret_cast<LRESULT>(brush);
        return DefWindowProcW(m_window, message, wParam, lParam);
    case WM_SIZE:
        if (wParam != SIZE_MINIMIZED) Layout();
        return 0;
    case WM_DPICHANGED: {
        m_dpi = HIWORD(wParam);
        MakeFonts();
        const auto controls = MainWindowControls();
        for (size_t i = 0; i < controls.size(); ++i)
            SendMessageW(
                m_controls[i], WM_SETFONT,
                reinterpret_cast<WPARAM>(controls[i].flags & design::kBold ? m_bold : m_font),
                TRUE);
        SendMessageW(m_tabs, WM_SETFONT, reinterpret_cast<WPARAM>(m_font), TRUE);
        PadTabs();
        SendMessageW(m_logo, WM_SETFONT, reinterpret_cast<WPARAM>(m_bold), TRUE);
        const RECT* suggested = reinterpret_cast<const RECT*>(lParam);
        SetWindowPos(m_window, nullptr, suggested->left, suggested->top,
                     suggested->right - suggested->left, suggested->bottom - suggested->top,
                     SWP_NOZORDER | SWP_NOACTIVATE);
        Layout();
        return 0;
    }
    case WM_CLOSE:
        // A run is cancelled as by a second click on cmdBackup, and the click that started it
        // closes the window when it returns; a maintenance command is let finish first.
        if (!m_run.Running() && !m_busy) {
            ShowWindow(m_window, SW_HIDE);
            PostQuitMessage(0);
            return 0;
        }
        if (m_closeAfterRun) return 0; // already stopping
        m_closeAfterRun = true;
        if (m_run.Running()) TrappedHandler({}, [this] { m_run.cmdBackup_Click(); })();
        return 0;
    default:
        return DefWindowProcW(m_window, message, wParam, lParam);
    }
}

HBRUSH frmMain::Colours(HWND control, HDC dc) {
    if (control == m_logo) {
        SetTextColor(dc, RGB(255, 255, 255));
        SetBkColor(dc, kRunBarColour);
        return m_logoBrush;
    }
    if (control == Control("txtBackupPath") && m_pathMissing) {
        SetBkColor(dc, RGB(255, 255, 0));
        return m_yellow;
    }
    if (control == Control("lblLastBackup") && m_lastBackupWarning) {
        SetTextColor(dc, kWarningColour);
        SetBkColor(dc, GetSysColor(COLOR_BTNFACE));
        return GetSysColorBrush(COLOR_BTNFACE);
    }
    return nullptr;
}

LRESULT frmMain::Notify(const NMHDR& header) {
    if (header.hwndFrom == Control("tvDirs")) return m_tree->Notify(header);
    if (header.hwndFrom != m_tabs || header.code != TCN_SELCHANGE) return 0;
    const auto chosen = static_cast<int>(SendMessageW(m_tabs, TCM_GETCURSEL, 0, 0));
    // A tab disabled during a run or maintenance cannot be chosen: the strip goes back.
    if (chosen < 0 || !m_tabEnabled[chosen]) {
        SendMessageW(m_tabs, TCM_SETCURSEL, static_cast<WPARAM>(m_tab), 0);
        return 0;
    }
    ShowTab(static_cast<MainTab>(chosen));
    return 0;
}

void frmMain::Command(int id, int code) {
    const int index = IndexOfId(id);
    if (index < 0) return;
    const ControlDesign& design = MainWindowControls()[static_cast<size_t>(index)];
    Clicked(design.name, code);
}

void frmMain::Clicked(const std::string& name, int code) {
    const auto trapped = [&name](auto handler) { TrappedHandler("frmMain " + name, handler)(); };
    if (code == BN_CLICKED) {
        if (name == "cmdBackup") cmdBackup_Click(); // its own trap names its errors
        if (name == "cmdAddSrc") trapped([this] { cmdAddSrc_Click(); });
        if (name == "cmdRemove") trapped([this] { cmdRemove_Click(); });
        if (name == "cmdSelBackupPath") trapped([this] { cmdSelBackupPath_Click(); });
        if (name == "cmdManage") trapped([this] { cmdManage_Click(); });
        if (name == "cmdSelBackup") trapped([this] { cmdSelBackup_Click(); });
        if (name == "cmdFindVersions") trapped([this] { cmdFindVersions_Click(); });
        if (name == "cmdCompare") trapped([this] { cmdCompare_Click(); });
        if (name == "cmdRestore") trapped([this] { cmdRestore_Click(); });
        if (name == "cmdRestoreTo") trapped([this] { cmdRestoreTo_Click(); });
        if (name == "cmdPurge") trapped([this] { cmdPurge_Click(); });
        if (name == "cmdCompact") trapped([this] { cmdCompact_Click(); });
        if (const char* key = OptionKeyOf(name))
            trapped([this, &name, key] { StoreOption(key, Checked(name) ? "1" : "0"); });
        if (name == "Option1") trapped([] { SelectLogLevel("Basic"); });
        if (name == "Option2") trapped([] { SelectLogLevel("Advanced"); });
        if (name == "Option3") trapped([] { SelectLogLevel("Trace"); });
        if (name == "chkSchedule")
            trapped([this] {
                ShowSchedule(ScheduleChanged("SchedEnabled", Checked("chkSchedule") ? "1" : "0"));
            });
        return;
    }
    if (code == EN_KILLFOCUS && (name == "spnHour" || name == "spnMinute")) {
        TimeChanged(name);
        return;
    }
    if (code != EN_CHANGE || m_quiet > 0) return;
    if (name == "txtSearch") {
        SetTimer(m_window, kSearchTimer, kSearchPauseMs, nullptr);
        return;
    }
    const std::string text = WindowText(Control(name));
    if (name == "txtExclude") trapped([&text] { StoreOption("Exclude", text); });
    if (name == "txtExDirs") trapped([&text] { StoreOption("ExDirs", text); });
    if (name == "txtMaxBackups")
        trapped([this, &text] {
            if (const auto back = MaxBackupsChanged(text)) SetTextQuietly("txtMaxBackups", *back);
        });
}

// A time typed is set once the box is left, one chosen with the arrows at once; a number out of
// range goes back to the one kept.
void frmMain::TimeChanged(const std::string& name) {
    if (m_quiet > 0) return;
    TrappedHandler("frmMain " + name + "_Change", [this, &name] {
        const Schedule stored = LoadSchedule();
        const bool hour = name == "spnHour";
        const int kept = hour ? stored.hour : stored.minute;
        const int value = SpinValue(name);
        if (value < 0 || value > (hour ? 23 : 59)) {
            SetTextQuietly(name, std::to_string(kept));
            return;
        }
        if (value != kept)
            ShowSchedule(ScheduleChanged(hour ? "Hour" : "Minute", std::to_string(value)));
    })();
}

bool frmMain::Filter(MSG& message) {
    if (m_report && m_report->Filter(message)) return true;
    if (m_keys && TranslateAcceleratorW(m_window, m_keys, &message)) return true;
    return IsDialogMessageW(m_window, &message) != 0;
}

std::optional<int> frmMain::Form_Load() {
    CProcTrap trap("frmMain Form_Load");
    const bool unattended = !m_commandLine.empty();
    if (unattended) ErrHandler().DisplayMsgOnError(false);
    try {
        trap.Check();
        for (HWND bar : {Control("XP_PB1"), Control("XP_PB2"), Control("XP_PB3")})
            SetProgressColour(bar, kRunBarColour);
        SetText(m_window, MainWindowCaption());
        ShowTab(MainTab::kBackup);
        std::optional<int> exit = LoadMainWindow(*this, m_run, m_commandLine, m_wordsBegun);
        if (!exit) ErrHandler().DisplayMsgOnError(true);
        return exit;
    } catch (...) {
        const std::string error = CurrentRuntimeError().Description();
        trap.Handle();
        if (!unattended) return std::nullopt;
        std::cerr << "Error: the unattended run stopped at an error: " << error << std::endl;
        return m_wordsBegun ? kExitRunLost : kExitCannotRun;
    }
}

MainTab frmMain::CurrentTab() const {
    return m_tab;
}

void frmMain::ShowTab(MainTab tab) {
    m_tab = tab;
    SendMessageW(m_tabs, TCM_SETCURSEL, static_cast<WPARAM>(tab), 0);
    for (int page = 0; page < kMainTabCount; ++page)
        ShowWindow(m_pages[page], page == static_cast<int>(tab) ? SW_SHOW : SW_HIDE);
}

void frmMain::SetTabEnabled(MainTab tab, bool enabled) {
    m_tabEnabled[static_cast<int>(tab)] = enabled;
}

void frmMain::GotoConfigure() {
    ShowTab(MainTab::kConfiguration);
    m_pathMissing = true;
    InvalidateRect(Control("txtBackupPath"), nullptr, TRUE);
    AskForBackupPath();
}

void frmMain::ShowBackupPath(const std::string& path) {
    SetTextQuietly("txtBackupPath", path);
}

void frmMain::ShowOptions(const BackupOptions& options) {
    Check("Option1", options.log != "Advanced" && options.log != "Trace");
    Check("Option2", options.log == "Advanced");
    Check("Option3", options.log == "Trace");
    Check("chkHidden", options.hidden != 0);
    Check("chkSystem", options.system != 0);
    Check("chkBackup", options.backup != 0);
    Check("chkRestore", options.restore != 0);
    Check("chkExclRecycler", options.exclRecycler != 0);
    Check("chkQuickCheck", options.quickCheck != 0);
    SetTextQuietly("txtExclude", options.exclude);
    SetTextQuietly("txtExDirs", options.exDirs);
    SetTextQuietly("txtMaxBackups", options.maxBackups);
}

BackupOptions frmMain::OptionsShown() const {
    BackupOptions options;
    options.log = Checked("Option2") ? "Advanced" : Checked("Option3") ? "Trace" : "Basic";
    options.hidden = Checked("chkHidden");
    options.system = Checked("chkSystem");
    options.backup = Checked("chkBackup");
    options.restore = Checked("chkRestore");
    options.exclRecycler = Checked("chkExclRecycler");
    options.quickCheck = Checked("chkQuickCheck");
    options.exclude = WindowText(Control("txtExclude"));
    options.exDirs = WindowText(Control("txtExDirs"));
    options.maxBackups = WindowText(Control("txtMaxBackups"));
    return options;
}

void frmMain::ShowSources(const std::vector<std::string>& sources) {
    HWND list = Control("lstSources");
    SendMessageW(list, LB_RESETCONTENT, 0, 0);
    for (const std::string& source : sources)
        SendMessageW(list, LB_ADDSTRING, 0, reinterpret_cast<LPARAM>(Wide(source).c_str()));
    m_sources = sources;
}

std::vector<std::string> frmMain::ListedSources() const {
    return m_sources;
}

void frmMain::ShowStoredSchedule() {
    const Schedule stored = LoadSchedule();
    SetTextQuietly("spnHour", std::to_string(stored.hour));
    SetTextQuietly("spnMinute", std::to_string(stored.minute));
    Check("chkNotifySuccess", TellsSuccess());
    ShowSchedule(ScheduleAtStart());
}

void frmMain::ShowSchedule(const ScheduleView& view) {
    Check("chkSchedule", view.enabled);
    SetText(Control("lblNextBackup"), view.next);
}

void frmMain::ShowLastBackup(const RunView& view) {
    HWND label = Control("lblLastBackup");
    m_lastBackupWarning = view.lastBackupWarning;
    SendMessageW(label, WM_SETFONT,
                 reinterpret_cast<WPARAM>(view.lastBackupWarning ? m_bold : m_font), FALSE);
    SetText(label, view.lblLastBackup);
    InvalidateRect(label, nullptr, TRUE);
}

bool frmMain::BackupPathChosen() {
    if (IsBackupPathSet()) return true;
    GotoConfigure();
    return false;
}

void frmMain::cmdBackup_Click() {
    if (!m_run.Running() && !BackupPathChosen()) return;
    if (!m_run.Running()) m_run.Inputs(ListedSources(), OptionsShown());
    m_run.cmdBackup_Click();
    CloseIfAsked();
}

// Only what changed is touched; the Win32 controls paint themselves when their turn comes.
void frmMain::Render(const RunView& view) {
    const RunView& shown = m_shown;
    const auto text = [this](const char* name, const std::string& now, const std::string& before) {
        if (now != before) SetText(Control(name), now);
    };
    text("lblSource", view.lblSource, shown.lblSource);
    text("lblProcessing", view.lblProcessing, shown.lblProcessing);
    text("lblCount", view.lblCount, shown.lblCount);
    text("lblDone", view.lblDone, shown.lblDone);
    text("lblThruPut", view.lblThruPut, shown.lblThruPut);
    text("lblBytes", view.lblBytes, shown.lblBytes);
    SetProgressValue(Control("XP_PB1"), view.progress);
    if (view.cmdBackupCaption != shown.cmdBackupCaption) {
        HWND button = Control("cmdBackup");
        SetWindowTextW(button, CaptionWithKey(view.cmdBackupCaption, 'B').c_str());
        std::wstring tip = Wide(view.cmdBackupToolTip);
        TTTOOLINFOW tool{};
        tool.cbSize = sizeof tool;
        tool.hwnd = GetParent(button);
        tool.uId = reinterpret_cast<UINT_PTR>(button);
        tool.lpszText = tip.data();
        SendMessageW(m_tips, TTM_UPDATETIPTEXTW, 0, reinterpret_cast<LPARAM>(&tool));
    }
    if (view.sourceButtonsEnabled != shown.sourceButtonsEnabled) {
        Enable("cmdAddSrc", view.sourceButtonsEnabled);
        Enable("cmdRemove", view.sourceButtonsEnabled);
    }
    if (view.tabsEnabled != shown.tabsEnabled) {
        SetTabEnabled(MainTab::kRestore, view.tabsEnabled);
        SetTabEnabled(MainTab::kConfiguration, view.tabsEnabled);
    }
    if (view.lblLastBackup != shown.lblLastBackup ||
        view.lastBackupWarning != shown.lastBackupWarning)
        ShowLastBackup(view);
    HWND list = Control("lstSources");
    if (view.selectedSource >= 0 &&
        view.selectedSource < static_cast<int32_t>(SendMessageW(list, LB_GETCOUNT, 0, 0)) &&
        view.selectedSource != static_cast<int32_t>(SendMessageW(list, LB_GETCURSEL, 0, 0)))
        SendMessageW(list, LB_SETCURSEL, static_cast<WPARAM>(view.selectedSource), 0);
    m_shown = view;
}

// One report window: a cancelled run ends its closing steps twice, and the second time the
// open report is read again.
void frmMain::ShowReport() {
    if (m_closeAfterRun) return; // the person is leaving
    if (!m_report) m_report = new frmReport(m_window, m_dpi);
    m_report->Load(Logger().LogFile(), m_run.SummaryLines());
    m_report->Show();
}

void frmMain::cmdAddSrc_Click() {
    if (!BackupPathChosen()) return;
    if (AddSource()) ShowSources(FillSources());
}

void frmMain::cmdRemove_Click() {
    if (!BackupPathChosen()) return;
    const auto row = static_cast<int>(SendMessageW(Control("lstSources"), LB_GETCURSEL, 0, 0));
    const bool selected = row >= 0 && row < static_cast<int>(m_sources.size());
    if (RemoveSource(selected ? m_sources[static_cast<size_t>(row)] : ""))
        ShowSources(FillSources());
}

void frmMain::cmdSelBackupPath_Click() {
    const std::string path = SelectBackupPath();
    if (path.empty()) return;
    SetTextQuietly("txtBackupPath", path);
    m_pathMissing = false;
    InvalidateRect(Control("txtBackupPath"), nullptr, TRUE);
    // Each backup path has its own catalogue, and so its own options and sources.
    ShowOptions(LoadOptions());
    ShowSources(FillSources());
    ShowStoredSchedule();
}

void frmMain::SetBusy(MainTab tab, bool busy) {
    m_busy = busy;
    for (int other = 0; other < kMainTabCount; ++other)
        if (other != static_cast<int>(tab)) SetTabEnabled(static_cast<MainTab>(other), !busy);
    for (const char* name : {"cmdSelBackup", "tvDirs", "cmdFindVersions", "cmdSelBackupPath",
                             "cmdManage", "cmdPurge", "cmdCompact"})
        Enable(name, !busy);
    EnableRunCommands(!busy && m_browser.Root() != CBackupBrowser::kNone);
}

void frmMain::ShowRun(const std::string& bid) {
    SetText(Control("lblBid"), bid);
    if (bid.empty()) {
        m_browser.Clear();
        SetText(Control("lblRestore"), "");
        SetProgressValue(Control("XP_PB2"), 0);
    } else {
        m_browser.cmbBackups_Click(bid);
        // The root is shown open: it shows its own files too.
        if (m_browser.Root() != CBackupBrowser::kNone) m_browser.PopulateNode(m_browser.Root());
    }
    // Another run is searched anew.
    KillTimer(m_window, kSearchTimer);
    SetTextQuietly("txtSearch", "");
    SetText(Control("lblFound"), "");
    EnableRunCommands(m_browser.Root() != CBackupBrowser::kNone);
}

// What needs a run shown: restoring it, searching it, comparing it.
void frmMain::EnableRunCommands(bool runShown) {
    for (const char* name : {"cmdRestore", "cmdRestoreTo", "txtSearch", "cmdCompare"})
        Enable(name, runShown);
}

void frmMain::SearchRun() {
    if (m_busy || m_browser.Root() == CBackupBrowser::kNone) return;
    SetCursor(LoadCursorW(nullptr, IDC_WAIT));
    m_browser.Search(WindowText(Control("txtSearch")));
    SetCursor(LoadCursorW(nullptr, IDC_ARROW));
    SetText(Control("lblFound"), m_browser.SearchText());
}

void frmMain::cmdSelBackup_Click() {
    if (!BackupPathChosen()) return;
    const std::string bid = frmSelBackup::Choose(m_window, m_dpi);
    if (!bid.empty()) ShowRun(bid);
}

// Every version of the file chosen in the tree, or of the names searched for.
void frmMain::cmdFindVersions_Click() {
    if (!BackupPathChosen()) return;
    std::string search = WindowText(Control("txtSearch"));
    const int32_t node = m_tree->Selected();
    if (node != CBackupBrowser::kNone) {
        const BrowserNode& chosen = m_browser.Node(node);
        if (chosen.image != 1 && chosen.image != 2) search = chosen.text;
    }
    frmVersions::Show(m_window, m_dpi, search, Checked("chkRestore"));
}

void frmMain::cmdCompare_Click() {
    if (m_browser.Bid().empty()) return;
    frmRunDiff::Show(m_window, m_dpi, m_browser.Bid());
}

void frmMain::cmdRestore_Click() {
    BusyScope busy(*this, MainTab::kRestore);
    m_browser.cmdRestore_Click(Checked("chkRestore"));
}

void frmMain::cmdRestoreTo_Click() {
    BusyScope busy(*this, MainTab::kRestore);
    m_browser.cmdRestoreTo_Click(Checked("chkRestore"));
}

void frmMain::CloseIfAsked() {
    if (m_closeAfterRun && !m_run.Running() && !m_busy) PostMessageW(m_window, WM_CLOSE, 0, 0);
}

void frmMain::cmdManage_Click() {
    if (!BackupPathChosen()) return;
    {
        BusyScope busy(*this, MainTab::kConfiguration);
        DeleteRemovedSources(ListedSources(), [this](int32_t row) {
            SendMessageW(Control("lstSources"), LB_SETCURSEL, static_cast<WPARAM>(row), 0);
        });
    }
    if (!RunExists(m_browser.Bid())) ShowRun({});
}

void frmMain::cmdPurge_Click() {
    if (!BackupPathChosen()) return;
    {
        BusyScope busy(*this, MainTab::kConfiguration);
        PurgeBackups();
    }
    if (!RunExists(m_browser.Bid())) ShowRun({});
}

void frmMain::cmdCompact_Click() {
    if (!BackupPathChosen()) return;
    BusyScope busy(*this, MainTab::kConfiguration);
    CompactBackups([&busy](bool on) { busy.Pointer(on); });
}

void frmMain::mnuExit_Click() {
    PostMessageW(m_window, WM_CLOSE, 0, 0);
}

void frmMain::mnuManual_Click() {
    OpenManual();
}

void frmMain::mnuAbout_Click() {
    frmAbout::Show(m_window, m_dpi);
}

void frmMain::SetTextQuietly(const std::string& name, const std::string& text) {
    ++m_quiet;
    SetText(Control(name), text);
    --m_quiet;
}

bool frmMain::Checked(const std::string& name) const {
    return SendMessageW(Control(name), BM_GETCHECK, 0, 0) == BST_CHECKED;
}

void frmMain::Check(const std::string& name, bool checked) {
    SendMessageW(Control(name), BM_SETCHECK, checked ? BST_CHECKED : BST_UNCHECKED, 0);
}

void frmMain::Enable(const std::string& name, bool enabled) {
    EnableWindow(Control(name), enabled ? TRUE : FALSE);
}

int frmMain::SpinValue(const std::string& name) const {
    const std::string text = WindowText(Control(name));
    int value = -1;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() ? value : -1;
}
