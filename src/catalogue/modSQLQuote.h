#pragma once

// Stored path encoding: every apostrophe of a path written into the catalogue becomes "\" on
// Linux ("/" on Windows, which needs none of the escapes below) so that the value can stand
// between apostrophes in SQL, and back on reading. Both stop at an
// occurrence in the first position, which leaves that one and every later one unchanged;
// stored catalogues depend on this.
//
// A Linux name may hold a "\" of its own, which would read back as an apostrophe (and two
// files "q'r" and "q\r" of one folder would be stored as one path). So a real "\" is stored
// as the escape byte 0x01 followed by "b", and a real 0x01 as 0x01 0x01; a lone "\" always
// stands for an apostrophe. Reading turns "\" into "'", 0x01 "b" into "\", 0x01 0x01 into
// 0x01, and leaves a 0x01 followed by anything else as it is. Catalogues written before the
// escape therefore read exactly as they always did (a row "q\r.txt" still reads "q'r.txt"),
// unless a name held 0x01 followed by "b" or by 0x01, which no real name does.

#include <string>

std::string SQLQuoteEncode(const std::string& text);
std::string SQLQuoteDecode(const std::string& text);
// How a catalogue written before the escape stored `text`: its apostrophes only, with the
// same leading-character rule. A run of that time holds a "\" of its source folder's own path
// as it stood, so that is the form its rows begin with.
std::string SQLQuoteEncodeBeforeEscape(const std::string& text);
// The real bytes of a stored path, or of any part of one (its last component, the tail behind
// the run's source), whatever its first character: what a restore writes and what is shown.
// Every "\" comes back as an apostrophe, even in the first position.
std::string StoredPathBytes(const std::string& stored);
// A stored path is split only at the platform's separator: on Windows a stored "/" is an
// apostrophe of the name, not a separator. The position of the last one, or npos.
bool IsStoredSeparator(char c);
size_t StoredLastSeparator(const std::string& stored);

// `text` as an SQL text literal: between apostrophes, each apostrophe inside doubled, so that
// the value is stored exactly as it stands. Every path that goes into a statement (run
// sources, store paths, the encoded paths whose first character was left an apostrophe) goes
// through it: a folder such as "Bob's Documents" must never break a statement.
std::string SQLLiteral(const std::string& text);
