#include "cli/modQrvPaths.h"

#include "catalogue/modSQLQuote.h"
#include "platform/modFileSystem.h"
#include "support/modFSCommon.h"

namespace {

// TidyPath, splitting at the characters `isSeparator` accepts.
std::string Tidy(const std::string& path, bool (*isSeparator)(char)) {
    const size_t rootLength = FSRootLength(path);
    std::string root =
        rootLength == 0 ? std::string(1, kPathSeparator) : path.substr(0, rootLength);
    for (char& c : root)
        if (IsPathSeparator(c)) c = kPathSeparator;
    std::string tidy;
    for (size_t start = rootLength; start <= path.size();) {
        size_t slash = start;
        while (slash < path.size() && !isSeparator(path[slash]))
            ++slash;
        const std::string part = path.substr(start, slash - start);
        if (!part.empty() && part != ".")
            tidy += (tidy.empty() ? "" : std::string(1, kPathSeparator)) + part;
        start = slash + 1;
    }
    if (!root.empty() && !IsPathSeparator(root.back()) && !tidy.empty()) root += kPathSeparator;
    return root + tidy;
}

} // namespace

std::string TidyPath(const std::string& path) {
    return Tidy(path, IsPathSeparator);
}

std::string TidyStoredPath(const std::string& stored) {
    return Tidy(stored, IsStoredSeparator);
}

std::string StoredRunPath(const std::string& source, const std::string& given,
                          bool storedBeforeEscape) {
    // Joined first and encoded whole: the encoding leaves a path alone whose first character
    // is an apostrophe, and a full path never begins with one.
    const std::string full =
        TidyPath(!given.empty() && IsAbsolutePath(given) ? given : FSJoinPath(source, given));
    return storedBeforeEscape ? SQLQuoteEncodeBeforeEscape(full) : SQLQuoteEncode(full);
}

bool IsAtOrBelow(const std::string& path, const std::string& folder) {
    if (path.compare(0, folder.size(), folder) != 0) return false;
    return path.size() == folder.size() || IsStoredSeparator(path[folder.size()]) ||
           FSIsRoot(folder);
}
