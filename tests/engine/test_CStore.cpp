// The store a run writes into: where content goes, that staged content takes the name of what
// it holds and is private, that nothing is made above the store folder or after it went away,
// and that the temporary files of an interrupted run are cleared by the next one; each in both
// staging ways, anonymous files and named temporary files.

#include "BackupFixture.h"
#include "StagingWays.h"
#include "engine/CStore.h"
#include "support/CRuntimeError.h"
#include "support/modFSCommon.h"
#include "support/modFileCopy.h"
#include "support/modServices.h"

#include <filesystem>
#include <gtest/gtest.h>
#ifndef _WIN32
#include <sys/mount.h>
#include <sys/stat.h>
#endif

namespace {

using Lines = std::vector<std::string>;

// The number of a run-time error that `work` raises, 0 for none.
template <class Work> int RaisedError(Work work) {
    try {
        work();
    } catch (const CRuntimeError& error) {
        return error.Number();
    }
    return 0;
}

struct StoreTest : ::testing::TestWithParam<StagingWay> {
    ScopedTestEnv env;
    ScopedStagingWay way{GetParam()};
    std::string root = env.Path("Files");
    CStore store;
    StoreFailure problem;

    StoreTest() {
        CreateTree(root, Dir());
        ErrHandler().DisplayMsgOnError(false);
    }

