#include "platform/CLockFile.h"

#include "platform/modPlatformPaths.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

CLockFile::~CLockFile() {
    Close();
}

CLockFile::CLockFile(CLockFile&& other) noexcept
    : m_fd(std::exchange(other.m_fd, -1)), m_error(other.m_error), m_identity(other.m_identity) {}

CLockFile& CLockFile::operator=(CLockFile&& other) noexcept {
    if (this != &other) {
        Close();
        m_fd = std::exchange(other.m_fd, -1);
        m_error = other.m_error;
        m_identity = other.m_identity;
    }
    return *this;
}

bool CLockFile::Open(const std::string& path, bool writable, bool throughLinks) {
    Close();
    const int flags = (writable ? O_RDWR : O_RDONLY) | (throughLinks ? 0 : O_NOFOLLOW);
    m_fd = ::open(path.c_str(), flags | O_CREAT | O_CLOEXEC, kPrivateFileMode);
    struct stat st {};
    if (m_fd < 0 || ::fstat(m_fd, &st) != 0) {
        m_error = errno;
        Close();
        return false;
    }
    m_identity = {static_cast<uint64_t>(st.st_dev), static_cast<uint64_t>(st.st_ino)};
    return true;
}

CLockFile::Attempt CLockFile::TryLock() {
    while (::flock(m_fd, LOCK_EX | LOCK_NB) != 0) {
        m_error = errno;
        if (m_error == EINTR) continue;
        if (m_error == EWOULDBLOCK) return Attempt::kBusy;
        // flock's answers of a file system that cannot lock files at all.
        if (m_error == ENOLCK || m_error == EOPNOTSUPP || m_error == ENOSYS || m_error == EINVAL)
            return Attempt::kUnsupported;
        return Attempt::kFailed;
    }
    return Attempt::kLocked;
}

void CLockFile::Close() {
    if (m_fd >= 0) ::close(m_fd); // closing the only descriptor releases the lock
    m_fd = -1;
}
