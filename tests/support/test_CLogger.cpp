// The running log: line format, level rule, start and stop, clearing, and the file's privacy.

#include "TestSupport.h"

#include "support/CLogger.h"
#include "support/CRuntimeError.h"
#include "support/modDateText.h"

#include <cerrno>
#include <ctime>
#include <gtest/gtest.h>
#include <regex>
#ifndef _WIN32
#include <sys/stat.h>
#endif

namespace {

const std::regex kStampedLine(R"(^\d\d/\d\d/\d{4} \d\d:\d\d:\d\d: )");

class LoggerTest : public ::testing::Test {
protected:
    ScopedTestEnv env;
    std::string path = env.Path("QRV-20261116.LOG");
    CLogger logger;

    void Start() {
        logger.LogFile(path);
        ASSERT_TRUE(logger.StartLogger());
    }
    std::vector<std::string> Messages() const { return LogMessages(ReadFile(path)); }
};

// True when `stamp` is the date-time text of one of the seconds from `before` to `after`.
bool StampWithin(const std::string& stamp, std::time_t before, std::time_t after) {
    for (std::time_t t = before; t <= after; ++t)
        if (DateTimeText(t) == stamp) return true;
    return false;
}

TEST_F(LoggerTest, LineIsDateTimeColonBlankMessageAndCrLf) {
    Start();
    const std::time_t before = std::time(nullptr);
    logger.Log(1, "Backup started");
    const std::time_t after = std::time(nullptr);

    const std::string text = ReadFile(path);
    ASSERT_TRUE(std::regex_search(text, kStampedLine)) << text;
    ASSERT_EQ(text.size(), 19u + 2u + 14u + 2u);
    EXPECT_TRUE(StampWithin(text.substr(0, 19), before, after)) << text;
    EXPECT_EQ(text.substr(19), ": Backup started\r\n");
}

TEST_F(LoggerTest, MessageIsWrittenExactlyAsGiven) {
    Start();
    logger.Log(1, "FIL: /home/ann/a b.txt  ");
    EXPECT_EQ(Messages(), std::vector<std::string>{"FIL: /home/ann/a b.txt  \r\n"});
}

TEST_F(LoggerTest, EveryLineOfSeveralCarriesTheStamp) {
    Start();
    logger.Log(1, "one");
    logger.Log(1, "two");
    const std::string text = ReadFile(path);
    const size_t second = text.find("\r\n") + 2;
    EXPECT_TRUE(std::regex_search(text.substr(second), kStampedLine)) << text;
    EXPECT_EQ(Messages(), (std::vector<std::string>{"one\r\n", "two\r\n"}));
}

TEST_F(LoggerTest, MessageLoggedBeforeStartIsLostWhateverItsLevel) {
    logger.LogFile(path);
    logger.LogLevel(3);
    logger.Log(1, "basic");
    logger.Log(2, "advanced");
    logger.Log(3, "trace");
    logger.BlankLine();
    EXPECT_FALSE(Exists(path));

    ASSERT_TRUE(logger.StartLogger());
    EXPECT_EQ(ReadFile(path), "");
}

TEST_F(LoggerTest, LevelZeroWritesNothingNotEvenTheAnnouncement) {
    Start();
    logger.LogLevel(0);
    logger.Log(1, "basic");
    logger.Log(2, "advanced");
    logger.Log(3, "trace");
    EXPECT_EQ(logger.LogLevel(), 0);
    EXPECT_EQ(ReadFile(path), "");
}

TEST_F(LoggerTest, NegativeLevelWritesNothingNotEvenTheAnnouncement) {
    Start();
    logger.LogLevel(-1);
    logger.Log(1, "basic");
    logger.Log(3, "trace");
    EXPECT_EQ(logger.LogLevel(), -1);
    EXPECT_EQ(ReadFile(path), "");
}

TEST_F(LoggerTest, LevelSwitchIsAnnouncedAtLevelOne) {
    Start();
    logger.LogLevel(3);
    logger.LogLevel(2);
    logger.LogLevel(1);
    EXPECT_EQ(Messages(),
              (std::vector<std::string>{"LogLevel switched to 3\r\n", "LogLevel switched to 2\r\n",
                                        "LogLevel switched to 1\r\n"}));
}

TEST_F(LoggerTest, AnnouncementLineHasTheFullStamp) {
    Start();
    logger.LogLevel(3);
    const std::string text = ReadFile(path);
    EXPECT_TRUE(std::regex_match(
        text, std::regex(R"(\d\d/\d\d/\d{4} \d\d:\d\d:\d\d: LogLevel switched to 3\r\n)")))
        << text;
}

TEST_F(LoggerTest, DefaultLevelOneWritesOnlyBasicMessages) {
    Start();
    EXPECT_EQ(logger.LogLevel(), 1);
    logger.Log(1, "basic");
    logger.Log(2, "advanced");
    logger.Log(3, "trace");
    EXPECT_EQ(Messages(), std::vector<std::string>{"basic\r\n"});
}

TEST_F(LoggerTest, LevelTwoWritesBasicAndAdvancedMessages) {
    Start();
    logger.LogLevel(2);
    logger.Log(1, "basic");
    logger.Log(2, "Pruning DB tree");
    logger.Log(3, "Vacuum DB");
    EXPECT_EQ(Messages(), (std::vector<std::string>{"LogLevel switched to 2\r\n", "basic\r\n",
                                                    "Pruning DB tree\r\n"}));
}

TEST_F(LoggerTest, LevelThreeWritesAllThreeLevels) {
    Start();
    logger.LogLevel(3);
    logger.Log(1, "basic");
    logger.Log(2, "advanced");
    logger.Log(3, "Loading Controls");
    EXPECT_EQ(Messages(), (std::vector<std::string>{"LogLevel switched to 3\r\n", "basic\r\n",
                                                    "advanced\r\n", "Loading Controls\r\n"}));
}

TEST_F(LoggerTest, EmptyMessageStillYieldsStampAndSeparator) {
    Start();
    logger.Log(1, "");
    const std::string text = ReadFile(path);
    EXPECT_TRUE(std::regex_match(text, std::regex(R"(\d\d/\d\d/\d{4} \d\d:\d\d:\d\d: \r\n)")))
        << text;
}

TEST_F(LoggerTest, LevelSetWhileStoppedChangesLevelWithoutWriting) {
    logger.LogFile(path);
    logger.LogLevel(3);
    EXPECT_EQ(logger.LogLevel(), 3);
    EXPECT_FALSE(Exists(path));

    ASSERT_TRUE(logger.StartLogger());
    EXPECT_EQ(ReadFile(path), "");
    logger.Log(3, "FindFiles /home");
    EXPECT_EQ(Messages(), std::vector<std::string>{"FindFiles /home\r\n"});
}

TEST_F(LoggerTest, BlankLineHoldsOneBlankWhateverTheLevel) {
    Start();
    logger.LogLevel(0);
    logger.BlankLine();
    EXPECT_EQ(ReadFile(path), " \r\n");
}

TEST_F(LoggerTest, BlankLineSeparatesRuns) {
    Start();
    logger.Log(1, "Backup Complete.");
    logger.BlankLine();
    logger.Log(1, "Backup started");
    EXPECT_EQ(Messages(),
              (std::vector<std::string>{"Backup Complete.\r\n", " \r\n", "Backup started\r\n"}));
}

TEST_F(LoggerTest, ClearLogWhileStartedLeavesTheFileUntouched) {
    Start();
    logger.Log(1, "kept");
    const std::string before = ReadFile(path);

    EXPECT_FALSE(logger.ClearLog());
    EXPECT_EQ(ReadFile(path), before);
    logger.Log(1, "still logging");
    EXPECT_EQ(Messages(), (std::vector<std::string>{"kept\r\n", "still logging\r\n"}));
}

TEST_F(LoggerTest, ClearLogWhileStoppedDeletesTheFileAndAnswersFalse) {
    Start();
    logger.Log(1, "gone");
    logger.StopLogger();

    EXPECT_FALSE(logger.ClearLog());
    EXPECT_FALSE(Exists(path));
}

TEST_F(LoggerTest, ClearLogWithoutAFileIgnoresTheError) {
    logger.LogFile(path);
    EXPECT_FALSE(logger.ClearLog());
    EXPECT_FALSE(Exists(path));
}

TEST_F(LoggerTest, StartOnMissingFolderReturnsFalseAndLogsNothing) {
    const std::string missing = env.Path("unplugged/Logs/QRV-20261116.LOG");
    logger.LogFile(missing);

    EXPECT_FALSE(logger.StartLogger());
    EXPECT_FALSE(logger.Started());
    logger.LogLevel(3);
    logger.Log(1, "lost");
    logger.BlankLine();
    EXPECT_FALSE(Exists(env.Path("unplugged")));
}

TEST_F(LoggerTest, StartAppendsToEarlierContent) {
    WriteFile(path, "earlier line\r\n");
    Start();
    logger.Log(1, "new line");
    EXPECT_EQ(Messages(), (std::vector<std::string>{"earlier line\r\n", "new line\r\n"}));
}

TEST_F(LoggerTest, StartAfterStopAppendsAgain) {
    Start();
    logger.Log(1, "first run");
    logger.StopLogger();
    EXPECT_FALSE(logger.Started());
    logger.Log(1, "while stopped");

    ASSERT_TRUE(logger.StartLogger());
    logger.Log(1, "second run");
    EXPECT_EQ(Messages(), (std::vector<std::string>{"first run\r\n", "second run\r\n"}));
}

TEST_F(LoggerTest, SecondStartWithoutStopKeepsLoggingOnce) {
    Start();
    ASSERT_TRUE(logger.StartLogger());
    logger.Log(1, "once");
    EXPECT_EQ(Messages(), std::vector<std::string>{"once\r\n"});
}

TEST_F(LoggerTest, StopWithoutAnyStartDoesNotFail) {
    logger.StopLogger();
    logger.StopLogger();
    EXPECT_FALSE(logger.Started());
}

TEST_F(LoggerTest, LogFileChangedWhileStartedTakesEffectAtNextStart) {
    Start();
    const std::string other = env.Path("other.LOG");
    logger.LogFile(other);
    EXPECT_EQ(logger.LogFile(), other);
    logger.Log(1, "to the open file");
    EXPECT_FALSE(Exists(other));

    logger.StopLogger();
    ASSERT_TRUE(logger.StartLogger());
    logger.Log(1, "to the new file");
    EXPECT_EQ(Messages(), std::vector<std::string>{"to the open file\r\n"});
    EXPECT_EQ(LogMessages(ReadFile(other)), std::vector<std::string>{"to the new file\r\n"});
}

TEST_F(LoggerTest, DestructionStopsTheLoggerAndKeepsTheLines) {
    {
        CLogger local;
        local.LogFile(path);
        ASSERT_TRUE(local.StartLogger());
        local.Log(1, "last words");
    }
    EXPECT_EQ(Messages(), std::vector<std::string>{"last words\r\n"});
}

TEST_F(LoggerTest, NewLoggerIsStoppedAtLevelOneWithLoggerTxtInTheStateFolder) {
    EXPECT_FALSE(logger.Started());
    EXPECT_EQ(logger.LogLevel(), 1);
    EXPECT_EQ(logger.LogFile(), env.StateHome() + Native("/Korvex/QRV/LOGGER.TXT"));
}

TEST_F(LoggerTest, DefaultLogFileIsWrittenInThePrivateStateFolder) {
    ASSERT_TRUE(logger.StartLogger());
    logger.Log(1, "default file");
    EXPECT_EQ(LogMessages(ReadFile(logger.LogFile())),
              std::vector<std::string>{"default file\r\n"});

    EXPECT_TRUE(IsPrivate(env.StateHome() + Native("/Korvex/QRV")));
}

TEST_F(LoggerTest, LogFileIsPrivate) {
#ifdef _WIN32
    logger.LogFile(path);
    const bool started = logger.StartLogger();
#else
    const mode_t old = ::umask(0);
    logger.LogFile(path);
    const bool started = logger.StartLogger();
    ::umask(old);
#endif
    ASSERT_TRUE(started);
    EXPECT_TRUE(IsPrivate(path));
}

#ifndef _WIN32
// A full drive, as Linux makes one with /dev/full; Windows has no such device.
TEST_F(LoggerTest, WriteFailureIsRaisedToTheCaller) {
    logger.LogFile("/dev/full");
    ASSERT_TRUE(logger.StartLogger());
    try {
        logger.Log(1, "drive removed");
        FAIL() << "no error raised";
    } catch (const CRuntimeError& e) {
        EXPECT_EQ(e.Number(), err::kDiskFull);
        EXPECT_EQ(e.Description(), "Disk full");
    }
    EXPECT_THROW(logger.BlankLine(), CRuntimeError);
}

TEST_F(LoggerTest, FailedWriteIsRememberedWithItsSystemErrorUntilTheNextStart) {
    logger.LogFile("/dev/full");
    ASSERT_TRUE(logger.StartLogger());
    EXPECT_EQ(logger.LastWriteError(), 0);
    EXPECT_THROW(logger.Log(1, "drive removed"), CRuntimeError);
    EXPECT_EQ(logger.LastWriteError(), ENOSPC);
    logger.StopLogger();
    Start();
    EXPECT_EQ(logger.LastWriteError(), 0);
    logger.Log(1, "fine again");
    EXPECT_EQ(logger.LastWriteError(), 0);
}

TEST_F(LoggerTest, FilteredMessageOnAFailingFileRaisesNothing) {
    logger.LogFile("/dev/full");
    ASSERT_TRUE(logger.StartLogger());
    EXPECT_NO_THROW(logger.Log(2, "advanced"));
}
#endif

} // namespace
