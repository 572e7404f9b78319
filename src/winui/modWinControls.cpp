#include "winui/modWinControls.h"

#include "platform/modWin32Text.h"
#include "winui/CWinProgressBar.h"

#include <commctrl.h>

#include <algorithm>
#include <cctype>

namespace {

struct ClassAndStyle {
    const wchar_t* windowClass;
    DWORD style;
    DWORD extended;
};

ClassAndStyle ClassOf(const ControlDesign& design) {
    const bool right = design.flags & design::kRightAligned;
    switch (design.kind) {
    case ControlKind::kLabel:
        return {L"STATIC", SS_LEFT | SS_NOPREFIX, 0};
    case ControlKind::kStatusText:
        return {L"STATIC", DWORD(right ? SS_RIGHT : SS_LEFT) | SS_NOPREFIX | SS_ENDELLIPSIS, 0};
    case ControlKind::kFrame:
        return {L"BUTTON", BS_GROUPBOX, 0};
    case ControlKind::kButton:
        return {L"BUTTON",
                DWORD((design.flags & design::kDefault) ? BS_DEFPUSHBUTTON : BS_PUSHBUTTON) |
                    WS_TABSTOP,
                0};
    case ControlKind::kCheckBox:
        return {L"BUTTON", BS_AUTOCHECKBOX | WS_TABSTOP, 0};
    case ControlKind::kOptionButton:
        // The first of a frame's option buttons starts their group; the Tab key reaches it.
        return {L"BUTTON",
                BS_AUTORADIOBUTTON |
                    DWORD((design.flags & design::kChecked) ? WS_GROUP | WS_TABSTOP : 0),
                0};
    case ControlKind::kTextBox:
        return {L"EDIT",
                ES_AUTOHSCROLL | WS_TABSTOP |
                    DWORD((design.flags & design::kReadOnly) ? ES_READONLY : 0),
                WS_EX_CLIENTEDGE};
    case ControlKind::kListBox:
        return {L"LISTBOX", LBS_NOTIFY | LBS_NOINTEGRALHEIGHT | WS_VSCROLL | WS_TABSTOP,
                WS_EX_CLIENTEDGE};
    case ControlKind::kTreeView:
        return {WC_TREEVIEWW,
                TVS_HASBUTTONS | TVS_HASLINES | TVS_LINESATROOT | TVS_SHOWSELALWAYS | WS_TABSTOP,
                WS_EX_CLIENTEDGE};
    case ControlKind::kProgressBar:
        return {kProgressBarClass, 0, 0};
    case ControlKind::kSpinBox:
        return {L"EDIT", ES_NUMBER | ES_AUTOHSCROLL | WS_TABSTOP, WS_EX_CLIENTEDGE};
    }
    return {L"STATIC", 0, 0};
}

} // namespace

HWND MakeControl(HWND page, const ControlDesign& design, RECT place, int id) {
    const ClassAndStyle kind = ClassOf(design);
    const std::wstring caption = design.kind == ControlKind::kButton ||
                                         design.kind == ControlKind::kCheckBox ||
                                         design.kind == ControlKind::kOptionButton
                                     ? CaptionWithKey(design.caption, design.accessKey)
                                     : Wide(design.caption);
    DWORD style = WS_CHILD | WS_VISIBLE | kind.style;
    if (design.flags & design::kStartsDisabled) style |= WS_DISABLED;
    HWND control = CreateWindowExW(
        kind.extended, kind.windowClass, caption.c_str(), style, place.left, place.top,
        place.right - place.left, place.bottom - place.top, page,
        reinterpret_cast<HMENU>(static_cast<INT_PTR>(id)), GetModuleHandleW(nullptr), nullptr);
    if (!control) return nullptr;
    NameControl(control, design.name);
    switch (design.kind) {
    case ControlKind::kOptionButton:
        if (design.flags & design::kChecked) SendMessageW(control, BM_SETCHECK, BST_CHECKED, 0);
        break;
    case ControlKind::kTreeView:
        // The tree view takes its check boxes only once it exists.
        SetWindowLongPtrW(control, GWL_STYLE,
                          GetWindowLongPtrW(control, GWL_STYLE) | TVS_CHECKBOXES);
        break;
    case ControlKind::kTextBox:
        if (*design.hint)
            SendMessageW(control, EM_SETCUEBANNER, TRUE,
                         reinterpret_cast<LPARAM>(Wide(design.hint).c_str()));
        break;
    case ControlKind::kSpinBox: {
        HWND arrows = CreateWindowExW(
            0, UPDOWN_CLASSW, L"",
            WS_CHILD | WS_VISIBLE | UDS_SETBUDDYINT | UDS_ARROWKEYS | UDS_NOTHOUSANDS, 0, 0, 0, 0,
            page, reinterpret_cast<HMENU>(static_cast<INT_PTR>(id + 1)), GetModuleHandleW(nullptr),
            nullptr);
        SendMessageW(arrows, UDM_SETBUDDY, reinterpret_cast<WPARAM>(control), 0);
        SendMessageW(arrows, UDM_SETRANGE32, static_cast<WPARAM>(design.low),
                     static_cast<LPARAM>(design.high));
        SendMessageW(arrows, UDM_SETPOS32, 0, static_cast<LPARAM>(design.value));
        break;
    }
    default:
        break;
    }
    return control;
}

