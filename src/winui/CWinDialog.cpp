#include "winui/CWinDialog.h"

#include "winui/modWinControls.h"

CWinDialog::CWinDialog(HWND owner, int dpi, const wchar_t* windowClass, const std::wstring& title,
                       const char* name, int width, int height)
    : m_owner(owner), m_dpi(dpi) {
    RegisterWindowClass(windowClass, Procedure);
    m_font = MessageFont(dpi);
    RECT outer{0, 0, Scaled(width), Scaled(height)};
    const DWORD style = WS_POPUP | WS_CAPTION | WS_SYSMENU | WS_DLGFRAME;
    const DWORD extended = WS_EX_DLGMODALFRAME | WS_EX_CONTROLPARENT;
    AdjustWindowRectEx(&outer, style, FALSE, extended);
    RECT ownerPlace{};
    GetWindowRect(owner, &ownerPlace);
    m_window =
        CreateWindowExW(extended, windowClass, title.c_str(), style, ownerPlace.left + Scaled(40),
                        ownerPlace.top + Scaled(40), outer.right - outer.left,
                        outer.bottom - outer.top, owner, nullptr, GetModuleHandleW(nullptr), this);
    NameControl(m_window, name);
}

CWinDialog::~CWinDialog() {
    if (m_window) {
        SetWindowLongPtrW(m_window, GWLP_USERDATA, 0);
        DestroyWindow(m_window);
    }
    if (m_owner) SetActiveWindow(m_owner);
    if (m_font) DeleteObject(m_font);
}

int CWinDialog::Scaled(int dips) const {
    return ::Scaled(dips, m_dpi);
}

HWND CWinDialog::Child(const wchar_t* kind, const std::wstring& text, DWORD style, int id,
                       const char* name, DWORD extended) {
    HWND child = CreateWindowExW(extended, kind, text.c_str(), WS_CHILD | WS_VISIBLE | style, 0, 0,
                                 0, 0, m_window, reinterpret_cast<HMENU>(static_cast<INT_PTR>(id)),
                                 GetModuleHandleW(nullptr), nullptr);
    NameControl(child, name);
    SendMessageW(child, WM_SETFONT, reinterpret_cast<WPARAM>(m_font), FALSE);
    if (std::wstring(kind) == L"BUTTON" && (style & BS_TYPEMASK) == BS_DEFPUSHBUTTON)
        m_defaultId = id;
    return child;
}

void CWinDialog::RunModal(HWND focus) {
    // Modal: the owner waits, disabled, while the dialog runs its own loop.
    EnableWindow(m_owner, FALSE);
    ShowWindow(m_window, SW_SHOW);
    if (focus) SetFocus(focus);
    MSG message;
    while (!m_done && GetMessageW(&message, nullptr, 0, 0) > 0) {
        const bool inside = message.hwnd == m_window || IsChild(m_window, message.hwnd);
        if (inside && message.message == WM_KEYDOWN && message.wParam == VK_ESCAPE) {
            SendMessageW(m_window, WM_COMMAND, IDCANCEL, 0);
            continue;
        }
        if (IsDialogMessageW(m_window, &message)) continue;
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
    if (!m_done) PostQuitMessage(0); // the loop met WM_QUIT: the program is ending
    EnableWindow(m_owner, TRUE);
    ShowWindow(m_window, SW_HIDE);
}

LRESULT CWinDialog::Message(UINT message, WPARAM wParam, LPARAM lParam) {
    // Enter, where the focus is not on a button, presses the default button.
    if (message == DM_GETDEFID && m_defaultId != 0) return MAKELONG(m_defaultId, DC_HASDEFID);
    if (message == WM_CLOSE || (message == WM_COMMAND && LOWORD(wParam) == IDCANCEL)) {
        Finish();
        return 0;
    }
    return DefWindowProcW(m_window, message, wParam, lParam);
}

LRESULT CALLBACK CWinDialog::Procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_NCCREATE) {
        auto* self =
            reinterpret_cast<CWinDialog*>(reinterpret_cast<CREATESTRUCTW*>(lParam)->lpCreateParams);
        self->m_window = window;
        SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(self));
    }
    auto* self = reinterpret_cast<CWinDialog*>(GetWindowLongPtrW(window, GWLP_USERDATA));
    return self ? self->Message(message, wParam, lParam)
                : DefWindowProcW(window, message, wParam, lParam);
}
