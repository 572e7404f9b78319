#pragma once

// The window runner that the program hands to Main. It finds a display that really opens
// (modDisplay.h), builds the Qt application on that platform and installs the window's
// services (Qt boxes, the folder dialog, the yield hook), then loads the main window and runs
// it to its end. Qt aborts the process after a fatal message; one while the application is
// being built means the display failed after all (it went away since the probe, or a platform
// that only Qt can try would not start), so the message handler then lets the start go on
// without a window, still inside Qt's call, and ends the process with that run's status. Only
// the core, which never touches Qt, runs there, and nothing returns into Qt.

#include "app/modMain.h"
#include "ui/modDisplay.h"

#include <memory>
#include <string>
#include <vector>

class QApplication;

class CWindowRunner : public IWindowRunner {
public:
    CWindowRunner();
    ~CWindowRunner() override;

    bool FindDisplay() override;
    std::string DisplayName() const override { return m_display.name; }
    void Open(const std::string& program, const std::function<int()>& withoutWindow) override;
    int Run(const std::string& commandLine) override;

private:
    DisplayFound m_display;
    // Qt keeps the arguments it was built with for the application's life.
    std::vector<std::string> m_args;
    std::vector<char*> m_argv;
    int m_argc = 0;
    std::unique_ptr<QApplication> m_application;
};
