#include "winui/frmSelBackup.h"

#include "app/modBackupRuns.h"
#include "platform/modWin32Text.h"
#include "winui/modWinControls.h"

#include <commctrl.h>

#include <vector>

namespace {

constexpr const wchar_t* kChooserClass = L"StashwellSelBackup";

struct Chooser {
    HWND window = nullptr;
    HWND tree = nullptr;
    HWND ok = nullptr;
    std::vector<std::string> bids; // by item lParam - 1; 0 for a source
    std::string chosen;
    bool done = false;
    HFONT font = nullptr;
};

std::string BidOf(const Chooser& chooser, HTREEITEM item) {
    if (!item) return {};
    TVITEMW data{};
    data.mask = TVIF_PARAM | TVIF_HANDLE;
    data.hItem = item;
    SendMessageW(chooser.tree, TVM_GETITEMW, 0, reinterpret_cast<LPARAM>(&data));
    return data.lParam > 0 ? chooser.bids[static_cast<size_t>(data.lParam - 1)] : std::string();
}

std::string SelectedBid(const Chooser& chooser) {
    return BidOf(chooser, reinterpret_cast<HTREEITEM>(
                              SendMessageW(chooser.tree, TVM_GETNEXTITEM, TVGN_CARET, 0)));
}

void Finish(Chooser& chooser, std::string bid) {
    chooser.chosen = std::move(bid);
    chooser.done = true;
}

LRESULT CALLBACK ChooserProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_NCCREATE)
        SetWindowLongPtrW(
            window, GWLP_USERDATA,
            reinterpret_cast<LONG_PTR>(reinterpret_cast<CREATESTRUCTW*>(lParam)->lpCreateParams));
    auto* chooser = reinterpret_cast<Chooser*>(GetWindowLongPtrW(window, GWLP_USERDATA));
    if (chooser) {
        switch (message) {
        case WM_COMMAND:
            if (LOWORD(wParam) == IDOK) {
                const std::string bid = SelectedBid(*chooser);
                if (!bid.empty()) Finish(*chooser, bid);
            }
            if (LOWORD(wParam) == IDCANCEL) Finish(*chooser, {});
            return 0;
        case WM_NOTIFY: {
            const auto& header = *reinterpret_cast<const NMHDR*>(lParam);
            if (header.hwndFrom == chooser->tree && header.code == TVN_SELCHANGEDW)
                EnableWindow(chooser->ok, SelectedBid(*chooser).empty() ? FALSE : TRUE);
            if (header.hwndFrom == chooser->tree && header.code == NM_DBLCLK) {
                const std::string bid = SelectedBid(*chooser);
                if (!bid.empty()) Finish(*chooser, bid);
            }
            return 0;
        }
        case WM_CLOSE:
            Finish(*chooser, {});
            return 0;
        default:
            break;
        }
    }
    return DefWindowProcW(window, message, wParam, lParam);
}

HWND Child(Chooser& chooser, const wchar_t* kind, const wchar_t* text, DWORD style, int id,
           const char* name, DWORD extended = 0) {
    HWND child = CreateWindowExW(extended, kind, text, WS_CHILD | WS_VISIBLE | style, 0, 0, 0, 0,
                                 chooser.window, reinterpret_cast<HMENU>(static_cast<INT_PTR>(id)),
                                 GetModuleHandleW(nullptr), nullptr);
    NameControl(child, name);
    SendMessageW(child, WM_SETFONT, reinterpret_cast<WPARAM>(chooser.font), FALSE);
    return child;
}

} // namespace

