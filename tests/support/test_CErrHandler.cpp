// The error handler: procedure stack, the report file byte for byte, the message box, the
// ErrorRaised and ErrorHandled events, and the trace file.

#include "TestSupport.h"
#include "WindowsTestHelpers.h"

#include "support/CErrHandler.h"
#include "support/CRuntimeError.h"
#include "support/Version.h"
#include "support/modDateText.h"

#include <climits>
#include <ctime>
#include <filesystem>
#include <gtest/gtest.h>
#include <regex>
#ifndef _WIN32
#include <sys/stat.h>
#endif

namespace {

namespace fs = std::filesystem;

const std::string kCrLf = "\r\n";

// The parts of a report that a test chooses; the rest comes from the machine and the build.
struct Report {
    std::string title = "Stashwell";
    std::string description;
    int number = 0;
    int line = 0;
    std::string procedure;
    std::string stackBlock;
    std::string operation;
    bool expanded = true;
};

std::string AdditionalInformation() {
    const std::string programFolder = TestProgramFolder();
    return "Current Directory: " + PathText(fs::current_path()) + kCrLf + "App Title: Stashwell" +
           kCrLf + "App CompanyName: Korvex" + kCrLf +
           "App Major: " + std::to_string(version::kMajor) + kCrLf +
           "App Minor: " + std::to_string(version::kMinor) + kCrLf +
           "App Revision: " + std::to_string(version::kRevision) + kCrLf +
           "App Path: " + programFolder + kCrLf + "App ProductName: Stashwell" + kCrLf;
}

std::string ExpectedReport(const Report& r, const std::string& timeLine) {
    std::string text = r.title + " Application Error Information" + kCrLf;
    text += "====================================" + kCrLf;
    text += timeLine + kCrLf;
    text += "Error String   : " + r.description + kCrLf;
    text += "Error Number   : " + std::to_string(r.number) + kCrLf;
    text += "Error Line     : " + std::to_string(r.line) + kCrLf;
    text += "Error Procedure: " + r.procedure + kCrLf;
    text += kCrLf;
    text += "Procedure Stack" + kCrLf;
    text += "---------------" + kCrLf;
    text += r.stackBlock + kCrLf;
    if (!r.operation.empty()) text += "Current Operation: " + r.operation + kCrLf;
    if (!r.expanded) return text;
    text += kCrLf;
    text += "Additional Information" + kCrLf;
    text += "----------------------" + kCrLf;
    text += AdditionalInformation() + kCrLf;
    return text;
}

// The third line of a report: "Current Time   : dd/MM/yyyy HH:mm:ss".
std::string TimeLine(const std::string& report) {
    const size_t start = report.find(kCrLf, report.find(kCrLf) + 2) + 2;
    return report.substr(start, report.find(kCrLf, start) - start);
}

bool TimeLineWithin(const std::string& line, std::time_t before, std::time_t after) {
    const std::string prefix = "Current Time   : ";
    if (line.compare(0, prefix.size(), prefix) != 0) return false;
    for (std::time_t t = before; t <= after; ++t)
        if (DateTimeText(t) == line.substr(prefix.size())) return true;
    return false;
}

// How many of this process's open files are `path`. Windows tells no count: there it is 1 while
// the file is held open (a hold with no sharing fails) and 0 otherwise.
int OpenCount(const std::string& path) {
#ifdef _WIN32
    return ExclusiveHold(path).Ok() ? 0 : 1;
#else
    int count = 0;
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code ec;
        if (fs::read_symlink(entry.path(), ec).string() == path) ++count;
    }
    return count;
#endif
}

class ErrHandlerTest : public ::testing::Test {
protected:
    ScopedTestEnv env;
    CErrHandler handler;
    std::string report = env.Path("QRVERR.LOG");
    std::string tracePath = env.StateHome() + Native("/Korvex/QRV/trace.log");

    ErrHandlerTest() {
        handler.AppTitle("Stashwell");
        handler.Destination(report);
    }

