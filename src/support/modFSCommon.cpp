// File-system helpers over the platform layer. Paths are byte strings handed to the system
// unchanged.
//
// Drives are what the platform calls them (mount points on Linux, drive roots on Windows).
// Deletion removes a link as a link and never follows it out of the tree. FSCopyFile keeps the
// three-mode retry loop with its size check, and writes a new destination under a temporary name
// beside it that is renamed into place only when the copy is complete: no partial file ever stands
// under the destination's name.

#include "support/modFSCommon.h"

#include "platform/CFile.h"
#include "platform/COpenFolder.h"
#include "platform/modFileIO.h"
#include "platform/modFileStatus.h"
#include "platform/modFileSystem.h"
#include "platform/modPlatformKind.h"
#include "platform/modPlatformPaths.h"
#include "support/CProcTrap.h"
#include "support/CRuntimeError.h"
#include "support/modFileCopy.h"
#include "support/modNumText.h"
#include "support/modServices.h"
#include "support/modText.h"
#include "support/modYield.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>
#include <mutex>
#include <random>
#include <vector>

namespace {

constexpr int kFileExists = 58;
constexpr int kBadFileName = 52;
constexpr size_t kMaxNameBytes = 255;
constexpr int kMaxTreeSteps = 1024;
constexpr int kMaxMoveTries = 3;

// Raises the run-time error that stands for an errno value, as the Windows helpers would.
[[noreturn]] void RaiseErrno(int error, int notFound) {
    switch (error) {
    case ENOENT:
        Raise(notFound);
    case ENOTDIR:
        Raise(err::kPathNotFound);
    case EACCES:
    case EPERM:
    case EROFS:
        Raise(err::kPermissionDenied);
    case EEXIST:
    case ENOTEMPTY:
        Raise(kFileExists, "File already exists");
    case EIO:
        Raise(err::kDeviceIO);
    case ENAMETOOLONG:
        Raise(kBadFileName, "Bad file name or number");
    default:
        if (IsDiskFullError(error)) Raise(err::kDiskFull);
        Raise(err::kPathFileAccess);
    }
}

// One generator for every thread, the read-ahead's workers name temporary files too. (A
// generator per thread, thread_local, crashed the workers of the Windows build now and then.)
uint32_t RandomNumber() {
    static std::mutex lock;
    static std::mt19937 generator{std::random_device{}()};
    const std::lock_guard<std::mutex> hold(lock);
    return static_cast<uint32_t>(generator());
}

std::string Hex(uint32_t value, int digits) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text(static_cast<size_t>(digits), '0');
    for (int i = digits - 1; i >= 0; --i, value >>= 4)
        text[static_cast<size_t>(i)] = kDigits[value & 0xF];
    return text;
}

bool EntryExists(const std::string& path) {
    return StatusOf(path, true).Exists();
}

// FSGetFileSize without its trap, for any thread: 0 for anything that has no size.
double SizeOf(const std::string& path) {
    const PathStatus status = StatusOf(path);
    if (!status.Exists() || status.kind == PathKind::kFolder) return 0;
    return static_cast<double>(status.size);
}

// The same for a copy's destination, through its handle when it is held open.
double SizeOf(const CopyDestination& destination) {
    if (destination.file == kNoFile) return SizeOf(destination.path);
    const PathStatus status = StatusOfOpen(destination.file);
    return status.Exists() ? static_cast<double>(status.size) : 0;
}

// `path` without its trailing separators; a lone separator stays.
std::string WithoutTrailingSlashes(const std::string& path) {
    size_t end = path.size();
    while (end > 1 && IsPathSeparator(path[end - 1]))
        --end;
    return path.substr(0, end);
}

// A fresh temporary name for a file named `name`: ".<name>.<random>.tmp", with the name cut so
// that the whole stays within the file system's name limit.
std::string TempName(const std::string& name) {
    const size_t room = kMaxNameBytes - std::string(".." + Hex(0, 8) + ".tmp").size();
    return "." + name.substr(0, room) + "." + Hex(RandomNumber(), 8) + ".tmp";
}

