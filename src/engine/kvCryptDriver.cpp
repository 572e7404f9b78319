#include "engine/kvCryptDriver.h"

#include "support/CProcTrap.h"
#include "support/modYield.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr size_t kReadSize = 256 * 1024;
constexpr uint64_t kGrid = 8192;

struct FdCloser {
    int fd;
    ~FdCloser() {
        if (fd >= 0) ::close(fd);
    }
};

struct DigestDeleter {
    void operator()(EVP_MD_CTX* ctx) const { EVP_MD_CTX_free(ctx); }
};

void Update(EVP_MD_CTX* ctx, const void* data, size_t size) {
    if (EVP_DigestUpdate(ctx, data, size) != 1) Raise(err::kInternal, "MD5 update failed");
}

std::string Hex(const unsigned char* digest, unsigned size) {
    static const char* digits = "0123456789abcdef";
    std::string out;
    for (unsigned i = 0; i < size; ++i) {
        out += digits[digest[i] >> 4];
        out += digits[digest[i] & 15];
    }
    return out;
}

std::string Signature(const std::string& path, bool yield, const std::atomic<bool>* stop) {
    FdCloser file{::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)};
    if (file.fd < 0) Raise(errno == ENOENT ? err::kFileNotFound : err::kPathFileAccess);
    struct stat st {};
    if (::fstat(file.fd, &st) != 0 || !S_ISREG(st.st_mode)) Raise(err::kPathFileAccess);
    if (st.st_size > static_cast<off_t>(kReadSize))
        ::posix_fadvise(file.fd, 0, 0, POSIX_FADV_SEQUENTIAL);

    std::unique_ptr<EVP_MD_CTX, DigestDeleter> ctx(EVP_MD_CTX_new());
    if (!ctx || EVP_DigestInit_ex(ctx.get(), EVP_md5(), nullptr) != 1)
        Raise(err::kInternal, "MD5 is not available");

    // The block rule feeds length + one extra byte per started 8192-byte block; the bytes that
    // the file does not fill are zero.
    const uint64_t length = static_cast<uint64_t>(st.st_size);
    uint64_t remaining = length + (length + kGrid - 1) / kGrid;
    // One read buffer for the process: allocating and clearing it per file costs more than
    // hashing a small file.
    thread_local std::unique_ptr<char[]> buffer(new char[kReadSize]);
    while (remaining > 0) {
        const size_t want = static_cast<size_t>(std::min<uint64_t>(remaining, kReadSize));
        const ssize_t got = ::read(file.fd, buffer.get(), want);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) Raise(err::kDeviceIO);
        if (got == 0) break;
        Update(ctx.get(), buffer.get(), static_cast<size_t>(got));
        remaining -= static_cast<uint64_t>(got);
        if (yield) DoEvents();
        if (stop && stop->load(std::memory_order_relaxed)) Raise(err::kInternal, "stopped");
    }
    static const char zeros[4096] = {};
    while (remaining > 0) {
        const size_t piece = static_cast<size_t>(std::min<uint64_t>(remaining, sizeof zeros));
        Update(ctx.get(), zeros, piece);
        remaining -= piece;
    }
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned size = 0;
    if (EVP_DigestFinal_ex(ctx.get(), digest, &size) != 1) Raise(err::kInternal, "MD5 failed");
    return Hex(digest, size);
}

} // namespace

std::string MD5File(const std::string& path) {
    return HashFile(kAlgorithmMD5, path);
}

std::string HashFile(int32_t algorithm, const std::string& path) {
    return Trapped("HashFile", std::string(), [&] {
        if (algorithm != kAlgorithmMD5) Raise(err::kInvalidCall);
        return Signature(path, true, nullptr);
    });
}

std::optional<std::string> ComputeSignature(const std::string& path,
                                            const std::atomic<bool>* stop) {
    try {
        return Signature(path, false, stop);
    } catch (...) {
        return std::nullopt; // the caller hashes again where the error can be reported
    }
}
