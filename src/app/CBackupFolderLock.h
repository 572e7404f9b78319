#pragma once

// Two programs never back up, compact or create the catalogue of one backup folder at once,
// whichever users or settings they run with: whoever works on a backup folder holds an
// exclusive lock on <backup path>/QRV.lock. The lock file lives on the backup drive itself, so
// every path that reaches the folder (a link, another mount point, "/./") meets the same lock.
// A program that finds the folder busy waits a little for it, then gives up.
//
// Within one process the lock nests: a step that takes it while an outer step of the same
// process holds it (a backup inside an unattended start) goes ahead at once.
//
// A file system that cannot lock at all (flock answers ENOLCK, EOPNOTSUPP, ENOSYS or EINVAL:
// some network and FUSE file systems) is no reason to refuse the work: the program goes on
// without the lock and writes one "Problem: " line per process to the log, naming the lock
// file and the risk (another program could work on the folder at the same time). The run's
// outcome, and so its exit status, is not changed by it.

#include <chrono>
#include <string>

class CBackupFolderLock {
public:
    static constexpr std::chrono::milliseconds kDefaultWait{5000};

    CBackupFolderLock() = default;
    ~CBackupFolderLock();
    CBackupFolderLock(const CBackupFolderLock&) = delete;
    CBackupFolderLock& operator=(const CBackupFolderLock&) = delete;

    // Takes the lock of `backupPath`, trying for up to `wait`. False when another program holds
    // it all that time or the lock file cannot be opened; Problem() then says which, in words
    // for the user, and Busy() whether it was another program. True also when the file system
    // cannot lock: Unlocked() then says why the folder is not protected.
    bool Acquire(const std::string& backupPath, std::chrono::milliseconds wait = kDefaultWait);
    void Release();
    const std::string& Problem() const { return m_problem; }
    bool Busy() const { return m_busy; }
    const std::string& Unlocked() const { return m_unlocked; }

    struct Held; // a lock file this process holds

private:
    Held* m_held = nullptr;
    std::string m_problem;
    std::string m_unlocked;
    bool m_busy = false;
};

// Takes the lock of the current backup path for a step of the program; when it cannot, shows
// why (critical icon, title "QRV - Stashwell") and answers false.
bool LockBackupFolder(CBackupFolderLock& lock);
