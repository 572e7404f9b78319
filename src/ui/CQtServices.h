#pragma once

// The services the core calls instead of a window, as the window build provides them: Qt
// message boxes, the Qt folder dialog, and the yield hook that processes the window's events
// (the one place that does). InstallWindowServices sets all three for the process.

#include "support/modBrowseFolder.h"
#include "support/modMsgBox.h"

// A Qt message box for the core's styles (buttons + icon) and answers; the default title is
// "Stashwell".
class CQtMessageBox : public IMessageBoxService {
public:
    int Show(const std::string& text, int style, const std::string& title) override;
    void Beep() override;
};

// The desktop's folder dialog; the chosen folder as the file system's bytes.
class CQtFolderPicker : public IFolderPickerService {
public:
    std::string Pick(const std::string& title) override;
};

// Installs the Qt message box, the Qt folder picker and the yield hook (QApplication must exist).
void InstallWindowServices();
