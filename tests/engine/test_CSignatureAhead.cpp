// Signatures computed ahead on a second thread give exactly what SignFile gives, in any order
// the run asks for them, and an error is still reported on the run's thread.

#include "BackupFixture.h"
#include "engine/CSignatureAhead.h"
#include "engine/kvCryptDriver.h"
#include "support/modServices.h"

#include <gtest/gtest.h>

namespace {

// The signature and length of the content of file i.
SignedContent Signed(size_t i) {
    const std::string content = PatternContent(i * 3001);
    return {TestSignature(content), content.size()};
}

struct SignatureAhead : ::testing::Test {
    ScopedTestEnv env;
    std::vector<std::string> files;

    void Make(int count) {
        for (int i = 0; i < count; ++i) {
            files.push_back(env.Path("f" + std::to_string(i)));
            WriteFile(files.back(), PatternContent(static_cast<size_t>(i) * 3001));
        }
    }
};

TEST_F(SignatureAhead, EveryFileInOrderGetsItsOwnSignature) {
    Make(40);
    CSignatureAhead ahead(files, 4);
    for (size_t i = 0; i < files.size(); ++i)
        EXPECT_EQ(ahead.Signature(i), Signed(i)) << i;
}

TEST_F(SignatureAhead, SkippedFilesAndJumpsAheadGiveTheRightSignatures) {
    Make(30);
    CSignatureAhead ahead(files, 3);
    for (size_t i : {0, 2, 3, 17, 18, 29})
        EXPECT_EQ(ahead.Signature(i), Signed(i)) << i;
}

TEST_F(SignatureAhead, FileThatCannotBeHashedIsReportedOnTheRunsThread) {
    Make(3);
    files[1] = env.Path("missing");
    ErrHandler().DisplayMsgOnError(false);
    CSignatureAhead ahead(files, 8);
    EXPECT_EQ(ahead.Signature(0), Signed(0));
    EXPECT_EQ(ahead.Signature(1), SignedContent{});
    EXPECT_EQ(ErrHandler().ErrNumber(), 53);
    EXPECT_EQ(ErrHandler().ErrProcedure(), "HashFile");
    EXPECT_EQ(ahead.Signature(2), Signed(2));
}

TEST_F(SignatureAhead, StoppingEarlyEndsTheWorker) {
    Make(50);
    {
        CSignatureAhead ahead(files, 8);
        EXPECT_EQ(ahead.Signature(0), Signed(0));
    } // destruction joins the worker while it still has files ahead
    // A second read-ahead over the same files starts from scratch and agrees.
    CSignatureAhead again(files, 8);
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
