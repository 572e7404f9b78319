// Signatures computed ahead on a second thread give exactly what MD5File gives, in any order
// the run asks for them, and an error is still reported on the run's thread.

#include "BackupFixture.h"
#include "engine/CSignatureAhead.h"
#include "engine/kvCryptDriver.h"
#include "support/modServices.h"

#include <gtest/gtest.h>

namespace {

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
        EXPECT_EQ(ahead.Signature(i), TestSignature(PatternContent(i * 3001))) << i;
}

TEST_F(SignatureAhead, SkippedFilesAndJumpsAheadGiveTheRightSignatures) {
    Make(30);
    CSignatureAhead ahead(files, 3);
    for (size_t i : {0, 2, 3, 17, 18, 29})
        EXPECT_EQ(ahead.Signature(i), TestSignature(PatternContent(i * 3001))) << i;
}

TEST_F(SignatureAhead, FileThatCannotBeHashedIsReportedOnTheRunsThread) {
    Make(3);
    files[1] = env.Path("missing");
    ErrHandler().DisplayMsgOnError(false);
    CSignatureAhead ahead(files, 8);
    EXPECT_EQ(ahead.Signature(0), TestSignature(PatternContent(0)));
    EXPECT_EQ(ahead.Signature(1), "");
    EXPECT_EQ(ErrHandler().ErrNumber(), 53);
    EXPECT_EQ(ErrHandler().ErrProcedure(), "HashFile");
    EXPECT_EQ(ahead.Signature(2), TestSignature(PatternContent(2 * 3001)));
}

TEST_F(SignatureAhead, StoppingEarlyEndsTheWorker) {
    Make(50);
    {
        CSignatureAhead ahead(files, 8);
        EXPECT_EQ(ahead.Signature(0), TestSignature(PatternContent(0)));
    } // destruction joins the worker while it still has files ahead
    // A second read-ahead over the same files starts from scratch and agrees.
    CSignatureAhead again(files, 8);
    EXPECT_EQ(again.Signature(49), TestSignature(PatternContent(49 * 3001)));
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
    EXPECT_EQ(ComputeSignature(files[0], &stop), TestSignature(PatternContent(3 << 20)));
}

} // namespace
