#include "winui/frmSelBackup.h"

#include "app/modBackupRuns.h"
#include "platform/modWin32Text.h"
#include "winui/CWinDialog.h"
#include "winui/modWinControls.h"

#include <commctrl.h>

#include <vector>

namespace {

class Chooser : public CWinDialog {
public:
    Chooser(HWND owner, int dpi)
        : CWinDialog(owner, dpi, L"StashwellSelBackup", L"Select Backup", "frmSelBackup", 460,
                     360) {
        const int margin = Scaled(10);
        const int width = Scaled(460) - 2 * margin;
        HWND prompt =
            Child(L"STATIC", L"Choose the backup run to restore from:", SS_LEFT, -1, "lblPrompt");
        MoveWindow(prompt, margin, margin, width, Scaled(20), FALSE);
        m_tree =
            Child(WC_TREEVIEWW, L"",
                  WS_TABSTOP | TVS_HASBUTTONS | TVS_HASLINES | TVS_LINESATROOT | TVS_SHOWSELALWAYS,
                  100, "tvBackups", WS_EX_CLIENTEDGE);
        MoveWindow(m_tree, margin, margin + Scaled(24), width, Scaled(250), FALSE);
        m_ok =
            Child(L"BUTTON", L"OK", WS_TABSTOP | BS_DEFPUSHBUTTON | WS_DISABLED, IDOK, "OKButton");
        HWND cancel =
            Child(L"BUTTON", L"Cancel", WS_TABSTOP | BS_PUSHBUTTON, IDCANCEL, "CancelButton");
        const int buttonTop = Scaled(360) - margin - Scaled(30);
        MoveWindow(m_ok, Scaled(460) - margin - Scaled(188), buttonTop, Scaled(90), Scaled(30),
                   FALSE);
        MoveWindow(cancel, Scaled(460) - margin - Scaled(90), buttonTop, Scaled(90), Scaled(30),
                   FALSE);
        ListRuns();
    }

    std::string Choose() {
        RunModal(m_tree);
        return m_chosen;
    }

private:
    // Every run under its source, newest first; each source open.
    void ListRuns() {
        for (const SourceRuns& source : ListBackupRuns()) {
            HTREEITEM top = Insert(TVI_ROOT, source.source, 0);
            for (const BackupRunEntry& run : source.runs) {
                m_bids.push_back(run.bid);
                Insert(top, run.datebk, static_cast<LPARAM>(m_bids.size()));
            }
            SendMessageW(m_tree, TVM_EXPAND, TVE_EXPAND, reinterpret_cast<LPARAM>(top));
        }
    }
    HTREEITEM Insert(HTREEITEM parent, const std::string& text, LPARAM bid) {
        std::wstring wide = Wide(text);
        TVINSERTSTRUCTW insert{};
        insert.hParent = parent;
        insert.hInsertAfter = TVI_LAST;
        insert.item.mask = TVIF_TEXT | TVIF_PARAM;
        insert.item.pszText = wide.data();
        insert.item.lParam = bid;
        return reinterpret_cast<HTREEITEM>(
            SendMessageW(m_tree, TVM_INSERTITEMW, 0, reinterpret_cast<LPARAM>(&insert)));
    }

    std::string SelectedBid() const {
        auto item =
            reinterpret_cast<HTREEITEM>(SendMessageW(m_tree, TVM_GETNEXTITEM, TVGN_CARET, 0));
        if (!item) return {};
        TVITEMW data{};
        data.mask = TVIF_PARAM | TVIF_HANDLE;
        data.hItem = item;
        SendMessageW(m_tree, TVM_GETITEMW, 0, reinterpret_cast<LPARAM>(&data));
        return data.lParam > 0 ? m_bids[static_cast<size_t>(data.lParam - 1)] : std::string();
    }

    void ChooseSelected() {
        m_chosen = SelectedBid();
        if (!m_chosen.empty()) Finish();
    }

    LRESULT Message(UINT message, WPARAM wParam, LPARAM lParam) override {
        if (message == WM_COMMAND && LOWORD(wParam) == IDOK) {
            ChooseSelected();
            return 0;
        }
        if (message == WM_NOTIFY) {
            const auto& header = *reinterpret_cast<const NMHDR*>(lParam);
            if (header.hwndFrom == m_tree && header.code == TVN_SELCHANGEDW)
                EnableWindow(m_ok, SelectedBid().empty() ? FALSE : TRUE);
            if (header.hwndFrom == m_tree && header.code == NM_DBLCLK) ChooseSelected();
            return 0;
        }
        return CWinDialog::Message(message, wParam, lParam);
    }

    HWND m_tree = nullptr;
    HWND m_ok = nullptr;
    std::vector<std::string> m_bids; // by item lParam - 1; 0 for a source
    std::string m_chosen;
};

} // namespace

std::string frmSelBackup::Choose(HWND owner, int dpi) {
    Chooser chooser(owner, dpi);
    return chooser.Choose();
}
