// Failures that an unattended run meets, seen from outside as a scheduler sees them: the real
// program on folders, catalogues and small file systems made by the test. None ends with
// status 0 or a silent stderr, each names its cause in one line per problem, and the day's log
// that tells of it survives the log purge.

#include "BackupFixture.h"
#include "FSShimEnv.h"
#include "TestProgram.h"
#include "app/modPaths.h"
#include "support/Version.h"

#include <algorithm>
#include <chrono>
#include <climits>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <future>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

using Lines = std::vector<std::string>;

const std::string kStarted = "QRV " + std::to_string(version::kMajor) + "." +
                             std::to_string(version::kMinor) + "." +
                             std::to_string(version::kRevision) + " Started\r\n";

std::string Problems(const BackupFixture& f) {
    return "Backup completed with problems. The log " + f.TodaysLogPath() + " has the details.\n";
}

std::string Lost(const BackupFixture& f) {
    return "Backup failed: 1 run was lost. The log " + f.TodaysLogPath() + " has the details.\n";
}

bool HasLine(const Lines& lines, const std::string& line) {
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

// The lines of a text that ends each line with "\n".
Lines ErrLines(const std::string& text) {
    Lines lines;
    size_t start = 0;
    for (size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1)
        lines.push_back(text.substr(start, end - start));
    return lines;
}

// A file system of `mebibytes` (or of the size `size` names, "4k") mounted at `path` for the
// test's life (root only).
class SmallDisk {
public:
    SmallDisk(const std::string& path, int mebibytes)
        : SmallDisk(path, std::to_string(mebibytes) + "m") {}
    SmallDisk(const std::string& path, const std::string& size) : m_path(path) {
        fs::create_directories(path);
        const std::string options = "size=" + size + ",mode=0700";
        m_ok = ::geteuid() == 0 && ::mount("tmpfs", path.c_str(), "tmpfs", 0, options.c_str()) == 0;
    }
    ~SmallDisk() {
        if (m_ok) ::umount2(m_path.c_str(), MNT_DETACH);
    }
    bool Ok() const { return m_ok; }

private:
    std::string m_path;
    bool m_ok = false;
};

// Fills the file system of `path` until `spare` bytes are left.
void FillUp(const std::string& path, off_t spare) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ASSERT_GE(fd, 0);
    const std::string block(65536, 'x');
    off_t written = 0;
    for (ssize_t n; (n = ::write(fd, block.data(), block.size())) > 0;)
        written += n;
    for (ssize_t n; (n = ::write(fd, block.data(), 1)) > 0;)
        written += n;
    ASSERT_EQ(::ftruncate(fd, std::max<off_t>(0, written - spare)), 0);
    ::close(fd);
}

std::string TodaysStamp() {
    char stamp[16];
    const std::time_t now = std::time(nullptr);
    std::strftime(stamp, sizeof stamp, "%Y%m%d", std::localtime(&now));
    return stamp;
}

// Runs SQL on a connection of the test's own.
void Sql(sqlite3* db, const char* sql) {
    char* error = nullptr;
    ASSERT_EQ(sqlite3_exec(db, sql, nullptr, nullptr, &error), SQLITE_OK) << error;
}

