#pragma once

// What the backup of one source could not do, in plain words: the files and folders it could
// not read, a source it would not walk, the content it could not store (files recorded without
// their content among them), why the run's rows were not committed, and what failed after they
// were. The log keeps its own lines as they are; this is what the end of a run reports to whoever
// scheduled it.

#include <cstddef>
#include <string>
#include <vector>

struct SourceProblems {
    // Why the source was not walked at all (it lies inside the backup folder); empty when it was.
    std::string refused;
    std::vector<std::string> unreadableFiles;   // "<file>: <cause>"
    std::vector<std::string> unreadableFolders; // "<folder>: <cause>"
    std::vector<std::string> notStored;         // "<file>: <cause>", not recorded either
    std::vector<std::string> recordedNotStored; // "<file>: <cause>", recorded all the same
    std::string lost; // why the run's rows were not committed; empty when they were
    // What failed after the run's rows were committed (the run is saved all the same).
    std::string afterCommit;

    bool Any() const {
        return !refused.empty() || !unreadableFiles.empty() || !unreadableFolders.empty() ||
               !notStored.empty() || !recordedNotStored.empty() || !lost.empty() ||
               !afterCommit.empty();
    }
};

// The lines that tell `problems` of `source`, one per problem, in the order: folders and files
// that could not be read (with a count of the files), content not stored, the run lost, a step
// after saving that failed. Of each list only the first `listedPerKind` are named, the rest
// counted.
std::vector<std::string> ProblemLines(const std::string& source, const SourceProblems& problems,
                                      size_t listedPerKind);
