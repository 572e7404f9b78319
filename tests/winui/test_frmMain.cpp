// The Win32 main window, driven as a person drives it: controls found by their names, buttons
// clicked, text typed key by key into the boxes, tabs chosen with the mouse, and every box and
// folder pick answered from the test's script. What the window shows (captions, labels, the
// progress bar, the report), what it stores (the catalogue's Setup and Sources) and what a
// backup leaves (the catalogue's rows, the store's files) are checked exactly.

#include "BackupFixture.h"
#include "app/modMain.h"
#include "app/modPaths.h"
#include "app/modSetup.h"
#include "app/modWindowDesign.h"
#include "platform/modWin32Text.h"
#include "support/Version.h"
#include "support/modYield.h"
#include "winui/CWinProgressBar.h"
#include "winui/CWinServices.h"
#include "winui/frmMain.h"
#include "winui/frmReport.h"
#include "winui/modWinControls.h"

#include <commctrl.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace {

using Calls = std::vector<CScriptedMessageBox::Call>;

class WinWindowTest : public ::testing::Test {
protected:
    WinWindowTest() {
        INITCOMMONCONTROLSEX controls{sizeof controls, ICC_WIN95_CLASSES | ICC_STANDARD_CLASSES};
        InitCommonControlsEx(&controls);
        // As the program starts: the window's messages run during long work, and the daily log
        // is open under the backup path.
        SetYieldHook([] { PumpMessages(); });
        StartDailyLog();
    }
    ~WinWindowTest() override {
        SetMessageFilter({});
        window.reset();
    }

    frmMain& Open(std::string commandLine = {}) {
        window = std::make_unique<frmMain>(std::move(commandLine));
        SetMessageFilter([this](MSG& message) { return window->Filter(message); });
        return *window;
    }
    // Loads the window and shows it, as the program does.
    void Load() {
        ASSERT_EQ(window->Form_Load(), std::nullopt);
        ShowWindow(window->Handle(), SW_SHOWNORMAL);
        UpdateWindow(window->Handle());
        PumpMessages();
    }

    HWND Get(const std::string& name) const {
        HWND control = FindControl(window->Handle(), name);
        EXPECT_NE(control, nullptr) << "no control " << name;
        return control;
    }
    std::string Text(const std::string& name) const { return WindowText(Get(name)); }
    bool Checked(const std::string& name) const {
        return SendMessageW(Get(name), BM_GETCHECK, 0, 0) == BST_CHECKED;
    }

    // A click on the tab's caption, with the mouse.
    void ClickTab(MainTab tab) {
        HWND strip = Get("SSTab1");
        RECT item{};
        SendMessageW(strip, TCM_GETITEMRECT, static_cast<WPARAM>(tab),
                     reinterpret_cast<LPARAM>(&item));
        const LPARAM at = MAKELPARAM((item.left + item.right) / 2, (item.top + item.bottom) / 2);
        SendMessageW(strip, WM_LBUTTONDOWN, MK_LBUTTON, at);
        SendMessageW(strip, WM_LBUTTONUP, 0, at);
        PumpMessages();
    }
    // A click on a button, a check box or an option button.
    void Click(const std::string& name) {
        SendMessageW(Get(name), BM_CLICK, 0, 0);
        PumpMessages();
    }
    // Selects everything in the box and types `text` over it, one key at a time.
    void Type(const std::string& name, const std::string& text) {
        HWND box = Get(name);
        SetFocus(box);
        SendMessageW(box, EM_SETSEL, 0, -1);
        for (wchar_t key : Wide(text)) {
            SendMessageW(box, WM_CHAR, key, 1);
            PumpMessages();
        }
    }
    std::vector<std::string> ListRows(const std::string& name) const {
        HWND list = Get(name);
        std::vector<std::string> rows;
        const auto count = SendMessageW(list, LB_GETCOUNT, 0, 0);
        for (LRESULT row = 0; row < count; ++row) {
            std::wstring text(static_cast<size_t>(SendMessageW(list, LB_GETTEXTLEN, row, 0)),
                              L'\0');
            SendMessageW(list, LB_GETTEXT, row, reinterpret_cast<LPARAM>(text.data()));
            rows.push_back(Narrow(text));
        }
        return rows;
    }
    std::string ToolTip(const std::string& name) const {
        HWND control = Get(name);
        HWND tips = nullptr;
        EnumThreadWindows(
            GetCurrentThreadId(),
            [](HWND candidate, LPARAM found) -> BOOL {
                wchar_t kind[64] = L"";
                GetClassNameW(candidate, kind, 64);
                if (std::wstring(kind) != TOOLTIPS_CLASSW) return TRUE;
                *reinterpret_cast<HWND*>(found) = candidate;
                return FALSE;
            },
            reinterpret_cast<LPARAM>(&tips));
        if (!tips) return "(no tool tips)";
        wchar_t text[1024] = L"";
        TTTOOLINFOW tool{};
        tool.cbSize = sizeof tool;
        tool.hwnd = GetParent(control);
        tool.uId = reinterpret_cast<UINT_PTR>(control);
        tool.lpszText = text;
        SendMessageW(tips, TTM_GETTEXTW, 1024, reinterpret_cast<LPARAM>(&tool));
        return Narrow(text);
    }
    // The colour the window paints a text box's background with.
    COLORREF Background(const std::string& name) const {
        HWND control = Get(name);
        HDC dc = GetDC(control);
        auto brush = reinterpret_cast<HBRUSH>(SendMessageW(GetParent(control), WM_CTLCOLORSTATIC,
                                                           reinterpret_cast<WPARAM>(dc),
                                                           reinterpret_cast<LPARAM>(control)));
        ReleaseDC(control, dc);
        LOGBRUSH colour{};
        GetObjectW(brush, sizeof colour, &colour);
        return colour.lbColor;
    }

