#include "winui/frmVersions.h"

#include "app/modFileVersions.h"
#include "app/modRunHistory.h"
#include "platform/modWin32Text.h"
#include "support/CByteProgress.h"
#include "winui/CWinDialog.h"
#include "winui/modWinControls.h"

#include <commctrl.h>

#include <optional>
#include <vector>

namespace {

enum VersionColumn { kRun, kSource, kFile, kSize, kSignature };
enum Command { kFindCommand = 101, kRestoreCommand, kRestoreToCommand };

// What a row of lvwVersions shows: a version, or one of the runs that hold it.
struct RowOf {
    size_t version = 0;
    std::optional<size_t> run;
};

class Versions : public CWinDialog {
public:
    Versions(HWND owner, int dpi, const std::string& search, bool verify)
        : CWinDialog(owner, dpi, L"StashwellVersions", L"Find in all runs", "frmVersions", 1000,
                     480),
          m_verify(verify) {
        const int margin = Scaled(10);
        const int width = Scaled(1000) - 2 * margin;
        const int row = Scaled(26);
        HWND label =
            Child(L"STATIC", L"&Find files named:", SS_LEFT | SS_CENTERIMAGE, -1, "lblFind");
        MoveWindow(label, margin, margin, Scaled(130), row, FALSE);
        m_find = Child(WC_EDITW, Wide(search), WS_TABSTOP | ES_AUTOHSCROLL, 100, "txtFind",
                       WS_EX_CLIENTEDGE);
        SendMessageW(m_find, EM_SETCUEBANNER, TRUE,
                     reinterpret_cast<LPARAM>(L"a part of the name, or a pattern such as *.doc"));
        MoveWindow(m_find, margin + Scaled(136), margin, width - Scaled(136) - Scaled(100), row,
                   FALSE);
        m_findButton =
            Child(L"BUTTON", L"Find", WS_TABSTOP | BS_DEFPUSHBUTTON, kFindCommand, "cmdFind");
        MoveWindow(m_findButton, Scaled(1000) - margin - Scaled(90), margin, Scaled(90), row,
                   FALSE);

        m_list =
            Child(WC_LISTVIEWW, L"", WS_TABSTOP | LVS_REPORT | LVS_SINGLESEL | LVS_SHOWSELALWAYS,
                  102, "lvwVersions", WS_EX_CLIENTEDGE);
        const int listTop = margin + row + Scaled(8);
        const int statusTop = Scaled(480) - margin - Scaled(30) - 2 * Scaled(22) - Scaled(6);
        MoveWindow(m_list, margin, listTop, width, statusTop - listTop - Scaled(6), FALSE);
        MakeReportColumns(m_list, {L"Run", L"Source", L"File", L"Size", L"Signature"}, {kSize});
        m_found = Child(L"STATIC", L"", SS_LEFT | SS_NOPREFIX, -1, "lblVersions");
        MoveWindow(m_found, margin, statusTop, width, Scaled(22), FALSE);
        m_restored = Child(L"STATIC", L"", SS_LEFT | SS_NOPREFIX, -1, "lblRestoreVersion");
        MoveWindow(m_restored, margin, statusTop + Scaled(22), width, Scaled(22), FALSE);

        const int buttonTop = Scaled(480) - margin - Scaled(30);
        m_restore = Child(L"BUTTON", L"R&estore", WS_TABSTOP | BS_PUSHBUTTON, kRestoreCommand,
                          "cmdRestoreVersion");
        MoveWindow(m_restore, margin, buttonTop, Scaled(110), Scaled(30), FALSE);
        m_restoreTo = Child(L"BUTTON", L"Restore &to ...", WS_TABSTOP | BS_PUSHBUTTON,
                            kRestoreToCommand, "cmdRestoreVersionTo");
        MoveWindow(m_restoreTo, margin + Scaled(118), buttonTop, Scaled(130), Scaled(30), FALSE);
        HWND close = Child(L"BUTTON", L"Close", WS_TABSTOP | BS_PUSHBUTTON, IDCANCEL, "cmdClose");
        MoveWindow(close, Scaled(1000) - margin - Scaled(90), buttonTop, Scaled(90), Scaled(30),
                   FALSE);
        EnableButtons();
    }

    void Run() {
        // A name given is looked for once the dialog shows, so that nothing else takes a click
        // while the runs are read.
        if (GetWindowTextLengthW(m_find) > 0) PostMessageW(m_window, WM_APP, 0, 0);
        RunModal(m_find);
    }

private:
    void Find() {
        const std::string search = WindowText(m_find);
        if (m_busy || search.empty()) return;
        CCatalogueRows catalogue;
        VersionsFound found;
        m_busy = true;
        EnableButtons();
        SetText(m_restored, "");
        SetText(m_found, "Looking in every run ...");
        const bool read = FindFileVersions(catalogue.Query(), search, found);
        m_busy = false;
        m_versions = std::move(found);
        ShowVersions();
        if (!read) SetText(m_found, "The catalogue could not be read: " + catalogue.Problem());
        EnableButtons();
    }

