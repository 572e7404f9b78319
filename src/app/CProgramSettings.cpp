#include "app/CProgramSettings.h"

// The key path is the same on every system; CProgramSettings_posix.cpp and
// CProgramSettings_win32.cpp keep the values.

std::string CProgramSettings::KeyPath() const {
    std::string path = m_mainBranch + "\\" + m_regBase + "\\" + m_program + "\\" + m_section;
    if (!path.empty() && path.back() == '\\') path.pop_back();
    return path;
}
