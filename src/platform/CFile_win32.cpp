#include "platform/CFile.h"

#include "platform/modWin32.h"
#include "platform/modWin32Error.h"
#include "platform/modWin32Security.h"
#include "platform/modWin32Status.h"
#include "platform/modWin32Text.h"

#include <algorithm>
#include <cerrno>
#include <utility>

// A file made here is private to the user (PrivateAttributes), as one made with mode 0600 on
// Linux, whatever its folder passes on; a file that is there keeps its security. Handles are not
// inherited by programs the process starts.

namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

} // namespace

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
    // A handle with FILE_APPEND_DATA and without FILE_WRITE_DATA writes at the end whatever its
    // position, so other writers of the same log are never overwritten.
    const bool append = mode == Mode::kAppend;
    const HANDLE file = ::CreateFileW(
        WidePath(path).c_str(), append ? FILE_APPEND_DATA | SYNCHRONIZE : GENERIC_WRITE, kShareAll,
        PrivateAttributes(), append ? OPEN_ALWAYS : CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        m_error = LastErrno();
        return false;
    }
    m_fd = AsNumber(file);
    return true;
}

bool CFile::WriteAll(std::string_view data) {
    while (!data.empty()) {
        const DWORD want = static_cast<DWORD>(std::min<size_t>(data.size(), 1u << 30));
        DWORD written = 0;
        if (!::WriteFile(AsHandle(m_fd), data.data(), want, &written, nullptr)) {
            m_error = LastErrno();
            return false;
        }
        if (written == 0) {
            m_error = EIO;
            return false;
        }
        data.remove_prefix(written);
    }
    return true;
}

void CFile::Close() {
    if (m_fd >= 0) ::CloseHandle(AsHandle(m_fd));
    m_fd = -1;
}

void MakePrivateFile(const std::string& path) {
    // CREATE_NEW never opens what is there, a link included (which is not followed).
    const HANDLE file =
        ::CreateFileW(WidePath(path).c_str(), GENERIC_WRITE, kShareAll, PrivateAttributes(),
                      CREATE_NEW, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    if (file != INVALID_HANDLE_VALUE) ::CloseHandle(file);
}

int RemoveFile(const std::string& path) {
    const std::wstring wide = WidePath(path);
    if (::DeleteFileW(wide.c_str())) return 0;
    const DWORD error = ::GetLastError();
    // A read-only file is removed as on Linux, where only the folder's permission counts.
    const DWORD attributes = ::GetFileAttributesW(wide.c_str());
    if (error == ERROR_ACCESS_DENIED && attributes != INVALID_FILE_ATTRIBUTES &&
        (attributes & FILE_ATTRIBUTE_READONLY) && !(attributes & FILE_ATTRIBUTE_DIRECTORY) &&
        ::SetFileAttributesW(wide.c_str(), attributes & ~FILE_ATTRIBUTE_READONLY)) {
        if (::DeleteFileW(wide.c_str())) return 0;
        const int again = LastErrno();
        ::SetFileAttributesW(wide.c_str(), attributes);
        return again;
    }
    return ErrnoFromWin32(error);
}

int RenameReplacing(const std::string& from, const std::string& to) {
    // With MOVEFILE_WRITE_THROUGH the call returns once the new name is on the disk.
    const std::wstring target = WidePath(to);
    if (::MoveFileExW(WidePath(from).c_str(), target.c_str(),
                      MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
        return 0;
    // A folder in the way is told as rename tells it on Linux, not as a refused access.
    const DWORD error = ::GetLastError();
    const DWORD attributes = ::GetFileAttributesW(target.c_str());
    if (error == ERROR_ACCESS_DENIED && attributes != INVALID_FILE_ATTRIBUTES &&
        (attributes & FILE_ATTRIBUTE_DIRECTORY))
        return EISDIR;
    return PathErrno(to, error);
}

bool SyncFolder(const std::string&) {
    // Nothing to do on Windows: a folder cannot be flushed through a handle of its own there
    // (FlushFileBuffers takes files and, for administrators only, whole volumes), and it needs
    // not be: NTFS logs every change of a name in its journal, and the renames that precede
    // this call (RenameReplacing, the store's writes) pass MOVEFILE_WRITE_THROUGH, which
    // returns only when the new name is on the disk.
    return true;
}

bool IsDiskFullError(int error) {
    // A full quota is ENOSPC too on Windows (see modWin32Error.h).
    return error == ENOSPC;
}