    // Content staged by a worker's copy of a file holding `content`.
    CStore::AheadCopy StagedCopyOf(const std::string& content) {
        WriteFile(env.Path("ahead"), content);
        return store.StageAhead(env.Path("ahead"), nullptr);
    }
};

TEST_P(StoreTest, ContentGoesTwoFolderLevelsDownByTheFirstFourCharactersOfItsName) {
    EXPECT_EQ(CStore::StorePath(Native("/b/Files"), "0123abcd.QRV"),
              Native("/b/Files/01/23/0123abcd.QRV"));
    store.Open(root);
    EXPECT_EQ(store.Target("89ab" + std::string(28, '0')),
              root + Native("/89/ab/89ab" + std::string(28, '0') + ".QRV"));
}

// The store path is made in one string; it joins its parts as FSJoinPath joins them, one
// separator between each, whatever separators the root ends with or the name begins with.
TEST(StorePath, JoinsAsFolderJoinsDo) {
    const auto joined = [](const std::string& root, const std::string& name) {
        const std::string first = name.substr(0, 2);
        const std::string second = name.size() > 2 ? name.substr(2, 2) : std::string();
        return FSJoinPath(FSJoinPath(FSJoinPath(root, first), second), name);
    };
    const std::string sep(1, kPathSeparator);
    for (const std::string& root : {Native("/b/Files"), Native("/b/Files/"), Native("/b/Files//"),
                                    sep, sep + sep, std::string(), std::string("Files")})
        for (const std::string& name :
             {std::string("0123abcd.QRV"), std::string("ab"), std::string("a"), std::string(),
              std::string("abc"), sep + "12345.QRV", "1" + sep + "2345.QRV"})
            EXPECT_EQ(CStore::StorePath(root, name), joined(root, name))
                << "'" << root << "' '" << name << "'";
    EXPECT_EQ(CStore::StorePath(Native("/b/Files/"), "0123abcd.QRV"),
              Native("/b/Files/01/23/0123abcd.QRV"));
}

TEST_P(StoreTest, StoreFolderOfAMissingBackupFolderCannotBeOpenedAndNothingIsMade) {
    EXPECT_EQ(RaisedError([&] { store.Open(env.Path("unplugged/Files")); }), 68);
    EXPECT_FALSE(Exists(env.Path("unplugged")));
}

TEST_P(StoreTest, StoreFolderOfAnEmptyFolderWithoutACatalogueIsNotMade) {
    // The mount point of a drive that is not plugged in: an empty folder on the system disk.
    CreateTree(env.Path("media/usb"), Dir());
    EXPECT_EQ(RaisedError([&] { store.Open(env.Path("media/usb/Files")); }), 68);
    EXPECT_EQ(ListTree(env.Path("media/usb")), Lines{});
}

TEST_P(StoreTest, MissingStoreFolderOfABackupFolderThatIsThereIsMadeAnew) {
    const std::string log = StartTestLog(env, 1);
    CreateTree(env.Path("bk"), Dir({{"db", Dir({{"Backup.db", File("the catalogue")}})}}));
    store.Open(env.Path("bk/Files"));
    EXPECT_TRUE(IsPrivate(env.Path("bk/Files")));
    store.Close();
    EXPECT_EQ(LogMessages(ReadFile(log)).back(),
              "The store folder " + env.Path("bk/Files") + " was missing and was made anew\r\n");
}

TEST_P(StoreTest, CopiedContentIsNamedAfterWhatItHoldsAndIsPrivate) {
    WriteFile(env.Path("source"), "some content");
#ifndef _WIN32
    ASSERT_EQ(::chmod(env.Path("source").c_str(), 0755), 0);
#endif
    store.Open(root);
    const std::string target = store.Target(TestSignature("some content"));
    store.CreateFolders(target);
    EXPECT_EQ(store.Copy(env.Path("source"), target, problem),
              (SignedContent{TestSignature("some content"), 12}));
    store.Close();
    EXPECT_EQ(ReadFile(target), "some content");
    EXPECT_TRUE(IsPrivate(target));
    EXPECT_TRUE(IsPrivate(target.substr(0, target.rfind(kPathSeparator))));
    EXPECT_EQ(ListTree(root).size(), 3u); // two folders and the file, no mark, no temporary
}

TEST_P(StoreTest, ContentThatChangedSinceItWasSignedGoesToThePlaceOfWhatWasCopied) {
    WriteFile(env.Path("source"), "changed");
    store.Open(root);
    const std::string expected = store.Target(TestSignature("original"));
    store.CreateFolders(expected);
    EXPECT_EQ(store.Copy(env.Path("source"), expected, problem),
              (SignedContent{TestSignature("changed"), 7}));
    store.Close();
    EXPECT_EQ(ReadFile(StoreFile(env.Root(), "changed")), "changed");
    // The folders made for the expected place went again, empty.
    EXPECT_EQ(ListTree(root).size(), 3u);
    EXPECT_FALSE(Exists(expected));
}

TEST_P(StoreTest, StagedContentOfAStoredSignatureLeavesTheStoredFileAsItIs) {
    store.Open(root);
    const std::string target = store.Target(TestSignature("same"));
    store.CreateFolders(target);
    WriteFile(target, "stored");
    CStore::AheadCopy ahead = StagedCopyOf("same");
    ASSERT_NE(ahead.staged, nullptr);
    EXPECT_TRUE(store.Place(*ahead.staged, target, problem));
    ahead.staged.reset();
    EXPECT_EQ(ReadFile(target), "stored");
    store.Close();
    EXPECT_EQ(ListTree(root).size(), 3u); // no temporary left beside it
}

TEST_P(StoreTest, StagedFilesArePrivateAndVanishUnlessPlaced) {
    store.Open(root);
#ifndef _WIN32
    const mode_t oldMask = ::umask(0);
#endif
    CStore::AheadCopy kept = StagedCopyOf("kept");
    CStore::AheadCopy dropped = StagedCopyOf("dropped");
#ifndef _WIN32
    ::umask(oldMask);
#endif
    ASSERT_NE(kept.staged, nullptr);
    ASSERT_NE(dropped.staged, nullptr);
    EXPECT_EQ(kept.staged->Content(), (SignedContent{TestSignature("kept"), 4}));
    const std::string target = store.Target(TestSignature("kept"));
    EXPECT_TRUE(store.Place(*kept.staged, target, problem));
    kept.staged.reset();
    dropped.staged.reset();
    store.Close();
    EXPECT_EQ(ReadFile(target), "kept");
    EXPECT_TRUE(IsPrivate(target));
    EXPECT_EQ(ListTree(root).size(), 3u);
}

TEST_P(StoreTest, EachWayIsTakenWhereItIsChosenAndTheFileSystemAllowsIt) {
    store.Open(root);
    if (GetParam() == StagingWay::kNamed) {
        EXPECT_EQ(store.Staging(), StagingWay::kNamed);
        return;
    }
    if (!HasAnonymousFiles(root)) GTEST_SKIP() << "no anonymous files on the test's file system";
    EXPECT_EQ(store.Staging(), StagingWay::kAnonymous);
}

TEST_P(StoreTest, AWorkersCopyEndsAtItsNextPieceOnceStopped) {
    // A copy of 64 MiB whose stop is raised as its first piece is written.
    WriteFile(env.Path("ahead"), PatternContent(64 << 20));
    std::atomic<bool> stop = false;
    size_t written = 0;
    struct Raising : ICopyObserver {
        ICopyObserver* inner;
        std::atomic<bool>* stop;
        size_t* written;
        void Restart() override { inner->Restart(); }
        void Written(const char* data, size_t size) override {
            *written += size;
            *stop = true;
            inner->Written(data, size);
        }
        bool Stopped() const override { return inner->Stopped(); }
    };
    ActiveCopyMethods().mode3 = [&](const std::string& from, const std::string& to,
                                    ICopyObserver* observer) {
        Raising raising;
        raising.inner = observer;
        raising.stop = &stop;
        raising.written = &written;
        return DefaultCopyMethods().mode3(from, to, &raising);
    };
    store.Open(root);
    const CStore::AheadCopy ahead = store.StageAhead(env.Path("ahead"), &stop);
    EXPECT_FALSE(ahead.outcome.copied);
    EXPECT_EQ(ahead.staged, nullptr);
    EXPECT_EQ(written, size_t{1} << 20); // one piece, not the whole file
    EXPECT_EQ(ahead.lines, (CopyLines{{3, "CopyMode = 3. Returned: False"}}));
    store.Close();
    EXPECT_EQ(ListTree(root), Lines{});
}

TEST_P(StoreTest, StagedContentThatOutlivesTheStoresCloseStillVanishes) {
    store.Open(root);
    CStore::AheadCopy ahead = StagedCopyOf("outliving");
    ASSERT_NE(ahead.staged, nullptr);
    store.Close();
    ahead.staged.reset();
    EXPECT_EQ(ListTree(root), Lines{});
}

#ifndef _WIN32
// A read-only file system mounted in place of the store (Linux mounts one for root).
TEST_P(StoreTest, AReadOnlyStoreNamesItsReasonAndKeepsNothing) {
    CreateTree(root, Dir({{TestSignature("content").substr(0, 2),
                           Dir({{TestSignature("content").substr(2, 2), Dir()}})}}));
    if (::mount("tmpfs", root.c_str(), "tmpfs", 0, "size=1m,mode=0700") != 0)
        GTEST_SKIP() << "cannot mount a file system here";
    struct Unmount {
        std::string at;
        ~Unmount() { ::umount(at.c_str()); }
    } unmount{root};
    const std::string folder = root + "/" + TestSignature("content").substr(0, 2) + "/" +
                               TestSignature("content").substr(2, 2);
    CreateTree(folder, Dir());
    ASSERT_EQ(::mount(nullptr, root.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
    WriteFile(env.Path("source"), "content");
    store.Open(root);
    EXPECT_EQ(store.Copy(env.Path("source"), store.Target(TestSignature("content")), problem),
              SignedContent{});
    EXPECT_EQ(problem.cause,
              "the backup drive refused a new file in " + folder + "/: read-only file system");
    EXPECT_EQ(problem.systemError, EROFS);
    store.Close();
    EXPECT_EQ(ListTree(root), (Lines{folder.substr(root.size() + 1, 2) + "/",
                                     folder.substr(root.size() + 1) + "/"}));
}
#endif

TEST_P(StoreTest, StagedContentWaitsInTheStoreFolderUnderATemporaryNameOnlyInTheNamedWay) {
    store.Open(root);
    CStore::AheadCopy ahead = StagedCopyOf("waiting");
    ASSERT_NE(ahead.staged, nullptr);
    const Lines listing = ListTree(root);
    ASSERT_EQ(listing.size(), store.Staging() == StagingWay::kNamed ? 2u : 1u);
    EXPECT_EQ(listing.back(), ".unfinished");
    if (store.Staging() == StagingWay::kNamed) {
        // ".staged." and eight hex digits, then ".tmp".
        EXPECT_EQ(listing[0].size(), 20u) << listing[0];
        EXPECT_EQ(listing[0].compare(0, 8, ".staged."), 0) << listing[0];
        EXPECT_EQ(listing[0].substr(16), ".tmp");
        EXPECT_TRUE(IsPrivate(root + kPathSeparator + listing[0]));
    }
    ahead.staged.reset();
    EXPECT_EQ(ListTree(root), Lines{".unfinished"});
}

TEST_P(StoreTest, AWorkersCopyHasTheRunsTriesAndKeepsItsLinesForTheRun) {
    store.Open(root);
    const CStore::AheadCopy ahead = StagedCopyOf(PatternContent(100000));
    EXPECT_TRUE(ahead.tried);
    EXPECT_TRUE(ahead.outcome.copied);
    EXPECT_EQ(ahead.lines, (CopyLines{{3, "CopyMode = 3. Returned: True"}, {3, "OK on 1 tries"}}));
    EXPECT_EQ(ahead.staged->Content(),
              (SignedContent{TestSignature(PatternContent(100000)), 100000}));
}

TEST_P(StoreTest, AWorkersCopyThatFailsEveryTryKeepsItsRetryLinesAndLeavesNoFile) {
    // The first two ways write half the file; the last answers true whatever it did.
    const CopyMethod half = [](const std::string& from, const std::string& to, ICopyObserver*) {
        WriteFile(to, ReadFile(from).substr(0, 3));
        return false;
    };
    ActiveCopyMethods().mode3 = half;
    ActiveCopyMethods().mode2 = half;
    store.Open(root);
    const CStore::AheadCopy ahead = StagedCopyOf("content");
    EXPECT_TRUE(ahead.tried);
    EXPECT_FALSE(ahead.outcome.copied);
    EXPECT_EQ(ahead.staged, nullptr);
    const std::string source = env.Path("ahead");
    EXPECT_EQ(ahead.lines, (CopyLines{{3, "CopyMode = 3. Returned: False"},
                                      {1, "Retry copy of " + source + "..."},
                                      {1, "Using Copy mode=2"},
                                      {3, "CopyMode = 2. Returned: False"},
                                      {1, "Retry copy of " + source + "..."},
                                      {1, "Using Copy mode=1"},
                                      {3, "CopyMode = 1. Returned: True"}}));
    store.Close();
    EXPECT_EQ(ListTree(root), Lines{});
}

#ifndef _WIN32
// A file size limit of the process, as a FAT32 drive refuses a file of 4 GiB.
TEST_P(StoreTest, ContentTooLargeForTheFileSystemIsNotStoredAndTheCauseIsNamed) {
    WriteFile(env.Path("source"), PatternContent(20000));
    store.Open(root);
    const std::string target = store.Target(TestSignature(PatternContent(20000)));
    {
        ScopedFileSizeLimit limit(8192);
        EXPECT_EQ(store.Copy(env.Path("source"), target, problem), SignedContent{});
    }
    EXPECT_EQ(problem.cause, "the copy into the store failed: the file system cannot hold a file "
                             "this large (FAT32 takes files below 4 GiB)");
    EXPECT_EQ(problem.systemError, EFBIG);
    store.Close();
    EXPECT_EQ(ListTree(root), Lines{});
}
#endif

TEST_P(StoreTest, StoreFolderTheFileSystemRefusesIsNamedAndNothingIsWritten) {
    WriteFile(env.Path("source"), "content");
    store.Open(root);
    const std::string target = store.Target(TestSignature("content"));
    WriteFile(root + kPathSeparator + TestSignature("content").substr(0, 2),
              "a file in the folder's place");
    EXPECT_EQ(store.Copy(env.Path("source"), target, problem), SignedContent{});
    EXPECT_EQ(problem.cause, "the backup drive refused the store folder " + root + kPathSeparator +
                                 TestSignature("content").substr(0, 2) + ": not a directory");
    store.Close();
    EXPECT_EQ(ListTree(root), Lines{TestSignature("content").substr(0, 2)});
}

TEST_P(StoreTest, FoldersAreMadeOnlyBelowTheStoreFolder) {
    store.Open(root);
    const std::string target = store.Target("abcd" + std::string(28, '0'));
    store.CreateFolders(target);
    EXPECT_EQ(ListTree(root),
              (Lines{".unfinished", "ab/", "ab/cd/"})); // the mark of a run that writes
    EXPECT_TRUE(IsPrivate(root + Native("/ab")));
    EXPECT_TRUE(IsPrivate(root + Native("/ab/cd")));
}

#ifdef _WIN32
// Windows holds the open store folder so that it can be neither renamed nor removed.
TEST_P(StoreTest, StoreFolderCannotBeRenamedWhileItIsOpen) {
    WriteFile(env.Path("source"), "content");
    store.Open(root);
    std::error_code error;
    std::filesystem::rename(FsPath(root), FsPath(env.Path("moved")), error);
    EXPECT_TRUE(error);
    EXPECT_EQ(RaisedError([&] { store.CheckIdentity(); }), 0);
    const std::string target = store.Target(TestSignature("content"));
    store.CreateFolders(target);
    EXPECT_EQ(store.Copy(env.Path("source"), target, problem),
              (SignedContent{TestSignature("content"), 7}));
    store.Close();
    EXPECT_EQ(ReadFile(target), "content");
    EXPECT_FALSE(Exists(env.Path("moved")));
}
#else
TEST_P(StoreTest, StoreFolderRenamedOrRemovedStopsEveryWriteAndNothingIsMadeAgain) {
    WriteFile(env.Path("source"), "content");
    store.Open(root);
    const std::string target = store.Target(TestSignature("content"));
    ASSERT_EQ(::rename(root.c_str(), env.Path("moved").c_str()), 0);
    EXPECT_EQ(RaisedError([&] { store.CheckIdentity(); }), 68);
    EXPECT_EQ(RaisedError([&] { store.CreateFolders(target); }), 68);
    EXPECT_EQ(RaisedError([&] { store.Copy(env.Path("source"), target, problem); }), 68);
    // A folder of the same name made anew is not the store that was opened.
    CreateTree(root, Dir());
    EXPECT_EQ(RaisedError([&] { store.CheckIdentity(); }), 68);
    store.Close();
    EXPECT_EQ(ListTree(root), Lines{});
    EXPECT_EQ(ListTree(env.Path("moved")), Lines{".unfinished"});
}
#endif

TEST_P(StoreTest, MarkOfAnInterruptedRunMakesTheNextOpeningClearItsTemporaryFiles) {
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

namespace {
STAGING_WAYS_INSTANTIATE(StoreTest);
} // namespace
