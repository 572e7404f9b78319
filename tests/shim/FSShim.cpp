// A file system that refuses things, for tests. Preloaded into a program (LD_PRELOAD), it makes
// some calls fail as exFAT, FAT32, NTFS through FUSE, NFS or SMB make them fail, but only for
// paths and descriptors below the folder QRV_SHIM_ROOT names (real paths compared, descriptors
// through /proc/self/fd), so the rest of the machine behaves as usual. QRV_SHIM chooses the
// rules, separated by commas:
//
//   no-tmpfile       open with O_TMPFILE fails with EOPNOTSUPP (no anonymous files);
//   fat32-size       a regular file may not pass 4294967295 bytes: a write that would pass it
//                    writes up to the limit, the next fails with EFBIG, as do a truncate or an
//                    allocation beyond it; copy_file_range fails with EOPNOTSUPP; a buffer of
//                    zeros becomes a hole, so a test with a sparse 4 GiB file costs no disk;
//   no-chmod         chmod, fchmod and fchmodat fail with EPERM;
//   no-lock          flock fails with ENOLCK (a file system without locks);
//   no-append        a write through a descriptor opened with O_APPEND on a file that was not
//                    empty then fails with EPERM (fusefat appends nothing to an existing file);
//   no-rename-flags  renameat2 with any flag fails with EINVAL.
//
// QRV_SHIM_CLOCK_SPEED=N makes the monotonic clocks run N times faster from their first
// reading, so a short run looks hours long; waits on a condition variable or an absolute sleep
// against those clocks are translated back to the real clock, so they end when they should.
//
// Only calls that go through the C library's exported functions are seen: what the C library
// does inside itself (fopen's open, for one) and raw system calls pass unchanged.

#undef _FORTIFY_SOURCE

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <mutex>
#include <pthread.h>
#include <stdio.h>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>
#include <unordered_map>
#include <utility>

