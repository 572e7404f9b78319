// The platform layer's written file: appended or replaced, private to the user, and the
// system's error number when it cannot be made.

#include "TestSupport.h"
#include "platform/CFile.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

namespace {

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

TEST(File, AFileItMakesIsPrivateToTheUser) {
    ScopedTestEnv env;
    CFile file;
    ASSERT_TRUE(file.Open(env.Path("made"), CFile::Mode::kAppend));
    EXPECT_EQ(std::filesystem::status(env.Path("made")).permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

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

TEST(File, AFullDriveIsTheErrorOfTheWrite) {
    ScopedTestEnv env;
    if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "no /dev/full here";
    CFile file;
    ASSERT_TRUE(file.Open("/dev/full", CFile::Mode::kAppend));
    EXPECT_FALSE(file.WriteAll("x"));
    EXPECT_EQ(file.Error(), ENOSPC);
    EXPECT_TRUE(IsDiskFullError(file.Error()));
}

// A private file is made only where nothing is: a file or a link already there is left as it is.
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

} // namespace
