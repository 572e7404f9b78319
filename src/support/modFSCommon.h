#pragma once

// Small file-system helpers that the rest of the program calls instead of the platform.
// Paths are byte strings with the platform's separator; names that are not valid UTF-8 pass through
// unchanged. The string helpers cut by fixed textual rules that other modules rely on
// (FSGetExtension does not stop at a separator). Helpers that "report" hand an error to the shared
// error handler under their own procedure name and return their default; the others let a
// CRuntimeError reach their caller.

#include "platform/modFileIO.h"
#include "support/modFileCopy.h"

#include <atomic>
#include <cstdint>
#include <exception>
#include <string>

// Free bytes of the file system that holds `drive` (a mount point); reports and gives 0 on error;
// the largest number for a file system that reports no size at all.
double FSGetFreeDiskSpace(const std::string& drive);
// Creates one folder (mode 0700); reports on error.
void FSCreateFolder(const std::string& path);
// `path` and `name` joined with exactly one separator ("/" on Linux, "\" on Windows); `name`
// alone when `path` is empty.
std::string FSBuildPath(const std::string& path, const std::string& name);
// The same join without the error trap, for threads other than the run's.
std::string FSJoinPath(const std::string& path, const std::string& name);
// A fresh temporary file name (no folder) ending in ".tmp".
std::string FSGetTempName();
// Deletes a file; every error is swallowed.
void FSDeleteFile(const std::string& path);
// Deletes a folder and its content (links are removed, never followed); errors swallowed.
void FSDeleteFolder(const std::string& path);
// Deletes a folder only when it is empty; true when it is gone.
bool FSDeleteEmptyFolder(const std::string& path);
// An empty private file under a fresh temporary name (".<name>.<random>.tmp") in the open folder
// `folder`, open for reading and writing; any thread may make one.
class COpenFolder;
struct TempFile {
    NativeFile file = kNoFile; // kNoFile, with `error` set, when the file system refuses it
    int error = 0;
    std::string name;
};
TempFile FSCreateTempIn(const COpenFolder& folder, const std::string& name);
// Copies with retries through the three copy modes and a size check (see modFileCopy.h).
// A destination that does not exist yet is written under a temporary name in its folder and
// renamed into place once complete. False, with "Failed copy on " logged, when all tries fail.
// An observer sees the bytes of every attempt (see modFileCopy.h).
bool FSCopyFile(const std::string& source, const std::string& destination,
                ICopyObserver* observer = nullptr);

// What a copy with retries did.
struct CopyOutcome {
    bool copied = false;
    std::exception_ptr error; // the run-time error that ended it (10001 after the last try)
    int systemError = 0;      // the system's reason behind the last failed attempt; 0 unknown
    double size = 0;          // the destination's size at the last size check
};
// FSCopyFile's tries, lines, size check and placing of a new destination, without its error
// trap and its "Failed copy on " line, so that any thread can copy: the lines go to `sink`.
// Once `stop` is true, a try that left the wrong size is not followed by another.
CopyOutcome CopyWithRetries(const std::string& source, const CopyDestination& destination,
                            ICopyObserver* observer, const CopyLineSink& sink,
                            const std::atomic<bool>* stop = nullptr);
// Ends a copy made by CopyWithRetries as FSCopyFile ends its own, on the run's thread: a
// failure goes to the error handler under "FSCopyFile" and "Failed copy on <source>" is
// logged. The copy's result.
bool FSCopyEnded(const std::string& source, const CopyOutcome& outcome);
// Renames without replacing an existing destination, as a Windows move does, also where the
// file system cannot refuse a replace by itself. 0, or the errno value of the failure (EEXIST
// when the destination is there).
int FSRenameNoReplace(const std::string& source, const std::string& destination);
// Moves a file; true once the destination exists. Error 10005 (handled inside) after 4 tries.
bool FSMoveFile(const std::string& source, const std::string& destination);
bool FSFileExists(const std::string& path);
bool FSFolderExists(const std::string& path);
// Size in bytes; 0 on any error, silently.
double FSGetFileSize(const std::string& path);
// True when the regular file opens for reading and its first 8193 bytes (fewer when shorter)
// can be read. FIFOs, sockets and devices are never opened.
bool FSIsReadable(const std::string& path);
// Why FSIsReadable is false for `path`, in plain words ("permission denied"); empty when the
// file can be read now.
std::string FSReadProblem(const std::string& path);
// The cause that the system error `error` names, in plain words.
std::string FSPlainCause(int error);
// Writes `text` as the whole of the file `path` (a private file): under a temporary name beside
// it, then renamed into place, so that a reader finds the old text or the new one, never a part.
// "" when done, else what went wrong in plain words. No error trap.
std::string FSWriteWhole(const std::string& path, const std::string& text);
// Reads the whole of the file `path` (not through a link) into `text`, up to `limit` bytes;
// false when it cannot be read or is larger. No error trap.
bool FSReadWhole(const std::string& path, std::string& text, size_t limit = 1 << 20);
// Where the last separator of `path` stands, or the first from `start`; npos when none.
size_t FSLastSeparator(const std::string& path);
size_t FSNextSeparator(const std::string& path, size_t start);
// How many characters of `path` name its root: "/" on Linux; "C:\", "C:" or
// "\\server\share\" on Windows; 0 for a relative path.
size_t FSRootLength(const std::string& path);
// Whether `path` is a root and nothing more ("/", "C:\").
bool FSIsRoot(const std::string& path);
// `path` as a full path: as it is when it is one, else below the current folder.
std::string FSFullPath(const std::string& path);
// Everything up to and including the last separator; empty when there is none.
std::string FSGetPathPart(const std::string& path);
// The mount point that holds the path; empty for a relative path.
std::string FSDriveFromPath(const std::string& path);
// True when the path exists as a folder.
bool FSDriveExists(const std::string& drive);
// Everything after the last separator; the whole text when there is none.
std::string FSGetNamePart(const std::string& path);
// Creates every missing folder of FSGetPathPart(filePath).
void FSCreatePath(const std::string& filePath);
// Creates every missing prefix of `folderPath` that ends in a separator (at most 1024).
void FSCreateFolderTree(const std::string& folderPath);
// Everything after the last "." of the whole text, ASCII letters upper-cased; empty without ".".
std::string FSGetExtension(const std::string& path);
// Flushes everything written to the file system that holds `path` (syncfs); false on error.
bool FSSyncFileSystem(const std::string& path);

// What the quick check compares of a regular file: its device and inode, its size, and its
// modification and change times in nanoseconds.
struct FileStamp {
    uint64_t device = 0;
    uint64_t inode = 0;
    int64_t size = -1; // -1: no regular file, or the stamp could not be read
    int64_t mtimeNs = 0;
    int64_t ctimeNs = 0;
    bool Known() const { return size >= 0; }
    bool operator==(const FileStamp&) const = default;
};
// The stamp of the regular file at `path` (a link is not followed); unknown for anything else.
FileStamp FSStampOf(const std::string& path);
// The stamp of an open file; unknown unless it is a regular file.
FileStamp FSStampOfOpen(NativeFile file);
// The stamp of what the file system said of a file.
FileStamp FSStampOfStatus(const PathStatus& status);
