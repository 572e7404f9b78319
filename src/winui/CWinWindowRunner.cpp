#include "winui/CWinWindowRunner.h"

#include "platform/modWin32Text.h"
#include "support/modYield.h"
#include "winui/frmMain.h"

#include <commctrl.h>
#include <objbase.h>

CWinWindowRunner::~CWinWindowRunner() {
    SetYieldHook({});
    SetMessageFilter({});
    SetMessageBoxService(nullptr);
    SetFolderPickerService(nullptr);
    SetDesktopService(nullptr);
    if (m_comStarted) CoUninitialize();
}

bool CWinWindowRunner::FindDisplay() {
    HWINSTA station = GetProcessWindowStation();
    wchar_t name[256] = L"";
    DWORD needed = 0;
    if (station && GetUserObjectInformationW(station, UOI_NAME, name, sizeof name, &needed))
        m_station = Narrow(name);
    USEROBJECTFLAGS flags{};
    if (!station || !GetUserObjectInformationW(station, UOI_FLAGS, &flags, sizeof flags, &needed))
        return false;
    if (!(flags.dwFlags & WSF_VISIBLE)) {
        m_station.clear(); // a service's station: the plain headless start, said nowhere
        return false;
    }
    // A window station that shows windows can still have no screen to draw them on (Wine
    // without an X server): a window that cannot be made says so.
    HWND probe = CreateWindowExW(0, L"STATIC", L"", WS_POPUP, 0, 0, 1, 1, nullptr, nullptr,
                                 GetModuleHandleW(nullptr), nullptr);
    if (!probe) {
        // Named only when an X server was named and failed (Wine with a stale DISPLAY); without
        // one the start is the plain headless one, and says nothing.
        wchar_t display[256] = L"";
        m_station = GetEnvironmentVariableW(L"DISPLAY", display, 256) > 0
                        ? m_station + " (X display " + Narrow(display) + ")"
                        : std::string();
        return false;
    }
    DestroyWindow(probe);
    return true;
}

void CWinWindowRunner::Open(const std::string& /*program*/,
                            const std::function<int()>& /*withoutWindow*/) {
    m_comStarted =
        SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED | COINIT_DISABLE_OLE1DDE));
    INITCOMMONCONTROLSEX controls{sizeof controls, ICC_TAB_CLASSES | ICC_LISTVIEW_CLASSES |
                                                       ICC_TREEVIEW_CLASSES | ICC_UPDOWN_CLASS |
                                                       ICC_BAR_CLASSES | ICC_STANDARD_CLASSES};
    InitCommonControlsEx(&controls);
    SetMessageBoxService(&m_boxes);
    SetFolderPickerService(&m_picker);
    SetDesktopService(&m_desktop);
    SetYieldHook([] { PumpMessages(); });
}

int CWinWindowRunner::Run(const std::string& commandLine) {
    frmMain window(commandLine);
    SetMessageFilter([&window](MSG& message) { return window.Filter(message); });
    const std::optional<int> exit = window.Form_Load();
    if (exit) return *exit;
    ShowWindow(window.Handle(), SW_SHOWNORMAL);
    UpdateWindow(window.Handle());
    const int status = RunMessageLoop();
    SetMessageFilter({});
    return status;
}
