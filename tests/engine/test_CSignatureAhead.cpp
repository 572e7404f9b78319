// Signatures computed ahead on a second thread give exactly what SignFile gives, in any order
// the run asks for them, and an error is still reported on the run's thread.

#include "BackupFixture.h"
#include "StagingWays.h"
#include "engine/CSignatureAhead.h"
#include "engine/kvCryptDriver.h"
#include "support/modFileCopy.h"
#include "support/modServices.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <mutex>
#include <thread>
#include <unordered_set>

namespace {

// The signature and length of the content of file i.
SignedContent Signed(size_t i) {
    const std::string content = PatternContent(i * 3001);
    return {TestSignature(content), content.size()};
}

// Files made for a read-ahead.
struct AheadFiles {
    ScopedTestEnv env;
    std::vector<std::string> files;

    void Make(int count) {
        for (int i = 0; i < count; ++i) {
            files.push_back(env.Path("f" + std::to_string(i)));
            WriteFile(files.back(), PatternContent(static_cast<size_t>(i) * 3001));
        }
    }
};

struct SignatureAhead : ::testing::Test, AheadFiles {};

TEST_F(SignatureAhead, EveryFileInOrderGetsItsOwnSignature) {
    Make(40);
    const CFileList aheadFiles(files);
    CSignatureAhead ahead(aheadFiles, 4);
    for (size_t i = 0; i < files.size(); ++i)
        EXPECT_EQ(ahead.Signature(i), Signed(i)) << i;
}

TEST_F(SignatureAhead, SkippedFilesAndJumpsAheadGiveTheRightSignatures) {
    Make(30);
    const CFileList aheadFiles(files);
    CSignatureAhead ahead(aheadFiles, 3);
    for (size_t i : {0, 2, 3, 17, 18, 29})
        EXPECT_EQ(ahead.Signature(i), Signed(i)) << i;
}

TEST_F(SignatureAhead, FileThatCannotBeHashedIsReportedOnTheRunsThread) {
    Make(3);
    files[1] = env.Path("missing");
    ErrHandler().DisplayMsgOnError(false);
    const CFileList aheadFiles(files);
    CSignatureAhead ahead(aheadFiles, 8);
    EXPECT_EQ(ahead.Signature(0), Signed(0));
    EXPECT_EQ(ahead.Signature(1), SignedContent{});
    EXPECT_EQ(ErrHandler().ErrNumber(), 53);
    EXPECT_EQ(ErrHandler().ErrProcedure(), "HashFile");
    EXPECT_EQ(ahead.Signature(2), Signed(2));
}

TEST_F(SignatureAhead, StoppingEarlyEndsTheWorker) {
    Make(50);
    {
        const CFileList aheadFiles(files);
        CSignatureAhead ahead(aheadFiles, 8);
        EXPECT_EQ(ahead.Signature(0), Signed(0));
    } // destruction joins the worker while it still has files ahead
    // A second read-ahead over the same files starts from scratch and agrees.
    const CFileList againFiles(files);
    CSignatureAhead again(againFiles, 8);
    EXPECT_EQ(again.Signature(49), Signed(49));
}

} // namespace

namespace {

TEST_F(SignatureAhead, RaisedStopEndsAHashAtItsNextRead) {
    // The worker's hash of a large file ends as soon as the read-ahead is stopped.
    Make(1);
    files[0] = env.Path("large");
    WriteFile(files[0], PatternContent(3 << 20));
    std::atomic<bool> stop = true;
    EXPECT_EQ(ComputeSignature(files[0], &stop), std::nullopt);
    stop = false;
    EXPECT_EQ(ComputeSignature(files[0], &stop),
              (SignedContent{TestSignature(PatternContent(3 << 20)), 3 << 20}));
}

} // namespace

namespace {

// A read-ahead whose staging goes into a store opened on the test's own folder, in both
// staging ways.
struct Staging : ::testing::TestWithParam<StagingWay>, AheadFiles {
    ScopedStagingWay way{GetParam()};
    CStore store;
    std::string root = env.Path("Files");
    StoreFailure problem;

