// qrv restore on a backup folder that the real program made: a whole run and chosen paths, to
// their places and elsewhere, byte for byte, with odd names; store files deleted, cut short or
// altered; a folder another program keeps busy; names that differ only by an apostrophe and a
// backslash, and two rows of one place in a catalogue written before names kept their
// backslashes.

#include "OddNamesBackup.h"
#include "QuoteNames.h"
#include "app/CBackupFolderLock.h"
#include "catalogue/modSQLQuote.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <regex>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using Tree = std::map<std::string, std::string>;

// The paths and sizes of a tree, to show what a restore made when it is not what was expected.
std::string Names(const Tree& tree) {
    std::string names;
    for (const auto& [path, content] : tree)
        names += path + " (" + std::to_string(content.size()) + ")\n";
    return names;
}

struct QrvRestoreTest : ::testing::Test {
    OddNamesBackup f;
    std::string src = f.src;
    std::string to = f.env.Path("restored");
    Tree original = OddNamesBackup::Tree(src);
    Tree expectedHere = f.ExpectedBelow(src);
    Tree expectedThere = f.ExpectedBelow(to);
    std::string bytes = std::to_string(5 + 300000 + 10 + 8192 + 13 + 7 + 9);

    // The restored files below `root` that `wanted` names (relative to `root`).
    static Tree Only(const Tree& tree, const std::string& root,
                     const std::vector<std::string>& wanted) {
        Tree only;
        for (const std::string& relative : wanted)
            only[root + "/" + relative] = tree.at(root + "/" + relative);
        return only;
    }
};

TEST_F(QrvRestoreTest, AWholeRunComesBackToItsPlace) {
    std::filesystem::remove_all(src);
    const ProgramRun run = RunQrv({"restore", "1"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, "Restored 7 files (" + bytes + " bytes) of run 1 to their places.\n");
    EXPECT_TRUE(OddNamesBackup::Tree(src) == expectedHere) << Names(OddNamesBackup::Tree(src));
}

// On a terminal (here the one `script` gives it) the progress line tells the files and the
// bytes restored; in a pipe, as in every other test, nothing but the results.
TEST_F(QrvRestoreTest, OnATerminalTheProgressLineTellsFilesAndBytes) {
    if (::access("/usr/bin/script", X_OK) != 0)
        GTEST_SKIP() << "no script program to give a terminal";
    const ProgramRun run =
        RunningProgram({"-qec", QrvProgram() + " restore 1 --to '" + to + "'", "/dev/null"}, {},
                       "/usr/bin/script")
            .Wait();
    EXPECT_EQ(run.exitCode, 0) << run.out << run.err;
    // The first file done, whichever the run met first (all are below 1 kB but one).
    EXPECT_TRUE(std::regex_search(
        run.out, std::regex("Restoring 1 of 7 files, ([0-9]+ bytes|300 kB) of 308 kB")))
        << run.out;
    EXPECT_NE(run.out.find("Restored 7 files (" + bytes + " bytes) of run 1 into " + to + "."),
              std::string::npos)
        << run.out;
}

TEST_F(QrvRestoreTest, AWholeRunGoesBelowAnotherFolderAndIsVerified) {
    const ProgramRun run = RunQrv({"restore", "1", "--to", "restored/", "--verify"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out,
              "Restored and verified 7 files (" + bytes + " bytes) of run 1 into " + to + ".\n");
    EXPECT_TRUE(OddNamesBackup::Tree(to) == expectedThere) << Names(OddNamesBackup::Tree(to));
    EXPECT_TRUE(OddNamesBackup::Tree(src) == original); // the source is left alone
}

TEST_F(QrvRestoreTest, ChosenFilesAndFoldersByRelativeAndFullPath) {
    const ProgramRun run =
        RunQrv({"restore", "1", "sub", src + "/bad\xff\xfe.bin", "back\\slash.txt", "--to=" + to});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, "Restored 4 files (" + std::to_string(10 + 8192 + 13 + 9) +
                           " bytes) of run 1 into " + to + ".\n");
    EXPECT_TRUE(OddNamesBackup::Tree(to) == Only(expectedThere, to,
                                                 {"sub/Bob's file.txt", "sub/deeper/d.txt",
                                                  "bad\xff\xfe.bin", "back\\slash.txt"}))
        << Names(OddNamesBackup::Tree(to));
}

TEST_F(QrvRestoreTest, ChosenFilesGoBackToTheirPlaceOverWhatIsThere) {
    WriteFile(src + "/new\nline.txt", "a longer text that the restore replaces");
    WriteFile(src + "/sub/Bob's file.txt", "x");
    const ProgramRun run = RunQrv({"restore", "1", "new\nline.txt", "sub/Bob's file.txt"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out, "Restored 2 files (17 bytes) of run 1 to their places.\n");
    EXPECT_TRUE(OddNamesBackup::Tree(src) == original) << Names(OddNamesBackup::Tree(src));
}

TEST_F(QrvRestoreTest, APathTheRunDoesNotHoldRestoresNothing) {
    const ProgramRun run = RunQrv({"restore", "1", "sub", "missing.txt", "--to", to});
    EXPECT_EQ(run.exitCode, 3);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "qrv: run 1 holds no file or folder " + src + "/missing.txt\n");
    EXPECT_FALSE(Exists(to));
    const ProgramRun noRun = RunQrv({"restore", "4"});
    EXPECT_EQ(noRun.exitCode, 3);
    EXPECT_EQ(noRun.err, "qrv: the catalogue holds no run 4\n");
    const ProgramRun intoFile = RunQrv({"restore", "1", "--to", src + "/a.txt"});
    EXPECT_EQ(intoFile.exitCode, 2);
    EXPECT_EQ(intoFile.err, "qrv: " + src + "/a.txt is not a folder\n");
    const ProgramRun belowFile = RunQrv({"restore", "1", "--to", src + "/a.txt/deeper/"});
    EXPECT_EQ(belowFile.exitCode, 2);
    EXPECT_EQ(belowFile.err, "qrv: " + src + "/a.txt is not a folder\n");
}

TEST_F(QrvRestoreTest, ADeletedStoreFileIsNamedAndTheOtherFilesAreRestored) {
    ASSERT_EQ(::unlink(StoreFile(f.backup, "alpha").c_str()), 0);
    const ProgramRun run = RunQrv({"restore", "1", "--to", to});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, "qrv: not restored: " + to + "/a.txt: its store file " +
                           StoreFile(f.backup, "alpha") + " is missing\n");
    EXPECT_EQ(run.out, "Restored 6 of 7 files of run 1 into " + to +
                           ": 1 not restored, 0 with the wrong content.\n");
    Tree expected = expectedThere;
    expected.erase(to + "/a.txt");
    EXPECT_TRUE(OddNamesBackup::Tree(to) == expected) << Names(OddNamesBackup::Tree(to));
}

