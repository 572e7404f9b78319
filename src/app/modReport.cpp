#include "app/modReport.h"

#include "support/CRuntimeError.h"

#include <fstream>

std::string ReportText(const std::string& logFile) {
    std::ifstream in(logFile, std::ios::binary);
    if (!in) Raise(err::kFileNotFound);
    // A line ends at CR LF, at LF or at a lone CR, as the runtime's line input reads it.
    std::string text, line;
    for (char c; in.get(c);) {
        if (c == '\n' || c == '\r') {
            if (c == '\r' && in.peek() == '\n') in.get();
            text += line + "\r\n";
            line.clear();
        } else {
            line += c;
        }
    }
    if (!line.empty()) text += line + "\r\n";
    return text;
}