    BackupFixture f;
    std::unique_ptr<frmMain> window;
};

// The next window of this thread named `name` (a modal one, which runs its own message loop),
// handed to `act` once it shows.
struct ModalScript {
    std::string name;
    std::function<void(HWND)> act;
};
ModalScript& Modal() {
    static ModalScript script;
    return script;
}
void CALLBACK LookForModal(HWND, UINT, UINT_PTR timer, DWORD) {
    HWND found = nullptr;
    EnumThreadWindows(
        GetCurrentThreadId(),
        [](HWND window, LPARAM result) -> BOOL {
            if (ControlName(window) != Modal().name || !IsWindowVisible(window)) return TRUE;
            *reinterpret_cast<HWND*>(result) = window;
            return FALSE;
        },
        reinterpret_cast<LPARAM>(&found));
    if (!found) return;
    KillTimer(nullptr, timer);
    auto act = std::move(Modal().act);
    act(found);
}
void WhenModal(const std::string& name, std::function<void(HWND)> act) {
    Modal() = {name, std::move(act)};
    SetTimer(nullptr, 0, 50, LookForModal);
}

// An item's text.
std::string ItemText(HWND tree, HTREEITEM item) {
    wchar_t buffer[512] = L"";
    TVITEMW data{};
    data.mask = TVIF_TEXT | TVIF_HANDLE;
    data.hItem = item;
    data.pszText = buffer;
    data.cchTextMax = 512;
    SendMessageW(tree, TVM_GETITEMW, 0, reinterpret_cast<LPARAM>(&data));
    return Narrow(buffer);
}

