#pragma once

// File signatures: the text that names a content's store file and fills Files.md5.
//
// The signature follows a fixed block rule: the file is fed to MD5 in pieces of 8193 bytes per
// 8192-byte block (reads run ahead of the 8192 grid) plus one piece of rest + 1 bytes, bytes past
// the end of the file being zero. The result equals the plain MD5 of the file's bytes followed by
// ceil(L / 8192) zero bytes, so it is computed here in one streaming pass with any read size.
// Hex digits are lower case everywhere.
//
// A file that changes while it is read still gets the signature of one definite content: the
// bytes actually read (never more than the length the file had when it was opened), with the
// zero bytes that their own length calls for. SignedContent carries that length with the
// signature, so a caller records the size of the content it signed, not a size read elsewhere.

#include "support/modFSCommon.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

inline constexpr int32_t kAlgorithmMD5 = 3;

struct SignedContent {
    std::string signature; // "" after an error
    uint64_t length = 0;   // the bytes the signature covers
    bool operator==(const SignedContent&) const = default;
};

// The signature of bytes handed in piece by piece (a copy's data as it is written).
class CSignatureStream {
public:
    CSignatureStream();
    ~CSignatureStream();
    CSignatureStream(const CSignatureStream&) = delete;
    CSignatureStream& operator=(const CSignatureStream&) = delete;

    // Forgets every byte seen so far.
    void Restart();
    void Add(const char* data, size_t size);
    uint64_t Length() const { return m_length; }
    // The signature of every byte added since the last Restart.
    SignedContent Finish();

private:
    struct Digest;
    std::unique_ptr<Digest> m_digest;
    uint64_t m_length = 0;
};

// HashFile with MD5; the entry point of the backup run and the restore.
std::string MD5File(const std::string& path);
// The signature, or "" after any error (reported under "HashFile").
std::string HashFile(int32_t algorithm, const std::string& path);
// MD5File with the length it covers; an empty signature after any error (reported under
// "HashFile").
SignedContent SignFile(const std::string& path);

// The same signature without the error handler and without letting window messages run, for
// use off the window's thread; nullopt after any error, or once `stop` becomes true. `stamp`
// receives the file's stamp as it was opened, or an unknown one when the file changed while it
// was read. `read`, when given, grows by every byte read, as it is read.
std::optional<SignedContent> ComputeSignature(const std::string& path,
                                              const std::atomic<bool>* stop = nullptr,
                                              FileStamp* stamp = nullptr,
                                              std::atomic<uint64_t>* read = nullptr);
// The same for a file already open (read from its start), for any thread.
std::optional<SignedContent> ComputeOpenSignature(NativeFile file);
