// Where a folder lies against another, by the file system's identity of both: the very folder,
// inside it at any depth, or outside it, whatever the spelling, links or mounts in between.

#include "TestSupport.h"
#include "engine/modFolderIdentity.h"

#include <filesystem>
#include <gtest/gtest.h>
#ifndef _WIN32
#include <sys/mount.h>
#include <unistd.h>
#endif

namespace {

namespace fs = std::filesystem;

class FolderPlaceTest : public ::testing::Test {
protected:
    FolderPlaceTest() : bk(env.Path("bk")) {
        CreateTree(bk, Dir({{"Files", Dir({{"ab", Dir()}})}, {"note.txt", File("n")}}));
        CreateTree(env.Path("other"), Dir());
    }

    ScopedTestEnv env;
    std::string bk;
};

TEST_F(FolderPlaceTest, TheFolderItselfInAnySpellingIsTheSame) {
    for (const std::string& folder :
         {bk, bk + Native("/"), bk + Native("//"), bk + Native("/Files/.."), bk + Native("/./")})
        EXPECT_EQ(PlaceOf(folder, bk), FolderPlace::kSame) << folder;
    EXPECT_EQ(PlaceOf(bk, bk + Native("/Files/../")), FolderPlace::kSame);
}

TEST_F(FolderPlaceTest, FoldersBelowItAtAnyDepthAreInside) {
    EXPECT_EQ(PlaceOf(bk + Native("/Files"), bk), FolderPlace::kInside);
    EXPECT_EQ(PlaceOf(bk + Native("/Files/ab/"), bk), FolderPlace::kInside);
    EXPECT_EQ(PlaceOf(env.Path("other/../bk/Files"), bk), FolderPlace::kInside);
}

TEST_F(FolderPlaceTest, AFolderThatIsNotThereYetIsPlacedByItsNearestFolderThatIs) {
    EXPECT_EQ(PlaceOf(bk + Native("/new/deeper"), bk), FolderPlace::kInside);
    EXPECT_EQ(PlaceOf(bk + Native("/note.txt/x"), bk), FolderPlace::kInside);
    EXPECT_EQ(PlaceOf(env.Path("other/new"), bk), FolderPlace::kOutside);
}

#ifndef _WIN32
// Wine makes no links.
TEST_F(FolderPlaceTest, LinksOnEitherSideAreSeenThrough) {
    ASSERT_EQ(::symlink(bk.c_str(), env.Path("to-bk").c_str()), 0);
    ASSERT_EQ(::symlink((bk + "/Files").c_str(), env.Path("to-files").c_str()), 0);
    EXPECT_EQ(PlaceOf(env.Path("to-bk"), bk), FolderPlace::kSame);
    EXPECT_EQ(PlaceOf(env.Path("to-files"), bk), FolderPlace::kInside);
    EXPECT_EQ(PlaceOf(env.Path("to-files/ab"), env.Path("to-bk")), FolderPlace::kInside);
    EXPECT_EQ(PlaceOf(env.Path("to-files/new"), bk), FolderPlace::kInside);
}
#endif

TEST_F(FolderPlaceTest, FoldersAboveBesideOrWithTheSameBeginningAreOutside) {
    CreateTree(bk + "2", Dir());
    EXPECT_EQ(PlaceOf(env.Root(), bk), FolderPlace::kOutside);
    EXPECT_EQ(PlaceOf(env.Path("other"), bk), FolderPlace::kOutside);
    EXPECT_EQ(PlaceOf(bk + "2", bk), FolderPlace::kOutside);
    EXPECT_EQ(PlaceOf(Native("/"), bk), FolderPlace::kOutside);
}

TEST_F(FolderPlaceTest, AnOuterFolderThatIsNotThereHoldsNothing) {
    EXPECT_EQ(PlaceOf(bk, env.Path("gone")), FolderPlace::kOutside);
    EXPECT_EQ(PlaceOf(env.Path("gone/x"), env.Path("gone")), FolderPlace::kOutside);
    EXPECT_EQ(PlaceOf(bk, bk + Native("/note.txt")), FolderPlace::kOutside);
    EXPECT_EQ(PlaceOf(bk, ""), FolderPlace::kOutside);
}

TEST_F(FolderPlaceTest, RelativePathsCountFromTheCurrentFolder) {
    const fs::path before = fs::current_path();
    fs::current_path(FsPath(bk));
    EXPECT_EQ(PlaceOf(Native("Files/ab"), bk), FolderPlace::kInside);
    EXPECT_EQ(PlaceOf(".", bk), FolderPlace::kSame);
    EXPECT_EQ(PlaceOf("..", bk), FolderPlace::kOutside);
    fs::current_path(before);
}

#ifndef _WIN32
TEST_F(FolderPlaceTest, ABindMountOfTheFolderIsTheSameFolder) {
    const std::string mnt = env.Path("other/mnt");
    CreateTree(mnt, Dir());
    if (::mount(bk.c_str(), mnt.c_str(), nullptr, MS_BIND, nullptr) != 0)
        GTEST_SKIP() << "a bind mount needs root";
    const FolderPlace same = PlaceOf(mnt, bk), inside = PlaceOf(mnt + "/Files", bk);
    ::umount2(mnt.c_str(), MNT_DETACH);
    EXPECT_EQ(same, FolderPlace::kSame);
    EXPECT_EQ(inside, FolderPlace::kInside);
}
#endif

TEST(FolderIdentity, OnlyAFolderHasOne) {
    ScopedTestEnv env;
    CreateTree(env.Path("d"), Dir({{"f", File("f")}}));
    EXPECT_TRUE(FolderIdentityOf(env.Path("d")).known);
    EXPECT_EQ(FolderIdentityOf(env.Path("d")), FolderIdentityOf(env.Path("d/")));
    EXPECT_FALSE(FolderIdentityOf(env.Path("d/f")).known);
    EXPECT_FALSE(FolderIdentityOf(env.Path("none")).known);
    EXPECT_FALSE(FolderIdentityOf("").known);
}

} // namespace
