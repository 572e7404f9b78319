#pragma once

// Help > Manual: the manual "QRV Manual.pdf" in the program's folder, opened with the desktop's
// opener. When the opener fails (the file is not there, or no program could open it), a box
// says so and where the file is, so the menu never does nothing.

#include <string>

// The program's folder followed by "/QRV Manual.pdf".
std::string ManualPath();
// Opens the manual; false (after its message) when it could not be opened.
bool OpenManual();
