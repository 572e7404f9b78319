#include "app/modRunHistory.h"

#include "app/modPaths.h"
#include "catalogue/modBulkQuery.h"
#include "catalogue/modSQLQuote.h"

CatalogueQuery CCatalogueRows::Query() {
    return [this](const std::string& statement,
                  const std::function<void(const CCatalogueReader::Row&)>& row) {
        return Rows(statement, row);
    };
}

bool CCatalogueRows::Rows(const std::string& statement,
                          const std::function<void(const CCatalogueReader::Row&)>& row) {
    m_problem.clear();
    if (!m_db.Handle() && !m_db.Connect(GetDBPath())) {
        m_problem = m_db.ErrMsg();
        m_db.Reset(); // the next statement tries to connect again
        return false;
    }
    return ForEachRow(m_db, statement, row, m_problem);
}

bool ReadRun(const CatalogueQuery& query, const std::string& bid, RunInfo& run) {
    run = {};
    bool found = false;
    // The bid goes in as a text literal: the column's integer affinity compares it as a number,
    // and a bid that is not one finds no run.
    const bool read =
        query("SELECT bid, source, datebk FROM Backups WHERE bid = " + SQLLiteral(bid),
              [&](const CCatalogueReader::Row& row) {
                  run = {std::string(row[0]), std::string(row[1]), std::string(row[2])};
                  found = true;
              });
    return read && found;
}

bool CompareWithPreviousRun(const CatalogueQuery& query, const std::string& bid,
                            RunComparison& comparison,
                            const std::function<void(const RunChange&)>& change) {
    comparison = {};
    if (!ReadRun(query, bid, comparison.later)) return false;
    std::string previous;
    if (!PreviousRun(query, comparison.later.bid, previous)) return false;
    if (previous.empty()) return true;
    if (!ReadRun(query, previous, comparison.earlier)) return false;
    return DiffRuns(query, comparison.earlier.bid, comparison.later.bid,
                    [&](const RunChange& found) {
                        switch (found.kind) {
                        case RunChange::Kind::kAdded:
                            ++comparison.added;
                            break;
                        case RunChange::Kind::kChanged:
                            ++comparison.changed;
                            break;
                        case RunChange::Kind::kRemoved:
                            ++comparison.removed;
                            break;
                        }
                        change(found);
                    });
}

std::string ComparisonCaption(const RunComparison& comparison) {
    if (comparison.earlier.bid.empty())
        return "This is the first run of its source: there is nothing to compare it with.";
    return "Changes from the run of " + comparison.earlier.datebk + " to the run of " +
           comparison.later.datebk + ".";
}

std::string ChangeTotals(const RunComparison& comparison) {
    if (comparison.earlier.bid.empty()) return {};
    return std::to_string(comparison.added) + " added, " + std::to_string(comparison.changed) +
           " changed, " + std::to_string(comparison.removed) + " removed";
}
