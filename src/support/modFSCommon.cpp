// File-system helpers over POSIX calls. Paths are byte strings handed to the kernel unchanged.
//
// Drives are mount points: the drive of a path is found by walking up its folders while the
// device number stays the same. Deletion opens every folder with O_NOFOLLOW and works relative
// to the open folder, so a symbolic link is removed as a link and never followed out of the
// tree. FSCopyFile keeps the three-mode retry loop with its size check, and writes a new
// destination under a temporary name beside it that is renamed into place only when the copy
// is complete: no partial file ever stands under the destination's name.

#include "support/modFSCommon.h"

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
#include <dirent.h>
#include <fcntl.h>
#include <limits>
#include <random>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>
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
    case ENOSPC:
    case EDQUOT:
        Raise(err::kDiskFull);
    case EIO:
        Raise(err::kDeviceIO);
    case ENAMETOOLONG:
        Raise(kBadFileName, "Bad file name or number");
    default:
        Raise(err::kPathFileAccess);
    }
}

// One generator per thread: the read-ahead's workers name temporary files too.
std::mt19937& Random() {
    thread_local std::mt19937 generator{std::random_device{}()};
    return generator;
}

std::string Hex(uint32_t value, int digits) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text(static_cast<size_t>(digits), '0');
    for (int i = digits - 1; i >= 0; --i, value >>= 4)
        text[static_cast<size_t>(i)] = kDigits[value & 0xF];
    return text;
}

bool EntryExists(const std::string& path) {
    struct stat st {};
    return ::lstat(path.c_str(), &st) == 0;
}

// FSGetFileSize without its trap, for any thread: 0 for anything that has no size.
double SizeOf(const std::string& path) {
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0 || S_ISDIR(st.st_mode)) return 0;
    return static_cast<double>(st.st_size);
}

// The same for a copy's destination, through its descriptor when it is held open.
double SizeOf(const CopyDestination& destination) {
    if (destination.fd < 0) return SizeOf(destination.path);
    struct stat st {};
    if (::fstat(destination.fd, &st) != 0) return 0;
    return static_cast<double>(st.st_size);
}

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

// A fresh temporary name for a file named `name`: ".<name>.<random>.tmp", with the name cut so
// that the whole stays within the file system's name limit.
std::string TempName(const std::string& name) {
    const size_t room = kMaxNameBytes - std::string(".." + Hex(0, 8) + ".tmp").size();
    return "." + name.substr(0, room) + "." + Hex(Random()(), 8) + ".tmp";
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

// Removes everything inside the open folder `folder` (the descriptor is taken over). Errors
// are ignored: whatever cannot be removed stays, and so does the folder that holds it.
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

int FSRenameNoReplace(const std::string& source, const std::string& destination) {
    return FSRenameNoReplaceAt(AT_FDCWD, source, destination);
}

int FSRenameNoReplaceAt(int folder, const std::string& source, const std::string& destination) {
    if (::renameat2(folder, source.c_str(), AT_FDCWD, destination.c_str(), RENAME_NOREPLACE) == 0)
        return 0;
    if (errno != EINVAL && errno != ENOSYS) return errno;
    // This file system cannot refuse a replace by itself.
    if (EntryExists(destination)) return EEXIST;
    return ::renameat(folder, source.c_str(), AT_FDCWD, destination.c_str()) == 0 ? 0 : errno;
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
        ::unlink(temp.c_str());
        RaiseErrno(error, err::kFileNotFound);
    }
    if (::unlink(source.c_str()) != 0) RaiseErrno(errno, err::kFileNotFound);
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
        if (drive.empty() || drive[0] != '/') Raise(err::kInvalidCall);
        struct statvfs info {};
        if (::statvfs(drive.c_str(), &info) != 0) RaiseErrno(errno, err::kDeviceUnavailable);
        // A file system that reports no size at all (some FUSE drivers, fusefat among them)
        // does not know its free space either: a full one refuses the write itself.
        if (info.f_blocks == 0) return std::numeric_limits<double>::max();
        return static_cast<double>(info.f_bavail) * static_cast<double>(info.f_frsize);
    });
}

