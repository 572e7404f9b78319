#include "platform/modFileIO.h"

#include "platform/modWin32.h"
#include "platform/modWin32Error.h"
#include "platform/modWin32Security.h"
#include "platform/modWin32Status.h"
#include "platform/modWin32Text.h"

#include <algorithm>
#include <cerrno>

// A NativeFile holds a HANDLE (INVALID_HANDLE_VALUE is kNoFile). Files are opened with every
// kind of sharing, as descriptors on Linux share everything: other programs may read, write,
// rename and remove a file the program holds open, and the store renames its staged files while
// it still holds them. A file made here is private to the user (PrivateAttributes), as one made
// with mode 0600 on Linux, whatever its folder passes on. A source is not followed through a link:
// a symbolic link or junction opened as itself is refused with ELOOP, as O_NOFOLLOW refuses it.
// Reads and writes at an offset leave the file's own position where it was, as pread and
// pwrite do.

namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
// The most one ReadFile or WriteFile call is given.
constexpr size_t kMostPerCall = size_t{1} << 30;

OVERLAPPED At(uint64_t offset) {
    OVERLAPPED at{};
    at.Offset = static_cast<DWORD>(offset);
    at.OffsetHigh = static_cast<DWORD>(offset >> 32);
    return at;
}

// Keeps the file's own position through a read or write at an offset, which moves it.
class CKeptPosition {
public:
    explicit CKeptPosition(HANDLE file) : m_file(file) {
        m_kept = ::SetFilePointerEx(file, LARGE_INTEGER{}, &m_position, FILE_CURRENT);
    }
    ~CKeptPosition() {
        if (m_kept) ::SetFilePointerEx(m_file, m_position, nullptr, FILE_BEGIN);
    }
    CKeptPosition(const CKeptPosition&) = delete;
    CKeptPosition& operator=(const CKeptPosition&) = delete;

private:
    HANDLE m_file;
    LARGE_INTEGER m_position{};
    BOOL m_kept = FALSE;
};

// The error of a failed open of `path` for writing: a folder there is EISDIR, as on Linux.
int WriteOpenError(const std::string& path, const std::wstring& wide, DWORD error) {
    if (error == ERROR_ACCESS_DENIED) {
        const DWORD attributes = ::GetFileAttributesW(wide.c_str());
        if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY))
            return EISDIR;
    }
    return PathErrno(path, error);
}

// Opens a source without following a link: opened as itself first, then again through it
// when it is a reparse point that stands for no other name (a cloud file, a deduplicated file).
HANDLE OpenSource(const std::string& path, const std::wstring& wide, bool throughLinks,
                  int& error) {
    // FILE_FLAG_BACKUP_SEMANTICS lets a folder open too, as on Linux: the caller sees a folder.
    const DWORD flags = FILE_ATTRIBUTE_NORMAL | FILE_FLAG_BACKUP_SEMANTICS;
    HANDLE file = ::CreateFileW(wide.c_str(), GENERIC_READ, kShareAll, nullptr, OPEN_EXISTING,
                                flags | (throughLinks ? 0 : FILE_FLAG_OPEN_REPARSE_POINT), nullptr);
    if (file != INVALID_HANDLE_VALUE && !throughLinks) {
        const DWORD tag = ReparseTagOfHandle(file);
        if (tag != 0) {
            ::CloseHandle(file);
            if (IsReparseTagNameSurrogate(tag)) {
                error = ELOOP;
                return INVALID_HANDLE_VALUE;
            }
            file = ::CreateFileW(wide.c_str(), GENERIC_READ, kShareAll, nullptr, OPEN_EXISTING,
                                 flags, nullptr);
        }
    }
    if (file == INVALID_HANDLE_VALUE) error = PathErrno(path, ::GetLastError());
    return file;
}

HANDLE OpenForWriting(const std::string& path, const std::wstring& wide, OpenMode mode,
                      int& error) {
    // A new file is made where the name is free; CREATE_NEW never opens what is there, a link
    // included, as O_EXCL does not.
    const bool fresh = mode == OpenMode::kCreateNew;
    const HANDLE file =
        ::CreateFileW(wide.c_str(), GENERIC_WRITE, kShareAll, PrivateAttributes(),
                      fresh ? CREATE_NEW : OPEN_ALWAYS,
                      FILE_ATTRIBUTE_NORMAL | (fresh ? FILE_FLAG_OPEN_REPARSE_POINT : 0), nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        error = WriteOpenError(path, wide, ::GetLastError());
        return file;
    }
    // Emptied in place, as O_TRUNC does: CREATE_ALWAYS would also replace the file's
    // attributes, and fails on a hidden or system file.
    if (mode == OpenMode::kCreateOrEmpty && !::SetEndOfFile(file)) {
        error = LastErrno();
        ::CloseHandle(file);
        return INVALID_HANDLE_VALUE;
    }
    return file;
}

} // namespace

