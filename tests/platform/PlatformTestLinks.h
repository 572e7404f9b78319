#pragma once

// Symbolic links for the platform layer's tests. Linux always makes them; Windows only for an
// administrator or with developer mode, and Wine not at all (it answers success and makes
// nothing), so a test of links on Windows is skipped where none can be made.

#include <string>

#ifdef _WIN32
#include "platform/modWin32Text.h"
#else
#include <filesystem>
#endif

#ifdef _WIN32
namespace platform_test_links {
inline bool MakeLink(const std::string& target, const std::string& link, DWORD kind) {
    ::CreateSymbolicLinkW(WidePath(link).c_str(), WidePath(target).c_str(),
                          kind | SYMBOLIC_LINK_FLAG_ALLOW_UNPRIVILEGED_CREATE);
    const DWORD attributes = ::GetFileAttributesW(WidePath(link).c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT);
}
} // namespace platform_test_links
#endif

// Makes `link` a symbolic link to the file `target`; false when this system makes none.
inline bool MakeFileLink(const std::string& target, const std::string& link) {
#ifdef _WIN32
    return platform_test_links::MakeLink(target, link, 0);
#else
    std::filesystem::create_symlink(target, link);
    return true;
#endif
}

// Makes `link` a symbolic link to the folder `target`; false when this system makes none.
inline bool MakeFolderLink(const std::string& target, const std::string& link) {
#ifdef _WIN32
    return platform_test_links::MakeLink(target, link, SYMBOLIC_LINK_FLAG_DIRECTORY);
#else
    std::filesystem::create_directory_symlink(target, link);
    return true;
#endif
}