namespace {

constexpr off_t kFat32Limit = 4294967295; // the largest size of a file on FAT32

struct Rules {
    bool noTmpfile = false;
    bool fat32Size = false;
    bool noChmod = false;
    bool noLock = false;
    bool noAppend = false;
    bool noRenameFlags = false;
};

Rules ReadRules() {
    Rules rules;
    const char* text = std::getenv("QRV_SHIM");
    std::string list = text ? text : "";
    list += ',';
    for (size_t start = 0, end; (end = list.find(',', start)) != std::string::npos;
         start = end + 1) {
        const std::string rule = list.substr(start, end - start);
        rules.noTmpfile |= rule == "no-tmpfile";
        rules.fat32Size |= rule == "fat32-size";
        rules.noChmod |= rule == "no-chmod";
        rules.noLock |= rule == "no-lock";
        rules.noAppend |= rule == "no-append";
        rules.noRenameFlags |= rule == "no-rename-flags";
    }
    return rules;
}

const Rules& Active() {
    static const Rules rules = ReadRules();
    return rules;
}

template <class F> F Next(const char* name) {
    return reinterpret_cast<F>(::dlsym(RTLD_NEXT, name));
}

// The real function `name` of the C library, looked up once, as `real` (or as `var`).
#define REAL_AS(var, name) static const auto var = Next<decltype(&::name)>(#name)
#define REAL(name) REAL_AS(real, name)

// Keeps errno as it was across the shim's own look-ups.
class SavedErrno {
public:
    SavedErrno() : m_errno(errno) {}
    ~SavedErrno() { errno = m_errno; }

private:
    int m_errno;
};

std::string RealPath(const std::string& path) {
    char buffer[PATH_MAX];
    return ::realpath(path.c_str(), buffer) ? std::string(buffer) : std::string();
}

// The real path of QRV_SHIM_ROOT, once it exists.
std::string Root() {
    static std::mutex mutex;
    static std::string root;
    const std::lock_guard<std::mutex> lock(mutex);
    if (root.empty()) {
        const char* named = std::getenv("QRV_SHIM_ROOT");
        if (named && *named) root = RealPath(named);
    }
    return root;
}

bool IsBelowRoot(const std::string& path) {
    const std::string root = Root();
    return !root.empty() && !path.empty() &&
           (path == root || path.compare(0, root.size() + 1, root + "/") == 0);
}

// What the descriptor names, as the kernel says ("/x/#123 (deleted)" for an anonymous file,
// which still lies below its folder).
std::string DescriptorPath(int fd) {
    char buffer[PATH_MAX];
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    const ssize_t n = ::readlink(link.c_str(), buffer, sizeof buffer - 1);
    return n > 0 ? std::string(buffer, static_cast<size_t>(n)) : std::string();
}

// `path` (relative to `dirfd`) made absolute and real; a name that does not exist yet is
// joined to the real path of its folder.
std::string Resolve(int dirfd, const char* path) {
    if (!path || !*path) return dirfd == AT_FDCWD ? std::string() : DescriptorPath(dirfd);
    std::string absolute = path;
    if (path[0] != '/') {
        char cwd[PATH_MAX];
        const std::string base =
            dirfd == AT_FDCWD ? (::getcwd(cwd, sizeof cwd) ? cwd : "") : DescriptorPath(dirfd);
        absolute = base + "/" + path;
    }
    if (std::string real = RealPath(absolute); !real.empty()) return real;
    const size_t slash = absolute.find_last_of('/');
    const std::string folder = RealPath(slash == 0 ? "/" : absolute.substr(0, slash));
    return folder.empty() ? absolute : folder + absolute.substr(slash);
}

bool PathRuled(int dirfd, const char* path) {
    const SavedErrno saved;
    return IsBelowRoot(Resolve(dirfd, path));
}

bool DescriptorRuled(int fd) {
    const SavedErrno saved;
    return IsBelowRoot(DescriptorPath(fd));
}

bool RegularRuled(int fd) {
    const SavedErrno saved;
    struct stat st {};
    return ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && IsBelowRoot(DescriptorPath(fd));
}

int Fail(int error) {
    errno = error;
    return -1;
}

// no-append: the descriptors opened for appending to a file that held something, with the
// file they were opened on (a descriptor number that the C library closed and reused for
// another file is no longer refused).
std::mutex g_appendMutex;
std::unordered_map<int, std::pair<dev_t, ino_t>> g_refusedAppends;

void NoteOpened(int fd, int flags) {
    if (fd < 0 || !Active().noAppend) return;
    const SavedErrno saved;
    struct stat st {};
    const bool refused = (flags & O_APPEND) && ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) &&
                         st.st_size > 0 && IsBelowRoot(DescriptorPath(fd));
    const std::lock_guard<std::mutex> lock(g_appendMutex);
    if (refused)
        g_refusedAppends[fd] = {st.st_dev, st.st_ino};
    else
        g_refusedAppends.erase(fd);
}

bool AppendRefused(int fd) {
    if (!Active().noAppend) return false;
    const SavedErrno saved;
    std::pair<dev_t, ino_t> file;
    {
        const std::lock_guard<std::mutex> lock(g_appendMutex);
        const auto found = g_refusedAppends.find(fd);
        if (found == g_refusedAppends.end()) return false;
        file = found->second;
    }
    struct stat st {};
    return ::fstat(fd, &st) == 0 && st.st_dev == file.first && st.st_ino == file.second &&
           (::fcntl(fd, F_GETFL) & O_APPEND);
}

bool NeedsMode(int flags) {
    return (flags & O_CREAT) || (flags & O_TMPFILE) == O_TMPFILE;
}

template <class Open>
int OpenRuled(int dirfd, const char* path, int flags, mode_t mode, const Open& open) {
    if (Active().noTmpfile && (flags & O_TMPFILE) == O_TMPFILE && PathRuled(dirfd, path))
        return Fail(EOPNOTSUPP);
    const int fd = open(dirfd, path, flags, mode);
    NoteOpened(fd, flags);
    return fd;
}

bool AllZero(const void* data, size_t size) {
    const auto* bytes = static_cast<const unsigned char*>(data);
    for (size_t i = 0; i < size; ++i)
        if (bytes[i] != 0) return false;
    return true;
}

