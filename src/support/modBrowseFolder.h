#pragma once

// The process-wide folder-picker service, beside the message-box service: the core asks for a
// folder only through BrowseForFolder. The window build installs a Qt folder dialog, tests
// install a scripted double, and a process without a window answers as a cancelled picker.

#include <string>

class IFolderPickerService {
public:
    virtual ~IFolderPickerService() = default;
    // The chosen folder as bytes, or "" when the user cancels.
    virtual std::string Pick(const std::string& title) = 0;
};

// Installs `service` (not owned) for the process; nullptr goes back to the cancelling one.
void SetFolderPickerService(IFolderPickerService* service);
IFolderPickerService& FolderPickerService();

// Shows the folder picker with `title`; the chosen folder, or "" after a cancel.
std::string BrowseForFolder(const std::string& title);