    // Handles `error` and checks the report against `expected`, the time line by pattern.
    void HandleAndCompare(const CRuntimeError& error, const Report& expected, int32_t line = 0) {
        const std::time_t before = std::time(nullptr);
        handler.HandleError(error, line);
        const std::time_t after = std::time(nullptr);
        const std::string text = ReadFile(report);
        const std::string timeLine = TimeLine(text);
        EXPECT_TRUE(std::regex_match(
            timeLine, std::regex(R"(Current Time   : \d\d/\d\d/\d{4} \d\d:\d\d:\d\d)")))
            << timeLine;
        EXPECT_TRUE(TimeLineWithin(timeLine, before, after)) << timeLine;
        EXPECT_EQ(text, ExpectedReport(expected, timeLine));
    }
};

TEST_F(ErrHandlerTest, NewHandlerHasTheDescribedDefaults) {
    CErrHandler fresh;
    EXPECT_EQ(fresh.MaxProcStackItems(), 100);
    EXPECT_TRUE(fresh.IncludeExpandedInfo());
    EXPECT_TRUE(fresh.DisplayMsgOnError());
    EXPECT_FALSE(fresh.TraceExecution());
    EXPECT_EQ(fresh.ErrNumber(), 0);
    EXPECT_EQ(fresh.ErrLine(), 0);
    EXPECT_EQ(fresh.ErrDescription(), "");
    EXPECT_EQ(fresh.ErrProcedure(), "");
    EXPECT_EQ(fresh.AppTitle(), "");
    EXPECT_EQ(fresh.CurrentOperation(), "");
    EXPECT_EQ(fresh.StackPointer(), 0);
    EXPECT_EQ(fresh.Destination(), env.StateHome() + Native("/Korvex/QRV/ERRORS.TXT"));
}

TEST_F(ErrHandlerTest, EmptyStackGivesEmptyProcedureAndAnEmptyLineBlock) {
    Report expected;
    expected.description = "File not found";
    expected.number = 53;
    HandleAndCompare(CRuntimeError(53, "File not found"), expected);
    EXPECT_EQ(handler.ErrProcedure(), "");
    EXPECT_EQ(handler.StackBlock(), "");
}

TEST_F(ErrHandlerTest, ThreeNestedPushesIndentTheStackBlock) {
    handler.Push("A");
    handler.Push("B");
    handler.Push("C");
    EXPECT_EQ(handler.StackBlock(), "01  A\r\n02    B\r\n03      C\r\n");

    Report expected;
    expected.description = "Overflow";
    expected.number = 6;
    expected.procedure = "C";
    expected.stackBlock = "01  A\r\n02    B\r\n03      C\r\n";
    HandleAndCompare(CRuntimeError(6, "Overflow"), expected);
    EXPECT_EQ(handler.ErrProcedure(), "C");
}

TEST_F(ErrHandlerTest, CurrentOperationFollowsTheStackBlock) {
    handler.Push("CBackup_Exec");
    handler.CurrentOperation("Calculate MD5 signature");

    Report expected;
    expected.description = "Device I/O error";
    expected.number = 57;
    expected.procedure = "CBackup_Exec";
    expected.stackBlock = "01  CBackup_Exec\r\n";
    expected.operation = "Calculate MD5 signature";
    HandleAndCompare(CRuntimeError(57, "Device I/O error"), expected);
}

TEST_F(ErrHandlerTest, ErrorLineIsWrittenInDecimal) {
    handler.Push("FSCopyFile");
    Report expected;
    expected.description = "Disk full";
    expected.number = 61;
    expected.line = 1234;
    expected.procedure = "FSCopyFile";
    expected.stackBlock = "01  FSCopyFile\r\n";
    HandleAndCompare(CRuntimeError(61, "Disk full"), expected, 1234);
    EXPECT_EQ(handler.ErrLine(), 1234);
}

TEST_F(ErrHandlerTest, ApplicationTitleIsTheHeaderWithoutAnythingBetween) {
    handler.AppTitle("QRV");
    Report expected;
    expected.title = "QRV";
    expected.description = "Overflow";
    expected.number = 6;
    HandleAndCompare(CRuntimeError(6, "Overflow"), expected);
}

TEST_F(ErrHandlerTest, ErrorStringIsCutAt255Characters) {
    const std::string longText(300, 'x');
    Report expected;
    expected.description = std::string(255, 'x');
    expected.number = 10001;
    HandleAndCompare(CRuntimeError(10001, longText), expected);
    EXPECT_EQ(handler.ErrDescription(), longText);
}

