#include "platform/CFile.h"

#include "platform/modPlatformPaths.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

CFile::~CFile() {
    Close();
}

CFile::CFile(CFile&& other) noexcept
    : m_fd(std::exchange(other.m_fd, -1)), m_error(other.m_error) {}

CFile& CFile::operator=(CFile&& other) noexcept {
    if (this != &other) {
        Close();
        m_fd = std::exchange(other.m_fd, -1);
        m_error = other.m_error;
    }
    return *this;
}

bool CFile::Open(const std::string& path, Mode mode) {
    Close();
    const int how = mode == Mode::kAppend ? O_APPEND : O_TRUNC;
    m_fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | how, kPrivateFileMode);
    if (m_fd < 0) m_error = errno;
    return m_fd >= 0;
}

bool CFile::WriteAll(std::string_view data) {
    while (!data.empty()) {
        const ssize_t n = ::write(m_fd, data.data(), data.size());
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            m_error = n < 0 ? errno : EIO;
            return false;
        }
        data.remove_prefix(static_cast<size_t>(n));
    }
    return true;
}

void CFile::Close() {
    if (m_fd >= 0) ::close(m_fd);
    m_fd = -1;
}

void MakePrivateFile(const std::string& path) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                          kPrivateFileMode);
    if (fd < 0) return; // there already, or the caller's own open reports why it is unusable
    ::fchmod(fd, kPrivateFileMode);
    ::close(fd);
}

int RemoveFile(const std::string& path) {
    return ::unlink(path.c_str()) == 0 ? 0 : errno;
}

int RenameReplacing(const std::string& from, const std::string& to) {
    return std::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

bool SyncFolder(const std::string& folder) {
    const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return false;
    const bool synced = ::fsync(fd) == 0;
    ::close(fd);
    return synced;
}

bool IsDiskFullError(int error) {
    return error == ENOSPC || error == EDQUOT;
}
