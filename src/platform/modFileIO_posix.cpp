#include "platform/modFileIO.h"

#include "platform/modPlatformPaths.h"
#include "platform/modStatusOfStat_posix.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

static_assert(kStoppedError == ECANCELED);

NativeFile OpenFileHandle(const std::string& path, OpenMode mode, int& error) {
    int flags = O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    switch (mode) {
    case OpenMode::kRead:
        flags |= O_RDONLY | O_NOFOLLOW;
        break;
    case OpenMode::kReadThrough:
        flags |= O_RDONLY;
        break;
    case OpenMode::kCreateNew:
        flags |= O_WRONLY | O_CREAT | O_EXCL;
        break;
    case OpenMode::kCreateOrEmpty:
        flags |= O_WRONLY | O_CREAT | O_TRUNC;
        break;
    case OpenMode::kCreateOrKeep:
        flags |= O_WRONLY | O_CREAT;
        break;
    }
    const int fd = ::open(path.c_str(), flags, kPrivateFileMode);
    if (fd < 0) error = errno;
    return fd;
}

int CloseFileHandle(NativeFile file) {
    return ::close(static_cast<int>(file)) == 0 ? 0 : errno;
}

PathStatus StatusOfOpen(NativeFile file) {
    struct stat st {};
    if (::fstat(static_cast<int>(file), &st) != 0) return PathStatus::Missing(errno);
    return StatusOfStat(st);
}

int64_t ReadBytes(NativeFile file, char* data, size_t size, uint64_t* offset, int& error) {
    for (;;) {
        const ssize_t n =
            offset ? ::pread(static_cast<int>(file), data, size, static_cast<off_t>(*offset))
                   : ::read(static_cast<int>(file), data, size);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            error = errno;
            return -1;
        }
        if (offset) *offset += static_cast<uint64_t>(n);
        return n;
    }
}

bool WriteBytes(NativeFile file, const char* data, size_t size, uint64_t* offset, int& error) {
    while (size > 0) {
        const ssize_t n =
            offset ? ::pwrite(static_cast<int>(file), data, size, static_cast<off_t>(*offset))
                   : ::write(static_cast<int>(file), data, size);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            error = n < 0 ? errno : EIO;
            return false;
        }
        data += n;
        size -= static_cast<size_t>(n);
        if (offset) *offset += static_cast<uint64_t>(n);
    }
    return true;
}

int64_t CopyBytes(NativeFile in, NativeFile out, uint64_t* offset, size_t size, int& error) {
    for (;;) {
        off_t at = offset ? static_cast<off_t>(*offset) : 0;
        const ssize_t n = ::copy_file_range(static_cast<int>(in), nullptr, static_cast<int>(out),
                                            offset ? &at : nullptr, size, 0);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            // Pairs of files it refuses (other file systems, devices, old kernels) are copied
            // by the caller's own loop.
            const int e = errno;
            const bool unsupported = e == EXDEV || e == EINVAL || e == ENOSYS || e == EOPNOTSUPP ||
                                     e == EBADF || e == EPERM || e == ETXTBSY;
            error = unsupported ? ENOSYS : e;
            return -1;
        }
        if (offset) *offset = static_cast<uint64_t>(at);
        return n;
    }
}

int TruncateTo(NativeFile file, uint64_t size) {
    return ::ftruncate(static_cast<int>(file), static_cast<off_t>(size)) == 0 ? 0 : errno;
}

int FlushToDisk(NativeFile file) {
    return ::fsync(static_cast<int>(file)) == 0 ? 0 : errno;
}

void AdviseSequential(NativeFile file) {
    ::posix_fadvise(static_cast<int>(file), 0, 0, POSIX_FADV_SEQUENTIAL);
}
