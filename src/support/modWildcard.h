#pragma once

// Shell wildcards, matched byte by byte as the shell's own matcher does without flags: "*" any
// run of characters ("/" included), "?" any one, "[abc]", "[a-z]" and "[!a-z]" (or "[^a-z]")
// one of a set, and "\" taking the next character as itself. A "[" with no closing "]" is
// itself.

#include <string_view>

bool WildcardMatch(std::string_view pattern, std::string_view text);