void FSCreateFolder(const std::string& path) {
    Trapped("FSCreateFolder", false, [&] {
        if (::mkdir(path.c_str(), kPrivateFolderMode) != 0) RaiseErrno(errno, err::kPathNotFound);
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
    const size_t last = path.find_last_not_of('/');
    const size_t first = name.find_first_not_of('/');
    const std::string head = last == std::string::npos ? std::string() : path.substr(0, last + 1);
    const std::string tail = first == std::string::npos ? std::string() : name.substr(first);
    return head + "/" + tail;
}

std::string FSGetTempName() {
    static uint32_t last = 0x100000; // outside the range, so the first name is always accepted
    uint32_t value = 0;
    do {
        value = Random()() & 0xFFFFF;
    } while (value == last);
    last = value;
    return "rad" + Hex(value, 5) + ".tmp";
}

void FSDeleteFile(const std::string& path) {
    ::unlink(path.c_str()); // every error is swallowed: a file that cannot go stays
}

bool FSDeleteEmptyFolder(const std::string& path) {
    return ::rmdir(path.c_str()) == 0;
}

TempFile FSCreateTempIn(int folder, const std::string& name) {
    constexpr int kTries = 100; // names taken meanwhile, by chance
    for (int tries = 1;; ++tries) {
        const std::string temp = TempName(name);
        const int fd =
            ::openat(folder, temp.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                     kPrivateFileMode);
        if (fd < 0 && errno == EEXIST && tries < kTries) continue;
        if (fd >= 0) ::fchmod(fd, kPrivateFileMode); // whatever the umask; FAT cannot, no matter
        return {fd, temp};
    }
}

void FSDeleteFolder(const std::string& path) {
    // Every error is swallowed: whatever cannot be removed stays.
    const std::string folder = WithoutTrailingSlashes(path);
    struct stat st {};
    if (folder.empty() || folder == "/" || ::lstat(folder.c_str(), &st) != 0) return;
    if (S_ISLNK(st.st_mode)) {
        ::unlink(folder.c_str()); // the link goes, what it points to stays
        return;
    }
    if (!S_ISDIR(st.st_mode)) return;
    const int fd = OpenFolderNoFollow(AT_FDCWD, folder.c_str());
    if (fd < 0) return;
    RemoveContent(fd);
    ::rmdir(folder.c_str());
}

CopyOutcome CopyWithRetries(const std::string& source, const CopyDestination& destination,
                            ICopyObserver* observer, const CopyLineSink& sink,
                            const std::atomic<bool>* stop) {
    CopyOutcome outcome;
    CopyDestination target = destination;
    bool viaTemp = false;
    try {
        // A file held open is there already.
        viaTemp = destination.fd < 0 && !EntryExists(destination.path);
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
        if (viaTemp && ::rename(target.path.c_str(), destination.path.c_str()) != 0) {
            outcome.systemError = errno;
            RaiseErrno(errno, err::kFileNotFound);
        }
        sink(3, "OK on " + NumText(3 - tries) + " tries");
        outcome.copied = true;
    } catch (...) {
        if (viaTemp) ::unlink(target.path.c_str());
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
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 && !S_ISDIR(st.st_mode);
}

bool FSFolderExists(const std::string& path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
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
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0) return errno;
    if (!S_ISREG(st.st_mode)) return kNotRegular;
    const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0) return errno;
    int problem = ::fstat(fd, &st) != 0 ? errno : S_ISREG(st.st_mode) ? 0 : kNotRegular;
    char buffer[8193];
    // A file shorter than the probe is read to its known end, without a read that finds none.
    const size_t want = std::min(sizeof buffer, static_cast<size_t>(st.st_size));
    size_t got = 0;
    while (problem == 0 && got < want) {
        const ssize_t n = ::read(fd, buffer + got, want - got);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) problem = errno;
        if (n <= 0) break;
        got += static_cast<size_t>(n);
    }
    ::close(fd);
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
    case ENOSPC:
    case EDQUOT:
        return "the disk is full";
    case EFBIG:
        return "the file system cannot hold a file this large (FAT32 takes files below 4 GiB)";
    default: {
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

std::string FSGetPathPart(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

std::string FSDriveFromPath(const std::string& path) {
    if (path.empty() || path[0] != '/') return "";
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

bool FSDriveExists(const std::string& drive) {
    return FSFolderExists(drive);
}

std::string FSGetNamePart(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

void FSCreatePath(const std::string& filePath) {
    FSCreateFolderTree(FSGetPathPart(filePath));
}

void FSCreateFolderTree(const std::string& folderPath) {
    size_t start = 0;
    if (folderPath.compare(0, 2, "//") == 0) {
        // A network path: the server's own name is not a folder to create.
        const size_t afterServer = folderPath.find('/', 2);
        if (afterServer == std::string::npos) return;
        start = afterServer + 1;
    }
    std::vector<size_t> ends; // the prefixes ending in "/", shallowest first
    for (int step = 0; step < kMaxTreeSteps; ++step) {
        const size_t slash = folderPath.find('/', start);
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

bool FSWriteAll(int fd, const char* data, size_t length) {
    while (length > 0) {
        const ssize_t n = ::write(fd, data, length);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        data += n;
        length -= static_cast<size_t>(n);
    }
    return true;
}

bool FSSyncFileSystem(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) return false;
    const bool synced = ::syncfs(fd) == 0;
    ::close(fd);
    return synced;
}

FileStamp FSStampOfStat(const struct stat& st) {
    if (!S_ISREG(st.st_mode)) return {};
    constexpr int64_t kNano = 1000000000;
    return {static_cast<uint64_t>(st.st_dev), static_cast<uint64_t>(st.st_ino),
            static_cast<int64_t>(st.st_size),
            static_cast<int64_t>(st.st_mtim.tv_sec) * kNano + st.st_mtim.tv_nsec,
            static_cast<int64_t>(st.st_ctim.tv_sec) * kNano + st.st_ctim.tv_nsec};
}

FileStamp FSStampOf(const std::string& path) {
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0) return {};
    return FSStampOfStat(st);
}

FileStamp FSStampOfOpen(int fd) {
    struct stat st {};
    if (::fstat(fd, &st) != 0) return {};
    return FSStampOfStat(st);
}
