// The message-box service: first-button answers, the headless box, and the installed service.

#include "TestSupport.h"

#include "support/modMsgBox.h"
#include "support/modServices.h"

#include <gtest/gtest.h>

namespace {

TEST(FirstButton, OkStylesAnswerOk) {
    EXPECT_EQ(FirstButton(mb::kOKOnly), mb::kOK);
    EXPECT_EQ(FirstButton(mb::kOKCancel), mb::kOK);
    EXPECT_EQ(FirstButton(mb::kCritical), mb::kOK);
    EXPECT_EQ(FirstButton(mb::kCritical | mb::kOKOnly), 1);
    EXPECT_EQ(FirstButton(mb::kInformation), 1);
    EXPECT_EQ(FirstButton(mb::kExclamation | mb::kOKCancel), 1);
}

TEST(FirstButton, YesStylesAnswerYes) {
    EXPECT_EQ(FirstButton(mb::kYesNo), mb::kYes);
    EXPECT_EQ(FirstButton(mb::kYesNo | mb::kCritical), 6);
    EXPECT_EQ(FirstButton(mb::kYesNo | mb::kQuestion), 6);
    EXPECT_EQ(FirstButton(mb::kYesNoCancel), 6);
}

TEST(FirstButton, AbortAndRetryStyles) {
    EXPECT_EQ(FirstButton(mb::kAbortRetryIgnore), mb::kAbort);
    EXPECT_EQ(FirstButton(mb::kRetryCancel | mb::kExclamation), mb::kRetry);
}

class HeadlessMessageBoxTest : public ::testing::Test {
protected:
    ScopedTestEnv env;
    std::string logPath = env.Path("run.LOG");
    CHeadlessMessageBox headless;

    void StartLog() {
        Logger().LogFile(logPath);
        ASSERT_TRUE(Logger().StartLogger());
    }
};

TEST_F(HeadlessMessageBoxTest, AnswersTheFirstButtonWithoutWaiting) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(headless.Show("a", 0, ""), 1);
    EXPECT_EQ(headless.Show("b", 1, ""), 1);
    EXPECT_EQ(headless.Show("c", 16, "Stashwell"), 1);
    EXPECT_EQ(headless.Show("d", 4, ""), 6);
    EXPECT_EQ(headless.Show("e", 20, ""), 6);
    EXPECT_EQ(headless.Show("f", 36, ""), 6);
    EXPECT_EQ(headless.Show("g", 5, ""), 4);
    testing::internal::GetCapturedStderr();
}

TEST_F(HeadlessMessageBoxTest, WritesTheTextToStderrAndToTheLogAtLevelOne) {
    StartLog();
    testing::internal::CaptureStderr();
    headless.Show("Backup path not set", mb::kExclamation, "QRV - Stashwell");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Backup path not set\n");
    EXPECT_EQ(LogMessages(ReadFile(logPath)), std::vector<std::string>{"Backup path not set\r\n"});
}

TEST_F(HeadlessMessageBoxTest, LogLineIsWrittenAtLevelOneOnly) {
    StartLog();
    Logger().LogLevel(0);
    testing::internal::CaptureStderr();
    headless.Show("not logged at level 0", 0, "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "not logged at level 0\n");
    EXPECT_EQ(ReadFile(logPath), "");
}

TEST_F(HeadlessMessageBoxTest, StoppedLoggerLeavesOnlyStderr) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(headless.Show("no log yet", 0, ""), 1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "no log yet\n");
}

TEST_F(HeadlessMessageBoxTest, LogThatCannotBeWrittenDoesNotStopTheBox) {
    Logger().LogFile("/dev/full");
    ASSERT_TRUE(Logger().StartLogger());
    testing::internal::CaptureStderr();
    int answer = 0;
    EXPECT_NO_THROW(answer = headless.Show("Error: 6. Overflow", 0, ""));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Error: 6. Overflow\n");
    EXPECT_EQ(answer, 1);
}

TEST_F(HeadlessMessageBoxTest, WithoutAnInstalledServiceTheHeadlessBoxAnswers) {
    SetMessageBoxService(nullptr);
    EXPECT_NE(dynamic_cast<CHeadlessMessageBox*>(&MessageBoxService()), nullptr);
    StartLog();
    testing::internal::CaptureStderr();
    EXPECT_EQ(MsgBox("Compact the catalogue?", mb::kYesNo | mb::kQuestion, "QRV"), mb::kYes);
    Beep();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Compact the catalogue?\n");
    EXPECT_EQ(LogMessages(ReadFile(logPath)),
              std::vector<std::string>{"Compact the catalogue?\r\n"});
}

TEST(MessageBoxService, InstalledServiceReceivesTextStyleTitleAndBeeps) {
    ScopedTestEnv env;
    env.box.Answer(mb::kNo);
    EXPECT_EQ(MsgBox("Delete?", mb::kYesNo | mb::kExclamation, "QRV - Stashwell"), mb::kNo);
    EXPECT_EQ(MsgBox("Done"), mb::kOK);
    Beep();
    EXPECT_EQ(env.box.calls, (std::vector<CScriptedMessageBox::Call>{
                                 {"Delete?", 52, "QRV - Stashwell"}, {"Done", 0, ""}}));
    EXPECT_EQ(env.box.beeps, 1);
    EXPECT_EQ(&MessageBoxService(), &env.box);
}

} // namespace