// A fresh name for writing `destination` in its own folder.
std::string TempBeside(const std::string& destination) {
    const std::string folder = FSGetPathPart(destination);
    const std::string name = FSGetNamePart(destination);
    std::string temp;
    do {
        temp = folder + TempName(name);
    } while (EntryExists(temp));
    return temp;
}

} // namespace

int FSRenameNoReplace(const std::string& source, const std::string& destination) {
    return RenameNoReplace(source, destination);
}

namespace {

// A move to another file system: a complete copy beside the destination, renamed into place,
// then the source deleted.
void MoveAcrossFileSystems(const std::string& source, const std::string& destination) {
    if (EntryExists(destination)) RaiseErrno(EEXIST, err::kFileNotFound);
    const std::string temp = TempBeside(destination);
    int error = 0;
    if (!DefaultCopyMethods().mode1(source, temp, nullptr) ||
        FSGetFileSize(temp) != FSGetFileSize(source))
        error = EIO;
    else
        error = FSRenameNoReplace(temp, destination);
    if (error != 0) {
        RemoveFile(temp);
        RaiseErrno(error, err::kFileNotFound);
    }
    if (const int removeError = RemoveFile(source); removeError != 0)
        RaiseErrno(removeError, err::kFileNotFound);
}

void MoveOnce(const std::string& source, const std::string& destination) {
    const int error = FSRenameNoReplace(source, destination);
    if (error == EXDEV)
        MoveAcrossFileSystems(source, destination);
    else if (error != 0)
        RaiseErrno(error, err::kFileNotFound);
}

} // namespace

double FSGetFreeDiskSpace(const std::string& drive) {
    return Trapped("FSGetFreeDiskSpace", 0.0, [&] {
        if (!IsAbsolutePath(drive)) Raise(err::kInvalidCall);
        uint64_t bytes = 0;
        bool known = true;
        if (const int error = FreeSpace(drive, bytes, known); error != 0)
            RaiseErrno(error, err::kDeviceUnavailable);
        // A file system that reports no size at all (some FUSE drivers, fusefat among them)
        // does not know its free space either: a full one refuses the write itself.
        if (!known) return std::numeric_limits<double>::max();
        return static_cast<double>(bytes);
    });
}

void FSCreateFolder(const std::string& path) {
    Trapped("FSCreateFolder", false, [&] {
        if (const int error = MakeFolder(path); error != 0) RaiseErrno(error, err::kPathNotFound);
        return true;
    });
}

std::string FSBuildPath(const std::string& path, const std::string& name) {
    CProcTrap trap("FSBuildPath");
    trap.Check();
    return FSJoinPath(path, name);
}

std::string FSJoinPath(const std::string& path, const std::string& name) {
    if (path.empty()) return name;
    size_t last = path.size();
    while (last > 0 && IsPathSeparator(path[last - 1]))
        --last;
    size_t first = 0;
    while (first < name.size() && IsPathSeparator(name[first]))
        ++first;
    return path.substr(0, last) + kPathSeparator + name.substr(first);
}

std::string FSGetTempName() {
    static uint32_t last = 0x100000; // outside the range, so the first name is always accepted
    uint32_t value = 0;
    do {
        value = RandomNumber() & 0xFFFFF;
    } while (value == last);
    last = value;
    return "rad" + Hex(value, 5) + ".tmp";
}

void FSDeleteFile(const std::string& path) {
    RemoveFile(path); // every error is swallowed: a file that cannot go stays
}

bool FSDeleteEmptyFolder(const std::string& path) {
    return RemoveFolder(path) == 0;
}

TempFile FSCreateTempIn(const COpenFolder& folder, const std::string& name) {
    constexpr int kTries = 100; // names taken meanwhile, by chance
    for (int tries = 1;; ++tries) {
        TempFile temp;
        temp.name = TempName(name);
        temp.file = folder.CreateNew(temp.name, temp.error);
        if (temp.file == kNoFile && temp.error == EEXIST && tries < kTries) continue;
        return temp;
    }
}