// The item below `parent` (the tree's top for nullptr) whose text is `text`; nullptr for none.
HTREEITEM ItemNamed(HWND tree, HTREEITEM parent, const std::string& text) {
    auto item = reinterpret_cast<HTREEITEM>(SendMessageW(
        tree, TVM_GETNEXTITEM, parent ? TVGN_CHILD : TVGN_ROOT, reinterpret_cast<LPARAM>(parent)));
    for (; item; item = reinterpret_cast<HTREEITEM>(SendMessageW(tree, TVM_GETNEXTITEM, TVGN_NEXT,
                                                                 reinterpret_cast<LPARAM>(item)))) {
        if (ItemText(tree, item) == text) return item;
    }
    return nullptr;
}
std::vector<std::string> ItemTexts(HWND tree, HTREEITEM parent) {
    std::vector<std::string> texts;
    auto item = reinterpret_cast<HTREEITEM>(
        SendMessageW(tree, TVM_GETNEXTITEM, TVGN_CHILD, reinterpret_cast<LPARAM>(parent)));
    for (; item; item = reinterpret_cast<HTREEITEM>(SendMessageW(tree, TVM_GETNEXTITEM, TVGN_NEXT,
                                                                 reinterpret_cast<LPARAM>(item)))) {
        texts.push_back(ItemText(tree, item));
    }
    return texts;
}
// The check box's picture of an item: 1 unticked, 2 ticked, 3 partly.
int StateImageOf(HWND tree, HTREEITEM item) {
    const auto state =
        SendMessageW(tree, TVM_GETITEMSTATE, reinterpret_cast<WPARAM>(item), TVIS_STATEIMAGEMASK);
    return static_cast<int>((state & TVIS_STATEIMAGEMASK) >> 12);
}
// A click with the mouse on an item's name.
void ClickName(HWND tree, HTREEITEM item) {
    RECT text{};
    *reinterpret_cast<HTREEITEM*>(&text) = item;
    if (!SendMessageW(tree, TVM_GETITEMRECT, TRUE, reinterpret_cast<LPARAM>(&text))) {
        ADD_FAILURE() << "the item is not shown";
        return;
    }
    const LPARAM at = MAKELPARAM((text.left + text.right) / 2, (text.top + text.bottom) / 2);
    PostMessageW(tree, WM_LBUTTONUP, 0, at);
    SendMessageW(tree, WM_LBUTTONDOWN, MK_LBUTTON, at);
    PumpMessages();
}
// A click with the mouse on an item's check box.
void ClickCheckBox(HWND tree, HTREEITEM item) {
    RECT text{};
    *reinterpret_cast<HTREEITEM*>(&text) = item;
    if (!SendMessageW(tree, TVM_GETITEMRECT, TRUE, reinterpret_cast<LPARAM>(&text))) {
        ADD_FAILURE() << "the item is not shown";
        return;
    }
    const int y = (text.top + text.bottom) / 2;
    for (int x = text.left - 1; x >= 0; --x) {
        TVHITTESTINFO hit{};
        hit.pt = {x, y};
        SendMessageW(tree, TVM_HITTEST, 0, reinterpret_cast<LPARAM>(&hit));
        if (hit.hItem != item || !(hit.flags & TVHT_ONITEMSTATEICON)) continue;
        PostMessageW(tree, WM_LBUTTONUP, 0, MAKELPARAM(x, y));
        SendMessageW(tree, WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(x, y));
        PumpMessages();
        return;
    }
    ADD_FAILURE() << "no check box found";
}

CScriptedMessageBox::Call Box(const std::string& text, int style) {
    return {text, style, "QRV - Stashwell"};
}

TEST_F(WinWindowTest, EveryControlOfTheDesignStandsOnItsTabUnderItsName) {
    Open();
    Load();
    for (const ControlDesign& design : MainWindowControls()) {
        HWND control = Get(design.name);
        ASSERT_NE(control, nullptr);
        EXPECT_EQ(ControlName(control), design.name);
        // A control stands on the page of its tab: the strip's pages are children of the window.
        EXPECT_EQ(GetParent(GetParent(control)), window->Handle()) << design.name;
    }
    EXPECT_EQ(Text("cmdAddSrc"), "&Add...");
    EXPECT_EQ(Text("cmdRestoreTo"), "Res&tore to ...");
    EXPECT_EQ(Text("chkSchedule"), "Back up ever&y day at");
    EXPECT_EQ(Text("fraLogLevel"), "Log Level");
    EXPECT_EQ(Text("txtExclude"), "*.tmp *.tst");
    EXPECT_EQ(Text("txtExDirs"), "cvs tmp");
    EXPECT_EQ(Text("txtMaxBackups"), "10");
    EXPECT_EQ(Text("lblThruPut"), "MB/s");
    EXPECT_EQ(Text("spnHour"), "21");
    EXPECT_EQ(Text("spnMinute"), "0");
    EXPECT_EQ(Text("kvLogo"), "Korvex Stashwell");
    EXPECT_TRUE(Checked("Option1"));
    EXPECT_FALSE(IsWindowEnabled(Get("cmdRestore")));
    EXPECT_FALSE(IsWindowEnabled(Get("txtSearch")));
    EXPECT_TRUE(IsWindowEnabled(Get("cmdSelBackup")));
    EXPECT_EQ(ToolTip("cmdAddSrc"), "Add a folder to back up");
    EXPECT_EQ(ToolTip("txtMaxBackups"), Design("txtMaxBackups").toolTip);
    EXPECT_EQ(ToolTip("cmdBackup"), "Commence backup run");
    // The tabs' captions, in order.
    HWND strip = Get("SSTab1");
    ASSERT_EQ(SendMessageW(strip, TCM_GETITEMCOUNT, 0, 0), kMainTabCount);
    for (int tab = 0; tab < kMainTabCount; ++tab) {
        wchar_t caption[64] = L"";
        TCITEMW item{};
        item.mask = TCIF_TEXT;
        item.pszText = caption;
        item.cchTextMax = 64;
        SendMessageW(strip, TCM_GETITEMW, static_cast<WPARAM>(tab),
                     reinterpret_cast<LPARAM>(&item));
        EXPECT_EQ(Narrow(caption), kTabCaptions[tab]);
    }
}

