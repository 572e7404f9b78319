#include "winui/CWinRunTree.h"

#include "platform/modWin32Text.h"

#include <shellapi.h>

#include <cwctype>
#include <tuple>

namespace {

constexpr UINT_PTR kSubclassId = 1;

bool IsFolder(const BrowserNode& node) {
    return node.image == 1 || node.image == 2;
}

} // namespace

CWinRunTree::CWinRunTree(HWND tree, CBackupBrowser& browser) : m_tree(tree), m_browser(browser) {
    // A partly ticked folder shows the check box's third picture.
    SendMessageW(m_tree, TVM_SETEXTENDEDSTYLE, TVS_EX_PARTIALCHECKBOXES, TVS_EX_PARTIALCHECKBOXES);
    // The shell's own list of small icons, which the tree view only borrows.
    SHFILEINFOW info{};
    const auto icons = reinterpret_cast<HIMAGELIST>(
        SHGetFileInfoW(L"folder", FILE_ATTRIBUTE_DIRECTORY, &info, sizeof info,
                       SHGFI_USEFILEATTRIBUTES | SHGFI_SYSICONINDEX | SHGFI_SMALLICON));
    if (icons) {
        SendMessageW(m_tree, TVM_SETIMAGELIST, TVSIL_NORMAL, reinterpret_cast<LPARAM>(icons));
        m_folderIcons = {ShellIcon(L"folder", true), ShellIcon(L"folder", true, true)};
    }
    m_browser.OnAboutToReset = [] {};
    m_browser.OnReset = [this] { Rebuild(); };
    m_browser.OnAboutToInsert = [](int32_t, int32_t, int32_t) {};
    m_browser.OnInserted = [this](int32_t parent, int32_t first, int32_t last) {
        InsertChildren(parent, first, last);
    };
    m_browser.OnChanged = [this](int32_t node) { Show(node); };
    // The check boxes answer to the browser, not to the tree view's own toggling: a click on one
    // and the space bar go to the browser first.
    SetWindowSubclass(
        m_tree,
        [](HWND tree, UINT message, WPARAM wParam, LPARAM lParam, UINT_PTR,
           DWORD_PTR data) -> LRESULT {
            auto* self = reinterpret_cast<CWinRunTree*>(data);
            if (message == WM_LBUTTONDOWN || message == WM_LBUTTONDBLCLK) {
                TVHITTESTINFO hit{};
                hit.pt = {static_cast<short>(LOWORD(lParam)), static_cast<short>(HIWORD(lParam))};
                SendMessageW(tree, TVM_HITTEST, 0, reinterpret_cast<LPARAM>(&hit));
                if (hit.hItem && (hit.flags & TVHT_ONITEMSTATEICON)) {
                    SetFocus(tree);
                    self->ToggleTick(self->NodeOf(hit.hItem));
                    return 0;
                }
                if (hit.hItem && (hit.flags & (TVHT_ONITEMLABEL | TVHT_ONITEMICON))) {
                    const int32_t node = self->NodeOf(hit.hItem);
                    const LRESULT result = DefSubclassProc(tree, message, wParam, lParam);
                    // A click on a name opens or closes its folder, as the browser does it.
                    if (message == WM_LBUTTONDOWN && node != CBackupBrowser::kNone)
                        self->m_browser.NodeClick(node);
                    return result;
                }
            }
            if (message == WM_KEYDOWN && wParam == VK_SPACE) {
                const int32_t node = self->Selected();
                if (node != CBackupBrowser::kNone) self->ToggleTick(node);
                return 0;
            }
            if (message == WM_CHAR && wParam == L' ') return 0;
            return DefSubclassProc(tree, message, wParam, lParam);
        },
        kSubclassId, reinterpret_cast<DWORD_PTR>(this));
    Rebuild();
}

CWinRunTree::~CWinRunTree() {
    m_browser.OnAboutToReset = {};
    m_browser.OnReset = {};
    m_browser.OnAboutToInsert = {};
    m_browser.OnInserted = {};
    m_browser.OnChanged = {};
}

int CWinRunTree::ShellIcon(const std::wstring& name, bool folder, bool open) {
    SHFILEINFOW info{};
    UINT flags = SHGFI_USEFILEATTRIBUTES | SHGFI_SYSICONINDEX | SHGFI_SMALLICON;
    if (open) flags |= SHGFI_OPENICON;
    if (!SHGetFileInfoW(name.c_str(), folder ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_NORMAL,
                        &info, sizeof info, flags))
        return 0;
    return info.iIcon;
}

std::pair<int, int> CWinRunTree::IconsOf(const BrowserNode& node) {
    if (IsFolder(node)) return m_folderIcons;
    const std::wstring name = Wide(node.text);
    const size_t dot = name.rfind(L'.');
    std::wstring extension = dot == std::wstring::npos ? L"" : name.substr(dot);
    for (wchar_t& c : extension)
        c = static_cast<wchar_t>(std::towlower(c));
    auto [known, added] = m_iconOfExtension.try_emplace(extension, 0);
    if (added) known->second = ShellIcon(L"file" + extension, false);
    return {known->second, known->second};
}

