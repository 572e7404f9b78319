// The notice of an unattended run that went wrong, in the notification area: the texts cut to
// what a balloon shows, and the notice taken by the shell's notification area (Wine's own,
// on the test's X display).

#include "app/modNotify.h"
#include "winui/CWinTrayNotifier.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(CWinTrayNotifier, TextsThatFitAreShownAsTheyAre) {
    EXPECT_EQ(CWinTrayNotifier::Fitted(L"Stashwell", CWinTrayNotifier::kTitleLength), L"Stashwell");
    const std::wstring exact(CWinTrayNotifier::kBodyLength, L'x');
    EXPECT_EQ(CWinTrayNotifier::Fitted(exact, CWinTrayNotifier::kBodyLength), exact);
}

TEST(CWinTrayNotifier, ALongerTextIsCutAndEndsWithDots) {
    const std::wstring body(300, L'y');
    EXPECT_EQ(CWinTrayNotifier::Fitted(body, CWinTrayNotifier::kBodyLength),
              std::wstring(252, L'y') + L"...");
}

TEST(CWinTrayNotifier, ACharacterOutsideTheBasicPlaneIsNeverCutInHalf) {
    // U+1F4BE (a floppy disk) is two UTF-16 units; its first would be the 60th unit kept.
    const std::wstring title = std::wstring(59, L't') + L"\xD83D\xDCBE" + std::wstring(10, L't');
    EXPECT_EQ(CWinTrayNotifier::Fitted(title, CWinTrayNotifier::kTitleLength),
              std::wstring(59, L't') + L"...");
}

TEST(CWinTrayNotifier, TheNotificationAreaTakesTheNoticeOfARunThatWentWrong) {
    CWinTrayNotifier notifier;
    const RunNotice notice = NoticeOfRunEnd("Backup completed with 1 problem",
                                            {"Not backed up: C:\\a.txt: it is in use"},
                                            "C:\\Backup\\Logs\\2026-11-26.log");
    EXPECT_EQ(notifier.Send(notice.title, notice.body), "");
    // A second notice of the same run's process takes the place of the first.
    EXPECT_EQ(notifier.Send(notice.title, std::string(400, 'z')), "");
}

} // namespace
