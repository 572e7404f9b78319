// The Win32 main window, driven as a person drives it: controls found by their names, buttons
// clicked, text typed key by key into the boxes, tabs chosen with the mouse, and every box and
// folder pick answered from the test's script. What the window shows (captions, labels, the
// progress bar, the report), what it stores (the catalogue's Setup and Sources) and what a
// backup leaves (the catalogue's rows, the store's files) are checked exactly.

#include "BackupFixture.h"
#include "app/CTaskScheduler.h"
#include "app/modMain.h"
#include "app/modPaths.h"
#include "app/modSchedule.h"
#include "app/modSetup.h"
#include "app/modWindowDesign.h"
#include "catalogue/CDatabase.h"
#include "platform/modFileStatus.h"
#include "platform/modPlatformPaths.h"
#include "platform/modWin32Text.h"
#include "support/Version.h"
#include "support/modDateText.h"
#include "support/modYield.h"
#include "winui/CWinProgressBar.h"
#include "winui/CWinRunTree.h"
#include "winui/CWinServices.h"
#include "winui/frmMain.h"
#include "winui/frmReport.h"
#include "winui/modWinControls.h"

#include <commctrl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
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
// handed to `act` once it shows and, when `ready` is given, once `ready` says it is done with
// what it does on opening.
struct ModalScript {
    std::string name;
    std::function<void(HWND)> act;
    std::function<bool(HWND)> ready;
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
    if (!found || (Modal().ready && !Modal().ready(found))) return;
    KillTimer(nullptr, timer);
    auto act = std::move(Modal().act);
    act(found);
}
void WhenModal(const std::string& name, std::function<void(HWND)> act,
               std::function<bool(HWND)> ready = {}) {
    Modal() = {name, std::move(act), std::move(ready)};
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
// The next run chooser is answered as a person does: the first source's newest run, its date
// under the source, then OK; `runs` receives the dates listed under that source.
void WhenChooserChooseNewestRun(std::vector<std::string>* runs = nullptr) {
    WhenModal("frmSelBackup", [runs](HWND chooser) {
        HWND tree = FindControl(chooser, "tvBackups");
        auto top = reinterpret_cast<HTREEITEM>(SendMessageW(tree, TVM_GETNEXTITEM, TVGN_ROOT, 0));
        if (runs) *runs = ItemTexts(tree, top);
        auto run = reinterpret_cast<HTREEITEM>(
            SendMessageW(tree, TVM_GETNEXTITEM, TVGN_CHILD, reinterpret_cast<LPARAM>(top)));
        SendMessageW(tree, TVM_SELECTITEM, TVGN_CARET, reinterpret_cast<LPARAM>(run));
        SendMessageW(FindControl(chooser, "OKButton"), BM_CLICK, 0, 0);
    });
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
    WhenChooserChooseNewestRun(&runs);
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
    WhenChooserChooseNewestRun();
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

// The picture of an item.
int ImageOf(HWND tree, HTREEITEM item, bool selected = false) {
    TVITEMW data{};
    data.mask = TVIF_IMAGE | TVIF_SELECTEDIMAGE | TVIF_HANDLE;
    data.hItem = item;
    SendMessageW(tree, TVM_GETITEMW, 0, reinterpret_cast<LPARAM>(&data));
    return selected ? data.iSelectedImage : data.iImage;
}

TEST_F(WinWindowTest, EachItemOfTheRestoreTreeShowsTheShellsIconOfItsKind) {
    const std::string source = f.env.Path("src");
    CreateTree(source, Dir({{"a.TXT", File("alpha")},
                            {"b.jpg", File("beta")},
                            {"noextension", File("gamma")},
                            {"sub", Dir({{"c.txt", File("delta")}})}}));
    f.AddSource(source);
    Open();
    Load();
    Click("cmdBackup");
    ClickTab(MainTab::kRestore);
    WhenChooserChooseNewestRun();
    Click("cmdSelBackup");
    HWND tree = Get("tvDirs");
    EXPECT_NE(SendMessageW(tree, TVM_GETIMAGELIST, TVSIL_NORMAL, 0), 0);
    HTREEITEM root = ItemNamed(tree, nullptr, source + "\\");
    ASSERT_NE(root, nullptr);
    const int folder = CWinRunTree::ShellIcon(L"folder", true);
    const int text = CWinRunTree::ShellIcon(L"file.txt", false);
    EXPECT_NE(folder, text);
    EXPECT_EQ(ImageOf(tree, root), folder);
    EXPECT_EQ(ImageOf(tree, root, true), CWinRunTree::ShellIcon(L"folder", true, true));
    EXPECT_EQ(ImageOf(tree, ItemNamed(tree, root, "sub")), folder);
    // An extension in capitals is the same kind.
    EXPECT_EQ(ImageOf(tree, ItemNamed(tree, root, "a.TXT")), text);
    EXPECT_EQ(ImageOf(tree, ItemNamed(tree, root, "b.jpg")),
              CWinRunTree::ShellIcon(L"file.jpg", false));
    EXPECT_EQ(ImageOf(tree, ItemNamed(tree, root, "noextension")),
              CWinRunTree::ShellIcon(L"file", false));
    // Beside each name, its size and when it was written; the source folder, the time it was
    // written as the run recorded it (which may lie a second before the run's own date).
    const auto nodeOf = [&](HTREEITEM item) { return window->RunTree().NodeOf(item); };
    const auto [size, written] =
        window->RunTree().ColumnTexts(nodeOf(ItemNamed(tree, root, "a.TXT")));
    EXPECT_EQ(size, "5 bytes");
    EXPECT_EQ(written.size(), 19u) << written;
    const int64_t sourceWrittenNs = StatusOf(source).writeNs;
    EXPECT_EQ(window->RunTree().ColumnTexts(nodeOf(root)),
              (std::pair<std::string, std::string>{
                  "", DateTimeText(static_cast<std::time_t>(sourceWrittenNs / 1'000'000'000))}));
}

// A menu item of the window chosen, as a click on it does.
void ChooseMenuItem(HWND window, const std::string& name) {
    std::wstring caption;
    for (const MenuDesign& design : MainWindowMenus())
        if (design.name == name) caption = Wide(design.caption);
    HMENU bar = GetMenu(window);
    for (int top = 0; top < GetMenuItemCount(bar); ++top) {
        HMENU menu = GetSubMenu(bar, top);
        for (int item = 0; item < GetMenuItemCount(menu); ++item) {
            wchar_t text[128] = L"";
            GetMenuStringW(menu, static_cast<UINT>(item), text, 128, MF_BYPOSITION);
            if (text != caption) continue;
            SendMessageW(window, WM_COMMAND, MAKEWPARAM(GetMenuItemID(menu, item), 0), 0);
            PumpMessages();
            return;
        }
    }
    ADD_FAILURE() << "no menu item " << name;
}

TEST_F(WinWindowTest, HelpAboutShowsTheProgramsNameVersionAndDescription) {
    Open();
    Load();
    std::vector<std::string> seen;
    WhenModal("frmAbout", [&](HWND about) {
        seen.push_back(WindowText(about));
        for (const char* name :
             {"lblTitle", "lblVersion", "lblDescription", "lblDisclaimer", "cmdSysInfo", "cmdOK"})
            seen.push_back(WindowText(FindControl(about, name)));
        seen.push_back(std::to_string(IsWindowEnabled(window->Handle()) != FALSE));
        // Enter on OK closes it.
        PostMessageW(FindControl(about, "cmdOK"), WM_KEYDOWN, VK_RETURN, 0);
    });
    ChooseMenuItem(window->Handle(), "mnuAbout");
    EXPECT_EQ(seen,
              (std::vector<std::string>{
                  "About Stashwell", "Korvex Stashwell",
                  "Version " + std::to_string(version::kMajor) + "." +
                      std::to_string(version::kMinor) + "." + std::to_string(version::kRevision),
                  "Backs up the folders you choose into a backup folder, storing each content "
                  "once, and restores any earlier run, whole or in part.",
                  "Keep your backup drive apart from the computer it protects, and try a restore "
                  "now and then.",
                  "&System Info...", "OK", "0"}));
    EXPECT_TRUE(IsWindowEnabled(window->Handle()));
    EXPECT_TRUE(f.env.box.calls.empty());
}

TEST_F(WinWindowTest, HelpManualAndF1OpenTheManualFromTheProgramsFolderWithTheShell) {
    Open();
    Load();
    ChooseMenuItem(window->Handle(), "mnuManual");
    PostMessageW(Get("cmdBackup"), WM_KEYDOWN, VK_F1, 0);
    PumpMessages();
    const std::string manual = ProgramFolder() + "\\QRV Manual.pdf";
    EXPECT_EQ(f.env.desktop.opened, (std::vector<std::string>{manual, manual}));
    EXPECT_TRUE(f.env.box.calls.empty());
}

// When the daily task next runs: today at hour:minute, or tomorrow once that has passed.
std::string NextRunAt(int hour, int minute) {
    const std::time_t now = std::time(nullptr);
    const std::time_t today = TimeOfDay(now, 0, hour, minute);
    return DateTimeText(today > now ? today : TimeOfDay(now, 1, hour, minute));
}

TEST_F(WinWindowTest, TheDailyScheduleIsATaskSchedulerTaskMadeChangedAndDeletedFromTheWindow) {
    // Where Wine's Task Scheduler keeps a registered task.
    const char* root = std::getenv("SystemRoot");
    const std::string task = std::string(root ? root : "C:\\windows") + "\\system32\\tasks\\" +
                             CTaskScheduler::kTaskName;
    const auto stored = [this](const std::string& key) {
        return f.RowTexts("SELECT value FROM Setup WHERE key = '" + key + "'");
    };
    // Wine's own Task Scheduler, in the test's Wine prefix.
    SetSchedulerSource([] {
        std::vector<std::unique_ptr<IScheduler>> schedulers;
        schedulers.push_back(
            std::make_unique<CTaskScheduler>("C:\\Program Files\\Stashwell\\stashwell.exe"));
        return schedulers;
    });
    Open();
    Load();
    ClickTab(MainTab::kConfiguration);
    EXPECT_EQ(Text("lblNextBackup"), "");
    Click("chkSchedule");
    EXPECT_TRUE(Checked("chkSchedule"));
    EXPECT_EQ(stored("SchedEnabled"), (std::vector<std::string>{"1"}));
    EXPECT_TRUE(Exists(task));
    EXPECT_EQ(Text("lblNextBackup"), "Next backup: " + NextRunAt(21, 0));

    // A typed hour is set once the box is left.
    Type("spnHour", "6");
    SetFocus(Get("txtExclude"));
    PumpMessages();
    EXPECT_EQ(stored("Hour"), (std::vector<std::string>{"6"}));
    EXPECT_TRUE(Exists(task));
    EXPECT_EQ(Text("lblNextBackup"), "Next backup: " + NextRunAt(6, 0));

    Click("chkSchedule");
    EXPECT_FALSE(Checked("chkSchedule"));
    EXPECT_EQ(stored("SchedEnabled"), (std::vector<std::string>{"0"}));
    EXPECT_FALSE(Exists(task));
    EXPECT_EQ(Text("lblNextBackup"), "");
    EXPECT_TRUE(f.env.box.calls.empty()) << f.env.box.calls.front().text;
}

// The rows of a list view, each as its cells joined by " | ".
std::vector<std::string> ListViewRows(HWND list) {
    std::vector<std::string> rows;
    HWND header = reinterpret_cast<HWND>(SendMessageW(list, LVM_GETHEADER, 0, 0));
    const auto columns = static_cast<int>(SendMessageW(header, HDM_GETITEMCOUNT, 0, 0));
    const auto count = static_cast<int>(SendMessageW(list, LVM_GETITEMCOUNT, 0, 0));
    for (int row = 0; row < count; ++row) {
        std::string text;
        for (int column = 0; column < columns; ++column) {
            wchar_t cell[512] = L"";
            LVITEMW item{};
            item.iSubItem = column;
            item.pszText = cell;
            item.cchTextMax = 512;
            SendMessageW(list, LVM_GETITEMTEXTW, static_cast<WPARAM>(row),
                         reinterpret_cast<LPARAM>(&item));
            text += (column ? " | " : "") + Narrow(cell);
        }
        rows.push_back(text);
    }
    return rows;
}
std::vector<std::string> ListViewHeaders(HWND list) {
    std::vector<std::string> headers;
    HWND header = reinterpret_cast<HWND>(SendMessageW(list, LVM_GETHEADER, 0, 0));
    const auto columns = static_cast<int>(SendMessageW(header, HDM_GETITEMCOUNT, 0, 0));
    for (int column = 0; column < columns; ++column) {
        wchar_t text[128] = L"";
        HDITEMW item{};
        item.mask = HDI_TEXT;
        item.pszText = text;
        item.cchTextMax = 128;
        SendMessageW(header, HDM_GETITEMW, static_cast<WPARAM>(column),
                     reinterpret_cast<LPARAM>(&item));
        headers.push_back(Narrow(text));
    }
    return headers;
}
// A click on a list view's row: it becomes the one chosen.
void ChooseListRow(HWND list, int row) {
    LVITEMW state{};
    state.stateMask = LVIS_SELECTED | LVIS_FOCUSED;
    state.state = LVIS_SELECTED | LVIS_FOCUSED;
    SendMessageW(list, LVM_SETITEMSTATE, static_cast<WPARAM>(row),
                 reinterpret_cast<LPARAM>(&state));
    PumpMessages();
}

// Two runs of one source: a.txt changed between them, gone.txt went and new.txt came.
class TwoRunsTest : public WinWindowTest {
protected:
    void SetUp() override {
        CreateTree(source, Dir({{"a.txt", File("alpha")}, {"gone.txt", File("gone")}}));
        f.AddSource(source);
        Open();
        Load();
        Click("cmdBackup");
        WriteFile(source + "\\a.txt", "alpha, changed");
        WriteFile(source + "\\new.txt", "new");
        ::DeleteFileW(Wide(source + "\\gone.txt").c_str());
        Click("cmdBackup");
        ClickTab(MainTab::kRestore);
    }
    std::string Date(const std::string& bid) {
        return f.RowTexts("SELECT datebk FROM Backups WHERE bid = " + bid).at(0);
    }
    void ChooseNewestRun() {
        WhenChooserChooseNewestRun();
        Click("cmdSelBackup");
    }
    std::string source = f.env.Path("src");
};

TEST_F(TwoRunsTest, CompareWithThePreviousRunListsWhatChanged) {
    EXPECT_FALSE(IsWindowEnabled(Get("cmdCompare"))); // no run shown yet
    ChooseNewestRun();
    ASSERT_TRUE(IsWindowEnabled(Get("cmdCompare")));
    std::vector<std::string> seen, rows, headers;
    WhenModal(
        "frmRunDiff",
        [&](HWND dialog) {
            seen = {WindowText(dialog), WindowText(FindControl(dialog, "lblCompare")),
                    WindowText(FindControl(dialog, "lblChanges"))};
            rows = ListViewRows(FindControl(dialog, "lvwChanges"));
            headers = ListViewHeaders(FindControl(dialog, "lvwChanges"));
            SendMessageW(FindControl(dialog, "cmdClose"), BM_CLICK, 0, 0);
        },
        // The runs are compared as the dialog opens.
        [](HWND dialog) {
            return !WindowText(FindControl(dialog, "lblCompare")).starts_with("Comparing");
        });
    Click("cmdCompare");
    EXPECT_EQ(seen, (std::vector<std::string>{"Compare with previous run",
                                              "Changes from the run of " + Date("1") +
                                                  " to the run of " + Date("2") + ".",
                                              "1 added, 1 changed, 1 removed"}));
    EXPECT_EQ(headers, (std::vector<std::string>{"Change", "File", "Size before", "Size after"}));
    EXPECT_EQ(rows,
              (std::vector<std::string>{"changed | " + source + "\\a.txt | 5 bytes | 14 bytes",
                                        "removed | " + source + "\\gone.txt | 4 bytes | ",
                                        "added | " + source + "\\new.txt |  | 3 bytes"}));
    // Closed, the window answers again.
    EXPECT_TRUE(IsWindowEnabled(window->Handle()));
    EXPECT_TRUE(f.env.box.calls.empty());
}

TEST_F(TwoRunsTest, FindInAllRunsListsEachVersionAndRestoresTheOneChosen) {
    std::vector<std::string> seen, rows, headers;
    WhenModal("frmVersions", [&](HWND dialog) {
        HWND find = FindControl(dialog, "txtFind");
        HWND list = FindControl(dialog, "lvwVersions");
        seen.push_back(WindowText(dialog));
        seen.push_back(std::to_string(IsWindowEnabled(FindControl(dialog, "cmdFind")) != FALSE));
        SetFocus(find);
        for (wchar_t key : std::wstring(L"a.txt")) {
            SendMessageW(find, WM_CHAR, key, 1);
            PumpMessages();
        }
        SendMessageW(FindControl(dialog, "cmdFind"), BM_CLICK, 0, 0);
        rows = ListViewRows(list);
        headers = ListViewHeaders(list);
        seen.push_back(WindowText(FindControl(dialog, "lblVersions")));
        seen.push_back(
            std::to_string(IsWindowEnabled(FindControl(dialog, "cmdRestoreVersion")) != FALSE));
        // The older content's run, put back in its place after the question.
        ChooseListRow(list, 3);
        seen.push_back(
            std::to_string(IsWindowEnabled(FindControl(dialog, "cmdRestoreVersion")) != FALSE));
        f.env.box.Answer(mb::kOK);
        SendMessageW(FindControl(dialog, "cmdRestoreVersion"), BM_CLICK, 0, 0);
        seen.push_back(WindowText(FindControl(dialog, "lblRestoreVersion")));
        PostMessageW(find, WM_KEYDOWN, VK_ESCAPE, 0); // Esc closes it
    });
    Click("cmdFindVersions");
    EXPECT_EQ(headers, (std::vector<std::string>{"Run", "Source", "File", "Size", "Signature"}));
    EXPECT_EQ(rows, (std::vector<std::string>{"1 run |  | " + source + "\\a.txt | 14 bytes | " +
                                                  TestSignature("alpha, changed"),
                                              Date("2") + " | " + source + " |  |  | ",
                                              "1 run |  | " + source + "\\a.txt | 5 bytes | " +
                                                  TestSignature("alpha"),
                                              Date("1") + " | " + source + " |  |  | "}));
    EXPECT_EQ(seen,
              (std::vector<std::string>{"Find in all runs", "0", "2 versions of 1 file in 2 runs",
                                        "0", "1", "Restored " + source + "\\a.txt"}));
    EXPECT_EQ(ReadFile(source + "\\a.txt"), "alpha");
    EXPECT_EQ(
        f.env.box.calls,
        (Calls{Box("QRV will overwrite any existing files with the same name. Is this OK?", 33)}));
    EXPECT_TRUE(IsWindowEnabled(window->Handle()));
}

TEST_F(TwoRunsTest, FindInAllRunsLooksForTheFileChosenInTheTreeAtOnce) {
    ChooseNewestRun();
    HWND tree = Get("tvDirs");
    HTREEITEM root = ItemNamed(tree, nullptr, source + "\\");
    ASSERT_NE(root, nullptr);
    SendMessageW(tree, TVM_SELECTITEM, TVGN_CARET,
                 reinterpret_cast<LPARAM>(ItemNamed(tree, root, "new.txt")));
    std::vector<std::string> seen;
    WhenModal(
        "frmVersions",
        [&](HWND dialog) {
            seen = {WindowText(FindControl(dialog, "txtFind")),
                    WindowText(FindControl(dialog, "lblVersions"))};
            SendMessageW(FindControl(dialog, "cmdClose"), BM_CLICK, 0, 0);
        },
        // The name is looked for as the dialog opens.
        [](HWND dialog) {
            const std::string found = WindowText(FindControl(dialog, "lblVersions"));
            return !found.empty() && found != "Looking in every run ...";
        });
    Click("cmdFindVersions");
    EXPECT_EQ(seen, (std::vector<std::string>{"new.txt", "1 version of 1 file in 1 run"}));
}

// ---- Maintenance and a cancelled run, through the window's buttons ----

const CScriptedMessageBox::Call kDeleteQuestion =
    Box("This will permanently delete the backups of removed Sources. Ok to proceed?", 17);
const CScriptedMessageBox::Call kDeleteDone =
    Box("Delete complete. You should now run Compact", 64);
const CScriptedMessageBox::Call kCompactQuestion =
    Box("This may take an extended amount of time. Ok to continue?", 65);
const CScriptedMessageBox::Call kCompactDone = Box("Compact process complete", 64);

// `count` runs of `source` in the catalogue, without files.
void AddRuns(const BackupFixture& f, const std::string& source, int count) {
    CDatabase db;
    db.Connect(f.db);
    for (int i = 0; i < count; ++i)
        db.BackupRun(source);
}

// The store's files, without its folders.
std::vector<std::string> StoreFiles(const BackupFixture& f) {
    std::vector<std::string> files;
    for (const std::string& path : ListTree(f.backup + "\\Files"))
        if (path.back() != '/') files.push_back(path);
    return files;
}

TEST_F(WinWindowTest, DeleteOfARemovedSourceThenCompactFreesOnlyItsOwnContent) {
    const std::string gone = f.env.Path("gone"), kept = f.env.Path("kept");
    CreateTree(gone, Dir({{"only.txt", File("only in the removed source")},
                          {"shared.txt", File("in both sources")}}));
    CreateTree(kept, Dir({{"mine.txt", File("only in the kept source")},
                          {"also.txt", File("in both sources")}}));
    f.AddSource(gone);
    f.AddSource(kept);
    Open();
    Load();
    Click("cmdBackup");
    Click("cmdBackup");
    ASSERT_EQ(StoreFiles(f).size(), 3u);
    const auto keptRuns = SqlRows(f.db, "SELECT * FROM Backups WHERE bid IN (2, 4)");
    const auto keptFiles = SqlRows(f.db, "SELECT * FROM Files WHERE bid IN (2, 4)");

    // The source leaves the list, then Delete drops its runs.
    SendMessageW(Get("lstSources"), LB_SETCURSEL, 0, 0);
    f.env.box.Answer(mb::kYes);
    Click("cmdRemove");
    f.env.box.calls.clear();
    ClickTab(MainTab::kConfiguration);
    Click("cmdManage");
    EXPECT_EQ(f.env.box.calls, (Calls{kDeleteQuestion, kDeleteDone}));
    EXPECT_EQ(f.RowTexts("SELECT bid FROM Backups"), (std::vector<std::string>{"2", "4"}));
    EXPECT_EQ(StoreFiles(f).size(), 3u); // the store waits for Compact

    f.env.box.calls.clear();
    Click("cmdCompact");
    EXPECT_EQ(f.env.box.calls, (Calls{kCompactQuestion, kCompactDone}));
    std::vector<std::string> expected;
    for (const char* content : {"in both sources", "only in the kept source"})
        expected.push_back(StoreFile(f.backup, content).substr(f.backup.size() + 7));
    std::sort(expected.begin(), expected.end());
    for (std::string& path : expected)
        std::replace(path.begin(), path.end(), '\\', '/');
    EXPECT_EQ(StoreFiles(f), expected);
    EXPECT_EQ(SqlRows(f.db, "SELECT * FROM Backups"), keptRuns);
    EXPECT_EQ(SqlRows(f.db, "SELECT * FROM Files"), keptFiles);
    EXPECT_EQ(f.RowTexts("PRAGMA integrity_check"), (std::vector<std::string>{"ok"}));
    EXPECT_EQ(ProgressValue(Get("XP_PB3")), 100);
    EXPECT_EQ(Text("XP_PB3"), "100 %");
    EXPECT_EQ(Text("lblStatus"), "Del. unused files");
    // The window is no longer busy: every tab and button answers again.
    EXPECT_TRUE(window->TabEnabled(MainTab::kBackup));
    EXPECT_TRUE(window->TabEnabled(MainTab::kRestore));
    EXPECT_TRUE(IsWindowEnabled(Get("cmdCompact")));
}

TEST_F(WinWindowTest, DecliningDeleteKeepsEveryRun) {
    AddRuns(f, f.env.Path("data"), 1);
    Open();
    Load();
    ClickTab(MainTab::kConfiguration);
    f.env.box.Answer(mb::kCancel);
    Click("cmdManage");
    EXPECT_EQ(f.RowTexts("SELECT count(*) FROM Backups"), (std::vector<std::string>{"1"}));
    EXPECT_EQ(f.env.box.calls, (Calls{kDeleteQuestion}));
}

TEST_F(WinWindowTest, ManualPurgeAppliesTheLimitAndAsksForACompact) {
    const std::string data = f.env.Path("data");
    f.AddSource(data);
    AddRuns(f, data, 4);
    f.SetOption("MaxBackups", "2");
    Open();
    Load();
    ClickTab(MainTab::kConfiguration);
    Click("cmdPurge");
    EXPECT_EQ(f.RowTexts("SELECT bid FROM Backups"), (std::vector<std::string>{"3", "4"}));
    EXPECT_EQ(f.env.box.calls, (Calls{Box("Purge Complete. You should run Compact", 64)}));
}

TEST_F(WinWindowTest, CancelOnTheCompactQuestionChangesNothing) {
    const std::string source = f.env.Path("s");
    CreateTree(source, Dir({{"a.txt", File("alpha")}}));
    f.AddSource(source);
    Open();
    Load();
    Click("cmdBackup");
    f.Exec("DELETE FROM Backups");
    const auto files = StoreFiles(f);
    ClickTab(MainTab::kConfiguration);
    f.env.box.calls.clear();
    f.env.box.Answer(mb::kCancel);
    Click("cmdCompact");
    EXPECT_EQ(f.env.box.calls, (Calls{kCompactQuestion}));
    EXPECT_EQ(ProgressValue(Get("XP_PB3")), 0);
    EXPECT_EQ(Text("lblStatus"), "");
    EXPECT_EQ(StoreFiles(f), files);
    EXPECT_EQ(f.RowTexts("SELECT count(*) FROM Files"), (std::vector<std::string>{"1"}));
}

TEST_F(WinWindowTest, DuringTheRunTheButtonCancelsAndTheOtherTabsAndSourceButtonsWait) {
    const std::string source = f.env.Path("s");
    CreateTree(source, Dir({{"a.txt", File("a")}, {"b.txt", File("b")}}));
    f.AddSource(source);
    Open();
    Load();
    std::vector<std::string> seen;
    SetYieldHook([&] {
        if (seen.empty() && Text("cmdBackup") != "&Backup")
            seen = {Text("cmdBackup"),
                    ToolTip("cmdBackup"),
                    std::to_string(window->TabEnabled(MainTab::kBackup)),
                    std::to_string(window->TabEnabled(MainTab::kRestore)),
                    std::to_string(window->TabEnabled(MainTab::kConfiguration)),
                    std::to_string(IsWindowEnabled(Get("cmdAddSrc")) != FALSE),
                    std::to_string(IsWindowEnabled(Get("cmdRemove")) != FALSE)};
        PumpMessages();
    });
    Click("cmdBackup");
    EXPECT_EQ(seen, (std::vector<std::string>{"Cancel", "Cancel backup in progress", "1", "0", "0",
                                              "0", "0"}));
    EXPECT_TRUE(window->TabEnabled(MainTab::kRestore));
    EXPECT_TRUE(IsWindowEnabled(Get("cmdAddSrc")));
}

TEST_F(WinWindowTest, CancelDuringTheSecondOfThreeSources) {
    std::vector<std::string> sources;
    {
        CDatabase db;
        db.Connect(f.db);
        for (const char* name : {"one", "two", "three"}) {
            sources.push_back(f.env.Path(name));
            CreateTree(sources.back(), Dir({{"a.txt", File(std::string(name) + " a")},
                                            {"b.txt", File(std::string(name) + " b")}}));
            f.AddSource(sources.back());
            db.BackupRun(sources.back()); // earlier runs: a limit of 1 would drop them
            db.BackupRun(sources.back());
        }
    }
    f.SetOption("MaxBackups", "1");
    Open();
    Load();
    bool clicked = false;
    // The second click, made while the second source's first file is shown as done.
    SetYieldHook([&] {
        if (!clicked && Text("lblProcessing") == sources[1] && Text("lblDone") == "1") {
            clicked = true;
            Click("cmdBackup");
        }
        PumpMessages();
    });
    Click("cmdBackup");
    ASSERT_TRUE(clicked);
    EXPECT_EQ(Text("lblSource"), "Backup cancelled");
    EXPECT_EQ(Text("cmdBackup"), "&Backup");
    // Source one ran and was pruned to one run; two was rolled back and not pruned; three
    // never started.
    EXPECT_EQ(f.RowTexts("SELECT bid || '|' || source FROM Backups ORDER BY bid"),
              (std::vector<std::string>{"3|" + sources[1], "4|" + sources[1], "5|" + sources[2],
                                        "6|" + sources[2], "7|" + sources[0]}));
    ASSERT_NE(window->Report(), nullptr);
    const std::string report = window->Report()->ReportText();
    EXPECT_NE(report.find("Cancel requested. Stopping...\r\n"), std::string::npos);
    EXPECT_EQ(report.find("Source: " + sources[2] + "\r\n"), std::string::npos);
}

} // namespace