TEST_F(QrvRestoreTest, AnAlteredStoreFileIsFoundByVerificationAndReplacesNothing) {
    WriteFile(StoreFile(f.backup, "apostrophe"), "APOSTROPHE");
    WriteFile(src + "/sub/Bob's file.txt", "changed since");
    const std::string problem = "the content of its store file " +
                                StoreFile(f.backup, "apostrophe") + " has the signature " +
                                TestSignature("APOSTROPHE") + ", not that of its name\n";
    const ProgramRun run = RunQrv({"restore", "1", "--to", to, "--verify"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, "qrv: not restored: " + to + "/sub/Bob's file.txt: " + problem);
    EXPECT_EQ(run.out, "Restored 6 of 7 files of run 1 into " + to +
                           ": 1 not restored, 0 with the wrong content.\n");
    Tree expected = expectedThere;
    expected.erase(to + "/sub/Bob's file.txt");
    EXPECT_TRUE(OddNamesBackup::Tree(to) == expected) << Names(OddNamesBackup::Tree(to));
    // In its place, the file there stays as it is.
    const ProgramRun here = RunQrv({"restore", "1", "sub", "--verify"});
    EXPECT_EQ(here.exitCode, 1);
    EXPECT_EQ(here.err, "qrv: not restored: " + src + "/sub/Bob's file.txt: " + problem);
    EXPECT_EQ(ReadFile(src + "/sub/Bob's file.txt"), "changed since");
    // Without --verify a change that keeps the size goes unseen, as in the window.
    EXPECT_EQ(RunQrv({"restore", "1", "--to", f.env.Path("again")}).exitCode, 0);
}

TEST_F(QrvRestoreTest, AStoreFileCutShortOrNotAFileIsNamedAndReplacesNothing) {
    WriteFile(StoreFile(f.backup, "newline"), "new");
    ASSERT_EQ(::unlink(StoreFile(f.backup, "alpha").c_str()), 0);
    ASSERT_EQ(::mkdir(StoreFile(f.backup, "alpha").c_str(), 0700), 0);
    const ProgramRun run = RunQrv({"restore", "1"});
    EXPECT_EQ(run.exitCode, 1);
    const std::map<std::string, std::string> lines = {
        {src + "/a.txt", "qrv: not restored: " + src + "/a.txt: its store file " +
                             StoreFile(f.backup, "alpha") + " is not a regular file\n"},
        {src + "/new\nline.txt", "qrv: not restored: " + src + "/new\\nline.txt: its store file " +
                                     StoreFile(f.backup, "newline") +
                                     " holds 3 bytes, the catalogue records 7\n"}};
    std::string expected; // in the order the run met the files
    for (const std::string& file : WalkOrder(src))
        if (lines.count(file)) expected += lines.at(file);
    EXPECT_EQ(run.err, expected);
    EXPECT_EQ(run.out, "Restored 5 of 7 files of run 1 to their places: 2 not restored, 0 with "
                       "the wrong content.\n");
    EXPECT_EQ(ReadFile(src + "/a.txt"), "alpha");
    EXPECT_EQ(ReadFile(src + "/new\nline.txt"), "newline");
}

TEST_F(QrvRestoreTest, NothingIsWrittenThroughALinkInTheFolderRestoredInto) {
    const std::string outside = f.env.Path("outside");
    ::mkdir(outside.c_str(), 0700);
    ::mkdir(to.c_str(), 0700);
    ASSERT_EQ(::symlink(outside.c_str(), (to + "/sub").c_str()), 0);
    const ProgramRun run = RunQrv({"restore", "1", "sub", "--to", to});
    EXPECT_EQ(run.exitCode, 1);
    // The files, then the folders that the run's record holds, each refused on its own.
    const std::string refused = ": a symbolic link stands at " + to + "/sub\n";
    EXPECT_EQ(run.err, "qrv: not restored: " + to + "/sub/Bob's file.txt" + refused +
                           "qrv: not restored: " + to + "/sub/deeper/d.txt" + refused +
                           "qrv: not restored: " + to + "/sub" + refused +
                           "qrv: not restored: " + to + "/sub/deeper" + refused);
    EXPECT_EQ(run.out, "Restored 0 of 2 files of run 1 into " + to +
                           ": 2 not restored, 0 with the wrong content.\n"
                           "2 empty files, links or folders not restored.\n");
    EXPECT_TRUE(ListTree(outside).empty());
}

TEST_F(QrvRestoreTest, ABackupFolderAnotherProgramKeepsBusyIsSaidAndNothingIsRestored) {
    CBackupFolderLock held;
    ASSERT_TRUE(held.Acquire(f.backup));
    // The companion is another process: the lock of this one keeps it out.
    const ProgramRun run = RunQrv({"restore", "1", "--to", to});
    EXPECT_EQ(run.exitCode, 4);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "qrv: Another Stashwell is working on the backup folder " + f.backup +
                           ". Please try again when it has finished.\n");
    EXPECT_FALSE(Exists(to));
}

