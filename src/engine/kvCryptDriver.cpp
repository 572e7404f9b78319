#include "engine/kvCryptDriver.h"

#include "support/CProcTrap.h"
#include "support/modFSCommon.h"
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

std::string Hex(const unsigned char* digest, unsigned size) {
    static const char* digits = "0123456789abcdef";
    std::string out;
    for (unsigned i = 0; i < size; ++i) {
        out += digits[digest[i] >> 4];
        out += digits[digest[i] & 15];
    }
    return out;
}

// Sources are read without following a link: a file swapped for a symbolic link after it was
// listed is refused, never read through.
int OpenSource(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0) Raise(errno == ENOENT ? err::kFileNotFound : err::kPathFileAccess);
    return fd;
}

// Signs an open regular file from its start.
SignedContent SignOpen(int fd, bool yield, const std::atomic<bool>* stop,
                       FileStamp* stamp = nullptr) {
    struct stat st {};
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) Raise(err::kPathFileAccess);
    const FileStamp before = FSStampOfStat(st);
    if (st.st_size > static_cast<off_t>(kReadSize))
        ::posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);

    // Reading stops at the length the file had when it was opened, or earlier at its end: a
    // file that grows meanwhile is signed as it was, one that shrinks as what was left.
    CSignatureStream signer;
    uint64_t remaining = static_cast<uint64_t>(st.st_size);
    off_t offset = 0;
    // One read buffer per thread: allocating and clearing it per file costs more than hashing
    // a small file.
    thread_local std::unique_ptr<char[]> buffer(new char[kReadSize]);
    while (remaining > 0) {
        const size_t want = static_cast<size_t>(std::min<uint64_t>(remaining, kReadSize));
        const ssize_t got = ::pread(fd, buffer.get(), want, offset);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) Raise(err::kDeviceIO);
        if (got == 0) break;
        signer.Add(buffer.get(), static_cast<size_t>(got));
        remaining -= static_cast<uint64_t>(got);
        offset += got;
        if (yield) DoEvents();
        if (stop && stop->load(std::memory_order_relaxed)) Raise(err::kInternal, "stopped");
    }
    // The stamp vouches for the content only when nothing changed the file while it was read.
    if (stamp) *stamp = FSStampOfOpen(fd) == before ? before : FileStamp{};
    return signer.Finish();
}

SignedContent Signature(const std::string& path, bool yield, const std::atomic<bool>* stop,
                        FileStamp* stamp = nullptr) {
    FdCloser file{OpenSource(path)};
    return SignOpen(file.fd, yield, stop, stamp);
}

} // namespace

struct CSignatureStream::Digest {
    EVP_MD_CTX* ctx = EVP_MD_CTX_new();
    ~Digest() { EVP_MD_CTX_free(ctx); }
};

CSignatureStream::CSignatureStream() : m_digest(std::make_unique<Digest>()) {
    Restart();
}

CSignatureStream::~CSignatureStream() = default;

void CSignatureStream::Restart() {
    if (!m_digest->ctx || EVP_DigestInit_ex(m_digest->ctx, EVP_md5(), nullptr) != 1)
        Raise(err::kInternal, "MD5 is not available");
    m_length = 0;
}

void CSignatureStream::Add(const char* data, size_t size) {
    if (EVP_DigestUpdate(m_digest->ctx, data, size) != 1)
        Raise(err::kInternal, "MD5 update failed");
    m_length += size;
}

SignedContent CSignatureStream::Finish() {
    // The block rule adds one zero byte per started 8192-byte block.
    static const char zeros[4096] = {};
    for (uint64_t pad = (m_length + kGrid - 1) / kGrid; pad > 0;) {
        const size_t piece = static_cast<size_t>(std::min<uint64_t>(pad, sizeof zeros));
        if (EVP_DigestUpdate(m_digest->ctx, zeros, piece) != 1)
            Raise(err::kInternal, "MD5 update failed");
        pad -= piece;
    }
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned size = 0;
    if (EVP_DigestFinal_ex(m_digest->ctx, digest, &size) != 1) Raise(err::kInternal, "MD5 failed");
    return {Hex(digest, size), m_length};
}

std::string MD5File(const std::string& path) {
    return HashFile(kAlgorithmMD5, path);
}

std::string HashFile(int32_t algorithm, const std::string& path) {
    return Trapped("HashFile", std::string(), [&] {
        if (algorithm != kAlgorithmMD5) Raise(err::kInvalidCall);
        return Signature(path, true, nullptr).signature;
    });
}

SignedContent SignFile(const std::string& path) {
    return Trapped("HashFile", SignedContent{}, [&] { return Signature(path, true, nullptr); });
}

std::optional<SignedContent> ComputeSignature(const std::string& path,
                                              const std::atomic<bool>* stop, FileStamp* stamp) {
    try {
        return Signature(path, false, stop, stamp);
    } catch (...) {
        return std::nullopt; // the caller hashes again where the error can be reported
    }
}

std::optional<SignedContent> ComputeOpenSignature(int fd) {
    try {
        return SignOpen(fd, false, nullptr);
    } catch (...) {
        return std::nullopt;
    }
}
