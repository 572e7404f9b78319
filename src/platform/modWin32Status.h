#pragma once

// Windows only: what the Windows halves share to tell what an entry is and when it was
// written, as the platform layer answers it (the Windows counterpart of modStatusOfStat_posix.h).
//
// Links are the reparse points that stand for another name (IsReparseTagNameSurrogate): symbolic
// links and junctions. Other reparse points (a cloud file's placeholder, a deduplicated file)
// are the file or folder itself to the user and are answered as such.

#ifdef _WIN32

#include "platform/modFileStatus.h"
#include "platform/modWin32.h"

#include <cstdint>
#include <string>

// A file time (100-ns units since 1601, UTC) as nanoseconds since 1970; 0 for a time that the
// file system does not keep (a file time of 0), and held within what 64 bits can count.
int64_t NanosecondsOf(const FILETIME& time);
// Nanoseconds since 1970 as a file time, the other way round (to 100 ns, rounded down).
FILETIME FileTimeOf(int64_t ns);
// The kind of an entry from its attribute word and, for a reparse point, its tag.
PathKind KindOfAttributes(DWORD attributes, DWORD reparseTag);
// What a handle's file information tells: kind, size, identity (volume serial number and file
// index), times (the creation time as changeNs) and the read-only attribute.
PathStatus StatusOfInformation(const BY_HANDLE_FILE_INFORMATION& info, DWORD reparseTag);
// The reparse tag of the open `file`, 0 when it is no reparse point.
DWORD ReparseTagOfHandle(HANDLE file);
// The reparse tag of the entry at `path` itself (a W function's path), 0 when it is no reparse
// point or is not there; only a listing tells it without opening the entry.
DWORD ReparseTagOfPath(const std::wstring& path);
// The errno value of the Windows error `error` of a call on `path`. Windows says "path not
// found" also when a part of the path on the way is a file: Linux's ENOTDIR for that case is
// found by looking at the nearest part that is there.
int PathErrno(const std::string& path, DWORD error);
// `folder` joined with the entry name `name`, with one "\" between them.
std::string JoinWin32(const std::string& folder, const std::string& name);

#endif