// fat32-size: writes `size` bytes at `offset` (-1: at the descriptor's position, or at the end
// for O_APPEND) without letting the file pass the limit; zeros become a hole.
ssize_t Fat32Write(int fd, const void* data, size_t size, off_t offset) {
    REAL_AS(realWrite, write);
    REAL_AS(realPwrite, pwrite);
    REAL_AS(realFtruncate, ftruncate);
    struct stat st {};
    if (::fstat(fd, &st) != 0) return -1;
    const bool atPosition = offset < 0;
    off_t at = offset;
    if (atPosition) at = (::fcntl(fd, F_GETFL) & O_APPEND) ? st.st_size : ::lseek(fd, 0, SEEK_CUR);
    if (at < 0) return -1;
    if (size == 0) return 0;
    if (at >= kFat32Limit) return Fail(EFBIG);
    size = static_cast<size_t>(std::min<off_t>(static_cast<off_t>(size), kFat32Limit - at));
    if (!AllZero(data, size))
        return atPosition ? realWrite(fd, data, size) : realPwrite(fd, data, size, at);
    const off_t end = at + static_cast<off_t>(size);
    if (end > st.st_size && realFtruncate(fd, end) != 0) return -1;
    if (atPosition && ::lseek(fd, end, SEEK_SET) < 0) return -1;
    return static_cast<ssize_t>(size);
}

// A vector write as one write after another, stopping at the first short one.
ssize_t Fat32WriteVector(int fd, const struct iovec* iov, int count, off_t offset) {
    ssize_t total = 0;
    for (int i = 0; i < count; ++i) {
        const ssize_t n =
            Fat32Write(fd, iov[i].iov_base, iov[i].iov_len, offset < 0 ? -1 : offset + total);
        if (n < 0) return total > 0 ? total : -1;
        total += n;
        if (static_cast<size_t>(n) < iov[i].iov_len) break;
    }
    return total;
}

bool SizeRefused(int fd, off_t size) {
    return Active().fat32Size && size > kFat32Limit && RegularRuled(fd);
}

// QRV_SHIM_CLOCK_SPEED: the monotonic clocks, each from its own first reading.
int64_t ClockSpeed() {
    static const int64_t speed = [] {
        const char* text = std::getenv("QRV_SHIM_CLOCK_SPEED");
        const long long value = text ? std::atoll(text) : 1;
        return value > 1 ? static_cast<int64_t>(value) : int64_t{1};
    }();
    return speed;
}

bool IsMonotonic(clockid_t clock) {
    return clock == CLOCK_MONOTONIC || clock == CLOCK_MONOTONIC_RAW ||
           clock == CLOCK_MONOTONIC_COARSE || clock == CLOCK_BOOTTIME;
}

constexpr int64_t kNano = 1000000000;

std::atomic<int64_t>& ClockBase(clockid_t clock) {
    static std::atomic<int64_t> bases[4] = {-1, -1, -1, -1};
    switch (clock) {
    case CLOCK_MONOTONIC:
        return bases[0];
    case CLOCK_MONOTONIC_RAW:
        return bases[1];
    case CLOCK_MONOTONIC_COARSE:
        return bases[2];
    default:
        return bases[3];
    }
}

int64_t Nanos(const timespec& t) {
    return static_cast<int64_t>(t.tv_sec) * kNano + t.tv_nsec;
}

timespec TimeOf(int64_t nanos) {
    return {static_cast<time_t>(nanos / kNano), static_cast<long>(nanos % kNano)};
}

// The base of `clock`, set by its first reading `now` (real nanoseconds).
int64_t BaseOf(clockid_t clock, int64_t now) {
    std::atomic<int64_t>& base = ClockBase(clock);
    int64_t expected = -1;
    base.compare_exchange_strong(expected, now);
    return base.load();
}

// A time read from the fast clock, as the real clock will read it then.
timespec RealDeadline(clockid_t clock, const timespec& fast) {
    REAL(clock_gettime);
    timespec now{};
    real(clock, &now);
    const int64_t base = BaseOf(clock, Nanos(now));
    const int64_t at = Nanos(fast);
    return at <= base ? fast : TimeOf(base + (at - base) / ClockSpeed());
}

} // namespace

