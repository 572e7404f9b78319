#include "winui/frmRunDiff.h"

#include "app/modRunHistory.h"
#include "platform/modWin32Text.h"
#include "support/CByteProgress.h"
#include "winui/CWinDialog.h"
#include "winui/modWinControls.h"

#include <commctrl.h>

namespace {

enum DiffColumn { kDiffChange, kDiffFile, kDiffBefore, kDiffAfter };

class RunDiff : public CWinDialog {
public:
    RunDiff(HWND owner, int dpi, const std::string& bid)
        : CWinDialog(owner, dpi, L"StashwellRunDiff", L"Compare with previous run", "frmRunDiff",
                     720, 420),
          m_bid(bid) {
        const int margin = Scaled(10);
        const int width = Scaled(720) - 2 * margin;
        m_caption = Child(L"STATIC", L"Comparing with the previous run ...",
                          SS_LEFT | SS_NOPREFIX | SS_ENDELLIPSIS, -1, "lblCompare");
        MoveWindow(m_caption, margin, margin, width, Scaled(20), FALSE);
        m_changes =
            Child(WC_LISTVIEWW, L"", WS_TABSTOP | LVS_REPORT | LVS_SINGLESEL | LVS_SHOWSELALWAYS,
                  100, "lvwChanges", WS_EX_CLIENTEDGE);
        MoveWindow(m_changes, margin, margin + Scaled(26), width, Scaled(320), FALSE);
        MakeReportColumns(m_changes, {L"Change", L"File", L"Size before", L"Size after"},
                          {kDiffBefore, kDiffAfter});
        const int bottom = Scaled(420) - margin - Scaled(30);
        m_totals = Child(L"STATIC", L"", SS_LEFT | SS_NOPREFIX | SS_CENTERIMAGE, -1, "lblChanges");
        MoveWindow(m_totals, margin, bottom, width - Scaled(100), Scaled(30), FALSE);
        m_close = Child(L"BUTTON", L"Close", WS_TABSTOP | BS_DEFPUSHBUTTON, IDCANCEL, "cmdClose");
        MoveWindow(m_close, Scaled(720) - margin - Scaled(90), bottom, Scaled(90), Scaled(30),
                   FALSE);
    }

    void Run() {
        // The runs are read once the dialog shows, so that nothing else takes a click meanwhile.
        PostMessageW(m_window, WM_APP, 0, 0);
        RunModal(m_close);
    }

private:
    void Add(const RunChange& change) {
        const int row = static_cast<int>(SendMessageW(m_changes, LVM_GETITEMCOUNT, 0, 0));
        std::wstring word = Wide(ChangeWord(change.kind));
        LVITEMW item{};
        item.mask = LVIF_TEXT;
        item.iItem = row;
        item.pszText = word.data();
        SendMessageW(m_changes, LVM_INSERTITEMW, 0, reinterpret_cast<LPARAM>(&item));
        SetCell(row, kDiffFile, change.path);
        if (change.kind != RunChange::Kind::kAdded)
            SetCell(row, kDiffBefore, ByteSizeText(change.before));
        if (change.kind != RunChange::Kind::kRemoved)
            SetCell(row, kDiffAfter, ByteSizeText(change.after));
    }
    void SetCell(int row, int column, const std::string& text) {
        SetListCell(m_changes, row, column, text);
    }

    void Compare() {
        CCatalogueRows catalogue;
        RunComparison comparison;
        const bool read = CompareWithPreviousRun(catalogue.Query(), m_bid, comparison,
                                                 [this](const RunChange& change) { Add(change); });
        FitListColumns(m_changes);
        if (!read) {
            SetText(m_caption, catalogue.Problem().empty()
                                   ? "The catalogue holds no run " + m_bid + "."
                                   : "The catalogue could not be read: " + catalogue.Problem());
            SetText(m_totals, "");
            return;
        }
        SetText(m_caption, ComparisonCaption(comparison));
        SetText(m_totals, ChangeTotals(comparison));
    }

    LRESULT Message(UINT message, WPARAM wParam, LPARAM lParam) override {
        if (message == WM_APP) {
            Compare();
            return 0;
        }
        return CWinDialog::Message(message, wParam, lParam);
    }

    std::string m_bid;
    HWND m_caption = nullptr;
    HWND m_changes = nullptr;
    HWND m_totals = nullptr;
    HWND m_close = nullptr;
};

} // namespace

void frmRunDiff::Show(HWND owner, int dpi, const std::string& bid) {
    RunDiff dialog(owner, dpi, bid);
    dialog.Run();
}
