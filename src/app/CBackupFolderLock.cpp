#include "app/CBackupFolderLock.h"

#include "app/modPaths.h"
#include "app/modRetention.h"
#include "platform/modPlatformPaths.h"
#include "support/modFSCommon.h"
#include "support/modMsgBox.h"
#include "support/modServices.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <list>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {
constexpr std::chrono::milliseconds kRetryEvery{100};

// flock's answers of a file system that cannot lock files at all.
bool LockUnsupported(int error) {
    return error == ENOLCK || error == EOPNOTSUPP || error == ENOSYS || error == EINVAL;
}
} // namespace

// A lock file this process holds, and how many steps hold it.
struct CBackupFolderLock::Held {
    dev_t device;
    ino_t inode;
    int fd;
    int holders;
};

namespace {
std::list<CBackupFolderLock::Held>& HeldLocks() {
    static std::list<CBackupFolderLock::Held> held;
    return held;
}

// Whether the log already tells that the lock file `st` names cannot be locked; marks it told.
bool ToldUnlocked(const struct stat& st) {
    static std::list<std::pair<dev_t, ino_t>> told;
    for (const auto& [device, inode] : told)
        if (device == st.st_dev && inode == st.st_ino) return true;
    told.emplace_back(st.st_dev, st.st_ino);
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
    const int fd =
        ::open(path.c_str(), O_RDONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, kPrivateFileMode);
    struct stat st {};
    if (fd < 0 || ::fstat(fd, &st) != 0) {
        m_problem =
            "Error: Cannot lock the backup folder " + backupPath + ": " + std::strerror(errno);
        if (fd >= 0) ::close(fd);
        return false;
    }
    for (Held& held : HeldLocks()) {
        if (held.device != st.st_dev || held.inode != st.st_ino) continue;
        ::close(fd); // held by an outer step of this process
        ++held.holders;
        m_held = &held;
        return true;
    }
    const auto deadline = std::chrono::steady_clock::now() + wait;
    while (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        const int error = errno;
        if (LockUnsupported(error)) {
            m_unlocked = "The file system of the backup folder cannot lock " + path + " (" +
                         FSPlainCause(error) +
                         "), so another program could work on the backup folder at the same time";
            break;
        }
        if (error != EWOULDBLOCK && error != EINTR) {
            m_problem =
                "Error: Cannot lock the backup folder " + backupPath + ": " + std::strerror(error);
            ::close(fd);
            return false;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            m_problem = "Error: Another Stashwell is working on the backup folder " + backupPath +
                        ". Please try again when it has finished.";
            m_busy = true;
            ::close(fd);
            return false;
        }
        std::this_thread::sleep_for(kRetryEvery);
    }
    // Held also without the lock, so that the steps inside go ahead and do not ask again.
    m_held = &HeldLocks().emplace_back(Held{st.st_dev, st.st_ino, fd, 1});
    if (!m_unlocked.empty() && !ToldUnlocked(st)) Log(1, kProblemMark + m_unlocked);
    return true;
}

void CBackupFolderLock::Release() {
    if (!m_held) return;
    if (--m_held->holders == 0) {
        ::close(m_held->fd); // closing the only descriptor releases the lock
        HeldLocks().remove_if([this](const Held& held) { return &held == m_held; });
    }
    m_held = nullptr;
}

bool LockBackupFolder(CBackupFolderLock& lock) {
    if (lock.Acquire(GetBackupPath())) return true;
    MsgBox(lock.Problem(), mb::kCritical | mb::kOKOnly, "QRV - Stashwell");
    return false;
}
