// Folders, names and drives by path: separators and absolute paths, folders made private,
// removed and renamed, trees removed without following links, free space, drives and resolved
// paths.

#include "PlatformTestFolder.h"
#include "PlatformTestLinks.h"
#include "platform/CFile.h"
#include "platform/modFileStatus.h"
#include "platform/modFileSystem.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#ifdef _WIN32
#include "platform/modWin32Text.h"

#include <aclapi.h>
#include <sddl.h>
#else
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace {

using platform_test::CTestFolder;
using platform_test::IsThere;
using platform_test::Native;
using platform_test::ReadWhole;
using platform_test::WriteWhole;

std::string Join(const std::string& folder, const std::string& name) {
    return folder + kPathSeparator + name;
}

#ifdef _WIN32
std::string SidText(PSID sid) {
    LPWSTR text = nullptr;
    if (!::ConvertSidToStringSidW(sid, &text)) return "?";
    const std::string narrow = Narrow(text);
    ::LocalFree(text);
    return narrow;
}

std::string UserSid() {
    HANDLE token = nullptr;
    if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token)) return "?";
    DWORD size = 0;
    ::GetTokenInformation(token, TokenUser, nullptr, 0, &size);
    std::vector<char> buffer(size ? size : 1);
    std::string sid = "?";
    if (size && ::GetTokenInformation(token, TokenUser, buffer.data(), size, &size))
        sid = SidText(reinterpret_cast<TOKEN_USER*>(buffer.data())->User.Sid);
    ::CloseHandle(token);
    return sid;
}

// Whether the entry's rights let in the user and nobody but the user, the system and the
// administrators. (Wine keeps no rights of its own: it shows the user and the system.)
bool IsPrivate(const std::string& path) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    PACL rights = nullptr;
    if (::GetNamedSecurityInfoW(WidePath(path).c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION,
                                nullptr, nullptr, &rights, nullptr, &descriptor) != ERROR_SUCCESS)
        return false;
    const std::string user = UserSid();
    bool others = rights == nullptr, hasUser = false;
    for (DWORD i = 0; rights && i < rights->AceCount; ++i) {
        void* entry = nullptr;
        if (!::GetAce(rights, i, &entry) ||
            static_cast<ACE_HEADER*>(entry)->AceType != ACCESS_ALLOWED_ACE_TYPE)
            continue;
        const std::string sid = SidText(&static_cast<ACCESS_ALLOWED_ACE*>(entry)->SidStart);
        hasUser = hasUser || sid == user;
        others = others || (sid != user && sid != "S-1-5-18" && sid != "S-1-5-32-544");
    }
    ::LocalFree(descriptor);
    return hasUser && !others;
}

// Wine's GetFinalPathNameByHandleW stops at MAX_PATH; Windows' does not.
bool IsWine() {
    const HMODULE ntdll = ::GetModuleHandleW(L"ntdll.dll");
    return ntdll && ::GetProcAddress(ntdll, "wine_get_version");
}
#else
unsigned Mode(const std::string& path) {
    struct stat st {};
    ::stat(path.c_str(), &st);
    return st.st_mode & 07777;
}
#endif

TEST(FileSystem, SeparatorsAndAbsolutePaths) {
#ifdef _WIN32
    EXPECT_EQ(kPathSeparator, '\\');
    EXPECT_TRUE(IsPathSeparator('\\'));
    EXPECT_TRUE(IsPathSeparator('/'));
    EXPECT_TRUE(IsAbsolutePath("C:\\"));
    EXPECT_TRUE(IsAbsolutePath("C:\\Users\\x"));
    EXPECT_TRUE(IsAbsolutePath("d:/backup"));
    EXPECT_TRUE(IsAbsolutePath("\\\\server\\share\\folder"));
    EXPECT_TRUE(IsAbsolutePath("//server/share"));
    EXPECT_TRUE(IsAbsolutePath("\\\\?\\C:\\long"));
    EXPECT_FALSE(IsAbsolutePath("C:"));
    EXPECT_FALSE(IsAbsolutePath("C:relative"));
    EXPECT_FALSE(IsAbsolutePath("\\on the current drive"));
    EXPECT_FALSE(IsAbsolutePath("relative\\path"));
    EXPECT_FALSE(IsAbsolutePath("1:\\"));
#else
    EXPECT_EQ(kPathSeparator, '/');
    EXPECT_TRUE(IsPathSeparator('/'));
    EXPECT_FALSE(IsPathSeparator('\\'));
    EXPECT_TRUE(IsAbsolutePath("/"));
    EXPECT_TRUE(IsAbsolutePath("/home/x"));
    EXPECT_FALSE(IsAbsolutePath("C:\\Users"));
    EXPECT_FALSE(IsAbsolutePath("relative/path"));
#endif
    EXPECT_FALSE(IsPathSeparator('a'));
    EXPECT_FALSE(IsAbsolutePath(""));
}

