#include "app/CBackupFolderLock.h"

#include "support/modFSCommon.h"
#include "support/modPlatformPaths.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <thread>
#include <unistd.h>

namespace {
constexpr std::chrono::milliseconds kRetryEvery{100};
}

CBackupFolderLock::~CBackupFolderLock() {
    Release();
}

bool CBackupFolderLock::Acquire(const std::string& backupPath, std::chrono::milliseconds wait) {
    Release();
    m_problem.clear();
    const std::string path = FSBuildPath(backupPath, "QRV.lock");
    // Opened for reading only: a lock needs no more, and so a backup folder on a drive that
    // another user prepared can be locked as long as the file can be read.
    int fd = ::open(path.c_str(), O_RDONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, kPrivateFileMode);
    if (fd < 0) {
        m_problem =
            "Error: Cannot lock the backup folder " + backupPath + ": " + std::strerror(errno);
        return false;
    }
    const auto deadline = std::chrono::steady_clock::now() + wait;
    while (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR) {
            m_problem =
                "Error: Cannot lock the backup folder " + backupPath + ": " + std::strerror(errno);
            ::close(fd);
            return false;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            m_problem = "Error: Another Stashwell is working on the backup folder " + backupPath +
                        ". Please try again when it has finished.";
            ::close(fd);
            return false;
        }
        std::this_thread::sleep_for(kRetryEvery);
    }
    m_fd = fd;
    return true;
}

void CBackupFolderLock::Release() {
    if (m_fd < 0) return;
    ::close(m_fd); // closing the only descriptor releases the lock
    m_fd = -1;
}