void FSDeleteFolder(const std::string& path) {
    // Every error is swallowed: whatever cannot be removed stays.
    const std::string folder = WithoutTrailingSlashes(path);
    if (folder.empty() || (folder.size() == 1 && IsPathSeparator(folder[0]))) return;
    RemoveTree(folder);
}

CopyOutcome CopyWithRetries(const std::string& source, const CopyDestination& destination,
                            ICopyObserver* observer, const CopyLineSink& sink,
                            const std::atomic<bool>* stop) {
    CopyOutcome outcome;
    CopyDestination target = destination;
    bool viaTemp = false;
    try {
        // A file held open is there already.
        viaTemp = destination.file == kNoFile && !EntryExists(destination.path);
        if (viaTemp) target = TempBeside(destination.path);
        int32_t tries = 3;
        for (;;) {
            if (tries < 3) {
                sink(1, "Retry copy of " + source + "...");
                sink(1, "Using Copy mode=" + NumText(tries));
            }
            // The copy mode is the number of tries left: 3 stream, 2 overwrite, 1 exclusive.
            if (!CopyByMode(source, target, tries, observer, sink))
                outcome.systemError = LastCopySystemError();
            if (--tries < 1) Raise(err::kCopyFailed); // whatever the last mode achieved
            DoEvents();
            outcome.size = SizeOf(target);
            if (outcome.size == SizeOf(source)) break;
            if (stop && stop->load(std::memory_order_relaxed)) Raise(err::kCopyFailed, "stopped");
        }
        if (viaTemp) {
            if (const int error = RenameReplacing(target.path, destination.path); error != 0) {
                outcome.systemError = error;
                RaiseErrno(error, err::kFileNotFound);
            }
        }
        sink(3, "OK on " + NumText(3 - tries) + " tries");
        outcome.copied = true;
    } catch (...) {
        if (viaTemp) RemoveFile(target.path);
        outcome.error = std::current_exception();
    }
    return outcome;
}

namespace {
// The end of FSCopyFile, under its trap: a failure goes to the error handler and is logged.
bool EndCopy(CProcTrap& trap, const std::string& source, const CopyOutcome& outcome) {
    if (outcome.copied) return true;
    try {
        if (outcome.error) std::rethrow_exception(outcome.error);
        Raise(err::kCopyFailed); // a failure that kept no error of its own
    } catch (...) {
        trap.Handle();
    }
    Log(1, "Failed copy on " + source);
    return false;
}

void LogLine(int32_t level, const std::string& line) {
    Log(level, line);
}
} // namespace

bool FSCopyEnded(const std::string& source, const CopyOutcome& outcome) {
    CProcTrap trap("FSCopyFile");
    CopyOutcome ended = outcome;
    try {
        trap.Check();
    } catch (...) {
        ended = {false, std::current_exception(), 0};
    }
    return EndCopy(trap, source, ended);
}

bool FSCopyFile(const std::string& source, const std::string& destination,
                ICopyObserver* observer) {
    CProcTrap trap("FSCopyFile");
    CopyOutcome outcome;
    try {
        trap.Check();
        outcome = CopyWithRetries(source, destination, observer, LogLine);
    } catch (...) {
        outcome.error = std::current_exception();
    }
    return EndCopy(trap, source, outcome);
}

bool FSMoveFile(const std::string& source, const std::string& destination) {
    return Trapped("FSMoveFile", false, [&] {
        int count = 0;
        do {
            MoveOnce(source, destination);
            if (++count > kMaxMoveTries) Raise(err::kNoDestination);
        } while (!FSFileExists(destination));
        return true;
    });
}

bool FSFileExists(const std::string& path) {
    CProcTrap trap("FSFileExists");
    trap.Check();
    const PathStatus status = StatusOf(path);
    return status.Exists() && status.kind != PathKind::kFolder;
}

