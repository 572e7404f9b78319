#pragma once

// Shell wildcards, matched byte by byte as the shell's own matcher does without flags: "*" any
// run of characters ("/" included), "?" any one, "[abc]", "[a-z]" and "[!a-z]" (or "[^a-z]")
// one of a set, and "\" taking the next character as itself. A "[" with no closing "]" is
// itself.

#include <string_view>

bool WildcardMatch(std::string_view pattern, std::string_view text);

// Whether the file name `name` answers a person's search `search`: a wildcard pattern over the
// whole name when it holds "*", "?" or "[", else a part of the name; either way without regard
// to the case of ASCII letters. An empty search answers every name.
bool NameMatches(std::string_view search, std::string_view name);
