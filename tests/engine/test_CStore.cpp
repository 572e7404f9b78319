// The store a run writes into: where content goes, that staged content takes the name of what
// it holds and is private, that nothing is made above the store folder or after it went away,
// and that the temporary files of an interrupted run are cleared by the next one.

#include "BackupFixture.h"
#include "engine/CStore.h"
#include "support/CRuntimeError.h"
#include "support/modServices.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using Lines = std::vector<std::string>;

unsigned Mode(const std::string& path) {
    struct stat st {};
    ::lstat(path.c_str(), &st);
    return st.st_mode & 07777;
}

// The number of a run-time error that `work` raises, 0 for none.
template <class Work> int RaisedError(Work work) {
    try {
        work();
    } catch (const CRuntimeError& error) {
        return error.Number();
    }
    return 0;
}

struct StoreTest : ::testing::Test {
    ScopedTestEnv env;
    std::string root = env.Path("Files");
    CStore store;

    StoreTest() {
        CreateTree(root, Dir());
        ErrHandler().DisplayMsgOnError(false);
    }
};

TEST_F(StoreTest, ContentGoesTwoFolderLevelsDownByTheFirstFourCharactersOfItsName) {
    EXPECT_EQ(CStore::StorePath("/b/Files", "0123abcd.QRV"), "/b/Files/01/23/0123abcd.QRV");
    store.Open(root);
    EXPECT_EQ(store.Target("89ab" + std::string(28, '0')),
              root + "/89/ab/89ab" + std::string(28, '0') + ".QRV");
}

TEST_F(StoreTest, MissingStoreFolderCannotBeOpened) {
    EXPECT_EQ(RaisedError([&] { store.Open(env.Path("unplugged/Files")); }), 68);
    EXPECT_FALSE(Exists(env.Path("unplugged")));
}

TEST_F(StoreTest, CopiedContentIsNamedAfterWhatItHoldsAndIsPrivate) {
    WriteFile(env.Path("source"), "some content");
    ASSERT_EQ(::chmod(env.Path("source").c_str(), 0755), 0);
    store.Open(root);
    const std::string target = store.Target(TestSignature("some content"));
    store.CreateFolders(target);
    EXPECT_EQ(store.Copy(env.Path("source"), target),
              (SignedContent{TestSignature("some content"), 12}));
    store.Close();
    EXPECT_EQ(ReadFile(target), "some content");
    EXPECT_EQ(Mode(target), 0600u);
    EXPECT_EQ(Mode(target.substr(0, target.rfind('/'))), 0700u);
    EXPECT_EQ(ListTree(root).size(), 3u); // two folders and the file, no mark, no temporary
}

TEST_F(StoreTest, ContentThatChangedSinceItWasSignedGoesToThePlaceOfWhatWasCopied) {
    WriteFile(env.Path("source"), "changed");
    store.Open(root);
    const std::string expected = store.Target(TestSignature("original"));
    store.CreateFolders(expected);
    EXPECT_EQ(store.Copy(env.Path("source"), expected),
              (SignedContent{TestSignature("changed"), 7}));
    store.Close();
    EXPECT_EQ(ReadFile(StoreFile(env.Root(), "changed")), "changed");
    // The folders made for the expected place went again, empty.
    EXPECT_EQ(ListTree(root).size(), 3u);
    EXPECT_FALSE(Exists(expected));
}

TEST_F(StoreTest, StagedContentOfAStoredSignatureLeavesTheStoredFileAsItIs) {
    store.Open(root);
    if (!store.StagesAnywhere()) GTEST_SKIP() << "no anonymous files on this file system";
    const std::string target = store.Target(TestSignature("same"));
    store.CreateFolders(target);
    WriteFile(target, "same");
    ASSERT_EQ(::chmod(target.c_str(), 0600), 0);
    const int fd = store.OpenAnonymous();
    ASSERT_GE(fd, 0);
    ASSERT_EQ(::write(fd, "same", 4), 4);
    CStagedContent staged(fd, {TestSignature("same"), 4});
    EXPECT_TRUE(store.Place(staged, target));
    EXPECT_EQ(ReadFile(target), "same");
}

