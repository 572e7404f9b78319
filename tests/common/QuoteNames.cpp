#include "QuoteNames.h"

#ifndef _WIN32

#include "catalogue/modSQLQuote.h"

#include <algorithm>

namespace {

// Name -> content, in the byte order of the names.
const std::map<std::string, std::string>& Files() {
    static const std::map<std::string, std::string> files = {
        {"back\\slash.txt", "backslash"},
        {"it's.txt", "apostrophe"},
        {"q'r.txt", "ONE"},
        {"q\\r.txt", "TWO"},
    };
    return files;
}

std::string BeforeEscape(std::string path) {
    std::replace(path.begin(), path.end(), '\'', '\\');
    return path;
}

} // namespace

TestNode QuoteNamesTree() {
    std::vector<std::pair<std::string, TestNode>> children;
    for (const auto& [name, content] : Files())
        children.emplace_back(name, File(content));
    return Dir(children);
}

std::map<std::string, std::string> QuoteNamesBelow(const std::string& root) {
    std::map<std::string, std::string> below;
    for (const auto& [name, content] : Files())
        below[root + "/" + name] = content;
    return below;
}

std::map<std::string, std::string> QuoteNamesBeforeEscapeBelow(const std::string& root) {
    return {{root + "/back'slash.txt", "backslash"},
            {root + "/it's.txt", "apostrophe"},
            {root + "/q'r.txt", "ONE"}};
}

void StoreQuoteNamesBeforeEscape(const BackupFixture& f, const std::string& source,
                                 const std::string& bid) {
    f.Exec("DELETE FROM Files WHERE bid = " + bid);
    for (const auto& [name, content] : Files())
        f.Exec("INSERT INTO Files (md5, file, backup, path, bid, size) SELECT " +
               SQLLiteral(TestSignature(content)) + ", " +
               SQLLiteral(BeforeEscape(source + "/" + name)) + ", " +
               SQLLiteral(StoreFile(f.backup, content)) + ", " + SQLLiteral(source + "/") + ", " +
               bid + ", " + std::to_string(content.size()));
}

void StoreSourceBeforeEscape(const BackupFixture& f, const std::string& source) {
    const std::string now = SQLLiteral(Encoded(source)), before = SQLLiteral(source);
    const auto replaced = [&](const std::string& column) {
        return column + " = replace(" + column + ", " + now + ", " + before + ")";
    };
    f.Exec("UPDATE Paths SET " + replaced("path"));
    f.Exec("UPDATE Files SET " + replaced("path") + ", " + replaced("file"));
}

#endif