TEST_F(WinWindowTest, LoadSetsTheTitleAndTheBarColoursAndShowsTheFirstTab) {
    Open();
    Load();
    EXPECT_EQ(WindowText(window->Handle()), "Korvex QRV - Ver " + std::to_string(version::kMajor) +
                                                "." + std::to_string(version::kMinor) + "." +
                                                std::to_string(version::kRevision));
    EXPECT_EQ(window->CurrentTab(), MainTab::kBackup);
    EXPECT_TRUE(IsWindowVisible(Get("lstSources")));
    EXPECT_FALSE(IsWindowVisible(Get("txtExclude")));
    EXPECT_EQ(Text("XP_PB1"), "0 %");
    EXPECT_TRUE(f.env.box.calls.empty());
}

TEST_F(WinWindowTest, FirstStartWithoutABackupPathAsksForOneAndLoadsNothingElse) {
    WriteRegSetting("BackupPath", "");
    f.SetOption("Exclude", "*.bak");
    Open();
    Load();
    EXPECT_EQ(window->CurrentTab(), MainTab::kConfiguration);
    EXPECT_TRUE(IsWindowVisible(Get("txtBackupPath")));
    EXPECT_EQ(Background("txtBackupPath"), RGB(255, 255, 0));
    EXPECT_EQ(f.env.box.calls, (Calls{Box("Please define the backup path to proceed", 64)}));
    EXPECT_EQ(Text("txtExclude"), "*.tmp *.tst"); // the options were not loaded
    EXPECT_TRUE(ListRows("lstSources").empty());
}

TEST_F(WinWindowTest, ChoosingTheTabsWithTheMouseShowsTheirPages) {
    Open();
    Load();
    ClickTab(MainTab::kConfiguration);
    EXPECT_EQ(window->CurrentTab(), MainTab::kConfiguration);
    EXPECT_TRUE(IsWindowVisible(Get("chkHidden")));
    EXPECT_FALSE(IsWindowVisible(Get("lstSources")));
    ClickTab(MainTab::kRestore);
    EXPECT_EQ(window->CurrentTab(), MainTab::kRestore);
    EXPECT_TRUE(IsWindowVisible(Get("cmdSelBackup")));
    EXPECT_FALSE(IsWindowVisible(Get("chkHidden")));
}

