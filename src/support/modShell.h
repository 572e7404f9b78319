#pragma once

// Opening documents and web addresses with the desktop's own programs, and starting a program,
// through a process-wide service: the program uses the desktop's opener (xdg-open); tests
// install a double that records every call. Nothing here waits for the program it starts; an
// opener is given a moment to say that it found no program for a document.

#include <string>

class IDesktopService {
public:
    virtual ~IDesktopService() = default;
    // Opens a document or a web address with the program the desktop chooses; true when the
    // opener could be started and did not answer at once that it found no program for it.
    virtual bool Open(const std::string& target) = 0;
    // Starts a program on its own; true when it could be started.
    virtual bool Start(const std::string& program) = 0;
};

// Installs `service` (not owned) for the process; nullptr goes back to the desktop's opener.
void SetDesktopService(IDesktopService* service);
IDesktopService& DesktopService();

// Opens a document (a file path); the answer is whether the opener started.
bool ShellOpenFile(const std::string& path);
// Opens a web address, with "http://" put in front when it does not begin with "http" in any
// letter case.
bool ShellOpenUrl(const std::string& address);
// The address ShellOpenUrl opens for `address`.
std::string WebAddress(const std::string& address);
