#pragma once

// What the about window says, for both windows: its title ("About " and the program's title),
// the product's name, the version, a short description and a word of advice.

#include <string>

struct AboutTexts {
    std::string windowTitle;
    std::string title;
    std::string version;
    std::string description;
    std::string disclaimer;
};

AboutTexts About();
