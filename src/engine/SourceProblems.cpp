#include "engine/SourceProblems.h"

#include "support/modNumText.h"

namespace {

std::string Files(size_t count) {
    return NumText(static_cast<double>(count)) + (count == 1 ? " file" : " files");
}

void AddList(std::vector<std::string>& lines, const std::vector<std::string>& items,
             const std::string& lead, const std::string& source, const std::string& counted,
             size_t listed) {
    for (size_t i = 0; i < items.size() && i < listed; ++i)
        lines.push_back(lead + items[i]);
    if (items.size() > listed)
        lines.push_back("... and " + NumText(static_cast<double>(items.size() - listed)) +
                        " more of " + source + " that " + counted);
}

} // namespace

std::vector<std::string> ProblemLines(const std::string& source, const SourceProblems& problems,
                                      size_t listedPerKind) {
    std::vector<std::string> lines;
    AddList(lines, problems.unreadableFolders, "Could not read the folder ", source,
            "could not be read", listedPerKind);
    AddList(lines, problems.unreadableFiles, "Could not read ", source, "could not be read",
            listedPerKind);
    if (!problems.unreadableFiles.empty())
        lines.push_back(Files(problems.unreadableFiles.size()) + " of " + source +
                        " could not be read");
    AddList(lines, problems.notStored, "Not backed up: ", source, "were not backed up",
            listedPerKind);
    AddList(lines, problems.recordedNotStored, "Recorded but not stored: ", source,
            "were recorded but not stored", listedPerKind);
    if (!problems.lost.empty())
        lines.push_back("The run of " + source + " was lost: " + problems.lost);
    if (!problems.afterCommit.empty())
        lines.push_back("The run of " + source +
                        " was saved, but a step after saving it failed: " + problems.afterCommit);
    return lines;
}