TEST_F(WinWindowTest, FirstStartThroughToAFinishedBackup) {
    WriteRegSetting("BackupPath", "");
    Open();
    Load();

    // The backup path, picked.
    const std::string chosen = f.env.Path("chosen");
    CreateTree(chosen, Dir());
    f.env.picker.Answer(chosen);
    Click("cmdSelBackupPath");
    EXPECT_EQ(Text("txtBackupPath"), chosen);
    EXPECT_NE(Background("txtBackupPath"), RGB(255, 255, 0));
    EXPECT_TRUE(Exists(chosen + "\\db\\Backup.db"));
    EXPECT_EQ(GetBackupPath(), chosen);

    // Two sources, added.
    const std::string one = f.env.Path("one"), two = f.env.Path("two");
    CreateTree(one, Dir({{"a.txt", File("alpha")}, {"sub", Dir({{"b.txt", File("beta")}})}}));
    CreateTree(two, Dir({{"c.txt", File("gamma")}}));
    f.env.picker.Answer(one);
    f.env.picker.Answer(two);
    ClickTab(MainTab::kBackup);
    Click("cmdAddSrc");
    Click("cmdAddSrc");
    EXPECT_EQ(ListRows("lstSources"), (std::vector<std::string>{one, two}));
    EXPECT_EQ(f.env.picker.prompts,
              (std::vector<std::string>{"Select Backup Path", "Select source to backup",
                                        "Select source to backup"}));

    // The run.
    Click("cmdBackup");
    const std::string db = chosen + "\\db\\Backup.db";
    std::vector<std::string> files;
    for (const auto& row : SqlRows(db, "SELECT bid, file, md5, size FROM Files ORDER BY fid"))
        files.push_back(row[0] + "|" + row[1] + "|" + row[2] + "|" + row[3]);
    EXPECT_EQ(files,
              (std::vector<std::string>{"1|" + one + "\\a.txt|" + TestSignature("alpha") + "|5",
                                        "1|" + one + "\\sub\\b.txt|" + TestSignature("beta") + "|4",
                                        "2|" + two + "\\c.txt|" + TestSignature("gamma") + "|5"}));
    for (const char* content : {"alpha", "beta", "gamma"})
        EXPECT_EQ(ReadFile(StoreFile(chosen, content)), content);
    EXPECT_TRUE(Text("lblSource").starts_with("Backup Complete. MB in 00:00:0"))
        << Text("lblSource");
    EXPECT_EQ(Text("lblProcessing"), two);
    EXPECT_EQ(Text("lblCount"), "1");
    EXPECT_EQ(Text("lblDone"), "1");
    EXPECT_TRUE(Text("lblThruPut").ends_with(" MB/s")) << Text("lblThruPut");
    EXPECT_EQ(Text("lblBytes"), "5 bytes of 5 bytes; whole run 14 bytes of 14 bytes");
    EXPECT_EQ(ProgressValue(Get("XP_PB1")), 100);
    EXPECT_EQ(Text("XP_PB1"), "100 %");
    EXPECT_EQ(Text("cmdBackup"), "&Backup");
    EXPECT_EQ(ToolTip("cmdBackup"), "Commence backup run");
    EXPECT_TRUE(window->TabEnabled(MainTab::kConfiguration));
    // The report begins with what the run did, above the day's log.
    ASSERT_NE(window->Report(), nullptr);
    EXPECT_TRUE(window->Report()->Visible());
    EXPECT_EQ(window->Report()->SummaryText(),
              "Added 3 new files, 14 bytes; 0 already stored; no problems.\r\n" + one +
                  ": 2 files, 2 new (9 bytes), 0 already stored.\r\n" + two +
                  ": 1 file, 1 new (5 bytes), 0 already stored.");
    EXPECT_NE(window->Report()->ReportText().find("Backup started\r\n"), std::string::npos);
    // The run just made, at the log's end, is in sight.
    HWND log = FindControl(window->Report()->Handle(), "txtReport");
    const auto length = static_cast<WPARAM>(GetWindowTextLengthW(log));
    const LRESULT at = SendMessageW(log, EM_POSFROMCHAR, length - 3, 0); // before the last CR LF
    RECT inside;
    GetClientRect(log, &inside);
    EXPECT_NE(at, -1);
    EXPECT_LT(static_cast<short>(HIWORD(at)), inside.bottom);
    // Esc closes it, as Enter does.
    PostMessageW(GetFocus(), WM_KEYDOWN, VK_ESCAPE, 0);
    PumpMessages();
    EXPECT_FALSE(window->Report()->Visible());
    EXPECT_EQ(f.env.box.calls, (Calls{Box("Please define the backup path to proceed", 64)}));
}

TEST_F(WinWindowTest, AddingTheSameFolderTwiceSaysSoAndAddsNothing) {
    const std::string source = f.env.Path("src");
    CreateTree(source, Dir({{"a.txt", File("a")}}));
    Open();
    Load();
    f.env.picker.Answer(source);
    f.env.picker.Answer(source);
    Click("cmdAddSrc");
    Click("cmdAddSrc");
    EXPECT_EQ(ListRows("lstSources"), (std::vector<std::string>{source}));
    EXPECT_EQ(f.RowTexts("SELECT source FROM Sources"), (std::vector<std::string>{source}));
    EXPECT_EQ(f.env.box.calls, (Calls{Box("Source already in list", 64)}));
}

