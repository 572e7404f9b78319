#pragma once

// The run chooser of the Win32 window ("Select Backup"): every backup run under its source,
// newest first (ListBackupRuns), in a tree view tvBackups; OK (OKButton, enabled once a run is
// chosen, or a double click on it) answers that run's bid, Cancel (CancelButton, Esc, closing the
// window) none. Modal: the main window takes no clicks while it is open.

#include "platform/modWin32.h"

#include <string>

class frmSelBackup {
public:
    // Shows the chooser over `owner` and waits; the bid chosen, or "" after a cancel.
    static std::string Choose(HWND owner, int dpi);
};
