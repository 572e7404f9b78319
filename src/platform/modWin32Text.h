#pragma once

// Windows only: the program keeps every text and path as UTF-8 in a std::string and speaks
// UTF-16 to Windows, through the W functions only. A path long enough to pass the old MAX_PATH
// limit of the Win32 file functions is handed over in its \\?\ form (made absolute first, since
// that form takes no relative parts), which lifts the limit to about 32,767 characters.

#ifdef _WIN32

#include "platform/modWin32.h"

#include <string>

// UTF-8 to UTF-16; a byte that is not UTF-8 becomes U+FFFD.
std::wstring Wide(const std::string& text);
// UTF-16 to UTF-8; a lone surrogate becomes U+FFFD.
std::string Narrow(const std::wstring& text);
// `path` for a W file function: as it is while shorter than kLongPathFrom characters, else
// absolute in the \\?\ form (\\?\UNC\server\share\... for \\server\share\...); a path already in
// a \\?\ or \\.\ form is kept as it is.
std::wstring WidePath(const std::string& path);

// CreateDirectoryW refuses MAX_PATH - 12 characters and more (room for an 8.3 name below it),
// the other file functions MAX_PATH (260) and more; from this length on a path gets the \\?\ form.
inline constexpr size_t kLongPathFrom = MAX_PATH - 12;

#endif
