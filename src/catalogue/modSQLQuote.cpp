#include "catalogue/modSQLQuote.h"

// The stored catalogues were written by a loop that searched for the next occurrence from the
// start and stopped when it was found in the first position. Since every replaced occurrence
// is gone from the text, that loop either replaces them all or, when the text begins with
// the character, none at all.

namespace {
std::string ReplaceUnlessLeading(const std::string& text, char from, char to) {
    if (text.empty() || text.front() == from) return text;
    std::string out = text;
    for (char& c : out)
        if (c == from) c = to;
    return out;
}
} // namespace

std::string SQLQuoteEncode(const std::string& text) {
    return ReplaceUnlessLeading(text, '\'', '\\');
}

std::string SQLQuoteDecode(const std::string& text) {
    return ReplaceUnlessLeading(text, '\\', '\'');
}

std::string SQLLiteral(const std::string& text) {
    std::string literal = "'";
    for (char c : text) {
        if (c == '\'') literal += '\'';
        literal += c;
    }
    return literal + "'";
}
