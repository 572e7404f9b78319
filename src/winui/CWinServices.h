#pragma once

// The window's services on Windows, which the core calls instead of a window: message boxes
// with MessageBoxW (the described texts, titles and styles, owned by the window in front), the
// folder picker (the shell's folder dialog), documents opened with the shell (ShellExecuteW), and
// the yield hook, which lets the window's pending messages run during long work.

#include "platform/modWin32.h"
#include "support/modBrowseFolder.h"
#include "support/modMsgBox.h"
#include "support/modShell.h"

#include <functional>

class CWinMessageBox : public IMessageBoxService {
public:
    // `title` empty: "Stashwell".
    int Show(const std::string& text, int style, const std::string& title) override;
    void Beep() override;
};

class CWinFolderPicker : public IFolderPickerService {
public:
    std::string Pick(const std::string& title) override;
};

class CWinDesktop : public IDesktopService {
public:
    bool Open(const std::string& target) override;
    bool Start(const std::string& program) override;
};

// What the message loop asks of the window in front before a message is dispatched (keyboard
// navigation, accelerators): true when the window took it.
using MessageFilter = std::function<bool(MSG&)>;
void SetMessageFilter(MessageFilter filter);
// Runs the window's pending messages and answers; false once WM_QUIT came (which it posts
// again, for the loop that waits).
bool PumpMessages();
// Waits for and runs messages until WM_QUIT; its exit code.
int RunMessageLoop();
