#pragma once

// The about window of the Win32 window, modal: the program's icon, title and version, a short
// description and a word of advice (app/modAbout, as the Qt window shows them), the System Info
// button (cmdSysInfo) that starts the system information tool, and OK (cmdOK, Enter, Esc).

#include "platform/modWin32.h"

class frmAbout {
public:
    // Shows the window over `owner` and waits until it is closed.
    static void Show(HWND owner, int dpi);
};