TEST(FileSystem, AFolderItMakesIsPrivate) {
    CTestFolder test;
    const std::string folder = test.Path("made");
    EXPECT_EQ(MakeFolder(folder), 0);
    EXPECT_EQ(StatusOf(folder).kind, PathKind::kFolder);
    EXPECT_EQ(MakeFolder(folder), EEXIST);
#ifdef _WIN32
    EXPECT_TRUE(IsPrivate(folder));
#else
    EXPECT_EQ(Mode(folder), 0700u);
#endif
}

TEST(FileSystem, AFolderIsMadeOnlyWhereItsParentIs) {
    CTestFolder test;
    WriteWhole(test.Path("file"), "x");
    EXPECT_EQ(MakeFolder(Join(test.Path("missing"), "below")), ENOENT);
    EXPECT_EQ(MakeFolder(Join(test.Path("file"), "below")), ENOTDIR);
    EXPECT_EQ(MakeFolder(test.Path("file")), EEXIST);
    EXPECT_EQ(MakeOrdinaryFolder(Join(test.Path("missing"), "below")), ENOENT);
}

TEST(FileSystem, AnOrdinaryFolderHasTheUsersDefaultRights) {
    CTestFolder test;
    const std::string folder = test.Path("restored");
    EXPECT_EQ(MakeOrdinaryFolder(folder), 0);
    EXPECT_EQ(StatusOf(folder).kind, PathKind::kFolder);
    EXPECT_EQ(MakeOrdinaryFolder(folder), EEXIST);
    WriteWhole(Join(folder, "file"), "x");
    EXPECT_EQ(GiveDefaultFileRights(Join(folder, "file")), 0);
#ifdef _WIN32
    // A file made private gets back what its folder passes on, as a file made there by anyone.
    const std::string made = Join(folder, "made");
    const std::string restored = Join(folder, "restored");
    WriteWhole(made, "made");
    WriteWhole(restored, "restored");
    ASSERT_EQ(MakeEntryPrivate(restored), 0);
    ASSERT_TRUE(IsPrivate(restored));
    EXPECT_EQ(GiveDefaultFileRights(restored), 0);
    EXPECT_EQ(IsPrivate(restored), IsPrivate(made));
    EXPECT_EQ(ReadWhole(restored), "restored");
    EXPECT_EQ(GiveDefaultFileRights(Join(folder, "missing")), ENOENT);
#else
    const mode_t mask = ::umask(0);
    ::umask(mask);
    EXPECT_EQ(Mode(folder), 0777u & ~mask);
    EXPECT_EQ(Mode(Join(folder, "file")), 0666u & ~mask);
#endif
}

TEST(FileSystem, AnEntryIsMadePrivate) {
    CTestFolder test;
    const std::string file = test.Path("old.QRV");
    WriteWhole(file, "x");
    EXPECT_EQ(MakeEntryPrivate(file), 0);
#ifdef _WIN32
    EXPECT_TRUE(IsPrivate(file));
#else
    EXPECT_EQ(Mode(file), 0600u);
#endif
    EXPECT_EQ(ReadWhole(file), "x");
    EXPECT_EQ(MakeEntryPrivate(test.Path("missing")), ENOENT);
}

TEST(FileSystem, OnlyAnEmptyFolderIsRemoved) {
    CTestFolder test;
    const std::string folder = test.Path("full");
    EXPECT_EQ(MakeFolder(folder), 0);
    WriteWhole(Join(folder, "file"), "x");
    EXPECT_EQ(RemoveFolder(folder), ENOTEMPTY);
    std::filesystem::remove(Native(Join(folder, "file")));
    EXPECT_EQ(RemoveFolder(folder), 0);
    EXPECT_FALSE(IsThere(folder));
    EXPECT_EQ(RemoveFolder(folder), ENOENT);
}