bool FSFolderExists(const std::string& path) {
    return StatusOf(path).kind == PathKind::kFolder;
}

double FSGetFileSize(const std::string& path) {
    CProcTrap trap("FSGetFileSize");
    try {
        trap.Check();
        return SizeOf(path);
    } catch (...) {
        return 0; // nothing reported: an unknown size is 0
    }
}

namespace {
constexpr int kNotRegular = -1;

// Opens `path` as a regular file and reads its first 8193 bytes (fewer when shorter): 0 when
// that works, else the system error that stopped it, or kNotRegular. Only regular files are
// opened, and without blocking, so a FIFO or device never hangs; a symbolic link is never
// followed.
int ReadProbe(const std::string& path) {
    const PathStatus entry = StatusOf(path, true);
    if (!entry.Exists()) return entry.error;
    if (entry.kind != PathKind::kFile) return kNotRegular;
    int problem = 0;
    const NativeFile file = OpenFileHandle(path, OpenMode::kRead, problem);
    if (file == kNoFile) return problem;
    const PathStatus opened = StatusOfOpen(file);
    problem = !opened.Exists() ? opened.error : opened.kind == PathKind::kFile ? 0 : kNotRegular;
    char buffer[8193];
    // A file shorter than the probe is read to its known end, without a read that finds none.
    const size_t want = static_cast<size_t>(std::min<uint64_t>(sizeof buffer, opened.size));
    size_t got = 0;
    while (problem == 0 && got < want) {
        const int64_t n = ReadBytes(file, buffer + got, want - got, nullptr, problem);
        if (n <= 0) break;
        got += static_cast<size_t>(n);
    }
    CloseFileHandle(file);
    return problem;
}
} // namespace

bool FSIsReadable(const std::string& path) {
    return ReadProbe(path) == 0;
}

std::string FSPlainCause(int error) {
    switch (error) {
    case EACCES:
    case EPERM:
        return "permission denied";
    case ENOENT:
        return "it no longer exists";
    case ENAMETOOLONG:
        return "its path is longer than the system allows";
    case ELOOP:
        return "it is a symbolic link";
    case EIO:
        return "the device reported an input/output error";
    case EFBIG:
        return "the file system cannot hold a file this large (FAT32 takes files below 4 GiB)";
    default: {
        if (IsDiskFullError(error)) return "the disk is full";
        std::string text = std::strerror(error);
        if (!text.empty())
            text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
        return text;
    }
    }
}

std::string FSReadProblem(const std::string& path) {
    const int problem = ReadProbe(path);
    if (problem == 0) return {};
    return problem == kNotRegular ? "it is no longer a regular file" : FSPlainCause(problem);
}

size_t FSLastSeparator(const std::string& path) {
    for (size_t i = path.size(); i > 0; --i)
        if (IsPathSeparator(path[i - 1])) return i - 1;
    return std::string::npos;
}

size_t FSNextSeparator(const std::string& path, size_t start) {
    for (size_t i = start; i < path.size(); ++i)
        if (IsPathSeparator(path[i])) return i;
    return std::string::npos;
}

size_t FSRootLength(const std::string& path) {
    if (path.empty() || !IsAbsolutePath(path)) return 0;
    if (kWindowsBuild && path.size() >= 2 && path[1] == ':')
        return path.size() > 2 && IsPathSeparator(path[2]) ? 3 : 2;
    if (kWindowsBuild && path.size() >= 2 && IsPathSeparator(path[0]) && IsPathSeparator(path[1])) {
        // "\\server\share\": the server's and the share's names belong to the root.
        const size_t server = FSNextSeparator(path, 2);
        if (server == std::string::npos) return path.size();
        const size_t share = FSNextSeparator(path, server + 1);
        return share == std::string::npos ? path.size() : share + 1;
    }
    return 1;
}

bool FSIsRoot(const std::string& path) {
    return !path.empty() && FSRootLength(path) == path.size();
}

