#pragma once

// A source folder whose names the stored path encoding must keep apart: "q'r.txt" and
// "q\r.txt" side by side (contents "ONE" and "TWO"), and a backslash and an apostrophe alone;
// and its run rewritten as a catalogue written before names kept their backslashes holds it,
// "q'r.txt" and "q\r.txt" as two rows of the one stored path "q\r.txt". Also the rows of a
// source whose own path holds a backslash, rewritten as such a catalogue holds them. Linux
// only: no Windows name holds a backslash, and a Windows catalogue stores an apostrophe as "/",
// which needs no escape.

#ifndef _WIN32

#include "BackupFixture.h"

#include <map>
#include <string>

// The files of the source.
TestNode QuoteNamesTree();
// Every file of that tree below `root`, with its content: what a restore must bring back.
std::map<std::string, std::string> QuoteNamesBelow(const std::string& root);
// What a restore of the rewritten run brings back below `root`: every name as such a
// catalogue reads it ("\" as an apostrophe), the row of "ONE" in the place of both.
std::map<std::string, std::string> QuoteNamesBeforeEscapeBelow(const std::string& root);

// Rewrites the Files rows of run `bid` of `source` (a folder whose own path holds neither an
// apostrophe nor a backslash) as such a catalogue held them: the rows again in the byte order
// of their names, each path with its apostrophes stored as "\" and its backslashes as they
// stand.
void StoreQuoteNamesBeforeEscape(const BackupFixture& f, const std::string& source,
                                 const std::string& bid);
// Rewrites every row below `source` (a folder whose own path holds a "\" but no apostrophe)
// as such a catalogue held it: the "\" of the source's path as it stands.
void StoreSourceBeforeEscape(const BackupFixture& f, const std::string& source);

#endif
