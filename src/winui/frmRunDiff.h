#pragma once

// "Compare with previous run" of the Win32 window, modal: what changed between a run and the run
// of its source made before it. lblCompare names the two runs by their dates (or says that the
// run is its source's first), lvwChanges lists each file added, changed or removed, in path
// order, with its size before and after, and lblChanges counts them; cmdClose, Enter and Esc
// close it. The logic is the app layer's (modRunHistory.h), shared with the Qt window.

#include "platform/modWin32.h"

#include <string>

class frmRunDiff {
public:
    // Compares run `bid` with the one before it, over `owner`, and waits until it is closed.
    static void Show(HWND owner, int dpi, const std::string& bid);
};
