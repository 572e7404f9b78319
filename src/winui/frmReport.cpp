#include "winui/frmReport.h"

#include "app/modReport.h"
#include "platform/modWin32Text.h"
#include "support/CProcTrap.h"
#include "winui/modWinControls.h"

#include <algorithm>

namespace {

constexpr const wchar_t* kReportClass = L"StashwellReport";
constexpr int kOkId = IDOK;

// Lines joined with CR LF, as an edit control shows them.
std::string Joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines)
        text += (text.empty() ? "" : "\r\n") + line;
    return text;
}

HWND Edit(HWND parent, const char* name, DWORD style) {
    HWND edit =
        CreateWindowExW(WS_EX_CLIENTEDGE, L"EDIT", L"",
                        WS_CHILD | WS_VISIBLE | WS_TABSTOP | ES_MULTILINE | ES_READONLY | style, 0,
                        0, 0, 0, parent, nullptr, GetModuleHandleW(nullptr), nullptr);
    NameControl(edit, name);
    return edit;
}

} // namespace

frmReport::frmReport(HWND owner, int dpi) : m_dpi(dpi) {
    RegisterWindowClass(kReportClass, WindowProc);
    m_window = CreateWindowExW(WS_EX_CONTROLPARENT, kReportClass, L"Backup report",
                               WS_OVERLAPPEDWINDOW, CW_USEDEFAULT, CW_USEDEFAULT, Scaled(720, dpi),
                               Scaled(480, dpi), owner, nullptr, GetModuleHandleW(nullptr), this);
    NameControl(m_window, "frmReport");
    m_summary = Edit(m_window, "txtSummary", ES_AUTOVSCROLL);
    m_report = Edit(m_window, "txtReport", WS_VSCROLL | WS_HSCROLL | ES_AUTOHSCROLL);
    m_ok =
        CreateWindowExW(0, L"BUTTON", L"OK", WS_CHILD | WS_VISIBLE | WS_TABSTOP | BS_DEFPUSHBUTTON,
                        0, 0, 0, 0, m_window, reinterpret_cast<HMENU>(static_cast<INT_PTR>(kOkId)),
                        GetModuleHandleW(nullptr), nullptr);
    NameControl(m_ok, "OKButton");
    m_font = MessageFont(dpi);
    LOGFONTW fixed{};
    fixed.lfHeight = -MulDiv(9, dpi, 72);
    fixed.lfPitchAndFamily = FIXED_PITCH | FF_MODERN;
    wcscpy(fixed.lfFaceName, L"Consolas");
    m_fixed = CreateFontIndirectW(&fixed);
    SendMessageW(m_summary, WM_SETFONT, reinterpret_cast<WPARAM>(m_font), FALSE);
    SendMessageW(m_ok, WM_SETFONT, reinterpret_cast<WPARAM>(m_font), FALSE);
    SendMessageW(m_report, WM_SETFONT, reinterpret_cast<WPARAM>(m_fixed), FALSE);
    Layout();
}

frmReport::~frmReport() {
    if (m_window) {
        SetWindowLongPtrW(m_window, GWLP_USERDATA, 0);
        DestroyWindow(m_window);
    }
    DeleteObject(m_font);
    DeleteObject(m_fixed);
}

void frmReport::Load(const std::string& logFile, const std::vector<std::string>& summary) {
    std::string text;
    CProcTrap trap("frmReport Form_Load");
    try {
        trap.Check();
        text = ::ReportText(logFile);
    } catch (...) {
        trap.Handle();
    }
    SetText(m_summary, Joined(summary));
    m_summaryLines = static_cast<int>(std::min<size_t>(summary.size(), 8));
    ShowWindow(m_summary, summary.empty() ? SW_HIDE : SW_SHOW);
    SetText(m_report, text);
    Layout();
    ScrollToEnd();
}

// The run just made is at the end: the box shows its last lines, once it has its size and is
// shown (a hidden box scrolls by a size it does not have yet).
void frmReport::ScrollToEnd() {
    const auto length = static_cast<WPARAM>(GetWindowTextLengthW(m_report));
    SendMessageW(m_report, EM_SETSEL, length, static_cast<LPARAM>(length));
    SendMessageW(m_report, EM_SCROLLCARET, 0, 0);
    SendMessageW(m_report, EM_LINESCROLL, 0, SendMessageW(m_report, EM_GETLINECOUNT, 0, 0));
}

void frmReport::Show() {
    ShowWindow(m_window, SW_SHOW);
    ScrollToEnd();
    SetForegroundWindow(m_window);
    SetFocus(m_ok); // Enter or Esc closes it
}

bool frmReport::Filter(MSG& message) {
    if (message.hwnd != m_window && !IsChild(m_window, message.hwnd)) return false;
    return IsDialogMessageW(m_window, &message) != 0;
}

bool frmReport::Visible() const {
    return IsWindowVisible(m_window) != 0;
}

std::string frmReport::SummaryText() const {
    return WindowText(m_summary);
}

std::string frmReport::ReportText() const {
    return WindowText(m_report);
}

void frmReport::Layout() {
    RECT client;
    GetClientRect(m_window, &client);
    const int margin = Scaled(8, m_dpi);
    const int button = Scaled(30, m_dpi);
    const int line = Scaled(16, m_dpi);
    int top = margin;
    if (IsWindowVisible(m_summary)) {
        const int height = line * m_summaryLines + Scaled(8, m_dpi);
        MoveWindow(m_summary, margin, top, client.right - 2 * margin, height, TRUE);
        top += height + margin;
    }
    MoveWindow(m_report, margin, top, client.right - 2 * margin,
               std::max(0L, client.bottom - top - button - 2 * margin), TRUE);
    MoveWindow(m_ok, client.right - margin - Scaled(90, m_dpi), client.bottom - margin - button,
               Scaled(90, m_dpi), button, TRUE);
}

LRESULT CALLBACK frmReport::WindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_NCCREATE)
        SetWindowLongPtrW(
            window, GWLP_USERDATA,
            reinterpret_cast<LONG_PTR>(reinterpret_cast<CREATESTRUCTW*>(lParam)->lpCreateParams));
    auto* self = reinterpret_cast<frmReport*>(GetWindowLongPtrW(window, GWLP_USERDATA));
    if (self) {
        switch (message) {
        case WM_SIZE:
            if (self->m_ok) self->Layout();
            return 0;
        case WM_COMMAND:
            if (LOWORD(wParam) == kOkId || LOWORD(wParam) == IDCANCEL) ShowWindow(window, SW_HIDE);
            return 0;
        case WM_CLOSE:
            ShowWindow(window, SW_HIDE);
            return 0;
        default:
            break;
        }
    }
    return DefWindowProcW(window, message, wParam, lParam);
}
