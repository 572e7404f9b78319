#pragma once

// The content-addressed store that a backup run writes into, <backup path>/Files: every content
// once, as ab/cd/<signature>.QRV.
//
// A store file's content always has the signature of its name, whatever the source does while
// it is read: new content is copied into a fresh temporary file beside its place, the bytes are
// signed as they are written, and the file takes the name of the signature of what it holds.
// A source that changed after the run signed it is thus stored, and must be recorded, under
// the signature of the bytes that were copied.
//
// A run never creates the store folder or anything above it: it remembers the folder's
// identity (device and inode) when it opens the store, checks it before every write, and makes
// only the two levels of store folders. A drive unplugged, remounted or renamed during a run
// stops the run instead of filling the system disk under the old path.
//
// While a run writes, the store holds the mark ".unfinished"; a run that finds the mark of a
// killed run first removes the temporary files that the killed run left behind.

#include "engine/kvCryptDriver.h"

#include <string>
#include <sys/types.h>

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
    // its third and fourth, then the name.
    static std::string StorePath(const std::string& root, const std::string& name);
    // The place of a signature's content in this store.
    std::string Target(const std::string& signature) const;

    // Error 68 unless the store folder is still the one that was opened.
    void CheckIdentity() const;
    // Creates the missing store folders of `target` (the two levels below the store folder).
    void CreateFolders(const std::string& target);
    // Moves a backup file of the earlier flat layout to `target` and makes it private.
    bool MoveLegacy(const std::string& legacy, const std::string& target);
    // Copies `source` into the store, normally to `target`; when the bytes copied have another
    // signature, to that signature's place (or nowhere, when that content is stored already).
    // The result is what the store now holds for the source: an empty signature when the copy
    // failed, and a length of 0 (nothing stored) when the source was empty by then.
    SignedContent Copy(const std::string& source, const std::string& target);

private:
    SignedContent CopyToPlace(const std::string& source, const std::string& target);
    void RemoveTemporaries();

    std::string m_root;
    dev_t m_device = 0;
    ino_t m_inode = 0;
    bool m_open = false;
};
