#pragma once

// The report shown after a run, on Windows: what the run did in a few lines (txtSummary, shown
// only when there are any), the day's log below it (txtReport, read-only, in a fixed-width font,
// scrolled to its end where the run just made stands), and OK. Modeless, owned by the main
// window; closing it hides it, and the next run's report fills it again.

#include "platform/modWin32.h"

#include <string>
#include <vector>

class frmReport {
public:
    frmReport(HWND owner, int dpi);
    ~frmReport();
    frmReport(const frmReport&) = delete;
    frmReport& operator=(const frmReport&) = delete;

    // Reads `logFile` (a file that cannot be read is reported by the error handler, and the
    // report stays empty) and shows `summary` above it.
    void Load(const std::string& logFile, const std::vector<std::string>& summary);
    void Show();
    // Keyboard navigation for a message of this window (Enter and Esc close it); true when
    // taken.
    bool Filter(MSG& message);
    HWND Handle() const { return m_window; }
    bool Visible() const;
    std::string SummaryText() const;
    std::string ReportText() const;

private:
    static LRESULT CALLBACK WindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
    void Layout();
    void ScrollToEnd();

    HWND m_window = nullptr;
    HWND m_summary = nullptr;
    HWND m_report = nullptr;
    HWND m_ok = nullptr;
    HFONT m_font = nullptr;
    HFONT m_fixed = nullptr;
    int m_dpi = 96;
    int m_summaryLines = 0;
};
