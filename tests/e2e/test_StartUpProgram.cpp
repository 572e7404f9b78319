// The real program's start: --help and --version, alone on the command line, are answered on
// stdout before anything starts (no log, lock, settings or catalogue is touched) and end with 0;
// beside other words, or spelt otherwise, they are words like any other, which an unattended
// run ignores. After an interrupted run whose catalogue fails the check, an unattended start
// without a window warns of corruption once on stderr and once in the log.

#include "BackupFixture.h"
#include "TestProgram.h"
#include "app/modUsage.h"

#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>

namespace {

using Lines = std::vector<std::string>;

// What a run leaves in the test's folder: every file and folder below it, with the catalogue's
// bytes and the settings file's.
struct Traces {
    Lines tree;
    std::string catalogue;
    std::string settings;
    bool operator==(const Traces&) const = default;
};

Traces TracesOf(const BackupFixture& f) {
    return {ListTree(f.env.Root()), ReadFile(f.db),
            ReadFile(f.env.ConfigHome() + "/Korvex/QRV.conf")};
}

// A private home, so that nothing of the user's is read or written.
ProgramEnv PrivateHome(const BackupFixture& f) {
    return {{"HOME", f.env.Path("home")}};
}

TEST(StartUpProgram, HelpAloneTellsTheUsageAndTouchesNothing) {
    BackupFixture f;
    // What making the backup folder left, so that a new one would show.
    for (const std::string& made : {f.backup + "/Logs", f.backup + "/QRV.lock", f.env.StateHome()})
        std::filesystem::remove_all(made);
    const Traces before = TracesOf(f);
    const ProgramRun run = RunStashwell({"--help"}, 60, PrivateHome(f));
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, StashwellUsage());
    for (const char* line :
         {"Usage: stashwell              open the window\n",
          "       stashwell WORD...      run the words unattended and end by itself\n",
          "  backup    back up every source of the backup folder's catalogue\n",
          "  compact   remove the rows of dropped runs and stored content no run needs,\n",
          "Any other word is ignored; --help and --version count only as the one word.\n",
          "  0  every source was backed up and committed\n",
          "  1  could not start: no backup path or one that is not a full path, backup\n",
          "  2  no display and no words\n",
          "  3  could not start: another Stashwell works on the backup folder (after\n",
          "  4  completed with problems, one line each on stderr\n",
          "  5  a run was lost: a source's rows could not be committed\n",
          "  $XDG_CONFIG_HOME/Korvex/QRV.conf      the backup path (default ~/.config)\n",
          "  <backup path>/Logs/QRV-yyyymmdd.LOG   the daily logs\n",
          "  $XDG_STATE_HOME/Korvex/QRV/           error report, trace, instance lock\n"})
        EXPECT_NE(run.out.find(line), std::string::npos) << line;
    EXPECT_EQ(TracesOf(f), before);
    EXPECT_FALSE(Exists(f.backup + "/Logs"));
    EXPECT_FALSE(Exists(f.backup + "/QRV.lock"));
    EXPECT_FALSE(Exists(f.env.StateHome()));
}

TEST(StartUpProgram, VersionAloneTellsTheVersionAndTouchesNothing) {
    BackupFixture f;
    const Traces before = TracesOf(f);
    const ProgramRun run = RunStashwell({"--version"}, 60, PrivateHome(f));
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, "Stashwell 1.0.0\n");
    EXPECT_EQ(TracesOf(f), before);
}

TEST(StartUpProgram, HelpIsAnsweredWithADisplayThatCannotBeOpened) {
    BackupFixture f;
    ProgramEnv env = PrivateHome(f);
    env.emplace_back("DISPLAY", ":97");
    const Traces before = TracesOf(f);
    const ProgramRun run = RunStashwell({"--help"}, 60, env);
    EXPECT_EQ(run.signal, 0);
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, StashwellUsage());
    EXPECT_EQ(TracesOf(f), before);
}

TEST(StartUpProgram, HelpBesideAnotherWordIsIgnoredAndTheWordRuns) {
    BackupFixture f;
    const std::string src = f.env.Path("src");
    CreateTree(src, Dir({{"a.txt", File("alpha")}}));
    f.AddSource(src);
    const ProgramRun run = RunStashwell({"backup", "--help"}, 120, PrivateHome(f));
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(f.Rows("SELECT file FROM Files"), Lines{src + "/a.txt"});
    EXPECT_EQ(LogMessages(f.TodaysLog()).back(), "Exiting QRV\r\n");
}

TEST(StartUpProgram, OtherSpellingsAreWordsThatRunNothing) {
    for (const std::string word : {"-backup", "-h", "--HELP", "-V", "help"}) {
        BackupFixture f;
        const std::string src = f.env.Path("src");
        CreateTree(src, Dir({{"a.txt", File("alpha")}}));
        f.AddSource(src);
        const ProgramRun run = RunStashwell({word}, 120, PrivateHome(f));
        EXPECT_EQ(run.exitCode, 0) << word << ": " << run.err;
        EXPECT_EQ(run.out, "") << word;
        EXPECT_EQ(run.err, "") << word;
        EXPECT_EQ(f.Rows("SELECT count(*) FROM Backups"), Lines{"0"}) << word;
        const Lines log = LogMessages(f.TodaysLog());
        ASSERT_GE(log.size(), 2u) << word;
        EXPECT_EQ(Lines(log.end() - 2, log.end()),
                  (Lines{"Unattended backup complete\r\n", "Exiting QRV\r\n"}))
            << word;
    }
}

TEST(StartUpProgram, CorruptionWarningWithoutAWindowIsWrittenOnceOnStderrAndInTheLog) {
    BackupFixture f;
    WriteFile(f.db + "-journal", "");
    WriteFile(f.db, std::string(4096, 'x')); // not a database any more
    const ProgramRun run = RunStashwell({"nothing"}, 120, PrivateHome(f));
    EXPECT_EQ(run.err, "Possible QRV database corruption\nThe catalogue " + f.db +
                           " cannot be read: file is not a database\n");
    EXPECT_EQ(run.exitCode, 1);
    const Lines log = LogMessages(f.TodaysLog());
    EXPECT_EQ(
        log,
        (Lines{" \r\n", "QRV 1.0.0 Started\r\n",
               "Previous Backup process interrupted. Running Integrity Check\r\n",
               "Running Integrity Check\r\n", "Killed DB Journal. Possible previous crash\r\n",
               "Possible QRV database corruption\r\n",
               "Problem: The catalogue " + f.db + " cannot be read: file is not a database\r\n"}));
    EXPECT_FALSE(Exists(f.db + "-journal"));
}

} // namespace
