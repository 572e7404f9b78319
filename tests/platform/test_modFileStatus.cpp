// What a path names, as the platform layer answers it: kind, size, identity and the reason when
// nothing is there.

#include "TestSupport.h"
#include "platform/modFileStatus.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

namespace {

TEST(FileStatus, KindsSizeAndIdentity) {
    ScopedTestEnv env;
    const std::string folder = env.Path("f"), file = env.Path("f/a.txt"), link = env.Path("l");
    std::filesystem::create_directory(folder);
    WriteFile(file, "12345");
    std::filesystem::create_symlink(file, link);
    EXPECT_EQ(StatusOf(folder).kind, PathKind::kFolder);
    const PathStatus status = StatusOf(file);
    EXPECT_EQ(status.kind, PathKind::kFile);
    EXPECT_EQ(status.size, 5u);
    EXPECT_EQ(StatusOf(link).kind, PathKind::kFile);
    EXPECT_EQ(StatusOf(link).identity, status.identity);
    EXPECT_EQ(StatusOf(link, true).kind, PathKind::kLink);
    EXPECT_EQ(StatusOf(env.Path("f/../f/a.txt")).identity, status.identity);
    EXPECT_FALSE(StatusOf(folder).identity == status.identity);
}

TEST(FileStatus, NothingThereSaysWhy) {
    ScopedTestEnv env;
    WriteFile(env.Path("a.txt"), "a");
    const PathStatus missing = StatusOf(env.Path("missing"));
    EXPECT_FALSE(missing.Exists());
    EXPECT_EQ(missing.kind, PathKind::kNone);
    EXPECT_EQ(missing.error, ENOENT);
    EXPECT_EQ(StatusOf(env.Path("a.txt/below")).error, ENOTDIR);
}

TEST(FileStatus, OnlyAFileThatMayRunIsRunnable) {
    ScopedTestEnv env;
    const std::string script = env.Path("run.sh"), text = env.Path("text");
    WriteFile(script, "#!/bin/sh\n");
    WriteFile(text, "x");
    std::filesystem::permissions(script, std::filesystem::perms::owner_all);
    std::filesystem::permissions(text, std::filesystem::perms::owner_read |
                                           std::filesystem::perms::owner_write);
    EXPECT_TRUE(IsRunnableFile(script));
    EXPECT_FALSE(IsRunnableFile(text));
    EXPECT_FALSE(IsRunnableFile(env.Root()));
    EXPECT_FALSE(IsRunnableFile(env.Path("missing")));
}

} // namespace