TEST(FileSystem, ATreeIsRemovedWithWhatItHolds) {
    CTestFolder test;
    const std::string tree = test.Path("tree");
    const std::string deep = Join(Join(tree, "a"), "b");
    std::filesystem::create_directories(Native(deep));
    WriteWhole(Join(tree, "top"), "x");
    WriteWhole(Join(deep, "locked"), "x");
    std::filesystem::permissions(Native(Join(deep, "locked")), std::filesystem::perms::owner_read);
    RemoveTree(tree);
    EXPECT_FALSE(IsThere(tree));
    RemoveTree(tree); // nothing there: nothing happens
    // A file is no tree.
    WriteWhole(test.Path("file"), "x");
    RemoveTree(test.Path("file"));
    EXPECT_TRUE(IsThere(test.Path("file")));
}

TEST(FileSystem, ATreeIsRemovedWithoutFollowingItsLinks) {
    CTestFolder test;
    const std::string outside = test.Path("outside"), tree = test.Path("tree");
    std::filesystem::create_directories(Native(outside));
    std::filesystem::create_directories(Native(tree));
    WriteWhole(Join(outside, "kept"), "kept");
    if (!MakeFolderLink(outside, Join(tree, "folder link")) ||
        !MakeFileLink(Join(outside, "kept"), Join(tree, "file link")))
        GTEST_SKIP() << "this system makes no links";
    RemoveTree(tree);
    EXPECT_FALSE(IsThere(tree));
    EXPECT_EQ(ReadWhole(Join(outside, "kept")), "kept");
    // A link given as the tree goes as a link.
    ASSERT_TRUE(MakeFolderLink(outside, test.Path("link")));
    RemoveTree(test.Path("link"));
    EXPECT_FALSE(IsThere(test.Path("link")));
    EXPECT_EQ(ReadWhole(Join(outside, "kept")), "kept");
}

