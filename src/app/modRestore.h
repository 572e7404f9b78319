#pragma once

// Restores files of one backup run: finds a file's row, works out where it goes (its own place,
// or the same path below another folder), copies the store file there with retries (over an
// existing file) and, when asked, checks the copy's signature against the store file's name.
// A failure is reported through the error handler and does not stop the caller's walk.
//
// A restore never writes outside the folder it was asked to write into: the run's source when
// files go back to their place, the chosen folder otherwise. A stored path that would lead out
// of it (a "." or ".." component, a path that is not below the run's source, a symbolic link on
// the way or in the target's place) is refused for that file. Folders and files that a restore
// creates get the user's default modes, and then, where the run's metadata record (CMetadataDB)
// has the file, the write time and permission bits it had, once its bytes are in place (and
// verified, when asked). The setuid, setgid and sticky bits and the owner come back only for a
// superuser, and those bits only into the original place. After the files, RestoreEntries
// makes the empty files, links and folders of the record again and gives the folders theirs.
// A run made before the record existed restores as it always did, and so does a restore told
// not to use it.
//
// Nor does one restore write two rows of the run to one place: a catalogue written before
// names kept their backslashes holds "q'r.txt" and "q\r.txt" of one folder as two rows of one
// stored path. The first row aimed at a place keeps it; a later one is refused by name.

#include "catalogue/ADOSQLite.h"
#include "catalogue/CMetadataDB.h"
#include "platform/modFileStatus.h"

#include <functional>
#include <string>
#include <unordered_set>
#include <vector>

// How the restore of one file ended.
struct RestoreOutcome {
    bool restored = false; // the target is a file of the store file's size
    bool verified = false; // and their signature is the store file's name (when asked)
    std::string target;    // where the file went (or was to go)
    std::string problem;   // why it was not restored or not verified, in words; "" when it was
};

// Why a row is not restored whose place an earlier row of the same restore took.
inline constexpr const char* kSamePlaceProblem = "another file of the run goes to the same place";

// Restores the files of one run to one destination, on one catalogue connection.
class CFileRestorer {
public:
    // `bid` is the run's id as text (the caption of lblBid), `destination` "" for each file's
    // own place.
    CFileRestorer(std::string bid, std::string destination, bool verify);

    // RestoreFile for the stored (encoded) file path `key`: every row of the run stored under
    // it, in the run's order, one outcome each; a key without a row is one failed outcome. A
    // verification mismatch shows one critical box.
    std::vector<RestoreOutcome> RestoreFile(const std::string& key);
    // The same for a row of the run that the caller has read already: its `file` and `backup`
    // values.
    RestoreOutcome RestoreRow(const std::string& file, const std::string& backup);
    // Where the stored file `file` goes (RestoreTarget with the run's source).
    std::string Target(const std::string& file);

    // Whether the run's metadata record is used (it is unless told otherwise); set before the
    // first file.
    void UseRecord(bool use) { m_useRecord = use; }
    // After the files: what the run's record holds besides them, for the entries `chosen`
    // picks. Missing folders are made (an empty one too); empty files are made, over a file
    // of the same name; links are made holding the text they held, never followed, in place of
    // a file or link that stands there (never of a folder); and then the folders get their
    // times and modes, the deepest first, so that nothing written into one changes its time
    // again. The folder restored into keeps its own when it was there before. One outcome for
    // each entry, in that order; none without a record.
    std::vector<RestoreOutcome>
    RestoreEntries(const std::function<bool(const EntryMetadata&)>& chosen);

private:
    const std::string& Source();
    bool OpenRecord();
    // Where the record's entry goes, with why it may not go there ("" when it may).
    std::string EntryTarget(const EntryMetadata& entry, std::string& problem);
    // Makes the record's folder, empty file or link in its place; an empty file or a link gets
    // its metadata at once, a folder only at the end.
    RestoreOutcome RestoreEntry(const EntryMetadata& entry);
    // Makes an empty file or a link at `outcome.target`, or raises the restore's error.
    void MakeLeaf(const EntryMetadata& entry, RestoreOutcome& outcome);
    void CreateFolders(const std::string& target);
    // Gives the restored `target` of the stored file `file`, whose status is `status`, what
    // the run's record kept of it; false when the record keeps nothing of it.
    bool RestoreMetadata(const std::string& file, const std::string& target,
                         const PathStatus& status);

    std::string m_bid;
    std::string m_destination;
    bool m_verify;
    bool m_useRecord = true;
    bool m_destinationWasThere = false; // the folder restored into (when not "") existed
    std::string m_store;                // the store folder of the backup path
    ADOSQLite m_db;
    bool m_sourceRead = false;
    std::string m_source;
    std::string m_datebk; // the run's date, read with its source
    CMetadataReader m_record;
    bool m_recordOpened = false;
    bool m_hasRecord = false;
    std::string m_lastFolder; // the folder of the last file restored: it exists, with no link
    std::unordered_set<std::string> m_taken; // the places of the rows restored so far
};

// Gives `target` the write time, permission bits and owner that `entry` recorded, as far as this
// process may (see above); `originalPlace`: the restore goes to the entry's own place. With
// the target's `status`, an owner or mode it has already is not set again. What cannot be set
// is logged at level 2 and never fails the restore.
void ApplyMetadata(const EntryMetadata& entry, const std::string& target, bool originalPlace,
                   const PathStatus* status = nullptr);

// Where the stored file `file` of a run of `source` goes: its own place when `destination` is
// "", else the same path below `destination`; in real bytes (StoredPathBytes).
std::string RestoreTarget(const std::string& file, const std::string& source,
                          const std::string& destination);

// One file, on a connection of its own.
void RestoreFile(const std::string& bid, const std::string& key, const std::string& destination,
                 bool verify);

// Why `target` may not be written by a restore into `folder`, or "" when it may: the part of
// `target` below `folder` must be a plain relative path (no ".", "..", or empty component), and
// nothing that exists on the way below `folder`, nor the target itself, may be a symbolic link.
// The folders of `checked` and above it (below `folder`) are known to be no links already.
std::string RestoreTargetProblem(const std::string& folder, const std::string& target,
                                 const std::string& checked = {});

// The restore tab's overwrite question ("QRV will overwrite any existing files with the same
// name. Is this OK?", OK and Cancel, question icon, title "QRV - Stashwell"): true for OK.
bool AskToOverwrite();
// The restore tab's folder pick ("Select alternate folder to restore to"): the folder, or "" when
// the person cancelled.
std::string AskRestoreFolder();
