#pragma once

// What the catalogue's rows do not keep of a run's entries, in its own file beside the catalogue
// (db/Metadata.db), so that the catalogue's tables stay as they are: for each file of a run its
// modification time and permission bits, for each folder its own, and the entries the catalogue
// does not list (empty files, and links with the text they hold), each with its owner and group.
// A run's record is written while the run goes on, in a transaction of its own, and kept only
// once the catalogue has committed the run, under the run's number and date: so it never names a
// run the catalogue does not have, and a run number used again later does not find the record
// of an earlier run. A run made without a record restores as it always did.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

struct EntryMetadata {
    enum class Kind : int { kFile = 0, kFolder = 1, kEmptyFile = 2, kLink = 3 };
    std::string path; // the entry's full path as the run met it, bytes unchanged
    Kind kind = Kind::kFile;
    int64_t writeNs = 0; // last write, nanoseconds since 1970 (UTC)
    uint32_t mode = 0;   // permission bits with setuid, setgid and sticky
    uint32_t owner = 0;
    uint32_t group = 0;
    std::string target; // kLink: the text the link holds, never followed
    bool operator==(const EntryMetadata&) const = default;
};

// What a run did, in numbers, kept with its record: the files the walk listed (after the
// hidden, system and exclusion rules), those whose content the store did not hold yet (stored by
// the run, each content's bytes once), those whose content it held already, and those left
// out: empty, hidden, system, excluded by name, unreadable; and the run's problems in words.
struct RunTally {
    int64_t seen = 0;
    int64_t added = 0;
    int64_t addedBytes = 0;
    int64_t stored = 0;
    int64_t empty = 0;
    int64_t hidden = 0;
    int64_t system = 0;
    int64_t excluded = 0;
    int64_t unreadable = 0;
    std::vector<std::string> problems;
    bool operator==(const RunTally&) const = default;
};

// A kept run's tally, with the run's number and date.
struct KeptTally {
    int32_t bid = 0;
    std::string datebk;
    RunTally tally;
    bool operator==(const KeptTally&) const = default;
};

class CMetadataDB {
public:
    CMetadataDB();
    ~CMetadataDB();
    CMetadataDB(const CMetadataDB&) = delete;
    CMetadataDB& operator=(const CMetadataDB&) = delete;

    // The data file that belongs with the catalogue at `cataloguePath`.
    static std::string PathBeside(const std::string& cataloguePath);

    // Starts the record of run `bid` in `file`, made private when new; a file that cannot be
    // used is replaced by a new one. False when no record can be written: the run goes on
    // without one.
    bool Begin(const std::string& file, int32_t bid);
    // Adds one entry, written on the record's own thread; false once an entry could not be
    // written (the record is then not kept).
    bool Add(EntryMetadata entry);
    // Keeps the record under the run's date, with its tally when given, after the catalogue
    // committed the run; false when it could not be kept.
    bool Keep(const std::string& datebk, const RunTally* tally = nullptr);
    // Gives the record up (also when the object ends before Keep).
    void Abandon();
    // Whether a record is begun and neither kept nor given up.
    bool Recording() const { return m_writer != nullptr; }

    // Drops the records of every run that `runs` (number and date) does not name, as the runs
    // go with retention, Delete and Compact. False when the file could not be changed.
    static bool KeepOnly(const std::string& file,
                         const std::vector<std::pair<int32_t, std::string>>& runs);
    // The tallies of every run kept with one, in the order of their numbers; none when the
    // file holds none or cannot be read.
    static std::vector<KeptTally> Tallies(const std::string& file);
    // Gives the space of dropped records back to the file system, as Compact does for the
    // catalogue. True when there is no record; false when it could not be compacted.
    static bool Vacuum(const std::string& file);

private:
    struct Writer;
    std::unique_ptr<Writer> m_writer;
};

// The record of one run, read: an entry by its path, or every entry of a kind in the order the
// run met them. Opened read-only; a run without a record (or a file that cannot be read) opens
// as none, and a restore then does what it always did.
class CMetadataReader {
public:
    CMetadataReader();
    ~CMetadataReader();
    CMetadataReader(const CMetadataReader&) = delete;
    CMetadataReader& operator=(const CMetadataReader&) = delete;

    // False when `file` holds no record of run `bid` of date `datebk`.
    bool Open(const std::string& file, int32_t bid, const std::string& datebk);
    std::optional<EntryMetadata> Find(const std::string& path);
    // Each entry directly in `folder` (not below its subfolders), in the order of its path.
    void InFolder(const std::string& folder,
                  const std::function<void(const EntryMetadata&)>& entry);
    std::vector<EntryMetadata> OfKind(EntryMetadata::Kind kind);

private:
    struct Reader;
    std::unique_ptr<Reader> m_reader;
};
