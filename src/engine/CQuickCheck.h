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
#include "catalogue/CQuickCheckLookup.h"
#include "catalogue/CQuickCheckPending.h"
#include "engine/kvCryptDriver.h"

#include <atomic>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

// Neither the kept stamps nor those noted are all held in memory. A run lists a folder's files
// together, so the kept rows are read a folder at a time as the run reaches it, and the folders
// it has left are let go (only the folders' names stay); the rows noted wait in a temporary file
// until Save. Save keeps the rows of the files found unchanged as they are, writes those of the
// others, and takes away the rows of the files and folders the run no longer has: a run that
// changed nothing writes no row.
class CQuickCheck {
public:
    // How long before the run's start a file's times must lie for its stamp to be kept.
    static constexpr int64_t kSettledNs = 2'000'000'000;
    // The rows of a folder read at once; past them a folder's files are looked up one by one.
    static constexpr size_t kFolderRows = 16384;

    // Uses the stamps kept for `source` when they belong to `last`, its last committed run;
    // `startNs` is the run's start on the wall clock, in nanoseconds since the epoch;
    // `folderRows`: the rows of a folder read at once.
    CQuickCheck(const std::string& file, const std::string& source, const QuickCheckRun& last,
                int64_t startNs, size_t folderRows = kFolderRows);
    ~CQuickCheck();

    // The content kept for `path` when `now` equals the stamp it had; safe to call from any
    // thread until Save.
    std::optional<SignedContent> Find(const std::string& path, const FileStamp& now) const;
    // Notes a file that the run records: its stamp as it was read, and the content recorded;
    // `kept`: the content is what Find gave for that stamp.
    void Note(const std::string& path, const FileStamp& stamp, const SignedContent& content,
              bool kept = false);
    // Keeps what was noted as the stamps of `run`, the run just committed; false when the data
    // file could not be written (the next run then reads every file). Find finds nothing after.
    bool Save(const QuickCheckRun& run);

    // Whether the data file holds the stamps of the source's last committed run.
    bool HasKept() const { return m_kept.load(); }

private:
    struct KeptRow {
        FileStamp stamp;
        std::string signature;
        int64_t length = 0;
        bool asked = false; // a file of the run has this path
    };
    // Names are looked up as they stand in a path, without a copy.
    struct NameHash {
        using is_transparent = void;
        size_t operator()(std::string_view name) const {
            return std::hash<std::string_view>{}(name);
        }
    };
    struct KeptFolder {
        std::string folder;
        std::unordered_map<std::string, KeptRow, NameHash, std::equal_to<>> rows; // by name
        bool whole = false; // every row of the folder is here
    };

    // The cached rows of `folder`, read when they are not cached; the folders cached longest
    // go once there are too many. Called with m_mutex held.
    KeptFolder& FolderOf(std::string_view folder) const;
    // Notes the rows of `folder` that no file of the run asked for as gone.
    void LetGo(const KeptFolder& folder) const;

    std::string m_file;
    std::string m_source;
    int64_t m_settledBeforeNs;
    size_t m_folderRows;
    std::atomic<bool> m_kept = false;
    mutable std::mutex m_mutex;
    mutable CQuickCheckLookup m_lookup;
    mutable std::deque<KeptFolder> m_folders;
    mutable size_t m_cachedRows = 0;
    mutable std::unordered_set<std::string> m_reached; // the folders whose rows were read
    mutable CQuickCheckPending m_gone;
    CQuickCheckPending m_noted; // the run's thread's alone
};
