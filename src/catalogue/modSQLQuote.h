#pragma once

// Stored path encoding: every apostrophe of a path written into the catalogue becomes "\" so
// that the value can stand between apostrophes in SQL, and back on reading. Both stop at an
// occurrence in the first position, which leaves that one and every later one unchanged;
// stored catalogues depend on this. Known limit: a name holding "\" comes back with "'".

#include <string>

std::string SQLQuoteEncode(const std::string& text);
std::string SQLQuoteDecode(const std::string& text);

// `text` as an SQL text literal: between apostrophes, each apostrophe inside doubled, so that
// the value is stored exactly as it stands. Every path that goes into a statement (run
// sources, store paths, the encoded paths whose first character was left an apostrophe) goes
// through it: a folder such as "Bob's Documents" must never break a statement.
std::string SQLLiteral(const std::string& text);
