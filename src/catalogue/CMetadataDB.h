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
    // Adds one entry; false once an entry could not be added (the record is then not kept).
    bool Add(const EntryMetadata& entry);
    // Keeps the record under the run's date, after the catalogue committed the run; false when
    // it could not be kept.
    bool Keep(const std::string& datebk);
    // Gives the record up (also when the object ends before Keep).
    void Abandon();
    // Whether a record is begun and neither kept nor given up.
    bool Recording() const { return m_writer != nullptr; }

    // Drops the records of every run that `runs` (number and date) does not name, as the runs
    // go with retention, Delete and Compact. False when the file could not be changed.
    static bool KeepOnly(const std::string& file,
                         const std::vector<std::pair<int32_t, std::string>>& runs);

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
    std::vector<EntryMetadata> OfKind(EntryMetadata::Kind kind);

private:
    struct Reader;
    std::unique_ptr<Reader> m_reader;
};
