// Backups while another process rewrites, appends to and truncates the source files: after
// every run the backup folder passes the audit (every store file holds the content its name
// signs, every row describes what is stored), and a later quiet run of the original contents
// restores the original bytes.

#include "BackupFixture.h"
#include "FSShimEnv.h"
#include "StagingWays.h"
#include "StoreAudit.h"
#include "TestProgram.h"
#include "app/modRestore.h"
#include "support/modServices.h"

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <map>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Lines = std::vector<std::string>;

// A writer process that changes the files for `seconds`, as busy programs do: new bytes of the
// same size written in place, bytes appended, the file cut short, the file written anew.
pid_t StartWriter(const std::vector<std::string>& files, int seconds) {
    const pid_t pid = ::fork();
    if (pid != 0) return pid;
    uint64_t state = 88172645463325252ull; // xorshift: no locks, no allocation after the fork
    const auto next = [&] {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        return state;
    };
    char bytes[65536];
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    while (std::chrono::steady_clock::now() < deadline) {
        const std::string& path = files[next() % files.size()];
        for (char& c : bytes)
            c = static_cast<char>(next());
        const int fd = ::open(path.c_str(), O_WRONLY);
        if (fd < 0) continue;
        const off_t size = ::lseek(fd, 0, SEEK_END);
        const size_t some = 1 + next() % sizeof bytes;
        switch (next() % 4) {
        case 0: // same size, new bytes in place
            ::pwrite(fd, bytes, std::min<size_t>(some, static_cast<size_t>(size)), 0);
            break;
        case 1: // appended
            ::pwrite(fd, bytes, some, size);
            break;
        case 2: // cut short
            ::ftruncate(fd,
                        size > 0 ? static_cast<off_t>(next() % static_cast<uint64_t>(size)) : 0);
            break;
        default: // written anew
            ::ftruncate(fd, 0);
            ::pwrite(fd, bytes, some, 0);
            break;
        }
        ::close(fd);
        ::usleep(static_cast<useconds_t>(200 + next() % 800));
    }
    ::_exit(0);
}

bool Running(pid_t pid) {
    int status = 0;
    return ::waitpid(pid, &status, WNOHANG) == 0;
}

class ConcurrentWriter : public ::testing::TestWithParam<StagingWay> {};

TEST_P(ConcurrentWriter, EveryRunPassesTheAuditAndAQuietRunRestoresTheOriginals) {
    BackupFixture f;
    f.SetOption("MaxBackups", "100");
    const std::string src = f.env.Path("src");
    MakeRandomFiles(src, 80, 7);
    CreateTree(src + "/large", Dir({{"a.bin", File(PatternContent(4 << 20))},
                                    {"b.bin", File("b" + PatternContent(4 << 20))}}));
    f.AddSource(src);
    std::map<std::string, std::string> originals;
    for (const std::string& path : WalkOrder(src))
        originals[path] = ReadFile(path);
    const std::vector<std::string> files = WalkOrder(src);

    AuditCache cache;
    const pid_t writer = StartWriter(files, 4);
    ASSERT_GT(writer, 0);
    int runs = 0;
    while (Running(writer) || runs < 3) {
        const ProgramRun run = RunStashwell({"backup"}, 120, StagingEnv(GetParam(), f.backup));
        ASSERT_EQ(run.exitCode, 0) << run.err;
        ++runs;
        EXPECT_EQ(AuditBackupFolder(f.backup, AuditMoment::kAfterCleanRun, &cache), Lines{})
            << "after run " << runs;
    }
    ::kill(writer, SIGKILL);
    ::waitpid(writer, nullptr, 0);
    EXPECT_GE(runs, 3);

    // The original contents back, and a quiet run of them.
    for (const auto& [path, content] : originals)
        WriteFile(path, content);
    ASSERT_EQ(RunStashwell({"backup"}, 120, StagingEnv(GetParam(), f.backup)).exitCode, 0);
    EXPECT_EQ(AuditBackupFolder(f.backup, AuditMoment::kAfterCleanRun, &cache), Lines{});
    const std::string bid = CommittedRuns(f.backup).back();
    const std::string other = f.env.Path("restored");
    const Lines keys = f.Rows("SELECT file FROM Files WHERE bid = " + bid);
    EXPECT_EQ(keys.size(), originals.size());
    for (const std::string& key : keys)
        RestoreFile(bid, key, other, true);
    for (const auto& [path, content] : originals)
        EXPECT_TRUE(ReadFile(other + path.substr(src.size())) == content) << path;
    EXPECT_TRUE(f.env.box.calls.empty());
}

} // namespace

namespace {
STAGING_WAYS_INSTANTIATE(ConcurrentWriter);
} // namespace
