#include "platform/modFileSystem.h"

#include "platform/modWin32Error.h"
#include "platform/modWin32Security.h"
#include "platform/modWin32Status.h"
#include "platform/modWin32Text.h"

#include <aclapi.h>
#include <cerrno>
#include <vector>

// Paths are UTF-8 inside and UTF-16 at each call (\\?\ form when long, modWin32Text). Folders the
// program makes carry the private security (modWin32Security); restored folders get what their
// parent passes on. Links (symbolic links and junctions, modWin32Status) are removed as links
// and never followed.

const char kPathSeparator = '\\';

bool IsPathSeparator(char c) {
    return c == '\\' || c == '/';
}

bool IsAbsolutePath(const std::string& path) {
    const auto isLetter = [](char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); };
    if (path.size() >= 3 && isLetter(path[0]) && path[1] == ':' && IsPathSeparator(path[2]))
        return true;
    // \\server\share, and the \\?\ and \\.\ forms.
    return path.size() > 2 && IsPathSeparator(path[0]) && IsPathSeparator(path[1]);
}

namespace {

// Clears the read-only attribute of the entry that `attributes` describe, so that it can be
// removed (Linux asks only the folder's permission); true when it was set.
bool ClearReadOnly(const std::wstring& path, DWORD attributes) {
    return (attributes & FILE_ATTRIBUTE_READONLY) &&
           ::SetFileAttributesW(path.c_str(), attributes & ~FILE_ATTRIBUTE_READONLY);
}

bool IsLink(DWORD attributes, DWORD tag) {
    return (attributes & FILE_ATTRIBUTE_REPARSE_POINT) && IsReparseTagNameSurrogate(tag);
}

struct Entry {
    std::string name;
    DWORD attributes;
    DWORD tag;
};

void RemoveEntry(const std::string& path, const Entry& entry);

// Removes what the folder `folder` holds, as far as it can. The listing tells each entry's
// attributes and reparse tag, so a link is known as one before anything is done to it.
void RemoveContent(const std::string& folder) {
    std::vector<Entry> entries;
    WIN32_FIND_DATAW data{};
    const HANDLE find =
        ::FindFirstFileExW(WidePath(folder + "\\*").c_str(), FindExInfoBasic, &data,
                           FindExSearchNameMatch, nullptr, FIND_FIRST_EX_LARGE_FETCH);
    if (find == INVALID_HANDLE_VALUE) return;
    do {
        const std::string name = Narrow(data.cFileName);
        if (name == "." || name == "..") continue;
        const DWORD tag =
            (data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) ? data.dwReserved0 : 0;
        entries.push_back({name, data.dwFileAttributes, tag});
    } while (::FindNextFileW(find, &data));
    ::FindClose(find);
    for (const Entry& entry : entries)
        RemoveEntry(folder + "\\" + entry.name, entry);
}

void RemoveEntry(const std::string& path, const Entry& entry) {
    const std::wstring wide = WidePath(path);
    const bool folder = (entry.attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    const bool link = IsLink(entry.attributes, entry.tag);
    if (!folder) {
        // A file, or a link to a file: DeleteFileW removes a link itself.
        if (!::DeleteFileW(wide.c_str()) && !link && ClearReadOnly(wide, entry.attributes))
            ::DeleteFileW(wide.c_str());
        return;
    }
    // A junction or a link to a folder is removed as itself, with what it points to left alone.
    if (!link) RemoveContent(path);
    if (!::RemoveDirectoryW(wide.c_str()) && !link && ClearReadOnly(wide, entry.attributes))
        ::RemoveDirectoryW(wide.c_str());
}

// The drive part of `path` as it is written: "C:\" or "\\server\share\"; "" when it has none.
std::string WrittenDrive(const std::string& path) {
    if (path.size() >= 3 && path[1] == ':') return path.substr(0, 2) + "\\";
    size_t end = 2;
    for (int part = 0; part < 2 && end < path.size(); ++part) {
        while (end < path.size() && !IsPathSeparator(path[end]))
            ++end;
        if (end < path.size()) ++end;
    }
    std::string drive = path.substr(0, end);
    for (char& c : drive)
        if (c == '/') c = '\\';
    if (drive.back() != '\\') drive += '\\';
    return drive;
}

// `path` as the user writes it: without the \\?\ form that some calls answer with.
std::wstring WithoutLongForm(const std::wstring& path) {
    if (path.rfind(L"\\\\?\\UNC\\", 0) == 0) return L"\\\\" + path.substr(8);
    if (path.rfind(L"\\\\?\\", 0) == 0) return path.substr(4);
    return path;
}

} // namespace

int MakeFolder(const std::string& path) {
    CPrivateSecurity security;
    return ::CreateDirectoryW(WidePath(path).c_str(), security.Attributes())
               ? 0
               : PathErrno(path, ::GetLastError());
}

int RemoveFolder(const std::string& path) {
    const std::wstring wide = WidePath(path);
    if (::RemoveDirectoryW(wide.c_str())) return 0;
    const DWORD error = ::GetLastError();
    // A read-only folder is removed as on Linux, where only its parent's permission counts.
    const DWORD attributes = ::GetFileAttributesW(wide.c_str());
    if (error == ERROR_ACCESS_DENIED && attributes != INVALID_FILE_ATTRIBUTES &&
        (attributes & FILE_ATTRIBUTE_DIRECTORY) && ClearReadOnly(wide, attributes)) {
        if (::RemoveDirectoryW(wide.c_str())) return 0;
        const int again = LastErrno();
        ::SetFileAttributesW(wide.c_str(), attributes);
        return again;
    }
    return PathErrno(path, error);
}

void RemoveTree(const std::string& path) {
    const std::wstring wide = WidePath(path);
    const DWORD attributes = ::GetFileAttributesW(wide.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) return;
    const DWORD tag = (attributes & FILE_ATTRIBUTE_REPARSE_POINT) ? ReparseTagOfPath(wide) : 0;
    const bool folder = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    // A link goes, what it points to stays; a file that is no link is not a tree.
    if (IsLink(attributes, tag) || folder) {
        std::string trimmed = path;
        while (trimmed.size() > 1 && IsPathSeparator(trimmed.back()) &&
               trimmed[trimmed.size() - 2] != ':')
            trimmed.pop_back();
        RemoveEntry(trimmed, {std::string(), attributes, tag});
    }
}

int RenameNoReplace(const std::string& from, const std::string& to) {
    // Without MOVEFILE_REPLACE_EXISTING an entry at `to` is never replaced (EEXIST); without
    // MOVEFILE_COPY_ALLOWED another drive is refused (EXDEV).
    return ::MoveFileExW(WidePath(from).c_str(), WidePath(to).c_str(), 0)
               ? 0
               : PathErrno(to, ::GetLastError());
}

int MakeEntryPrivate(const std::string& path) {
    return MakeEntryPrivateW(WidePath(path));
}

int MakeOrdinaryFolder(const std::string& path) {
    return ::CreateDirectoryW(WidePath(path).c_str(), nullptr) ? 0
                                                               : PathErrno(path, ::GetLastError());
}

int GiveDefaultFileRights(const std::string& path) {
    // The file was made private; an empty, unprotected list of its own leaves it with what its
    // folder passes on, the rights any new file of the user gets there (as "icacls /reset").
    ACL empty{};
    if (!::InitializeAcl(&empty, sizeof empty, ACL_REVISION)) return LastErrno();
    std::wstring wide = WidePath(path);
    const DWORD error =
        ::SetNamedSecurityInfoW(wide.data(), SE_FILE_OBJECT,
                                DACL_SECURITY_INFORMATION | UNPROTECTED_DACL_SECURITY_INFORMATION,
                                nullptr, nullptr, &empty, nullptr);
    return error == ERROR_SUCCESS ? 0 : PathErrno(path, error);
}

int SetWriteTime(const std::string& path, int64_t ns) {
    const HANDLE entry = ::CreateFileW(
        WidePath(path).c_str(), FILE_WRITE_ATTRIBUTES,
        FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
        FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    if (entry == INVALID_HANDLE_VALUE) return PathErrno(path, ::GetLastError());
    const FILETIME written = FileTimeOf(ns);
    const bool set = ::SetFileTime(entry, nullptr, nullptr, &written);
    const DWORD error = ::GetLastError();
    ::CloseHandle(entry);
    return set ? 0 : PathErrno(path, error);
}

int SetPermissionBits(const std::string& path, uint32_t mode) {
    const std::wstring wide = WidePath(path);
    const DWORD attributes = ::GetFileAttributesW(wide.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) return PathErrno(path, ::GetLastError());
    // Only these attributes may be set; the others (folder, reparse point, ...) are the
    // entry's own.
    constexpr DWORD kSettable = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN |
                                FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_ARCHIVE |
                                FILE_ATTRIBUTE_NOT_CONTENT_INDEXED | FILE_ATTRIBUTE_OFFLINE |
                                FILE_ATTRIBUTE_TEMPORARY;
    const DWORD kept = attributes & kSettable & ~kWindowsModeAttributes;
    DWORD wanted = kept | (mode & kWindowsModeAttributes);
    // A file with no attribute at all is a "normal" one, which is said with an attribute.
    if (wanted == 0) wanted = FILE_ATTRIBUTE_NORMAL;
    if (wanted == (attributes & kSettable) || ::SetFileAttributesW(wide.c_str(), wanted)) return 0;
    return PathErrno(path, ::GetLastError());
}

int SetOwner(const std::string&, uint32_t, uint32_t) {
    return 0; // nor owner numbers
}

bool MayGiveAwayEntries() {
    return false;
}

int MakeLink(const std::string&, const std::string&) {
    return ENOSYS;
}

std::string LinkText(const std::string&, int& error) {
    error = ENOSYS;
    return {};
}

int FreeSpace(const std::string& path, uint64_t& bytes, bool& known) {
    // Any folder of the drive will do, but a network share's name needs its trailing "\".
    std::string folder = path;
    if (!folder.empty() && !IsPathSeparator(folder.back())) folder += '\\';
    ULARGE_INTEGER free{}, total{};
    if (!::GetDiskFreeSpaceExW(WidePath(folder).c_str(), &free, &total, nullptr))
        return PathErrno(path, ::GetLastError());
    bytes = free.QuadPart; // what this user may still use, within a quota
    known = total.QuadPart != 0;
    return 0;
}

std::string DriveOf(const std::string& path) {
    if (!IsAbsolutePath(path)) return "";
    const std::wstring wide = WidePath(path);
    std::wstring volume(wide.size() + MAX_PATH + 1, L'\0');
    if (!::GetVolumePathNameW(wide.c_str(), volume.data(), static_cast<DWORD>(volume.size())))
        return WrittenDrive(path);
    volume.resize(volume.find(L'\0'));
    return Narrow(WithoutLongForm(volume));
}

int SyncFileSystem(const std::string& path) {
    // Nothing to flush as a whole: a flush of a whole drive needs an administrator, and each file
    // of the store is flushed by itself before its rename (COpenFolder::NeedsFlushPerFile). A
    // drive that went away is still an error, as on Linux.
    const DWORD attributes = ::GetFileAttributesW(WidePath(path).c_str());
    return attributes == INVALID_FILE_ATTRIBUTES ? PathErrno(path, ::GetLastError()) : 0;
}

std::string ResolvedPath(const std::string& path, int& error) {
    const HANDLE entry = ::CreateFileW(WidePath(path).c_str(), FILE_READ_ATTRIBUTES,
                                       FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                       nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (entry == INVALID_HANDLE_VALUE) {
        error = PathErrno(path, ::GetLastError());
        return {};
    }
    std::wstring resolved(MAX_PATH, L'\0');
    for (;;) {
        const DWORD n =
            ::GetFinalPathNameByHandleW(entry, resolved.data(), static_cast<DWORD>(resolved.size()),
                                        FILE_NAME_NORMALIZED | VOLUME_NAME_DOS);
        if (n == 0) {
            error = LastErrno();
            resolved.clear();
            break;
        }
        if (n < resolved.size()) {
            resolved.resize(n);
            break;
        }
        resolved.resize(n); // n counts the ending null when the room was too small
    }
    ::CloseHandle(entry);
    return resolved.empty() ? std::string() : Narrow(WithoutLongForm(resolved));
}
