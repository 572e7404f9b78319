#include "cli/modQrvPaths.h"

#include "catalogue/modSQLQuote.h"

std::string TidyPath(const std::string& path) {
    std::string tidy;
    for (size_t start = 0; start <= path.size();) {
        const size_t slash = std::min(path.find('/', start), path.size());
        const std::string part = path.substr(start, slash - start);
        if (!part.empty() && part != ".") tidy += "/" + part;
        start = slash + 1;
    }
    return tidy.empty() ? "/" : tidy;
}

std::string StoredRunPath(const std::string& source, const std::string& given,
                          bool storedBeforeEscape) {
    // Joined first and encoded whole: the encoding leaves a path alone whose first character
    // is an apostrophe, and a full path never begins with one.
    const std::string full =
        TidyPath(!given.empty() && given[0] == '/' ? given : source + "/" + given);
    return storedBeforeEscape ? SQLQuoteEncodeBeforeEscape(full) : SQLQuoteEncode(full);
}

bool IsAtOrBelow(const std::string& path, const std::string& folder) {
    if (path.compare(0, folder.size(), folder) != 0) return false;
    return path.size() == folder.size() || path[folder.size()] == '/' || folder == "/";
}
