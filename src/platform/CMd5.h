#pragma once

// MD5 of bytes handed in piece by piece, for the file signature: OpenSSL's libcrypto on Linux,
// BCrypt on Windows. The digest comes out as 32 lower-case hex digits. A failure of the system's
// MD5 (none available, a call that fails) is told by the answer, never thrown: the caller raises
// its own error.

#include <cstddef>
#include <memory>
#include <string>

class CMd5 {
public:
    // Started: ready for Add.
    CMd5();
    ~CMd5();
    CMd5(const CMd5&) = delete;
    CMd5& operator=(const CMd5&) = delete;

    // Forgets every byte added; false when MD5 is not available.
    bool Restart();
    // False when the bytes could not be added (the digest is then of no use).
    bool Add(const void* data, size_t size);
    // The digest of every byte added since the start, in lower-case hex, "" after a failure;
    // starts again for the next digest.
    std::string Finish();

private:
    struct Digest;
    std::unique_ptr<Digest> m_digest;
    bool m_ok = false;
};

// The 16 bytes of a digest in lower-case hex.
std::string Md5Hex(const unsigned char* digest);
