// The times and permission bits of a run's files come back with them: a tree with modes from 0600
// to 0755, a setuid file, times from 1999, from the future and to the nanosecond, backed up by
// the real program and restored with qrv and with the window's routine, to the place and
// elsewhere; a run made before the metadata record existed restores as it always did.

#include "BackupFixture.h"
#include "TestProgram.h"
#include "app/modPaths.h"
#include "app/modRestore.h"
#include "catalogue/CMetadataDB.h"

#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Mode and write time of each file below `root`, by path below it: "0640 915148800123456789".
std::map<std::string, std::string> Meta(const std::string& root) {
    std::map<std::string, std::string> meta;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
        if (!entry.is_regular_file()) continue;
        struct stat st {};
        if (::stat(entry.path().c_str(), &st) != 0) continue;
        char mode[8];
        std::snprintf(mode, sizeof mode, "%04o", st.st_mode & 07777);
        meta[entry.path().string().substr(root.size())] =
            std::string(mode) + " " +
            std::to_string(int64_t{st.st_mtim.tv_sec} * 1'000'000'000 + st.st_mtim.tv_nsec);
    }
    return meta;
}

void SetMeta(const std::string& path, mode_t mode, int64_t ns) {
    ASSERT_EQ(::chmod(path.c_str(), mode), 0);
    const timespec times[2] = {{0, UTIME_OMIT},
                               {static_cast<time_t>(ns / 1'000'000'000), ns % 1'000'000'000}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

struct RestoreMetadataTest : ::testing::Test {
    BackupFixture f;
    std::string src = f.env.Path("src");
    std::map<std::string, std::string> original;

    RestoreMetadataTest() {
        CreateTree(src, Dir({{"private.key", File("secret")},
                             {"notes.txt", File("notes")},
                             {"bin", Dir({{"run.sh", File("#!/bin/sh\n")},
                                          {"tool", File("tool")},
                                          {"group.sh", File("group")}})},
                             {"future.txt", File("later")}}));
        SetMeta(src + "/private.key", 0600, 915'148'800'123'456'789);
        SetMeta(src + "/notes.txt", 0644, 1'700'000'000'000'000'001);
        SetMeta(src + "/bin/run.sh", 0755, 1'600'000'000'999'999'999);
        SetMeta(src + "/bin/tool", 04755, 1'500'000'000'000'000'000);
        SetMeta(src + "/bin/group.sh", 0750, 1'400'000'000'500'000'000);
        SetMeta(src + "/future.txt", 0640, 4'102'444'800'000'000'007);
        original = Meta(src);
        f.AddSource(src);
        const ProgramRun run = RunStashwell({"backup"});
        EXPECT_EQ(run.exitCode, 0) << run.err;
    }

    // What a restore below another folder gives: the same, without the setuid bit, which only
    // a superuser's restore into the original place gives back.
    std::map<std::string, std::string> Elsewhere() const {
        std::map<std::string, std::string> expected = original;
        expected["/bin/tool"].replace(0, 4, "0755");
        return expected;
    }
};

TEST_F(RestoreMetadataTest, QrvGivesBackTimesAndPermissionBitsToThePlaceAndElsewhere) {
    const std::string to = f.env.Path("restored");
    ProgramRun run = RunQrv({"restore", "1", "--to", to, "--verify"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(Meta(to), Elsewhere());

    std::filesystem::remove_all(src);
    run = RunQrv({"restore", "1"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(Meta(src), ::geteuid() == 0 ? original : Elsewhere());
}

TEST_F(RestoreMetadataTest, TheWindowsRestoreGivesThemBackToo) {
    const std::string to = f.env.Path("restored");
    for (const std::string& key : f.Rows("SELECT file FROM Files WHERE bid = 1 ORDER BY fid"))
        RestoreFile("1", key, to, true);
    EXPECT_EQ(Meta(to), Elsewhere());
}

TEST_F(RestoreMetadataTest, ARunWithoutARecordRestoresAsItAlwaysDid) {
    // As a run made by an earlier version: no record beside the catalogue.
    std::filesystem::remove(CMetadataDB::PathBeside(GetDBPath()));
    const std::string to = f.env.Path("restored");
    const ProgramRun run = RunQrv({"restore", "1", "--to", to});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const mode_t mask = ::umask(0);
    ::umask(mask);
    char mode[8];
    std::snprintf(mode, sizeof mode, "%04o", 0666 & ~mask);
    for (const auto& [path, meta] : Meta(to)) {
        EXPECT_EQ(meta.substr(0, 4), mode) << path;
        EXPECT_NE(meta.substr(5), original.at(path).substr(5)) << path;
    }
}

} // namespace