TEST_F(QrvRestoreTest, ManyFilesRestoredSideBySideComeBackWholeAndFailuresInTheRunsOrder) {
    MakeRandomFiles(src + "/many", 1000, 11);
    f.Backup(); // run 2: 1007 files, shared out among the restoring processes
    const Tree many = OddNamesBackup::Tree(src + "/many");
    const auto rows = f.Rows("SELECT file, backup FROM Files WHERE bid = 2 AND file LIKE '%.dat' "
                             "ORDER BY fid");
    // Two store files gone: one early in the run, one late, restored by different processes.
    const std::string early = rows.at(2 * 10), late = rows.at(2 * 900);
    ASSERT_EQ(::unlink(rows.at(2 * 10 + 1).c_str()), 0);
    ASSERT_EQ(::unlink(rows.at(2 * 900 + 1).c_str()), 0);
    const ProgramRun run = RunQrv({"restore", "2", "many", "--to", to, "--verify"});
    EXPECT_EQ(run.exitCode, 1);
    const auto there = [&](const std::string& file) { return to + file.substr(src.size()); };
    EXPECT_EQ(run.err, "qrv: not restored: " + there(early) + ": its store file " +
                           rows.at(2 * 10 + 1) + " is missing\n" +
                           "qrv: not restored: " + there(late) + ": its store file " +
                           rows.at(2 * 900 + 1) + " is missing\n");
    EXPECT_EQ(run.out, "Restored 998 of 1000 files of run 2 into " + to +
                           ": 2 not restored, 0 with the wrong content.\n");
    Tree expected;
    for (const auto& [path, content] : many)
        if (path != early && path != late) expected[there(path)] = content;
    EXPECT_TRUE(OddNamesBackup::Tree(to) == expected)
        << Names(OddNamesBackup::Tree(to)).substr(0, 2000);
}

