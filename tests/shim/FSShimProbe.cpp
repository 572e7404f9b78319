// Makes the calls that the file-system shim (FSShim.cpp) may refuse and prints what each
// answered, one line of "call=answer" words: the answer is "ok", a count, or the name of the
// error (EOPNOTSUPP). The shim's own tests run it with and without the shim.
//
//   fsshim_probe tmpfile DIR        open, open64, openat and openat64 with O_TMPFILE in DIR
//   fsshim_probe chmod FILE         chmod, fchmod and fchmodat to 0600
//   fsshim_probe flock FILE         an exclusive flock
//   fsshim_probe append FILE TEXT   TEXT written through a descriptor opened with O_APPEND
//   fsshim_probe rename FROM TO     renameat2 with RENAME_NOREPLACE
//   fsshim_probe fat32 FOLDER       writes, truncates and allocations at the 4 GiB limit, 8 MiB
//                                   of zeros, and copy_file_range, in files made in FOLDER
//   fsshim_probe clock MS           how far the monotonic clock and the steady clock moved
//                                   while MS real milliseconds passed, and how many real
//                                   milliseconds a 200 ms wait on a condition variable took

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <iostream>
#include <mutex>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <thread>
#include <unistd.h>

namespace {

std::string Answer(long long result) {
    if (result >= 0) return result == 0 ? "ok" : std::to_string(result);
    const char* name = ::strerrorname_np(errno);
    return name ? name : std::to_string(errno);
}

// An answer given as an error number (posix_fallocate's way).
std::string ErrorAnswer(int error) {
    errno = error;
    return Answer(error == 0 ? 0 : -1);
}

std::string OpenAnswer(int fd) {
    if (fd >= 0) ::close(fd);
    return Answer(fd < 0 ? -1 : 0);
}

void Tmpfile(const std::string& dir) {
    const char* d = dir.c_str();
    const int flags = O_TMPFILE | O_RDWR;
    std::cout << "open=" << OpenAnswer(::open(d, flags, 0600));
    std::cout << " open64=" << OpenAnswer(::open64(d, flags, 0600));
    std::cout << " openat=" << OpenAnswer(::openat(AT_FDCWD, d, flags, 0600));
    std::cout << " openat64=" << OpenAnswer(::openat64(AT_FDCWD, d, flags, 0600)) << "\n";
}

void Chmod(const std::string& file) {
    std::cout << "chmod=" << Answer(::chmod(file.c_str(), 0600));
    const int fd = ::open(file.c_str(), O_RDONLY);
    std::cout << " fchmod=" << Answer(::fchmod(fd, 0600));
    ::close(fd);
    std::cout << " fchmodat=" << Answer(::fchmodat(AT_FDCWD, file.c_str(), 0600, 0)) << "\n";
}

void Flock(const std::string& file) {
    const int fd = ::open(file.c_str(), O_RDONLY | O_CREAT, 0600);
    std::cout << "flock=" << Answer(::flock(fd, LOCK_EX | LOCK_NB)) << "\n";
    ::close(fd);
}

void Append(const std::string& file, const std::string& text) {
    const int fd = ::open(file.c_str(), O_WRONLY | O_APPEND | O_CREAT, 0600);
    std::cout << "write=" << Answer(::write(fd, text.data(), text.size()));
    iovec vector{const_cast<char*>(text.data()), text.size()};
    std::cout << " writev=" << Answer(::writev(fd, &vector, 1)) << "\n";
    ::close(fd);
}

void Rename(const std::string& from, const std::string& to) {
    std::cout << "renameat2="
              << Answer(::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE))
              << "\n";
}

void Fat32(const std::string& folder) {
    constexpr off_t kLimit = 4294967295;
    const std::string big = folder + "/big", zeros = folder + "/zeros", copy = folder + "/copy";
    int fd = ::open(big.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
    ::lseek(fd, kLimit - 5, SEEK_SET);
    std::cout << "write=" << Answer(::write(fd, "0123456789", 10));
    std::cout << " again=" << Answer(::write(fd, "x", 1));
    std::cout << " pwrite=" << Answer(::pwrite(fd, "abc", 3, kLimit));
    std::cout << " ftruncate=" << Answer(::ftruncate(fd, kLimit + 1));
    std::cout << " fallocate=" << ErrorAnswer(::posix_fallocate(fd, kLimit, 2));
    struct stat st {};
    ::fstat(fd, &st);
    std::cout << " size=" << st.st_size;
    char tail[6] = {};
    std::cout << " tail=" << Answer(::pread(fd, tail, 5, kLimit - 5)) << ":" << tail;
    ::close(fd);

    fd = ::open(zeros.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
    const std::string block(8 << 20, '\0');
    std::cout << " zeros=" << Answer(::write(fd, block.data(), block.size()));
    ::fsync(fd);
    ::fstat(fd, &st);
    const bool sparse = st.st_size == 8 << 20 && st.st_blocks * 512 < (1 << 20);
    std::cout << " sparse=" << (sparse ? "yes" : "no");
    ::lseek(fd, 0, SEEK_SET);
    const int out = ::open(copy.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    std::cout << " copy_file_range="
              << Answer(::copy_file_range(fd, nullptr, out, nullptr, 4096, 0)) << "\n";
    ::close(out);
    ::close(fd);
}

long long Millis(clockid_t clock) {
    timespec t{};
    ::clock_gettime(clock, &t);
    return static_cast<long long>(t.tv_sec) * 1000 + t.tv_nsec / 1000000;
}

void Clock(int ms) {
    using namespace std::chrono;
    const long long monotonic = Millis(CLOCK_MONOTONIC);
    const auto steady = steady_clock::now();
    const long long real = Millis(CLOCK_REALTIME);
    while (Millis(CLOCK_REALTIME) - real < ms)
        std::this_thread::sleep_for(milliseconds(1));
    std::cout << "monotonic=" << Millis(CLOCK_MONOTONIC) - monotonic
              << " steady=" << duration_cast<milliseconds>(steady_clock::now() - steady).count();
    std::mutex mutex;
    std::condition_variable never;
    std::unique_lock<std::mutex> lock(mutex);
    const long long before = Millis(CLOCK_REALTIME);
    const bool signalled = never.wait_for(lock, milliseconds(200)) == std::cv_status::no_timeout;
    std::cout << " wait=" << (signalled ? "signalled" : "timeout")
              << " wait-real=" << Millis(CLOCK_REALTIME) - before << "\n";
}

} // namespace

int main(int argc, char** argv) {
    const std::string op = argc > 1 ? argv[1] : "";
    const std::string a = argc > 2 ? argv[2] : "", b = argc > 3 ? argv[3] : "";
    if (op == "tmpfile")
        Tmpfile(a);
    else if (op == "chmod")
        Chmod(a);
    else if (op == "flock")
        Flock(a);
    else if (op == "append")
        Append(a, b);
    else if (op == "rename")
        Rename(a, b);
    else if (op == "fat32")
        Fat32(a);
    else if (op == "clock")
        Clock(std::atoi(a.c_str()));
    else {
        std::cerr << "fsshim_probe: unknown operation '" << op << "'\n";
        return 2;
    }
    return 0;
}
