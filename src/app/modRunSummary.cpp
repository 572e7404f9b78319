#include "app/modRunSummary.h"

#include "support/CByteProgress.h"

namespace {

std::string Counted(int64_t count, const char* one, const char* many) {
    return GroupedCount(count) + " " + (count == 1 ? one : many);
}

} // namespace

std::string GroupedCount(int64_t count) {
    std::string digits = std::to_string(count < 0 ? -count : count);
    for (size_t at = digits.size(); at > 3; at -= 3)
        digits.insert(at - 3, ",");
    return (count < 0 ? "-" : "") + digits;
}

std::vector<std::string>
RunSummaryLines(const std::vector<std::pair<std::string, RunTally>>& sources) {
    std::vector<std::string> lines;
    if (sources.empty()) return lines;
    RunTally all;
    size_t problems = 0;
    for (const auto& [source, tally] : sources) {
        all.added += tally.added;
        all.addedBytes += tally.addedBytes;
        all.stored += tally.stored;
        problems += tally.problems.size();
    }
    lines.push_back("Added " + Counted(all.added, "new file", "new files") + ", " +
                    ByteSizeText(static_cast<uint64_t>(all.addedBytes)) + "; " +
                    GroupedCount(all.stored) + " already stored; " +
                    (problems == 0
                         ? std::string("no problems")
                         : Counted(static_cast<int64_t>(problems), "problem", "problems")) +
                    ".");
    for (const auto& [source, tally] : sources) {
        std::string line = source + ": " + Counted(tally.seen, "file", "files") + ", " +
                           GroupedCount(tally.added) + " new (" +
                           ByteSizeText(static_cast<uint64_t>(tally.addedBytes)) + "), " +
                           GroupedCount(tally.stored) + " already stored";
        std::string left;
        const std::pair<int64_t, const char*> out[] = {{tally.empty, "empty"},
                                                       {tally.hidden, "hidden"},
                                                       {tally.system, "system"},
                                                       {tally.excluded, "excluded"},
                                                       {tally.unreadable, "unreadable"}};
        for (const auto& [count, what] : out)
            if (count > 0) left += (left.empty() ? "" : ", ") + GroupedCount(count) + " " + what;
        if (!left.empty()) line += "; left out: " + left;
        lines.push_back(line + ".");
        for (const std::string& problem : tally.problems)
            lines.push_back("  " + problem);
    }
    return lines;
}
