#pragma once

// The restore tree of the Win32 window: a tree view with check boxes (tvDirs) that shows what a
// CBackupBrowser holds and follows it through its observers (a reset, children inserted, a
// node's tick or opening changed), and hands the person's clicks back to it. A click on a check
// box ticks or unticks through the browser (a partly ticked folder is ticked whole), a click on a
// name opens or closes the folder as the browser does, and a folder's arrow loads its files the
// same way. The browser decides; the tree view only shows. Each item shows the shell's own small
// icon of its kind: a folder's (open while it is selected) or that of a file of its extension.
// The Size and Modified columns of the Qt tree are drawn at the right of each row (custom
// draw), in grey, over whatever of a long name reaches them.

#include "app/CBackupBrowser.h"
#include "platform/modWin32.h"

#include <commctrl.h>

#include <map>
#include <string>
#include <tuple>
#include <vector>

class CWinRunTree {
public:
    CWinRunTree(HWND tree, CBackupBrowser& browser);
    ~CWinRunTree();
    CWinRunTree(const CWinRunTree&) = delete;
    CWinRunTree& operator=(const CWinRunTree&) = delete;

    // A notification of the tree view (WM_NOTIFY); its answer.
    LRESULT Notify(const NMHDR& header);
    // The node an item shows, and the item of a node (nullptr while it is not shown).
    int32_t NodeOf(HTREEITEM item) const;
    HTREEITEM ItemOf(int32_t node) const;
    // The node selected, or kNone.
    int32_t Selected() const;
    // What the Size and Modified columns show for `node`.
    std::pair<std::string, std::string> ColumnTexts(int32_t node) const;

    // The check-box picture of a tick state: 1 unticked, 2 ticked, 3 partly.
    static int StateImage(TickState state);
    // The place in the shell's list of small icons of the icon of a file named `name` (by its
    // extension), or of a folder, closed or open; 0 when the shell has none.
    static int ShellIcon(const std::wstring& name, bool folder, bool open = false);

private:
    void Rebuild();
    void InsertChildren(int32_t parent, int32_t first, int32_t last);
    HTREEITEM InsertItem(int32_t node, HTREEITEM after);
    void Show(int32_t node);
    // A click on `node`'s check box: the browser ticks it (a partly ticked folder whole) or
    // unticks it.
    void ToggleTick(int32_t node);

    // Draws the Size and Modified columns of an item (NM_CUSTOMDRAW); the answer.
    LRESULT DrawColumns(NMTVCUSTOMDRAW& draw);
    // The icon of `node`'s kind, and of it selected.
    std::pair<int, int> IconsOf(const BrowserNode& node);

    HWND m_tree;
    CBackupBrowser& m_browser;
    std::map<std::wstring, int> m_iconOfExtension; // asked of the shell once per extension
    std::pair<int, int> m_folderIcons{0, 0};
    // The widths of the Modified and Size columns and of the gap before each, measured as a
    // paint begins.
    std::tuple<LONG, LONG, LONG> m_columnWidths{0, 0, 0};
    std::vector<HTREEITEM> m_items; // by node
    int m_syncing = 0;              // the view is being set from the browser
    // The node the tree view is opening or closing itself (its arrow): left to it.
    int32_t m_expanding = CBackupBrowser::kNone;
};
