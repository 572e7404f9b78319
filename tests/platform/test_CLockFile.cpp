// The platform layer's file lock: one holder at a time, let go when the file is closed.

#include "PlatformTestFolder.h"
#include "PlatformTestLinks.h"
#include "platform/CLockFile.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

namespace {

using ScopedTestEnv = platform_test::CTestFolder;

void WriteFile(const std::string& path, const std::string& content) {
    platform_test::WriteWhole(path, content);
}

TEST(LockFile, OneHolderAtATimeAndClosingLetsGo) {
    ScopedTestEnv env;
    const std::string path = env.Path("QRV.lock");
    CLockFile first, second;
    ASSERT_TRUE(first.Open(path, false));
    ASSERT_TRUE(second.Open(path, true));
    EXPECT_EQ(first.Identity(), second.Identity());
    EXPECT_EQ(first.TryLock(), CLockFile::Attempt::kLocked);
    EXPECT_EQ(second.TryLock(), CLockFile::Attempt::kBusy);
    CLockFile moved = std::move(first); // the lock goes with the open file
    EXPECT_EQ(second.TryLock(), CLockFile::Attempt::kBusy);
    moved.Close();
    EXPECT_EQ(second.TryLock(), CLockFile::Attempt::kLocked);
}

#ifndef _WIN32
TEST(LockFile, ALinkIsNotFollowedUnlessAsked) {
    ScopedTestEnv env;
    WriteFile(env.Path("real.lock"), "");
    std::filesystem::create_symlink(env.Path("real.lock"), env.Path("QRV.lock"));
    CLockFile file;
    EXPECT_FALSE(file.Open(env.Path("QRV.lock"), false));
    EXPECT_EQ(file.Error(), ELOOP);
    EXPECT_TRUE(file.Open(env.Path("QRV.lock"), false, true));
}
#else
TEST(LockFile, ALinkIsNotFollowedUnlessAsked) {
    ScopedTestEnv env;
    WriteFile(env.Path("real.lock"), "");
    if (!MakeFileLink(env.Path("real.lock"), env.Path("QRV.lock")))
        GTEST_SKIP() << "this system makes no links";
    CLockFile file;
    EXPECT_FALSE(file.Open(env.Path("QRV.lock"), false));
    EXPECT_EQ(file.Error(), ELOOP);
    EXPECT_TRUE(file.Open(env.Path("QRV.lock"), false, true));
}
#endif

// A second try of the holder keeps the lock, as it does with flock.
TEST(LockFile, TheHolderTryingAgainKeepsTheLock) {
    ScopedTestEnv env;
    CLockFile first, second;
    ASSERT_TRUE(first.Open(env.Path("QRV.lock"), true));
    ASSERT_TRUE(second.Open(env.Path("QRV.lock"), true));
    EXPECT_EQ(first.TryLock(), CLockFile::Attempt::kLocked);
    EXPECT_EQ(first.TryLock(), CLockFile::Attempt::kLocked);
    EXPECT_EQ(second.TryLock(), CLockFile::Attempt::kBusy);
    first.Close();
    EXPECT_EQ(second.TryLock(), CLockFile::Attempt::kLocked);
}

TEST(LockFile, AMissingFolderIsTheErrorOfOpen) {
    ScopedTestEnv env;
    CLockFile file;
    EXPECT_FALSE(file.Open(env.Path("no folder/QRV.lock"), false));
    EXPECT_EQ(file.Error(), ENOENT);
}

} // namespace
