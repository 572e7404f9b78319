#pragma once

// Letter case of ASCII letters only: names are byte strings, and every other byte (UTF-8 or
// not) is left exactly as it is, whatever the locale.

#include <string>

std::string LowerAscii(std::string text);
std::string UpperAscii(std::string text);
