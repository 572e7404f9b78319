#pragma once

// What a path names, as the file system answers: a folder, a file, a link, something else, or
// nothing, with the system's error number when it could not be told (nothing there is ENOENT
// or ENOTDIR; no permission on a folder on the way is EACCES).

#include <cstdint>
#include <string>

// Which file a path reaches, whatever the spelling (links, other mount points).
struct FileIdentity {
    uint64_t device = 0;
    uint64_t file = 0;
    bool operator==(const FileIdentity&) const = default;
};

enum class PathKind { kNone, kFolder, kFile, kLink, kOther };

struct PathStatus {
    PathKind kind = PathKind::kNone;
    int error = 0; // when kind is kNone: why
    uint64_t size = 0;
    FileIdentity identity;

    bool Exists() const { return kind != PathKind::kNone; }
};

// Follows links; with `ofLink`, a link is answered as itself.
PathStatus StatusOf(const std::string& path, bool ofLink = false);
// A file that this process may run as a program.
bool IsRunnableFile(const std::string& path);
