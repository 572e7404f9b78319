#pragma once

// The opt-in quick check of unchanged files. A file whose device, inode, size, modification
// time and change time equal those it had in the source's last committed run takes that run's
// signature without being read; every other file is read and signed as usual. What is traded:
// a file changed without any change of its size or times is not noticed.
//
// A run notes the stamp of each file it records, as the file was when it was read, and keeps
// them (CQuickCheckDB) once the run is committed. A stamp vouches for a content only when the
// file did not change while it was read, and when its times lie far enough before the run's
// start that a later change cannot leave them as they were (file-system clocks tick coarsely).

#include "catalogue/CQuickCheckDB.h"
#include "engine/kvCryptDriver.h"

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

class CQuickCheck {
public:
    // How long before the run's start a file's times must lie for its stamp to be kept.
    static constexpr int64_t kSettledNs = 2'000'000'000;

    // Loads the stamps kept for `source` when they belong to `last`, its last committed run;
    // `startNs` is the run's start on the wall clock, in nanoseconds since the epoch.
    CQuickCheck(const std::string& file, const std::string& source, const QuickCheckRun& last,
                int64_t startNs);

    // The content kept for `path` when `now` equals the stamp it had; safe to call from any
    // thread while nothing is noted.
    std::optional<SignedContent> Find(const std::string& path, const FileStamp& now) const;
    // Notes a file that the run records: its stamp as it was read, and the content recorded.
    void Note(const std::string& path, const FileStamp& stamp, const SignedContent& content);
    // Keeps what was noted as the stamps of `run`, the run just committed; false when the data
    // file could not be written (the next run then reads every file).
    bool Save(const QuickCheckRun& run) const;

    // How many kept stamps the run could use.
    size_t KeptCount() const { return m_kept.size(); }

private:
    std::string m_file;
    std::string m_source;
    int64_t m_settledBeforeNs;
    std::unordered_map<std::string, QuickCheckRow> m_kept;
    std::vector<QuickCheckRow> m_noted;
};
