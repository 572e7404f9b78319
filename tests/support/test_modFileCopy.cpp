// Copying one file in one of three ways: stream copy without truncation (3), overwriting copy
// (2), create-exclusive copy whose answer is ignored (1), the trace line of every call, and the
// replaceable table of methods.

#include "TestSupport.h"
#include "support/modFileCopy.h"
#include "support/modServices.h"
#include "support/modYield.h"

#include <chrono>
#include <fcntl.h>
#include <future>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;

unsigned Mode(const std::string& path) {
    struct stat st {};
    ::stat(path.c_str(), &st);
    return st.st_mode & 07777;
}

// Puts the default methods back whatever a test changed.
struct CopyMethodsGuard {
    ~CopyMethodsGuard() { ActiveCopyMethods() = DefaultCopyMethods(); }
};

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
        WriteFile(env.Path("dst"), "0123456789");
        const int fd = ::open(env.Path("dst").c_str(), O_RDWR);
        ASSERT_GE(fd, 0);
        ASSERT_EQ(::lseek(fd, 0, SEEK_END), 10); // not where the copy writes
        // Mode 1 creates a file only where there is none: one held open is there.
        EXPECT_TRUE(CopyFileByMode(env.Path("src"), CopyDestination(env.Path("dst"), fd), mode));
        EXPECT_EQ(ReadFile(env.Path("dst")), mode == 3   ? "abc3456789"
                                             : mode == 2 ? "abc"
                                                         : "0123456789")
            << mode;
        EXPECT_EQ(::write(fd, "!", 1), 1) << mode; // still open
        ::close(fd);
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
    const mode_t oldMask = ::umask(0);
    WriteFile(env.Path("src"), "abc");
    ::chmod(env.Path("src").c_str(), 0755);
    for (int mode : {1, 2, 3}) {
        const std::string dst = env.Path("dst" + std::to_string(mode));
        EXPECT_TRUE(CopyFileByMode(env.Path("src"), dst, mode));
        EXPECT_EQ(Mode(dst), 0600u) << "mode " << mode;
    }
    ::umask(oldMask);
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
    struct stat tmp {
    }, shm{};
    if (::stat(env.Root().c_str(), &tmp) != 0 || ::stat("/dev/shm", &shm) != 0 ||
        tmp.st_dev == shm.st_dev)
        GTEST_SKIP() << "no second file system at /dev/shm";
    std::string other = "/dev/shm/stashwell-copy-XXXXXX";
    ASSERT_NE(::mkdtemp(other.data()), nullptr);
    const std::string content = PatternContent((size_t{2} << 20) + 7);
    WriteFile(env.Path("src"), content);
    for (int mode : {1, 2, 3}) {
        const std::string dst = other + "/dst" + std::to_string(mode);
        EXPECT_TRUE(CopyFileByMode(env.Path("src"), dst, mode));
        EXPECT_TRUE(ReadFile(dst) == content) << "mode " << mode;
        ::unlink(dst.c_str());
    }
    ::rmdir(other.c_str());
}

TEST(CopyFileByMode, CopyLetsPendingWindowMessagesRun) {
    ScopedTestEnv env;
    int yields = 0;
    SetYieldHook([&] { ++yields; });
    WriteFile(env.Path("src"), PatternContent(size_t{4} << 20));
    EXPECT_TRUE(CopyFileByMode(env.Path("src"), env.Path("dst"), 3));
    EXPECT_GE(yields, 1);
}

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
        ::unlink(env.Path("dst").c_str());
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
    CopyMethodsGuard guard;
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
    CopyMethodsGuard guard;
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
