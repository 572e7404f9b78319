// Reading the whole store for a check: which files are store files, and the signature of each
// one's content, read on several threads.

#include "BackupFixture.h"
#include "cli/modStoreScan.h"
#include "platform/modFileSystem.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <gtest/gtest.h>
#ifndef _WIN32
#include <unistd.h>
#endif

namespace {

TEST(StoreScan, StoreFilesOfBothLayoutsInPathOrderWithoutTemporaries) {
    ScopedTestEnv env;
    const std::string root = env.Path("Files");
    const std::string a(32, 'a'), b(32, 'b'), c(32, 'c');
    CreateTree(root, Dir({
                         {b + ".QRV", File("flat layout")},
                         {".unfinished", File("")},
                         {"aa", Dir({{"aa", Dir({{a + ".QRV", File("x")},
                                                 {".stage-1234", File("temporary")},
                                                 {a + ".QRV.tmp", File("temporary")}})}})},
                         {"cc", Dir({{"cc", Dir({{c + ".QRV", File("y")}})}})},
                         {"notes.txt", File("not a store file")},
                     }));
    EXPECT_EQ(StoreFiles(root), (std::vector<std::string>{root + Native("/aa/aa/" + a + ".QRV"),
                                                          root + Native("/" + b + ".QRV"),
                                                          root + Native("/cc/cc/" + c + ".QRV")}));
    EXPECT_TRUE(StoreFiles(env.Path("none")).empty());
}

TEST(StoreScan, StoreNamesAreLowerCaseHexThenQrv) {
    EXPECT_TRUE(IsStoreName("0123456789abcdef.QRV"));
    EXPECT_FALSE(IsStoreName(".QRV"));
    EXPECT_FALSE(IsStoreName("ABCDEF.QRV"));
    EXPECT_FALSE(IsStoreName("abc.qrv"));
    EXPECT_FALSE(IsStoreName("abc.QRV.tmp"));
}

TEST(StoreScan, EveryFileIsSignedInItsPlaceAndAnUnreadableOneHasNone) {
    ScopedTestEnv env;
    std::vector<std::string> paths, contents;
    for (int k = 0; k < 40; ++k) {
        contents.push_back(PatternContent(static_cast<size_t>(k) * 1000 + 1));
        paths.push_back(env.Path("f" + std::to_string(k)));
        WriteFile(paths.back(), contents.back());
    }
    paths.push_back(env.Path("gone"));
    std::vector<size_t> progress;
    std::vector<uint64_t> bytes;
    const auto signatures = SignFiles(paths, [&](size_t done, uint64_t read) {
        progress.push_back(done);
        bytes.push_back(read);
    });
    ASSERT_EQ(signatures.size(), paths.size());
    for (size_t k = 0; k < contents.size(); ++k) {
        ASSERT_TRUE(signatures[k].has_value()) << k;
        EXPECT_EQ(signatures[k]->signature, TestSignature(contents[k])) << k;
        EXPECT_EQ(signatures[k]->length, contents[k].size());
    }
    EXPECT_FALSE(signatures.back().has_value());
    ASSERT_FALSE(progress.empty());
    EXPECT_EQ(progress.back(), paths.size());
    EXPECT_TRUE(std::is_sorted(progress.begin(), progress.end()));
    // Every byte of every readable file, read once.
    uint64_t all = 0;
    for (const std::string& content : contents)
        all += content.size();
    EXPECT_EQ(bytes.back(), all);
    EXPECT_TRUE(std::is_sorted(bytes.begin(), bytes.end()));
}

TEST(StoreScan, WhatStandsInAStoreFilesPlaceIsToldWithoutFollowingALink) {
    ScopedTestEnv env;
    WriteFile(env.Path("file"), "12345");
    std::filesystem::create_directory(FsPath(env.Path("folder")));
#ifndef _WIN32
    ::symlink(env.Path("file").c_str(), env.Path("link").c_str());
#endif
    EXPECT_EQ(InspectStoreFile(env.Path("file"), 5).fault, StoreEntry::kSound);
    const StoreEntry wrong = InspectStoreFile(env.Path("file"), 7);
    EXPECT_EQ(wrong.fault, StoreEntry::kWrongSize);
    EXPECT_EQ(wrong.SizeMismatch(7), "holds 5 bytes, the catalogue records 7");
    EXPECT_EQ(InspectStoreFile(env.Path("none"), 5).fault, StoreEntry::kMissing);
    const StoreEntry folder = InspectStoreFile(env.Path("folder"), 5);
    EXPECT_EQ(folder.fault, StoreEntry::kNotAFile);
    EXPECT_EQ(folder.Kind(), "a folder");
#ifndef _WIN32
    const StoreEntry link = InspectStoreFile(env.Path("link"), 5);
    EXPECT_EQ(link.fault, StoreEntry::kNotAFile);
    EXPECT_EQ(link.Kind(), "a symbolic link");
#endif
    // A path through a file is told as such on Windows too, not as a missing file.
    const StoreEntry below = InspectStoreFile(env.Path("file") + kPathSeparator + "below", 5);
    EXPECT_EQ(below.fault, StoreEntry::kUnreadable);
    EXPECT_EQ(below.error, ENOTDIR);
}

} // namespace
