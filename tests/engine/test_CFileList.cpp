// The list of a run's files: every path comes back byte for byte at its index, in the order
// added, whatever its length or bytes, across the blocks the list keeps the names in, and
// whether or not the files of a folder come together.

#include "engine/CFileList.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

TEST(CFileList, PathsComeBackInTheOrderAddedByteForByte) {
    const std::vector<std::string> paths{"/home/me/Bob's src/it's.txt", "/a/new\nline",
                                         "/bad\xff\xfe name.bin", "", "C:\\Users\\me\\x.txt"};
    CFileList list(paths);
    ASSERT_EQ(list.size(), paths.size());
    for (size_t i = 0; i < paths.size(); ++i)
        EXPECT_EQ(list[i], paths[i]) << i;
    EXPECT_EQ(list.back(), paths.back());
    EXPECT_EQ(list.Strings(), paths);
}

TEST(CFileList, ManyPathsAndOneLongerThanABlockSpanBlocksAndStayIntact) {
    CFileList list;
    std::vector<std::string> paths;
    for (int i = 0; i < 200000; ++i)
        paths.push_back("/source/folder " + std::to_string(i % 977) + "/file " + std::to_string(i));
    paths.insert(paths.begin() + 1000, std::string((1 << 20) + 10, 'x'));
    for (const std::string& path : paths)
        list.push_back(path);
    ASSERT_EQ(list.size(), paths.size());
    for (size_t i = 0; i < paths.size(); ++i)
        ASSERT_EQ(list[i], paths[i]) << i;
}

TEST(CFileList, FoldersMetAgainAfterOthersAndPathsWithoutAFolderComeBackAsGiven) {
    const std::vector<std::string> paths{"/a/x", "/b/y", "/a/z",     "name only",
                                         "/",    "/a/",  "/a/b/c/d", "/a/x"};
    EXPECT_EQ(CFileList(paths).Strings(), paths);
}

TEST(CFileList, ClearLeavesAnEmptyListThatTakesPathsAgain) {
    CFileList list{"/a", "/b"};
    list.clear();
    EXPECT_TRUE(list.empty());
    list.push_back("/c");
    EXPECT_EQ(list.Strings(), std::vector<std::string>{"/c"});
}

} // namespace
