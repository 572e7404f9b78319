#include "platform/modFileStatus.h"

#include "platform/modWin32Error.h"
#include "platform/modWin32Status.h"
#include "platform/modWin32Text.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <string>

// A path is asked through a handle opened only to read attributes, which every file and folder
// allows, with FILE_FLAG_BACKUP_SEMANTICS so that folders open too; its file information gives
// the kind, the size, the identity (volume serial number and file index), the times and the
// read-only attribute. A file that cannot be opened even so (a system file held open without
// sharing, such as the page file) is still told by its attributes, without an identity.

namespace {

// What Windows tells of an entry without opening it. GetFileAttributesExW fails on a file held
// open without any sharing (the page file), where a listing of it still answers.
struct Listed {
    DWORD attributes = 0;
    uint64_t size = 0;
    FILETIME written{}, accessed{}, created{};
};

bool ListedOf(const std::wstring& path, Listed& listed) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (::GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data)) {
        listed = {data.dwFileAttributes, (uint64_t{data.nFileSizeHigh} << 32) | data.nFileSizeLow,
                  data.ftLastWriteTime, data.ftLastAccessTime, data.ftCreationTime};
        return true;
    }
    WIN32_FIND_DATAW found{};
    const HANDLE find = ::FindFirstFileW(path.c_str(), &found);
    if (find == INVALID_HANDLE_VALUE) return false;
    ::FindClose(find);
    listed = {found.dwFileAttributes, (uint64_t{found.nFileSizeHigh} << 32) | found.nFileSizeLow,
              found.ftLastWriteTime, found.ftLastAccessTime, found.ftCreationTime};
    return true;
}

// A status from what Windows tells without opening the entry, with no identity.
PathStatus StatusOfListed(const Listed& listed, PathKind kind) {
    PathStatus status;
    status.kind = kind;
    status.size = listed.size;
    status.writeNs = NanosecondsOf(listed.written);
    status.accessNs = NanosecondsOf(listed.accessed);
    status.changeNs = NanosecondsOf(listed.created);
    status.readOnly = (listed.attributes & FILE_ATTRIBUTE_READONLY) != 0;
    return status;
}

// A name for a probe file in a folder that no other process or thread of this one takes.
std::string ProbeName() {
    static std::atomic<unsigned> count{0};
    return "~swprobe-" + std::to_string(::GetCurrentProcessId()) + "-" +
           std::to_string(::GetTickCount()) + "-" + std::to_string(count++) + ".tmp";
}

// Whether a file may be made in `folder`: one is made there, and goes again as it is closed.
int FolderWriteError(const std::string& folder) {
    for (int tries = 0; tries < 10; ++tries) {
        const HANDLE probe = ::CreateFileW(
            WidePath(JoinWin32(folder, ProbeName())).c_str(), GENERIC_WRITE | DELETE, 0, nullptr,
            CREATE_NEW,
            FILE_ATTRIBUTE_TEMPORARY | FILE_ATTRIBUTE_HIDDEN | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
        if (probe != INVALID_HANDLE_VALUE) {
            ::CloseHandle(probe);
            return 0;
        }
        if (::GetLastError() != ERROR_FILE_EXISTS) return PathErrno(folder, ::GetLastError());
    }
    return EEXIST;
}

} // namespace

PathStatus StatusOf(const std::string& path, bool ofLink) {
    const std::wstring wide = WidePath(path);
    DWORD flags = FILE_FLAG_BACKUP_SEMANTICS;
    // A link asked as itself: its own attributes and times, and its own identity.
    Listed link;
    const bool isLink =
        ofLink && IsReparseTagNameSurrogate(ReparseTagOfPath(wide)) && ListedOf(wide, link);
    if (isLink) flags |= FILE_FLAG_OPEN_REPARSE_POINT;
    const HANDLE file = ::CreateFileW(wide.c_str(), FILE_READ_ATTRIBUTES,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, flags, nullptr);
    int error = 0;
    if (file != INVALID_HANDLE_VALUE) {
        BY_HANDLE_FILE_INFORMATION info{};
        const bool known = ::GetFileInformationByHandle(file, &info);
        error = known ? 0 : LastErrno();
        ::CloseHandle(file);
        if (known && isLink) {
            PathStatus status = StatusOfListed(link, PathKind::kLink);
            status.identity = StatusOfInformation(info, 0).identity;
            return status;
        }
        // A reparse point that is no link is the entry itself.
        if (known) return StatusOfInformation(info, 0);
    } else {
        error = PathErrno(path, ::GetLastError());
    }
    if (isLink) return StatusOfListed(link, PathKind::kLink);
    // Not opened: told by its attributes when it is there at all.
    Listed listed;
    if (error != ENOENT && error != ENOTDIR && ListedOf(wide, listed))
        return StatusOfListed(listed, KindOfAttributes(listed.attributes, 0));
    return PathStatus::Missing(error);
}

int WriteAccessError(const std::string& path) {
    const PathStatus status = StatusOf(path);
    if (!status.Exists()) return status.error;
    if (status.kind == PathKind::kFolder) return FolderWriteError(path);
    if (status.readOnly) return EACCES;
    // The rights the user has on the file: an open for writing that writes nothing. A file that
    // another program holds without sharing its writes is one the user may still write.
    const HANDLE file = ::CreateFileW(WidePath(path).c_str(), FILE_WRITE_DATA,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        const DWORD error = ::GetLastError();
        return error == ERROR_SHARING_VIOLATION ? 0 : PathErrno(path, error);
    }
    ::CloseHandle(file);
    return 0;
}

bool IsRunnableFile(const std::string& path) {
    if (StatusOf(path).kind != PathKind::kFile) return false;
    const size_t dot = path.find_last_of(".\\/");
    if (dot == std::string::npos || path[dot] != '.') return false;
    std::string extension = path.substr(dot);
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension == ".exe" || extension == ".com" || extension == ".bat" || extension == ".cmd";
}
