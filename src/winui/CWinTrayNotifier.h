#pragma once

// Telling the user on Windows that an unattended run went wrong: an icon in the notification
// area with a balloon, which Windows 10 and 11 show as a toast and keep in the action centre.
// The icon belongs to a hidden window of this process; it is not taken away when the notice has
// been given, so that the notice stays readable after the run's process has ended (the shell
// drops the icon of a window that is gone).

#include "app/modNotify.h"
#include "platform/modWin32.h"

#include <string>

class CWinTrayNotifier : public INotifier {
public:
    CWinTrayNotifier() = default;
    ~CWinTrayNotifier() override;
    CWinTrayNotifier(const CWinTrayNotifier&) = delete;
    CWinTrayNotifier& operator=(const CWinTrayNotifier&) = delete;

    // "" when the notification area took the notice, else why not.
    std::string Send(const std::string& title, const std::string& body) override;

    // The longest title and body the notification area shows, in UTF-16 units; longer ones are
    // cut at a whole character and end with "...".
    static constexpr size_t kTitleLength = 63;
    static constexpr size_t kBodyLength = 255;
    static std::wstring Fitted(const std::wstring& text, size_t length);

private:
    HWND m_window = nullptr;
};
