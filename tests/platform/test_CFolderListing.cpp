// One folder's entries as the system lists them: names, kinds, what the listing tells of each
// entry, and the attribute bits.

#include "PlatformTestFolder.h"
#include "PlatformTestLinks.h"
#include "platform/CFile.h"
#include "platform/CFolderListing.h"
#include "platform/modFileStatus.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <map>
#include <set>
#include <string>

namespace {

using platform_test::CTestFolder;
using platform_test::Native;
using platform_test::WriteWhole;

// Every entry but "." and "..", with its kind.
std::map<std::string, PathKind> Listed(const std::string& folder) {
    std::map<std::string, PathKind> entries;
    CFolderListing listing;
    EXPECT_EQ(listing.Open(folder), 0);
    std::string name;
    PathKind kind = PathKind::kNone;
    while (listing.Next(name, kind)) {
        if (name == "." || name == "..") continue;
        EXPECT_TRUE(entries.emplace(name, kind).second) << name << " listed twice";
    }
    return entries;
}

// Lists `folder` until the entry `wanted` is the one last listed.
bool ListUntil(CFolderListing& listing, const std::string& folder, const std::string& wanted) {
    if (listing.Open(folder) != 0) return false;
    std::string name;
    PathKind kind = PathKind::kNone;
    while (listing.Next(name, kind))
        if (name == wanted) return true;
    return false;
}

TEST(FolderListing, ListsEachEntryOnceWithItsKind) {
    CTestFolder test;
    WriteWhole(test.Path("a.txt"), "12345");
    std::filesystem::create_directory(Native(test.Path("sub")));
    WriteWhole(test.Path("sub") + kPathSeparator + "inner", "not listed");
    const std::map<std::string, PathKind> expected = {{"a.txt", PathKind::kFile},
                                                      {"sub", PathKind::kFolder}};
    EXPECT_EQ(Listed(test.Root()), expected);
}

TEST(FolderListing, ListsManyEntries) {
    CTestFolder test;
    std::set<std::string> names;
    for (int i = 0; i < 300; ++i) {
        names.insert("file " + std::to_string(i));
        WriteWhole(test.Path("file " + std::to_string(i)), "");
    }
    std::set<std::string> listed;
    for (const auto& [name, kind] : Listed(test.Root()))
        listed.insert(name);
    EXPECT_EQ(listed, names);
}

TEST(FolderListing, AnEmptyFolderListsNothingButItsDots) {
    CTestFolder test;
    EXPECT_TRUE(Listed(test.Root()).empty());
}

TEST(FolderListing, AUtf8NameIsListedAsItWasWritten) {
    CTestFolder test;
    const std::string name = "r\xC3\xA9sum\xC3\xA9 \xE6\x97\xA5\xE6\x9C\xAC.txt";
    WriteWhole(test.Path(name), "x");
    const std::map<std::string, PathKind> expected = {{name, PathKind::kFile}};
    EXPECT_EQ(Listed(test.Root()), expected);
}

TEST(FolderListing, TheStatusIsThatOfTheEntryItself) {
    CTestFolder test;
    const std::string file = test.Path("a.txt"), sub = test.Path("sub");
    WriteWhole(file, "12345");
    std::filesystem::create_directory(Native(sub));
    CFolderListing listing;
    ASSERT_TRUE(ListUntil(listing, test.Root(), "a.txt"));
    const PathStatus& status = listing.Status();
    const PathStatus named = StatusOf(file);
    EXPECT_EQ(status.kind, PathKind::kFile);
    EXPECT_EQ(status.size, 5u);
    EXPECT_EQ(status.identity, named.identity);
    EXPECT_NE(status.identity, FileIdentity{});
    EXPECT_EQ(status.writeNs, named.writeNs);
    EXPECT_EQ(status.changeNs, named.changeNs);
    EXPECT_FALSE(status.readOnly);
    ASSERT_TRUE(ListUntil(listing, test.Root(), "sub"));
    EXPECT_EQ(listing.Status().kind, PathKind::kFolder);
    EXPECT_EQ(listing.Status().identity, StatusOf(sub).identity);
}

TEST(FolderListing, WhatIsListedIsTheStatusWithoutOpeningTheEntry) {
    CTestFolder test;
    const std::string file = test.Path("a.txt");
    WriteWhole(file, "12345");
    CFolderListing listing;
    ASSERT_TRUE(ListUntil(listing, test.Root(), "a.txt"));
    const PathStatus listed = listing.Listed();
    const PathStatus named = StatusOf(file);
    EXPECT_EQ(listed.kind, PathKind::kFile);
    EXPECT_EQ(listed.size, 5u);
    EXPECT_EQ(listed.writeNs, named.writeNs);
    EXPECT_EQ(listed.mode, named.mode);
    EXPECT_EQ(listed.owner, named.owner);
#ifdef _WIN32
    EXPECT_EQ(listed.identity, FileIdentity{}); // Windows lists none
#else
    EXPECT_EQ(listed.identity, named.identity);
#endif
    // Asking for the whole status afterwards still gives the identity.
    EXPECT_EQ(listing.Status().identity, named.identity);
}

TEST(FolderListing, AnEntryThatWentMeanwhileHasNoStatus) {
    CTestFolder test;
    WriteWhole(test.Path("gone"), "x");
    CFolderListing listing;
    ASSERT_TRUE(ListUntil(listing, test.Root(), "gone"));
    ASSERT_EQ(RemoveFile(test.Path("gone")), 0);
    EXPECT_EQ(listing.Status().kind, PathKind::kNone);
}

TEST(FolderListing, AttributesTellFoldersAndReadOnlyEntries) {
    CTestFolder test;
    WriteWhole(test.Path("file"), "x");
    WriteWhole(test.Path("locked"), "x");
    std::filesystem::create_directory(Native(test.Path("sub")));
    std::filesystem::permissions(Native(test.Path("locked")),
                                 std::filesystem::perms::owner_write |
                                     std::filesystem::perms::group_write |
                                     std::filesystem::perms::others_write,
                                 std::filesystem::perm_options::remove);
    CFolderListing listing;
    ASSERT_TRUE(ListUntil(listing, test.Root(), "sub"));
    EXPECT_TRUE(listing.Attributes() & CFolderListing::kDirectory);
    EXPECT_FALSE(listing.Attributes() & CFolderListing::kReadOnly);
    ASSERT_TRUE(ListUntil(listing, test.Root(), "file"));
    EXPECT_FALSE(listing.Attributes() & CFolderListing::kDirectory);
    EXPECT_FALSE(listing.Attributes() & CFolderListing::kReadOnly);
    EXPECT_FALSE(listing.Attributes() & CFolderListing::kHidden);
    EXPECT_NE(listing.Attributes(), 0u);
    ASSERT_TRUE(ListUntil(listing, test.Root(), "locked"));
    EXPECT_TRUE(listing.Attributes() & CFolderListing::kReadOnly);
    EXPECT_TRUE(listing.Status().readOnly);
}

#ifdef _WIN32
// Wine keeps the archive bit on every file, whatever is set; Windows clears it when asked.
TEST(FolderListing, AttributesAreTheRealOnes) {
    CTestFolder test;
    const std::string hidden = test.Path("hidden"), system = test.Path("system");
    WriteWhole(hidden, "x");
    WriteWhole(system, "x");
    ASSERT_TRUE(::SetFileAttributesW(WidePath(hidden).c_str(), FILE_ATTRIBUTE_HIDDEN));
    ASSERT_TRUE(::SetFileAttributesW(WidePath(system).c_str(), FILE_ATTRIBUTE_SYSTEM));
    CFolderListing listing;
    ASSERT_TRUE(ListUntil(listing, test.Root(), "hidden"));
    EXPECT_EQ(listing.Attributes() & ~CFolderListing::kArchive, CFolderListing::kHidden);
    ASSERT_TRUE(ListUntil(listing, test.Root(), "system"));
    EXPECT_EQ(listing.Attributes() & ~CFolderListing::kArchive, CFolderListing::kSystem);
    ASSERT_TRUE(::SetFileAttributesW(WidePath(system).c_str(), FILE_ATTRIBUTE_NORMAL));
    ASSERT_TRUE(ListUntil(listing, test.Root(), "system"));
    const uint32_t plain = listing.Attributes();
    EXPECT_TRUE(plain == CFolderListing::kNormal || plain == CFolderListing::kArchive) << plain;
}
#else
TEST(FolderListing, AttributesFollowTheNamesAndRights) {
    CTestFolder test;
    WriteWhole(test.Path(".hidden"), "x");
    WriteWhole(test.Path("plain"), "x");
    CFolderListing listing;
    ASSERT_TRUE(ListUntil(listing, test.Root(), ".hidden"));
    EXPECT_EQ(listing.Attributes(), CFolderListing::kHidden | CFolderListing::kArchive);
    ASSERT_TRUE(ListUntil(listing, test.Root(), "plain"));
    EXPECT_EQ(listing.Attributes(), CFolderListing::kArchive);
    ASSERT_TRUE(ListUntil(listing, test.Root(), "."));
    EXPECT_EQ(listing.Attributes(), CFolderListing::kDirectory);
}
#endif

TEST(FolderListing, ALinkIsListedAsALink) {
    CTestFolder test;
    WriteWhole(test.Path("target"), "12345");
    std::filesystem::create_directory(Native(test.Path("folder")));
    if (!MakeFileLink(test.Path("target"), test.Path("link")) ||
        !MakeFolderLink(test.Path("folder"), test.Path("folder link")))
        GTEST_SKIP() << "this system makes no links";
    const std::map<std::string, PathKind> expected = {{"target", PathKind::kFile},
                                                      {"folder", PathKind::kFolder},
                                                      {"link", PathKind::kLink},
                                                      {"folder link", PathKind::kLink}};
    EXPECT_EQ(Listed(test.Root()), expected);
    CFolderListing listing;
    ASSERT_TRUE(ListUntil(listing, test.Root(), "link"));
    EXPECT_EQ(listing.Status().kind, PathKind::kLink);
    EXPECT_NE(listing.Status().identity, StatusOf(test.Path("target")).identity);
}

TEST(FolderListing, AFolderThatCannotBeListedSaysWhy) {
    CTestFolder test;
    WriteWhole(test.Path("file"), "x");
    CFolderListing listing;
    EXPECT_EQ(listing.Open(test.Path("missing")), ENOENT);
    EXPECT_EQ(listing.Open(test.Path("file")), ENOTDIR);
    std::string name;
    PathKind kind = PathKind::kNone;
    EXPECT_FALSE(listing.Next(name, kind));
}

} // namespace
