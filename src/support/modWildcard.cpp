#include "support/modWildcard.h"

#include "support/modText.h"

#include <string>

namespace {

// Matches the set that starts at pattern[p] ("[") against `c`: true with `next` at the
// character after the set, or false with `next` 0 when the set is not closed.
bool SetMatches(std::string_view pattern, size_t p, unsigned char c, size_t& next) {
    size_t i = p + 1;
    const bool negated = i < pattern.size() && (pattern[i] == '!' || pattern[i] == '^');
    if (negated) ++i;
    bool matched = false;
    for (bool first = true; i < pattern.size() && (first || pattern[i] != ']'); first = false) {
        unsigned char low = static_cast<unsigned char>(pattern[i]);
        if (low == '\\' && i + 1 < pattern.size()) low = static_cast<unsigned char>(pattern[++i]);
        ++i;
        unsigned char high = low;
        if (i + 1 < pattern.size() && pattern[i] == '-' && pattern[i + 1] != ']') {
            high = static_cast<unsigned char>(pattern[i + 1]);
            if (high == '\\' && i + 2 < pattern.size())
                high = static_cast<unsigned char>(pattern[++i + 1]);
            i += 2;
        }
        if (low <= c && c <= high) matched = true;
    }
    if (i >= pattern.size()) {
        next = 0;
        return false;
    }
    next = i + 1;
    return matched != negated;
}

// Whether pattern[p] matches the one character `c`; `next` is where the pattern goes on.
bool OneMatches(std::string_view pattern, size_t p, char c, size_t& next) {
    const char first = pattern[p];
    if (first == '?') {
        next = p + 1;
        return true;
    }
    if (first == '[') {
        size_t after = 0;
        const bool matched = SetMatches(pattern, p, static_cast<unsigned char>(c), after);
        if (after != 0) {
            next = after;
            return matched;
        }
        // An unclosed "[" stands for itself.
    }
    if (first == '\\' && p + 1 < pattern.size()) {
        next = p + 2;
        return pattern[p + 1] == c;
    }
    next = p + 1;
    return first == c;
}

} // namespace

bool WildcardMatch(std::string_view pattern, std::string_view text) {
    size_t p = 0, t = 0;
    size_t starAt = std::string_view::npos, resumeAt = 0;
    while (t < text.size()) {
        size_t next = 0;
        if (p < pattern.size() && pattern[p] == '*') {
            starAt = p++;
            resumeAt = t;
        } else if (p < pattern.size() && OneMatches(pattern, p, text[t], next)) {
            p = next;
            ++t;
        } else if (starAt != std::string_view::npos) {
            p = starAt + 1;
            t = ++resumeAt;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == '*')
        ++p;
    return p == pattern.size();
}

bool NameMatches(std::string_view search, std::string_view name) {
    const std::string pattern = LowerAscii(std::string(search));
    const std::string lowered = LowerAscii(std::string(name));
    if (pattern.find_first_of("*?[") != std::string::npos) return WildcardMatch(pattern, lowered);
    return lowered.find(pattern) != std::string::npos;
}
