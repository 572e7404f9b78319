// Copies one file in one of three ways. All three share one data loop: copy_file_range, which
// lets the kernel move the bytes (or share extents) without a trip through user space, and a
// plain read/write loop with 1 MiB blocks where the file systems do not support it or where an
// observer must see the bytes. Sources are opened without following a symbolic link. Pending
// window messages run between blocks. Sources and destinations that are not regular files are
// refused without blocking (O_NONBLOCK), so a FIFO never hangs a copy. Files the copy creates
// get mode 0600 whatever the source's mode: the store holds private data.

#include "support/modFileCopy.h"

#include "platform/modPlatformPaths.h"
#include "support/modFSCommon.h"
#include "support/modNumText.h"
#include "support/modServices.h"
#include "support/modYield.h"

#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr size_t kBlockSize = size_t{1} << 20;

thread_local int t_lastSystemError = 0;

// Notes why a copy method failed; false, for the method to answer.
bool Failed(int error) {
    t_lastSystemError = error;
    return false;
}

// A file descriptor closed on every way out; Close() reports whether the close succeeded,
// which matters for writes that only fail when they reach the disk.
class FileHandle {
public:
    explicit FileHandle(int fd) : m_fd(fd) {}
    ~FileHandle() {
        if (m_fd >= 0) ::close(m_fd);
    }
    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;

    int Get() const { return m_fd; }
    bool Valid() const { return m_fd >= 0; }
    bool Close() {
        const int fd = m_fd;
        m_fd = -1;
        return ::close(fd) == 0;
    }

private:
    int m_fd;
};

bool IsRegular(int fd, off_t* size = nullptr) {
    struct stat st {};
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) return false;
    if (size) *size = st.st_size;
    return true;
}

// copy_file_range refuses some pairs of files (other file systems, device files, old
// kernels); the read/write loop then takes over at the same offsets.
bool RangeCopyUnsupported(int error) {
    return error == EXDEV || error == EINVAL || error == ENOSYS || error == EOPNOTSUPP ||
           error == EBADF || error == EPERM || error == ETXTBSY;
}

// Writes all `length` bytes at `*offset` (advanced), or at the file's own offset when null.
bool WriteAll(int fd, const char* data, size_t length, off_t* offset) {
    if (!offset) return FSWriteAll(fd, data, length);
    while (length > 0) {
        const ssize_t n = ::pwrite(fd, data, length, *offset);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        data += n;
        length -= static_cast<size_t>(n);
        *offset += n;
    }
    return true;
}

// Copies from the current offset of `in` until its end to `out`, at `*outOffset` when it is
// given (advanced), else at the current offset of `out`.
bool CopyData(int in, int out, off_t expected, ICopyObserver* observer, off_t* outOffset) {
    if (expected > static_cast<off_t>(kBlockSize)) ::posix_fadvise(in, 0, 0, POSIX_FADV_SEQUENTIAL);
    // One buffer per thread, kept: a fresh megabyte per file costs a map and an unmap each. A
    // copy started from the window's events (DoEvents below) may use it too: each piece is
    // written out before the events run.
    thread_local std::unique_ptr<char[]> buffer;
    bool useRange = observer == nullptr;
    off_t done = 0;
    for (;;) {
        ssize_t n = 0;
        if (useRange) {
            n = ::copy_file_range(in, nullptr, out, outOffset, kBlockSize, 0);
            // Some file systems answer 0 before the end; the plain loop finds the real end.
            if ((n < 0 && RangeCopyUnsupported(errno)) || (n == 0 && done < expected)) {
                useRange = false;
                continue;
            }
        } else {
            if (observer && observer->Stopped()) return Failed(ECANCELED);
            if (!buffer) buffer.reset(new char[kBlockSize]);
            n = ::read(in, buffer.get(), kBlockSize);
            if (n > 0 && !WriteAll(out, buffer.get(), static_cast<size_t>(n), outOffset))
                return Failed(errno);
            if (n > 0 && observer) observer->Written(buffer.get(), static_cast<size_t>(n));
        }
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return Failed(errno);
        if (n == 0) return true;
        done += n;
        DoEvents();
    }
}

// Copies into a file held open: as an open with `flags` would find it, the file being there
// (O_EXCL fails, O_TRUNC empties it), written from its start.
bool CopyIntoOpen(int in, off_t size, int out, int flags, ICopyObserver* observer) {
    if (flags & O_EXCL) return Failed(EEXIST);
    if ((flags & O_TRUNC) && ::ftruncate(out, 0) != 0) return Failed(errno);
    off_t offset = 0;
    return CopyData(in, out, size, observer, &offset);
}

// Copies `source` over `destination`, opened with O_WRONLY | O_CREAT | `flags` (or held open).
bool CopyInto(const std::string& source, const CopyDestination& destination, int flags,
              ICopyObserver* observer) {
    FileHandle in(
        ::open(source.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | O_NOFOLLOW));
    off_t size = 0;
    if (!in.Valid()) return Failed(errno);
    if (!IsRegular(in.Get(), &size)) return Failed(0);
    if (destination.fd >= 0) return CopyIntoOpen(in.Get(), size, destination.fd, flags, observer);
    FileHandle out(::open(destination.path.c_str(),
                          O_WRONLY | O_CREAT | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | flags,
                          kPrivateFileMode));
    if (!out.Valid()) return Failed(errno);
    if (!IsRegular(out.Get())) return Failed(0);
    const bool copied = CopyData(in.Get(), out.Get(), size, observer, nullptr);
    // A write that only fails when it reaches the disk fails the close.
    if (!out.Close()) return Failed(errno);
    return copied;
}

} // namespace

CopyMethods DefaultCopyMethods() {
    CopyMethods methods;
    methods.mode1 = [](const std::string& source, const CopyDestination& destination,
                       ICopyObserver* observer) {
        return CopyInto(source, destination, O_EXCL, observer);
    };
    methods.mode2 = [](const std::string& source, const CopyDestination& destination,
                       ICopyObserver* observer) {
        return CopyInto(source, destination, O_TRUNC, observer);
    };
    methods.mode3 = [](const std::string& source, const CopyDestination& destination,
                       ICopyObserver* observer) {
        return CopyInto(source, destination, 0, observer);
    };
    return methods;
}

CopyMethods& ActiveCopyMethods() {
    static CopyMethods methods = DefaultCopyMethods();
    return methods;
}

int LastCopySystemError() {
    return t_lastSystemError;
}

bool CopyFileByMode(const std::string& source, const CopyDestination& destination, int32_t mode,
                    ICopyObserver* observer) {
    return CopyByMode(source, destination, mode, observer,
                      [](int32_t level, const std::string& line) { Log(level, line); });
}

bool CopyByMode(const std::string& source, const CopyDestination& destination, int32_t mode,
                ICopyObserver* observer, const CopyLineSink& sink) {
    const CopyMethods& methods = ActiveCopyMethods();
    bool result = false;
    t_lastSystemError = 0;
    try {
        if (observer) observer->Restart();
        switch (mode) {
        case 1:
            methods.mode1(source, destination, observer); // its own answer is not looked at
            result = true;
            break;
        case 2:
            result = methods.mode2(source, destination, observer);
            break;
        case 3:
            result = methods.mode3(source, destination, observer);
            break;
        default:
            break;
        }
    } catch (...) {
        // A method that raises is a copy that failed; the caller's size check decides.
        result = false;
    }
    sink(3, "CopyMode = " + NumText(mode) + ". Returned: " + (result ? "True" : "False"));
    return result;
}
