// qrv check on a backup folder that the real program made: sound, then with a store file
// missing, cut short and altered (each named with the runs' files that hold it), the content
// read with --read-data, and --repair moving bad store files into Quarantine/ so that the next
// backup stores their content afresh.

#include "OddNamesBackup.h"
#include "app/CBackupFolderLock.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <regex>
#include <sys/stat.h>
#include <unistd.h>

namespace {

struct QrvCheckTest : ::testing::Test {
    OddNamesBackup f;
    std::string src = f.src;

    void SetUp() override { f.Backup(); } // run 2 holds the same files as run 1

    std::string HeldBy(const std::string& file) const {
        return "  held by run 1: " + src + file + "\n  held by run 2: " + src + file + "\n";
    }
    std::string Store(const std::string& content) const { return StoreFile(f.backup, content); }
};

TEST_F(QrvCheckTest, ASoundBackupFolderPasses) {
    const ProgramRun run = RunQrv({"check"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, "Checked 2 runs, 14 files and 7 store files: no problems.\n");
    const ProgramRun read = RunQrv({"check", "--read-data"});
    EXPECT_EQ(read.exitCode, 0);
    EXPECT_EQ(read.out,
              "Checked 2 runs, 14 files and 7 store files, read 7 store files: no problems.\n");
}

// On a terminal (the one `script` gives it) the reading tells the store files and the bytes
// read so far, of all there are.
TEST_F(QrvCheckTest, OnATerminalTheReadingTellsFilesAndBytes) {
    if (::access("/usr/bin/script", X_OK) != 0)
        GTEST_SKIP() << "no script program to give a terminal";
    const ProgramRun run =
        RunningProgram({"-qec", QrvProgram() + " check --read-data", "/dev/null"}, {},
                       "/usr/bin/script")
            .Wait();
    EXPECT_EQ(run.exitCode, 0) << run.out << run.err;
    EXPECT_TRUE(std::regex_search(
        run.out,
        std::regex("Reading store files: [1-7] of 7, ([0-9]+ bytes|[0-9.]+ kB) of 308 kB")))
        << run.out;
    EXPECT_NE(run.out.find("read 7 store files: no problems."), std::string::npos) << run.out;
}

TEST_F(QrvCheckTest, AMissingStoreFileIsNamedWithTheFilesThatNeedIt) {
    ASSERT_EQ(::unlink(Store("alpha").c_str()), 0);
    const ProgramRun run = RunQrv({"check"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, "missing: " + Store("alpha") + "\n" + HeldBy("/a.txt") +
                           "Checked 2 runs, 14 files and 7 store files: 1 problem.\n");
}

// Rows naming store files that are not of the store's own form: each is looked for by its
// name, in the folders its first characters name, beside the usual ones.
TEST_F(QrvCheckTest, StoreFilesOfOtherNamesAreEachLookedForByTheirNames) {
    const std::string odd = f.backup + "/Files/AB/CD/ABCDEF0123456789ABCDEF0123456789.QRV";
    const std::string other = f.backup + "/Files/no/t /not a signature.qrv";
    f.Exec("INSERT INTO Files (bid, md5, path, file, backup, size) VALUES (2, 'x', '" + src +
           "/', '" + src + "/odd', '" + odd + "', 5), (2, 'y', '" + src + "/', '" + src +
           "/other1', '" + other + "', 3), (2, 'y', '" + src + "/', '" + src + "/other2', '" +
           other + "', 4)");
    const ProgramRun run = RunQrv({"check"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.out, "missing: " + odd + "\n  held by run 2: " + src + "/odd\n" +
                           "missing: " + other + "\n  held by run 2: " + src +
                           "/other1\n  held by run 2: " + src + "/other2\n" +
                           "Checked 2 runs, 17 files and 9 store files: 2 problems.\n");
}

TEST_F(QrvCheckTest, AStoreFileCutShortIsNamedWithItsSize) {
    WriteFile(Store("newline"), "new");
    const ProgramRun run = RunQrv({"check"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.out, "wrong size: " + Store("newline") +
                           ": it holds 3 bytes, the catalogue records 7\n" +
                           HeldBy("/new\\nline.txt") +
                           "Checked 2 runs, 14 files and 7 store files: 1 problem.\n");
}

TEST_F(QrvCheckTest, AnAlteredStoreFileIsFoundOnlyByReadingIt) {
    WriteFile(Store("apostrophe"), "APOSTROPHE");
    EXPECT_EQ(RunQrv({"check"}).exitCode, 0);
    const ProgramRun run = RunQrv({"check", "--read-data"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.out, "altered: " + Store("apostrophe") + ": its content has the signature " +
                           TestSignature("APOSTROPHE") + "\n" + HeldBy("/sub/Bob's file.txt") +
                           "Checked 2 runs, 14 files and 7 store files, read 7 store files: 1 "
                           "problem.\n");
}

TEST_F(QrvCheckTest, MissingCutShortAndAlteredTogetherAreEachNamed) {
    ASSERT_EQ(::unlink(Store("alpha").c_str()), 0);
    WriteFile(Store("newline"), "new");
    WriteFile(Store("apostrophe"), "APOSTROPHE");
    const std::string junk = f.backup + "/Files/00/00/00000000000000000000000000000000.QRV";
    ASSERT_EQ(::mkdir((f.backup + "/Files/00").c_str(), 0700), 0);
    ASSERT_EQ(::mkdir((f.backup + "/Files/00/00").c_str(), 0700), 0);
    WriteFile(junk, "held by nobody");
    const ProgramRun run = RunQrv({"check", "--read-data"});
    EXPECT_EQ(run.exitCode, 1);
    std::map<std::string, std::string> problems = {
        {TestSignature("alpha"), "missing: " + Store("alpha") + "\n" + HeldBy("/a.txt")},
        {TestSignature("newline"), "wrong size: " + Store("newline") +
                                       ": it holds 3 bytes, the catalogue records 7; its content "
                                       "has the signature " +
                                       TestSignature("new") + "\n" + HeldBy("/new\\nline.txt")},
        {TestSignature("apostrophe"),
         "altered: " + Store("apostrophe") + ": its content has the signature " +
             TestSignature("APOSTROPHE") + "\n" + HeldBy("/sub/Bob's file.txt")},
        {std::string(32, '0'), "altered: " + junk + ": its content has the signature " +
                                   TestSignature("held by nobody") + "\n  held by no run\n"},
    };
    std::string expected;
    for (const auto& [name, text] : problems)
        expected += text;
    // Six store files of the runs are there, and the one no run holds.
    EXPECT_EQ(run.out, expected + "Checked 2 runs, 14 files and 7 store files, read 7 store "
                                  "files: 4 problems.\n");
}

TEST_F(QrvCheckTest, RepairQuarantinesBadContentAndTheNextBackupStoresItAfresh) {
    WriteFile(Store("newline"), "new");
    WriteFile(Store("apostrophe"), "APOSTROPHE");
    const std::string quarantine = f.backup + "/Quarantine/";
    const std::string newline = TestSignature("newline") + ".QRV";
    const std::string apostrophe = TestSignature("apostrophe") + ".QRV";
    const ProgramRun run = RunQrv({"check", "--read-data", "--repair"});
    EXPECT_EQ(run.exitCode, 1);
    std::map<std::string, std::string> problems = {
        {newline, "wrong size: " + Store("newline") +
                      ": it holds 3 bytes, the catalogue records 7; its content has the "
                      "signature " +
                      TestSignature("new") + "\n" + HeldBy("/new\\nline.txt") + "  moved to " +
                      quarantine + newline + "; the next backup stores this content afresh\n"},
        {apostrophe, "altered: " + Store("apostrophe") + ": its content has the signature " +
                         TestSignature("APOSTROPHE") + "\n" + HeldBy("/sub/Bob's file.txt") +
                         "  moved to " + quarantine + apostrophe +
                         "; the next backup stores this content afresh\n"},
    };
    std::string expected;
    for (const auto& [name, text] : problems)
        expected += text;
    EXPECT_EQ(run.out, expected + "Checked 2 runs, 14 files and 7 store files, read 7 store "
                                  "files: 2 problems.\n");
    std::vector<std::string> moved = {apostrophe, newline};
    std::sort(moved.begin(), moved.end());
    EXPECT_EQ(ListTree(quarantine), moved);
    EXPECT_EQ(ReadFile(quarantine + apostrophe), "APOSTROPHE");
    EXPECT_FALSE(Exists(Store("newline")));
    EXPECT_FALSE(Exists(Store("apostrophe")));
    // The runs are as they were.
    EXPECT_EQ(f.Rows("SELECT count(*) FROM Files"), (std::vector<std::string>{"14"}));

    f.Backup();
    EXPECT_EQ(ReadFile(Store("newline")), "newline");
    EXPECT_EQ(ReadFile(Store("apostrophe")), "apostrophe");
    const ProgramRun after = RunQrv({"check", "--read-data"});
    EXPECT_EQ(after.exitCode, 0);
    EXPECT_EQ(after.out,
              "Checked 3 runs, 21 files and 7 store files, read 7 store files: no problems.\n");
}

TEST_F(QrvCheckTest, AFolderOrALinkInAStoreFilesPlaceIsNamed) {
    ASSERT_EQ(::unlink(Store("alpha").c_str()), 0);
    ASSERT_EQ(::mkdir(Store("alpha").c_str(), 0700), 0);
    ASSERT_EQ(::unlink(Store("newline").c_str()), 0);
    ASSERT_EQ(::symlink(Store("apostrophe").c_str(), Store("newline").c_str()), 0);
    const ProgramRun run = RunQrv({"check"});
    EXPECT_EQ(run.exitCode, 1);
    std::map<std::string, std::string> problems = {
        {Store("alpha"), "not a file: " + Store("alpha") + ": it is a folder\n" + HeldBy("/a.txt")},
        {Store("newline"), "not a file: " + Store("newline") + ": it is a symbolic link\n" +
                               HeldBy("/new\\nline.txt")},
    };
    EXPECT_EQ(run.out, problems.begin()->second + problems.rbegin()->second +
                           "Checked 2 runs, 14 files and 7 store files: 2 problems.\n");
}

TEST_F(QrvCheckTest, TheSameContentDamagedInBothLayoutsIsNamedAndMovedTwice) {
    // A copy of the earlier flat layout beside the two-level one, both altered.
    const std::string flat = f.backup + "/Files/" + TestSignature("apostrophe") + ".QRV";
    WriteFile(flat, "APOSTROPHE");
    WriteFile(Store("apostrophe"), "Apostrophe");
    const ProgramRun run = RunQrv({"check", "--read-data", "--repair"});
    EXPECT_EQ(run.exitCode, 1);
    const std::string quarantine = f.backup + "/Quarantine/" + TestSignature("apostrophe") + ".QRV";
    std::map<std::string, std::string> problems = {
        {flat, "altered: " + flat + ": its content has the signature " +
                   TestSignature("APOSTROPHE") + "\n" + HeldBy("/sub/Bob's file.txt")},
        {Store("apostrophe"), "altered: " + Store("apostrophe") +
                                  ": its content has the signature " + TestSignature("Apostrophe") +
                                  "\n" + HeldBy("/sub/Bob's file.txt")},
    };
    EXPECT_NE(run.out.find(problems.begin()->second), std::string::npos) << run.out;
    EXPECT_NE(run.out.find(problems.rbegin()->second), std::string::npos) << run.out;
    EXPECT_FALSE(Exists(flat));
    EXPECT_FALSE(Exists(Store("apostrophe")));
    EXPECT_EQ(ListTree(f.backup + "/Quarantine").size(), 2u);
    f.Backup();
    EXPECT_EQ(RunQrv({"check", "--read-data"}).exitCode, 0);
}

TEST_F(QrvCheckTest, ProblemsAsJson) {
    ASSERT_EQ(::unlink(Store("alpha").c_str()), 0);
    const ProgramRun run = RunQrv({"check", "--json"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.out, "{\"backup_path\":\"" + f.backup +
                           "\",\"catalogue\":[\"ok\"],\"runs\":2,\"files\":14,\"store_files\":7,"
                           "\"read_data\":false,\"read\":0,\"problems\":[{\"kind\":\"missing\","
                           "\"store_file\":\"" +
                           Store("alpha") +
                           "\",\"detail\":\"\",\"held_by\":[{\"bid\":1,\"file\":\"" + src +
                           "/a.txt\"},{\"bid\":2,\"file\":\"" + src +
                           "/a.txt\"}],\"quarantined\":\"\"}]}\n");
}

TEST_F(QrvCheckTest, ARepairWaitsForTheFolderAndACheckDoesNot) {
    WriteFile(Store("apostrophe"), "APOSTROPHE");
    CBackupFolderLock held; // as a backup or compact of another process holds it
    ASSERT_TRUE(held.Acquire(f.backup));
    const ProgramRun repair = RunQrv({"check", "--read-data", "--repair"});
    EXPECT_EQ(repair.exitCode, 4);
    EXPECT_EQ(repair.out, "");
    EXPECT_EQ(repair.err, "qrv: Another Stashwell is working on the backup folder " + f.backup +
                              ". Please try again when it has finished.\n");
    EXPECT_EQ(ReadFile(Store("apostrophe")), "APOSTROPHE");
    EXPECT_FALSE(Exists(f.backup + "/Quarantine"));
    const ProgramRun check = RunQrv({"check", "--read-data"});
    EXPECT_EQ(check.exitCode, 1);
    EXPECT_EQ(check.out.substr(0, 9 + Store("apostrophe").size()),
              "altered: " + Store("apostrophe"));
}

} // namespace
