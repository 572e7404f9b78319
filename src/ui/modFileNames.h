#pragma once

// File names between the program, which keeps them as the bytes the file system holds, and the
// window, which shows text: decoded and encoded as the locale names files (Qt's QFile rules), so
// that a name that is not valid UTF-8 comes back to the same bytes.

#include <QString>
#include <string>

// A name or path as the window shows it.
QString ShownName(const std::string& bytes);
// The bytes of a name or path typed or picked in the window.
std::string NameBytes(const QString& text);