TEST(FileSystem, AWriteTimeIsSetToTheNanosecond) {
    CTestFolder test;
    const std::string file = test.Path("file"), folder = test.Path("folder");
    WriteWhole(file, "bytes");
    std::filesystem::create_directories(Native(folder));
    // 1999, the far future, one before 1970; Windows keeps 100-ns units.
    for (const int64_t ns : {int64_t{915'148'800'123'456'789}, int64_t{4'102'444'800'987'654'321},
                             int64_t{-1'000'000'100}}) {
        ASSERT_EQ(SetWriteTime(file, ns), 0);
        ASSERT_EQ(SetWriteTime(folder, ns), 0);
#ifdef _WIN32
        const int64_t kept = ns / 100 * 100 - (ns % 100 < 0 ? 100 : 0);
#else
        const int64_t kept = ns;
#endif
        EXPECT_EQ(StatusOf(file).writeNs, kept) << ns;
        EXPECT_EQ(StatusOf(folder).writeNs, kept) << ns;
    }
    EXPECT_EQ(SetWriteTime(test.Path("missing"), 0), ENOENT);
}

TEST(FileSystem, AWriteTimeOfALinkIsItsOwn) {
    CTestFolder test;
    const std::string file = test.Path("file");
    WriteWhole(file, "bytes");
    if (!MakeFileLink(file, test.Path("link"))) GTEST_SKIP() << "this system makes no links";
    const int64_t before = StatusOf(file).writeNs;
    ASSERT_EQ(SetWriteTime(test.Path("link"), 1'000'000'000), 0);
    EXPECT_EQ(StatusOf(test.Path("link"), true).writeNs, 1'000'000'000);
    EXPECT_EQ(StatusOf(file).writeNs, before);
}

#ifndef _WIN32
TEST(FileSystem, PermissionBitsAndOwnersAreSet) {
    CTestFolder test;
    const std::string file = test.Path("file");
    WriteWhole(file, "bytes");
    for (const uint32_t mode : {0600u, 0644u, 0700u, 0755u, 0750u, 04755u, 02750u, 01777u}) {
        ASSERT_EQ(SetPermissionBits(file, mode), 0);
        EXPECT_EQ(StatusOf(file).mode, mode);
    }
    EXPECT_EQ(SetPermissionBits(test.Path("missing"), 0644), ENOENT);
    // Its own owner and group it may always give; another only as root.
    ASSERT_EQ(SetOwner(file, ::geteuid(), ::getegid()), 0);
    EXPECT_EQ(SetOwner(file, 4242, 4242), ::geteuid() == 0 ? 0 : EPERM);
}
#else
TEST(FileSystem, TheModeOnWindowsIsTheReadOnlyHiddenSystemAndArchiveAttributes) {
    CTestFolder test;
    const std::string file = test.Path("file");
    WriteWhole(file, "bytes");
    constexpr uint32_t kReadOnly = 0x1, kHidden = 0x2, kSystem = 0x4, kArchive = 0x20;
    // Each with the archive attribute, which a file written anew has, and which Wine keeps.
    for (const uint32_t mode : {kReadOnly | kArchive, kHidden | kArchive, kSystem | kArchive,
                                kReadOnly | kHidden | kSystem | kArchive, kArchive}) {
        ASSERT_EQ(SetPermissionBits(file, mode), 0);
        EXPECT_EQ(StatusOf(file).mode, mode);
        EXPECT_EQ(StatusOf(file).readOnly, (mode & kReadOnly) != 0);
    }
    // The other bits of a Linux mode mean nothing here; a folder stays a folder.
    ASSERT_EQ(MakeFolder(test.Path("folder")), 0);
    ASSERT_EQ(SetPermissionBits(test.Path("folder"), kHidden | 0700), 0);
    EXPECT_EQ(StatusOf(test.Path("folder")).mode, kHidden);
    EXPECT_EQ(StatusOf(test.Path("folder")).kind, PathKind::kFolder);
    EXPECT_EQ(SetPermissionBits(test.Path("missing"), kHidden), ENOENT);
}

TEST(FileSystem, OwnersChangeNothingOnWindows) {
    CTestFolder test;
    WriteWhole(test.Path("file"), "bytes");
    EXPECT_EQ(SetOwner(test.Path("file"), 0, 0), 0);
    EXPECT_EQ(ReadWhole(test.Path("file")), "bytes");
    int error = 0;
    EXPECT_EQ(LinkText(test.Path("file"), error), "");
    EXPECT_EQ(error, ENOSYS);
    EXPECT_EQ(MakeLink("file", test.Path("link")), ENOSYS);
}
#endif

TEST(FileSystem, ALinkIsMadeWithItsTextAndReadBackUnfollowed) {
    CTestFolder test;
    int error = 0;
    if (MakeLink("../../etc", test.Path("up")) == ENOSYS) GTEST_SKIP() << "no links here";
    EXPECT_EQ(LinkText(test.Path("up"), error), "../../etc");
    EXPECT_EQ(error, 0);
    const std::string odd = "dangling \xff\n" + std::string(300, 'x');
    ASSERT_EQ(MakeLink(odd, test.Path("odd")), 0);
    EXPECT_EQ(LinkText(test.Path("odd"), error), odd);
    // Never over an entry that is there, and a file is no link.
    WriteWhole(test.Path("file"), "bytes");
    EXPECT_EQ(MakeLink("x", test.Path("file")), EEXIST);
    EXPECT_EQ(ReadWhole(test.Path("file")), "bytes");
    EXPECT_EQ(LinkText(test.Path("file"), error), "");
    EXPECT_EQ(error, EINVAL);
    EXPECT_EQ(LinkText(test.Path("missing"), error), "");
    EXPECT_EQ(error, ENOENT);
}

TEST(FileSystem, ARenameNeverReplaces) {
    CTestFolder test;
    WriteWhole(test.Path("from"), "from");
    WriteWhole(test.Path("taken"), "taken");
    EXPECT_EQ(RenameNoReplace(test.Path("from"), test.Path("taken")), EEXIST);
    EXPECT_EQ(ReadWhole(test.Path("from")), "from");
    EXPECT_EQ(ReadWhole(test.Path("taken")), "taken");
    EXPECT_EQ(RenameNoReplace(test.Path("from"), test.Path("to")), 0);
    EXPECT_EQ(ReadWhole(test.Path("to")), "from");
    EXPECT_FALSE(IsThere(test.Path("from")));
    EXPECT_EQ(RenameNoReplace(test.Path("from"), test.Path("again")), ENOENT);
    // Folders too.
    EXPECT_EQ(MakeFolder(test.Path("folder")), 0);
    EXPECT_EQ(RenameNoReplace(test.Path("folder"), test.Path("moved")), 0);
    EXPECT_EQ(StatusOf(test.Path("moved")).kind, PathKind::kFolder);
}

TEST(FileSystem, FreeSpaceIsKnownForTheDrive) {
    CTestFolder test;
    uint64_t bytes = 0;
    bool known = false;
    EXPECT_EQ(FreeSpace(test.Root(), bytes, known), 0);
    EXPECT_TRUE(known);
    EXPECT_GT(bytes, 0u);
    EXPECT_EQ(FreeSpace(test.Path("missing"), bytes, known), ENOENT);
}

TEST(FileSystem, TheDriveIsTheRootThatHoldsThePath) {
    CTestFolder test;
    const std::string drive = DriveOf(test.Root());
    ASSERT_FALSE(drive.empty());
    EXPECT_TRUE(IsAbsolutePath(drive));
    EXPECT_EQ(DriveOf(drive), drive);
    EXPECT_EQ(DriveOf(test.Path("missing")), drive);
    EXPECT_EQ(DriveOf("relative"), "");
    EXPECT_EQ(StatusOf(drive).kind, PathKind::kFolder);
#ifdef _WIN32
    EXPECT_EQ(drive.back(), '\\');
    if (test.Root()[1] == ':') {
        EXPECT_EQ(drive.size(), 3u);
        EXPECT_EQ(::toupper(drive[0]), ::toupper(test.Root()[0]));
    }
#else
    EXPECT_EQ(DriveOf("/"), "/");
    EXPECT_EQ(test.Root().rfind(drive, 0), 0u);
#endif
}

TEST(FileSystem, TheFileSystemIsFlushedWhileItIsThere) {
    CTestFolder test;
    EXPECT_EQ(SyncFileSystem(test.Root()), 0);
    EXPECT_EQ(SyncFileSystem(test.Path("missing")), ENOENT);
}

TEST(FileSystem, AResolvedPathNamesTheSameEntry) {
    CTestFolder test;
    const std::string sub = test.Path("sub");
    EXPECT_EQ(MakeFolder(sub), 0);
    WriteWhole(Join(sub, "file"), "x");
    int error = 0;
    const std::string root = ResolvedPath(test.Root(), error);
    ASSERT_FALSE(root.empty()) << "error " << error;
    EXPECT_TRUE(IsAbsolutePath(root));
    EXPECT_EQ(ResolvedPath(Join(Join(sub, ".."), "sub"), error), Join(root, "sub"));
    EXPECT_EQ(ResolvedPath(Join(sub, "file"), error), Join(Join(root, "sub"), "file"));
    EXPECT_EQ(StatusOf(ResolvedPath(sub, error)).identity, StatusOf(sub).identity);
    error = 0;
    EXPECT_EQ(ResolvedPath(test.Path("missing"), error), "");
    EXPECT_EQ(error, ENOENT);
}

TEST(FileSystem, AResolvedPathGoesThroughLinks) {
    CTestFolder test;
    const std::string target = test.Path("target");
    EXPECT_EQ(MakeFolder(target), 0);
    if (!MakeFolderLink(target, test.Path("link"))) GTEST_SKIP() << "this system makes no links";
    int error = 0;
    EXPECT_EQ(ResolvedPath(test.Path("link"), error), ResolvedPath(target, error));
}

TEST(FileSystem, ALongPathWorksAsAShortOne) {
    CTestFolder test;
    std::string folder = test.Root();
    for (int i = 0; i < 6; ++i) {
        folder = Join(folder, std::string(60, static_cast<char>('a' + i)));
        ASSERT_EQ(MakeFolder(folder), 0) << folder.size();
    }
    ASSERT_GT(folder.size(), 360u);
    // Made by the platform layer: the standard library's streams stop at the old limit.
    MakePrivateFile(Join(folder, "file"));
    EXPECT_EQ(RenameNoReplace(Join(folder, "file"), Join(folder, "moved")), 0);
    EXPECT_EQ(StatusOf(Join(folder, "moved")).kind, PathKind::kFile);
    int error = 0;
#ifdef _WIN32
    const bool resolves = !IsWine();
#else
    const bool resolves = true;
#endif
    if (resolves) {
        EXPECT_FALSE(ResolvedPath(folder, error).empty()) << "error " << error;
    }
    EXPECT_FALSE(DriveOf(folder).empty());
    uint64_t bytes = 0;
    bool known = false;
    EXPECT_EQ(FreeSpace(folder, bytes, known), 0);
    RemoveTree(Join(test.Root(), std::string(60, 'a')));
    EXPECT_EQ(StatusOf(Join(test.Root(), std::string(60, 'a'))).error, ENOENT);
}

} // namespace
