#pragma once

// "Find in all runs" of the Win32 window, modal: the name typed in txtFind (a part of the name,
// or a pattern with "*", "?" or "[") is looked for in every run when cmdFind is clicked or Enter
// is pressed, and at once when the dialog opens with a name. lvwVersions lists each version of a
// file (how many runs hold it, its path, size and signature) with the runs that hold it below
// it, indented, with their date and source; lblVersions counts what was found. With a run's row
// chosen, cmdRestoreVersion puts that run's version back in its place and cmdRestoreVersionTo
// below a folder the person picks; lblRestoreVersion says how it went. cmdClose and Esc close
// it. The logic is the app layer's (modFileVersions.h), shared with the Qt window.

#include "platform/modWin32.h"

#include <string>

class frmVersions {
public:
    // Shows the dialog over `owner` and waits until it is closed. `search` fills txtFind;
    // `verify` checks each restored file.
    static void Show(HWND owner, int dpi, const std::string& search, bool verify);
};
