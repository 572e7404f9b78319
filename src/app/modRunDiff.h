#pragma once

// What changed between two runs: the files the later run holds and the earlier did not
// (added), those both hold with other content (changed: another signature), and those only the
// earlier held (removed), matched by their stored path, in path order, each with its size in
// the run(s) that hold it. The catalogue is read through `query`, so that the companion's
// read-only catalogue and the window's connection share the one logic; the differences stream
// out one by one and are never held together.

#include "catalogue/CCatalogueReader.h"

#include <cstdint>
#include <functional>
#include <string>

// Runs `statement`, calling the row callback per result row; false when it could not.
using CatalogueQuery = std::function<bool(
    const std::string& statement, const std::function<void(const CCatalogueReader::Row&)>& row)>;

struct RunChange {
    enum class Kind { kAdded, kChanged, kRemoved };
    Kind kind = Kind::kAdded;
    std::string path;    // the file's full path, in real bytes
    uint64_t before = 0; // its size in the earlier run (changed, removed)
    uint64_t after = 0;  // its size in the later run (added, changed)
    bool operator==(const RunChange&) const = default;
};

// The run of the same source made just before run `bid`: its bid, or "" when `bid` is the
// source's first run (or no run). False when the catalogue could not be read.
bool PreviousRun(const CatalogueQuery& query, const std::string& bid, std::string& previous);

// Each difference between run `earlier` and run `later`, in the order of their stored paths.
// False when the catalogue could not be read.
bool DiffRuns(const CatalogueQuery& query, const std::string& earlier, const std::string& later,
              const std::function<void(const RunChange&)>& change);

// The word for a change: "added", "changed", "removed".
const char* ChangeWord(RunChange::Kind kind);
