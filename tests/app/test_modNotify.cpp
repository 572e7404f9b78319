// The notice at the end of an unattended run: its words, first problem and log; sent only when
// the run did not end with 0, or also then with the option; a notifier that cannot send, or
// none, leaves one line at level 2 and nothing else.

#include "TestSupport.h"
#include "app/modNotify.h"
#include "support/modServices.h"

#include <gtest/gtest.h>

namespace {

using Lines = std::vector<std::string>;

class RecordingNotifier : public INotifier {
public:
    std::string Send(const std::string& title, const std::string& body) override {
        sent.push_back(title + "|" + body);
        return answer;
    }
    Lines sent;
    std::string answer;
};

TEST(Notify, TheNoticeHoldsTheWordsTheFirstProblemAndTheLog) {
    EXPECT_EQ(NoticeOfRunEnd("Backup completed with 2 problems", {"Could not read /a", "more"},
                             "/b/Logs/QRV-20261126.LOG")
                  .body,
              "Backup completed with 2 problems\nCould not read /a\nThe log: "
              "/b/Logs/QRV-20261126.LOG");
    EXPECT_EQ(NoticeOfRunEnd("Backup drive /m is not connected", {}, "/m/Logs/x.LOG").body,
              "Backup drive /m is not connected\nThe log: /m/Logs/x.LOG");
    EXPECT_EQ(NoticeOfRunEnd("Backup completed", {}, "").body, "Backup completed");
    EXPECT_EQ(NoticeOfRunEnd("Backup did not start", {"Backup did not start"}, "").body,
              "Backup did not start");
    EXPECT_EQ(NoticeOfRunEnd("x", {}, "").title, "Stashwell");
}

TEST(Notify, OnlyARunThatDidNotEndWithZeroIsToldUnlessAsked) {
    ScopedTestEnv env;
    const std::string log = StartTestLog(env);
    RecordingNotifier notifier;
    SetNotifierService(&notifier);
    TellRunEnd(0, "Backup completed", {});
    EXPECT_EQ(notifier.sent, Lines{});
    TellRunEnd(0, "Backup completed", {}, true);
    TellRunEnd(4, "Backup completed with 1 problem", {"Could not read /a"});
    TellRunEnd(5, "A backup run was lost: disk full", {});
    EXPECT_EQ(
        notifier.sent,
        (Lines{"Stashwell|Backup completed\nThe log: " + log,
               "Stashwell|Backup completed with 1 problem\nCould not read /a\nThe log: " + log,
               "Stashwell|A backup run was lost: disk full\nThe log: " + log}));
    EXPECT_EQ(LogMessages(ReadFile(log)), Lines{});
}

TEST(Notify, ANoticeThatCannotBeSentIsOneLineAtLevelTwo) {
    ScopedTestEnv env;
    const std::string log = StartTestLog(env, 2);
    RecordingNotifier notifier;
    notifier.answer = "there is no session bus (DBUS_SESSION_BUS_ADDRESS is not set)";
    SetNotifierService(&notifier);
    TellRunEnd(1, "Backup did not start", {"Please define the backup path to proceed"});
    SetNotifierService(nullptr);
    TellRunEnd(3, "Backup did not start", {});
    EXPECT_EQ(LogMessages(ReadFile(log)),
              (Lines{"No desktop notification was sent: there is no session bus "
                     "(DBUS_SESSION_BUS_ADDRESS is not set)\r\n",
                     "No desktop notification was sent: this program cannot send any\r\n"}));
    // At the basic level the log says nothing of it.
    Logger().LogLevel(1);
    TellRunEnd(3, "Backup did not start", {});
    const Lines after = LogMessages(ReadFile(log));
    ASSERT_EQ(after.size(), 3u);
    EXPECT_EQ(after.back(), "LogLevel switched to 1\r\n");
}

} // namespace
