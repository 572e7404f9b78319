#pragma once

// The history of the runs as the window reads it, without the window. CCatalogueRows is the
// window's CatalogueQuery (modRunDiff.h): a connection of its own to the catalogue of the
// backup path, each statement's rows streamed one by one, so that the window runs the very
// logic the companion runs on its read-only catalogue. On it stand a run's source and date, and
// what "Compare with previous run" shows: which two runs it compares, each change between them
// in path order, and the totals.

#include "app/modRunDiff.h"
#include "catalogue/ADOSQLite.h"

#include <cstddef>
#include <functional>
#include <string>

class CCatalogueRows {
public:
    // A query on this object's connection, opened at its first statement; the object must
    // outlive it. A statement that fails answers false and leaves its reason in Problem().
    CatalogueQuery Query();
    const std::string& Problem() const { return m_problem; }

private:
    bool Rows(const std::string& statement,
              const std::function<void(const CCatalogueReader::Row&)>& row);

    ADOSQLite m_db;
    std::string m_problem;
};

struct RunInfo {
    std::string bid;
    std::string source;
    std::string datebk; // the run's date as stored, shown as it stands
    bool operator==(const RunInfo&) const = default;
};

// Run `bid` of the catalogue; false when the catalogue could not be read or holds no such run.
bool ReadRun(const CatalogueQuery& query, const std::string& bid, RunInfo& run);

struct RunComparison {
    RunInfo earlier; // its bid is "" when the later run is the first run of its source
    RunInfo later;
    size_t added = 0;
    size_t changed = 0;
    size_t removed = 0;
};

// Compares run `bid` with the run of its source made before it: the two runs go into
// `comparison`, each change goes to `change` as it is read (none for a first run) and is
// counted. False when the catalogue could not be read or holds no run `bid`.
bool CompareWithPreviousRun(const CatalogueQuery& query, const std::string& bid,
                            RunComparison& comparison,
                            const std::function<void(const RunChange&)>& change);

// What lblCompare says: "Changes from the run of <earlier date> to the run of <later date>.",
// or for a first run "This is the first run of its source: there is nothing to compare it
// with."
std::string ComparisonCaption(const RunComparison& comparison);
// What lblChanges says: "2 added, 1 changed, 1 removed"; "" for a first run.
std::string ChangeTotals(const RunComparison& comparison);
