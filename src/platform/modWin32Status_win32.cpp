#include "platform/modWin32Status.h"

#include "platform/modWin32Error.h"
#include "platform/modWin32Text.h"

#include <cerrno>
#include <limits>

namespace {
constexpr int64_t kUnitsFrom1601To1970 = 116444736000000000LL;
}

FILETIME FileTimeOf(int64_t ns) {
    const int64_t hundreds = ns / 100 - (ns % 100 < 0 ? 1 : 0);
    const auto units = static_cast<uint64_t>(hundreds + kUnitsFrom1601To1970);
    FILETIME time;
    time.dwLowDateTime = static_cast<DWORD>(units & 0xFFFFFFFFu);
    time.dwHighDateTime = static_cast<DWORD>(units >> 32);
    return time;
}

int64_t NanosecondsOf(const FILETIME& time) {
    const int64_t units =
        static_cast<int64_t>((uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime);
    if (units == 0) return 0;
    const int64_t since1970 = units - kUnitsFrom1601To1970;
    constexpr int64_t kMost = std::numeric_limits<int64_t>::max() / 100;
    if (since1970 > kMost) return kMost * 100;
    if (since1970 < -kMost) return -kMost * 100;
    return since1970 * 100;
}

PathKind KindOfAttributes(DWORD attributes, DWORD reparseTag) {
    if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) && IsReparseTagNameSurrogate(reparseTag))
        return PathKind::kLink;
    if (attributes & FILE_ATTRIBUTE_DIRECTORY) return PathKind::kFolder;
    if (attributes & FILE_ATTRIBUTE_DEVICE) return PathKind::kOther;
    return PathKind::kFile;
}

PathStatus StatusOfInformation(const BY_HANDLE_FILE_INFORMATION& info, DWORD reparseTag) {
    PathStatus status;
    status.kind = KindOfAttributes(info.dwFileAttributes, reparseTag);
    status.size = (uint64_t{info.nFileSizeHigh} << 32) | info.nFileSizeLow;
    status.identity = {info.dwVolumeSerialNumber,
                       (uint64_t{info.nFileIndexHigh} << 32) | info.nFileIndexLow};
    status.writeNs = NanosecondsOf(info.ftLastWriteTime);
    status.accessNs = NanosecondsOf(info.ftLastAccessTime);
    status.changeNs = NanosecondsOf(info.ftCreationTime);
    status.readOnly = (info.dwFileAttributes & FILE_ATTRIBUTE_READONLY) != 0;
    status.mode = info.dwFileAttributes & kWindowsModeAttributes;
    return status;
}

DWORD ReparseTagOfHandle(HANDLE file) {
    FILE_ATTRIBUTE_TAG_INFO tag{};
    if (!::GetFileInformationByHandleEx(file, FileAttributeTagInfo, &tag, sizeof tag) ||
        !(tag.FileAttributes & FILE_ATTRIBUTE_REPARSE_POINT))
        return 0;
    return tag.ReparseTag;
}

DWORD ReparseTagOfPath(const std::wstring& path) {
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || !(attributes & FILE_ATTRIBUTE_REPARSE_POINT))
        return 0;
    WIN32_FIND_DATAW found{};
    const HANDLE find = ::FindFirstFileW(path.c_str(), &found);
    if (find == INVALID_HANDLE_VALUE) return 0;
    ::FindClose(find);
    return (found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) ? found.dwReserved0 : 0;
}

int PathErrno(const std::string& path, DWORD error) {
    if (error != ERROR_PATH_NOT_FOUND && error != ERROR_DIRECTORY) return ErrnoFromWin32(error);
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

std::string JoinWin32(const std::string& folder, const std::string& name) {
    if (folder.empty() || folder.back() == '\\' || folder.back() == '/') return folder + name;
    return folder + '\\' + name;
}
