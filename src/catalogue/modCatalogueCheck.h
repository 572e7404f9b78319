#pragma once

// Whether a catalogue can be used before a run trusts it: it opens, its pages pass SQLite's
// quick check, and every table and column that the program reads is there.

#include <string>

// Why the catalogue at `path` cannot be used, in plain words; empty when it can.
std::string CatalogueProblem(const std::string& path);