TEST_F(ErrHandlerTest, SecondErrorLeavesOnlyTheSecondReport) {
    handler.Push("First");
    handler.HandleError(CRuntimeError(53, "File not found"));
    handler.Pop();
    handler.Push("Second");

    Report expected;
    expected.description = "Permission denied";
    expected.number = 70;
    expected.procedure = "Second";
    expected.stackBlock = "01  Second\r\n";
    HandleAndCompare(CRuntimeError(70, "Permission denied"), expected);
}

TEST_F(ErrHandlerTest, WithoutExpandedInfoTheReportEndsAfterCurrentOperation) {
    handler.IncludeExpandedInfo(false);
    handler.Push("KillOrphans");
    handler.CurrentOperation("KillOrphans main loop");

    Report expected;
    expected.description = "Path not found";
    expected.number = 76;
    expected.procedure = "KillOrphans";
    expected.stackBlock = "01  KillOrphans\r\n";
    expected.operation = "KillOrphans main loop";
    expected.expanded = false;
    HandleAndCompare(CRuntimeError(76, "Path not found"), expected);
    EXPECT_TRUE(ReadFile(report).ends_with(
        "01  KillOrphans\r\n\r\nCurrent Operation: KillOrphans main loop\r\n"));
}

TEST_F(ErrHandlerTest, WithoutExpandedInfoAndNoOperationTheReportEndsAfterTheStackBlock) {
    handler.IncludeExpandedInfo(false);
    handler.Push("RestoreFile");

    Report expected;
    expected.description = "File not found";
    expected.number = 53;
    expected.procedure = "RestoreFile";
    expected.stackBlock = "01  RestoreFile\r\n";
    expected.expanded = false;
    HandleAndCompare(CRuntimeError(53, "File not found"), expected);
    EXPECT_TRUE(ReadFile(report).ends_with("---------------\r\n01  RestoreFile\r\n\r\n"));
}

TEST_F(ErrHandlerTest, HundredAndFirstNestedPushRaisesSubscriptOutOfRange) {
    for (int i = 1; i <= 100; ++i)
        ASSERT_NO_THROW(handler.Push("P" + std::to_string(i)));
    try {
        handler.Push("P101");
        FAIL() << "no error raised";
    } catch (const CRuntimeError& e) {
        EXPECT_EQ(e.Number(), 9);
        EXPECT_EQ(e.Description(), "Subscript out of range");
    }
    EXPECT_EQ(handler.StackPointer(), 101);
    EXPECT_EQ(handler.StackBlock().find("P101"), std::string::npos);
}

TEST_F(ErrHandlerTest, PopAfterTheTooDeepPushKeepsTheHundredthName) {
    for (int i = 1; i <= 100; ++i)
        handler.Push("P" + std::to_string(i));
    EXPECT_THROW(handler.Push("P101"), CRuntimeError);
    handler.Pop();
    EXPECT_EQ(handler.StackPointer(), 100);
    EXPECT_NE(handler.StackBlock().find("P100\r\n"), std::string::npos);
    handler.Pop();
    EXPECT_EQ(handler.StackPointer(), 99);
    EXPECT_EQ(handler.StackBlock().find("P100"), std::string::npos);
}

TEST_F(ErrHandlerTest, PopAtZeroStaysAtZero) {
    handler.Pop();
    EXPECT_EQ(handler.StackPointer(), 0);
    handler.Push("A");
    handler.Pop();
    handler.Pop();
    handler.Pop();
    EXPECT_EQ(handler.StackPointer(), 0);
    handler.Push("B");
    EXPECT_EQ(handler.StackPointer(), 1);
    EXPECT_EQ(handler.StackBlock(), "01  B\r\n");
}

TEST_F(ErrHandlerTest, PopClearsOnlyTheTopEntry) {
    handler.Push("frmMain Form_Load");
    handler.Push("FSCreateFolder");
    handler.Pop();
    EXPECT_EQ(handler.StackPointer(), 1);
    EXPECT_EQ(handler.StackBlock(), "01  frmMain Form_Load\r\n");
}

