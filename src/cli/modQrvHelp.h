#pragma once

// The companion's own words: its help, per command and as a whole, and its version line.

#include <string>

// The help of `command` ("" for the program's).
std::string QrvHelp(const std::string& command);
// "qrv (Stashwell) 1.0.0".
std::string QrvVersion();
