#include "catalogue/modSQLQuote.h"

#include "platform/modFileSystem.h"
#include "platform/modPlatformKind.h"

#include <algorithm>

// The stored catalogues were written by a loop that searched for the next occurrence from the
// start and stopped when it was found in the first position. Since every replaced occurrence
// is gone from the text, that loop either replaces them all or, when the text begins with
// the character, none at all.

namespace {

constexpr char kApostrophe = '\'';
// The Windows build stores "/", which no Windows name holds, so it needs no escape; Linux
// stores "\", the one character that the Windows build uses as separator.
constexpr char kStoredApostrophe = kWindowsBuild ? '/' : '\\'; // not a path separator
// Only a name that may hold the stored character itself needs the escapes.
constexpr bool kEscapes = !kWindowsBuild;
constexpr char kEscape = '\x01';
constexpr char kEscapedBackslash = 'b';

std::string EncodeAll(const std::string& text) {
    // Most names hold none of the characters that change.
    if (std::none_of(text.begin(), text.end(), [](char c) {
            return c == kApostrophe || (kEscapes && (c == kStoredApostrophe || c == kEscape));
        }))
        return text;
    std::string stored;
    stored.reserve(text.size());
    for (const char c : text) {
        if (c == kApostrophe) {
            stored += kStoredApostrophe;
        } else if (kEscapes && c == kStoredApostrophe) {
            stored += kEscape;
            stored += kEscapedBackslash;
        } else if (kEscapes && c == kEscape) {
            stored += kEscape;
            stored += kEscape;
        } else {
            stored += c;
        }
    }
    return stored;
}

std::string DecodeAll(const std::string& stored) {
    std::string text;
    text.reserve(stored.size());
    for (size_t at = 0; at < stored.size(); ++at) {
        const char c = stored[at];
        const char next = at + 1 < stored.size() ? stored[at + 1] : '\0';
        if (c == kStoredApostrophe) {
            text += kApostrophe;
        } else if (kEscapes && c == kEscape && next == kEscapedBackslash) {
            text += kStoredApostrophe;
            ++at;
        } else if (kEscapes && c == kEscape && next == kEscape) {
            text += kEscape;
            ++at;
        } else {
            text += c; // an escape before anything else was written before escapes existed
        }
    }
    return text;
}

} // namespace

std::string SQLQuoteEncode(const std::string& text) {
    return text.empty() || text.front() == kApostrophe ? text : EncodeAll(text);
}

std::string SQLQuoteEncodeBeforeEscape(const std::string& text) {
    if (text.empty() || text.front() == kApostrophe) return text;
    std::string stored = text;
    std::replace(stored.begin(), stored.end(), kApostrophe, kStoredApostrophe);
    return stored;
}

std::string SQLQuoteDecode(const std::string& text) {
    return text.empty() || text.front() == kStoredApostrophe ? text : DecodeAll(text);
}

std::string StoredPathBytes(const std::string& stored) {
    return DecodeAll(stored);
}

bool IsStoredSeparator(char c) {
    return c == kPathSeparator;
}

size_t StoredLastSeparator(const std::string& stored) {
    return stored.rfind(kPathSeparator);
}

std::string SQLLiteral(const std::string& text) {
    std::string literal = "'";
    for (char c : text) {
        if (c == '\'') literal += '\'';
        literal += c;
    }
    return literal + "'";
}
