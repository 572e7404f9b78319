// A run made by the real program, restored file by file to its place and to another folder,
// compared byte for byte with what was backed up.

#include "OddNamesBackup.h"
#include "QuoteNames.h"
#include "app/modPaths.h"
#include "app/modRestore.h"
#include "support/modServices.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using Lines = std::vector<std::string>;

// The one outcome of a key that one row of the run holds.
RestoreOutcome Once(const std::vector<RestoreOutcome>& outcomes) {
    EXPECT_EQ(outcomes.size(), 1u);
    return outcomes.empty() ? RestoreOutcome{} : outcomes[0];
}

struct RestoreTest : ::testing::Test {
    OddNamesBackup f;
    std::string src = f.src;

    Lines Keys() const { return f.Rows("SELECT file FROM Files WHERE bid = 1 ORDER BY fid"); }
    std::map<std::string, std::string> ExpectedBelow(const std::string& root) const {
        return f.ExpectedBelow(root);
    }
    static std::map<std::string, std::string> Tree(const std::string& root) {
        return OddNamesBackup::Tree(root);
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

TEST_F(RestoreTest, BackslashKeyMatchesAndTheFileGetsItsOwnName) {
    const std::string key = src + "/back\001bslash.txt";
    EXPECT_EQ(f.Rows("SELECT count(*) FROM Files WHERE file = '" + key + "'"), Lines{"1"});
    std::filesystem::remove(src + "/back\\slash.txt");
    RestoreFile("1", key, "", false);
    EXPECT_EQ(ReadFile(src + "/back\\slash.txt"), "backslash");
    EXPECT_FALSE(Exists(src + "/back'slash.txt"));
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

TEST_F(RestoreTest, EachRestoreTellsHowItEnded) {
    const std::string other = f.env.Path("elsewhere");
    CFileRestorer restorer("1", other, true);
    const RestoreOutcome good = Once(restorer.RestoreFile(src + "/a.txt"));
    EXPECT_TRUE(good.restored);
    EXPECT_TRUE(good.verified);
    EXPECT_EQ(good.target, other + "/a.txt");
    EXPECT_EQ(good.problem, "");

    WriteFile(StoreFile(f.backup, "apostrophe"), "APOSTROPHE");
    const RestoreOutcome altered = Once(restorer.RestoreFile(Encoded(src + "/sub/Bob's file.txt")));
    EXPECT_TRUE(altered.restored);
    EXPECT_FALSE(altered.verified);
    EXPECT_EQ(altered.target, other + "/sub/Bob's file.txt");
    EXPECT_EQ(altered.problem,
              "its content does not have the signature " + TestSignature("apostrophe"));

    ASSERT_EQ(::unlink(StoreFile(f.backup, "newline").c_str()), 0);
    const RestoreOutcome missing = Once(restorer.RestoreFile(src + "/new\nline.txt"));
    EXPECT_FALSE(missing.restored);
    EXPECT_EQ(missing.target, other + "/new\nline.txt");
    EXPECT_EQ(missing.problem, "its store file " + StoreFile(f.backup, "newline") + " is missing");

    const RestoreOutcome unknown = Once(restorer.RestoreFile(src + "/never.txt"));
    EXPECT_FALSE(unknown.restored);
    EXPECT_EQ(unknown.problem, "the run holds no such file");
}

TEST(RestoreTarget, OnlyAPlainPathBelowTheFolderMayBeWritten) {
    ScopedTestEnv env;
    const std::string folder = env.Path("to");
    CreateTree(folder, Dir({{"sub", Dir({{"f.txt", File("f")}})}}));
    EXPECT_EQ(RestoreTargetProblem(folder, folder + "/sub/f.txt"), "");
    EXPECT_EQ(RestoreTargetProblem(folder + "/", folder + "/new/deeper/g.txt"), "");
    EXPECT_EQ(RestoreTargetProblem("/", "/a/b.txt"), "");
    const std::string outside = "the stored path leads outside " + folder;
    for (const char* tail :
         {"/../escape.txt", "/sub/../../escape.txt", "/./f.txt", "//etc/passwd", "/sub/", ""})
        EXPECT_EQ(RestoreTargetProblem(folder, folder + tail), outside) << tail;
    EXPECT_EQ(RestoreTargetProblem(folder, env.Path("top-sibling.txt")), outside);
    EXPECT_EQ(RestoreTargetProblem(folder, folder + "-other/f.txt"), outside);
}

TEST(RestoreTarget, NoSymbolicLinkOnTheWayNorInTheTargetsPlace) {
    ScopedTestEnv env;
    const std::string folder = env.Path("to");
    CreateTree(folder, Dir());
    CreateTree(env.Path("elsewhere"), Dir());
    ASSERT_EQ(::symlink(env.Path("elsewhere").c_str(), (folder + "/link").c_str()), 0);
    ASSERT_EQ(::symlink(env.Path("elsewhere/x").c_str(), (folder + "/file").c_str()), 0);
    EXPECT_EQ(RestoreTargetProblem(folder, folder + "/link/a.txt"),
              "a symbolic link stands at " + folder + "/link");
    EXPECT_EQ(RestoreTargetProblem(folder, folder + "/file"),
              "a symbolic link stands at " + folder + "/file");
}

TEST_F(RestoreTest, StoredPathLeadingOutOfTheFolderIsRefusedAndTheWalkGoesOn) {
    Logger().LogFile(f.env.Path("restore.log"));
    ASSERT_TRUE(Logger().StartLogger());
    const std::string backupFile = f.Rows("SELECT backup FROM Files WHERE bid = 1")[0];
    for (const std::string& file : {src + "/../escape.txt", src + "/sub/../../../escape.txt"})
        f.Exec("INSERT INTO Files (bid, md5, path, file, backup, size) SELECT 1, 'x', '', '" +
               file + "', '" + backupFile + "', 1");
    const std::string other = f.env.Path("to/other");
    CreateTree(other, Dir());
    RestoreFile("1", src + "/../escape.txt", other, false);
    EXPECT_EQ(ErrHandler().ErrNumber(), 10005);
    const std::string text = "Failed to restore " + f.env.Path("to/other/../escape.txt") +
                             ": the stored path leads outside " + other;
    EXPECT_EQ(ErrHandler().ErrDescription(), text);
    ASSERT_EQ(f.env.box.calls.size(), 1u);
    EXPECT_NE(f.env.box.calls[0].text.find(text), std::string::npos);
    EXPECT_EQ(LogMessages(ReadFile(f.env.Path("restore.log"))).back(), text + "\r\n");
    // Back to its place: the place must lie below the run's source.
    RestoreFile("1", src + "/sub/../../../escape.txt", "", false);
    EXPECT_EQ(ErrHandler().ErrDescription(), "Failed to restore " + src +
                                                 "/sub/../../../escape.txt: the stored path "
                                                 "leads outside " +
                                                 src);
    for (const std::string& path : ListTree(f.env.Root()))
        EXPECT_EQ(path.find("escape"), std::string::npos) << path; // written nowhere
    EXPECT_FALSE(Exists(f.env.Path("../escape.txt")));
    RestoreFile("1", src + "/a.txt", other, false);
    EXPECT_EQ(ReadFile(other + "/a.txt"), "alpha");
}

TEST_F(RestoreTest, RestoreThroughALinkInTheChosenFolderIsRefused) {
    const std::string other = f.env.Path("other");
    CreateTree(other, Dir());
    CreateTree(f.env.Path("outside"), Dir());
    ASSERT_EQ(::symlink(f.env.Path("outside").c_str(), (other + "/sub").c_str()), 0);
    RestoreFile("1", src + "/sub/Bob\\s file.txt", other, false);
    EXPECT_EQ(ErrHandler().ErrDescription(), "Failed to restore " + other +
                                                 "/sub/Bob's file.txt: a symbolic link stands "
                                                 "at " +
                                                 other + "/sub");
    EXPECT_EQ(ListTree(f.env.Path("outside")), Lines{});
}

TEST_F(RestoreTest, RestoredFilesAndFoldersGetTheUsersDefaultModes) {
    const mode_t saved = ::umask(022);
    const std::string other = f.env.Path("other");
    for (const std::string& key : Keys())
        RestoreFile("1", key, other, false);
    ::umask(saved);
    struct stat st {};
    ASSERT_EQ(::stat((other + "/a.txt").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0644u);
    ASSERT_EQ(::stat((other + "/sub/deeper").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0755u);
}

// A source whose names differ only by an apostrophe and a backslash, backed up by the real
// program.
struct QuoteNamesTest : ::testing::Test {
    BackupFixture f;
    std::string src = f.env.Path("src");
    std::string other = f.env.Path("elsewhere");
    std::string log = f.env.Path("restore.log");

    QuoteNamesTest() {
        CreateTree(src, QuoteNamesTree());
        f.AddSource(src);
        const ProgramRun run = RunStashwell({"backup"});
        EXPECT_EQ(run.exitCode, 0) << run.err;
        Logger().LogFile(log);
        EXPECT_TRUE(Logger().StartLogger());
    }

    void RestoreEveryKey(const std::string& destination) const {
        CFileRestorer restorer("1", destination, true);
        for (const std::string& key : f.Rows("SELECT DISTINCT file FROM Files WHERE bid = 1"))
            restorer.RestoreFile(key);
    }
};

TEST_F(QuoteNamesTest, EveryNameComesBackUnderItsOwnNameWithItsOwnContent) {
    std::filesystem::remove_all(src);
    RestoreEveryKey("");
    EXPECT_EQ(OddNamesBackup::Tree(src), QuoteNamesBelow(src));
    RestoreEveryKey(other);
    EXPECT_EQ(OddNamesBackup::Tree(other), QuoteNamesBelow(other));
    EXPECT_TRUE(f.env.box.calls.empty());
    EXPECT_EQ(ErrHandler().ErrNumber(), 0);
}

TEST_F(QuoteNamesTest, OfTwoRowsOfOnePlaceInAnOlderCatalogueTheFirstIsRestoredAndTheSecondNamed) {
    StoreQuoteNamesBeforeEscape(f, src, "1");
    CFileRestorer restorer("1", other, false);
    const std::vector<RestoreOutcome> outcomes = restorer.RestoreFile(src + "/q\\r.txt");
    ASSERT_EQ(outcomes.size(), 2u);
    EXPECT_TRUE(outcomes[0].restored);
    EXPECT_EQ(outcomes[0].target, other + "/q'r.txt");
    EXPECT_EQ(outcomes[0].problem, "");
    EXPECT_FALSE(outcomes[1].restored);
    EXPECT_EQ(outcomes[1].target, other + "/q'r.txt");
    EXPECT_EQ(outcomes[1].problem, "another file of the run goes to the same place");
    EXPECT_EQ(ReadFile(other + "/q'r.txt"), "ONE");

    const std::string text =
        "Failed to restore " + other + "/q'r.txt: another file of the run goes to the same place";
    EXPECT_EQ(ErrHandler().ErrNumber(), 10005);
    EXPECT_EQ(ErrHandler().ErrProcedure(), "RestoreFile");
    EXPECT_EQ(ErrHandler().ErrDescription(), text);
    const Lines lines = LogMessages(ReadFile(log));
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back(), text + "\r\n");
    ASSERT_EQ(f.env.box.calls.size(), 1u);
    EXPECT_EQ(f.env.box.calls[0].text,
              "The following error has occurred in procedure: \r\nRestoreFile on line 0\r\n"
              "Error (10005) " +
                  text + "\r\nCurrent Operation: " + text);
}

TEST_F(QuoteNamesTest, AnOlderCatalogueReadsEveryOtherNameAsItAlwaysDid) {
    StoreQuoteNamesBeforeEscape(f, src, "1");
    RestoreEveryKey(other);
    EXPECT_EQ(OddNamesBackup::Tree(other), QuoteNamesBeforeEscapeBelow(other));
    EXPECT_EQ(f.env.box.calls.size(), 1u); // the second row of q'r.txt
}

} // namespace