void NameControl(HWND window, const char* name) {
    SetPropW(window, kControlNameProperty, reinterpret_cast<HANDLE>(const_cast<char*>(name)));
}

std::string ControlName(HWND window) {
    const auto* name = static_cast<const char*>(GetPropW(window, kControlNameProperty));
    return name ? name : "";
}

HWND FindControl(HWND top, const std::string& name) {
    struct Search {
        const std::string& name;
        HWND found = nullptr;
    } search{name};
    // EnumChildWindows visits every descendant, not only the children.
    EnumChildWindows(
        top,
        [](HWND window, LPARAM data) -> BOOL {
            auto* search = reinterpret_cast<Search*>(data);
            if (ControlName(window) != search->name) return TRUE;
            search->found = window;
            return FALSE;
        },
        reinterpret_cast<LPARAM>(&search));
    return search.found;
}

std::wstring CaptionWithKey(const std::string& caption, char key) {
    std::string marked = caption;
    if (key) {
        for (size_t i = 0; i < marked.size(); ++i)
            if (std::toupper(static_cast<unsigned char>(marked[i])) ==
                std::toupper(static_cast<unsigned char>(key))) {
                marked.insert(i, 1, '&');
                break;
            }
    }
    return Wide(marked);
}

std::string WindowText(HWND window) {
    std::wstring text(static_cast<size_t>(GetWindowTextLengthW(window)) + 1, L'\0');
    text.resize(
        static_cast<size_t>(GetWindowTextW(window, text.data(), static_cast<int>(text.size()))));
    return Narrow(text);
}

void SetText(HWND window, const std::string& text) {
    SetWindowTextW(window, Wide(text).c_str());
}

void RegisterWindowClass(const wchar_t* name, WNDPROC procedure, int extraBytes) {
    WNDCLASSEXW kind{};
    kind.cbSize = sizeof kind;
    if (GetClassInfoExW(GetModuleHandleW(nullptr), name, &kind)) return;
    kind.lpfnWndProc = procedure;
    kind.cbWndExtra = extraBytes;
    kind.hInstance = GetModuleHandleW(nullptr);
    kind.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    kind.hbrBackground = GetSysColorBrush(COLOR_BTNFACE);
    kind.hIcon = LoadIconW(nullptr, IDI_APPLICATION);
    kind.lpszClassName = name;
    RegisterClassExW(&kind);
}

HFONT MessageFont(int dpi, bool bold) {
    NONCLIENTMETRICSW metrics{};
    metrics.cbSize = sizeof metrics;
    SystemParametersInfoW(SPI_GETNONCLIENTMETRICS, sizeof metrics, &metrics, 0);
    LOGFONTW font = metrics.lfMessageFont;
    font.lfHeight = -MulDiv(9, dpi, 72);
    if (bold) font.lfWeight = FW_BOLD;
    return CreateFontIndirectW(&font);
}

int Scaled(int pixels, int dpi) {
    return MulDiv(pixels, dpi, 96);
}

RECT ScaledRect(const DesignRect& rect, int dpi) {
    return {Scaled(rect.x, dpi), Scaled(rect.y, dpi), Scaled(rect.x + rect.width, dpi),
            Scaled(rect.y + rect.height, dpi)};
}

void MakeReportColumns(HWND list, const std::vector<const wchar_t*>& headers,
                       const std::vector<int>& right) {
    SendMessageW(list, LVM_SETEXTENDEDLISTVIEWSTYLE, LVS_EX_FULLROWSELECT, LVS_EX_FULLROWSELECT);
    for (size_t column = 0; column < headers.size(); ++column) {
        LVCOLUMNW data{};
        data.mask = LVCF_TEXT | LVCF_FMT;
        const bool toTheRight =
            std::find(right.begin(), right.end(), static_cast<int>(column)) != right.end();
        data.fmt = toTheRight ? LVCFMT_RIGHT : LVCFMT_LEFT;
        data.pszText = const_cast<wchar_t*>(headers[column]);
        SendMessageW(list, LVM_INSERTCOLUMNW, column, reinterpret_cast<LPARAM>(&data));
    }
}

void SetListCell(HWND list, int row, int column, const std::string& text) {
    std::wstring wide = Wide(text);
    LVITEMW item{};
    item.iSubItem = column;
    item.pszText = wide.data();
    SendMessageW(list, LVM_SETITEMTEXTW, static_cast<WPARAM>(row), reinterpret_cast<LPARAM>(&item));
}

void FitListColumns(HWND list) {
    HWND header = reinterpret_cast<HWND>(SendMessageW(list, LVM_GETHEADER, 0, 0));
    const auto columns = static_cast<int>(SendMessageW(header, HDM_GETITEMCOUNT, 0, 0));
    for (int column = 0; column < columns; ++column)
        SendMessageW(list, LVM_SETCOLUMNWIDTH, static_cast<WPARAM>(column),
                     LVSCW_AUTOSIZE_USEHEADER);
}