TEST_F(StoreTest, AnonymousFilesArePrivateAndVanishUnlessPlaced) {
    store.Open(root);
    if (!store.StagesAnywhere()) GTEST_SKIP() << "no anonymous files on this file system";
    const mode_t oldMask = ::umask(0);
    const int kept = store.OpenAnonymous();
    const int dropped = store.OpenAnonymous();
    ::umask(oldMask);
    ASSERT_GE(kept, 0);
    ASSERT_GE(dropped, 0);
    ASSERT_EQ(::write(kept, "kept", 4), 4);
    ASSERT_EQ(::write(dropped, "dropped", 7), 7);
    const std::string target = store.Target(TestSignature("kept"));
    {
        CStagedContent placed(kept, {TestSignature("kept"), 4});
        CStagedContent left(dropped, {TestSignature("dropped"), 7});
        EXPECT_TRUE(store.Place(placed, target));
    }
    store.Close();
    EXPECT_EQ(ReadFile(target), "kept");
    EXPECT_EQ(Mode(target), 0600u);
    EXPECT_EQ(ListTree(root).size(), 3u);
}

TEST_F(StoreTest, FoldersAreMadeOnlyBelowTheStoreFolder) {
    store.Open(root);
    const std::string target = store.Target("abcd" + std::string(28, '0'));
    store.CreateFolders(target);
    EXPECT_EQ(ListTree(root),
              (Lines{".unfinished", "ab/", "ab/cd/"})); // the mark of a run that writes
    EXPECT_EQ(Mode(root + "/ab"), 0700u);
    EXPECT_EQ(Mode(root + "/ab/cd"), 0700u);
}

TEST_F(StoreTest, StoreFolderRenamedOrRemovedStopsEveryWriteAndNothingIsMadeAgain) {
    WriteFile(env.Path("source"), "content");
    store.Open(root);
    const std::string target = store.Target(TestSignature("content"));
    ASSERT_EQ(::rename(root.c_str(), env.Path("moved").c_str()), 0);
    EXPECT_EQ(RaisedError([&] { store.CheckIdentity(); }), 68);
    EXPECT_EQ(RaisedError([&] { store.CreateFolders(target); }), 68);
    EXPECT_EQ(RaisedError([&] { store.Copy(env.Path("source"), target); }), 68);
    // A folder of the same name made anew is not the store that was opened.
    CreateTree(root, Dir());
    EXPECT_EQ(RaisedError([&] { store.CheckIdentity(); }), 68);
    store.Close();
    EXPECT_EQ(ListTree(root), Lines{});
    EXPECT_EQ(ListTree(env.Path("moved")), Lines{".unfinished"});
}

TEST_F(StoreTest, MarkOfAnInterruptedRunMakesTheNextOpeningClearItsTemporaryFiles) {
    CreateTree(root, Dir({{".unfinished", File("")},
                          {"ab", Dir({{"cd", Dir({{".x.QRV.0A1B2C3D.tmp", File("part")},
                                                  {"x.QRV", File("kept")}})}})},
                          {".y.QRV.00000000.tmp", File("part")}}));
    const std::string log = StartTestLog(env, 1);
    store.Open(root);
    EXPECT_EQ(ListTree(root), (Lines{".unfinished", "ab/", "ab/cd/", "ab/cd/x.QRV"}));
    store.Close();
    EXPECT_EQ(ListTree(root), (Lines{"ab/", "ab/cd/", "ab/cd/x.QRV"}));
    EXPECT_EQ(LogMessages(ReadFile(log)).back(),
              "Removed 2 unfinished backup files of an interrupted run\r\n");
}

} // namespace
