#pragma once

// The quick check's own data file beside the catalogue (db/QuickCheck.db): for each source, the
// stamps of its files as its committed runs read them, with the signature and length each was
// recorded with, and which committed run last kept them. The catalogue's tables never hold any
// of it, so the catalogue's format stays as it is.
//
// A row vouches for a content as long as the file keeps its stamp, whichever run noted it, so a
// run keeps the rows of the files it found unchanged as they are and writes only the others
// (Update). The rows are kept by folder and name: a run, which lists a folder's files together,
// reads the rows of one folder at a time (CQuickCheckLookup).
//
// The file is a cache and nothing more: a missing, damaged or stale file only means that the
// next run reads every file. Nothing here reports through the error handler or shows a box;
// a file that cannot be read is replaced by an empty one when the data is next saved.

#include "support/modFSCommon.h"

#include <cstdint>
#include <functional>
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
    // Rows handed over one at a time: calls `each` with every row, in order, until it answers
    // false; false when that happened or when the rows could not all be read.
    using Rows = std::function<bool(const std::function<bool(const QuickCheckRow&)>& each)>;

    // The data file that belongs with the catalogue at `cataloguePath`.
    static std::string PathBeside(const std::string& cataloguePath);
    // Where a path's folder ends and its name begins: the folder keeps its last separator.
    static size_t NameStart(const std::string& path);

    // The rows kept for `source` when they belong to `run`; false, with nothing in `rows`, when
    // the file is missing, unreadable, or holds another run of the source.
    static bool Load(const std::string& file, const std::string& source, const QuickCheckRun& run,
                     std::vector<QuickCheckRow>& rows);
    // Replaces what is kept for `source` with `rows` of `run`, in one transaction; a file that
    // cannot be used is replaced by a new one first. False when nothing could be saved.
    static bool Save(const std::string& file, const std::string& source, const QuickCheckRun& run,
                     const std::vector<QuickCheckRow>& rows);
    // The same with the rows streamed, so that none need be in memory at once.
    static bool Save(const std::string& file, const std::string& source, const QuickCheckRun& run,
                     const Rows& rows);
    // Keeps the source's rows for `run` as they are, except that the folders `reached` answers
    // false for and the paths of `gone` lose theirs, and `rows` are added, or replace those of
    // their paths; in one transaction. False, with nothing changed, when the file could not be
    // written.
    static bool Update(const std::string& file, const std::string& source, const QuickCheckRun& run,
                       const std::function<bool(const std::string& folder)>& reached,
                       const Rows& gone, const Rows& rows);
};
