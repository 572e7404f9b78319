#pragma once

// The window runner that the program hands to Main: makes the application, installs the
// window's services (Qt boxes, the folder dialog, the yield hook), loads the main window and
// runs it to its end.

#include <string>

int RunWindow(int& argc, char** argv, const std::string& commandLine);
