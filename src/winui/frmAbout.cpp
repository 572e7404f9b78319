#include "winui/frmAbout.h"

#include "app/modAbout.h"
#include "app/modSysInfo.h"
#include "platform/modWin32Text.h"
#include "support/CProcTrap.h"
#include "winui/CWinDialog.h"
#include "winui/modWinControls.h"

namespace {

constexpr int kSysInfoCommand = 101;
constexpr int kWidth = 440, kHeight = 250;

class AboutWindow : public CWinDialog {
public:
    AboutWindow(HWND owner, int dpi)
        : CWinDialog(owner, dpi, L"StashwellAbout", Wide(About().windowTitle), "frmAbout", kWidth,
                     kHeight) {
        const AboutTexts about = About();
        const int margin = Scaled(12);
        const int left = margin + Scaled(48) + margin;
        const int width = Scaled(kWidth) - left - margin;
        HWND icon = Child(L"STATIC", L"", SS_ICON, -1, "picIcon");
        SendMessageW(icon, STM_SETICON,
                     reinterpret_cast<WPARAM>(LoadIconW(nullptr, IDI_INFORMATION)), 0);
        MoveWindow(icon, margin, margin, Scaled(48), Scaled(48), FALSE);
        m_titleFont = MessageFont(dpi * 3 / 2, true); // half as large again, bold
        HWND title = Child(L"STATIC", Wide(about.title), SS_LEFT | SS_NOPREFIX, -1, "lblTitle");
        SendMessageW(title, WM_SETFONT, reinterpret_cast<WPARAM>(m_titleFont), FALSE);
        MoveWindow(title, left, margin, width, Scaled(26), FALSE);
        int top = margin + Scaled(30);
        for (const auto& [name, text, height] :
             {std::tuple{"lblVersion", about.version, 20},
              std::tuple{"lblDescription", about.description, 52},
              std::tuple{"lblDisclaimer", about.disclaimer, 52}}) {
            HWND label = Child(L"STATIC", Wide(text), SS_LEFT | SS_NOPREFIX, -1, name);
            MoveWindow(label, left, top, width, Scaled(height), FALSE);
            top += Scaled(height) + Scaled(4);
        }
        const int buttonTop = Scaled(kHeight) - margin - Scaled(30);
        HWND sysInfo = Child(L"BUTTON", L"&System Info...", WS_TABSTOP | BS_PUSHBUTTON,
                             kSysInfoCommand, "cmdSysInfo");
        MoveWindow(sysInfo, left, buttonTop, Scaled(120), Scaled(30), FALSE);
        m_ok = Child(L"BUTTON", L"OK", WS_TABSTOP | BS_DEFPUSHBUTTON, IDOK, "cmdOK");
        MoveWindow(m_ok, Scaled(kWidth) - margin - Scaled(90), buttonTop, Scaled(90), Scaled(30),
                   FALSE);
    }
    ~AboutWindow() override {
        if (m_titleFont) DeleteObject(m_titleFont);
    }

    void Run() { RunModal(m_ok); }

private:
    LRESULT Message(UINT message, WPARAM wParam, LPARAM lParam) override {
        if (message == WM_COMMAND && LOWORD(wParam) == IDOK) {
            Finish();
            return 0;
        }
        if (message == WM_COMMAND && LOWORD(wParam) == kSysInfoCommand) {
            TrappedHandler("frmAbout cmdSysInfo_Click", [] { StartSysInfo(); })();
            return 0;
        }
        return CWinDialog::Message(message, wParam, lParam);
    }

    HWND m_ok = nullptr;
    HFONT m_titleFont = nullptr;
};

} // namespace

void frmAbout::Show(HWND owner, int dpi) {
    AboutWindow window(owner, dpi);
    window.Run();
}
