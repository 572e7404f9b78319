#pragma once

// Whether a catalogue can be used before a run trusts it: it opens, its pages pass SQLite's
// quick check, and every table and column that the program reads is there.
//
// The quick check reads every page, so its cost grows with the catalogue: a catalogue bigger
// than kWholeCheckBytes has only its small tables (Setup, Backups, Sources) checked page by page
// before a run. (Checked whole, a catalogue of one run of 500,000 files, some 130 MB, took a
// quarter of a second before every run, a quarter of the time a walk of those files takes.) Files
// and Paths, most of such a catalogue, are read and written by the run and its retention, where
// damage fails the step with SQLite's own error and loses nothing; `qrv check` checks them whole on
// demand.

#include <cstdint>
#include <string>

// 16 MiB: some 60,000 Files rows, checked in about 30 ms.
inline constexpr uint64_t kWholeCheckBytes = 16ull * 1024 * 1024;

// Why the catalogue at `path` cannot be used, in plain words; empty when it can.
std::string CatalogueProblem(const std::string& path, uint64_t wholeCheckBytes = kWholeCheckBytes);