NativeFile OpenFileHandle(const std::string& path, OpenMode mode, int& error) {
    const std::wstring wide = WidePath(path);
    const HANDLE file = mode == OpenMode::kRead || mode == OpenMode::kReadThrough
                            ? OpenSource(path, wide, mode == OpenMode::kReadThrough, error)
                            : OpenForWriting(path, wide, mode, error);
    return file == INVALID_HANDLE_VALUE ? kNoFile : AsNumber(file);
}

int CloseFileHandle(NativeFile file) {
    // Windows reports a write that fails on its way to the disk at the write or at a flush,
    // never at the close.
    return ::CloseHandle(AsHandle(file)) ? 0 : LastErrno();
}

PathStatus StatusOfOpen(NativeFile file) {
    const HANDLE handle = AsHandle(file);
    const DWORD type = ::GetFileType(handle);
    if (type != FILE_TYPE_DISK) {
        if (type == FILE_TYPE_UNKNOWN && ::GetLastError() != NO_ERROR)
            return PathStatus::Missing(LastErrno());
        PathStatus status; // a pipe, a console, a device
        status.kind = PathKind::kOther;
        return status;
    }
    BY_HANDLE_FILE_INFORMATION info{};
    if (!::GetFileInformationByHandle(handle, &info)) return PathStatus::Missing(LastErrno());
    return StatusOfInformation(info, ReparseTagOfHandle(handle));
}

int64_t ReadBytes(NativeFile file, char* data, size_t size, uint64_t* offset, int& error) {
    const HANDLE handle = AsHandle(file);
    const DWORD want = static_cast<DWORD>(std::min(size, kMostPerCall));
    DWORD got = 0;
    BOOL read = FALSE;
    if (offset) {
        const CKeptPosition kept(handle);
        OVERLAPPED at = At(*offset);
        read = ::ReadFile(handle, data, want, &got, &at);
    } else {
        read = ::ReadFile(handle, data, want, &got, nullptr);
    }
    if (!read) {
        const DWORD why = ::GetLastError();
        // A read at or past the end, and a pipe whose writer has gone, are the end.
        if (why == ERROR_HANDLE_EOF || why == ERROR_BROKEN_PIPE) return 0;
        error = ErrnoFromWin32(why);
        return -1;
    }
    if (offset) *offset += got;
    return got;
}

bool WriteBytes(NativeFile file, const char* data, size_t size, uint64_t* offset, int& error) {
    const HANDLE handle = AsHandle(file);
    while (size > 0) {
        const DWORD want = static_cast<DWORD>(std::min(size, kMostPerCall));
        DWORD written = 0;
        BOOL wrote = FALSE;
        if (offset) {
            const CKeptPosition kept(handle);
            OVERLAPPED at = At(*offset);
            wrote = ::WriteFile(handle, data, want, &written, &at);
        } else {
            wrote = ::WriteFile(handle, data, want, &written, nullptr);
        }
        if (!wrote || written == 0) {
            error = wrote ? EIO : LastErrno();
            return false;
        }
        data += written;
        size -= written;
        if (offset) *offset += written;
    }
    return true;
}

int64_t CopyBytes(NativeFile, NativeFile, uint64_t*, size_t, int& error) {
    // Windows has no copy between two open files (CopyFileExW takes names and makes its own
    // destination): the caller's own loop copies.
    error = ENOSYS;
    return -1;
}

int TruncateTo(NativeFile file, uint64_t size) {
    // Sets the end without moving the file's position, as ftruncate does.
    FILE_END_OF_FILE_INFO end{};
    end.EndOfFile.QuadPart = static_cast<LONGLONG>(size);
    return ::SetFileInformationByHandle(AsHandle(file), FileEndOfFileInfo, &end, sizeof end)
               ? 0
               : LastErrno();
}

int FlushToDisk(NativeFile file) {
    return ::FlushFileBuffers(AsHandle(file)) ? 0 : LastErrno();
}

void AdviseSequential(NativeFile) {
    // Nothing to do: Windows takes such a hint only when a file is opened
    // (FILE_FLAG_SEQUENTIAL_SCAN), and its cache finds a sequential read by itself.
}
