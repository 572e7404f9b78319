#pragma once

// An exclusive lock held on a file for as long as the object keeps it open: the lock of a
// backup folder (QRV.lock on the backup drive) and the one-instance lock of a user (QRV.lock in
// the state folder). The lock goes with the file's closing, also when the process dies.

#include "platform/modFileStatus.h"

#include <string>

class CLockFile {
public:
    enum class Attempt {
        kLocked,
        kBusy,        // another process holds it
        kUnsupported, // the file system cannot lock at all (some network and FUSE file systems)
        kFailed,
    };

    CLockFile() = default;
    ~CLockFile();
    CLockFile(CLockFile&& other) noexcept;
    CLockFile& operator=(CLockFile&& other) noexcept;

    // Opens `path`, making it (private to the user) when it is missing, through a link only
    // with `throughLinks`; `writable` asks for writing too, which a lock does not need. False
    // with Error() set.
    bool Open(const std::string& path, bool writable, bool throughLinks = false);
    // Tries once to take the lock, without waiting.
    Attempt TryLock();
    FileIdentity Identity() const { return m_identity; }
    // The system's error number of the last step that failed.
    int Error() const { return m_error; }
    void Close();

private:
    intptr_t m_fd = -1; // a descriptor; on Windows a HANDLE (INVALID_HANDLE_VALUE is -1)
    int m_error = 0;
    FileIdentity m_identity;
};