// More files than the restore reads at once (8,192): the rows are read a chunk at a time, and
// a failure in each chunk is named in the run's order.
TEST_F(QrvRestoreTest, RunOfMoreFilesThanOneChunkComesBackWholeWithFailuresInTheRunsOrder) {
    MakeRandomFiles(src + "/many", 8300, 12);
    f.Backup();
    const auto rows = f.Rows("SELECT file, backup FROM Files WHERE bid = 2 AND file LIKE '%.dat' "
                             "ORDER BY fid");
    ASSERT_EQ(rows.size(), 2u * 8300);
    const std::string early = rows.at(2 * 10), late = rows.at(2 * 8250);
    ASSERT_EQ(::unlink(rows.at(2 * 10 + 1).c_str()), 0);
    ASSERT_EQ(::unlink(rows.at(2 * 8250 + 1).c_str()), 0);
    const ProgramRun run = RunQrv({"restore", "2", "many", "--to", to});
    EXPECT_EQ(run.exitCode, 1);
    const auto there = [&](const std::string& file) { return to + file.substr(src.size()); };
    EXPECT_EQ(run.err, "qrv: not restored: " + there(early) + ": its store file " +
                           rows.at(2 * 10 + 1) + " is missing\n" +
                           "qrv: not restored: " + there(late) + ": its store file " +
                           rows.at(2 * 8250 + 1) + " is missing\n");
    EXPECT_EQ(run.out, "Restored 8298 of 8300 files of run 2 into " + to +
                           ": 2 not restored, 0 with the wrong content.\n");
    const Tree many = OddNamesBackup::Tree(src + "/many");
    Tree expected;
    for (const auto& [path, content] : many)
        if (path != early && path != late) expected[there(path)] = content;
    EXPECT_TRUE(OddNamesBackup::Tree(to) == expected);
}

// A source whose names differ only by an apostrophe and a backslash, backed up by the real
// program.
struct QrvQuoteNamesTest : ::testing::Test {
    BackupFixture f;
    std::string src = f.env.Path("src");
    std::string to = f.env.Path("restored");
    const std::string samePlace = ": another file of the run goes to the same place\n";

    QrvQuoteNamesTest() {
        CreateTree(src, QuoteNamesTree());
        f.AddSource(src);
        const ProgramRun run = RunStashwell({"backup"});
        EXPECT_EQ(run.exitCode, 0) << run.err;
    }
};

TEST_F(QrvQuoteNamesTest, EveryNameComesBackWithItsOwnContentToItsPlaceAndElsewhere) {
    std::filesystem::remove_all(src);
    const ProgramRun here = RunQrv({"restore", "1"});
    EXPECT_EQ(here.exitCode, 0);
    EXPECT_EQ(here.err, "");
    EXPECT_EQ(here.out, "Restored 4 files (25 bytes) of run 1 to their places.\n");
    EXPECT_TRUE(OddNamesBackup::Tree(src) == QuoteNamesBelow(src))
        << Names(OddNamesBackup::Tree(src));
    const ProgramRun there = RunQrv({"restore", "1", "--to", to, "--verify"});
    EXPECT_EQ(there.exitCode, 0);
    EXPECT_EQ(there.err, "");
    EXPECT_EQ(there.out, "Restored and verified 4 files (25 bytes) of run 1 into " + to + ".\n");
    EXPECT_TRUE(OddNamesBackup::Tree(to) == QuoteNamesBelow(to)) << Names(OddNamesBackup::Tree(to));
}