std::string frmSelBackup::Choose(HWND owner, int dpi) {
    RegisterWindowClass(kChooserClass, ChooserProc);
    Chooser chooser;
    chooser.font = MessageFont(dpi);
    RECT outer{0, 0, Scaled(460, dpi), Scaled(360, dpi)};
    const DWORD style = WS_POPUP | WS_CAPTION | WS_SYSMENU | WS_DLGFRAME;
    AdjustWindowRectEx(&outer, style, FALSE, WS_EX_DLGMODALFRAME | WS_EX_CONTROLPARENT);
    RECT ownerPlace{};
    GetWindowRect(owner, &ownerPlace);
    chooser.window =
        CreateWindowExW(WS_EX_DLGMODALFRAME | WS_EX_CONTROLPARENT, kChooserClass, L"Select Backup",
                        style, ownerPlace.left + Scaled(40, dpi), ownerPlace.top + Scaled(40, dpi),
                        outer.right - outer.left, outer.bottom - outer.top, owner, nullptr,
                        GetModuleHandleW(nullptr), &chooser);
    NameControl(chooser.window, "frmSelBackup");
    const int margin = Scaled(10, dpi);
    const int width = Scaled(460, dpi) - 2 * margin;
    HWND prompt = Child(chooser, L"STATIC", L"Choose the backup run to restore from:", SS_LEFT, -1,
                        "lblPrompt");
    MoveWindow(prompt, margin, margin, width, Scaled(20, dpi), FALSE);
    chooser.tree =
        Child(chooser, WC_TREEVIEWW, L"",
              WS_TABSTOP | TVS_HASBUTTONS | TVS_HASLINES | TVS_LINESATROOT | TVS_SHOWSELALWAYS, 100,
              "tvBackups", WS_EX_CLIENTEDGE);
    MoveWindow(chooser.tree, margin, margin + Scaled(24, dpi), width, Scaled(250, dpi), FALSE);
    chooser.ok = Child(chooser, L"BUTTON", L"OK", WS_TABSTOP | BS_DEFPUSHBUTTON | WS_DISABLED, IDOK,
                       "OKButton");
    HWND cancel =
        Child(chooser, L"BUTTON", L"Cancel", WS_TABSTOP | BS_PUSHBUTTON, IDCANCEL, "CancelButton");
    const int buttonTop = Scaled(360, dpi) - margin - Scaled(30, dpi);
    MoveWindow(chooser.ok, Scaled(460, dpi) - margin - Scaled(180, dpi) - Scaled(8, dpi), buttonTop,
               Scaled(90, dpi), Scaled(30, dpi), FALSE);
    MoveWindow(cancel, Scaled(460, dpi) - margin - Scaled(90, dpi), buttonTop, Scaled(90, dpi),
               Scaled(30, dpi), FALSE);

    // Every run under its source, newest first; each source open.
    for (const SourceRuns& source : ListBackupRuns()) {
        std::wstring text = Wide(source.source);
        TVINSERTSTRUCTW insert{};
        insert.hParent = TVI_ROOT;
        insert.hInsertAfter = TVI_LAST;
        insert.item.mask = TVIF_TEXT | TVIF_PARAM;
        insert.item.pszText = text.data();
        insert.item.lParam = 0;
        auto top = reinterpret_cast<HTREEITEM>(
            SendMessageW(chooser.tree, TVM_INSERTITEMW, 0, reinterpret_cast<LPARAM>(&insert)));
        for (const BackupRunEntry& run : source.runs) {
            chooser.bids.push_back(run.bid);
            std::wstring date = Wide(run.datebk);
            TVINSERTSTRUCTW child{};
            child.hParent = top;
            child.hInsertAfter = TVI_LAST;
            child.item.mask = TVIF_TEXT | TVIF_PARAM;
            child.item.pszText = date.data();
            child.item.lParam = static_cast<LPARAM>(chooser.bids.size());
            SendMessageW(chooser.tree, TVM_INSERTITEMW, 0, reinterpret_cast<LPARAM>(&child));
        }
        SendMessageW(chooser.tree, TVM_EXPAND, TVE_EXPAND, reinterpret_cast<LPARAM>(top));
    }

    // Modal: the owner waits, disabled, while the chooser runs its own loop.
    EnableWindow(owner, FALSE);
    ShowWindow(chooser.window, SW_SHOW);
    SetFocus(chooser.tree);
    MSG message;
    while (!chooser.done && GetMessageW(&message, nullptr, 0, 0) > 0) {
        if (IsDialogMessageW(chooser.window, &message)) continue;
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
    if (!chooser.done) PostQuitMessage(0); // the loop met WM_QUIT: the program is ending
    EnableWindow(owner, TRUE);
    SetWindowLongPtrW(chooser.window, GWLP_USERDATA, 0);
    DestroyWindow(chooser.window);
    SetActiveWindow(owner);
    DeleteObject(chooser.font);
    return chooser.chosen;
}
