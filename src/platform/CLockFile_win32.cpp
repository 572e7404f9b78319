#include "platform/CLockFile.h"

#include "platform/modWin32.h"
#include "platform/modWin32Error.h"
#include "platform/modWin32Text.h"

#include <cerrno>
#include <utility>

// The lock is LockFileEx's exclusive lock on the whole file (every byte there can ever be),
// taken without waiting. Windows lets it go when the handle is closed, also when the process
// dies. The file is opened with every kind of sharing, so that others may open it to try the lock.

namespace {

bool IsLink(HANDLE file) {
    FILE_ATTRIBUTE_TAG_INFO tag{};
    return ::GetFileInformationByHandleEx(file, FileAttributeTagInfo, &tag, sizeof tag) &&
           (tag.FileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) &&
           IsReparseTagNameSurrogate(tag.ReparseTag);
}

bool LockWhole(HANDLE file) {
    OVERLAPPED from{};
    return ::LockFileEx(file, LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0, MAXDWORD,
                        MAXDWORD, &from);
}

} // namespace

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
    // Without `throughLinks` a link is opened as itself and refused, as O_NOFOLLOW refuses it.
    const HANDLE file = ::CreateFileW(
        WidePath(path).c_str(), writable ? GENERIC_READ | GENERIC_WRITE : GENERIC_READ,
        FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_ALWAYS,
        FILE_ATTRIBUTE_NORMAL | (throughLinks ? 0 : FILE_FLAG_OPEN_REPARSE_POINT), nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        m_error = LastErrno();
        return false;
    }
    m_fd = AsNumber(file);
    BY_HANDLE_FILE_INFORMATION info{};
    if (!throughLinks && IsLink(file)) {
        m_error = ELOOP;
    } else if (!::GetFileInformationByHandle(file, &info)) {
        m_error = LastErrno();
    } else {
        m_identity = {info.dwVolumeSerialNumber,
                      (uint64_t{info.nFileIndexHigh} << 32) | info.nFileIndexLow};
        return true;
    }
    Close();
    return false;
}

CLockFile::Attempt CLockFile::TryLock() {
    const HANDLE file = AsHandle(m_fd);
    if (LockWhole(file)) return Attempt::kLocked;
    DWORD error = ::GetLastError();
    // A handle that holds the lock already keeps it, as a second flock on one descriptor does:
    // its own lock is let go and taken again.
    if (error == ERROR_LOCK_VIOLATION && ::UnlockFile(file, 0, 0, MAXDWORD, MAXDWORD)) {
        if (LockWhole(file)) return Attempt::kLocked;
        error = ::GetLastError();
    }
    switch (error) {
    case ERROR_LOCK_VIOLATION:
    case ERROR_IO_PENDING:
        m_error = EWOULDBLOCK;
        return Attempt::kBusy;
    // The answers of a file system that cannot lock files at all.
    case ERROR_NOT_SUPPORTED:
    case ERROR_INVALID_FUNCTION:
    case ERROR_INVALID_PARAMETER:
        m_error = ErrnoFromWin32(error);
        return Attempt::kUnsupported;
    default:
        m_error = ErrnoFromWin32(error);
        return Attempt::kFailed;
    }
}

void CLockFile::Close() {
    if (m_fd >= 0) ::CloseHandle(AsHandle(m_fd)); // closing the only handle lets the lock go
    m_fd = -1;
}
