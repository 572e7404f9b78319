// The program's locks seen from outside, with the real program: the check after an interrupted
// run touches the catalogue's journal only while the program holds the backup folder's lock,
// since the journal may belong to the program that works there now; and a file system that
// cannot lock at all (the file-system shim's no-lock) lets the run go on and the log say so;
// the same holds with the window present.

#include "BackupFixture.h"
#include "FSShimEnv.h"
#include "TestProgram.h"
#include "support/Version.h"

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

namespace {

using Lines = std::vector<std::string>;

const std::string kStarted = "QRV " + std::to_string(version::kMajor) + "." +
                             std::to_string(version::kMinor) + "." +
                             std::to_string(version::kRevision) + " Started\r\n";

// The backup folder's lock, held by this test (another program than the one it starts) until
// Release.
class HeldFolderLock {
public:
    explicit HeldFolderLock(const std::string& backup)
        : m_fd(::open((backup + "/QRV.lock").c_str(), O_RDONLY | O_CREAT | O_CLOEXEC, 0600)) {}
    ~HeldFolderLock() { Release(); }
    HeldFolderLock(const HeldFolderLock&) = delete;
    HeldFolderLock& operator=(const HeldFolderLock&) = delete;

    bool Take() { return m_fd >= 0 && ::flock(m_fd, LOCK_EX | LOCK_NB) == 0; }
    void Release() {
        if (m_fd >= 0) ::close(m_fd);
        m_fd = -1;
    }

private:
    int m_fd;
};

TEST(InterruptedRun, JournalIsLeftAloneWhileAnotherProgramHoldsTheFolderAndCheckedOnceItIsFree) {
    BackupFixture f;
    const std::string journal = f.db + "-journal";
    // A catalogue that fails the integrity check, beside a journal. (An empty one: the
    // database engine would discard a journal it cannot read by itself while checking.)
    WriteFile(f.db, std::string(4096, 'x'));
    WriteFile(journal, "");
    HeldFolderLock other(f.backup);
    ASSERT_TRUE(other.Take());

    const ProgramRun busy = RunStashwell({"backup"});
    EXPECT_EQ(busy.exitCode, 3);
    const std::string leftAlone = "The catalogue's journal " + journal +
                                  " was left alone, unchecked: another program is working on "
                                  "the backup folder " +
                                  f.backup;
    EXPECT_EQ(busy.err, leftAlone + "\n");
    EXPECT_TRUE(Exists(journal));
    EXPECT_EQ(LogMessages(f.TodaysLog()), (Lines{" \r\n", kStarted, leftAlone + "\r\n"}));

    other.Release();
    WriteFile(f.TodaysLogPath(), "");
    const ProgramRun free = RunStashwell({"backup"});
    EXPECT_EQ(free.exitCode, 1);
    EXPECT_EQ(free.err, "Possible QRV database corruption\nThe catalogue " + f.db +
                            " cannot be read: file is not a database\n");
    EXPECT_FALSE(Exists(journal));
    EXPECT_EQ(
        LogMessages(f.TodaysLog()),
        (Lines{" \r\n", kStarted,
               "Previous Backup process interrupted. Running Integrity Check\r\n",
               "Running Integrity Check\r\n", "Killed DB Journal. Possible previous crash\r\n",
               "Possible QRV database corruption\r\n",
               "Problem: The catalogue " + f.db + " cannot be read: file is not a database\r\n"}));
}

TEST(FolderThatCannotLock, BackupGoesOnWithoutTheLockAndTheLogSaysSoOnce) {
    BackupFixture f;
    const std::string src = f.env.Path("src");
    CreateTree(src,
               Dir({{"a.txt", File("alpha")}, {"b.txt", File("beta")}, {"c.txt", File("gamma")}}));
    f.AddSource(src);
    // The check after an interrupted run asks for the lock before the run does.
    WriteFile(f.db + "-journal", "");

    const ProgramRun run = RunStashwell({"backup"}, 120, ShimEnv(f.backup, "no-lock"));
    // Every source backed up and committed: the outcome, and so the status, is complete.
    EXPECT_EQ(run.exitCode, 0);
    const std::string unlocked = "The file system of the backup folder cannot lock " + f.backup +
                                 "/QRV.lock (no locks available), so another program could "
                                 "work on the backup folder at the same time";
    EXPECT_EQ(run.err, unlocked + "\n");
    EXPECT_EQ(f.RowTexts("SELECT bid, source FROM Backups"), Lines{"1|" + src});
    EXPECT_EQ(f.Rows("SELECT count(*) FROM Files"), Lines{"3"});
    EXPECT_EQ(ListTree(f.backup + "/Files"), StoreEntries({"alpha", "beta", "gamma"}));
    const Lines log = LogMessages(f.TodaysLog());
    ASSERT_GE(log.size(), 4u);
    EXPECT_EQ(Lines(log.begin(), log.begin() + 4),
              (Lines{" \r\n", kStarted, "Problem: " + unlocked + "\r\n",
                     "Previous Backup process interrupted. Running Integrity Check\r\n"}));
    EXPECT_EQ(std::count(log.begin(), log.end(), "Problem: " + unlocked + "\r\n"), 1);
    EXPECT_EQ(log.back(), "Exiting QRV\r\n");
}

TEST(StateFolderThatCannotLock, RunGoesOnAndTheLogSaysASecondInstanceCouldStart) {
    BackupFixture f;
    const std::string src = f.env.Path("src");
    CreateTree(src, Dir({{"a.txt", File("alpha")}}));
    f.AddSource(src);
    const std::string state = f.env.StateHome() + "/Korvex/QRV";
    const ProgramRun run = RunStashwell({"backup"}, 120, ShimEnv(state, "no-lock"));
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(f.RowTexts("SELECT bid, source FROM Backups"), Lines{"1|" + src});
    const Lines log = LogMessages(f.TodaysLog());
    ASSERT_GE(log.size(), 3u);
    EXPECT_EQ(log[2], "Problem: The file system of the state folder cannot lock " + state +
                          "/QRV.lock (no locks available), so a second Stashwell of this user "
                          "could run beside this one\r\n");
}

} // namespace

