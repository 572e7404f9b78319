#include "platform/modFileStatus.h"

#include "platform/modWin32Error.h"
#include "platform/modWin32Text.h"

#include <algorithm>
#include <cctype>
#include <cerrno>

// A path is asked through a handle opened only to read attributes, which every file and folder
// allows, with FILE_FLAG_BACKUP_SEMANTICS so that folders open too; its file information gives
// the kind, the size and the identity (volume serial number and file index).
// A file that cannot be opened even so (a system file held open without sharing, such as the
// page file) is still told by its attributes, without an identity.
//
// Links are the reparse points that stand for another name: symbolic links and junctions
// (mount points). Other reparse points (a cloud file's placeholder, a deduplicated file) are the
// file itself to the user and are answered as files.

namespace {

bool IsLinkTag(DWORD tag) {
    return IsReparseTagNameSurrogate(tag);
}

PathKind KindOf(DWORD attributes) {
    if (attributes & FILE_ATTRIBUTE_DIRECTORY) return PathKind::kFolder;
    if (attributes & FILE_ATTRIBUTE_DEVICE) return PathKind::kOther;
    return PathKind::kFile;
}

// The reparse tag of the link itself at `path`, 0 when it is no reparse point.
DWORD ReparseTag(const std::wstring& path) {
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || !(attributes & FILE_ATTRIBUTE_REPARSE_POINT))
        return 0;
    // Only a listing tells the tag without opening the file.
    WIN32_FIND_DATAW found{};
    const HANDLE find = ::FindFirstFileW(path.c_str(), &found);
    if (find == INVALID_HANDLE_VALUE) return 0;
    ::FindClose(find);
    return (found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) ? found.dwReserved0 : 0;
}

// The attributes and size of what is at `path`, without opening it; GetFileAttributesExW fails
// on a file held open without any sharing (the page file), where a listing of it still answers.
bool AttributesOf(const std::wstring& path, DWORD& attributes, uint64_t& size) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (::GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data)) {
        attributes = data.dwFileAttributes;
        size = (uint64_t{data.nFileSizeHigh} << 32) | data.nFileSizeLow;
        return true;
    }
    WIN32_FIND_DATAW found{};
    const HANDLE find = ::FindFirstFileW(path.c_str(), &found);
    if (find == INVALID_HANDLE_VALUE) return false;
    ::FindClose(find);
    attributes = found.dwFileAttributes;
    size = (uint64_t{found.nFileSizeHigh} << 32) | found.nFileSizeLow;
    return true;
}

// Windows says "path not found" also when a part of the path on the way is a file; Linux's
// ENOTDIR for that case is found by looking at the nearest part that is there.
int NotFoundError(const std::string& path) {
    std::string above = path;
    for (;;) {
        while (!above.empty() && (above.back() == '\\' || above.back() == '/'))
            above.pop_back();
        const size_t cut = above.find_last_of("\\/");
        if (cut == std::string::npos) return ENOENT;
        above.resize(cut);
        if (above.empty() || above.back() == ':') return ENOENT;
        const DWORD attributes = ::GetFileAttributesW(WidePath(above).c_str());
        if (attributes != INVALID_FILE_ATTRIBUTES)
            return (attributes & FILE_ATTRIBUTE_DIRECTORY) ? ENOENT : ENOTDIR;
    }
}

} // namespace

PathStatus StatusOf(const std::string& path, bool ofLink) {
    PathStatus status;
    const std::wstring wide = WidePath(path);
    DWORD flags = FILE_FLAG_BACKUP_SEMANTICS;
    if (ofLink) {
        DWORD attributes = 0;
        if (IsLinkTag(ReparseTag(wide)) && AttributesOf(wide, attributes, status.size)) {
            status.kind = PathKind::kLink;
            flags |= FILE_FLAG_OPEN_REPARSE_POINT;
        }
    }
    const HANDLE file = ::CreateFileW(wide.c_str(), FILE_READ_ATTRIBUTES,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, flags, nullptr);
    BY_HANDLE_FILE_INFORMATION info{};
    if (file != INVALID_HANDLE_VALUE) {
        const bool known = ::GetFileInformationByHandle(file, &info);
        const int error = known ? 0 : LastErrno();
        ::CloseHandle(file);
        if (known) {
            if (status.kind != PathKind::kLink) {
                status.kind = KindOf(info.dwFileAttributes);
                status.size = (uint64_t{info.nFileSizeHigh} << 32) | info.nFileSizeLow;
            }
            status.identity = {info.dwVolumeSerialNumber,
                               (uint64_t{info.nFileIndexHigh} << 32) | info.nFileIndexLow};
            return status;
        }
        if (status.kind == PathKind::kLink) return status;
        status.error = error;
    } else {
        const DWORD error = ::GetLastError();
        if (status.kind == PathKind::kLink) return status;
        status.error = ErrnoFromWin32(error);
        if (error == ERROR_PATH_NOT_FOUND || error == ERROR_DIRECTORY)
            status.error = NotFoundError(path);
    }
    // Not opened: told by its attributes when it is there at all.
    DWORD attributes = 0;
    if (status.error != ENOENT && status.error != ENOTDIR &&
        AttributesOf(wide, attributes, status.size)) {
        status.kind = KindOf(attributes);
        status.error = 0;
    }
    return status;
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
