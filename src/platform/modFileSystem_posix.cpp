#include "platform/modFileSystem.h"

#include "platform/modFileStatus.h"
#include "platform/modPlatformPaths.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <vector>

const char kPathSeparator = '/';

bool IsPathSeparator(char c) {
    return c == '/';
}

bool IsAbsolutePath(const std::string& path) {
    return !path.empty() && path[0] == '/';
}

int MakeFolder(const std::string& path) {
    return ::mkdir(path.c_str(), kPrivateFolderMode) == 0 ? 0 : errno;
}

int RemoveFolder(const std::string& path) {
    return ::rmdir(path.c_str()) == 0 ? 0 : errno;
}

namespace {

// Gives the owner full rights on an open folder, so that its entries can be listed and removed
// (the "force" of a delete).
void MakeOwnerFull(int folder) {
    struct stat st {};
    if (::fstat(folder, &st) == 0 && (st.st_mode & S_IRWXU) != S_IRWXU)
        ::fchmod(folder, (st.st_mode & 07777) | S_IRWXU);
}

int OpenFolderNoFollow(int parent, const char* name) {
    constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    int fd = ::openat(parent, name, kFlags);
    if (fd < 0 && errno == EACCES && ::fchmodat(parent, name, S_IRWXU, 0) == 0)
        fd = ::openat(parent, name, kFlags);
    if (fd >= 0) MakeOwnerFull(fd);
    return fd;
}

void RemoveEntry(int parent, const char* name);

// Removes everything inside the open folder `folder` (the descriptor is taken over). Deletion
// works relative to folders opened with O_NOFOLLOW, so a symbolic link is removed as a link and
// never followed out of the tree.
void RemoveContent(int folder) {
    DIR* dir = ::fdopendir(folder);
    if (!dir) {
        ::close(folder);
        return;
    }
    std::vector<std::string> names;
    while (const dirent* entry = ::readdir(dir)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") names.push_back(name);
    }
    for (const std::string& name : names)
        RemoveEntry(::dirfd(dir), name.c_str());
    ::closedir(dir);
}

void RemoveEntry(int parent, const char* name) {
    if (::unlinkat(parent, name, 0) == 0 || errno != EISDIR) return;
    const int folder = OpenFolderNoFollow(parent, name);
    if (folder < 0) return;
    RemoveContent(folder);
    ::unlinkat(parent, name, AT_REMOVEDIR);
}

} // namespace

void RemoveTree(const std::string& path) {
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0) return;
    if (S_ISLNK(st.st_mode)) {
        ::unlink(path.c_str()); // the link goes, what it points to stays
        return;
    }
    if (!S_ISDIR(st.st_mode)) return;
    const int fd = OpenFolderNoFollow(AT_FDCWD, path.c_str());
    if (fd < 0) return;
    RemoveContent(fd);
    ::rmdir(path.c_str());
}

int RenameNoReplace(const std::string& from, const std::string& to) {
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
    if (errno != EINVAL && errno != ENOSYS) return errno;
    // This file system cannot refuse a replace by itself.
    struct stat st {};
    if (::lstat(to.c_str(), &st) == 0) return EEXIST;
    return ::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

int MakeEntryPrivate(const std::string& path) {
    return ::chmod(path.c_str(), kPrivateFileMode) == 0 ? 0 : errno;
}

namespace {
mode_t UserMask() {
    static const mode_t mask = [] {
        const mode_t current = ::umask(0);
        ::umask(current);
        return current;
    }();
    return mask;
}
} // namespace

int MakeOrdinaryFolder(const std::string& path) {
    return ::mkdir(path.c_str(), 0777) == 0 ? 0 : errno;
}

int GiveDefaultFileRights(const std::string& path) {
    return ::chmod(path.c_str(), 0666 & ~UserMask()) == 0 ? 0 : errno;
}

int SetWriteTime(const std::string& path, int64_t ns) {
    // The access time is left as it is.
    const timespec times[2] = {
        {0, UTIME_OMIT},
        {static_cast<time_t>(ns / 1'000'000'000 - (ns % 1'000'000'000 < 0 ? 1 : 0)),
         static_cast<long>((ns % 1'000'000'000 + 1'000'000'000) % 1'000'000'000)}};
    return ::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW) == 0 ? 0 : errno;
}

int SetPermissionBits(const std::string& path, uint32_t mode) {
    return ::chmod(path.c_str(), static_cast<mode_t>(mode & 07777)) == 0 ? 0 : errno;
}

int SetOwner(const std::string& path, uint32_t owner, uint32_t group) {
    return ::lchown(path.c_str(), static_cast<uid_t>(owner), static_cast<gid_t>(group)) == 0
               ? 0
               : errno;
}

bool MayGiveAwayEntries() {
    return ::geteuid() == 0;
}

int MakeLink(const std::string& text, const std::string& path) {
    return ::symlink(text.c_str(), path.c_str()) == 0 ? 0 : errno;
}

std::string LinkText(const std::string& path, int& error) {
    error = 0;
    std::vector<char> buffer(256);
    while (true) {
        const ssize_t got = ::readlink(path.c_str(), buffer.data(), buffer.size());
        if (got < 0) {
            error = errno;
            return {};
        }
        if (static_cast<size_t>(got) < buffer.size())
            return std::string(buffer.data(), static_cast<size_t>(got));
        buffer.resize(buffer.size() * 2);
    }
}

int FreeSpace(const std::string& path, uint64_t& bytes, bool& known) {
    struct statvfs info {};
    if (::statvfs(path.c_str(), &info) != 0) return errno;
    known = info.f_blocks != 0;
    bytes = static_cast<uint64_t>(info.f_bavail) * static_cast<uint64_t>(info.f_frsize);
    return 0;
}

namespace {
// `path` without its trailing "/" characters; "/" stays "/".
std::string WithoutTrailingSlashes(const std::string& path) {
    const size_t last = path.find_last_not_of('/');
    if (last == std::string::npos) return path.empty() ? path : "/";
    return path.substr(0, last + 1);
}

// The folder that holds `path` (no trailing "/"), "/" for a top-level entry, "" at the root.
std::string ParentFolder(const std::string& path) {
    if (path == "/") return "";
    const std::string trimmed = WithoutTrailingSlashes(path);
    const size_t slash = trimmed.rfind('/');
    if (slash == std::string::npos) return "";
    return WithoutTrailingSlashes(trimmed.substr(0, slash + 1));
}
} // namespace

std::string DriveOf(const std::string& path) {
    if (!IsAbsolutePath(path)) return "";
    // Start from the nearest folder that exists, then climb while the device stays the same.
    std::string current = WithoutTrailingSlashes(path);
    struct stat st {};
    while (::stat(current.c_str(), &st) != 0) {
        current = ParentFolder(current);
        if (current.empty()) return "";
    }
    const dev_t device = st.st_dev;
    for (std::string parent = ParentFolder(current); !parent.empty();
         parent = ParentFolder(current)) {
        if (::stat(parent.c_str(), &st) != 0 || st.st_dev != device) break;
        current = parent;
    }
    return current;
}

int SyncFileSystem(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) return errno;
    const int error = ::syncfs(fd) == 0 ? 0 : errno;
    ::close(fd);
    return error;
}

std::string ResolvedPath(const std::string& path, int& error) {
    const std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(path.c_str(), nullptr),
                                                               &std::free);
    if (!resolved) {
        error = errno;
        return {};
    }
    return resolved.get();
}