TEST(FailedCommit, FullDiskLosesTheRunAndSaysSo) {
    BackupFixture f;
    SmallDisk disk(f.env.Path("small"), 20);
    if (!disk.Ok()) GTEST_SKIP() << "mounting a small file system needs root";
    f.UseBackupPath(f.env.Path("small/backup"));
    const std::string src = f.env.Path("src");
    MakeRandomFiles(src, 20, 7);
    f.AddSource(src);
    ASSERT_EQ(RunStashwell({"backup"}).exitCode, 0);
    FillUp(f.env.Path("small/filler"), 8192);

    const ProgramRun run = RunStashwell({"backup"});
    EXPECT_EQ(run.exitCode, 5);
    const Lines err = ErrLines(run.err);
    // Whether the rows or the commit meet the full disk first depends on SQLite's cache.
    const std::string lead = "The run of " + src + " was lost: the catalogue could not record ";
    const std::string cause = ": database or disk is full";
    ASSERT_GE(err.size(), 2u) << run.err;
    const std::string& lost = err[err.size() - 2];
    EXPECT_EQ(lost.rfind(lead, 0), 0u) << run.err;
    EXPECT_EQ(lost.substr(lost.size() - cause.size()), cause) << run.err;
    EXPECT_EQ(err.back() + "\n", Lost(f));
    EXPECT_EQ(f.Rows("SELECT bid FROM Backups"), Lines{"1"});
    const Lines log = LogMessages(f.TodaysLog());
    EXPECT_TRUE(HasLine(log, "Backup failed: the run of 1 source was lost\r\n"));
    EXPECT_EQ(std::count_if(
                  log.begin(), log.end(),
                  [](const std::string& line) { return line.rfind("Backup Complete.", 0) == 0; }),
              1); // the first run's
}

