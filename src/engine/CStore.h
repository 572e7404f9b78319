#pragma once

// The content-addressed store that a backup run writes into, <backup path>/Files: every content
// once, as ab/cd/<signature>.QRV.
//
// A store file's content always has the signature of its name, whatever the source does while
// it is read: new content is first staged, copied (by FSCopyFile's tries, lines and size check)
// into a file of the store that has no store name yet while the copy signs the bytes it writes,
// and then placed under the name of the signature of what it holds, never replacing a store
// file that is there already. A source that changed after the run signed it is thus stored,
// and must be recorded, under the signature of the bytes that were copied.
//
// Content is staged one of two ways, with the same names, placing and clean-up:
//   anonymous  where the file system has anonymous files (O_TMPFILE: ext4, xfs, btrfs, tmpfs),
//              a file with no name at all, linked into place; a killed run leaves nothing;
//   named      everywhere else (exFAT, FAT32, NTFS, NFS, SMB, and every Windows file system),
//              a file ".<name>.<random>.tmp" in the store, renamed into place.
// Content staged before its place is known (by the read-ahead's workers) waits in the store
// folder itself; the run's own copies wait beside their place. On a FUSE file system, whose
// own buffers a flush of the file system does not reach, each named file is flushed before it
// takes its store name.
//
// A run never creates anything above the store folder: it remembers the folder's identity
// (device and inode; volume and file index on Windows) when it opens the store, checks it before
// every write, and makes only the two levels of store folders (and the store folder itself when its
// backup folder, catalogue and all, is there without it). A drive unplugged, remounted or renamed
// during a run stops the run instead of filling the system disk under the old path.
//
// While a run writes, the store holds the mark ".unfinished"; a run that finds the mark of a
// killed run first removes the temporary files that the killed run left behind.

#include "engine/kvCryptDriver.h"
#include "platform/COpenFolder.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

enum class StagingWay { kAnonymous, kNamed };

// The lines a copy wrote off the run's thread, kept for the run to log.
using CopyLines = std::vector<std::pair<int32_t, std::string>>;

// New content copied into the store under no store name yet, with the signature of the bytes
// written. It vanishes unless the store places it.
class CStagedContent {
public:
    ~CStagedContent();
    CStagedContent(const CStagedContent&) = delete;
    CStagedContent& operator=(const CStagedContent&) = delete;

    const SignedContent& Content() const { return m_content; }

private:
    friend class CStore;
    CStagedContent() = default;

    // Where a copy writes it: an anonymous file through its handle (named, for the copy's
    // lines and for tests, by its /proc path); a named file by its path, so that the copy's
    // own close reports a write that failed on its way to a network drive.
    CopyDestination Destination() const { return {m_write, m_folder ? kNoFile : m_file}; }

    NativeFile m_file = kNoFile;           // the staged file
    std::shared_ptr<COpenFolder> m_folder; // where a named file was made; null if anonymous
    std::string m_name;                    // its name there
    std::string m_write;                   // its path
    bool m_placed = false;
    SignedContent m_content;
};

// Why content was not stored, in plain words, with the system's reason where there is one.
struct StoreFailure {
    std::string cause;
    int systemError = 0;
};

class CStore {
public:
    CStore() = default;
    ~CStore() { Close(); }
    CStore(const CStore&) = delete;
    CStore& operator=(const CStore&) = delete;

    // Why a copy into the store that ended as `outcome` stored nothing, in plain words.
    static StoreFailure CopyFailure(const CopyOutcome& outcome);

    // Whether stores opened from now on may stage in anonymous files where the file system has
    // them; on by default. Off, every store stages the named way, as on exFAT.
    static void UseAnonymousFiles(bool use);

    // Opens the store folder `root`, making it when the folder above it (the backup folder)
    // holds the catalogue db/Backup.db; error 68 when it cannot be had.
    void Open(const std::string& root);
    // Ends the run's writing: the mark goes.
    void Close();

