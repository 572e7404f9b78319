#include "engine/kvCryptDriver.h"

#include "platform/CMd5.h"
#include "platform/modFileIO.h"
#include "support/CBufferPool.h"
#include "support/CProcTrap.h"
#include "support/modFSCommon.h"
#include "support/modYield.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <memory>
#include <vector>

namespace {

constexpr size_t kReadSize = 256 * 1024;
constexpr uint64_t kGrid = 8192;

struct FileCloser {
    NativeFile file;
    ~FileCloser() { CloseFileHandle(file); }
};

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
                       FileStamp* stamp = nullptr, std::atomic<uint64_t>* read = nullptr) {
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
    // A pooled read buffer: allocating and clearing one per file costs more than hashing a
    // small file.
    static CBufferPool buffers(kReadSize);
    const CBufferPool::Lease buffer = buffers.Take();
    while (remaining > 0) {
        const size_t want = static_cast<size_t>(std::min<uint64_t>(remaining, kReadSize));
        const int64_t got = ReadBytes(file, buffer.Data(), want, &offset, error);
        if (got < 0) Raise(err::kDeviceIO);
        if (got == 0) break;
        signer.Add(buffer.Data(), static_cast<size_t>(got));
        remaining -= static_cast<uint64_t>(got);
        if (read) read->fetch_add(static_cast<uint64_t>(got), std::memory_order_relaxed);
        if (yield) DoEvents();
        if (stop && stop->load(std::memory_order_relaxed)) Raise(err::kInternal, "stopped");
    }
    // The stamp vouches for the content only when nothing changed the file while it was read.
    if (stamp) *stamp = FSStampOfOpen(file) == before ? before : FileStamp{};
    return signer.Finish();
}

SignedContent Signature(const std::string& path, bool yield, const std::atomic<bool>* stop,
                        FileStamp* stamp = nullptr, std::atomic<uint64_t>* read = nullptr) {
    FileCloser source{OpenSource(path)};
    return SignOpen(source.file, yield, stop, stamp, read);
}

} // namespace

struct CSignatureStream::Digest {
    CMd5 md5;
};

CSignatureStream::CSignatureStream() : m_digest(std::make_unique<Digest>()) {
    Restart();
}

CSignatureStream::~CSignatureStream() = default;

void CSignatureStream::Restart() {
    if (!m_digest->md5.Restart()) Raise(err::kInternal, "MD5 is not available");
    m_length = 0;
}

void CSignatureStream::Add(const char* data, size_t size) {
    if (!m_digest->md5.Add(data, size)) Raise(err::kInternal, "MD5 update failed");
    m_length += size;
}

SignedContent CSignatureStream::Finish() {
    // The block rule adds one zero byte per started 8192-byte block.
    static const char zeros[4096] = {};
    for (uint64_t pad = (m_length + kGrid - 1) / kGrid; pad > 0;) {
        const size_t piece = static_cast<size_t>(std::min<uint64_t>(pad, sizeof zeros));
        if (!m_digest->md5.Add(zeros, piece)) Raise(err::kInternal, "MD5 update failed");
        pad -= piece;
    }
    std::string signature = m_digest->md5.Finish();
    if (signature.empty()) Raise(err::kInternal, "MD5 failed");
    return {std::move(signature), m_length};
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
                                              const std::atomic<bool>* stop, FileStamp* stamp,
                                              std::atomic<uint64_t>* read) {
    try {
        return Signature(path, false, stop, stamp, read);
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