    void ShowVersions() {
        SendMessageW(m_list, LVM_DELETEALLITEMS, 0, 0);
        m_rows.clear();
        for (size_t v = 0; v < m_versions.versions.size(); ++v) {
            const FileVersion& version = m_versions.versions[v];
            const int top = AddRow({v, std::nullopt}, VersionRunsText(version), 0);
            SetCell(top, kFile, version.path);
            SetCell(top, kSize, ByteSizeText(version.size));
            SetCell(top, kSignature, version.md5);
            for (size_t r = 0; r < version.runs.size(); ++r) {
                const int run = AddRow({v, r}, version.runs[r].datebk, 1);
                SetCell(run, kSource, version.runs[r].source);
            }
        }
        FitListColumns(m_list);
        SetText(m_found, VersionsSummary(m_versions));
    }

    int AddRow(RowOf of, const std::string& text, int indent) {
        std::wstring wide = Wide(text);
        LVITEMW item{};
        item.mask = LVIF_TEXT | LVIF_INDENT | LVIF_PARAM;
        item.iItem = static_cast<int>(m_rows.size());
        item.iIndent = indent;
        item.pszText = wide.data();
        item.lParam = static_cast<LPARAM>(m_rows.size());
        m_rows.push_back(of);
        return static_cast<int>(
            SendMessageW(m_list, LVM_INSERTITEMW, 0, reinterpret_cast<LPARAM>(&item)));
    }
    void SetCell(int row, int column, const std::string& text) {
        SetListCell(m_list, row, column, text);
    }

    // The run of the row chosen, or nullptr when no run's row is.
    const VersionRun* ChosenRun() const {
        const auto row =
            SendMessageW(m_list, LVM_GETNEXTITEM, static_cast<WPARAM>(-1), LVNI_SELECTED);
        if (row < 0 || static_cast<size_t>(row) >= m_rows.size()) return nullptr;
        const RowOf& of = m_rows[static_cast<size_t>(row)];
        if (!of.run || of.version >= m_versions.versions.size() ||
            *of.run >= m_versions.versions[of.version].runs.size())
            return nullptr;
        return &m_versions.versions[of.version].runs[*of.run];
    }

    void Restore(bool elsewhere) {
        const VersionRun* chosen = ChosenRun();
        if (m_busy || !chosen) return;
        const VersionRun run = *chosen;
        m_busy = true;
        EnableButtons();
        SetText(m_restored, "");
        const std::optional<RestoreOutcome> outcome = elsewhere
                                                          ? cmdRestoreVersionTo_Click(run, m_verify)
                                                          : cmdRestoreVersion_Click(run, m_verify);
        m_busy = false;
        if (outcome) SetText(m_restored, VersionRestoreText(*outcome));
        EnableButtons();
    }

    void EnableButtons() {
        EnableWindow(m_findButton, !m_busy && GetWindowTextLengthW(m_find) > 0);
        const BOOL chosen = !m_busy && ChosenRun() != nullptr;
        EnableWindow(m_restore, chosen);
        EnableWindow(m_restoreTo, chosen);
    }

    LRESULT Message(UINT message, WPARAM wParam, LPARAM lParam) override {
        switch (message) {
        case WM_APP:
            Find();
            return 0;
        case WM_COMMAND:
            if (LOWORD(wParam) == IDOK || LOWORD(wParam) == kFindCommand) {
                Find(); // Enter in txtFind finds
                return 0;
            }
            if (LOWORD(wParam) == kRestoreCommand || LOWORD(wParam) == kRestoreToCommand) {
                Restore(LOWORD(wParam) == kRestoreToCommand);
                return 0;
            }
            if (reinterpret_cast<HWND>(lParam) == m_find && HIWORD(wParam) == EN_CHANGE) {
                EnableButtons();
                return 0;
            }
            break;
        case WM_NOTIFY: {
            const auto& header = *reinterpret_cast<const NMHDR*>(lParam);
            if (header.hwndFrom == m_list && header.code == LVN_ITEMCHANGED) EnableButtons();
            return 0;
        }
        default:
            break;
        }
        return CWinDialog::Message(message, wParam, lParam);
    }

    bool m_verify;
    bool m_busy = false; // a find or a restore is going (the window's messages run meanwhile)
    VersionsFound m_versions;
    std::vector<RowOf> m_rows; // by the list's row
    HWND m_find = nullptr;
    HWND m_findButton = nullptr;
    HWND m_list = nullptr;
    HWND m_found = nullptr;
    HWND m_restored = nullptr;
    HWND m_restore = nullptr;
    HWND m_restoreTo = nullptr;
};

} // namespace

void frmVersions::Show(HWND owner, int dpi, const std::string& search, bool verify) {
    Versions dialog(owner, dpi, search, verify);
    dialog.Run();
}
