// The platform layer's written file: appended or replaced, private to the user, and the
// system's error number when it cannot be made.

#include "PlatformTestFolder.h"
#include "PlatformTestLinks.h"
#include "platform/CFile.h"
#include "platform/modFileStatus.h"
#include "platform/modPlatformPaths.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#ifdef _WIN32
#include "platform/modWin32.h"
#include "platform/modWin32Error.h"
#endif

namespace {

using ScopedTestEnv = platform_test::CTestFolder;

void WriteFile(const std::string& path, const std::string& content) {
    platform_test::WriteWhole(path, content);
}

std::string ReadFile(const std::string& path) {
    return platform_test::ReadWhole(path);
}

TEST(File, AppendKeepsWhatIsThereAndReplaceEmptiesIt) {
    ScopedTestEnv env;
    const std::string path = env.Path("log");
    WriteFile(path, "first\r\n");
    CFile file;
    ASSERT_TRUE(file.Open(path, CFile::Mode::kAppend));
    EXPECT_TRUE(file.WriteAll("second\r\n"));
    file.Close();
    EXPECT_EQ(ReadFile(path), "first\r\nsecond\r\n");
    ASSERT_TRUE(file.Open(path, CFile::Mode::kReplace));
    EXPECT_TRUE(file.WriteAll("only"));
    CFile moved = std::move(file);
    EXPECT_FALSE(file.IsOpen());
    EXPECT_TRUE(moved.WriteAll(" this"));
    moved.Close();
    EXPECT_EQ(ReadFile(path), "only this");
}

// Two writers of one log (two processes of the program) each add at the end.
TEST(File, TwoAppendersNeverOverwriteEachOther) {
    ScopedTestEnv env;
    const std::string path = env.Path("log");
    CFile first, second;
    ASSERT_TRUE(first.Open(path, CFile::Mode::kAppend));
    ASSERT_TRUE(second.Open(path, CFile::Mode::kAppend));
    EXPECT_TRUE(first.WriteAll("first one\r\n"));
    EXPECT_TRUE(second.WriteAll("second\r\n"));
    EXPECT_TRUE(first.WriteAll("first two\r\n"));
    first.Close();
    second.Close();
    EXPECT_EQ(ReadFile(path), "first one\r\nsecond\r\nfirst two\r\n");
}

// On Windows a file gets the security of its folder (see the tests of MakePrivateFolders).
#ifndef _WIN32
TEST(File, AFileItMakesIsPrivateToTheUser) {
    ScopedTestEnv env;
    CFile file;
    ASSERT_TRUE(file.Open(env.Path("made"), CFile::Mode::kAppend));
    EXPECT_EQ(std::filesystem::status(env.Path("made")).permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}
#endif

TEST(File, WhatCannotBeMadeOrRemovedSaysWhy) {
    ScopedTestEnv env;
    CFile file;
    EXPECT_FALSE(file.Open(env.Path("no folder/log"), CFile::Mode::kAppend));
    EXPECT_EQ(file.Error(), ENOENT);
    EXPECT_EQ(RemoveFile(env.Path("missing")), ENOENT);
    WriteFile(env.Path("there"), "x");
    EXPECT_EQ(RemoveFile(env.Path("there")), 0);
    EXPECT_FALSE(std::filesystem::exists(env.Path("there")));
    EXPECT_TRUE(IsDiskFullError(ENOSPC));
    EXPECT_FALSE(IsDiskFullError(EIO));
}

#ifndef _WIN32
TEST(File, AFullDriveIsTheErrorOfTheWrite) {
    ScopedTestEnv env;
    if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "no /dev/full here";
    CFile file;
    ASSERT_TRUE(file.Open("/dev/full", CFile::Mode::kAppend));
    EXPECT_FALSE(file.WriteAll("x"));
    EXPECT_EQ(file.Error(), ENOSPC);
    EXPECT_TRUE(IsDiskFullError(file.Error()));
}
#else
// Windows has no device that is always full: its answers for a full drive or quota are told
// as ENOSPC.
TEST(File, AFullDriveIsTheErrorOfTheWrite) {
    for (const unsigned long error : {ERROR_DISK_FULL, ERROR_HANDLE_DISK_FULL, 1295L})
        EXPECT_TRUE(IsDiskFullError(ErrnoFromWin32(error))) << error;
    EXPECT_FALSE(IsDiskFullError(ErrnoFromWin32(ERROR_WRITE_FAULT)));
    EXPECT_FALSE(IsDiskFullError(ErrnoFromWin32(ERROR_ACCESS_DENIED)));
}
#endif

// A private file is made only where nothing is: a file or a link already there is left as it is.
#ifndef _WIN32
TEST(File, APrivateFileIsMadeOnlyWhereNothingIs) {
    ScopedTestEnv env;
    const std::string made = env.Path("made"), there = env.Path("there"), link = env.Path("link");
    MakePrivateFile(made);
    EXPECT_EQ(ReadFile(made), "");
    EXPECT_EQ(std::filesystem::status(made).permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    WriteFile(there, "kept");
    std::filesystem::permissions(there, std::filesystem::perms::owner_all |
                                            std::filesystem::perms::group_read);
    MakePrivateFile(there);
    EXPECT_EQ(ReadFile(there), "kept");
    EXPECT_EQ(std::filesystem::status(there).permissions(),
              std::filesystem::perms::owner_all | std::filesystem::perms::group_read);
    std::filesystem::create_symlink(env.Path("target"), link);
    MakePrivateFile(link);
    EXPECT_FALSE(std::filesystem::exists(env.Path("target")));
}
#else
TEST(File, APrivateFileIsMadeOnlyWhereNothingIs) {
    ScopedTestEnv env;
    const std::string made = env.Path("made"), there = env.Path("there");
    MakePrivateFile(made);
    EXPECT_EQ(ReadFile(made), "");
    WriteFile(there, "kept");
    MakePrivateFile(there);
    EXPECT_EQ(ReadFile(there), "kept");
}

TEST(File, ALinkWhereAPrivateFileIsWantedIsLeftAsItIs) {
    ScopedTestEnv env;
    const std::string link = env.Path("link");
    WriteFile(env.Path("target"), "");
    if (!MakeFileLink(env.Path("target"), link)) GTEST_SKIP() << "this system makes no links";
    RemoveFile(env.Path("target"));
    MakePrivateFile(link);
    EXPECT_FALSE(StatusOf(env.Path("target")).Exists());
}
#endif

TEST(File, ARenameReplacesTheFileOfThatName) {
    ScopedTestEnv env;
    const std::string from = env.Path("new"), to = env.Path("old");
    WriteFile(from, "new content");
    WriteFile(to, "old content");
    EXPECT_EQ(RenameReplacing(from, to), 0);
    EXPECT_EQ(ReadFile(to), "new content");
    EXPECT_FALSE(StatusOf(from).Exists());
    EXPECT_EQ(RenameReplacing(from, to), ENOENT);
    EXPECT_EQ(RenameReplacing(to, from), 0);
    EXPECT_EQ(ReadFile(from), "new content");
    EXPECT_TRUE(SyncFolder(env.Root()));
}

// A name in any script and a path far beyond the 260 characters of old Windows programs.
TEST(File, AnyNameAndALongPathAreMadeWrittenRenamedAndRemoved) {
    ScopedTestEnv env;
    std::string folder = env.Path("Gr\xc3\xbc\xc3\x9f\x65 \xe6\x97\xa5\xe6\x9c\xac");
    for (int i = 0; i < 8; ++i)
        folder += "/folder " + std::string(40, static_cast<char>('a' + i));
    ASSERT_GT(folder.size(), 400u);
    ASSERT_TRUE(MakePrivateFolders(folder));
    const std::string path = folder + "/\xd0\xb6\xd1\x83\xd1\x80\xd0\xbd\xd0\xb0\xd0\xbb.log";
    CFile file;
    ASSERT_TRUE(file.Open(path, CFile::Mode::kAppend));
    EXPECT_TRUE(file.WriteAll("first\r\n"));
    file.Close();
    ASSERT_TRUE(file.Open(path, CFile::Mode::kAppend));
    EXPECT_TRUE(file.WriteAll("second\r\n"));
    file.Close();
    EXPECT_EQ(StatusOf(path).kind, PathKind::kFile);
    EXPECT_EQ(StatusOf(path).size, 15u);
    MakePrivateFile(folder + "/empty");
    EXPECT_EQ(StatusOf(folder + "/empty").size, 0u);
    EXPECT_EQ(RenameReplacing(path, folder + "/empty"), 0);
    EXPECT_EQ(StatusOf(folder + "/empty").size, 15u);
    EXPECT_EQ(RemoveFile(folder + "/empty"), 0);
    EXPECT_FALSE(StatusOf(folder + "/empty").Exists());
}

} // namespace