// With a display the words run with the window present; they take the backup folder's lock as
// the start without a window does, before the catalogue is opened.
const ProgramEnv kOffscreen{{"QT_QPA_PLATFORM", "offscreen"}};

size_t Count(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

TEST(WindowPresent, AFolderAnotherProgramKeepsEndsTheWordsWithStatusThreeAndNoCatalogueMade) {
    BackupFixture f;
    const std::string src = f.env.Path("src");
    CreateTree(src, Dir({{"a.txt", File("alpha")}}));
    f.AddSource(src);
    std::filesystem::remove(f.db);
    HeldFolderLock other(f.backup);
    ASSERT_TRUE(other.Take());

    const ProgramRun run = RunStashwell({"backup"}, 120, kOffscreen);
    EXPECT_EQ(run.exitCode, 3);
    const std::string busy = "Error: Another Stashwell is working on the backup folder " +
                             f.backup + ". Please try again when it has finished.";
    EXPECT_EQ(Count(run.err, busy + "\n"), 1u) << run.err;
    EXPECT_FALSE(Exists(f.db));
    const Lines log = LogMessages(f.TodaysLog());
    ASSERT_FALSE(log.empty());
    EXPECT_EQ(log.back(), busy + "\r\n");
}

TEST(WindowPresent, AFolderThatCannotLockIsSaidOnStderrAndTheRunGoesOn) {
    BackupFixture f;
    const std::string src = f.env.Path("src");
    CreateTree(src, Dir({{"a.txt", File("alpha")}}));
    f.AddSource(src);
    ProgramEnv env = ShimEnv(f.backup, "no-lock");
    env.insert(env.end(), kOffscreen.begin(), kOffscreen.end());

    const ProgramRun run = RunStashwell({"backup"}, 120, env);
    EXPECT_EQ(run.exitCode, 0) << run.err;
    const std::string unlocked = "The file system of the backup folder cannot lock " + f.backup +
                                 "/QRV.lock (no locks available), so another program could "
                                 "work on the backup folder at the same time";
    EXPECT_EQ(Count(run.err, unlocked + "\n"), 1u) << run.err;
    EXPECT_EQ(f.RowTexts("SELECT bid, source FROM Backups"), Lines{"1|" + src});
    const Lines log = LogMessages(f.TodaysLog());
    ASSERT_FALSE(log.empty());
    EXPECT_EQ(std::count(log.begin(), log.end(), "Problem: " + unlocked + "\r\n"), 1);
    EXPECT_EQ(log.back(), "Exiting QRV\r\n");
}