TEST_F(WinWindowTest, RemovingASourceAsksFirstAndSaysItIsGone) {
    const std::string source = f.env.Path("src");
    CreateTree(source, Dir());
    f.AddSource(source);
    Open();
    Load();
    // No row selected: the window says so.
    Click("cmdRemove");
    EXPECT_EQ(f.env.box.calls, (Calls{Box("Please select a Source to remove", 64)}));
    SendMessageW(Get("lstSources"), LB_SETCURSEL, 0, 0);
    f.env.box.Answer(mb::kNo);
    Click("cmdRemove");
    EXPECT_EQ(ListRows("lstSources"), (std::vector<std::string>{source}));
    f.env.box.Answer(mb::kYes);
    Click("cmdRemove");
    EXPECT_TRUE(ListRows("lstSources").empty());
    EXPECT_TRUE(f.RowTexts("SELECT source FROM Sources").empty());
    ASSERT_EQ(f.env.box.calls.size(), 4u);
    EXPECT_EQ(f.env.box.calls[1],
              (CScriptedMessageBox::Call{"Are you sure you want to remove '" + source + "'", 36,
                                         "QRV - Stashwell"}));
    EXPECT_EQ(f.env.box.calls[3], Box("'" + source + "' successfully removed", 64));
}

TEST_F(WinWindowTest, EveryOptionControlWritesItsKeyOnEveryChange) {
    Open();
    Load();
    ClickTab(MainTab::kConfiguration);
    const auto stored = [this](const std::string& key) {
        const auto rows = f.RowTexts("SELECT value FROM Setup WHERE key = '" + key + "'");
        return rows.empty() ? std::string("(none)") : rows.front();
    };
    for (const auto& [box, key] :
         std::vector<std::pair<std::string, std::string>>{{"chkHidden", "Hidden"},
                                                          {"chkSystem", "System"},
                                                          {"chkBackup", "Backup"},
                                                          {"chkRestore", "Restore"},
                                                          {"chkExclRecycler", "ExclRecycler"},
                                                          {"chkQuickCheck", "QuickCheck"}}) {
        Click(box);
        EXPECT_EQ(stored(key), "1") << box;
        Click(box);
        EXPECT_EQ(stored(key), "0") << box;
    }
    Click("Option3");
    EXPECT_EQ(stored("Log"), "Trace");
    EXPECT_FALSE(Checked("Option1"));
    Click("Option2");
    EXPECT_EQ(stored("Log"), "Advanced");
    Type("txtExclude", "*.bak");
    EXPECT_EQ(stored("Exclude"), "*.bak");
    Type("txtExDirs", "node_modules");
    EXPECT_EQ(stored("ExDirs"), "node_modules");
    EXPECT_TRUE(f.env.box.calls.empty());
}

TEST_F(WinWindowTest, Typing150IntoALimitBoxThatHeld1) {
    f.SetOption("MaxBackups", "1");
    Open();
    Load();
    ClickTab(MainTab::kConfiguration);
    EXPECT_EQ(Text("txtMaxBackups"), "1");
    std::vector<std::string> seen;
    f.env.box.onShow = [this, &seen](const CScriptedMessageBox::Call&) {
        seen = f.RowTexts("SELECT value FROM Setup WHERE key = 'MaxBackups'");
    };
    Type("txtMaxBackups", "150");
    EXPECT_EQ(seen, (std::vector<std::string>{"15"})); // stored by the keystroke before
    EXPECT_EQ(Text("txtMaxBackups"), "15");
    EXPECT_EQ(f.env.box.calls, (Calls{Box("Valid range between 1-100", 64)}));
}

