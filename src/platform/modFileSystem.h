#pragma once

// Folders, names and drives by path. Paths are UTF-8 byte strings (bytes as they are on
// Linux); every failure gives the system's error number (errno values on both platforms).
// Folders made here are private to the user.

#include <cstdint>
#include <string>

// The separator that the system itself writes between folders: "/" on Linux, "\" on Windows.
extern const char kPathSeparator;
// Whether `c` separates folders ("/" on Linux; "\" and "/" on Windows).
bool IsPathSeparator(char c);
// A path that names its place from a root: "/..." on Linux; "C:\...", "\\server\share..." on
// Windows.
bool IsAbsolutePath(const std::string& path);

// Makes one folder: 0 or the error (EEXIST when something is there).
int MakeFolder(const std::string& path);
// Removes an empty folder: 0 or the error.
int RemoveFolder(const std::string& path);
// Removes a folder and everything in it, as far as it can: links (and Windows junctions) are
// removed as links, never followed; whatever cannot be removed stays, and so does what holds it.
void RemoveTree(const std::string& path);
// Gives `from` the path `to`, never replacing an entry there (EEXIST), also where the file
// system cannot refuse a replace by itself; EXDEV when `to` is on another drive.
int RenameNoReplace(const std::string& from, const std::string& to);
// Makes an existing file private to the user (written by an earlier version, maybe not).
int MakeEntryPrivate(const std::string& path);
// Restored files and folders are the user's own again, with the rights the user's new files
// get by default (the umask on Linux; the folder's inherited rights on Windows).
int MakeOrdinaryFolder(const std::string& path);
int GiveDefaultFileRights(const std::string& path);

// What a restore gives back of an entry besides its bytes. Each answers 0 or the error:
// - its last-write time, nanoseconds since 1970 (UTC), as far as the file system keeps it; a
//   link's own time, never its target's;
int SetWriteTime(const std::string& path, int64_t ns);
// - its mode (PathStatus::mode): the permission bits with setuid, setgid and sticky on Linux,
//   the read-only, hidden, system and archive attributes on Windows, where the others stay;
int SetPermissionBits(const std::string& path, uint32_t mode);
// - its owner and group, a link's own (Linux, and only a process that may: EPERM otherwise;
//   nothing changes on Windows);
int SetOwner(const std::string& path, uint32_t owner, uint32_t group);
// Whether this process may give entries to another owner: the superuser on Linux; never on
// Windows, which keeps no owner numbers.
bool MayGiveAwayEntries();
// - a link holding `text`, made at `path` and never replacing an entry there (EEXIST); Windows
//   answers ENOSYS.
int MakeLink(const std::string& text, const std::string& path);
// The text the link at `path` holds, never followed; empty with `error` set when it is no link.
std::string LinkText(const std::string& path, int& error);

// Free bytes for the user on the file system that holds `path`; `known` false when the file
// system reports no size at all (some FUSE drivers). 0 or the error.
int FreeSpace(const std::string& path, uint64_t& bytes, bool& known);
// The root of the file system that holds `path`: its mount point on Linux, "C:\" or
// "\\server\share\" on Windows; empty for a relative path.
std::string DriveOf(const std::string& path);
// Flushes everything written to the file system that holds `path` to the disk: 0 or the error.
int SyncFileSystem(const std::string& path);
// The path with every link resolved, of an existing entry; empty with `error` set otherwise.
std::string ResolvedPath(const std::string& path, int& error);
