// A run made by the real program, restored file by file to its place and to another folder,
// compared byte for byte with what was backed up.

#include "BackupFixture.h"
#include "TestProgram.h"
#include "app/modPaths.h"
#include "app/modRestore.h"
#include "support/modServices.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <map>

namespace {

using Lines = std::vector<std::string>;

struct RestoreTest : ::testing::Test {
    BackupFixture f;
    std::string src = f.env.Path("src");
    std::map<std::string, std::string> contents; // relative path -> content

    void SetUp() override {
        CreateTree(src,
                   Dir({
                       {"a.txt", File("alpha")},
                       {"big.bin", File(PatternContent(300000))},
                       {"sub", Dir({{"Bob's file.txt", File("apostrophe")},
                                    {"deeper", Dir({{"d.txt", File(PatternContent(8192))}})}})},
                       {"bad\xff\xfe.bin", File("invalid utf-8")},
                       {"new\nline.txt", File("newline")},
                       {"back\\slash.txt", File("backslash")},
                   }));
        for (const std::string& path : WalkOrder(src))
            contents[path.substr(src.size())] = ReadFile(path);
        f.AddSource(src);
        ASSERT_EQ(RunStashwell({"backup"}).exitCode, 0);
    }

    Lines Keys() const { return f.Rows("SELECT file FROM Files WHERE bid = 1 ORDER BY fid"); }

    // What a restore must produce: the same tree, except that a "\" in a name comes back as "'".
    std::map<std::string, std::string> ExpectedBelow(const std::string& root) const {
        std::map<std::string, std::string> expected;
        for (const auto& [stored, content] : contents) {
            std::string relative = stored;
            std::replace(relative.begin(), relative.end(), '\\', '\'');
            expected[root + relative] = content;
        }
        return expected;
    }

    static std::map<std::string, std::string> Tree(const std::string& root) {
        std::map<std::string, std::string> tree;
        for (const std::string& path : WalkOrder(root))
            tree[path] = ReadFile(path);
        return tree;
    }
};

TEST_F(RestoreTest, EveryFileComesBackToItsPlace) {
    std::filesystem::remove_all(src);
    for (const std::string& key : Keys())
        RestoreFile("1", key, "", true);
    EXPECT_EQ(Tree(src), ExpectedBelow(src));
    EXPECT_TRUE(f.env.box.calls.empty());
    EXPECT_EQ(ErrHandler().ErrNumber(), 0);
}

TEST_F(RestoreTest, RestoreOverExistingFilesReplacesThem) {
    WriteFile(src + "/a.txt", "a much longer text than the stored alpha");
    WriteFile(src + "/big.bin", "short");
    for (const std::string& key : Keys())
        RestoreFile("1", key, "", true);
    EXPECT_EQ(ReadFile(src + "/a.txt"), "alpha");
    EXPECT_EQ(ReadFile(src + "/big.bin"), PatternContent(300000));
    EXPECT_TRUE(f.env.box.calls.empty());
}

TEST_F(RestoreTest, RestoringToAnotherFolderKeepsThePathBelowTheSource) {
    const std::string other = f.env.Path("elsewhere");
    for (const std::string& key : Keys())
        RestoreFile("1", key, other, true);
    EXPECT_EQ(Tree(other), ExpectedBelow(other));
    EXPECT_EQ(ReadFile(other + "/sub/deeper/d.txt"), PatternContent(8192));
    EXPECT_EQ(ReadFile(other + "/sub/Bob's file.txt"), "apostrophe");
}

TEST_F(RestoreTest, ApostropheKeyMatchesAndTheFileGetsItsOwnName) {
    const std::string key = src + "/sub/Bob\\s file.txt";
    EXPECT_EQ(f.Rows("SELECT count(*) FROM Files WHERE file = '" + key + "'"), Lines{"1"});
    std::filesystem::remove(src + "/sub/Bob's file.txt");
    RestoreFile("1", key, "", false);
    EXPECT_EQ(ReadFile(src + "/sub/Bob's file.txt"), "apostrophe");
}

TEST_F(RestoreTest, VerificationMismatchShowsOneBoxPerFailingFile) {
    // Same size, other content: the copy succeeds, its signature does not match.
    for (const char* content : {"alpha", "apostrophe"}) {
        const std::string store = StoreFile(f.backup, content);
        WriteFile(store, std::string(std::string(content).size(), '#'));
    }
    const std::string other = f.env.Path("elsewhere");
    for (const std::string& key : Keys())
        RestoreFile("1", key, other, true);
    ASSERT_EQ(f.env.box.calls.size(), 2u);
    std::vector<CScriptedMessageBox::Call> expected = {
        {"Restored file failed verification " + src + "/a.txt", 16, "QRV - Stashwell"},
        {"Restored file failed verification " + src + "/sub/Bob\\s file.txt", 16,
         "QRV - Stashwell"},
    };
    std::sort(f.env.box.calls.begin(), f.env.box.calls.end(),
              [](auto& a, auto& b) { return a.text < b.text; });
    EXPECT_EQ(f.env.box.calls, expected);
    EXPECT_EQ(ReadFile(other + "/a.txt"), "#####"); // the restored file stays in place
}

TEST_F(RestoreTest, KeyWithoutARowFailsAndTheNextFileStillRestores) {
    Logger().LogFile(f.env.Path("restore.log"));
    ASSERT_TRUE(Logger().StartLogger());
    ErrHandler().DisplayMsgOnError(false);
    const std::string other = f.env.Path("elsewhere");
    RestoreFile("1", src + "/no such file", other, false);
    EXPECT_EQ(ErrHandler().ErrNumber(), 10005);
    EXPECT_EQ(ErrHandler().ErrProcedure(), "RestoreFile");
    const Lines log = LogMessages(ReadFile(f.env.Path("restore.log")));
    ASSERT_FALSE(log.empty());
    EXPECT_EQ(log.back(), "Failed to restore " + other + "\r\n");
    RestoreFile("1", src + "/a.txt", other, false);
    EXPECT_EQ(ReadFile(other + "/a.txt"), "alpha");
}

} // namespace