    CSignatureAhead::StagingPlan Plan(std::unordered_set<uint64_t> storedSizes = {}) {
        CreateTree(root, Dir());
        store.Open(root);
        CSignatureAhead::StagingPlan plan;
        plan.storedSizes = std::move(storedSizes);
        plan.stage = [this](const std::string& source, const std::atomic<bool>* stop,
                            std::atomic<uint64_t>* read) {
            return store.StageAhead(source, stop, read);
        };
        return plan;
    }
    // What staged content holds, once placed in the store.
    std::string Placed(CStagedContent& staged) {
        const std::string target = store.Target(staged.Content().signature);
        EXPECT_TRUE(store.Place(staged, target, problem));
        return ReadFile(target);
    }
};

TEST_P(Staging, FilesOfNewSizesAreStagedWithExactlyTheBytesTheirSignatureSigns) {
    files = {env.Path("small"), env.Path("large"), env.Path("empty")};
    WriteFile(files[0], PatternContent(5000));
    WriteFile(files[1], PatternContent(3 << 20));
    WriteFile(files[2], "");
    const CFileList aheadFiles(files);
    CSignatureAhead ahead(aheadFiles, 8, Plan());
    for (size_t i = 0; i < 2; ++i) {
        CSignatureAhead::Prepared prepared = ahead.Prepare(i);
        const std::string content = ReadFile(files[i]);
        EXPECT_EQ(prepared.content, (SignedContent{TestSignature(content), content.size()}));
        ASSERT_NE(prepared.staged, nullptr) << i;
        EXPECT_EQ(prepared.staged->Content(), prepared.content);
        // The copy is the run's own, and its lines are kept for the run to log.
        EXPECT_EQ(prepared.copyLines,
                  (CopyLines{{3, "CopyMode = 3. Returned: True"}, {3, "OK on 1 tries"}}));
        EXPECT_FALSE(prepared.failedCopy);
        EXPECT_TRUE(Placed(*prepared.staged) == content) << i;
    }
    CSignatureAhead::Prepared empty = ahead.Prepare(2);
    EXPECT_EQ(empty.content, (SignedContent{TestSignature(""), 0}));
    EXPECT_EQ(empty.staged, nullptr);
}

// The workers look in the store for the content of each file they only sign: a file whose
// content is stored comes with the store file's size, one whose content is not comes without,
// and a staged file is never looked for (its content is new).
TEST_P(Staging, ContentFoundStoredComesWithItsStoreFilesSize) {
    Make(3);
    files.push_back(env.Path("new"));
    WriteFile(files.back(), PatternContent(7777));
    CSignatureAhead::StagingPlan plan = Plan({0, 3001, 6002});
    std::mutex asked;
    std::vector<std::string> signatures;
    plan.storedSize = [&](const std::string& signature) {
        std::lock_guard lock(asked);
        signatures.push_back(signature);
        return signature == Signed(1).signature ? 3001.0 : -1.0;
    };
    const CFileList aheadFiles(files);
    CSignatureAhead ahead(aheadFiles, 8, plan);
    EXPECT_EQ(ahead.Prepare(0).storedSize, std::nullopt);
    EXPECT_EQ(ahead.Prepare(1).storedSize, std::optional<double>(3001.0));
    EXPECT_EQ(ahead.Prepare(2).storedSize, std::nullopt);
    const CSignatureAhead::Prepared staged = ahead.Prepare(3);
    ASSERT_NE(staged.staged, nullptr);
    EXPECT_EQ(staged.storedSize, std::nullopt);
    std::lock_guard lock(asked);
    std::sort(signatures.begin(), signatures.end());
    std::vector<std::string> expected{Signed(0).signature, Signed(1).signature,
                                      Signed(2).signature};
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(signatures, expected);
}

TEST_P(Staging, FilesOfAStoredSizeAreOnlySigned) {
    Make(3);
    const CFileList aheadFiles(files);
    CSignatureAhead ahead(aheadFiles, 8, Plan({0, 3001, 6002}));
    for (size_t i = 0; i < 3; ++i) {
        CSignatureAhead::Prepared prepared = ahead.Prepare(i);
        EXPECT_EQ(prepared.content, Signed(i));
        EXPECT_EQ(prepared.staged, nullptr) << i;
        EXPECT_TRUE(prepared.copyLines.empty());
    }
}

TEST_P(Staging, AFileTheDriveHasNoRoomForIsOnlySigned) {
    // Its copy would fill the drive under the copies of the files beside it.
    Make(4); // the first is empty: nothing to stage, nothing to ask
    CSignatureAhead::StagingPlan plan = Plan();
    std::vector<uint64_t> asked;
    std::mutex askedLock;
    plan.hasRoomFor = [&](uint64_t size) {
        std::lock_guard lock(askedLock);
        asked.push_back(size);
        return size != 6002;
    };
    {
        const CFileList aheadFiles(files);
        CSignatureAhead ahead(aheadFiles, 8, plan);
        for (size_t i = 0; i < 4; ++i) {
            CSignatureAhead::Prepared prepared = ahead.Prepare(i);
            EXPECT_EQ(prepared.content, Signed(i));
            EXPECT_EQ(prepared.staged != nullptr, i == 1 || i == 3) << i;
            EXPECT_FALSE(prepared.failedCopy) << i;
            if (prepared.staged) {
                EXPECT_EQ(Placed(*prepared.staged), ReadFile(files[i]));
            }
        }
    }
    std::sort(asked.begin(), asked.end());
    EXPECT_EQ(asked, (std::vector<uint64_t>{3001, 6002, 9003}));
}

TEST_P(Staging, AStagingCopyThatFailsReachesTheRunWithItsLinesAndTheFileSigned) {
    ActiveCopyMethods().mode3 = ActiveCopyMethods().mode2 =
        [](const std::string&, const std::string&, ICopyObserver*) { return false; };
    Make(2);
    {
        const CFileList aheadFiles(files);
        CSignatureAhead ahead(aheadFiles, 8, Plan());
        CSignatureAhead::Prepared prepared = ahead.Prepare(1);
        EXPECT_EQ(prepared.content, Signed(1));
        EXPECT_EQ(prepared.staged, nullptr);
        ASSERT_TRUE(prepared.failedCopy);
        EXPECT_FALSE(prepared.failedCopy->outcome.copied);
        EXPECT_EQ(prepared.failedCopy->lines.size(), 7u);
        EXPECT_EQ(prepared.failedCopy->lines.back(),
                  (std::pair<int32_t, std::string>{3, "CopyMode = 1. Returned: True"}));
    } // the workers are done before the store closes
    store.Close();
    EXPECT_EQ(ListTree(root), std::vector<std::string>{}); // no staged file left
}

TEST_P(Staging, WithoutAPlanNothingIsStaged) {
    Make(4);
    const CFileList aheadFiles(files);
    CSignatureAhead ahead(aheadFiles, 8);
    for (size_t i = 0; i < 4; ++i)
        EXPECT_EQ(ahead.Prepare(i).staged, nullptr);
}

TEST_P(Staging, StagedFilesOfSkippedAndUnaskedFilesVanish) {
    Make(6);
    {
        const CFileList aheadFiles(files);
        CSignatureAhead ahead(aheadFiles, 8, Plan());
        EXPECT_EQ(ahead.Prepare(4).content, Signed(4)); // the run skipped files 0 to 3
    }                                                   // and stopped before files 5
    store.Close();
    EXPECT_EQ(ListTree(root), std::vector<std::string>{});
}

// However many files the workers may be ahead, no more than 32 of them wait staged for the run
// (each holds a file open, and its bytes in the store): the workers stop there, and go on as the
// run takes them.
TEST_P(Staging, AtMostThirtyTwoStagedCopiesWaitForTheRunWhateverTheWindow) {
    Make(61); // file 0 is empty, the others all of new sizes
    CSignatureAhead::StagingPlan plan = Plan();
    std::atomic<int> staged = 0;
    plan.stage = [this, &staged](const std::string& source, const std::atomic<bool>* stop,
                                 std::atomic<uint64_t>* read) {
        ++staged;
        return store.StageAhead(source, stop, read);
    };
    const auto settled = [&staged](int atLeast) {
        for (int tries = 0; tries < 1000 && staged < atLeast; ++tries)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        std::this_thread::sleep_for(std::chrono::milliseconds(200)); // time to go too far
        return staged.load();
    };
    const CFileList aheadFiles(files);
    CSignatureAhead ahead(aheadFiles, 512, plan, 2);
    EXPECT_EQ(ahead.Prepare(0).content, Signed(0));
    // 32 waiting, and one more in the hands of each of the two workers at most.
    const int first = settled(32);
    EXPECT_GE(first, 32);
    EXPECT_LE(first, 34);
    for (size_t i = 1; i <= 15; ++i)
        EXPECT_EQ(ahead.Prepare(i).content, Signed(i)) << i;
    const int second = settled(15 + 32);
    EXPECT_GE(second, 15 + 32);
    EXPECT_LE(second, 15 + 34);
    for (size_t i = 16; i < files.size(); ++i) {
        CSignatureAhead::Prepared prepared = ahead.Prepare(i);
        EXPECT_EQ(prepared.content, Signed(i)) << i;
        EXPECT_NE(prepared.staged, nullptr) << i;
    }
    EXPECT_EQ(staged.load(), 60);
}

STAGING_WAYS_INSTANTIATE(Staging);

} // namespace