TEST(FailedCommit, DriveThatVanishesDuringTheRunLosesIt) {
    BackupFixture f;
    const std::string mount = f.env.Path("small");
    {
        SmallDisk disk(mount, 400);
        if (!disk.Ok()) GTEST_SKIP() << "mounting a small file system needs root";
        f.UseBackupPath(mount + "/backup");
        const std::string src = f.env.Path("src");
        MakeRandomFiles(src, 6000, 11);
        f.AddSource(src);
        RunningProgram program({"backup"});
        // Pulled out once the run has found its files and started on them.
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (f.TodaysLog().find("Files found  : ") == std::string::npos &&
               std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        ASSERT_EQ(::umount2(mount.c_str(), MNT_DETACH), 0);
        const ProgramRun run = program.Wait();
        EXPECT_EQ(run.exitCode, 5);
        const Lines err = ErrLines(run.err);
        ASSERT_GE(err.size(), 2u) << run.err;
        EXPECT_EQ(err[err.size() - 2], "The run of " + src +
                                           " was lost: Backup folder not available: " + mount +
                                           "/backup/Files");
        EXPECT_EQ(err.back(), "Backup failed: 1 run was lost. The log " + mount +
                                  "/backup/Logs/QRV-" + TodaysStamp() + ".LOG has the details.");
    }
}

TEST(FailedCommit, ReadTransactionHeldThroughTheRunLosesItAndTheLogStays) {
    BackupFixture f;
    const std::string src = f.env.Path("src");
    CreateTree(src, Dir({{"a.txt", File("alpha")}}));
    f.AddSource(src);
    sqlite3* reader = nullptr;
    ASSERT_EQ(sqlite3_open(f.db.c_str(), &reader), SQLITE_OK);
    Sql(reader, "BEGIN; SELECT count(*) FROM Backups;");

    const ProgramRun run = RunStashwell({"backup"});
    Sql(reader, "COMMIT;");
    sqlite3_close(reader);
    EXPECT_EQ(run.exitCode, 5);
    EXPECT_EQ(run.err, "The run of " + src +
                           " was lost: the catalogue could not record the run: database is "
                           "locked\n" +
                           Lost(f));
    EXPECT_EQ(f.Rows("SELECT bid FROM Backups"), Lines{});
    // No run of today is committed, yet today's log is kept.
    const Lines log = LogMessages(f.TodaysLog());
    EXPECT_TRUE(HasLine(log, "The run of " + src +
                                 " was lost: the catalogue could not record the run: database "
                                 "is locked\r\n"));
    EXPECT_TRUE(HasLine(log, "Problem: The run of " + src +
                                 " was lost: the catalogue could not record the run: database "
                                 "is locked\r\n"));
    EXPECT_TRUE(HasLine(log, "Backup failed: the run of 1 source was lost\r\n"));
}

TEST(FailedCommit, WriteLockHeldForThreeSecondsIsWaitedFor) {
    BackupFixture f;
    const std::string src = f.env.Path("src");
    CreateTree(src, Dir({{"a.txt", File("alpha")}}));
    f.AddSource(src);
    std::promise<void> locked;
    std::thread writer([&] {
        sqlite3* db = nullptr;
        sqlite3_open(f.db.c_str(), &db);
        sqlite3_exec(db, "BEGIN IMMEDIATE;", nullptr, nullptr, nullptr);
        locked.set_value();
        std::this_thread::sleep_for(std::chrono::seconds(3));
        sqlite3_exec(db, "COMMIT;", nullptr, nullptr, nullptr);
        sqlite3_close(db);
    });
    locked.get_future().wait();
    const ProgramRun run = RunStashwell({"backup"});
    writer.join();
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(f.Rows("SELECT bid, source FROM Backups"), (Lines{"1", src}));
    EXPECT_EQ(f.Rows("SELECT count(*) FROM Files"), Lines{"1"});
}

TEST(FailedCommit, RowsThatCannotBeWrittenAreNotCommittedAsIfTheyWere) {
    BackupFixture f;
    const std::string src = f.env.Path("src");
    CreateTree(src, Dir({{"a.txt", File("alpha")}, {"b.txt", File("beta")}}));
    f.AddSource(src);
    f.Exec("CREATE TRIGGER damaged BEFORE INSERT ON Files BEGIN "
           "SELECT RAISE(ABORT, 'damaged page'); END;");
    const ProgramRun run = RunStashwell({"backup"});
    EXPECT_EQ(run.exitCode, 5);
    EXPECT_EQ(run.err, "The run of " + src +
                           " was lost: the catalogue could not record 2 of its rows: damaged "
                           "page\n" +
                           Lost(f));
    EXPECT_EQ(f.Rows("SELECT count(*) FROM Backups"), Lines{"0"});
    EXPECT_FALSE(HasLine(LogMessages(f.TodaysLog()), "Backup Complete. MB in 00:00:00\r\n"));
}

TEST(MissedSources, MissingSourceOrAFileIsNamedAndTheLogStays) {
    BackupFixture f;
    const std::string gone = f.env.Path("gone"), file = f.env.Path("file.txt");
    WriteFile(file, "not a folder");
    f.AddSource(gone);
    f.AddSource(file);
    const ProgramRun run = RunStashwell({"backup"});
    EXPECT_EQ(run.exitCode, 4);
    EXPECT_EQ(run.err, "Source " + gone + " was not backed up: it does not exist\nSource " + file +
                           " was not backed up: it is not a folder\n" + Problems(f));
    // No run today, yet the log that tells of the skipped sources is kept.
    const Lines log = LogMessages(f.TodaysLog());
    EXPECT_TRUE(HasLine(log, gone + " not accessible. Skipping\r\n"));
    EXPECT_TRUE(HasLine(log, file + " not accessible. Skipping\r\n"));
    EXPECT_TRUE(
        HasLine(log, "Problem: Source " + gone + " was not backed up: it does not exist\r\n"));
}

TEST(MissedSources, UnreadableFilesAndFoldersAreNamedAndCounted) {
    BackupFixture f;
    const std::string src = f.env.Path("src");
    CreateTree(src, Dir({{"a.txt", File("alpha")},
                         {"secret.txt", File("secret")},
                         {"locked", Dir({{"x.txt", File("x")}})}}));
    f.AddSource(src);
    ProgramRun run;
    {
        ScopedNoPermissionOverride noOverride;
        if (!noOverride.Ok()) GTEST_SKIP() << "cannot drop the power to bypass permissions";
        ::chmod((src + "/secret.txt").c_str(), 0);
        ::chmod((src + "/locked").c_str(), 0);
        run = RunStashwell({"backup"});
        ::chmod((src + "/locked").c_str(), 0700);
    }
    EXPECT_EQ(run.exitCode, 4);
    EXPECT_EQ(run.err, "Could not read the folder " + src + "/locked: permission denied\n" +
                           "Could not read " + src + "/secret.txt: permission denied\n" +
                           "1 file of " + src + " could not be read\n" + Problems(f));
    EXPECT_EQ(f.Rows("SELECT file FROM Files"), Lines{src + "/a.txt"});
}

// Folders nested below `root` until a file's path is `length` bytes long; the first folder
// whose path reaches the system's limit.
std::string NestTo(const std::string& root, size_t length) {
    fs::create_directories(root);
    int fd = ::open(root.c_str(), O_RDONLY | O_DIRECTORY);
    std::string path = root, firstTooLong;
    const std::string name(200, 'd');
    while (path.size() + 1 + name.size() + 1 + 8 < length) {
        ::mkdirat(fd, name.c_str(), 0700);
        const int next = ::openat(fd, name.c_str(), O_RDONLY | O_DIRECTORY);
        ::close(fd);
        fd = next;
        path += "/" + name;
        if (firstTooLong.empty() && path.size() >= PATH_MAX) firstTooLong = path;
    }
    const std::string last(length - path.size() - 1, 'f');
    const int file = ::openat(fd, last.c_str(), O_WRONLY | O_CREAT, 0600);
    if (::write(file, "deep", 4) != 4) ADD_FAILURE() << "cannot write the deep file";
    ::close(file);
    ::close(fd);
    return firstTooLong;
}

TEST(MissedSources, PathLongerThanTheSystemAllowsIsNamed) {
    BackupFixture f;
    const std::string src = f.env.Path("src");
    CreateTree(src, Dir({{"a.txt", File("alpha")}}));
    const std::string tooLong = NestTo(src + "/deep", 4860);
    f.AddSource(src);
    const ProgramRun run = RunStashwell({"backup"});
    EXPECT_EQ(run.exitCode, 4);
    EXPECT_EQ(run.err, "Could not read the folder " + tooLong +
                           ": its path is longer than the system allows\n" + Problems(f));
    EXPECT_EQ(f.Rows("SELECT file FROM Files"), Lines{src + "/a.txt"});
    fs::remove_all(src + "/deep"); // fs::remove_all copes with the depth
}

TEST(MissedSources, FilesRecordedWithoutTheirContentAreNamed) {
    // The drive is too full for any new file before the run begins, and the run's first file
    // is stored already, which sets the stored flag: every new file after it is recorded (the
    // flag carries over) but not stored. Nothing is written while the drive is full: the new
    // files have the sizes of content stored before, so the read-ahead only signs them and the
    // run meets each at its free-space check, whatever the timing of its threads.
    BackupFixture f;
    SmallDisk disk(f.env.Path("small"), 8);
    if (!disk.Ok()) GTEST_SKIP() << "mounting a small file system needs root";
    f.UseBackupPath(f.env.Path("small/backup"));
    const std::string src = f.env.Path("src");
    const size_t kSize = 512 * 1024;
    fs::create_directories(src + "/new");
    WriteFile(src + "/a.txt", "stored before");
    for (int i = 0; i < 4; ++i)
        WriteFile(src + "/new/f" + std::to_string(i) + ".bin",
                  PatternContent(kSize + static_cast<size_t>(i)));
    f.AddSource(src);
    ASSERT_EQ(RunStashwell({"backup"}).exitCode, 0);
    Lines rows{src + "/a.txt"}, expected;
    for (const std::string& file : WalkOrder(src + "/new")) {
        WriteFile(file, "new " + ReadFile(file).substr(4)); // new content, the same size
        rows.push_back(file);
        expected.push_back("Recorded but not stored: " + file +
                           ": not enough free space on the backup drive");
    }
    expected.push_back(Problems(f).substr(0, Problems(f).size() - 1));
    FillUp(f.env.Path("small/filler"), 128 * 1024);

    const ProgramRun run = RunStashwell({"backup"});
    EXPECT_EQ(run.exitCode, 4);
    EXPECT_EQ(ErrLines(run.err), expected);
    EXPECT_EQ(f.Rows("SELECT file FROM Files WHERE bid = 2 ORDER BY fid"), rows);
    for (const std::string& file : WalkOrder(src + "/new"))
        EXPECT_FALSE(Exists(StoreFile(f.backup, ReadFile(file)))) << file;
    const Lines log = LogMessages(f.TodaysLog());
    EXPECT_EQ(std::count(log.begin(), log.end(), "Insufficient disk space on backup drive\r\n"), 4);
}

struct InvalidLimit : ::testing::TestWithParam<std::pair<std::string, std::string>> {};

TEST_P(InvalidLimit, StopsAfterTheFirstSourceAndNamesTheOthers) {
    const auto& [limit, error] = GetParam();
    BackupFixture f;
    const std::string a = f.env.Path("a"), b = f.env.Path("b"), c = f.env.Path("c");
    for (const std::string& src : {a, b, c}) {
        CreateTree(src, Dir({{"x.txt", File(src)}}));
        f.AddSource(src);
    }
    f.SetOption("MaxBackups", limit);
    const ProgramRun run = RunStashwell({"backup"});
    EXPECT_EQ(run.exitCode, 4);
    EXPECT_EQ(run.err, "The number of backups to keep, \"" + limit +
                           "\", is not a whole number from 1 to 100; the run stopped there\n"
                           "The run stopped at an error: " +
                           error + "\nSource " + b +
                           " was not backed up: the run stopped before it\nSource " + c +
                           " was not backed up: the run stopped before it\n" + Problems(f));
    EXPECT_EQ(f.Rows("SELECT source FROM Backups"), Lines{a});
}

INSTANTIATE_TEST_SUITE_P(
    Values, InvalidLimit,
    ::testing::Values(std::pair{std::string("abc"), std::string("Type mismatch")},
                      std::pair{std::string("99999"), std::string("Overflow")}));

// Damage done to a catalogue that holds a run.
enum class Damage {
    kTruncatedToHalf,
    kTruncatedInTheHeader,
    kRandomBytes,
    kZeroedPage,
    kTableMissing,
    kColumnMissing,
    kNotADatabase,
    kFolderInItsPlace,
};

struct DamagedCatalogue : ::testing::TestWithParam<Damage> {};

void Harm(const BackupFixture& f, Damage damage) {
    const auto size = static_cast<off_t>(fs::file_size(f.db));
    switch (damage) {
    case Damage::kTruncatedToHalf:
        ASSERT_EQ(::truncate(f.db.c_str(), size / 2), 0);
        break;
    case Damage::kTruncatedInTheHeader:
        ASSERT_EQ(::truncate(f.db.c_str(), 50), 0);
        break;
    case Damage::kRandomBytes:
        WriteFile(f.db, PatternContent(static_cast<size_t>(size)));
        break;
    case Damage::kZeroedPage: {
        std::fstream file(f.db, std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(size - 4096);
        const std::string zeros(4096, '\0');
        file.write(zeros.data(), 4096);
        break;
    }
    case Damage::kTableMissing:
        f.Exec("DROP TABLE Files");
        break;
    case Damage::kColumnMissing:
        f.Exec("ALTER TABLE Backups DROP COLUMN datebk");
        break;
    case Damage::kNotADatabase:
        WriteFile(f.db, "hello, I am not a catalogue\n");
        break;
    case Damage::kFolderInItsPlace:
        fs::remove(f.db);
        fs::create_directory(f.db);
        break;
    }
}

TEST_P(DamagedCatalogue, StopsBeforeTheRunAndDeletesNoLog) {
    BackupFixture f;
    const std::string src = f.env.Path("src");
    MakeRandomFiles(src, 300, 3);
    f.AddSource(src);
    ASSERT_EQ(RunStashwell({"backup"}).exitCode, 0);
    const std::string oldLog = f.backup + "/Logs/QRV-20200101.LOG";
    WriteFile(oldLog, "a day without a run\r\n");
    const auto store = ListTree(f.backup + "/Files");
    Harm(f, GetParam());

    const ProgramRun run = RunStashwell({"backup", "compact"});
    EXPECT_EQ(run.exitCode, 1);
    Lines err = ErrLines(run.err);
    ASSERT_FALSE(err.empty());
    const std::string problem = err.back();
    err.pop_back();
    // A folder in the catalogue's place first meets the attempt to create a catalogue there.
    EXPECT_EQ(err, GetParam() == Damage::kFolderInItsPlace
                       ? Lines{"Database error: cannot create " + f.db + ": Is a directory"}
                       : Lines{});
    const std::string lead = "The catalogue " + f.db + " cannot be read: ";
    EXPECT_EQ(problem.rfind(lead, 0), 0u) << run.err;
    EXPECT_GT(problem.size(), lead.size());
    EXPECT_TRUE(Exists(oldLog));
    EXPECT_TRUE(HasLine(LogMessages(f.TodaysLog()), "Problem: " + problem + "\r\n"));
    EXPECT_EQ(ListTree(f.backup + "/Files"), store);
}

INSTANTIATE_TEST_SUITE_P(Kinds, DamagedCatalogue,
                         ::testing::Values(Damage::kTruncatedToHalf, Damage::kTruncatedInTheHeader,
                                           Damage::kRandomBytes, Damage::kZeroedPage,
                                           Damage::kTableMissing, Damage::kColumnMissing,
                                           Damage::kNotADatabase, Damage::kFolderInItsPlace));

TEST(FailedStart, RelativeBackupPathIsRefused) {
    ScopedTestEnv env;
    WriteRegSetting("BackupPath", "backup");
    // Even a Logs folder where the relative path leads, below the program's folder, gets nothing.
    fs::create_directories(env.Path("backup/Logs"));
    const ProgramRun run = RunStashwell({"backup"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, "Error: The backup path \"backup\" is not a full path (one that begins "
                       "with /). Please choose the backup folder again.\n");
    EXPECT_EQ(ListTree(env.Path("backup")), Lines{"Logs/"});
}

TEST(FailedStart, StateFolderThatCannotBeWrittenIsNamed) {
    BackupFixture f;
    const std::string readOnly = f.env.Path("read-only");
    fs::create_directories(readOnly);
    ::chmod(readOnly.c_str(), 0500);
    ProgramRun run;
    {
        ScopedNoPermissionOverride noOverride;
        if (!noOverride.Ok()) GTEST_SKIP() << "cannot drop the power to bypass permissions";
        run = RunStashwell({"backup"}, 120, {{"XDG_STATE_HOME", readOnly + "/state"}});
    }
    ::chmod(readOnly.c_str(), 0700);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, "Error: Stashwell cannot write its state folder " + readOnly +
                           "/state/Korvex/QRV: permission denied\n");
}

TEST(FailedStart, SettingsFileThatCannotBeReadIsNamed) {
    ScopedTestEnv env;
    const std::string settings = env.ConfigHome() + "/Korvex/QRV.conf";
    fs::create_directories(settings);
    const ProgramRun run = RunStashwell({"backup"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err,
              "Error: Stashwell cannot read its settings file " + settings + ": is a directory\n");
}

// Today's log as an earlier start left it.
const std::string kEarlierLog = " \r\n25/11/2026 08:00:00: " + kStarted;

// A day's log that holds lines already, on a file system that appends nothing to it (fusefat
// does so to a file of less than 512 bytes).
struct DailyLogWithoutAppends : ::testing::TestWithParam<const char*> {};

TEST_P(DailyLogWithoutAppends, StopsTheStartWithTheLogsNameAndCause) {
    BackupFixture f;
    const std::string src = f.env.Path("src");
    CreateTree(src, Dir({{"a.txt", File("alpha")}}));
    f.AddSource(src);
    fs::create_directories(f.backup + "/Logs");
    WriteFile(f.TodaysLogPath(), kEarlierLog);
    const ProgramRun run =
        RunStashwell({GetParam()}, 120, ShimEnv(f.backup + "/Logs", "no-append"));
    EXPECT_EQ(run.signal, 0);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, "Error: Stashwell cannot write its daily log " + f.TodaysLogPath() +
                           ": permission denied\n");
    EXPECT_EQ(f.TodaysLog(), kEarlierLog);
    EXPECT_EQ(f.Rows("SELECT count(*) FROM Backups"), Lines{"0"});
}

INSTANTIATE_TEST_SUITE_P(Words, DailyLogWithoutAppends, ::testing::Values("compact", "backup"));

TEST(FailedStart, LogThatCannotTakeItsLastLineEndsTheRunWithProblems) {
    BackupFixture f;
    // A log folder of one page, today's log filled so that the start's lines end the page.
    std::string log;
    ProgramRun run;
    {
        SmallDisk logs(f.backup + "/Logs", "4k");
        if (!logs.Ok()) GTEST_SKIP() << "mounting a small file system needs root";
        const size_t lines = std::string(" \r\n").size() + 21 + kStarted.size() + 21 +
                             std::string("Unattended backup complete\r\n").size();
        WriteFile(f.TodaysLogPath(), std::string(4096 - lines, 'x'));
        run = RunStashwell({"nothing"});
        log = f.TodaysLog();
    }
    EXPECT_EQ(run.signal, 0);
    EXPECT_EQ(run.exitCode, 4);
    EXPECT_EQ(run.err, "Error: Stashwell cannot write its daily log " + f.TodaysLogPath() +
                           ": the disk is full\n");
    ASSERT_EQ(log.size(), 4096u);
    EXPECT_EQ(log.substr(log.size() - 28), "Unattended backup complete\r\n");
}

TEST(FailedStart, SettingsFileWithCrLfLineEndsIsRead) {
    BackupFixture f;
    const std::string src = f.env.Path("src");
    CreateTree(src, Dir({{"a.txt", File("alpha")}}));
    f.AddSource(src);
    WriteFile(f.env.ConfigHome() + "/Korvex/QRV.conf",
              "[SOFTWARE\\Korvex\\QRV\\Settings]\r\nBackupPath=" + f.backup + "\r\n");
    const ProgramRun run = RunStashwell({"backup"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(f.Rows("SELECT source FROM Backups"), Lines{src});
}

TEST(FailedStart, MissingLogsFolderIsMadeBeforeTheFirstLine) {
    BackupFixture f;
    fs::remove_all(f.backup + "/Logs");
    ASSERT_EQ(RunStashwell({"nothing"}).exitCode, 0);
    EXPECT_EQ(LogMessages(f.TodaysLog()),
              (Lines{" \r\n", kStarted, "Unattended backup complete\r\n", "Exiting QRV\r\n"}));
    struct stat st {};
    ASSERT_EQ(::stat((f.backup + "/Logs").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0700u);
}

TEST(FailedStart, FirstStartLogsFromItsFirstLine) {
    ScopedTestEnv env;
    const std::string backup = env.Path("backup");
    fs::create_directories(backup);
    WriteRegSetting("BackupPath", backup);
    ASSERT_EQ(RunStashwell({"nothing"}).exitCode, 0);
    EXPECT_TRUE(Exists(backup + "/db/Backup.db"));
    const Lines log = LogMessages(ReadFile(fs::directory_iterator(backup + "/Logs")->path()));
    EXPECT_EQ(log, (Lines{" \r\n", kStarted, "Unattended backup complete\r\n", "Exiting QRV\r\n"}));
}

} // namespace
