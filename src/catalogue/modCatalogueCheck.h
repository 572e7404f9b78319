#pragma once

// Whether a catalogue can be used before a run trusts it: it opens, its pages pass SQLite's
// quick check, and every table and column that the program reads is there.
//
// The quick check reads every page, so its cost grows with the catalogue: a catalogue bigger
// than kWholeCheckBytes has only its small tables (Setup, Backups, Sources) checked page by page
// before a run. Files and Paths, most of such a catalogue, are read and written by the run and
// its retention, where damage fails the step with SQLite's own error and loses nothing; `qrv
// check` checks them whole on demand.

#include <cstdint>
#include <string>

// 256 MiB: about a million Files rows.
inline constexpr uint64_t kWholeCheckBytes = 256ull * 1024 * 1024;

// Why the catalogue at `path` cannot be used, in plain words; empty when it can.
std::string CatalogueProblem(const std::string& path, uint64_t wholeCheckBytes = kWholeCheckBytes);
