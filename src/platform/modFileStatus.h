#pragma once

// What a path names, as the file system answers: a folder, a file, a link, something else, or
// nothing, with the system's error number when it could not be told (nothing there is ENOENT
// or ENOTDIR; no permission on a folder on the way is EACCES).

#include "platform/modPlatformKind.h"

#include <cstdint>
#include <string>

// Which file a path reaches, whatever the spelling (links, other mount points).
struct FileIdentity {
    uint64_t device = 0;
    uint64_t file = 0;
    bool operator==(const FileIdentity&) const = default;
};

// The attribute bits a Windows mode keeps: read-only, hidden, system, archive.
inline constexpr uint32_t kWindowsModeAttributes = 0x1 | 0x2 | 0x4 | 0x20;
// The bits of a mode that any owner gives back: Linux's read, write and run bits for all
// three, or the Windows attributes; and those of Linux only a superuser gives back into the
// place they came from (setuid, setgid and sticky).
inline constexpr uint32_t kPlainModeBits = kWindowsBuild ? kWindowsModeAttributes : 0777u;
inline constexpr uint32_t kSpecialModeBits = kWindowsBuild ? 0u : 07000u;

enum class PathKind { kNone, kFolder, kFile, kLink, kOther };

struct PathStatus {
    PathKind kind = PathKind::kNone;
    int error = 0; // when kind is kNone: why
    uint64_t size = 0;
    FileIdentity identity;
    // Nanoseconds since 1970 (UTC): last write, last access, and the last change of the entry
    // itself (its status on Linux, its creation on Windows, which keeps no such time).
    int64_t writeNs = 0;
    int64_t accessNs = 0;
    int64_t changeNs = 0;
    // The owner cannot write it (Linux), or its read-only attribute is set (Windows).
    bool readOnly = false;
    // Linux: its permission bits with the setuid, setgid and sticky bits (mode & 07777), and
    // its owner's and group's numbers. Windows keeps no owner numbers (both 0) and no
    // permission bits: its mode is the read-only, hidden, system and archive attributes
    // (kWindowsModeAttributes of the attribute word).
    uint32_t mode = 0;
    uint32_t owner = 0;
    uint32_t group = 0;

    bool Exists() const { return kind != PathKind::kNone; }
    // Nothing there, for the reason `why`.
    static PathStatus Missing(int why) {
        PathStatus status;
        status.error = why;
        return status;
    }
};

// Follows links; with `ofLink`, a link is answered as itself.
PathStatus StatusOf(const std::string& path, bool ofLink = false);
// 0 when this process may write into the entry at `path` (with its effective rights), else
// the reason (EACCES, EROFS, ENOENT, ...).
int WriteAccessError(const std::string& path);
// A file that this process may run as a program.
bool IsRunnableFile(const std::string& path);
