// A folder held open for the store's staged files: files made in it, given their place without
// ever replacing one, and removed; anonymous files where the system has them.

#include "PlatformTestFolder.h"
#include "platform/COpenFolder.h"
#include "platform/modFileIO.h"
#include "platform/modFileStatus.h"
#include "platform/modFileSystem.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>

namespace {

using platform_test::CTestFolder;
using platform_test::IsThere;
using platform_test::ReadWhole;
using platform_test::WriteWhole;

bool Write(NativeFile file, const std::string& data) {
    int error = 0;
    uint64_t offset = 0;
    return WriteBytes(file, data.data(), data.size(), &offset, error);
}

TEST(OpenFolder, OpensOnlyAFolderThatIsThere) {
    CTestFolder test;
    WriteWhole(test.Path("file"), "x");
    COpenFolder folder;
    EXPECT_EQ(folder.Open(test.Path("missing")), ENOENT);
    EXPECT_EQ(folder.Open(test.Path("file")), ENOTDIR);
    ASSERT_EQ(folder.Open(test.Root()), 0);
    EXPECT_EQ(folder.Path(), test.Root());
    EXPECT_EQ(folder.Identity(), StatusOf(test.Root()).identity);
    EXPECT_NE(folder.Identity(), FileIdentity{});
}

TEST(OpenFolder, ANewFileIsMadeOnlyUnderAFreeName) {
    CTestFolder test;
    COpenFolder folder;
    ASSERT_EQ(folder.Open(test.Root()), 0);
    int error = 0;
    const NativeFile file = folder.CreateNew("staged.tmp", error);
    ASSERT_NE(file, kNoFile) << "error " << error;
    EXPECT_TRUE(Write(file, "content"));
    // Open for reading too.
    char back[16] = {};
    uint64_t offset = 0;
    EXPECT_EQ(ReadBytes(file, back, sizeof back, &offset, error), 7);
    EXPECT_EQ(std::string(back), "content");
    EXPECT_EQ(CloseFileHandle(file), 0);
    EXPECT_EQ(ReadWhole(test.Path("staged.tmp")), "content");
    EXPECT_EQ(folder.CreateNew("staged.tmp", error), kNoFile);
    EXPECT_EQ(error, EEXIST);
    EXPECT_EQ(ReadWhole(test.Path("staged.tmp")), "content");
#ifndef _WIN32
    EXPECT_EQ(std::filesystem::status(test.Path("staged.tmp")).permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
#endif
}

// The store's way: the staged file is still held while it gets its place.
TEST(OpenFolder, AFileHeldOpenGetsItsPlaceButNeverReplacesOne) {
    CTestFolder test;
    std::filesystem::create_directories(platform_test::Native(test.Path("ab")));
    const std::string target = test.Path("ab") + kPathSeparator + "abcd.QRV";
    COpenFolder folder;
    ASSERT_EQ(folder.Open(test.Root()), 0);
    int error = 0;
    const NativeFile file = folder.CreateNew("first.tmp", error);
    ASSERT_NE(file, kNoFile);
    EXPECT_TRUE(Write(file, "first"));
    EXPECT_EQ(FlushToDisk(file), 0);
    EXPECT_EQ(folder.RenameNoReplace("first.tmp", target), 0);
    EXPECT_EQ(CloseFileHandle(file), 0);
    EXPECT_FALSE(IsThere(test.Path("first.tmp")));
    EXPECT_EQ(ReadWhole(target), "first");

    const NativeFile second = folder.CreateNew("second.tmp", error);
    ASSERT_NE(second, kNoFile);
    EXPECT_TRUE(Write(second, "second"));
    EXPECT_EQ(folder.RenameNoReplace("second.tmp", target), EEXIST);
    EXPECT_EQ(CloseFileHandle(second), 0);
    EXPECT_EQ(ReadWhole(target), "first");
    EXPECT_EQ(ReadWhole(test.Path("second.tmp")), "second");
    EXPECT_EQ(folder.RenameNoReplace("missing.tmp", test.Path("other")), ENOENT);
}

TEST(OpenFolder, RemovesItsFiles) {
    CTestFolder test;
    COpenFolder folder;
    ASSERT_EQ(folder.Open(test.Root()), 0);
    int error = 0;
    const NativeFile file = folder.CreateNew("gone.tmp", error);
    ASSERT_NE(file, kNoFile);
    EXPECT_EQ(CloseFileHandle(file), 0);
    EXPECT_EQ(folder.Remove("gone.tmp"), 0);
    EXPECT_FALSE(IsThere(test.Path("gone.tmp")));
    EXPECT_EQ(folder.Remove("gone.tmp"), ENOENT);
}

#ifdef _WIN32
// Held open, the folder cannot be removed or renamed, so its path keeps naming it.
TEST(OpenFolder, AFolderHeldOpenStaysWhereItIs) {
    CTestFolder test;
    const std::string store = test.Path("store"), moved = test.Path("moved");
    std::filesystem::create_directories(platform_test::Native(store));
    {
        COpenFolder folder;
        ASSERT_EQ(folder.Open(store), 0);
        EXPECT_NE(RemoveFolder(store), 0);
        EXPECT_NE(RenameNoReplace(store, moved), 0);
        EXPECT_TRUE(IsThere(store));
        // Its files come and go as before.
        int error = 0;
        const NativeFile file = folder.CreateNew("a.tmp", error);
        ASSERT_NE(file, kNoFile);
        EXPECT_EQ(CloseFileHandle(file), 0);
        EXPECT_EQ(folder.Remove("a.tmp"), 0);
    }
    EXPECT_EQ(RenameNoReplace(store, moved), 0);
    EXPECT_EQ(RemoveFolder(moved), 0);
}

TEST(OpenFolder, WindowsMakesNoAnonymousFilesAndFlushesEachFile) {
    CTestFolder test;
    COpenFolder folder;
    ASSERT_EQ(folder.Open(test.Root()), 0);
    EXPECT_FALSE(folder.HasAnonymousFiles());
    int error = 0;
    EXPECT_EQ(folder.CreateAnonymous(error), kNoFile);
    EXPECT_EQ(error, ENOTSUP);
    EXPECT_EQ(COpenFolder::LinkAnonymous(kNoFile, test.Path("x")), ENOTSUP);
    EXPECT_TRUE(folder.NeedsFlushPerFile());
}
#else
TEST(OpenFolder, AnAnonymousFileGetsItsNameOnlyWhereNoneIs) {
    CTestFolder test;
    COpenFolder folder;
    ASSERT_EQ(folder.Open(test.Root()), 0);
    if (!folder.HasAnonymousFiles()) GTEST_SKIP() << "this file system makes no anonymous files";
    int error = 0;
    const NativeFile file = folder.CreateAnonymous(error);
    ASSERT_NE(file, kNoFile) << "error " << error;
    EXPECT_TRUE(Write(file, "anonymous"));
    EXPECT_EQ(ReadWhole(COpenFolder::AnonymousPath(file)), "anonymous");
    WriteWhole(test.Path("taken"), "taken");
    EXPECT_EQ(COpenFolder::LinkAnonymous(file, test.Path("taken")), EEXIST);
    EXPECT_EQ(COpenFolder::LinkAnonymous(file, test.Path("named")), 0);
    EXPECT_EQ(CloseFileHandle(file), 0);
    EXPECT_EQ(ReadWhole(test.Path("named")), "anonymous");
    EXPECT_EQ(ReadWhole(test.Path("taken")), "taken");
    EXPECT_EQ(std::filesystem::status(test.Path("named")).permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}
#endif

} // namespace
