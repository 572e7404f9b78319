// The error-trap scope object: push on entry, one pop on every way out, errors handed to the
// shared error handler under the innermost procedure's name.

#include "TestSupport.h"

#include "support/CProcTrap.h"
#include "support/modServices.h"

#include <gtest/gtest.h>
#include <new>
#include <stdexcept>
#include <vector>

namespace {

class ProcTrapTest : public ::testing::Test {
protected:
    ScopedTestEnv env;
    std::string report = env.Path("QRVERR.LOG");

    ProcTrapTest() {
        ErrHandler().AppTitle("Stashwell");
        ErrHandler().Destination(report);
        ErrHandler().MaxProcStackItems(100);
    }
};

TEST_F(ProcTrapTest, TrapPushesOnEntryAndPopsOnExit) {
    const int result = Trapped("FSGetFileSize", -1, [] {
        EXPECT_EQ(ErrHandler().StackPointer(), 1);
        EXPECT_EQ(ErrHandler().StackBlock(), "01  FSGetFileSize\r\n");
        return 42;
    });
    EXPECT_EQ(result, 42);
    EXPECT_EQ(ErrHandler().StackPointer(), 0);
    EXPECT_EQ(ErrHandler().StackBlock(), "");
    EXPECT_TRUE(env.box.calls.empty());
    EXPECT_FALSE(Exists(report));
}

TEST_F(ProcTrapTest, ErrorIsHandledUnderTheProcedureAndPoppedOnce) {
    const bool result = Trapped("FSCopyFile", false, []() -> bool {
        Operation("Make backup");
        Raise(err::kFileNotFound);
    });
    EXPECT_FALSE(result); // the fallback
    EXPECT_EQ(ErrHandler().StackPointer(), 0);
    EXPECT_EQ(ErrHandler().ErrNumber(), 53);
    EXPECT_EQ(ErrHandler().ErrDescription(), "File not found");
    EXPECT_EQ(ErrHandler().ErrProcedure(), "FSCopyFile");
    EXPECT_EQ(ErrHandler().ErrLine(), 0);
    ASSERT_EQ(env.box.calls.size(), 1u);
    EXPECT_EQ(env.box.calls[0],
              (CScriptedMessageBox::Call{"The following error has occurred in procedure: \r\n"
                                         "FSCopyFile on line 0\r\n"
                                         "Error (53) File not found\r\n"
                                         "Current Operation: Make backup",
                                         16, "Stashwell"}));
    EXPECT_NE(ReadFile(report).find("\r\nProcedure Stack\r\n---------------\r\n01  FSCopyFile\r\n"
                                    "\r\nCurrent Operation: Make backup\r\n"),
              std::string::npos);
}

TEST_F(ProcTrapTest, NestedTrapsReportTheInnermostProcedureWithTheWholeStack) {
    Trapped("cmdBackup_Click", 0, [] {
        return Trapped("CBackup_Exec", 0, [] {
            return Trapped("HashFile", 0, []() -> int { Raise(err::kDeviceIO); });
        });
    });
    EXPECT_EQ(ErrHandler().ErrProcedure(), "HashFile");
    EXPECT_EQ(ErrHandler().StackPointer(), 0);
    EXPECT_NE(ReadFile(report).find("01  cmdBackup_Click\r\n02    CBackup_Exec\r\n"
                                    "03      HashFile\r\n\r\n"),
              std::string::npos);
}

TEST_F(ProcTrapTest, PushBeyondTheDepthIsHandledByTheEnteringProcedureAndPoppedOnce) {
    ErrHandler().MaxProcStackItems(2);
    bool innerRan = false;
    int pointerAfterInner = -1;
    Trapped("Outer", 0, [&] {
        return Trapped("Middle", 0, [&] {
            const int inner = Trapped("Inner", 5, [&] {
                innerRan = true;
                return 1;
            });
            EXPECT_EQ(inner, 5);
            pointerAfterInner = ErrHandler().StackPointer();
            return 0;
        });
    });
    EXPECT_FALSE(innerRan);
    EXPECT_EQ(pointerAfterInner, 2);
    EXPECT_EQ(ErrHandler().StackPointer(), 0);
    EXPECT_EQ(ErrHandler().ErrNumber(), 9);
    EXPECT_EQ(ErrHandler().ErrDescription(), "Subscript out of range");
    // The pointer stood beyond the maximum, on an entry that holds no name.
    EXPECT_EQ(ErrHandler().ErrProcedure(), "");
    ASSERT_EQ(env.box.calls.size(), 1u);
    EXPECT_EQ(env.box.calls[0].text, "The following error has occurred in procedure: \r\n"
                                     " on line 0\r\n"
                                     "Error (9) Subscript out of range");
    EXPECT_NE(ReadFile(report).find("---------------\r\n01  Outer\r\n02    Middle\r\n\r\n"),
              std::string::npos);
}

TEST_F(ProcTrapTest, HundredAndFirstNestedTrapIsReportedAndTheStackUnwindsToZero) {
    int deepest = 0;
    std::function<int(int)> enter = [&](int depth) {
        return Trapped("P" + std::to_string(depth), -1, [&, depth] {
            deepest = depth;
            return depth < 101 ? enter(depth + 1) : 0;
        });
    };
    enter(1);
    EXPECT_EQ(deepest, 100);
    EXPECT_EQ(ErrHandler().ErrNumber(), 9);
    EXPECT_EQ(ErrHandler().StackPointer(), 0);
}

TEST_F(ProcTrapTest, KeepOnStackLeavesTheName) {
    {
        CProcTrap trap("frmMain Form_Load");
        trap.KeepOnStack();
    }
    EXPECT_EQ(ErrHandler().StackPointer(), 1);
    EXPECT_EQ(ErrHandler().StackBlock(), "01  frmMain Form_Load\r\n");
}

TEST_F(ProcTrapTest, ScopeObjectWithHandWrittenCatchReportsAndPops) {
    bool failurePath = false;
    {
        CProcTrap trap("RestoreFile");
        try {
            trap.Check();
            Operation("Restore file");
            Raise(err::kNoDestination, "Restore did not produce its destination");
        } catch (...) {
            trap.Handle();
            failurePath = true;
        }
        EXPECT_EQ(ErrHandler().StackPointer(), 1);
    }
    EXPECT_TRUE(failurePath);
    EXPECT_EQ(ErrHandler().StackPointer(), 0);
    EXPECT_EQ(ErrHandler().ErrNumber(), 10005);
    EXPECT_EQ(ErrHandler().ErrDescription(), "Restore did not produce its destination");
    EXPECT_EQ(ErrHandler().CurrentOperation(), "Restore file");
}

TEST_F(ProcTrapTest, CheckRaisesThePushErrorOnlyOnce) {
    ErrHandler().MaxProcStackItems(0);
    CProcTrap trap("TooDeep");
    EXPECT_THROW(trap.Check(), CRuntimeError);
    EXPECT_NO_THROW(trap.Check());
}

TEST_F(ProcTrapTest, StandardExceptionBecomesInternalErrorWithItsText) {
    Trapped("PopulateNode", 0, []() -> int { throw std::runtime_error("bad tree key"); });
    EXPECT_EQ(ErrHandler().ErrNumber(), 51);
    EXPECT_EQ(ErrHandler().ErrDescription(), "bad tree key");
    EXPECT_EQ(ErrHandler().ErrProcedure(), "PopulateNode");
}

TEST_F(ProcTrapTest, OutOfMemoryBecomesErrorSeven) {
    Trapped("KillOrphans", 0, []() -> int { throw std::bad_alloc(); });
    EXPECT_EQ(ErrHandler().ErrNumber(), 7);
    EXPECT_EQ(ErrHandler().ErrDescription(), "Out of memory");
}

TEST_F(ProcTrapTest, ForeignExceptionBecomesInternalError) {
    Trapped("cmbBackups_Click", 0, []() -> int { throw 42; });
    EXPECT_EQ(ErrHandler().ErrNumber(), 51);
    EXPECT_EQ(ErrHandler().ErrDescription(), "Internal error");
}

TEST_F(ProcTrapTest, UnattendedRunReportsWithoutABox) {
    ErrHandler().DisplayMsgOnError(false);
    Trapped("FSCreateFolder", 0, []() -> int { Raise(err::kPermissionDenied); });
    EXPECT_TRUE(env.box.calls.empty());
    EXPECT_TRUE(ReadFile(report).starts_with("Stashwell Application Error Information\r\n"));
    EXPECT_EQ(ErrHandler().StackPointer(), 0);
}

TEST_F(ProcTrapTest, OperationSetsTheCurrentOperationWhichStaysAfterTheTrap) {
    Trapped("FSGetFreeDiskSpace", 0, [] {
        Operation("Enough disk space?");
        return 0;
    });
    EXPECT_EQ(ErrHandler().CurrentOperation(), "Enough disk space?");
}

// A window's handler: the error that leaves it is reported under the handler's name, and the
// handler takes as many of the signal's arguments as it wants.
TEST_F(ProcTrapTest, TrappedHandlerReportsUnderItsNameAndTakesTheLeadingArguments) {
    std::vector<int> seen;
    auto handler = TrappedHandler("frmMain cmdPurge_Click", [&seen](int row) {
        seen.push_back(row);
        Raise(err::kTypeMismatch);
    });
    handler(4, "ignored", 2.5);
    EXPECT_EQ(seen, std::vector<int>{4});
    EXPECT_EQ(ErrHandler().StackPointer(), 0);
    EXPECT_EQ(ErrHandler().ErrNumber(), 13);
    EXPECT_EQ(ErrHandler().ErrProcedure(), "frmMain cmdPurge_Click");
    ASSERT_EQ(env.box.calls.size(), 1u);
    EXPECT_NE(ReadFile(report).find("\r\nProcedure Stack\r\n---------------\r\n"
                                    "01  frmMain cmdPurge_Click\r\n\r\n"),
              std::string::npos);
}

// A handler whose body is a procedure with its own trap (the run's "cmdBackup_Click") pushes
// nothing more: the report shows that procedure's stack alone.
TEST_F(ProcTrapTest, TrappedHandlerWithoutANamePushesNothing) {
    auto handler = TrappedHandler({}, [] {
        Trapped("cmdBackup_Click", 0, [] {
            EXPECT_EQ(ErrHandler().StackPointer(), 1);
            Raise(err::kFileNotFound);
            return 0;
        });
    });
    handler();
    EXPECT_EQ(ErrHandler().StackPointer(), 0);
    EXPECT_EQ(ErrHandler().ErrProcedure(), "cmdBackup_Click");
    EXPECT_NE(ReadFile(report).find("---------------\r\n01  cmdBackup_Click\r\n\r\n"),
              std::string::npos);
    ASSERT_EQ(env.box.calls.size(), 1u);
    TrappedHandler({}, [] {})(); // nothing to report
    EXPECT_EQ(env.box.calls.size(), 1u);
}

} // namespace
