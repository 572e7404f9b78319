#include "platform/CMd5.h"

#include <openssl/evp.h>

struct CMd5::Digest {
    EVP_MD_CTX* ctx = EVP_MD_CTX_new();
    ~Digest() { EVP_MD_CTX_free(ctx); }
};

CMd5::CMd5() : m_digest(std::make_unique<Digest>()) {
    Restart();
}

CMd5::~CMd5() = default;

bool CMd5::Restart() {
    m_ok = m_digest->ctx && EVP_DigestInit_ex(m_digest->ctx, EVP_md5(), nullptr) == 1;
    return m_ok;
}

bool CMd5::Add(const void* data, size_t size) {
    if (m_ok && EVP_DigestUpdate(m_digest->ctx, data, size) != 1) m_ok = false;
    return m_ok;
}

std::string CMd5::Finish() {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned size = 0;
    const bool done = m_ok && EVP_DigestFinal_ex(m_digest->ctx, digest, &size) == 1 && size == 16;
    Restart();
    return done ? Md5Hex(digest) : std::string();
}