int CWinRunTree::StateImage(TickState state) {
    switch (state) {
    case TickState::kTicked:
        return 2;
    case TickState::kPartly:
        return 3;
    case TickState::kUnticked:
        break;
    }
    return 1;
}

int32_t CWinRunTree::NodeOf(HTREEITEM item) const {
    if (!item) return CBackupBrowser::kNone;
    TVITEMW data{};
    data.mask = TVIF_PARAM | TVIF_HANDLE;
    data.hItem = item;
    if (!SendMessageW(m_tree, TVM_GETITEMW, 0, reinterpret_cast<LPARAM>(&data)))
        return CBackupBrowser::kNone;
    return static_cast<int32_t>(data.lParam);
}

HTREEITEM CWinRunTree::ItemOf(int32_t node) const {
    return node >= 0 && static_cast<size_t>(node) < m_items.size()
               ? m_items[static_cast<size_t>(node)]
               : nullptr;
}

int32_t CWinRunTree::Selected() const {
    return NodeOf(
        reinterpret_cast<HTREEITEM>(SendMessageW(m_tree, TVM_GETNEXTITEM, TVGN_CARET, 0)));
}

void CWinRunTree::Rebuild() {
    ++m_syncing;
    SendMessageW(m_tree, TVM_DELETEITEM, 0, reinterpret_cast<LPARAM>(TVI_ROOT));
    m_items.assign(static_cast<size_t>(m_browser.NodeCount()), nullptr);
    if (m_browser.Root() != CBackupBrowser::kNone) {
        InsertItem(m_browser.Root(), TVI_LAST);
        // Every node loaded, parents first; each shown as the browser holds it.
        std::vector<int32_t> pending{m_browser.Root()};
        while (!pending.empty()) {
            const int32_t node = pending.back();
            pending.pop_back();
            const auto& children = m_browser.Children(node);
            if (!children.empty())
                InsertChildren(node, 0, static_cast<int32_t>(children.size()) - 1);
            pending.insert(pending.end(), children.begin(), children.end());
        }
        for (int32_t node = 0; node < m_browser.NodeCount(); ++node)
            if (ItemOf(node)) Show(node);
    }
    --m_syncing;
}

void CWinRunTree::InsertChildren(int32_t parent, int32_t first, int32_t last) {
    if (m_items.size() < static_cast<size_t>(m_browser.NodeCount()))
        m_items.resize(static_cast<size_t>(m_browser.NodeCount()), nullptr);
    if (parent == CBackupBrowser::kNone) { // the root, the tree's first node
        InsertItem(m_browser.Root(), TVI_LAST);
        Show(m_browser.Root());
        return;
    }
    if (!ItemOf(parent)) return; // below a node not shown
    const auto& children = m_browser.Children(parent);
    HTREEITEM after = first == 0 ? TVI_FIRST : ItemOf(children[static_cast<size_t>(first - 1)]);
    for (int32_t row = first; row <= last && static_cast<size_t>(row) < children.size(); ++row) {
        after = InsertItem(children[static_cast<size_t>(row)], after ? after : TVI_LAST);
        Show(children[static_cast<size_t>(row)]);
    }
    // A folder open before it had items to show opens now.
    Show(parent);
}

HTREEITEM CWinRunTree::InsertItem(int32_t node, HTREEITEM after) {
    const BrowserNode& shown = m_browser.Node(node);
    std::wstring text = Wide(shown.text);
    TVINSERTSTRUCTW insert{};
    insert.hParent = shown.parent >= 0 ? ItemOf(shown.parent) : TVI_ROOT;
    insert.hInsertAfter = after;
    insert.item.mask = TVIF_TEXT | TVIF_PARAM | TVIF_CHILDREN | TVIF_IMAGE | TVIF_SELECTEDIMAGE;
    insert.item.pszText = text.data();
    std::tie(insert.item.iImage, insert.item.iSelectedImage) = IconsOf(shown);
    insert.item.lParam = node;
    // A folder shows its arrow before its files are loaded.
    insert.item.cChildren = IsFolder(shown) ? 1 : 0;
    auto item = reinterpret_cast<HTREEITEM>(
        SendMessageW(m_tree, TVM_INSERTITEMW, 0, reinterpret_cast<LPARAM>(&insert)));
    m_items[static_cast<size_t>(node)] = item;
    return item;
}

