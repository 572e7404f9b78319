#pragma once

// A folder held open, so that files made, renamed and removed in it stay in the folder that
// was opened, whatever its path names by then (a drive unplugged and another mounted in its
// place). On Linux it is a descriptor that every call works relative to; on Windows the
// folder's path, held open so that it cannot be removed or renamed meanwhile.
//
// Anonymous files (Linux O_TMPFILE on ext4, xfs, btrfs, tmpfs) are files with no name that a
// link gives a name once they are complete; a killed process leaves nothing of them. Windows
// has none.

#include "platform/modFileIO.h"

#include <string>

class COpenFolder {
public:
    COpenFolder() = default;
    ~COpenFolder();
    COpenFolder(const COpenFolder&) = delete;
    COpenFolder& operator=(const COpenFolder&) = delete;

    // 0 or the error (ENOENT when there is no such folder).
    int Open(const std::string& path);
    const std::string& Path() const { return m_path; }
    FileIdentity Identity() const { return m_identity; }

    // A new private file named `name` in this folder, open for reading and writing; kNoFile with
    // `error` set (EEXIST when the name is taken).
    NativeFile CreateNew(const std::string& name, int& error) const;
    // Gives the entry `name` of this folder the path `destination`, never replacing an entry
    // there (EEXIST): 0 or the error.
    int RenameNoReplace(const std::string& name, const std::string& destination) const;
    // Removes the file `name` of this folder: 0 or the error.
    int Remove(const std::string& name) const;
    // What the path `name` below this folder names, links followed, as StatusOf tells it: one
    // look that walks only the part below (a run asks the store for every file it meets).
    PathStatus Status(const std::string& name) const;

    // Whether this folder's file system makes anonymous files.
    bool HasAnonymousFiles() const;
    // A new private anonymous file in this folder's file system, open for reading and writing;
    // kNoFile with `error` set.
    NativeFile CreateAnonymous(int& error) const;
    // A path that names the anonymous file `file` while it is open, for copies and lines.
    static std::string AnonymousPath(NativeFile file);
    // Gives the anonymous file `file` the path `destination`, never replacing an entry there
    // (EEXIST): 0 or the error.
    static int LinkAnonymous(NativeFile file, const std::string& destination);
    // Whether a flush of the whole file system misses what files of this folder hold in their
    // own buffers (FUSE file systems): each file is then flushed by itself.
    bool NeedsFlushPerFile() const;

private:
    NativeFile m_handle = kNoFile;
    std::string m_path;
    FileIdentity m_identity;
};
