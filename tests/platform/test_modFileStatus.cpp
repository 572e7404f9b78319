// What a path names, as the platform layer answers it: kind, size, identity, times, the
// read-only mark and the reason when nothing is there; and whether this process may write it.

#include "PlatformTestFolder.h"
#include "PlatformTestLinks.h"
#include "platform/modFileStatus.h"
#include "platform/modPlatformPaths.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <filesystem>

#ifndef _WIN32
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace {

using ScopedTestEnv = platform_test::CTestFolder;
using platform_test::WriteWhole;

void WriteFile(const std::string& path, const std::string& content) {
    WriteWhole(path, content);
}

int64_t NowNs() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

#ifndef _WIN32
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
#else
TEST(FileStatus, KindsSizeAndIdentity) {
    ScopedTestEnv env;
    const std::string folder = env.Path("f"), file = env.Path("f/a.txt");
    std::filesystem::create_directory(folder);
    WriteFile(file, "12345");
    EXPECT_EQ(StatusOf(folder).kind, PathKind::kFolder);
    const PathStatus status = StatusOf(file);
    EXPECT_EQ(status.kind, PathKind::kFile);
    EXPECT_EQ(status.size, 5u);
    EXPECT_EQ(StatusOf(env.Path("f/../f/a.txt")).identity, status.identity);
    EXPECT_EQ(StatusOf(env.Path("f\\A.TXT")).identity, status.identity);
    EXPECT_FALSE(StatusOf(folder).identity == status.identity);
    EXPECT_EQ(StatusOf(file, true).kind, PathKind::kFile);
}

TEST(FileStatus, ALinkIsAnsweredAsItselfOnlyWhenAsked) {
    ScopedTestEnv env;
    const std::string file = env.Path("a.txt"), link = env.Path("l");
    WriteFile(file, "12345");
    const PathStatus status = StatusOf(file);
    if (!MakeFileLink(file, link)) GTEST_SKIP() << "this system makes no links";
    EXPECT_EQ(StatusOf(link).kind, PathKind::kFile);
    EXPECT_EQ(StatusOf(link).identity, status.identity);
    EXPECT_EQ(StatusOf(link, true).kind, PathKind::kLink);
}
#endif

TEST(FileStatus, NothingThereSaysWhy) {
    ScopedTestEnv env;
    WriteFile(env.Path("a.txt"), "a");
    const PathStatus missing = StatusOf(env.Path("missing"));
    EXPECT_FALSE(missing.Exists());
    EXPECT_EQ(missing.kind, PathKind::kNone);
    EXPECT_EQ(missing.error, ENOENT);
    EXPECT_EQ(StatusOf(env.Path("a.txt/below")).error, ENOTDIR);
}

#ifndef _WIN32
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
#else
// On Windows a program is a file that ends in .exe, .com, .bat or .cmd.
TEST(FileStatus, OnlyAFileThatMayRunIsRunnable) {
    ScopedTestEnv env;
    for (const char* name : {"prog.exe", "old.com", "run.bat", "RUN2.CMD", "run.sh", "text"})
        WriteFile(env.Path(name), "x");
    std::filesystem::create_directory(env.Path("folder.exe"));
    EXPECT_TRUE(IsRunnableFile(env.Path("prog.exe")));
    EXPECT_TRUE(IsRunnableFile(env.Path("old.com")));
    EXPECT_TRUE(IsRunnableFile(env.Path("run.bat")));
    EXPECT_TRUE(IsRunnableFile(env.Path("RUN2.CMD")));
    EXPECT_FALSE(IsRunnableFile(env.Path("run.sh")));
    EXPECT_FALSE(IsRunnableFile(env.Path("text")));
    EXPECT_FALSE(IsRunnableFile(env.Path("folder.exe")));
    EXPECT_FALSE(IsRunnableFile(env.Root()));
    EXPECT_FALSE(IsRunnableFile(env.Path("missing.exe")));
}
#endif

TEST(FileStatus, TimesAndTheReadOnlyMark) {
    ScopedTestEnv env;
    const std::string file = env.Path("a.txt");
    const int64_t before = NowNs() - int64_t{5'000'000'000};
    WriteFile(file, "12345");
    const int64_t after = NowNs() + int64_t{5'000'000'000};
    const PathStatus status = StatusOf(file);
    EXPECT_GT(status.writeNs, before);
    EXPECT_LT(status.writeNs, after);
    EXPECT_GT(status.changeNs, before);
    EXPECT_LT(status.changeNs, after);
    EXPECT_GT(status.accessNs, before);
    EXPECT_LT(status.accessNs, after);
    EXPECT_FALSE(status.readOnly);
    EXPECT_FALSE(StatusOf(env.Root()).readOnly);
    std::filesystem::permissions(platform_test::Native(file),
                                 std::filesystem::perms::owner_write |
                                     std::filesystem::perms::group_write |
                                     std::filesystem::perms::others_write,
                                 std::filesystem::perm_options::remove);
    EXPECT_TRUE(StatusOf(file).readOnly);
    EXPECT_EQ(StatusOf(file).writeNs, status.writeNs);
}

#ifndef _WIN32
TEST(FileStatus, PermissionBitsOwnerAndGroup) {
    ScopedTestEnv env;
    const std::string file = env.Path("script.sh");
    WriteFile(file, "#!/bin/sh\n");
    for (const mode_t mode : {0600, 0644, 0700, 0755, 0750, 04755, 02750, 01777, 0}) {
        ASSERT_EQ(::chmod(file.c_str(), mode), 0);
        EXPECT_EQ(StatusOf(file).mode, mode) << std::oct << mode;
    }
    const PathStatus status = StatusOf(file);
    EXPECT_EQ(status.owner, ::geteuid());
    EXPECT_EQ(status.group, ::getegid());
    ASSERT_EQ(::chmod(env.Root().c_str(), 0750), 0);
    EXPECT_EQ(StatusOf(env.Root()).mode, 0750u);
    ASSERT_EQ(::chmod(env.Root().c_str(), 0700), 0);
}
#endif

TEST(FileStatus, WhatThisProcessMayWrite) {
    ScopedTestEnv env;
    const std::string file = env.Path("a.txt"), locked = env.Path("locked");
    WriteFile(file, "x");
    WriteFile(locked, "x");
    std::filesystem::permissions(platform_test::Native(locked), std::filesystem::perms::owner_read);
    EXPECT_EQ(WriteAccessError(file), 0);
    EXPECT_EQ(WriteAccessError(env.Root()), 0);
    EXPECT_EQ(WriteAccessError(env.Path("missing")), ENOENT);
    EXPECT_EQ(WriteAccessError(env.Path("a.txt/below")), ENOTDIR);
    // The question about a folder leaves nothing in it.
    const auto listed = std::filesystem::directory_iterator(platform_test::Native(env.Root()));
    EXPECT_EQ(std::distance(begin(listed), end(listed)), 2);
#ifndef _WIN32
    if (::geteuid() == 0) GTEST_SKIP() << "the superuser may write everything";
#endif
    EXPECT_EQ(WriteAccessError(locked), EACCES);
}

TEST(FileStatus, ALongPathIsAnsweredAsAShortOne) {
    ScopedTestEnv env;
    std::string folder = env.Root();
    for (int i = 0; i < 6; ++i)
        folder += "/" + std::string(60, static_cast<char>('a' + i));
    ASSERT_GT(folder.size(), 360u);
    ASSERT_TRUE(MakePrivateFolders(folder));
    EXPECT_EQ(StatusOf(folder).kind, PathKind::kFolder);
    EXPECT_EQ(StatusOf(folder + "/missing").error, ENOENT);
}

} // namespace
