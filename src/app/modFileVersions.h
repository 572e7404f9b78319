#pragma once

// "Find in all runs" without the window: every run that holds a file whose name answers a
// person's search (NameMatches on the last component of the file's path, in real bytes), its
// rows grouped by content. The rows of one path with one signature are one version of that
// file, held by each of its runs; so a person sees that five runs hold the same content and
// another run holds other content. The runs are read first; then the files' rows stream past
// once (CatalogueQuery) and only the matching ones are kept.
//
// A version is restored from one of its runs as the restore tab restores a file: to its own
// place after the overwrite question, or below a folder the person picks, with the backup
// folder's lock held meanwhile so that no compact takes its store file away. Only the chosen
// row is restored, even where an older catalogue holds two rows under one stored path.

#include "app/modRestore.h"
#include "app/modRunDiff.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// One run's row of a version.
struct VersionRun {
    std::string bid;
    std::string source;
    std::string datebk; // the run's date as stored, shown as it stands
    std::string file;   // the row's stored (encoded) path: what a restore reads
    std::string backup; // the row's store file
    bool operator==(const VersionRun&) const = default;
};

// One content of one file.
struct FileVersion {
    std::string path; // the file's full path, in real bytes
    std::string md5;  // its signature
    uint64_t size = 0;
    std::vector<VersionRun> runs; // the runs that hold it, the newest first
    bool operator==(const FileVersion&) const = default;
};

struct VersionsFound {
    // In the byte order of their paths; the versions of one path by their newest run, the
    // newest first.
    std::vector<FileVersion> versions;
    size_t files = 0; // the paths among them
    size_t runs = 0;  // the runs that hold any of them
};

// Every version of every file whose name answers `search`. An empty search finds nothing (it
// would list every file of every run). False when the catalogue could not be read; `found`
// then holds nothing.
bool FindFileVersions(const CatalogueQuery& query, const std::string& search, VersionsFound& found);

// What was found, in words: "3 versions of 2 files in 5 runs", "1 version of 1 file in 1 run",
// or "No file in any run matches".
std::string VersionsSummary(const VersionsFound& found);
// What a version's row says of the runs that hold it: "1 run", "3 runs".
std::string VersionRunsText(const FileVersion& version);

// Restores the row `run` into `destination` ("" for its own place), verified when `verify`,
// holding the backup folder's lock. Nothing when the lock cannot be had (that was shown).
std::optional<RestoreOutcome> RestoreVersion(const VersionRun& run, const std::string& destination,
                                             bool verify);
// The dialog's Restore: the overwrite question, then RestoreVersion to its own place. Nothing
// when the person declined.
std::optional<RestoreOutcome> cmdRestoreVersion_Click(const VersionRun& run, bool verify);
// The dialog's Restore to: the folder pick, then RestoreVersion below it. Nothing when the
// person cancelled.
std::optional<RestoreOutcome> cmdRestoreVersionTo_Click(const VersionRun& run, bool verify);

// How a restore of a version ended, in words: "Restored <target>", "Restored <target>, but it
// failed verification", "Could not restore <target>: <problem>".
std::string VersionRestoreText(const RestoreOutcome& outcome);
