// Copying one file in one of three ways: stream copy without truncation (3), overwriting copy
// (2), create-exclusive copy whose answer is ignored (1), the trace line of every call, and the
// replaceable table of methods.

#include "TestSupport.h"
#include "platform/modFileIO.h"
#include "platform/modFileSystem.h"
#include "support/modFileCopy.h"
#include "support/modServices.h"
#include "support/modYield.h"

#include <chrono>
#include <future>
#include <gtest/gtest.h>
#ifndef _WIN32
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace {

using namespace std::chrono_literals;

#ifndef _WIN32
// Runs `work` and fails the test when it does not finish within five seconds; a FIFO that
// blocks it is then opened from the other side so that the test can end.
template <class Work> void ExpectFinishesWithoutBlockingOn(const std::string& fifo, Work work) {
    auto done = std::async(std::launch::async, work);
    if (done.wait_for(5s) == std::future_status::ready) return;
    ADD_FAILURE() << "blocked on " << fifo;
    const int other = ::open(fifo.c_str(), O_RDWR | O_NONBLOCK);
    done.wait();
    ::close(other);
}
#endif

TEST(CopyFileByMode, StreamCopyOverALongerFileKeepsItsTail) {
    ScopedTestEnv env;
    WriteFile(env.Path("src"), "abc");
    WriteFile(env.Path("dst"), "0123456789");
    EXPECT_TRUE(CopyFileByMode(env.Path("src"), env.Path("dst"), 3));
    EXPECT_EQ(ReadFile(env.Path("dst")), "abc3456789");
}

TEST(CopyFileByMode, OverwritingCopyTruncatesALongerFile) {
    ScopedTestEnv env;
    WriteFile(env.Path("src"), "abc");
    WriteFile(env.Path("dst"), "0123456789");
    EXPECT_TRUE(CopyFileByMode(env.Path("src"), env.Path("dst"), 2));
    EXPECT_EQ(ReadFile(env.Path("dst")), "abc");
}

TEST(CopyFileByMode, FileHeldOpenIsWrittenFromItsStartInEachModeAndStaysOpen) {
    ScopedTestEnv env;
    WriteFile(env.Path("src"), "abc");
    for (const int mode : {3, 2, 1}) {
        WriteFile(env.Path("dst"), "");
        int error = 0;
        const NativeFile fd = OpenFileHandle(env.Path("dst"), OpenMode::kCreateOrKeep, error);
        ASSERT_NE(fd, kNoFile) << error;
        // Written through the handle, which is left at the end: not where the copy writes.
        ASSERT_TRUE(WriteBytes(fd, "0123456789", 10, nullptr, error)) << error;
        // Mode 1 creates a file only where there is none: one held open is there.
        EXPECT_TRUE(CopyFileByMode(env.Path("src"), CopyDestination(env.Path("dst"), fd), mode));
        EXPECT_EQ(ReadFile(env.Path("dst")), mode == 3   ? "abc3456789"
                                             : mode == 2 ? "abc"
                                                         : "0123456789")
            << mode;
        EXPECT_TRUE(WriteBytes(fd, "!", 1, nullptr, error)) << mode; // still open
        CloseFileHandle(fd);
    }
}

TEST(CopyFileByMode, ExclusiveCopyCreatesANewFile) {
    ScopedTestEnv env;
    WriteFile(env.Path("src"), "abc");
    EXPECT_TRUE(CopyFileByMode(env.Path("src"), env.Path("dst"), 1));
    EXPECT_EQ(ReadFile(env.Path("dst")), "abc");
}

TEST(CopyFileByMode, ExclusiveCopyOntoAnExistingFileLeavesItButAnswersTrue) {
    ScopedTestEnv env;
    WriteFile(env.Path("src"), "abc");
    WriteFile(env.Path("dst"), "old content");
    EXPECT_FALSE(DefaultCopyMethods().mode1(env.Path("src"), env.Path("dst"), nullptr));
    EXPECT_TRUE(CopyFileByMode(env.Path("src"), env.Path("dst"), 1));
    EXPECT_EQ(ReadFile(env.Path("dst")), "old content");
}

TEST(CopyFileByMode, MissingSourceFailsInModesThreeAndTwoButModeOneAnswersTrue) {
    ScopedTestEnv env;
    EXPECT_FALSE(CopyFileByMode(env.Path("none"), env.Path("dst"), 3));
    EXPECT_FALSE(CopyFileByMode(env.Path("none"), env.Path("dst"), 2));
    EXPECT_TRUE(CopyFileByMode(env.Path("none"), env.Path("dst"), 1));
    EXPECT_FALSE(Exists(env.Path("dst")));
}

TEST(CopyFileByMode, UnknownModeCopiesNothingAndAnswersFalse) {
    ScopedTestEnv env;
    const std::string log = StartTestLog(env);
    WriteFile(env.Path("src"), "abc");
    EXPECT_FALSE(CopyFileByMode(env.Path("src"), env.Path("dst"), 0));
    EXPECT_FALSE(CopyFileByMode(env.Path("src"), env.Path("dst"), 4));
    EXPECT_FALSE(CopyFileByMode(env.Path("src"), env.Path("dst"), -1));
    EXPECT_FALSE(Exists(env.Path("dst")));
    EXPECT_EQ(LogMessages(ReadFile(log)),
              (std::vector<std::string>{"CopyMode = 0. Returned: False\r\n",
                                        "CopyMode = 4. Returned: False\r\n",
                                        "CopyMode = -1. Returned: False\r\n"}));
}

TEST(CopyFileByMode, EveryCallLogsItsModeAndResultAtTraceLevel) {
    ScopedTestEnv env;
    const std::string log = StartTestLog(env);
    WriteFile(env.Path("src"), "abc");
    CopyFileByMode(env.Path("src"), env.Path("dst"), 3);
    CopyFileByMode(env.Path("none"), env.Path("dst"), 2);
    CopyFileByMode(env.Path("src"), env.Path("dst"), 1);
    EXPECT_EQ(LogMessages(ReadFile(log)), (std::vector<std::string>{
                                              "CopyMode = 3. Returned: True\r\n",
                                              "CopyMode = 2. Returned: False\r\n",
                                              "CopyMode = 1. Returned: True\r\n",
                                          }));
}

TEST(CopyFileByMode, BelowTraceLevelNothingIsLogged) {
    ScopedTestEnv env;
    const std::string log = StartTestLog(env, 2);
    WriteFile(env.Path("src"), "abc");
    CopyFileByMode(env.Path("src"), env.Path("dst"), 3);
    EXPECT_EQ(LogMessages(ReadFile(log)), std::vector<std::string>{});
}

TEST(CopyFileByMode, CreatedFilesArePrivateWhateverTheSourceMode) {
    ScopedTestEnv env;
#ifndef _WIN32
    const mode_t oldMask = ::umask(0);
#endif
    WriteFile(env.Path("src"), "abc");
#ifndef _WIN32
    ::chmod(env.Path("src").c_str(), 0755);
#endif
    for (int mode : {1, 2, 3}) {
        const std::string dst = env.Path("dst" + std::to_string(mode));
        EXPECT_TRUE(CopyFileByMode(env.Path("src"), dst, mode));
        EXPECT_TRUE(IsPrivate(dst)) << "mode " << mode;
    }
#ifndef _WIN32
    ::umask(oldMask);
#endif
}

TEST(CopyFileByMode, LargeFileCopiesByteForByteInEveryMode) {
    ScopedTestEnv env;
    const std::string content = PatternContent((size_t{3} << 20) + 12345);
    WriteFile(env.Path("src"), content);
    for (int mode : {1, 2, 3}) {
        const std::string dst = env.Path("dst" + std::to_string(mode));
        EXPECT_TRUE(CopyFileByMode(env.Path("src"), dst, mode));
        EXPECT_TRUE(ReadFile(dst) == content) << "mode " << mode;
    }
}

TEST(CopyFileByMode, EmptySourceGivesAnEmptyDestination) {
    ScopedTestEnv env;
    WriteFile(env.Path("src"), "");
    EXPECT_TRUE(CopyFileByMode(env.Path("src"), env.Path("dst"), 3));
    EXPECT_TRUE(Exists(env.Path("dst")));
    EXPECT_EQ(ReadFile(env.Path("dst")), "");
}

TEST(CopyFileByMode, CopyToAnotherFileSystemIsComplete) {
    ScopedTestEnv env;
    const std::string other = FolderOnAnotherFileSystem(env.Root(), "stashwell-copy-");
    if (other.empty()) GTEST_SKIP() << "no second file system";
    const std::string content = PatternContent((size_t{2} << 20) + 7);
    WriteFile(env.Path("src"), content);
    for (int mode : {1, 2, 3}) {
        const std::string dst = other + kPathSeparator + "dst" + std::to_string(mode);
        EXPECT_TRUE(CopyFileByMode(env.Path("src"), dst, mode));
        EXPECT_TRUE(ReadFile(dst) == content) << "mode " << mode;
        RemoveFile(dst);
    }
    RemoveFolder(other);
}

TEST(CopyFileByMode, CopyLetsPendingWindowMessagesRun) {
    ScopedTestEnv env;
    int yields = 0;
    SetYieldHook([&] { ++yields; });
    WriteFile(env.Path("src"), PatternContent(size_t{4} << 20));
    EXPECT_TRUE(CopyFileByMode(env.Path("src"), env.Path("dst"), 3));
    EXPECT_GE(yields, 1);
}

#ifndef _WIN32
// FIFOs and symbolic links, which Linux makes for anyone (Windows has no FIFOs in its file
// systems, and Wine makes no links).
TEST(CopyFileByMode, FifoSourceIsRefusedWithoutBlocking) {
    ScopedTestEnv env;
    const std::string fifo = env.Path("fifo");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    for (int mode : {3, 2}) {
        ExpectFinishesWithoutBlockingOn(fifo, [&] {
            EXPECT_FALSE(CopyFileByMode(fifo, env.Path("dst"), mode)) << "mode " << mode;
        });
    }
}

TEST(CopyFileByMode, FifoDestinationIsRefusedWithoutBlocking) {
    ScopedTestEnv env;
    const std::string fifo = env.Path("fifo");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    WriteFile(env.Path("src"), "abc");
    for (int mode : {3, 2}) {
        ExpectFinishesWithoutBlockingOn(fifo, [&] {
            EXPECT_FALSE(CopyFileByMode(env.Path("src"), fifo, mode)) << "mode " << mode;
        });
    }
}

TEST(CopyFileByMode, SymbolicLinkAsSourceIsNotFollowedInAnyMode) {
    ScopedTestEnv env;
    WriteFile(env.Path("secret"), "not chosen");
    ASSERT_EQ(::symlink(env.Path("secret").c_str(), env.Path("link").c_str()), 0);
    for (int32_t mode : {3, 2}) {
        EXPECT_FALSE(CopyFileByMode(env.Path("link"), env.Path("dst"), mode)) << mode;
        EXPECT_EQ(ReadFile(env.Path("dst")), "") << mode;
    }
}
#endif

// Records what an observer of a copy is shown.
struct RecordingObserver : ICopyObserver {
    void Restart() override {
        ++restarts;
        bytes.clear();
    }
    void Written(const char* data, size_t size) override {
        bytes.append(data, size);
        ++pieces;
    }
    int restarts = 0;
    int pieces = 0;
    std::string bytes;
};

TEST(CopyFileByMode, ObserverSeesEveryByteWrittenInOrderInEveryMode) {
    ScopedTestEnv env;
    const std::string content = PatternContent((3 << 20) + 17);
    WriteFile(env.Path("src"), content);
    for (int32_t mode : {3, 2, 1}) {
        RemoveFile(env.Path("dst"));
        RecordingObserver observer;
        EXPECT_TRUE(CopyFileByMode(env.Path("src"), env.Path("dst"), mode, &observer)) << mode;
        EXPECT_EQ(observer.restarts, 1) << mode;
        EXPECT_EQ(observer.pieces, 4) << mode; // 1 MiB blocks
        EXPECT_TRUE(observer.bytes == content) << mode;
        EXPECT_TRUE(ReadFile(env.Path("dst")) == content) << mode;
    }
}

TEST(CopyFileByMode, ObserverOfACopyThatCannotStartSeesNothing) {
    ScopedTestEnv env;
    RecordingObserver observer;
    EXPECT_FALSE(CopyFileByMode(env.Path("none"), env.Path("dst"), 3, &observer));
    EXPECT_EQ(observer.restarts, 1);
    EXPECT_EQ(observer.bytes, "");
}

TEST(CopyFileByMode, ReplacedMethodIsTheOneCalled) {
    ScopedTestEnv env;
    std::vector<std::string> calls;
    const CopyMethods real = DefaultCopyMethods();
    ActiveCopyMethods().mode2 = [&](const std::string& source, const std::string& destination,
                                    ICopyObserver* observer) {
        calls.push_back(source + " -> " + destination);
        return real.mode2(source, destination, observer);
    };
    WriteFile(env.Path("src"), "abc");
    EXPECT_TRUE(CopyFileByMode(env.Path("src"), env.Path("dst"), 2));
    EXPECT_EQ(calls, std::vector<std::string>{env.Path("src") + " -> " + env.Path("dst")});
    EXPECT_EQ(ReadFile(env.Path("dst")), "abc");
}

TEST(CopyFileByMode, MethodThatRaisesIsACopyThatFailed) {
    ScopedTestEnv env;
    const std::string log = StartTestLog(env);
    const auto raising = [](const std::string&, const std::string&, ICopyObserver*) -> bool {
        throw std::runtime_error("broken");
    };
    ActiveCopyMethods().mode1 = raising;
    ActiveCopyMethods().mode3 = raising;
    WriteFile(env.Path("src"), "abc");
    EXPECT_FALSE(CopyFileByMode(env.Path("src"), env.Path("dst"), 1));
    EXPECT_FALSE(CopyFileByMode(env.Path("src"), env.Path("dst"), 3));
    EXPECT_EQ(LogMessages(ReadFile(log)),
              (std::vector<std::string>{"CopyMode = 1. Returned: False\r\n",
                                        "CopyMode = 3. Returned: False\r\n"}));
    EXPECT_TRUE(env.box.calls.empty());
}

} // namespace