TEST_F(ErrHandlerTest, StackIndexesKeepAtLeastTwoDigits) {
    handler.MaxProcStackItems(110);
    for (int i = 1; i <= 103; ++i)
        handler.Push("P" + std::to_string(i));
    const std::string block = handler.StackBlock();
    EXPECT_NE(block.find("\r\n09" + std::string(18, ' ') + "P9\r\n"), std::string::npos);
    EXPECT_NE(block.find("\r\n10" + std::string(20, ' ') + "P10\r\n"), std::string::npos);
    EXPECT_TRUE(block.ends_with("\r\n103" + std::string(206, ' ') + "P103\r\n"));
}

TEST_F(ErrHandlerTest, MaxProcStackItemsRecreatesTheStackWithItsNewDepth) {
    handler.MaxProcStackItems(3);
    EXPECT_EQ(handler.MaxProcStackItems(), 3);
    handler.Push("A");
    handler.Push("B");
    handler.Push("C");
    EXPECT_THROW(handler.Push("D"), CRuntimeError);
    EXPECT_EQ(handler.StackBlock(), "01  A\r\n02    B\r\n03      C\r\n");
}

TEST_F(ErrHandlerTest, MaxProcStackItemsEmptiesTheStack) {
    handler.Push("A");
    handler.MaxProcStackItems(100);
    EXPECT_EQ(handler.StackBlock(), "");
}

TEST_F(ErrHandlerTest, MaxProcStackItemsWhoseUpperBoundOverflowsRaisesOverflow) {
    try {
        handler.MaxProcStackItems(32766);
        FAIL() << "no error raised";
    } catch (const CRuntimeError& e) {
        EXPECT_EQ(e.Number(), 6);
    }
    EXPECT_EQ(handler.MaxProcStackItems(), 32766); // stored before the bound overflowed
}

TEST_F(ErrHandlerTest, StackPointerOutsideTheArrayMakesHandleErrorRaiseSubscript) {
    for (int i = 0; i < 5; ++i)
        handler.Push("P");
    handler.MaxProcStackItems(1); // the array now ends at 3, below the pointer
    try {
        handler.HandleError(CRuntimeError(53, "File not found"));
        FAIL() << "no error raised";
    } catch (const CRuntimeError& e) {
        EXPECT_EQ(e.Number(), 9);
    }
    EXPECT_EQ(handler.ErrNumber(), 53);
    EXPECT_FALSE(Exists(report));
    EXPECT_TRUE(env.box.calls.empty());
}

TEST_F(ErrHandlerTest, MessageBoxIsCriticalOkWithTitleAndExactText) {
    handler.Push("CBackup_Exec");
    handler.CurrentOperation("Make backup");
    handler.HandleError(CRuntimeError(10001, "Copy failed"));

    ASSERT_EQ(env.box.calls.size(), 1u);
    EXPECT_EQ(env.box.calls[0],
              (CScriptedMessageBox::Call{"The following error has occurred in procedure: \r\n"
                                         "CBackup_Exec on line 0\r\n"
                                         "Error (10001) Copy failed\r\n"
                                         "Current Operation: Make backup",
                                         16, "Stashwell"}));
    EXPECT_EQ(env.box.beeps, 1);
    EXPECT_EQ(handler.MessageText(), env.box.calls[0].text);
}

TEST_F(ErrHandlerTest, MessageTextWithoutOperationEndsAfterTheDescription) {
    handler.Push("HashFile");
    handler.HandleError(CRuntimeError(57, "Device I/O error"), 12);
    ASSERT_EQ(env.box.calls.size(), 1u);
    EXPECT_EQ(env.box.calls[0].text, "The following error has occurred in procedure: \r\n"
                                     "HashFile on line 12\r\n"
                                     "Error (57) Device I/O error");
}

TEST_F(ErrHandlerTest, MessageShowsTheFullDescriptionNotCut) {
    handler.HandleError(CRuntimeError(5, std::string(300, 'y')));
    ASSERT_EQ(env.box.calls.size(), 1u);
    EXPECT_TRUE(env.box.calls[0].text.ends_with("Error (5) " + std::string(300, 'y')));
}

