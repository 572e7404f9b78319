#include "cli/modQrvPaths.h"

#include "catalogue/modSQLQuote.h"

namespace {

std::string WithoutTrailingSlash(std::string path) {
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

} // namespace

std::string StoredRunPath(const std::string& source, const std::string& given) {
    const std::string root = WithoutTrailingSlash(SQLQuoteEncode(source));
    if (given.empty() || given == ".") return root;
    const std::string path = WithoutTrailingSlash(SQLQuoteEncode(given));
    if (path[0] == '/') return path;
    return (root == "/" ? root : root + "/") + (path.rfind("./", 0) == 0 ? path.substr(2) : path);
}

bool IsAtOrBelow(const std::string& path, const std::string& folder) {
    if (path.compare(0, folder.size(), folder) != 0) return false;
    return path.size() == folder.size() || path[folder.size()] == '/' || folder == "/";
}
