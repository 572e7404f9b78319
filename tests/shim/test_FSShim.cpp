// The file-system shim itself: each rule bites below its root, and nothing changes outside it
// or without the rule. The probe (FSShimProbe.cpp) makes the calls and prints the answers.

#include "FSShimEnv.h"
#include "TestSupport.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <regex>
#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;

struct ShimTest : ::testing::Test {
    ScopedTestEnv env;
    std::string inside = env.Path("drive");
    std::string outside = env.Path("disk");

    void SetUp() override {
        fs::create_directories(inside);
        fs::create_directories(outside);
    }
    // The probe's line, run with `rules` below the test's drive folder.
    std::string Probe(const std::string& rules, const std::vector<std::string>& args,
                      ProgramEnv extra = {}) const {
        ProgramEnv env = ShimEnv(inside, rules);
        env.insert(env.end(), extra.begin(), extra.end());
        const ProgramRun run = RunningProgram(args, env, FSSHIM_PROBE).Wait(60);
        EXPECT_EQ(run.exitCode, 0) << run.err;
        EXPECT_EQ(run.err, "");
        return run.out;
    }
};

TEST_F(ShimTest, NoTmpfileRefusesAnonymousFilesInEveryOpenBelowTheRootOnly) {
    const std::string refused =
        "open=EOPNOTSUPP open64=EOPNOTSUPP openat=EOPNOTSUPP openat64=EOPNOTSUPP\n";
    const std::string allowed = "open=ok open64=ok openat=ok openat64=ok\n";
    EXPECT_EQ(Probe("no-tmpfile", {"tmpfile", inside}), refused);
    fs::create_directories(inside + "/Files/ab");
    EXPECT_EQ(Probe("no-tmpfile", {"tmpfile", inside + "/Files/ab/../ab"}), refused);
    EXPECT_EQ(Probe("no-tmpfile", {"tmpfile", outside}), allowed);
    EXPECT_EQ(Probe("no-chmod", {"tmpfile", inside}), allowed);
}

TEST_F(ShimTest, RootReachedThroughALinkIsStillTheRoot) {
    fs::create_directory_symlink(inside, env.Path("link"));
    EXPECT_EQ(Probe("no-tmpfile", {"tmpfile", env.Path("link")}),
              "open=EOPNOTSUPP open64=EOPNOTSUPP openat=EOPNOTSUPP openat64=EOPNOTSUPP\n");
}

TEST_F(ShimTest, NoChmodRefusesEveryModeChangeBelowTheRootOnly) {
    WriteFile(inside + "/f", "x");
    WriteFile(outside + "/f", "x");
    EXPECT_EQ(Probe("no-chmod", {"chmod", inside + "/f"}),
              "chmod=EPERM fchmod=EPERM fchmodat=EPERM\n");
    EXPECT_EQ(Probe("no-chmod", {"chmod", outside + "/f"}), "chmod=ok fchmod=ok fchmodat=ok\n");
}

TEST_F(ShimTest, NoLockRefusesFlockBelowTheRootOnly) {
    EXPECT_EQ(Probe("no-lock", {"flock", inside + "/QRV.lock"}), "flock=ENOLCK\n");
    EXPECT_EQ(Probe("no-lock", {"flock", outside + "/QRV.lock"}), "flock=ok\n");
    EXPECT_EQ(Probe("", {"flock", inside + "/QRV.lock"}), "flock=ok\n");
}

TEST_F(ShimTest, NoAppendRefusesAppendsToAFileThatHeldSomething) {
    // A new or empty file takes its first lines, as fusefat's does.
    EXPECT_EQ(Probe("no-append", {"append", inside + "/new.LOG", "line\r\n"}),
              "write=6 writev=6\n");
    EXPECT_EQ(Probe("no-append", {"append", inside + "/new.LOG", "more\r\n"}),
              "write=EPERM writev=EPERM\n");
    EXPECT_EQ(ReadFile(inside + "/new.LOG"), "line\r\nline\r\n");
    WriteFile(outside + "/old.LOG", "old\r\n");
    EXPECT_EQ(Probe("no-append", {"append", outside + "/old.LOG", "more\r\n"}),
              "write=6 writev=6\n");
}

TEST_F(ShimTest, NoRenameFlagsRefusesRenameat2WithAFlagBelowTheRootOnly) {
    WriteFile(inside + "/a", "a");
    WriteFile(outside + "/a", "a");
    EXPECT_EQ(Probe("no-rename-flags", {"rename", inside + "/a", inside + "/b"}),
              "renameat2=EINVAL\n");
    EXPECT_TRUE(Exists(inside + "/a"));
    EXPECT_EQ(Probe("no-rename-flags", {"rename", outside + "/a", outside + "/b"}),
              "renameat2=ok\n");
    EXPECT_TRUE(Exists(outside + "/b"));
}

TEST_F(ShimTest, Fat32SizeStopsAFileAtFourGibibytesAndMakesZerosHoles) {
    EXPECT_EQ(Probe("fat32-size", {"fat32", inside}),
              "write=5 again=EFBIG pwrite=EFBIG ftruncate=EFBIG fallocate=EFBIG size=4294967295 "
              "tail=5:01234 zeros=8388608 sparse=yes copy_file_range=EOPNOTSUPP\n");
    struct stat st {};
    ASSERT_EQ(::stat((inside + "/big").c_str(), &st), 0);
    EXPECT_LT(st.st_blocks * 512, 1 << 20); // the test itself cost no disk
}

TEST_F(ShimTest, Fat32SizeLeavesFilesOutsideTheRootAlone) {
    const std::string line = Probe("fat32-size", {"fat32", outside});
    EXPECT_EQ(line.substr(0, line.find(" zeros=")), "write=10 again=1 pwrite=3 ftruncate=ok "
                                                    "fallocate=ok size=4294967297 tail=5:01234");
    EXPECT_NE(line.find(" zeros=8388608 sparse=no copy_file_range=4096\n"), std::string::npos)
        << line;
}

// The milliseconds after `name=` in the probe's line.
long long Number(const std::string& line, const std::string& name) {
    std::smatch match;
    const std::regex pattern(" ?" + name + "=(\\d+)");
    if (!std::regex_search(line, match, pattern)) return -1;
    return std::stoll(match[1]);
}

TEST_F(ShimTest, ClockSpeedRunsTheMonotonicClocksFasterAndWaitsStillEnd) {
    const std::string fast = Probe("", {"clock", "50"}, {{"QRV_SHIM_CLOCK_SPEED", "1000"}});
    // At least 50 real milliseconds, each read in whole milliseconds.
    EXPECT_GE(Number(fast, "monotonic"), 48000) << fast;
    EXPECT_LT(Number(fast, "monotonic"), 2000000) << fast;
    EXPECT_GE(Number(fast, "steady"), 48000) << fast;
    EXPECT_NE(fast.find(" wait=timeout "), std::string::npos) << fast;
    // 200 ms of the fast clock pass in a fifth of a real millisecond.
    EXPECT_LT(Number(fast, "wait-real"), 100) << fast;

    const std::string normal = Probe("", {"clock", "50"});
    EXPECT_GE(Number(normal, "monotonic"), 49) << normal;
    EXPECT_LT(Number(normal, "monotonic"), 5000) << normal;
    EXPECT_GE(Number(normal, "wait-real"), 199) << normal;
}

} // namespace
