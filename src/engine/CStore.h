#pragma once

// The content-addressed store that a backup run writes into, <backup path>/Files: every content
// once, as ab/cd/<signature>.QRV.
//
// A store file's content always has the signature of its name, whatever the source does while
// it is read: new content is first staged, copied into a file of the store that has no store
// name yet while the copy signs the bytes it writes, and then placed under the name of the
// signature of what it holds. A source that changed after the run signed it is thus stored,
// and must be recorded, under the signature of the bytes that were copied. Where the file
// system allows, the staged file is anonymous (O_TMPFILE) and linked into place, so a killed
// run leaves nothing behind; elsewhere it has a temporary name beside its place.
//
// A run never creates the store folder or anything above it: it remembers the folder's
// identity (device and inode) when it opens the store, checks it before every write, and makes
// only the two levels of store folders. A drive unplugged, remounted or renamed during a run
// stops the run instead of filling the system disk under the old path.
//
// While a run writes, the store holds the mark ".unfinished"; a run that finds the mark of a
// killed run first removes the temporary files that the killed run left behind.

#include "engine/kvCryptDriver.h"

#include <memory>
#include <string>
#include <sys/types.h>
#include <unordered_set>

// New content copied into the store under no store name yet, with the signature of the bytes
// written. It vanishes unless the store places it.
class CStagedContent {
public:
    // Takes over `fd`, an anonymous file of the store (CStore::OpenAnonymous) holding exactly
    // the bytes that `content` signs.
    CStagedContent(int fd, SignedContent content);
    ~CStagedContent();
    CStagedContent(const CStagedContent&) = delete;
    CStagedContent& operator=(const CStagedContent&) = delete;

    const SignedContent& Content() const { return m_content; }

private:
    friend class CStore;
    CStagedContent() = default;

    int m_fd = -1;         // an anonymous file, or -1 for a named temporary file
    std::string m_path;    // where the copy wrote it
    bool m_placed = false; // a named temporary file that took its store name
    SignedContent m_content;
};

class CStore {
public:
    CStore() = default;
    ~CStore() { Close(); }
    CStore(const CStore&) = delete;
    CStore& operator=(const CStore&) = delete;

    // Opens the store folder `root`: error 68 when it is not an existing folder.
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
    // Whether content can be staged before its place is known (an anonymous file).
    bool StagesAnywhere() const { return m_anonymous; }
    // A new anonymous file of the store, private, open for reading and writing; -1 when the
    // store has none. Safe to call from any thread while the store is open.
    int OpenAnonymous() const;

    // Error 68 unless the store folder is still the one that was opened.
    void CheckIdentity() const;
    // Creates the missing store folders of `target` (the two levels below the store folder).
    void CreateFolders(const std::string& target);
    // Whether the store folder held a backup file of the earlier flat layout named `name` when
    // it was opened (the folder is read once, not asked per file).
    bool HoldsLegacy(const std::string& name) const { return m_legacy.count(name) > 0; }
    // Moves a backup file of the earlier flat layout to `target` and makes it private.
    bool MoveLegacy(const std::string& legacy, const std::string& target);

    // Copies `source` into the store with FSCopyFile, signing the bytes written: into an
    // anonymous file, or on a file system without them under a temporary name beside `beside`,
    // the place where the content is expected to go. Null when the copy failed.
    std::unique_ptr<CStagedContent> Stage(const std::string& source, const std::string& beside);
    // Gives staged content its store name; true once `target` holds that content (also when it
    // did already).
    bool Place(CStagedContent& staged, const std::string& target);
    // Stages `source` and places it under the signature of the bytes copied: normally
    // `target`, another place when the source changed since it was signed. The result is what
    // the store now holds for the source: an empty signature when the copy failed, a length of
    // 0 (nothing stored) when the source was empty by then.
    SignedContent Copy(const std::string& source, const std::string& target);

private:
    void RemoveTemporaries();
    // Removes the folders made for `target` when they are still empty.
    void RemoveEmptyFolders(const std::string& target);

    // Reads the names of the earlier flat layout's backup files in the store folder.
    void ReadLegacyNames();

    std::string m_root;
    // Store folders this run made or found, so that each is asked for once.
    std::unordered_set<std::string> m_folders;
    std::unordered_set<std::string> m_legacy;
    int m_rootFd = -1; // anonymous files go into the folder opened, whatever its path names now
    dev_t m_device = 0;
    ino_t m_inode = 0;
    bool m_open = false;
    bool m_anonymous = false;
};
