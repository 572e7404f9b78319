// The platform layer's file lock: one holder at a time, let go when the file is closed.

#include "TestSupport.h"
#include "platform/CLockFile.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

namespace {

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

TEST(LockFile, ALinkIsNotFollowedUnlessAsked) {
    ScopedTestEnv env;
    WriteFile(env.Path("real.lock"), "");
    std::filesystem::create_symlink(env.Path("real.lock"), env.Path("QRV.lock"));
    CLockFile file;
    EXPECT_FALSE(file.Open(env.Path("QRV.lock"), false));
    EXPECT_EQ(file.Error(), ELOOP);
    EXPECT_TRUE(file.Open(env.Path("QRV.lock"), false, true));
}

TEST(LockFile, AMissingFolderIsTheErrorOfOpen) {
    ScopedTestEnv env;
    CLockFile file;
    EXPECT_FALSE(file.Open(env.Path("no folder/QRV.lock"), false));
    EXPECT_EQ(file.Error(), ENOENT);
}

} // namespace
