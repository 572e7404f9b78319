#pragma once

// The window runner that the Windows program hands to Main. A window can be shown when the
// process runs on the interactive window station (a person's desktop); a scheduled task run
// whether the user is logged on or not, or a service, has none and runs its words headless, as
// does a program under Wine without an X server, where no window can be made (said on stderr only
// when an X display was named).
// Open starts COM and the common controls and installs the window's services (MessageBoxW, the
// shell's folder dialog, the shell's opener, the yield hook that runs pending messages); Run
// loads the main window and runs its message loop to its end.

#include "app/modMain.h"
#include "winui/CWinServices.h"

#include <string>

class CWinWindowRunner : public IWindowRunner {
public:
    CWinWindowRunner() = default;
    ~CWinWindowRunner() override;

    bool FindDisplay() override;
    std::string DisplayName() const override { return m_station; }
    void Open(const std::string& program, const std::function<int()>& withoutWindow) override;
    int Run(const std::string& commandLine) override;

private:
    std::string m_station;
    bool m_comStarted = false;
    CWinMessageBox m_boxes;
    CWinFolderPicker m_picker;
    CWinDesktop m_desktop;
};