TEST_F(WinWindowTest, TheWindowFollowsItsSizeInWholePerCent) {
    Open();
    Load();
    RECT before;
    GetWindowRect(Get("cmdBackup"), &before);
    RECT outer;
    GetWindowRect(window->Handle(), &outer);
    RECT client;
    GetClientRect(window->Handle(), &client);
    // Half as wide and as tall again: every control half as far and half as large again.
    const int extraWidth = (outer.right - outer.left) - client.right;
    const int extraHeight = (outer.bottom - outer.top) - client.bottom;
    SetWindowPos(window->Handle(), nullptr, 0, 0, client.right * 3 / 2 + extraWidth,
                 client.bottom * 3 / 2 + extraHeight, SWP_NOMOVE | SWP_NOZORDER);
    PumpMessages();
    RECT grown;
    GetClientRect(window->Handle(), &grown);
    ASSERT_EQ(grown.right, client.right * 3 / 2);
    ASSERT_EQ(grown.bottom, client.bottom * 3 / 2);
    RECT after;
    GetWindowRect(Get("cmdBackup"), &after);
    EXPECT_NEAR(after.right - after.left, 3 * (before.right - before.left) / 2, 2);
    EXPECT_NEAR(after.bottom - after.top, 3 * (before.bottom - before.top) / 2, 2);
    // And back: the layout comes back exactly.
    SetWindowPos(window->Handle(), nullptr, 0, 0, outer.right - outer.left,
                 outer.bottom - outer.top, SWP_NOMOVE | SWP_NOZORDER);
    PumpMessages();
    RECT again;
    GetWindowRect(Get("cmdBackup"), &again);
    EXPECT_EQ(again.right - again.left, before.right - before.left);
    EXPECT_EQ(again.bottom - again.top, before.bottom - before.top);
}

TEST_F(WinWindowTest, AChosenRunShowsItsTreeAndTickedFilesAreRestoredElsewhere) {
    const std::string source = f.env.Path("src");
    CreateTree(source, Dir({{"a.txt", File("alpha")},
                            {"sub", Dir({{"b.txt", File("beta")}, {"c.txt", File("gamma")}})}}));
    f.AddSource(source);
    Open();
    Load();
    Click("cmdBackup");
    ClickTab(MainTab::kRestore);
    EXPECT_FALSE(IsWindowEnabled(Get("cmdRestoreTo")));

    // The run, chosen in the chooser as a person does: its date under its source, then OK.
    std::vector<std::string> runs;
    WhenModal("frmSelBackup", [&runs](HWND chooser) {
        HWND tree = FindControl(chooser, "tvBackups");
        auto top = reinterpret_cast<HTREEITEM>(SendMessageW(tree, TVM_GETNEXTITEM, TVGN_ROOT, 0));
        runs = ItemTexts(tree, top);
        auto run = reinterpret_cast<HTREEITEM>(
            SendMessageW(tree, TVM_GETNEXTITEM, TVGN_CHILD, reinterpret_cast<LPARAM>(top)));
        SendMessageW(tree, TVM_SELECTITEM, TVGN_CARET, reinterpret_cast<LPARAM>(run));
        SendMessageW(FindControl(chooser, "OKButton"), BM_CLICK, 0, 0);
    });
    Click("cmdSelBackup");
    ASSERT_EQ(runs.size(), 1u);
    EXPECT_EQ(runs[0], f.RowTexts("SELECT datebk FROM Backups WHERE bid = 1").front());
    EXPECT_EQ(Text("lblBid"), "1");
    EXPECT_EQ(Text("lblRestore"), "Ready");
    EXPECT_TRUE(IsWindowEnabled(Get("cmdRestoreTo")));
    EXPECT_TRUE(IsWindowEnabled(Get("txtSearch")));

    HWND tree = Get("tvDirs");
    HTREEITEM root = ItemNamed(tree, nullptr, source + "\\");
    ASSERT_NE(root, nullptr);
    // Folders first, then files; the root open, showing its own file.
    EXPECT_EQ(ItemTexts(tree, root), (std::vector<std::string>{"sub", "a.txt"}));
    HTREEITEM sub = ItemNamed(tree, root, "sub");
    EXPECT_EQ(StateImageOf(tree, sub), 1);

    // A folder never opened, ticked: its files come in, all ticked, and the root shows partly.
    ClickCheckBox(tree, sub);
    EXPECT_EQ(ItemTexts(tree, sub), (std::vector<std::string>{"b.txt", "c.txt"}));
    EXPECT_EQ(StateImageOf(tree, sub), 2);
    EXPECT_EQ(StateImageOf(tree, ItemNamed(tree, sub, "b.txt")), 2);
    EXPECT_EQ(StateImageOf(tree, ItemNamed(tree, sub, "c.txt")), 2);
    EXPECT_EQ(StateImageOf(tree, ItemNamed(tree, root, "a.txt")), 1);
    EXPECT_EQ(StateImageOf(tree, root), 3);
    EXPECT_EQ(Text("lblSelected"), "2 files, 9 bytes selected");
    // Unticking a file changes no other tick of its own; the folder is opened first, with a
    // click on its name.
    ClickName(tree, sub);
    EXPECT_NE(SendMessageW(tree, TVM_GETITEMSTATE, reinterpret_cast<WPARAM>(sub), TVIS_EXPANDED) &
                  TVIS_EXPANDED,
              0);
    ClickCheckBox(tree, ItemNamed(tree, sub, "c.txt"));
    EXPECT_EQ(StateImageOf(tree, ItemNamed(tree, sub, "c.txt")), 1);
    EXPECT_EQ(StateImageOf(tree, ItemNamed(tree, sub, "b.txt")), 2);
    EXPECT_EQ(Text("lblSelected"), "1 file, 4 bytes selected");

    const std::string elsewhere = f.env.Path("Elsewhere");
    CreateTree(elsewhere, Dir());
    f.env.picker.Answer(elsewhere);
    Click("cmdRestoreTo");
    EXPECT_EQ(f.env.picker.prompts,
              (std::vector<std::string>{"Select alternate folder to restore to"}));
    EXPECT_EQ(Text("lblRestore"), "Restore complete");
    EXPECT_EQ(ProgressValue(Get("XP_PB2")), 100);
    EXPECT_EQ(ReadFile(elsewhere + "\\sub\\b.txt"), "beta");
    EXPECT_FALSE(Exists(elsewhere + "\\sub\\c.txt"));
    EXPECT_FALSE(Exists(elsewhere + "\\a.txt"));
    EXPECT_TRUE(f.env.box.calls.empty());

    // To its place, over a changed file, after the overwrite question.
    WriteFile(source + "\\sub\\b.txt", "changed");
    f.env.box.Answer(mb::kOK);
    Click("cmdRestore");
    EXPECT_EQ(ReadFile(source + "\\sub\\b.txt"), "beta");
    EXPECT_EQ(
        f.env.box.calls,
        (Calls{Box("QRV will overwrite any existing files with the same name. Is this OK?", 33)}));
}

