#include "FindListing.h"

#ifndef _WIN32
#include <cstdio>

std::map<std::string, std::string> FindListing(const std::string& root) {
    std::map<std::string, std::string> listing;
    const std::string command = "find '" + root + "' -printf '%P\\t%y %m %T@ %s %l\\n' 2>/dev/null";
    FILE* find = ::popen(command.c_str(), "r");
    if (!find) return listing;
    std::string text;
    char buffer[4096];
    for (size_t got; (got = std::fread(buffer, 1, sizeof buffer, find)) > 0;)
        text.append(buffer, got);
    ::pclose(find);
    for (size_t start = 0, end; (end = text.find('\n', start)) != std::string::npos;
         start = end + 1) {
        const std::string line = text.substr(start, end - start);
        const size_t tab = line.find('\t');
        std::string what = line.substr(tab + 1);
        if (what[0] == 'd') { // "d 700 <time> <size> ": the size goes
            const size_t timeEnd = what.find(' ', what.find(' ', 2) + 1);
            what = what.substr(0, timeEnd) + " -";
        }
        listing["/" + line.substr(0, tab)] = what;
    }
    return listing;
}
#endif
