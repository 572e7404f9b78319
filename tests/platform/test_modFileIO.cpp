// Files read and written through the system's own handle: the open modes, reads and writes at
// the file's position or at an offset, the status of an open file, and the errors of files that
// cannot be opened.

#include "PlatformTestFolder.h"
#include "PlatformTestLinks.h"
#include "platform/CFile.h"
#include "platform/modFileIO.h"
#include "platform/modFileStatus.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <string>

namespace {

using platform_test::CTestFolder;
using platform_test::ReadWhole;
using platform_test::WriteWhole;

// A handle closed at the end of the test.
class CHeld {
public:
    explicit CHeld(NativeFile file) : m_file(file) {}
    ~CHeld() {
        if (m_file != kNoFile) CloseFileHandle(m_file);
    }
    CHeld(const CHeld&) = delete;
    CHeld& operator=(const CHeld&) = delete;
    NativeFile Get() const { return m_file; }
    int Close() {
        const int error = CloseFileHandle(m_file);
        m_file = kNoFile;
        return error;
    }

private:
    NativeFile m_file;
};

NativeFile Open(const std::string& path, OpenMode mode) {
    int error = 0;
    const NativeFile file = OpenFileHandle(path, mode, error);
    EXPECT_NE(file, kNoFile) << path << ": error " << error;
    return file;
}

int OpenError(const std::string& path, OpenMode mode) {
    int error = 0;
    const NativeFile file = OpenFileHandle(path, mode, error);
    if (file != kNoFile) {
        CloseFileHandle(file);
        return 0;
    }
    return error;
}

std::string ReadAt(NativeFile file, size_t size, uint64_t* offset) {
    std::string data(size, '\0');
    int error = 0;
    const int64_t n = ReadBytes(file, data.data(), size, offset, error);
    EXPECT_GE(n, 0) << "error " << error;
    data.resize(n > 0 ? static_cast<size_t>(n) : 0);
    return data;
}

bool Write(NativeFile file, const std::string& data, uint64_t* offset = nullptr) {
    int error = 0;
    const bool written = WriteBytes(file, data.data(), data.size(), offset, error);
    EXPECT_TRUE(written) << "error " << error;
    return written;
}

TEST(FileIO, ANewFileIsMadeOnlyWhereNothingIs) {
    CTestFolder folder;
    const std::string path = folder.Path("new");
    {
        CHeld file(Open(path, OpenMode::kCreateNew));
        EXPECT_TRUE(Write(file.Get(), "made"));
        EXPECT_EQ(file.Close(), 0);
    }
    EXPECT_EQ(ReadWhole(path), "made");
    EXPECT_EQ(OpenError(path, OpenMode::kCreateNew), EEXIST);
    EXPECT_EQ(ReadWhole(path), "made");
}

TEST(FileIO, CreateOrEmptyEmptiesAndCreateOrKeepWritesOverFromTheStart) {
    CTestFolder folder;
    const std::string emptied = folder.Path("emptied"), kept = folder.Path("kept");
    WriteWhole(emptied, "abcdef");
    WriteWhole(kept, "abcdef");
    {
        CHeld file(Open(emptied, OpenMode::kCreateOrEmpty));
        EXPECT_TRUE(Write(file.Get(), "XY"));
    }
    {
        CHeld file(Open(kept, OpenMode::kCreateOrKeep));
        EXPECT_TRUE(Write(file.Get(), "XY"));
    }
    EXPECT_EQ(ReadWhole(emptied), "XY");
    EXPECT_EQ(ReadWhole(kept), "XYcdef");
    // Both make the file when it is missing.
    CHeld(Open(folder.Path("made1"), OpenMode::kCreateOrEmpty));
    CHeld(Open(folder.Path("made2"), OpenMode::kCreateOrKeep));
    EXPECT_TRUE(platform_test::IsThere(folder.Path("made1")));
    EXPECT_TRUE(platform_test::IsThere(folder.Path("made2")));
}

TEST(FileIO, ReadsFollowThePositionOrTheOffsetWithoutMovingThePosition) {
    CTestFolder folder;
    const std::string path = folder.Path("data");
    WriteWhole(path, "0123456789");
    CHeld file(Open(path, OpenMode::kRead));
    EXPECT_EQ(ReadAt(file.Get(), 3, nullptr), "012");
    uint64_t offset = 6;
    EXPECT_EQ(ReadAt(file.Get(), 2, &offset), "67");
    EXPECT_EQ(offset, 8u);
    EXPECT_EQ(ReadAt(file.Get(), 3, nullptr), "345"); // the position stayed after "012"
    EXPECT_EQ(ReadAt(file.Get(), 10, &offset), "89");
    EXPECT_EQ(offset, 10u);
    EXPECT_EQ(ReadAt(file.Get(), 10, &offset), ""); // the end
    offset = 50;
    EXPECT_EQ(ReadAt(file.Get(), 10, &offset), ""); // past the end
    EXPECT_EQ(offset, 50u);
    EXPECT_EQ(ReadAt(file.Get(), 100, nullptr), "6789");
    EXPECT_EQ(ReadAt(file.Get(), 100, nullptr), "");
}

TEST(FileIO, WritesAtAnOffsetLeaveThePositionWhereItWas) {
    CTestFolder folder;
    const std::string path = folder.Path("data");
    {
        CHeld file(Open(path, OpenMode::kCreateNew));
        EXPECT_TRUE(Write(file.Get(), "abc"));
        uint64_t offset = 10;
        EXPECT_TRUE(Write(file.Get(), "XYZ", &offset));
        EXPECT_EQ(offset, 13u);
        EXPECT_TRUE(Write(file.Get(), "def")); // after "abc"
    }
    EXPECT_EQ(ReadWhole(path), std::string("abcdef") + std::string(4, '\0') + "XYZ");
}

TEST(FileIO, ALargeWriteIsWrittenWhole) {
    CTestFolder folder;
    const std::string path = folder.Path("large");
    std::string data(3 << 20, '\0');
    for (size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<char>((i * 31 + 7) % 251);
    {
        CHeld file(Open(path, OpenMode::kCreateNew));
        EXPECT_TRUE(Write(file.Get(), data));
        EXPECT_EQ(FlushToDisk(file.Get()), 0);
    }
    EXPECT_EQ(ReadWhole(path), data);
    CHeld file(Open(path, OpenMode::kRead));
    AdviseSequential(file.Get());
    std::string back;
    for (std::string piece; !(piece = ReadAt(file.Get(), 1 << 20, nullptr)).empty();)
        back += piece;
    EXPECT_EQ(back, data);
}

TEST(FileIO, TheStatusOfAnOpenFileIsThatOfItsPath) {
    CTestFolder folder;
    const std::string path = folder.Path("data");
    const auto before = std::chrono::system_clock::now() - std::chrono::seconds(5);
    WriteWhole(path, "12345");
    CHeld file(Open(path, OpenMode::kRead));
    const PathStatus open = StatusOfOpen(file.Get());
    const PathStatus named = StatusOf(path);
    EXPECT_EQ(open.kind, PathKind::kFile);
    EXPECT_EQ(open.size, 5u);
    EXPECT_EQ(open.identity, named.identity);
    EXPECT_NE(open.identity, FileIdentity{});
    EXPECT_EQ(open.writeNs, named.writeNs);
    EXPECT_EQ(open.changeNs, named.changeNs);
    EXPECT_FALSE(open.readOnly);
    const int64_t since =
        std::chrono::duration_cast<std::chrono::nanoseconds>(before.time_since_epoch()).count();
    EXPECT_GT(open.writeNs, since);
    EXPECT_LT(open.writeNs, since + int64_t{60} * 1'000'000'000);
}

TEST(FileIO, AFolderOpensForReadingOnlyAndSaysItIsAFolder) {
    CTestFolder folder;
    CHeld file(Open(folder.Root(), OpenMode::kRead));
    EXPECT_EQ(StatusOfOpen(file.Get()).kind, PathKind::kFolder);
    EXPECT_EQ(OpenError(folder.Root(), OpenMode::kCreateOrKeep), EISDIR);
    EXPECT_EQ(OpenError(folder.Root(), OpenMode::kCreateOrEmpty), EISDIR);
    EXPECT_EQ(OpenError(folder.Root(), OpenMode::kCreateNew), EEXIST);
}

TEST(FileIO, WhatCannotBeOpenedSaysWhy) {
    CTestFolder folder;
    WriteWhole(folder.Path("file"), "x");
    EXPECT_EQ(OpenError(folder.Path("missing"), OpenMode::kRead), ENOENT);
    EXPECT_EQ(OpenError(folder.Path("missing"), OpenMode::kReadThrough), ENOENT);
    EXPECT_EQ(OpenError(folder.Path("no folder") + kPathSeparator + "new", OpenMode::kCreateNew),
              ENOENT);
    EXPECT_EQ(OpenError(folder.Path("file") + kPathSeparator + "below", OpenMode::kRead), ENOTDIR);
    EXPECT_EQ(OpenError(folder.Path("file") + kPathSeparator + "below", OpenMode::kCreateOrKeep),
              ENOTDIR);
}

TEST(FileIO, TruncateSetsTheEndAndLeavesThePosition) {
    CTestFolder folder;
    const std::string path = folder.Path("data");
    {
        CHeld file(Open(path, OpenMode::kCreateNew));
        EXPECT_TRUE(Write(file.Get(), "abcdef"));
        EXPECT_EQ(TruncateTo(file.Get(), 2), 0);
        EXPECT_EQ(StatusOfOpen(file.Get()).size, 2u);
        EXPECT_TRUE(Write(file.Get(), "Z")); // still at 6: the gap is filled with zeros
        EXPECT_EQ(TruncateTo(file.Get(), 9), 0);
        EXPECT_EQ(StatusOfOpen(file.Get()).size, 9u);
    }
    EXPECT_EQ(ReadWhole(path), std::string("ab\0\0\0\0Z\0\0", 9));
}

// The system's own copy between two files where it has one; ENOSYS where not (always on
// Windows), and the caller copies by itself.
TEST(FileIO, TheSystemCopiesBetweenFilesOrSaysItCannot) {
    CTestFolder folder;
    WriteWhole(folder.Path("in"), "content");
    CHeld in(Open(folder.Path("in"), OpenMode::kRead));
    CHeld out(Open(folder.Path("out"), OpenMode::kCreateNew));
    uint64_t offset = 0;
    int error = 0;
    const int64_t n = CopyBytes(in.Get(), out.Get(), &offset, 1 << 20, error);
#ifdef _WIN32
    EXPECT_EQ(n, -1);
#endif
    if (n < 0) {
        EXPECT_EQ(error, ENOSYS);
        return;
    }
    EXPECT_EQ(n, 7);
    EXPECT_EQ(offset, 7u);
    out.Close();
    EXPECT_EQ(ReadWhole(folder.Path("out")), "content");
}

// Other programs, and the program itself, may rename and remove a file it holds open.
TEST(FileIO, AFileHeldOpenMayBeRenamedAndRemoved) {
    CTestFolder folder;
    WriteWhole(folder.Path("read"), "r");
    CHeld read(Open(folder.Path("read"), OpenMode::kRead));
    CHeld written(Open(folder.Path("written"), OpenMode::kCreateNew));
    CHeld again(Open(folder.Path("written"), OpenMode::kCreateOrKeep)); // and opened twice
    EXPECT_EQ(RenameReplacing(folder.Path("read"), folder.Path("renamed")), 0);
    EXPECT_EQ(RenameReplacing(folder.Path("written"), folder.Path("renamed2")), 0);
    EXPECT_EQ(ReadAt(read.Get(), 10, nullptr), "r");
    EXPECT_EQ(RemoveFile(folder.Path("renamed")), 0);
    // Windows keeps the name of a removed file until its last handle is closed.
    EXPECT_EQ(read.Close(), 0);
    EXPECT_FALSE(platform_test::IsThere(folder.Path("renamed")));
}

TEST(FileIO, ASourceIsNotFollowedThroughALinkUnlessAsked) {
    CTestFolder folder;
    WriteWhole(folder.Path("target"), "through");
    if (!MakeFileLink(folder.Path("target"), folder.Path("link")))
        GTEST_SKIP() << "this system makes no links";
    EXPECT_EQ(OpenError(folder.Path("link"), OpenMode::kRead), ELOOP);
    CHeld file(Open(folder.Path("link"), OpenMode::kReadThrough));
    EXPECT_EQ(ReadAt(file.Get(), 100, nullptr), "through");
    EXPECT_EQ(StatusOfOpen(file.Get()).kind, PathKind::kFile);
    EXPECT_EQ(OpenError(folder.Path("link"), OpenMode::kCreateNew), EEXIST);
}

TEST(FileIO, AUtf8NameIsTheFileOfThatName) {
    CTestFolder folder;
    const std::string path = folder.Path("r\xC3\xA9sum\xC3\xA9 \xE6\x97\xA5\xE6\x9C\xAC.txt");
    {
        CHeld file(Open(path, OpenMode::kCreateNew));
        EXPECT_TRUE(Write(file.Get(), "named"));
    }
    EXPECT_EQ(ReadWhole(path), "named");
    EXPECT_EQ(StatusOf(path).size, 5u);
}

} // namespace
