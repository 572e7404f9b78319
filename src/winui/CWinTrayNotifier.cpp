#include "winui/CWinTrayNotifier.h"

#include "platform/modWin32Text.h"
#include "winui/modWinControls.h"

#include <shellapi.h>

#include <algorithm>
#include <cwchar>

namespace {

constexpr const wchar_t* kNoticeWindowClass = L"StashwellNotice";
constexpr UINT kIconId = 1;

LRESULT CALLBACK NoticeWindowProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    return DefWindowProcW(window, message, wParam, lParam);
}

template <size_t N> void CopyInto(wchar_t (&field)[N], const std::wstring& text) {
    const size_t length = std::min(text.size(), N - 1);
    std::wmemcpy(field, text.data(), length);
    field[length] = L'\0';
}

} // namespace

CWinTrayNotifier::~CWinTrayNotifier() {
    if (m_window) DestroyWindow(m_window);
}

std::wstring CWinTrayNotifier::Fitted(const std::wstring& text, size_t length) {
    if (text.size() <= length) return text;
    size_t cut = length - 3;
    // Never half of a surrogate pair.
    if (cut > 0 && text[cut - 1] >= 0xD800 && text[cut - 1] <= 0xDBFF) --cut;
    return text.substr(0, cut) + L"...";
}

std::string CWinTrayNotifier::Send(const std::string& title, const std::string& body) {
    if (!m_window) {
        RegisterWindowClass(kNoticeWindowClass, NoticeWindowProcedure);
        // A hidden top-level window: the shell answers the icon's owner through it.
        m_window = CreateWindowExW(0, kNoticeWindowClass, L"Stashwell", WS_POPUP, 0, 0, 0, 0,
                                   nullptr, nullptr, GetModuleHandleW(nullptr), nullptr);
        if (!m_window) return "no window for the notice could be made";
    }
    NOTIFYICONDATAW icon{};
    icon.cbSize = sizeof icon;
    icon.hWnd = m_window;
    icon.uID = kIconId;
    icon.uFlags = NIF_ICON | NIF_TIP | NIF_INFO;
    icon.hIcon = LoadIconW(nullptr, IDI_WARNING);
    CopyInto(icon.szTip, L"Stashwell");
    CopyInto(icon.szInfoTitle, Fitted(Wide(title), kTitleLength));
    CopyInto(icon.szInfo, Fitted(Wide(body), kBodyLength));
    icon.dwInfoFlags = NIIF_WARNING;
    // A second notice of the same process changes the icon that the first one added.
    if (!Shell_NotifyIconW(NIM_ADD, &icon) && !Shell_NotifyIconW(NIM_MODIFY, &icon))
        return "the notification area did not take the notice";
    return "";
}
