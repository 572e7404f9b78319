#include "platform/COpenFolder.h"

#include "platform/modPlatformPaths.h"
#include "platform/modStatusOfStat_posix.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace {
constexpr long kFuseMagic = 0x65735546; // FUSE_SUPER_MAGIC
}

COpenFolder::~COpenFolder() {
    if (m_handle != kNoFile) ::close(static_cast<int>(m_handle));
}

int COpenFolder::Open(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return errno;
    struct stat st {};
    if (::fstat(fd, &st) != 0) {
        const int error = errno;
        ::close(fd);
        return error;
    }
    if (m_handle != kNoFile) ::close(static_cast<int>(m_handle));
    m_handle = fd;
    m_path = path;
    m_identity = {static_cast<uint64_t>(st.st_dev), static_cast<uint64_t>(st.st_ino)};
    return 0;
}

NativeFile COpenFolder::CreateNew(const std::string& name, int& error) const {
    const int fd = ::openat(static_cast<int>(m_handle), name.c_str(),
                            O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kPrivateFileMode);
    if (fd < 0) {
        error = errno;
        return kNoFile;
    }
    ::fchmod(fd, kPrivateFileMode); // whatever the umask; FAT cannot, no matter
    return fd;
}

int COpenFolder::RenameNoReplace(const std::string& name, const std::string& destination) const {
    const int folder = static_cast<int>(m_handle);
    if (::renameat2(folder, name.c_str(), AT_FDCWD, destination.c_str(), RENAME_NOREPLACE) == 0)
        return 0;
    if (errno != EINVAL && errno != ENOSYS) return errno;
    // This file system cannot refuse a replace by itself.
    struct stat st {};
    if (::lstat(destination.c_str(), &st) == 0) return EEXIST;
    return ::renameat(folder, name.c_str(), AT_FDCWD, destination.c_str()) == 0 ? 0 : errno;
}

int COpenFolder::Remove(const std::string& name) const {
    return ::unlinkat(static_cast<int>(m_handle), name.c_str(), 0) == 0 ? 0 : errno;
}

PathStatus COpenFolder::Status(const std::string& name) const {
    struct stat st {};
    if (::fstatat(static_cast<int>(m_handle), name.c_str(), &st, 0) != 0)
        return PathStatus::Missing(errno);
    return StatusOfStat(st);
}

bool COpenFolder::HasAnonymousFiles() const {
    // Anonymous files are linked into place through /proc.
    if (::access("/proc/self/fd", X_OK) != 0) return false;
    int error = 0;
    const NativeFile probe = CreateAnonymous(error);
    if (probe == kNoFile) return false;
    ::close(static_cast<int>(probe));
    return true;
}

NativeFile COpenFolder::CreateAnonymous(int& error) const {
    const int fd =
        ::openat(static_cast<int>(m_handle), ".", O_TMPFILE | O_RDWR | O_CLOEXEC, kPrivateFileMode);
    if (fd < 0) {
        error = errno;
        return kNoFile;
    }
    ::fchmod(fd, kPrivateFileMode); // whatever the umask
    return fd;
}

std::string COpenFolder::AnonymousPath(NativeFile file) {
    return "/proc/self/fd/" + std::to_string(file);
}

int COpenFolder::LinkAnonymous(NativeFile file, const std::string& destination) {
    // A link never replaces a file.
    return ::linkat(AT_FDCWD, AnonymousPath(file).c_str(), AT_FDCWD, destination.c_str(),
                    AT_SYMLINK_FOLLOW) == 0
               ? 0
               : errno;
}

bool COpenFolder::NeedsFlushPerFile() const {
    struct statfs fs {};
    return ::fstatfs(static_cast<int>(m_handle), &fs) == 0 && fs.f_type == kFuseMagic;
}
