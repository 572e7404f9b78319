#include "engine/kvCryptDriver.h"

#include "platform/modFileIO.h"
#include "support/CProcTrap.h"
#include "support/modFSCommon.h"
#include "support/modYield.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <memory>
#include <openssl/evp.h>
#include <vector>

namespace {

constexpr size_t kReadSize = 256 * 1024;
constexpr uint64_t kGrid = 8192;

struct FileCloser {
    NativeFile file;
    ~FileCloser() { CloseFileHandle(file); }
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
NativeFile OpenSource(const std::string& path) {
    int error = 0;
    const NativeFile file = OpenFileHandle(path, OpenMode::kRead, error);
    if (file == kNoFile) Raise(error == ENOENT ? err::kFileNotFound : err::kPathFileAccess);
    return file;
}

// Signs an open regular file from its start.
SignedContent SignOpen(NativeFile file, bool yield, const std::atomic<bool>* stop,
                       FileStamp* stamp = nullptr) {
    const PathStatus status = StatusOfOpen(file);
    if (status.kind != PathKind::kFile) Raise(err::kPathFileAccess);
    const FileStamp before = FSStampOfStatus(status);
    if (status.size > kReadSize) AdviseSequential(file);

    // Reading stops at the length the file had when it was opened, or earlier at its end: a
    // file that grows meanwhile is signed as it was, one that shrinks as what was left.
    CSignatureStream signer;
    uint64_t remaining = status.size;
    uint64_t offset = 0;
    int error = 0;
    // One read buffer per thread: allocating and clearing it per file costs more than hashing
    // a small file.
    thread_local std::unique_ptr<char[]> buffer(new char[kReadSize]);
    while (remaining > 0) {
        const size_t want = static_cast<size_t>(std::min<uint64_t>(remaining, kReadSize));
        const int64_t got = ReadBytes(file, buffer.get(), want, &offset, error);
        if (got < 0) Raise(err::kDeviceIO);
        if (got == 0) break;
        signer.Add(buffer.get(), static_cast<size_t>(got));
        remaining -= static_cast<uint64_t>(got);
        if (yield) DoEvents();
        if (stop && stop->load(std::memory_order_relaxed)) Raise(err::kInternal, "stopped");
    }
    // The stamp vouches for the content only when nothing changed the file while it was read.
    if (stamp) *stamp = FSStampOfOpen(file) == before ? before : FileStamp{};
    return signer.Finish();
}

SignedContent Signature(const std::string& path, bool yield, const std::atomic<bool>* stop,
                        FileStamp* stamp = nullptr) {
    FileCloser source{OpenSource(path)};
    return SignOpen(source.file, yield, stop, stamp);
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

std::optional<SignedContent> ComputeOpenSignature(NativeFile file) {
    try {
        return SignOpen(file, false, nullptr);
    } catch (...) {
        return std::nullopt;
    }
}