TEST_F(ErrHandlerTest, DisplayMsgOnErrorOffShowsNothingButWritesTheReport) {
    handler.DisplayMsgOnError(false);
    bool handled = false;
    handler.OnErrorHandled = [&] { handled = true; };
    handler.HandleError(CRuntimeError(53, "File not found"));

    EXPECT_TRUE(env.box.calls.empty());
    EXPECT_EQ(env.box.beeps, 0);
    EXPECT_TRUE(ReadFile(report).starts_with("Stashwell Application Error Information\r\n"));
    EXPECT_TRUE(handled);
}

TEST_F(ErrHandlerTest, EmptyApplicationTitleTakesTheProgramTitle) {
    handler.AppTitle("");
    handler.HandleError(CRuntimeError(6, "Overflow"));
    EXPECT_EQ(handler.AppTitle(), "Stashwell");
    EXPECT_TRUE(ReadFile(report).starts_with("Stashwell Application Error Information\r\n"));
    ASSERT_EQ(env.box.calls.size(), 1u);
    EXPECT_EQ(env.box.calls[0].title, "Stashwell");
}

TEST_F(ErrHandlerTest, CancelledErrorRaisedSuppressesEverythingButUpdatesTheFields) {
    handler.Push("PopulateNode");
    handler.CurrentOperation("Query Master table");
    int raised = 0;
    bool handled = false;
    handler.OnErrorRaised = [&](bool& cancel) {
        EXPECT_FALSE(cancel);
        ++raised;
        cancel = true;
    };
    handler.OnErrorHandled = [&] { handled = true; };

    handler.HandleError(CRuntimeError(13, "Type mismatch"), 7);

    EXPECT_EQ(raised, 1);
    EXPECT_FALSE(handled);
    EXPECT_FALSE(Exists(report));
    EXPECT_TRUE(env.box.calls.empty());
    EXPECT_EQ(env.box.beeps, 0);
    EXPECT_EQ(handler.ErrNumber(), 13);
    EXPECT_EQ(handler.ErrLine(), 7);
    EXPECT_EQ(handler.ErrDescription(), "Type mismatch");
    EXPECT_EQ(handler.ErrProcedure(), "PopulateNode");
}

TEST_F(ErrHandlerTest, ErrorRaisedComesFirstAndErrorHandledLast) {
    handler.Push("RestoreFile");
    std::vector<std::string> order;
    handler.OnErrorRaised = [&](bool&) {
        order.push_back("raised");
        EXPECT_EQ(handler.ErrNumber(), 53);
        EXPECT_EQ(handler.ErrProcedure(), "RestoreFile");
        EXPECT_FALSE(Exists(report));
        EXPECT_TRUE(env.box.calls.empty());
    };
    handler.OnErrorHandled = [&] {
        order.push_back("handled");
        EXPECT_TRUE(Exists(report));
        EXPECT_EQ(env.box.calls.size(), 1u);
        EXPECT_EQ(env.box.beeps, 1);
    };
    handler.HandleError(CRuntimeError(53, "File not found"));
    EXPECT_EQ(order, (std::vector<std::string>{"raised", "handled"}));
}

TEST_F(ErrHandlerTest, HandleErrorNeitherPopsNorClearsTheOperation) {
    handler.Push("cmdBackup_Click");
    handler.CurrentOperation("Finding Files");
    handler.HandleError(CRuntimeError(53, "File not found"));
    EXPECT_EQ(handler.StackPointer(), 1);
    EXPECT_EQ(handler.CurrentOperation(), "Finding Files");
    EXPECT_EQ(handler.StackBlock(), "01  cmdBackup_Click\r\n");
}

TEST_F(ErrHandlerTest, UnwritableReportStillShowsTheMessage) {
    handler.Destination(env.Path("no such folder/QRVERR.LOG"));
    bool handled = false;
    handler.OnErrorHandled = [&] { handled = true; };
    EXPECT_NO_THROW(handler.HandleError(CRuntimeError(53, "File not found")));
    EXPECT_EQ(env.box.calls.size(), 1u);
    EXPECT_TRUE(handled);
    EXPECT_FALSE(Exists(env.Path("no such folder")));
}