TEST_F(QrvQuoteNamesTest, ANameWithABackslashIsFoundAsItIsTyped) {
    const ProgramRun run =
        RunQrv({"restore", "1", "q\\r.txt", src + "/back\\slash.txt", "--to", to});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, "Restored 2 files (12 bytes) of run 1 into " + to + ".\n");
    EXPECT_TRUE(OddNamesBackup::Tree(to) ==
                (Tree{{to + "/back\\slash.txt", "backslash"}, {to + "/q\\r.txt", "TWO"}}))
        << Names(OddNamesBackup::Tree(to));
}

TEST_F(QrvQuoteNamesTest,
       OfTwoRowsOfOnePlaceInAnOlderCatalogueTheFirstIsRestoredAndTheSecondNamed) {
    StoreQuoteNamesBeforeEscape(f, src, "1");
    const ProgramRun there = RunQrv({"restore", "1", "--to", to});
    EXPECT_EQ(there.exitCode, 1);
    EXPECT_EQ(there.err, "qrv: not restored: " + to + "/q'r.txt" + samePlace);
    EXPECT_EQ(there.out, "Restored 3 of 4 files of run 1 into " + to +
                             ": 1 not restored, 0 with the wrong content.\n");
    EXPECT_TRUE(OddNamesBackup::Tree(to) == QuoteNamesBeforeEscapeBelow(to))
        << Names(OddNamesBackup::Tree(to));

    std::filesystem::remove_all(src);
    const ProgramRun here = RunQrv({"restore", "1", "q'r.txt"});
    EXPECT_EQ(here.exitCode, 1);
    EXPECT_EQ(here.err, "qrv: not restored: " + src + "/q'r.txt" + samePlace);
    EXPECT_EQ(here.out,
              "Restored 1 of 2 files of run 1 to their places: 1 not restored, 0 with the wrong "
              "content.\n");
    EXPECT_TRUE(OddNamesBackup::Tree(src) == (Tree{{src + "/q'r.txt", "ONE"}}))
        << Names(OddNamesBackup::Tree(src));
}

TEST_F(QrvQuoteNamesTest, TwoRowsOfOnePlaceFarApartInTheRunAreDecidedBeforeAnyWorkerStarts) {
    MakeRandomFiles(src + "/many", 300, 5);
    ASSERT_EQ(RunStashwell({"backup"}).exitCode, 0); // run 2: 304 files among the processes
    const auto rows = f.Rows("SELECT fid, backup FROM Files WHERE bid = 2 ORDER BY fid");
    ASSERT_EQ(rows.size(), 2u * 304);
    // The first row and one far behind it, restored by different processes unless refused.
    const std::string first = rows.at(0), far = rows.at(2 * 250);
    for (const std::string& fid : {first, far})
        f.Exec("UPDATE Files SET file = " + SQLLiteral(src + "/same.txt") +
               ", path = " + SQLLiteral(src + "/") + " WHERE fid = " + fid);
    const ProgramRun run = RunQrv({"restore", "2", "--to", to});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, "qrv: not restored: " + to + "/same.txt" + samePlace);
    EXPECT_EQ(run.out, "Restored 303 of 304 files of run 2 into " + to +
                           ": 1 not restored, 0 with the wrong content.\n");
    EXPECT_TRUE(ReadFile(to + "/same.txt") == ReadFile(rows.at(1))) // the first row's content
        << "same.txt holds the content of another row";
    EXPECT_EQ(OddNamesBackup::Tree(to).size(), 303u);
}

TEST(QrvRestoreBeforeEscape, ARunStoredBeforeTheEscapeWhoseSourcePathHoldsABackslashIsRestored) {
    BackupFixture f;
    const std::string odd = f.env.Path("a\\b"), to = f.env.Path("restored");
    CreateTree(odd, Dir({{"sub", Dir({{"s'1.txt", File("s")}})}, {"top.txt", File("top")}}));
    f.AddSource(odd);
    ASSERT_EQ(RunStashwell({"backup"}).exitCode, 0);
    StoreSourceBeforeEscape(f, odd);
    const ProgramRun run = RunQrv({"restore", "1", "sub/s'1.txt", "--to", to});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, "Restored 1 file (1 bytes) of run 1 into " + to + ".\n");
    EXPECT_TRUE(OddNamesBackup::Tree(to) == (Tree{{to + "/sub/s'1.txt", "s"}}))
        << Names(OddNamesBackup::Tree(to));
}

} // namespace
