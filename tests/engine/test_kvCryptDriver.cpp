// File signatures: the block rule (8193 bytes added per 8192-byte block, rest + 1 bytes for the
// last piece, unfilled bytes zero, lower-case hex) reproduced against known vectors and against
// a plain MD5 of the padded content, and the empty result after an error.

#include "BackupFixture.h"
#include "WindowsTestHelpers.h"

#include "engine/kvCryptDriver.h"
#include "support/modServices.h"
#include "support/modYield.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>
#ifndef _WIN32
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace {

// Cuts the file at `path` (or makes it longer with zero bytes) to `length` bytes.
void ResizeFile(const std::string& path, uintmax_t length) {
    std::error_code error;
    std::filesystem::resize_file(FsPath(path), length, error);
    ASSERT_FALSE(error) << error.message();
}

struct Vector {
    size_t length;
    const char* signature;
};

// Signatures of PatternContent(length), computed with the block rule as written.
const std::vector<Vector> kSmallVectors = {
    {0, "d41d8cd98f00b204e9800998ecf8427e"},      {1, "6264a30ebd7d7c8e62f4981f64601d33"},
    {2, "6d32aa6cc90a1ec2509ebc9785b10036"},      {100, "fdfb779e400e106cbdb2835fa45b7950"},
    {8191, "f213284222638f62f999b9e05c24ee4a"},   {8192, "dfae56b34800ec4c96cc33ac9507c66e"},
    {8193, "d3b90f2dd35c46f66adb5a478929a1eb"},   {8194, "9d696e178fd5776348dcbb84e16ca2f8"},
    {16383, "98d49627320edf56605541331c811ebe"},  {16384, "8eb0ccbaa6c8ecddb01b6b302882b6e7"},
    {16385, "2ff7f12840514c5a691e76dfcd68919d"},  {16386, "cba12baa9e28515cf332195d3a9614aa"},
    {24576, "a9132198bc008f086397065333aee389"},  {65536, "2307867273451cecc1891905e620ce0c"},
    {100000, "63119aeb3a867b57a558f1fbd87c6a81"}, {1048576, "9c5232473db3a4cf089e4ba6d6af3626"},
};

// Longest first: each is a prefix of the one before, so one file is written and cut shorter.
const std::vector<Vector> kLargeVectors = {
    {67125253, "42880f2f3b2f0d533be477f8d5538e61"},
    {67117057, "ea2ed6e92b065a68184bb3f2dfac350c"},
    {67117056, "3d7922c35c3b709bce7be7028ea210c6"},
    {67117055, "09ce0af732b7076e194af5f4e25d1657"},
};

class HashFileTest : public ::testing::Test {
protected:
    std::string Write(const std::string& name, const std::string& content) {
        const std::string path = env.Path(name);
        WriteFile(path, content);
        return path;
    }

    ScopedTestEnv env;
};

TEST_F(HashFileTest, EveryListedSignatureUpToOneMebibyteIsReproduced) {
    for (const Vector& v : kSmallVectors) {
        const std::string path = Write("v" + std::to_string(v.length), PatternContent(v.length));
        EXPECT_EQ(MD5File(path), v.signature) << "length " << v.length;
    }
    EXPECT_TRUE(env.box.calls.empty());
}

TEST_F(HashFileTest, EveryListedSignatureOfLargeFilesIsReproduced) {
    const std::string path = Write("large", PatternContent(kLargeVectors.front().length));
    for (const Vector& v : kLargeVectors) {
        ResizeFile(path, v.length);
        EXPECT_EQ(MD5File(path), v.signature) << "length " << v.length;
    }
}

TEST_F(HashFileTest, EmptyFileYieldsTheDigestOfNoData) {
    EXPECT_EQ(MD5File(Write("empty", "")), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_TRUE(env.box.calls.empty());
}

TEST_F(HashFileTest, FileOf8191BytesAddsOnePieceOf8192BytesEndingInZero) {
    const std::string content = PatternContent(8191);
    EXPECT_EQ(MD5File(Write("f", content)), PlainMD5(content + std::string(1, '\0')));
}

TEST_F(HashFileTest, FileOfExactly8192BytesAddsOneBlockOf8193BytesAndNothingMore) {
    const std::string content = PatternContent(8192);
    EXPECT_EQ(MD5File(Write("f", content)), PlainMD5(content + std::string(1, '\0')));
}

TEST_F(HashFileTest, EveryStartedBlockAddsOneZeroByteAtTheEnd) {
    for (size_t length : {1u, 8193u, 16384u, 16385u, 40000u}) {
        const std::string content = PatternContent(length);
        const size_t pieces = (length + 8191) / 8192;
        EXPECT_EQ(MD5File(Write("f", content)), PlainMD5(content + std::string(pieces, '\0')))
            << "length " << length;
    }
}

TEST_F(HashFileTest, SignatureIsNotThePlainMD5OfTheContent) {
    const std::string content = PatternContent(100);
    EXPECT_NE(MD5File(Write("f", content)), PlainMD5(content));
}

TEST_F(HashFileTest, SignatureIs32LowerCaseHexDigits) {
    const std::string signature = MD5File(Write("f", "some content"));
    ASSERT_EQ(signature.size(), 32u);
    for (char c : signature)
        EXPECT_TRUE((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f')) << c;
}

TEST_F(HashFileTest, SameContentInTwoFilesYieldsTheSameSignature) {
    const std::string content = PatternContent(30000);
    EXPECT_EQ(MD5File(Write("a", content)), MD5File(Write("b", content)));
}

TEST_F(HashFileTest, OneByteChangeYieldsAnotherSignature) {
    std::string content = PatternContent(30000);
    const std::string first = MD5File(Write("a", content));
    content[12345] = static_cast<char>(content[12345] ^ 1);
    EXPECT_NE(MD5File(Write("b", content)), first);
}

TEST_F(HashFileTest, TrailingZeroByteChangesTheSignature) {
    // The zero padding is added by the rule, not read from the file: a real zero differs.
    EXPECT_NE(MD5File(Write("a", "abc")), MD5File(Write("b", std::string("abc\0", 4))));
}

TEST_F(HashFileTest, HashFileWithAlgorithmThreeEqualsMD5File) {
    const std::string path = Write("f", PatternContent(9000));
    EXPECT_EQ(HashFile(kAlgorithmMD5, path), MD5File(path));
}

TEST_F(HashFileTest, MissingFileYieldsEmptyTextReportedUnderHashFile) {
    EXPECT_EQ(MD5File(env.Path("missing")), "");
    EXPECT_EQ(ErrHandler().ErrProcedure(), "HashFile");
    EXPECT_EQ(ErrHandler().ErrNumber(), 53);
    ASSERT_EQ(env.box.calls.size(), 1u);
    EXPECT_EQ(env.box.calls[0].style, 16);
    EXPECT_EQ(ErrHandler().StackPointer(), 0);
}

TEST_F(HashFileTest, UnreadableFileYieldsEmptyText) {
    const std::string path = Write("locked", "secret");
#ifdef _WIN32
    // Held by another program with no sharing.
    const ExclusiveHold hold(path);
    ASSERT_TRUE(hold.Ok());
#else
    ASSERT_EQ(::chmod(path.c_str(), 0), 0);
    ScopedNoPermissionOverride noOverride;
    if (!noOverride.Ok()) GTEST_SKIP() << "permissions cannot be enforced here";
#endif
    EXPECT_EQ(MD5File(path), "");
    EXPECT_EQ(ErrHandler().ErrProcedure(), "HashFile");
}

TEST_F(HashFileTest, FolderYieldsEmptyText) {
    EXPECT_EQ(MD5File(env.Root()), "");
    EXPECT_EQ(ErrHandler().ErrProcedure(), "HashFile");
}

#ifndef _WIN32
TEST_F(HashFileTest, FifoWithoutWriterYieldsEmptyTextWithoutWaiting) {
    const std::string path = env.Path("fifo");
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    EXPECT_EQ(MD5File(path), "");
}
#endif

TEST_F(HashFileTest, NameWithInvalidUtf8AndNewLineIsHashedByItsBytes) {
    const std::string content = PatternContent(5000);
#ifdef _WIN32
    // Windows names are UTF-8 here, with no control character and no backslash.
    const std::string path = Write(std::string("n\xc3\xa9 me'\xe6\x97\xa5x"), content);
#else
    const std::string path = Write(std::string("n\xff\xfe\nme'\\x"), content);
#endif
    EXPECT_EQ(MD5File(path), PlainMD5(content + std::string(1, '\0')));
}

} // namespace

namespace {

TEST_F(HashFileTest, SignFileGivesTheSignatureWithTheLengthItCovers) {
    const std::string content = PatternContent(100000);
    EXPECT_EQ(SignFile(Write("f", content)),
              (SignedContent{"63119aeb3a867b57a558f1fbd87c6a81", 100000}));
}

TEST_F(HashFileTest, SignFileOfAMissingFileIsEmptyAndReportedUnderHashFile) {
    ErrHandler().DisplayMsgOnError(false);
    EXPECT_EQ(SignFile(env.Path("missing")), SignedContent{});
    EXPECT_EQ(ErrHandler().ErrProcedure(), "HashFile");
    EXPECT_EQ(ErrHandler().ErrNumber(), 53);
}

#ifndef _WIN32
// Wine makes no links.
TEST_F(HashFileTest, SymbolicLinkIsNotFollowed) {
    ErrHandler().DisplayMsgOnError(false);
    const std::string target = Write("target", "bytes of another file");
    ASSERT_EQ(::symlink(target.c_str(), env.Path("link").c_str()), 0);
    EXPECT_EQ(MD5File(env.Path("link")), "");
    EXPECT_EQ(ErrHandler().ErrProcedure(), "HashFile");
}
#endif

TEST_F(HashFileTest, FileThatGrowsWhileItIsReadIsSignedAsItWasWhenOpened) {
    const std::string content = PatternContent(600 * 1024);
    const std::string path = Write("growing", content);
    bool grown = false;
    SetYieldHook([&] {
        if (grown) return;
        grown = true;
        std::string more = ReadFile(path) + std::string(100 * 1024, 'x');
        WriteFile(path, more);
    });
    EXPECT_EQ(SignFile(path), (SignedContent{TestSignature(content), content.size()}));
    SetYieldHook(nullptr);
    EXPECT_TRUE(grown);
}

TEST_F(HashFileTest, FileThatShrinksWhileItIsReadIsSignedAsTheBytesRead) {
    const std::string content = PatternContent(600 * 1024);
    const std::string path = Write("shrinking", content);
    bool cut = false;
    SetYieldHook([&] {
        if (cut) return;
        cut = true;
        ResizeFile(path, 300 * 1024);
    });
    // The first read took 256 KiB; the rest of the file then ends at 300 KiB.
    const std::string read = content.substr(0, 300 * 1024);
    EXPECT_EQ(SignFile(path), (SignedContent{TestSignature(read), read.size()}));
    SetYieldHook(nullptr);
}

TEST(CSignatureStream, BytesHandedInPiecesGiveTheFilesSignature) {
    for (size_t length : {size_t{0}, size_t{1}, size_t{8192}, size_t{8193}, size_t{1048576}}) {
        const std::string content = PatternContent(length);
        CSignatureStream stream;
        stream.Add("stale", 5);
        stream.Restart();
        for (size_t at = 0; at < length; at += 3001)
            stream.Add(content.data() + at, std::min<size_t>(3001, length - at));
        EXPECT_EQ(stream.Length(), length);
        EXPECT_EQ(stream.Finish(), (SignedContent{TestSignature(content), length})) << length;
    }
}

} // namespace
