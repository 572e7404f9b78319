#include "platform/CMd5.h"

std::string Md5Hex(const unsigned char* digest) {
    static const char digits[] = "0123456789abcdef";
    std::string hex(32, '0');
    for (size_t i = 0; i < 16; ++i) {
        hex[2 * i] = digits[digest[i] >> 4];
        hex[2 * i + 1] = digits[digest[i] & 15];
    }
    return hex;
}
