#pragma once

// What a run did, in a few lines a person reads at the top of the report: the whole run first
// ("Added 312 new files, 1.4 GB; 48,211 already stored; 2 problems."), then each source with
// what it added, what the store held already, what was left out, and its problems, indented.

#include "catalogue/CMetadataDB.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

// The tallies of the sources of one run, in the order they were backed up.
std::vector<std::string>
RunSummaryLines(const std::vector<std::pair<std::string, RunTally>>& sources);

// A count with its thousands grouped: "48,211".
std::string GroupedCount(int64_t count);
