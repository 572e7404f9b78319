// A restore gives back the folder as it was: files with their times and permission bits, empty
// files, symbolic links (as links, never followed) and folders with their own times and bits.
// A tree with modes from 0600 to 0755, a setuid file, times from 1999, from the future and to
// the nanosecond, empty files at several depths, links to a file, to a folder, dangling and
// relative, an empty folder and private folders is backed up by the real program and restored
// with qrv and with the window's routine, to the place and elsewhere, and compared entry by
// entry with what `find` lists of the original. A run made before the metadata record existed,
// and a restore told not to use it, give the bytes only, as always.

#include "BackupFixture.h"
#include "FindListing.h"
#include "TestProgram.h"
#include "app/CBackupBrowser.h"
#include "app/modPaths.h"
#include "app/modRestore.h"
#include "catalogue/CMetadataDB.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int64_t kSecond = 1'000'000'000;

void SetTime(const std::string& path, int64_t ns) {
    const timespec times[2] = {{0, UTIME_OMIT}, {static_cast<time_t>(ns / kSecond), ns % kSecond}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << path;
}

void SetMeta(const std::string& path, mode_t mode, int64_t ns) {
    ASSERT_EQ(::chmod(path.c_str(), mode), 0) << path;
    SetTime(path, ns);
}

void Link(const std::string& text, const std::string& path, int64_t ns) {
    ASSERT_EQ(::symlink(text.c_str(), path.c_str()), 0) << path;
    SetTime(path, ns);
}

struct RestoreMetadataTest : ::testing::Test {
    BackupFixture f;
    std::string src = f.env.Path("src");
    std::string to = f.env.Path("restored");
    std::map<std::string, std::string> original;

    RestoreMetadataTest() {
        CreateTree(src, Dir({{"private.key", File("secret")},
                             {"notes.txt", File("notes")},
                             {"empty.txt", File("")},
                             {"bin", Dir({{"run.sh", File("#!/bin/sh\n")},
                                          {"tool", File("tool")},
                                          {"group.sh", File("group")}})},
                             {"future.txt", File("later")},
                             {"nothing here", Dir()},
                             {"private", Dir({{"deep", Dir({{"empty", File("")},
                                                            {"deeper", Dir({{"e", File("")}})},
                                                            {"data.bin", File("data")}})}})},
                             {"shut", Dir({{"inside.txt", File("inside")}})}}));
        SetMeta(src + "/private.key", 0600, 915'148'800'123'456'789);
        SetMeta(src + "/notes.txt", 0644, 1'700'000'000'000'000'001);
        SetMeta(src + "/empty.txt", 0604, 1'200'000'000'000'000'000);
        SetMeta(src + "/bin/run.sh", 0755, 1'600'000'000'999'999'999);
        SetMeta(src + "/bin/tool", 04755, 1'500'000'000'000'000'000);
        SetMeta(src + "/bin/group.sh", 0750, 1'400'000'000'500'000'000);
        SetMeta(src + "/future.txt", 0640, 4'102'444'800'000'000'007);
        SetMeta(src + "/private/deep/empty", 0600, 1'100'000'000'000'000'003);
        SetMeta(src + "/private/deep/deeper/e", 0700, 1'000'000'000'000'000'000);
        SetMeta(src + "/private/deep/data.bin", 0640, 1'300'000'000'000'000'000);
        SetMeta(src + "/shut/inside.txt", 0644, 1'350'000'000'000'000'000);
        Link("notes.txt", src + "/to-notes", 1'234'567'890'000'000'000);
        Link("private/deep", src + "/to-folder", 1'234'567'891'000'000'000);
        Link("/nowhere/at/all", src + "/dangling", 1'234'567'892'000'000'000);
        Link("../../notes.txt", src + "/private/deep/up", 1'234'567'893'000'000'000);
        // Folders last, deepest first, so that making their content does not change them.
        SetMeta(src + "/private/deep/deeper", 0700, 1'010'000'000'000'000'000);
        SetMeta(src + "/private/deep", 0750, 1'020'000'000'000'000'000);
        SetMeta(src + "/private", 0700, 1'030'000'000'000'000'000);
        SetMeta(src + "/bin", 0755, 1'040'000'000'000'000'000);
        SetMeta(src + "/nothing here", 0711, 1'050'000'000'000'000'000);
        SetMeta(src + "/shut", 0500, 1'060'000'000'000'000'000);
        SetMeta(src, 0751, 1'070'000'000'000'000'000);
        original = FindListing(src);
        f.AddSource(src);
        const ProgramRun run = RunStashwell({"backup"});
        EXPECT_EQ(run.exitCode, 0) << run.err;
    }

    // What a restore below another folder gives: the same, without the setuid bit, which only
    // a superuser's restore into the original place gives back.
    std::map<std::string, std::string> Elsewhere() const {
        std::map<std::string, std::string> expected = original;
        expected["/bin/tool"].replace(2, 4, "755");
        return expected;
    }

    // The restored tree as the one restore into the place gives it.
    std::map<std::string, std::string> InPlace() const {
        return ::geteuid() == 0 ? original : Elsewhere();
    }
};

TEST_F(RestoreMetadataTest, TheOriginalIsListedAsMade) {
    // The listing itself, so that a comparison with it means what it says.
    EXPECT_EQ(original.at("/bin/tool"), "f 4755 1500000000.0000000000 4 ");
    EXPECT_EQ(original.at("/private.key"), "f 600 915148800.1234567890 6 ");
    EXPECT_EQ(original.at("/private/deep/empty"), "f 600 1100000000.0000000030 0 ");
    EXPECT_EQ(original.at("/dangling"), "l 777 1234567892.0000000000 15 /nowhere/at/all");
    EXPECT_EQ(original.at("/private/deep/up"), "l 777 1234567893.0000000000 15 ../../notes.txt");
    EXPECT_EQ(original.at("/shut"), "d 500 1060000000.0000000000 -");
    EXPECT_EQ(original.at("/"), "d 751 1070000000.0000000000 -");
    EXPECT_EQ(original.size(), 22u);
}

TEST_F(RestoreMetadataTest, QrvGivesBackTheFolderAsItWasToThePlaceAndElsewhere) {
    ProgramRun run = RunQrv({"restore", "1", "--to", to, "--verify"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(FindListing(to), Elsewhere());

    ASSERT_EQ(::chmod((src + "/shut").c_str(), 0700), 0);
    std::filesystem::remove_all(src);
    run = RunQrv({"restore", "1"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(FindListing(src), InPlace());
}

TEST_F(RestoreMetadataTest, TheWindowsRestoreOfTheTickedRootGivesItBackToo) {
    CBackupBrowser browser;
    browser.cmbBackups_Click("1");
    ASSERT_NE(browser.Root(), CBackupBrowser::kNone);
    browser.NodeCheck(browser.Root(), true);
    browser.LoadCheckedFolders(browser.Root()); // as the restore buttons do
    browser.RestoreChecked(browser.Root(), to, true);
    EXPECT_EQ(FindListing(to), Elsewhere());

    ASSERT_EQ(::chmod((src + "/shut").c_str(), 0700), 0);
    std::filesystem::remove_all(src);
    browser.RestoreChecked(browser.Root(), "", true);
    EXPECT_EQ(FindListing(src), InPlace());
}

TEST_F(RestoreMetadataTest, OnlyTheTickedFoldersGetTheirEntriesAndTimes) {
    CBackupBrowser browser;
    browser.cmbBackups_Click("1");
    const int32_t deep = browser.Find(src + "/private/deep/");
    ASSERT_NE(deep, CBackupBrowser::kNone);
    browser.NodeCheck(deep, true);
    browser.NodeCheck(browser.Find(src + "/private/deep/deeper/"), false);
    browser.LoadCheckedFolders(browser.Root());
    browser.RestoreChecked(browser.Root(), to, false);
    const std::map<std::string, std::string> restored = FindListing(to);
    // The ticked folder: its file, its empty file, its link and its own time and bits.
    for (const char* path :
         {"/private/deep", "/private/deep/data.bin", "/private/deep/empty", "/private/deep/up"})
        EXPECT_EQ(restored.at(path), original.at(path)) << path;
    // The unticked one below it holds only an empty file: nothing of it is made.
    EXPECT_EQ(restored.count("/private/deep/deeper"), 0u);
    // The folders above, never ticked, are made as any restore makes them.
    EXPECT_NE(restored.at("/private"), original.at("/private"));
    EXPECT_EQ(restored.count("/empty.txt"), 0u);
    EXPECT_EQ(restored.count("/to-notes"), 0u);
}

TEST_F(RestoreMetadataTest, QrvRestoresANamedLinkOrEmptyFileAlone) {
    ProgramRun run = RunQrv({"restore", "1", "dangling", "private/deep/empty", "--to", to});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, "Restored 0 files (0 bytes) of run 1 into " + to + ".\n");
    const std::map<std::string, std::string> restored = FindListing(to);
    EXPECT_EQ(restored.at("/dangling"), original.at("/dangling"));
    EXPECT_EQ(restored.at("/private/deep/empty"), original.at("/private/deep/empty"));
    EXPECT_EQ(restored.size(), 5u); // with "/", "/private" and "/private/deep"
}

TEST_F(RestoreMetadataTest, WithoutMetadataQrvRestoresTheBytesOnly) {
    const ProgramRun run = RunQrv({"restore", "1", "--to", to, "--no-metadata"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, "Restored 8 files (45 bytes) of run 1 into " + to + ".\n");
    const std::map<std::string, std::string> restored = FindListing(to);
    // No empty file, no link, no empty folder; every file with today's time and default mode.
    EXPECT_EQ(restored.count("/empty.txt"), 0u);
    EXPECT_EQ(restored.count("/to-notes"), 0u);
    EXPECT_EQ(restored.count("/nothing here"), 0u);
    const mode_t mask = ::umask(0);
    ::umask(mask);
    char mode[8];
    std::snprintf(mode, sizeof mode, "f %o ", 0666 & ~mask);
    EXPECT_EQ(restored.at("/private.key").substr(0, std::strlen(mode)), mode);
    EXPECT_NE(restored.at("/private.key"), original.at("/private.key"));
}

TEST_F(RestoreMetadataTest, ARunWithoutARecordRestoresAsItAlwaysDid) {
    // As a run made by an earlier version: no record beside the catalogue.
    std::filesystem::remove(CMetadataDB::PathBeside(GetDBPath()));
    const ProgramRun run = RunQrv({"restore", "1", "--to", to});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const mode_t mask = ::umask(0);
    ::umask(mask);
    char mode[8];
    std::snprintf(mode, sizeof mode, "%o", 0666 & ~mask);
    size_t files = 0;
    for (const auto& [path, entry] : FindListing(to)) {
        if (entry[0] != 'f') {
            EXPECT_EQ(entry[0], 'd') << path; // no link comes back
            continue;
        }
        ++files;
        EXPECT_EQ(entry.substr(2, std::strlen(mode)), mode) << path;
        EXPECT_NE(entry, original.at(path)) << path;
    }
    EXPECT_EQ(files, 8u); // the empty files do not come back
}

// A link of the run that leads out of the folder restored into comes back as that link, and
// nothing is written through it; nor through a link that stood in a restored entry's place.
TEST_F(RestoreMetadataTest, ALinkLeadingOutsideIsMadeAndNothingGoesThroughIt) {
    const std::string outside = f.env.Path("etc");
    ASSERT_EQ(::mkdir(outside.c_str(), 0700), 0);
    ASSERT_EQ(::mkdir((src + "/a").c_str(), 0700), 0);
    ASSERT_EQ(::mkdir((src + "/a/b").c_str(), 0700), 0);
    ASSERT_EQ(::symlink("../../etc", (src + "/a/b/escape").c_str()), 0);
    ASSERT_EQ(RunStashwell({"backup"}).exitCode, 0);
    const std::string restoreTo = f.env.Path("restored/x/y");

    const ProgramRun run = RunQrv({"restore", "2", "--to", restoreTo});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    std::string text(64, '\0');
    const ssize_t length =
        ::readlink((restoreTo + "/a/b/escape").c_str(), text.data(), text.size());
    ASSERT_GT(length, 0);
    EXPECT_EQ(text.substr(0, static_cast<size_t>(length)), "../../etc");
    EXPECT_TRUE(ListTree(outside).empty());

    // Restored again into the place: the link there is replaced, never followed; an empty file
    // whose place holds a link to somewhere else is refused and writes nothing there.
    const std::string victim = f.env.Path("victim.txt");
    WriteFile(victim, "keep me");
    ASSERT_EQ(::unlink((src + "/empty.txt").c_str()), 0);
    ASSERT_EQ(::symlink(victim.c_str(), (src + "/empty.txt").c_str()), 0);
    ASSERT_EQ(::unlink((src + "/a/b/escape").c_str()), 0);
    ASSERT_EQ(::symlink(victim.c_str(), (src + "/a/b/escape").c_str()), 0);
    const ProgramRun again = RunQrv({"restore", "2"});
    EXPECT_EQ(again.exitCode, 1);
    EXPECT_EQ(again.err, "qrv: not restored: " + src + "/empty.txt: a symbolic link stands at " +
                             src + "/empty.txt\n");
    EXPECT_EQ(again.out, "Restored 8 files (45 bytes) of run 2 to their places.\n"
                         "1 empty file, link or folder not restored.\n");
    EXPECT_EQ(ReadFile(victim), "keep me");
    const ssize_t replaced = ::readlink((src + "/a/b/escape").c_str(), text.data(), text.size());
    ASSERT_GT(replaced, 0);
    EXPECT_EQ(text.substr(0, static_cast<size_t>(replaced)), "../../etc");
}

} // namespace