extern "C" {

// The mode argument that an open which may create a file takes after its flags; 0 for others.
#define SHIM_MODE_ARGUMENT(flags, mode)                                                            \
    mode_t mode = 0;                                                                               \
    if (NeedsMode(flags)) {                                                                        \
        va_list args;                                                                              \
        va_start(args, flags);                                                                     \
        mode = va_arg(args, mode_t);                                                               \
        va_end(args);                                                                              \
    }

int open(const char* path, int flags, ...) {
    REAL(open);
    SHIM_MODE_ARGUMENT(flags, mode)
    return OpenRuled(AT_FDCWD, path, flags, mode,
                     [](int, const char* p, int f, mode_t m) { return real(p, f, m); });
}

int open64(const char* path, int flags, ...) {
    REAL(open64);
    SHIM_MODE_ARGUMENT(flags, mode)
    return OpenRuled(AT_FDCWD, path, flags, mode,
                     [](int, const char* p, int f, mode_t m) { return real(p, f, m); });
}

int openat(int dirfd, const char* path, int flags, ...) {
    REAL(openat);
    SHIM_MODE_ARGUMENT(flags, mode)
    return OpenRuled(dirfd, path, flags, mode,
                     [](int d, const char* p, int f, mode_t m) { return real(d, p, f, m); });
}

int openat64(int dirfd, const char* path, int flags, ...) {
    REAL(openat64);
    SHIM_MODE_ARGUMENT(flags, mode)
    return OpenRuled(dirfd, path, flags, mode,
                     [](int d, const char* p, int f, mode_t m) { return real(d, p, f, m); });
}

int __open_2(const char* path, int flags) {
    REAL(__open_2);
    return OpenRuled(AT_FDCWD, path, flags, 0,
                     [](int, const char* p, int f, mode_t) { return real(p, f); });
}

int __open64_2(const char* path, int flags) {
    REAL(__open64_2);
    return OpenRuled(AT_FDCWD, path, flags, 0,
                     [](int, const char* p, int f, mode_t) { return real(p, f); });
}

int __openat_2(int dirfd, const char* path, int flags) {
    REAL(__openat_2);
    return OpenRuled(dirfd, path, flags, 0,
                     [](int d, const char* p, int f, mode_t) { return real(d, p, f); });
}

int __openat64_2(int dirfd, const char* path, int flags) {
    REAL(__openat64_2);
    return OpenRuled(dirfd, path, flags, 0,
                     [](int d, const char* p, int f, mode_t) { return real(d, p, f); });
}

int close(int fd) {
    REAL(close);
    if (Active().noAppend) {
        const std::lock_guard<std::mutex> lock(g_appendMutex);
        g_refusedAppends.erase(fd);
    }
    return real(fd);
}

ssize_t write(int fd, const void* data, size_t size) {
    REAL(write);
    if (AppendRefused(fd)) return Fail(EPERM);
    if (Active().fat32Size && RegularRuled(fd)) return Fat32Write(fd, data, size, -1);
    return real(fd, data, size);
}

ssize_t pwrite(int fd, const void* data, size_t size, off_t offset) {
    REAL(pwrite);
    if (AppendRefused(fd)) return Fail(EPERM);
    if (Active().fat32Size && RegularRuled(fd)) return Fat32Write(fd, data, size, offset);
    return real(fd, data, size, offset);
}

ssize_t pwrite64(int fd, const void* data, size_t size, off64_t offset) {
    REAL(pwrite64);
    if (AppendRefused(fd)) return Fail(EPERM);
    if (Active().fat32Size && RegularRuled(fd)) return Fat32Write(fd, data, size, offset);
    return real(fd, data, size, offset);
}

ssize_t writev(int fd, const struct iovec* iov, int count) {
    REAL(writev);
    if (AppendRefused(fd)) return Fail(EPERM);
    if (Active().fat32Size && RegularRuled(fd)) return Fat32WriteVector(fd, iov, count, -1);
    return real(fd, iov, count);
}

ssize_t pwritev(int fd, const struct iovec* iov, int count, off_t offset) {
    REAL(pwritev);
    if (AppendRefused(fd)) return Fail(EPERM);
    if (Active().fat32Size && RegularRuled(fd)) return Fat32WriteVector(fd, iov, count, offset);
    return real(fd, iov, count, offset);
}

ssize_t pwritev64(int fd, const struct iovec* iov, int count, off64_t offset) {
    REAL(pwritev64);
    if (AppendRefused(fd)) return Fail(EPERM);
    if (Active().fat32Size && RegularRuled(fd)) return Fat32WriteVector(fd, iov, count, offset);
    return real(fd, iov, count, offset);
}

int ftruncate(int fd, off_t size) {
    REAL(ftruncate);
    return SizeRefused(fd, size) ? Fail(EFBIG) : real(fd, size);
}

int ftruncate64(int fd, off64_t size) {
    REAL(ftruncate64);
    return SizeRefused(fd, size) ? Fail(EFBIG) : real(fd, size);
}

int fallocate(int fd, int mode, off_t offset, off_t length) {
    REAL(fallocate);
    return SizeRefused(fd, offset + length) ? Fail(EFBIG) : real(fd, mode, offset, length);
}

int fallocate64(int fd, int mode, off64_t offset, off64_t length) {
    REAL(fallocate64);
    return SizeRefused(fd, offset + length) ? Fail(EFBIG) : real(fd, mode, offset, length);
}

int posix_fallocate(int fd, off_t offset, off_t length) {
    REAL(posix_fallocate);
    return SizeRefused(fd, offset + length) ? EFBIG : real(fd, offset, length);
}

int posix_fallocate64(int fd, off64_t offset, off64_t length) {
    REAL(posix_fallocate64);
    return SizeRefused(fd, offset + length) ? EFBIG : real(fd, offset, length);
}

ssize_t copy_file_range(int in, off64_t* inOffset, int out, off64_t* outOffset, size_t length,
                        unsigned int flags) {
    REAL(copy_file_range);
    if (Active().fat32Size && (DescriptorRuled(in) || DescriptorRuled(out)))
        return Fail(EOPNOTSUPP);
    return real(in, inOffset, out, outOffset, length, flags);
}

int chmod(const char* path, mode_t mode) {
    REAL(chmod);
    return Active().noChmod && PathRuled(AT_FDCWD, path) ? Fail(EPERM) : real(path, mode);
}

int fchmod(int fd, mode_t mode) {
    REAL(fchmod);
    return Active().noChmod && DescriptorRuled(fd) ? Fail(EPERM) : real(fd, mode);
}

int fchmodat(int dirfd, const char* path, mode_t mode, int flags) {
    REAL(fchmodat);
    return Active().noChmod && PathRuled(dirfd, path) ? Fail(EPERM)
                                                      : real(dirfd, path, mode, flags);
}

int flock(int fd, int operation) {
    REAL(flock);
    return Active().noLock && DescriptorRuled(fd) ? Fail(ENOLCK) : real(fd, operation);
}

int renameat2(int oldDirfd, const char* oldPath, int newDirfd, const char* newPath,
              unsigned int flags) {
    REAL(renameat2);
    if (Active().noRenameFlags && flags != 0 &&
        (PathRuled(oldDirfd, oldPath) || PathRuled(newDirfd, newPath)))
        return Fail(EINVAL);
    return real(oldDirfd, oldPath, newDirfd, newPath, flags);
}

int clock_gettime(clockid_t clock, struct timespec* time) {
    REAL(clock_gettime);
    const int result = real(clock, time);
    if (result != 0 || ClockSpeed() == 1 || !IsMonotonic(clock)) return result;
    const int64_t now = Nanos(*time);
    const int64_t base = BaseOf(clock, now);
    *time = TimeOf(base + (now - base) * ClockSpeed());
    return result;
}

int clock_nanosleep(clockid_t clock, int flags, const struct timespec* request,
                    struct timespec* remain) {
    REAL(clock_nanosleep);
    if (ClockSpeed() == 1 || !IsMonotonic(clock) || !(flags & TIMER_ABSTIME))
        return real(clock, flags, request, remain);
    const timespec deadline = RealDeadline(clock, *request);
    return real(clock, flags, &deadline, remain);
}

int pthread_cond_clockwait(pthread_cond_t* cond, pthread_mutex_t* mutex, clockid_t clock,
                           const struct timespec* deadline) {
    REAL(pthread_cond_clockwait);
    if (ClockSpeed() == 1 || !IsMonotonic(clock)) return real(cond, mutex, clock, deadline);
    const timespec realDeadline = RealDeadline(clock, *deadline);
    return real(cond, mutex, clock, &realDeadline);
}

} // extern "C"