void CWinRunTree::Show(int32_t node) {
    HTREEITEM item = ItemOf(node);
    if (!item) return;
    ++m_syncing;
    TVITEMW state{};
    state.mask = TVIF_STATE | TVIF_HANDLE;
    state.hItem = item;
    state.stateMask = TVIS_STATEIMAGEMASK;
    state.state = INDEXTOSTATEIMAGEMASK(StateImage(m_browser.Ticks(node)));
    SendMessageW(m_tree, TVM_SETITEMW, 0, reinterpret_cast<LPARAM>(&state));
    const bool open =
        (SendMessageW(m_tree, TVM_GETITEMSTATE, reinterpret_cast<WPARAM>(item), TVIS_EXPANDED) &
         TVIS_EXPANDED) != 0;
    if (open != m_browser.Node(node).expanded && node != m_expanding)
        SendMessageW(m_tree, TVM_EXPAND, m_browser.Node(node).expanded ? TVE_EXPAND : TVE_COLLAPSE,
                     reinterpret_cast<LPARAM>(item));
    --m_syncing;
}

void CWinRunTree::ToggleTick(int32_t node) {
    if (node == CBackupBrowser::kNone || m_browser.Restoring()) return;
    // A partly ticked folder is ticked whole; a ticked node unticked.
    m_browser.NodeCheck(node, m_browser.Ticks(node) != TickState::kTicked);
}

std::pair<std::string, std::string> CWinRunTree::ColumnTexts(int32_t node) const {
    return {m_browser.ColumnText(node, 1), m_browser.ColumnText(node, 2)};
}

LRESULT CWinRunTree::DrawColumns(NMTVCUSTOMDRAW& draw) {
    NMCUSTOMDRAW& paint = draw.nmcd;
    if (paint.dwDrawStage == CDDS_PREPAINT) {
        // The columns are as wide as their widest text can be, with a gap before each: measured
        // once for each paint, in the font it paints with.
        SIZE date{}, size{}, gap{};
        GetTextExtentPoint32W(paint.hdc, L"0000-00-00 00:00:00", 19, &date);
        GetTextExtentPoint32W(paint.hdc, L"000.0 bytes", 11, &size);
        GetTextExtentPoint32W(paint.hdc, L"00", 2, &gap);
        m_columnWidths = {date.cx, size.cx, gap.cx};
        return CDRF_NOTIFYITEMDRAW;
    }
    if (paint.dwDrawStage == CDDS_ITEMPREPAINT) return CDRF_NOTIFYPOSTPAINT;
    if (paint.dwDrawStage != CDDS_ITEMPOSTPAINT) return CDRF_DODEFAULT;
    const int32_t node = NodeOf(reinterpret_cast<HTREEITEM>(paint.dwItemSpec));
    if (node == CBackupBrowser::kNone) return CDRF_DODEFAULT;
    const auto [size, modified] = ColumnTexts(node);
    RECT client{};
    GetClientRect(m_tree, &client);
    const auto [dateWidth, sizeWidth, gap] = m_columnWidths;
    RECT dateRect{client.right - dateWidth - gap / 2, paint.rc.top, client.right, paint.rc.bottom};
    RECT sizeRect{dateRect.left - gap - sizeWidth, paint.rc.top, dateRect.left - gap,
                  paint.rc.bottom};
    RECT cleared{sizeRect.left - gap / 2, paint.rc.top, client.right, paint.rc.bottom};
    FillRect(paint.hdc, &cleared, GetSysColorBrush(COLOR_WINDOW));
    SetBkMode(paint.hdc, TRANSPARENT);
    SetTextColor(paint.hdc, GetSysColor(COLOR_GRAYTEXT));
    std::wstring text = Wide(size);
    DrawTextW(paint.hdc, text.c_str(), static_cast<int>(text.size()), &sizeRect,
              DT_RIGHT | DT_VCENTER | DT_SINGLELINE | DT_NOPREFIX);
    text = Wide(modified);
    DrawTextW(paint.hdc, text.c_str(), static_cast<int>(text.size()), &dateRect,
              DT_LEFT | DT_VCENTER | DT_SINGLELINE | DT_NOPREFIX | DT_END_ELLIPSIS);
    return CDRF_DODEFAULT;
}

LRESULT CWinRunTree::Notify(const NMHDR& header) {
    if (header.hwndFrom == m_tree && header.code == NM_CUSTOMDRAW)
        return DrawColumns(*reinterpret_cast<NMTVCUSTOMDRAW*>(const_cast<NMHDR*>(&header)));
    if (header.hwndFrom != m_tree || header.code != TVN_ITEMEXPANDINGW || m_syncing > 0) return 0;
    const auto& change = reinterpret_cast<const NMTREEVIEWW&>(header);
    const int32_t node = static_cast<int32_t>(change.itemNew.lParam);
    if (node < 0 || node >= m_browser.NodeCount() || m_browser.Restoring()) return 0;
    // The arrow opens or closes as a click on the name does: the browser loads and decides.
    const bool opening = (change.action & TVE_EXPAND) != 0;
    if (opening != m_browser.Node(node).expanded) {
        ++m_syncing;
        m_expanding = node;
        m_browser.NodeClick(node);
        m_expanding = CBackupBrowser::kNone;
        --m_syncing;
    }
    return 0;
}
