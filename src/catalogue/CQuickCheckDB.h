#pragma once

// The quick check's own data file beside the catalogue (db/QuickCheck.db): for each source, the
// stamps of the files of its last committed run with the signature and length each was recorded
// with. The catalogue's tables never hold any of it, so the catalogue's format stays as it is.
//
// The file is a cache and nothing more: a missing, damaged or stale file only means that the
// next run reads every file. Nothing here reports through the error handler or shows a box;
// a file that cannot be read is replaced by an empty one when the data is next saved.

#include "support/modFSCommon.h"

#include <cstdint>
#include <string>
#include <vector>

// One file of a run as the quick check keeps it.
struct QuickCheckRow {
    std::string path; // as the run listed it, bytes unchanged
    FileStamp stamp;
    std::string signature;
    int64_t length = 0;
    bool operator==(const QuickCheckRow&) const = default;
};

// Which run of a source the kept rows belong to.
struct QuickCheckRun {
    int32_t bid = 0;
    std::string datebk;
    bool operator==(const QuickCheckRun&) const = default;
};

class CQuickCheckDB {
public:
    // The data file that belongs with the catalogue at `cataloguePath`.
    static std::string PathBeside(const std::string& cataloguePath);

    // The rows kept for `source` when they belong to `run`; false, with nothing in `rows`, when
    // the file is missing, unreadable, or holds another run of the source.
    static bool Load(const std::string& file, const std::string& source, const QuickCheckRun& run,
                     std::vector<QuickCheckRow>& rows);
    // Replaces what is kept for `source` with `rows` of `run`, in one transaction; a file that
    // cannot be used is replaced by a new one first. False when nothing could be saved.
    static bool Save(const std::string& file, const std::string& source, const QuickCheckRun& run,
                     const std::vector<QuickCheckRow>& rows);
};