    // Where the store keeps a backup file: `root`, then the name's first two characters, then
    // its third and fourth, then the name. Safe to call from any thread.
    static std::string StorePath(const std::string& root, const std::string& name);
    // The signature a store file's name stands for: the name without its ".QRV".
    static std::string SignatureOfName(const std::string& name);
    // The place of a signature's content in this store; safe to call from any thread.
    std::string Target(const std::string& signature) const;
    // The size of the store file of a signature's content, -1 when there is none (or a folder
    // stands there). Asked of the store folder opened; safe to call from any thread while the
    // store is open.
    double StoredSize(const std::string& signature) const;
    StagingWay Staging() const { return m_way; }

    // Error 68 unless the store folder is still the one that was opened.
    void CheckIdentity() const;
    // Creates the missing store folders of `target` (the two levels below the store folder);
    // false, with why, when the file system refuses one.
    bool CreateFolders(const std::string& target, StoreFailure* problem = nullptr);
    // Whether the store folder held a backup file of the earlier flat layout named `name` when
    // it was opened (the folder is read once, not asked per file).
    bool HoldsLegacy(const std::string& name) const { return m_legacy.count(name) > 0; }
    // Moves a backup file of the earlier flat layout to `target` and makes it private.
    bool MoveLegacy(const std::string& legacy, const std::string& target);

    // Copies `source` into the store through FSCopyFile's tries, size check and lines, signing
    // the bytes written, staged beside `beside`, the place where the content is expected to
    // go. Null, with why, when it failed.
    std::unique_ptr<CStagedContent> Stage(const std::string& source, const std::string& beside,
                                          StoreFailure& problem);
    // Gives staged content its store name; true once `target` holds that content (also when it
    // did already).
    bool Place(CStagedContent& staged, const std::string& target, StoreFailure& problem);
    // Stages `source` and places it under the signature of the bytes copied: normally
    // `target`, another place when the source changed since it was signed. The result is what
    // the store now holds for the source: an empty signature, with why, when nothing was
    // stored; a length of 0 (nothing stored) when the source was empty by then.
    SignedContent Copy(const std::string& source, const std::string& target, StoreFailure& problem);

    // What a copy made off the run's thread came to.
    struct AheadCopy {
        bool tried = false; // false: no staged file could be had; the run copies it itself
        std::unique_ptr<CStagedContent> staged; // null when the copy failed
        CopyOutcome outcome;                    // how the copy ended
        CopyLines lines;                        // its lines, for the run to log
    };
    // Stages `source` in the store folder as the run's own copy would, for the read-ahead's
    // workers: the same tries, size check and lines, kept instead of logged. Safe to call from
    // any thread while the store is open. Once `stop` is true the copy ends at its next piece.
    // `read`, when given, grows by every byte copied, as it is copied.
    AheadCopy StageAhead(const std::string& source, const std::atomic<bool>* stop,
                         std::atomic<uint64_t>* read = nullptr) const;

private:
    // A new staged file: anonymous, or named in `folder` (the store folder when empty). Safe
    // to call from any thread; null, with the system's reason in `error`, when the file system
    // refuses it.
    std::unique_ptr<CStagedContent> NewStaging(const std::string& folder, int& error) const;
    // The signature of the bytes a copy left in `staged` (`size` bytes, by its size check);
    // `signer` signed what the copy saw.
    SignedContent Finish(CStagedContent& staged, CSignatureStream& signer, double size) const;
    void RemoveTemporaries();
    // Removes the folders made for `target` when they are still empty.
    void RemoveEmptyFolders(const std::string& target);

    // Reads the names of the earlier flat layout's backup files in the store folder.
    void ReadLegacyNames();

    std::string m_root;
    // Store folders this run made or found, so that each is asked for once.
    std::unordered_set<std::string> m_folders;
    std::unordered_set<std::string> m_legacy;
    // Staged files go into the folder opened, whatever its path names now; it is closed when
    // its last staged file lets go.
    std::shared_ptr<COpenFolder> m_rootFolder;
    FileIdentity m_identity;
    bool m_open = false;
    StagingWay m_way = StagingWay::kNamed;
    bool m_flushEach = false; // named files are flushed one by one before they are placed
};
