#pragma once

// Stored path encoding: every apostrophe of a path written into the catalogue becomes "\" so
// that the value can stand between apostrophes in SQL, and back on reading. Both stop at an
// occurrence in the first position, which leaves that one and every later one unchanged;
// stored catalogues depend on this. Known limit: a name holding "\" comes back with "'".

#include <string>

std::string SQLQuoteEncode(const std::string& text);
std::string SQLQuoteDecode(const std::string& text);
