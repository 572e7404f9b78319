#include "app/CBackupFolderLock.h"

#include "app/modPaths.h"
#include "app/modRetention.h"
#include "platform/CLockFile.h"
#include "support/modFSCommon.h"
#include "support/modMsgBox.h"
#include "support/modServices.h"

#include <cstring>
#include <list>
#include <thread>

namespace {
constexpr std::chrono::milliseconds kRetryEvery{100};
} // namespace

// A lock file this process holds, and how many steps hold it.
struct CBackupFolderLock::Held {
    CLockFile file;
    int holders = 1;
};

namespace {
std::list<CBackupFolderLock::Held>& HeldLocks() {
    static std::list<CBackupFolderLock::Held> held;
    return held;
}

// Whether the log already tells that the lock file `identity` cannot be locked; marks it told.
bool ToldUnlocked(const FileIdentity& identity) {
    static std::list<FileIdentity> told;
    for (const FileIdentity& one : told)
        if (one == identity) return true;
    told.push_back(identity);
    return false;
}
} // namespace

CBackupFolderLock::~CBackupFolderLock() {
    Release();
}

bool CBackupFolderLock::Acquire(const std::string& backupPath, std::chrono::milliseconds wait) {
    Release();
    m_problem.clear();
    m_unlocked.clear();
    m_busy = false;
    const std::string path = FSBuildPath(backupPath, "QRV.lock");
    // Opened for reading only: a lock needs no more, and so a backup folder on a drive that
    // another user prepared can be locked as long as the file can be read.
    CLockFile file;
    if (!file.Open(path, false)) {
        m_problem = "Error: Cannot lock the backup folder " + backupPath + ": " +
                    std::strerror(file.Error());
        return false;
    }
    for (Held& held : HeldLocks()) {
        if (held.file.Identity() != file.Identity()) continue;
        ++held.holders; // held by an outer step of this process
        m_held = &held;
        return true;
    }
    const auto deadline = std::chrono::steady_clock::now() + wait;
    for (CLockFile::Attempt attempt; (attempt = file.TryLock()) != CLockFile::Attempt::kLocked;) {
        if (attempt == CLockFile::Attempt::kUnsupported) {
            m_unlocked = "The file system of the backup folder cannot lock " + path + " (" +
                         FSPlainCause(file.Error()) +
                         "), so another program could work on the backup folder at the same time";
            break;
        }
        if (attempt == CLockFile::Attempt::kFailed) {
            m_problem = "Error: Cannot lock the backup folder " + backupPath + ": " +
                        std::strerror(file.Error());
            return false;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            m_problem = "Error: Another Stashwell is working on the backup folder " + backupPath +
                        ". Please try again when it has finished.";
            m_busy = true;
            return false;
        }
        std::this_thread::sleep_for(kRetryEvery);
    }
    // Held also without the lock, so that the steps inside go ahead and do not ask again.
    const FileIdentity identity = file.Identity();
    m_held = &HeldLocks().emplace_back();
    m_held->file = std::move(file);
    if (!m_unlocked.empty() && !ToldUnlocked(identity)) Log(1, kProblemMark + m_unlocked);
    return true;
}

void CBackupFolderLock::Release() {
    if (!m_held) return;
    if (--m_held->holders == 0)
        HeldLocks().remove_if([this](const Held& held) { return &held == m_held; });
    m_held = nullptr;
}

bool LockBackupFolder(CBackupFolderLock& lock) {
    if (lock.Acquire(GetBackupPath())) return true;
    MsgBox(lock.Problem(), mb::kCritical | mb::kOKOnly, "QRV - Stashwell");
    return false;
}
