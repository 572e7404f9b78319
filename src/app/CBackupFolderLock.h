#pragma once

// Two programs never back up, compact or create the catalogue of one backup folder at once,
// whichever users or settings they run with: whoever works on a backup folder holds an
// exclusive lock on <backup path>/QRV.lock. The lock file lives on the backup drive itself, so
// every path that reaches the folder (a link, another mount point, "/./") meets the same lock.
// A program that finds the folder busy waits a little for it, then gives up.
//
// Within one process the lock nests: a step that takes it while an outer step of the same
// process holds it (a backup inside an unattended start) goes ahead at once.

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
    // for the user.
    bool Acquire(const std::string& backupPath, std::chrono::milliseconds wait = kDefaultWait);
    void Release();
    const std::string& Problem() const { return m_problem; }

    struct Held; // a lock file this process holds

private:
    Held* m_held = nullptr;
    std::string m_problem;
};

// Takes the lock of the current backup path for a step of the program; when it cannot, shows
// why (critical icon, title "QRV - Stashwell") and answers false.
bool LockBackupFolder(CBackupFolderLock& lock);
