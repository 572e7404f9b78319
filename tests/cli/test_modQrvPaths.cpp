// Paths named on the companion's command line, in the catalogue's stored form. On Windows
// "\" separates folders ("/" is read as one too) and an apostrophe is stored as "/".

#include "cli/modQrvPaths.h"

#include <gtest/gtest.h>

namespace {

#ifdef _WIN32

TEST(QrvPaths, ARelativePathLiesBelowTheRunsSource) {
    EXPECT_EQ(StoredRunPath("C:\\Users\\ann\\Docs", ""), "C:\\Users\\ann\\Docs");
    EXPECT_EQ(StoredRunPath("C:\\Users\\ann\\Docs\\", "."), "C:\\Users\\ann\\Docs");
    EXPECT_EQ(StoredRunPath("C:\\Users\\ann\\Docs", "sub\\a.txt"),
              "C:\\Users\\ann\\Docs\\sub\\a.txt");
    EXPECT_EQ(StoredRunPath("C:\\Users\\ann\\Docs", "sub/a.txt"),
              "C:\\Users\\ann\\Docs\\sub\\a.txt");
    EXPECT_EQ(StoredRunPath("C:\\Users\\ann\\Docs", ".\\sub\\"), "C:\\Users\\ann\\Docs\\sub");
    EXPECT_EQ(StoredRunPath("C:\\", "etc"), "C:\\etc");
}

TEST(QrvPaths, AFullPathStandsAsItIsWithApostrophesEncoded) {
    EXPECT_EQ(StoredRunPath("C:\\Users\\ann\\Docs", "C:\\Users\\ann\\Docs\\Bob's\\"),
              "C:\\Users\\ann\\Docs\\Bob/s");
    EXPECT_EQ(StoredRunPath("C:\\Users\\ann\\Bob's", "x'y"), "C:\\Users\\ann\\Bob/s\\x/y");
    EXPECT_EQ(StoredRunPath("C:\\Users\\ann\\Docs", "'lead.txt"),
              "C:\\Users\\ann\\Docs\\/lead.txt");
}

TEST(QrvPaths, TidyPathDropsDotAndEmptyComponentsButKeepsDotDot) {
    EXPECT_EQ(TidyPath("C:\\a\\\\b\\.\\c\\"), "C:\\a\\b\\c");
    EXPECT_EQ(TidyPath("C:\\a\\..\\b"), "C:\\a\\..\\b");
    EXPECT_EQ(TidyPath("C:\\."), "C:\\");
}

TEST(QrvPaths, AtOrBelowComparesWholeComponents) {
    EXPECT_TRUE(IsAtOrBelow("C:\\a\\sub", "C:\\a\\sub"));
    EXPECT_TRUE(IsAtOrBelow("C:\\a\\sub\\x.txt", "C:\\a\\sub"));
    EXPECT_FALSE(IsAtOrBelow("C:\\a\\subway\\x.txt", "C:\\a\\sub"));
    EXPECT_FALSE(IsAtOrBelow("C:\\a", "C:\\a\\sub"));
    EXPECT_TRUE(IsAtOrBelow("C:\\anything", "C:\\"));
}

#else

TEST(QrvPaths, ARelativePathLiesBelowTheRunsSource) {
    EXPECT_EQ(StoredRunPath("/home/ann/Docs", ""), "/home/ann/Docs");
    EXPECT_EQ(StoredRunPath("/home/ann/Docs/", "."), "/home/ann/Docs");
    EXPECT_EQ(StoredRunPath("/home/ann/Docs", "sub/a.txt"), "/home/ann/Docs/sub/a.txt");
    EXPECT_EQ(StoredRunPath("/home/ann/Docs", "./sub/"), "/home/ann/Docs/sub");
    EXPECT_EQ(StoredRunPath("/", "etc"), "/etc");
}

TEST(QrvPaths, AFullPathStandsAsItIsWithApostrophesEncoded) {
    EXPECT_EQ(StoredRunPath("/home/ann/Docs", "/home/ann/Docs/Bob's/"), "/home/ann/Docs/Bob\\s");
    EXPECT_EQ(StoredRunPath("/home/ann/Bob's", "x'y"), "/home/ann/Bob\\s/x\\y");
    EXPECT_EQ(StoredRunPath("/home/ann/Docs", "'lead.txt"), "/home/ann/Docs/\\lead.txt");
}

TEST(QrvPaths, ABackslashIsStoredApartFromAnApostrophe) {
    EXPECT_EQ(StoredRunPath("/home/ann/Docs", "back\\slash.txt"),
              "/home/ann/Docs/back\001bslash.txt");
    EXPECT_EQ(StoredRunPath("/home/ann/a\\b", "q'r\\s"), "/home/ann/a\001bb/q\\r\001bs");
    EXPECT_EQ(StoredRunPath("/home/ann/Docs", "/home/ann/Docs/\\lead/"),
              "/home/ann/Docs/\001blead");
}

TEST(QrvPaths, InARunStoredBeforeTheBackslashEscapeOnlyApostrophesAreEncoded) {
    EXPECT_EQ(StoredRunPath("/home/ann/a\\b", "q'r\\s", true), "/home/ann/a\\b/q\\r\\s");
    EXPECT_EQ(StoredRunPath("/home/ann/a\\b", "", true), "/home/ann/a\\b");
}

TEST(QrvPaths, TidyPathDropsDotAndEmptyComponentsButKeepsDotDot) {
    EXPECT_EQ(TidyPath("/a//b/./c/"), "/a/b/c");
    EXPECT_EQ(TidyPath("/a/../b"), "/a/../b");
    EXPECT_EQ(TidyPath("/."), "/");
    EXPECT_EQ(TidyPath("//"), "/");
}

TEST(QrvPaths, AtOrBelowComparesWholeComponents) {
    EXPECT_TRUE(IsAtOrBelow("/a/sub", "/a/sub"));
    EXPECT_TRUE(IsAtOrBelow("/a/sub/x.txt", "/a/sub"));
    EXPECT_FALSE(IsAtOrBelow("/a/subway/x.txt", "/a/sub"));
    EXPECT_FALSE(IsAtOrBelow("/a", "/a/sub"));
    EXPECT_TRUE(IsAtOrBelow("/anything", "/"));
}

#endif

} // namespace