TEST_F(ErrHandlerTest, ReportFileIsPrivate) {
#ifdef _WIN32
    handler.HandleError(CRuntimeError(53, "File not found"));
#else
    const mode_t old = ::umask(0);
    handler.HandleError(CRuntimeError(53, "File not found"));
    ::umask(old);
#endif
    EXPECT_TRUE(IsPrivate(report));
}

TEST_F(ErrHandlerTest, DefaultDestinationIsWrittenInThePrivateStateFolder) {
    CErrHandler fresh;
    fresh.HandleError(CRuntimeError(6, "Overflow"));
    const std::string text = ReadFile(env.StateHome() + Native("/Korvex/QRV/ERRORS.TXT"));
    EXPECT_TRUE(text.starts_with("Stashwell Application Error Information\r\n")) << text;
    EXPECT_TRUE(IsPrivate(env.StateHome() + Native("/Korvex/QRV")));
}

TEST_F(ErrHandlerTest, ClearLogDeletesTheReportAndAnswersTrue) {
    handler.HandleError(CRuntimeError(53, "File not found"));
    ASSERT_TRUE(Exists(report));
    EXPECT_TRUE(handler.ClearLog());
    EXPECT_FALSE(Exists(report));
    EXPECT_TRUE(handler.ClearLog());
}

TEST_F(ErrHandlerTest, TraceWritesEveryPushedNameToTraceLogInTheStateFolder) {
    handler.TraceExecution(true);
    EXPECT_TRUE(handler.TraceExecution());
    handler.Push("frmMain Form_Load");
    handler.Push("FSBuildPath");
    handler.Pop();
    handler.Push("FSFileExists");
    EXPECT_EQ(ReadFile(tracePath), "frmMain Form_Load\r\nFSBuildPath\r\nFSFileExists\r\n");
    EXPECT_TRUE(IsPrivate(tracePath));
}

TEST_F(ErrHandlerTest, TraceStartsFromAnEmptyFile) {
    fs::create_directories(FsPath(env.StateHome() + Native("/Korvex/QRV")));
    WriteFile(tracePath, "earlier run\r\n");
    handler.TraceExecution(true);
    EXPECT_EQ(ReadFile(tracePath), "");
    handler.Push("A");
    EXPECT_EQ(ReadFile(tracePath), "A\r\n");
}

TEST_F(ErrHandlerTest, TraceExecutionFalseStopsWritingButKeepsTheFileOpen) {
    handler.TraceExecution(true);
    handler.Push("A");
    handler.TraceExecution(false);
    EXPECT_FALSE(handler.TraceExecution());
    handler.Push("B");
    EXPECT_EQ(ReadFile(tracePath), "A\r\n");
    EXPECT_EQ(OpenCount(tracePath), 1);
}

TEST_F(ErrHandlerTest, TraceFileIsClosedWhenTheHandlerGoes) {
    {
        CErrHandler local;
        local.TraceExecution(true);
        local.Push("A");
        EXPECT_EQ(OpenCount(tracePath), 1);
    }
    EXPECT_EQ(OpenCount(tracePath), 0);
    EXPECT_EQ(ReadFile(tracePath), "A\r\n");
}

TEST_F(ErrHandlerTest, TracingSwitchedOnTwiceKeepsOneOpenFile) {
    handler.TraceExecution(true);
    handler.Push("A");
    handler.TraceExecution(true);
    handler.Push("B");
    EXPECT_EQ(ReadFile(tracePath), "B\r\n");
    EXPECT_EQ(OpenCount(tracePath), 1);
}

TEST_F(ErrHandlerTest, TraceFileThatCannotBeCreatedMakesLaterPushesFail) {
    // A plain file where the state folder would go: nothing can be created below it.
    WriteFile(env.Path("not-a-folder"), "");
    SetEnv(kStateHomeVariable, env.Path("not-a-folder"));
    EXPECT_NO_THROW(handler.TraceExecution(true));
    EXPECT_TRUE(handler.TraceExecution());
    EXPECT_THROW(handler.Push("A"), CRuntimeError);
    handler.TraceExecution(false);
    EXPECT_NO_THROW(handler.Push("B"));
}

} // namespace
