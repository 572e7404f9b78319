#pragma once

// How a run over all sources ended, for whoever scheduled it: complete (every source backed up
// and committed), completed with problems (a source missing or not started, files unreadable
// or not stored, a run limit that is not a number), or lost (a source's run was not
// committed). Each problem is one line in plain words naming the source or file and the
// cause; a long list of files of one kind is cut short with a count.

#include "engine/SourceProblems.h"

#include <cstdint>
#include <string>
#include <vector>

class CRunOutcome {
public:
    enum class End { kComplete, kProblems, kLost };

    // The lines of one kind listed for a source before the rest are only counted.
    static constexpr size_t kListedPerKind = 50;

    void Clear();
    // The source was not backed up: `cause` says why ("it does not exist").
    void SourceSkipped(const std::string& source, const std::string& cause);
    void LimitInvalid(const std::string& text);
    // An error stopped the run: `error` is its text.
    void Stopped(const std::string& error);
    // An error after the last source's run was committed (the summary's time text of a backup
    // of 10 hours or more, a log that cannot be written): nothing was lost.
    void EndFailed(const std::string& error);
    void Add(const std::string& source, const SourceProblems& problems);

    End Ended() const;
    // 0 complete, 4 completed with problems, 5 a run was lost.
    int ExitStatus() const;
    const std::vector<std::string>& Lines() const { return m_lines; }
    int32_t LostSources() const { return m_lost; }
    // The last line of an unattended run that did not end complete; empty when it did.
    std::string Verdict(const std::string& logFile) const;

private:
    std::vector<std::string> m_lines;
    int32_t m_lost = 0;
};

// Why the folder `source` cannot be backed up, in plain words.
std::string SourceProblem(const std::string& source);
