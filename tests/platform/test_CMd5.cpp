// The MD5 behind the file signature: known digests of plain bytes, the signature of every listed
// test content (its bytes followed by one zero byte per started 8192-byte block), whatever the
// size of the pieces it is handed in, and a digest that starts again after each Finish.

#include "platform/CMd5.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>

namespace {

struct Vector {
    uint64_t length;
    const char* signature;
};

// The signatures of the test content of each length, computed with the block rule as written.
const Vector kVectors[] = {
    {0, "d41d8cd98f00b204e9800998ecf8427e"},        {1, "6264a30ebd7d7c8e62f4981f64601d33"},
    {2, "6d32aa6cc90a1ec2509ebc9785b10036"},        {100, "fdfb779e400e106cbdb2835fa45b7950"},
    {8191, "f213284222638f62f999b9e05c24ee4a"},     {8192, "dfae56b34800ec4c96cc33ac9507c66e"},
    {8193, "d3b90f2dd35c46f66adb5a478929a1eb"},     {8194, "9d696e178fd5776348dcbb84e16ca2f8"},
    {16383, "98d49627320edf56605541331c811ebe"},    {16384, "8eb0ccbaa6c8ecddb01b6b302882b6e7"},
    {16385, "2ff7f12840514c5a691e76dfcd68919d"},    {16386, "cba12baa9e28515cf332195d3a9614aa"},
    {24576, "a9132198bc008f086397065333aee389"},    {65536, "2307867273451cecc1891905e620ce0c"},
    {100000, "63119aeb3a867b57a558f1fbd87c6a81"},   {1048576, "9c5232473db3a4cf089e4ba6d6af3626"},
    {67117055, "09ce0af732b7076e194af5f4e25d1657"}, {67117056, "3d7922c35c3b709bce7be7028ea210c6"},
    {67117057, "ea2ed6e92b065a68184bb3f2dfac350c"}, {67125253, "42880f2f3b2f0d533be477f8d5538e61"},
};

// The test content from byte `from` on, `n` bytes: byte i is (i * 31 + 7) mod 251, so it
// repeats every 251 bytes.
std::string Content(uint64_t from, size_t n) {
    std::string bytes(n, '\0');
    for (size_t i = 0; i < n; ++i)
        bytes[i] = static_cast<char>(((from + i) % 251 * 31 + 7) % 251);
    return bytes;
}

// The signature of the test content of `length`, handed to the digest in pieces of `piece`
// bytes: the content, then one zero byte for every started 8192-byte block.
std::string Signature(uint64_t length, size_t piece) {
    // One piece's worth of content from every offset of the period is a window on this.
    const std::string content = Content(0, piece + 251);
    CMd5 md5;
    for (uint64_t at = 0; at < length;) {
        const size_t n = static_cast<size_t>(std::min<uint64_t>(piece, length - at));
        EXPECT_TRUE(md5.Add(content.data() + at % 251, n));
        at += n;
    }
    const std::string zeros(static_cast<size_t>((length + 8191) / 8192), '\0');
    EXPECT_TRUE(md5.Add(zeros.data(), zeros.size()));
    return md5.Finish();
}

std::string Digest(const std::string& bytes) {
    CMd5 md5;
    EXPECT_TRUE(md5.Add(bytes.data(), bytes.size()));
    return md5.Finish();
}

TEST(Md5, KnownDigestsOfPlainBytes) {
    EXPECT_EQ(Digest(""), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(Digest("a"), "0cc175b9c0f1b6a831c399e269772661");
    EXPECT_EQ(Digest("abc"), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(Digest("message digest"), "f96b697d7cb7938d525a2f31aaf161d0");
    EXPECT_EQ(Digest("abcdefghijklmnopqrstuvwxyz"), "c3fcd3d76192e4007dfb496cca67e13b");
    EXPECT_EQ(
        Digest("12345678901234567890123456789012345678901234567890123456789012345678901234567890"),
        "57edf4a22be3c955ac49da2e2107b67a");
}

TEST(Md5, EveryListedSignatureIsReproduced) {
    for (const Vector& v : kVectors)
        EXPECT_EQ(Signature(v.length, 256 * 1024), v.signature) << "length " << v.length;
}

TEST(Md5, PiecesOfAnySizeGiveTheSameSignature) {
    for (const Vector& v : kVectors) {
        if (v.length > 100000) continue;
        for (const size_t piece : {size_t{1}, size_t{7}, size_t{8192}, size_t{8193}})
            EXPECT_EQ(Signature(v.length, piece), v.signature)
                << "length " << v.length << " in pieces of " << piece;
    }
}

TEST(Md5, FinishStartsAgainAndRestartForgets) {
    CMd5 md5;
    EXPECT_TRUE(md5.Add("abc", 3));
    EXPECT_EQ(md5.Finish(), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(md5.Finish(), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_TRUE(md5.Add("forgotten", 9));
    EXPECT_TRUE(md5.Restart());
    EXPECT_TRUE(md5.Add("ab", 2));
    EXPECT_TRUE(md5.Add(nullptr, 0));
    EXPECT_TRUE(md5.Add("c", 1));
    EXPECT_EQ(md5.Finish(), "900150983cd24fb0d6963f7d28e17f72");
}

} // namespace
