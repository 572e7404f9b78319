#pragma once

// Files read and written through the system's own handle: a descriptor on Linux, a HANDLE on
// Windows. Regular files only: a source is opened without following a symbolic link and without
// blocking, so a FIFO or a device never hangs a read; a file made here is private to the user.
// Every failure gives the system's error number (errno values on both platforms).

#include "platform/modFileStatus.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <string>

using NativeFile = intptr_t;
inline constexpr NativeFile kNoFile = -1;

enum class OpenMode {
    kRead,          // an existing file, for reading
    kReadThrough,   // the same, also through a symbolic link
    kCreateNew,     // made for writing; EEXIST when there already
    kCreateOrEmpty, // made for writing, or emptied when there
    kCreateOrKeep,  // made for writing, or written over from its start without being emptied
};

// kNoFile with `error` set when it cannot be opened.
NativeFile OpenFileHandle(const std::string& path, OpenMode mode, int& error);
// 0, or the error that a write on its way to the disk only reports now.
int CloseFileHandle(NativeFile file);
// What the open file is (kFile for a regular file), with its size, identity and times.
PathStatus StatusOfOpen(NativeFile file);

// Reads up to `size` bytes at the file's own position (`offset` null) or at `*offset`
// (advanced); 0 at the end, -1 with `error` set.
int64_t ReadBytes(NativeFile file, char* data, size_t size, uint64_t* offset, int& error);
// Writes all `size` bytes at the file's own position (`offset` null) or at `*offset`
// (advanced); false with `error` set (EIO for a write that took nothing without saying why).
bool WriteBytes(NativeFile file, const char* data, size_t size, uint64_t* offset, int& error);
// Lets the system copy up to `size` bytes from `in`'s position to `out` at `*offset` without a
// trip through the program (shared extents where the file system has them): the bytes moved, 0
// at the end, -1 with `error` set; ENOSYS where the system has no such copy for these files.
int64_t CopyBytes(NativeFile in, NativeFile out, uint64_t* offset, size_t size, int& error);
// 0 or the error.
int TruncateTo(NativeFile file, uint64_t size);
// Flushes what was written to the file to the disk: 0 or the error.
int FlushToDisk(NativeFile file);
// Tells the system that the file will be read from start to end.
void AdviseSequential(NativeFile file);
// The error of a copy method that was asked to stop.
inline constexpr int kStoppedError = ECANCELED;
