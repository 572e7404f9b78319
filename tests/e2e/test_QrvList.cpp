// The companion's reading commands run as a person or a script runs them, on a backup folder
// that the real program made: runs, ls and find, their JSON, their one-line errors and exit
// statuses, and a catalogue that a backup holds meanwhile.

#include "OddNamesBackup.h"
#include "QuoteNames.h"
#include "cli/modQrvHelp.h"

#include <algorithm>
#include <ctime>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>

namespace {

struct QrvListTest : ::testing::Test {
    OddNamesBackup f;
    std::string src = f.src;

    // A run line of `qrv runs`; a run that added all its files unless told otherwise.
    static std::string RunLine(const std::string& bid, const std::string& date,
                               const std::string& files, const std::string& bytes,
                               const std::string& addedFiles = {},
                               const std::string& addedBytes = {}) {
        auto pad = [](const std::string& text, size_t width) {
            return std::string(width - text.size(), ' ') + text;
        };
        return pad(bid, 8) + "  " + date + "  " + pad(files, 10) + "  " + pad(bytes, 16) + "  " +
               pad(addedFiles.empty() ? files : addedFiles, 11) + "  " +
               pad(addedBytes.empty() ? bytes : addedBytes, 16) + "\n";
    }
    static std::string Header() {
        return RunLine("bid", "date               ", "files", "bytes", "added files",
                       "added bytes");
    }
};

// A catalogue date ("26/11/2026 07:48:57") as the JSON output writes it: the same local time in
// ISO 8601 with the zone's offset, taken now (the runs were made moments ago).
std::string Iso(const std::string& date) {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    ::localtime_r(&now, &local);
    char zone[8] = {};
    std::strftime(zone, sizeof zone, "%z", &local); // "+0100"
    const std::string offset(zone);
    return date.substr(6, 4) + "-" + date.substr(3, 2) + "-" + date.substr(0, 2) + "T" +
           date.substr(11) + offset.substr(0, 3) + ":" + offset.substr(3);
}

// A path as qrv shows it on a line: a backslash and a new line escaped.
std::string Shown(const std::string& path) {
    std::string shown;
    for (const char c : path)
        shown += c == '\\' ? "\\\\" : c == '\n' ? "\\n" : std::string(1, c);
    return shown;
}

const std::string kSourceBytes = std::to_string(5 + 300000 + 10 + 8192 + 13 + 7 + 9);

TEST_F(QrvListTest, RunsListsEachSourceWithItsNewestRunFirst) {
    WriteFile(src + "/a.txt", "alpha, changed");
    const std::string other = f.env.Path("other");
    CreateTree(other, Dir({{"z.txt", File("zed")}}));
    f.AddSource(other);
    f.Backup(); // runs 2 (src) and 3 (other)
    const ProgramRun run = RunQrv({"runs"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out,
              other + "\n" + Header() + RunLine("3", f.Date("3"), "1", "3") + "\n" + src + "\n" +
                  Header() +
                  // Only a.txt's new content was added.
                  RunLine("2", f.Date("2"), "7", std::to_string(300000 + 8192 + 53), "1", "14") +
                  RunLine("1", f.Date("1"), "7", kSourceBytes));
}

TEST_F(QrvListTest, RunsOfOneSourceAndOfASourceWithoutRuns) {
    const ProgramRun run = RunQrv({"runs", "src/"}); // relative to the folder qrv runs in
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out, src + "\n" + Header() + RunLine("1", f.Date("1"), "7", kSourceBytes));
    const ProgramRun none = RunQrv({"runs", f.env.Path("elsewhere")});
    EXPECT_EQ(none.exitCode, 3);
    EXPECT_EQ(none.out, "");
    EXPECT_EQ(none.err, "qrv: the catalogue holds no run of " + f.env.Path("elsewhere") + "\n");
}

TEST_F(QrvListTest, RunsAsJson) {
    const ProgramRun run = RunQrv({"--json", "runs"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out, "{\"backup_path\":\"" + f.backup + "\",\"sources\":[{\"source\":\"" + src +
                           "\",\"runs\":[{\"bid\":1,\"date\":\"" + Iso(f.Date("1")) +
                           "\",\"files\":7,\"bytes\":" + kSourceBytes +
                           ",\"added_files\":7,\"added_bytes\":" + kSourceBytes + "}]}]}\n");
}

TEST_F(QrvListTest, LsShowsTheFoldersThenTheFilesOfTheSourceWithOddNamesEscaped) {
    const ProgramRun run = RunQrv({"ls", "1"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, "           -  sub/\n"
                       "           5  a.txt\n"
                       "           9  back\\\\slash.txt\n"
                       "          13  bad\\xff\\xfe.bin\n"
                       "      300000  big.bin\n"
                       "           7  new\\nline.txt\n");
}

TEST_F(QrvListTest, LsOfAFolderNamedBelowTheSourceOrInFull) {
    const std::string expected = "           -  deeper/\n"
                                 "          10  Bob's file.txt\n";
    EXPECT_EQ(RunQrv({"ls", "1", "sub"}).out, expected);
    EXPECT_EQ(RunQrv({"ls", "1", src + "/sub/"}).out, expected);
    EXPECT_EQ(RunQrv({"ls", "1", "sub/deeper"}).out, "        8192  d.txt\n");
    EXPECT_EQ(RunQrv({"ls", "1", "./sub/./deeper/"}).out, "        8192  d.txt\n");
}

TEST_F(QrvListTest, LsAsJsonKeepsEveryByteOfTheNames) {
    const ProgramRun run = RunQrv({"ls", "1", "--json"});
    EXPECT_EQ(run.exitCode, 0);
    const auto sig = [&](const std::string& name) {
        return f.Rows("SELECT md5 FROM Files WHERE file = '" + Encoded(src + "/" + name) + "'")
            .at(0);
    };
    EXPECT_EQ(run.out, "{\"bid\":1,\"source\":\"" + src + "\",\"folder\":\"" + src +
                           "\",\"folders\":[\"sub\"],\"files\":["
                           "{\"name\":\"a.txt\",\"size\":5,\"signature\":\"" +
                           sig("a.txt") +
                           "\"},"
                           "{\"name\":\"back\\\\slash.txt\",\"size\":9,\"signature\":\"" +
                           sig("back\\slash.txt") +
                           "\"},"
                           "{\"name\":\"bad\\udcff\\udcfe.bin\",\"size\":13,\"signature\":\"" +
                           sig("bad\xff\xfe.bin") +
                           "\"},"
                           "{\"name\":\"big.bin\",\"size\":300000,\"signature\":\"" +
                           sig("big.bin") +
                           "\"},"
                           "{\"name\":\"new\\nline.txt\",\"size\":7,\"signature\":\"" +
                           sig("new\nline.txt") + "\"}]}\n");
}

TEST_F(QrvListTest, LsOfAnUnknownRunOrFolderSaysSo) {
    const ProgramRun noRun = RunQrv({"ls", "9"});
    EXPECT_EQ(noRun.exitCode, 3);
    EXPECT_EQ(noRun.err, "qrv: the catalogue holds no run 9\n");
    const ProgramRun notABid = RunQrv({"ls", "latest"});
    EXPECT_EQ(notABid.exitCode, 2);
    EXPECT_EQ(notABid.err, "qrv: 'latest' is not a run's bid\n");
    const ProgramRun noFolder = RunQrv({"ls", "1", "Bob's"});
    EXPECT_EQ(noFolder.exitCode, 3);
    EXPECT_EQ(noFolder.err, "qrv: run 1 holds no folder " + src + "/Bob's\n");
    EXPECT_EQ(noFolder.out, "");
}

TEST_F(QrvListTest, FindListsTheRunsAndPathsOfMatchingNamesNewestRunFirst) {
    WriteFile(src + "/a.txt", "alpha, changed");
    f.Backup();
    const ProgramRun run = RunQrv({"find", "*.txt"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.err, "");
    std::string expected;
    for (const std::string bid : {"2", "1"})
        for (const std::string& file : WalkOrder(src))
            if (file.size() > 4 && file.compare(file.size() - 4, 4, ".txt") == 0)
                expected += "       " + bid + "  " + f.Date(bid) + "  " + Shown(file) + "\n";
    EXPECT_EQ(run.out, expected);
}

TEST_F(QrvListTest, FindMatchesTheNameWithItsApostropheOrItsBackslash) {
    EXPECT_EQ(RunQrv({"find", "Bob's*"}).out,
              "       1  " + f.Date("1") + "  " + src + "/sub/Bob's file.txt\n");
    EXPECT_EQ(RunQrv({"find", "back'*"}).out, "");
    // In a glob a backslash quotes the next character: "\\" stands for one backslash.
    EXPECT_EQ(RunQrv({"find", "back\\\\*", "--json"}).out,
              "{\"pattern\":\"back\\\\\\\\*\",\"matches\":[{\"bid\":1,\"date\":\"" +
                  Iso(f.Date("1")) + "\",\"path\":\"" + src + "/back\\\\slash.txt\"}]}\n");
    const ProgramRun none = RunQrv({"find", "*.doc"});
    EXPECT_EQ(none.exitCode, 1);
    EXPECT_EQ(none.out, "");
    EXPECT_EQ(none.err, "qrv: no file of any run matches *.doc\n");
}

TEST(QrvListQuoteNames, LsShowsNamesThatDifferOnlyByAnApostropheOrABackslashApartInByteOrder) {
    BackupFixture f;
    const std::string src = f.env.Path("src");
    CreateTree(src, QuoteNamesTree());
    f.AddSource(src);
    ASSERT_EQ(RunStashwell({"backup"}).exitCode, 0);
    const ProgramRun run = RunQrv({"ls", "1"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out, "           9  back\\\\slash.txt\n"
                       "          10  it's.txt\n"
                       "           3  q'r.txt\n"
                       "           3  q\\\\r.txt\n");
}

TEST(QrvListQuoteNames, ARunStoredBeforeTheEscapeIsListedWhenItsSourcePathHoldsABackslash) {
    BackupFixture f;
    const std::string odd = f.env.Path("a\\b");
    CreateTree(odd, Dir({{"sub", Dir({{"s'1.txt", File("s")}})}}));
    f.AddSource(odd);
    ASSERT_EQ(RunStashwell({"backup"}).exitCode, 0);
    StoreSourceBeforeEscape(f, odd);
    const ProgramRun run = RunQrv({"ls", "1", "sub"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, "           1  s'1.txt\n");
    EXPECT_EQ(RunQrv({"ls", "1", odd + "/sub"}).out, "           1  s'1.txt\n");
}

// Three runs of the source: run 2 after a.txt changed and new.txt was added, run 3 after the
// file with a backslash in its name was removed.
struct QrvDiffTest : QrvListTest {
    void SetUp() override {
        WriteFile(src + "/a.txt", "alpha, changed");
        WriteFile(src + "/new.txt", "new");
        f.Backup();
        ASSERT_EQ(::unlink((src + "/back\\slash.txt").c_str()), 0);
        f.Backup();
    }
};

TEST_F(QrvDiffTest, OneRunIsComparedWithTheRunBeforeIt) {
    ProgramRun run = RunQrv({"diff", "2"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, "changed            14  " + src + "/a.txt  (was 5)\n" +
                           "added               3  " + src + "/new.txt\n" +
                           "1 added, 1 changed, 0 removed from run 1 to run 2.\n");
    run = RunQrv({"diff", "3"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, "removed             9  " + src + "/back\\\\slash.txt\n" +
                           "0 added, 0 changed, 1 removed from run 2 to run 3.\n");
}

TEST_F(QrvDiffTest, TwoRunsAreComparedTheFirstAsTheEarlier) {
    ProgramRun run = RunQrv({"diff", "1", "3"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, "changed            14  " + src + "/a.txt  (was 5)\n" +
                           "removed             9  " + src + "/back\\\\slash.txt\n" +
                           "added               3  " + src + "/new.txt\n" +
                           "1 added, 1 changed, 1 removed from run 1 to run 3.\n");
    // The other way round, what was added is removed.
    run = RunQrv({"diff", "3", "1"});
    EXPECT_EQ(run.out, "changed             5  " + src + "/a.txt  (was 14)\n" +
                           "added               9  " + src + "/back\\\\slash.txt\n" +
                           "removed             3  " + src + "/new.txt\n" +
                           "1 added, 1 changed, 1 removed from run 3 to run 1.\n");
    // A run against itself: nothing changed.
    run = RunQrv({"diff", "2", "2"});
    EXPECT_EQ(run.out, "0 added, 0 changed, 0 removed from run 2 to run 2.\n");
}

TEST_F(QrvDiffTest, AsJson) {
    const ProgramRun run = RunQrv({"diff", "1", "3", "--json"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out,
              "{\"earlier\":{\"bid\":1,\"source\":\"" + src + "\",\"date\":\"" + Iso(f.Date("1")) +
                  "\"},\"later\":{\"bid\":3,\"source\":\"" + src + "\",\"date\":\"" +
                  Iso(f.Date("3")) + "\"},\"changes\":[{\"change\":\"changed\",\"path\":\"" + src +
                  "/a.txt\",\"size\":14,\"size_before\":5},{\"change\":\"removed\","
                  "\"path\":\"" +
                  src + "/back\\\\slash.txt\",\"size\":9},{\"change\":\"added\",\"path\":\"" + src +
                  "/new.txt\",\"size\":3}]}\n");
}

TEST_F(QrvDiffTest, TheFirstRunOrAnUnknownOneSaysSo) {
    ProgramRun run = RunQrv({"diff", "1"});
    EXPECT_EQ(run.exitCode, 3);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "qrv: run 1 is the first run of " + src +
                           ": there is no run before it to compare it with\n");
    run = RunQrv({"diff", "9"});
    EXPECT_EQ(run.exitCode, 3);
    EXPECT_EQ(run.err, "qrv: the catalogue holds no run 9\n");
    run = RunQrv({"diff", "1", "x"});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.err, "qrv: 'x' is not a run's bid\n");
}

TEST_F(QrvListTest, AMissingBackupPathFolderOrCatalogueIsOneLine) {
    const ProgramRun gone = RunQrv({"runs", "--backup-path", f.env.Path("unplugged")});
    EXPECT_EQ(gone.exitCode, 3);
    EXPECT_EQ(gone.err, "qrv: the backup folder " + f.env.Path("unplugged") +
                            " is not there: is its drive plugged in?\n");
    const std::string empty = f.env.Path("empty");
    ::mkdir(empty.c_str(), 0700);
    const ProgramRun noCatalogue = RunQrv({"runs", "--backup-path=" + empty});
    EXPECT_EQ(noCatalogue.exitCode, 3);
    EXPECT_EQ(noCatalogue.err, "qrv: the backup folder holds no catalogue: " + empty +
                                   "/db/Backup.db is not there\n");
    const ProgramRun unset = RunQrv({"runs"}, 60, {{"XDG_CONFIG_HOME", empty}});
    EXPECT_EQ(unset.exitCode, 3);
    EXPECT_EQ(unset.err,
              "qrv: no backup path is set: choose one in Stashwell or give --backup-path DIR\n");
    // A relative --backup-path is taken from the folder qrv runs in (the test's folder).
    const ProgramRun relative =
        RunQrv({"runs", "--backup-path", "backup"}, 60, {{"XDG_CONFIG_HOME", empty}});
    EXPECT_EQ(relative.exitCode, 0);
    EXPECT_EQ(relative.out, src + "\n" + Header() + RunLine("1", f.Date("1"), "7", kSourceBytes));
}

TEST_F(QrvListTest, UsageErrorsHelpAndVersion) {
    const auto usage = [](const std::vector<std::string>& words, const std::string& problem) {
        const ProgramRun run = RunQrv(words);
        EXPECT_EQ(run.exitCode, 2) << words[0];
        EXPECT_EQ(run.err, "qrv: " + problem + "; see 'qrv --help'\n");
    };
    usage({"backup"}, "unknown command 'backup'");
    usage({"runs", "--verify"}, "'runs' takes no option '--verify'");
    usage({"ls"}, "'ls' needs a run's bid");
    usage({"find"}, "'find' needs a pattern");
    usage({"check", "all"}, "'check' takes no arguments");
    usage({"check", "--repair"}, "'--repair' works only with '--read-data'");
    usage({"runs", "--colour"}, "unknown option '--colour'");
    usage({"help", "backup"}, "unknown command 'backup'");
    usage({"restore", "1", "--to"}, "option '--to' needs a folder");
    const ProgramRun bare = RunQrv({});
    EXPECT_EQ(bare.exitCode, 2);
    EXPECT_EQ(bare.err, QrvHelp(""));
    for (const std::string command : {"runs", "ls", "find", "restore", "check"}) {
        const ProgramRun help = RunQrv({command, "--help"});
        EXPECT_EQ(help.exitCode, 0);
        EXPECT_EQ(help.out, QrvHelp(command));
        EXPECT_EQ(RunQrv({"help", command}).out, QrvHelp(command));
        EXPECT_NE(help.out.find("Usage: qrv " + command), std::string::npos);
    }
    EXPECT_EQ(RunQrv({"--help"}).out, QrvHelp(""));
    EXPECT_EQ(RunQrv({"--version"}).out, "qrv (Stashwell) 1.0.0\n");
}

TEST_F(QrvListTest, ReadingLeavesTheCatalogueAsItWas) {
    const std::string before = ReadFile(f.db);
    struct stat was {};
    ::stat(f.db.c_str(), &was);
    for (const std::vector<std::string>& words :
         {std::vector<std::string>{"runs"}, {"ls", "1"}, {"find", "*"}, {"check"}})
        EXPECT_EQ(RunQrv(words).exitCode, 0) << words[0];
    struct stat now {};
    ::stat(f.db.c_str(), &now);
    EXPECT_EQ(ReadFile(f.db), before);
    EXPECT_EQ(now.st_mtim.tv_nsec, was.st_mtim.tv_nsec);
    EXPECT_EQ(now.st_mtim.tv_sec, was.st_mtim.tv_sec);
    EXPECT_FALSE(Exists(f.db + "-journal"));
}

// Another program's open write transaction, as a backup run holds it while it records files.
struct HeldCatalogue {
    sqlite3* db = nullptr;
    HeldCatalogue(const std::string& path, const char* begin) {
        sqlite3_open(path.c_str(), &db);
        sqlite3_exec(db, begin, nullptr, nullptr, nullptr);
        sqlite3_exec(db, "INSERT INTO Backups (source, datebk) VALUES ('/x', 'now')", nullptr,
                     nullptr, nullptr);
    }
    ~HeldCatalogue() {
        sqlite3_exec(db, "ROLLBACK", nullptr, nullptr, nullptr);
        sqlite3_close(db);
    }
};

TEST_F(QrvListTest, RunsWhileABackupWritesShowTheCommittedRuns) {
    HeldCatalogue writing(f.db, "BEGIN IMMEDIATE");
    const ProgramRun run = RunQrv({"runs"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out, src + "\n" + Header() + RunLine("1", f.Date("1"), "7", kSourceBytes));
}

TEST_F(QrvListTest, ACatalogueHeldExclusivelyForLongIsBusy) {
    HeldCatalogue committing(f.db, "BEGIN EXCLUSIVE");
    const ProgramRun run = RunQrv({"runs"});
    EXPECT_EQ(run.exitCode, 4);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "qrv: the catalogue " + f.db +
                           " is busy: another program has held it for more than 10 seconds; try "
                           "again later\n");
}

TEST_F(QrvListTest, RunsAnswersAgainAndAgainWhileARealBackupRuns) {
    MakeRandomFiles(src + "/many", 3000, 7);
    RunningProgram backup({"backup"});
    std::vector<ProgramRun> answers;
    bool done = false;
    while (!done) {
        answers.push_back(RunQrv({"runs"}));
        siginfo_t ended{};
        done = ::waitid(P_PID, static_cast<id_t>(backup.Pid()), &ended,
                        WEXITED | WNOHANG | WNOWAIT) != 0 ||
               ended.si_pid != 0 || answers.size() > 200;
    }
    const ProgramRun ended = backup.Wait();
    ASSERT_EQ(ended.exitCode, 0) << ended.err;
    const std::string one = src + "\n" + Header() + RunLine("1", f.Date("1"), "7", kSourceBytes);
    const auto rows = f.Rows("SELECT count(*), sum(size) FROM Files WHERE bid = 2");
    const auto added = f.Rows("SELECT count(*), sum(size) FROM Files WHERE bid = 2 AND md5 NOT IN "
                              "(SELECT md5 FROM Files WHERE bid = 1)");
    const std::string both = src + "\n" + Header() +
                             RunLine("2", f.Date("2"), rows[0], rows[1], added[0], added[1]) +
                             RunLine("1", f.Date("1"), "7", kSourceBytes);
    ASSERT_GE(answers.size(), 2u);
    for (const ProgramRun& answer : answers) {
        EXPECT_EQ(answer.exitCode, 0) << answer.err;
        EXPECT_TRUE(answer.out == one || answer.out == both) << answer.out;
    }
    EXPECT_EQ(answers.front().out, one);
}

} // namespace