TEST_F(WinWindowTest, ASearchShowsTheMatchesAndTheirCount) {
    const std::string source = f.env.Path("src");
    CreateTree(source, Dir({{"a.txt", File("alpha")},
                            {"sub", Dir({{"b.jpg", File("beta")}, {"c.txt", File("gamma")}})}}));
    f.AddSource(source);
    Open();
    Load();
    Click("cmdBackup");
    ClickTab(MainTab::kRestore);
    WhenModal("frmSelBackup", [](HWND chooser) {
        HWND tree = FindControl(chooser, "tvBackups");
        auto top = reinterpret_cast<HTREEITEM>(SendMessageW(tree, TVM_GETNEXTITEM, TVGN_ROOT, 0));
        auto run = reinterpret_cast<HTREEITEM>(
            SendMessageW(tree, TVM_GETNEXTITEM, TVGN_CHILD, reinterpret_cast<LPARAM>(top)));
        SendMessageW(tree, TVM_SELECTITEM, TVGN_CARET, reinterpret_cast<LPARAM>(run));
        SendMessageW(FindControl(chooser, "OKButton"), BM_CLICK, 0, 0);
    });
    Click("cmdSelBackup");
    Type("txtSearch", "*.jpg");
    // The search waits for the typing to pause.
    for (int i = 0; i < 100 && Text("lblFound").empty(); ++i) {
        Sleep(20);
        PumpMessages();
    }
    EXPECT_EQ(Text("lblFound"), "1 file matches");
    HWND tree = Get("tvDirs");
    HTREEITEM root = ItemNamed(tree, nullptr, source + "\\");
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(ItemTexts(tree, root), (std::vector<std::string>{"sub"}));
    EXPECT_EQ(ItemTexts(tree, ItemNamed(tree, root, "sub")), (std::vector<std::string>{"b.jpg"}));
}

} // namespace
