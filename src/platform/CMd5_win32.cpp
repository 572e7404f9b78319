#include "platform/CMd5.h"

#include "platform/modWin32.h"

#include <algorithm>
#include <bcrypt.h>

// BCrypt's MD5: one algorithm provider for the process (its handle may serve every thread at
// once), and a hash object per digest, made anew by Restart.

namespace {

BCRYPT_ALG_HANDLE Md5Provider() {
    static const BCRYPT_ALG_HANDLE provider = [] {
        BCRYPT_ALG_HANDLE opened = nullptr;
        if (!BCRYPT_SUCCESS(
                ::BCryptOpenAlgorithmProvider(&opened, BCRYPT_MD5_ALGORITHM, nullptr, 0)))
            opened = nullptr;
        return opened;
    }();
    return provider;
}

} // namespace

struct CMd5::Digest {
    BCRYPT_HASH_HANDLE hash = nullptr;
    ~Digest() { Drop(); }
    void Drop() {
        if (hash) ::BCryptDestroyHash(hash);
        hash = nullptr;
    }
};

CMd5::CMd5() : m_digest(std::make_unique<Digest>()) {
    Restart();
}

CMd5::~CMd5() = default;

bool CMd5::Restart() {
    m_digest->Drop();
    const BCRYPT_ALG_HANDLE provider = Md5Provider();
    // BCrypt keeps the hash object's memory itself when it is given none.
    m_ok = provider &&
           BCRYPT_SUCCESS(::BCryptCreateHash(provider, &m_digest->hash, nullptr, 0, nullptr, 0, 0));
    return m_ok;
}

bool CMd5::Add(const void* data, size_t size) {
    auto* bytes = static_cast<PUCHAR>(const_cast<void*>(data));
    while (m_ok && size > 0) {
        const ULONG piece = static_cast<ULONG>(std::min<size_t>(size, 1u << 30));
        m_ok = BCRYPT_SUCCESS(::BCryptHashData(m_digest->hash, bytes, piece, 0));
        bytes += piece;
        size -= piece;
    }
    return m_ok;
}

std::string CMd5::Finish() {
    unsigned char digest[16];
    const bool done = m_ok && BCRYPT_SUCCESS(::BCryptFinishHash(m_digest->hash, digest, 16, 0));
    Restart();
    return done ? Md5Hex(digest) : std::string();
}
