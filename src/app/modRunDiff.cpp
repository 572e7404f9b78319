#include "app/modRunDiff.h"

#include "catalogue/modSQLQuote.h"

#include <algorithm>
#include <cctype>
#include <charconv>

namespace {

// A bid goes into the statements as it is: only a whole number may.
bool IsWholeNumber(const std::string& text) {
    return !text.empty() && text.size() <= 18 &&
           std::all_of(text.begin(), text.end(),
                       [](unsigned char c) { return std::isdigit(c) != 0; });
}

uint64_t Size(std::string_view text) {
    uint64_t size = 0;
    std::from_chars(text.data(), text.data() + text.size(), size);
    return size;
}

} // namespace

bool PreviousRun(const CatalogueQuery& query, const std::string& bid, std::string& previous) {
    previous.clear();
    if (!IsWholeNumber(bid)) return false;
    return query(
        "SELECT e.bid FROM Backups e JOIN Backups l ON l.source = e.source WHERE l.bid = " + bid +
            " AND e.bid < l.bid ORDER BY e.bid DESC LIMIT 1",
        [&](const CCatalogueReader::Row& row) { previous = std::string(row[0]); });
}

bool DiffRuns(const CatalogueQuery& query, const std::string& earlier, const std::string& later,
              const std::function<void(const RunChange&)>& change) {
    if (!IsWholeNumber(earlier) || !IsWholeNumber(later)) return false;
    // One pass over each run's rows; the other run's row of a path is found by the path's index.
    const std::string statement =
        "SELECT 0, l.file, 0, l.size FROM Files l WHERE l.bid = " + later +
        " AND NOT EXISTS (SELECT 1 FROM Files e WHERE e.file = l.file AND e.bid = " + earlier +
        ") UNION ALL "
        "SELECT 1, l.file, (SELECT e.size FROM Files e WHERE e.file = l.file AND e.bid = " +
        earlier + " AND e.md5 <> l.md5 LIMIT 1), l.size FROM Files l WHERE l.bid = " + later +
        " AND EXISTS (SELECT 1 FROM Files e WHERE e.file = l.file AND e.bid = " + earlier +
        " AND e.md5 <> l.md5) AND NOT EXISTS (SELECT 1 FROM Files e WHERE e.file = l.file AND "
        "e.bid = " +
        earlier +
        " AND e.md5 = l.md5) UNION ALL "
        "SELECT 2, e.file, e.size, 0 FROM Files e WHERE e.bid = " +
        earlier +
        " AND NOT EXISTS (SELECT 1 FROM Files l WHERE l.file = e.file AND l.bid = " + later +
        ") ORDER BY 2, 1";
    return query(statement, [&](const CCatalogueReader::Row& row) {
        RunChange found;
        found.kind = row[0] == "0"   ? RunChange::Kind::kAdded
                     : row[0] == "1" ? RunChange::Kind::kChanged
                                     : RunChange::Kind::kRemoved;
        found.path = StoredPathBytes(std::string(row[1]));
        found.before = Size(row[2]);
        found.after = Size(row[3]);
        change(found);
    });
}

const char* ChangeWord(RunChange::Kind kind) {
    switch (kind) {
    case RunChange::Kind::kAdded:
        return "added";
    case RunChange::Kind::kChanged:
        return "changed";
    case RunChange::Kind::kRemoved:
        break;
    }
    return "removed";
}