std::string FSFullPath(const std::string& path) {
    return IsAbsolutePath(path) ? path : FSJoinPath(CurrentFolder(), path);
}

std::string FSGetPathPart(const std::string& path) {
    const size_t slash = FSLastSeparator(path);
    return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

std::string FSDriveFromPath(const std::string& path) {
    return DriveOf(path);
}

bool FSDriveExists(const std::string& drive) {
    return FSFolderExists(drive);
}

std::string FSGetNamePart(const std::string& path) {
    const size_t slash = FSLastSeparator(path);
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

void FSCreatePath(const std::string& filePath) {
    FSCreateFolderTree(FSGetPathPart(filePath));
}

void FSCreateFolderTree(const std::string& folderPath) {
    size_t start = 0;
    if (folderPath.size() >= 2 && IsPathSeparator(folderPath[0]) &&
        IsPathSeparator(folderPath[1])) {
        // A network path: the server's own name is not a folder to create.
        const size_t afterServer = FSNextSeparator(folderPath, 2);
        if (afterServer == std::string::npos) return;
        start = afterServer + 1;
    }
    std::vector<size_t> ends; // the prefixes ending in a separator, shallowest first
    for (int step = 0; step < kMaxTreeSteps; ++step) {
        const size_t slash = FSNextSeparator(folderPath, start);
        if (slash == std::string::npos) break;
        ends.push_back(slash + 1);
        start = slash + 1;
    }
    // Every prefix above an existing folder exists too: find the deepest existing one from
    // the bottom, then create the rest in order. One test per level that is missing, instead
    // of one per level of the whole path.
    size_t missing = ends.size();
    while (missing > 0 && !FSFolderExists(folderPath.substr(0, ends[missing - 1])))
        --missing;
    for (; missing < ends.size(); ++missing)
        FSCreateFolder(folderPath.substr(0, ends[missing]));
}

std::string FSGetExtension(const std::string& path) {
    return Trapped("FSGetExtension", std::string(), [&] {
        const size_t dot = path.rfind('.');
        if (dot == std::string::npos) return std::string();
        return UpperAscii(path.substr(dot + 1));
    });
}

bool FSSyncFileSystem(const std::string& path) {
    return SyncFileSystem(path) == 0;
}

FileStamp FSStampOfStatus(const PathStatus& status) {
    if (status.kind != PathKind::kFile) return {};
    return {status.identity.device, status.identity.file, static_cast<int64_t>(status.size),
            status.writeNs, status.changeNs};
}

FileStamp FSStampOf(const std::string& path) {
    return FSStampOfStatus(StatusOf(path, true));
}

FileStamp FSStampOfOpen(NativeFile file) {
    return FSStampOfStatus(StatusOfOpen(file));
}

std::string FSWriteWhole(const std::string& path, const std::string& text) {
    const std::string temp = path + ".new";
    CFile file;
    if (!file.Open(temp, CFile::Mode::kReplace))
        return "cannot write " + temp + ": " + FSPlainCause(file.Error());
    const bool written = file.WriteAll(text);
    const int error = file.Error();
    file.Close();
    if (!written) {
        RemoveFile(temp);
        return "cannot write " + temp + ": " + FSPlainCause(error);
    }
    if (RenameReplacing(temp, path) != 0) {
        RemoveFile(temp);
        return "cannot put " + temp + " in the place of " + path;
    }
    return {};
}

bool FSReadWhole(const std::string& path, std::string& text, size_t limit) {
    int error = 0;
    const NativeFile file = OpenFileHandle(path, OpenMode::kRead, error);
    if (file == kNoFile) return false;
    text.clear();
    char buffer[4096];
    bool whole = true;
    for (;;) {
        const int64_t got = ReadBytes(file, buffer, sizeof buffer, nullptr, error);
        if (got < 0 || text.size() + static_cast<size_t>(got) > limit) {
            whole = false;
            break;
        }
        if (got == 0) break;
        text.append(buffer, static_cast<size_t>(got));
    }
    CloseFileHandle(file);
    return whole;
}
