// The quick check through the real program run unattended: the option is read from Setup, the
// stamps are kept beside the catalogue, and a second run of an unchanged tree opens none of its
// files while it records every one of them as the first run did.

#include "BackupFixture.h"
#include "TestProgram.h"

#include <chrono>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Lines = std::vector<std::string>;

// The names of the files opened in one folder while it is watched.
class OpenedFiles {
public:
    explicit OpenedFiles(const std::string& folder)
        : m_fd(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
        ::inotify_add_watch(m_fd, folder.c_str(), IN_OPEN | IN_ACCESS);
    }
    ~OpenedFiles() { ::close(m_fd); }

    // Each name once, in order.
    Lines Names() const {
        std::set<std::string> names;
        alignas(inotify_event) char buffer[64 * 1024];
        for (ssize_t got; (got = ::read(m_fd, buffer, sizeof buffer)) > 0;)
            for (char* at = buffer; at < buffer + got;) {
                const auto* event = reinterpret_cast<const inotify_event*>(at);
                if (event->len > 0 && !(event->mask & IN_ISDIR)) names.insert(event->name);
                at += sizeof(inotify_event) + event->len;
            }
        return {names.begin(), names.end()};
    }

private:
    int m_fd;
};

class QuickCheckProgram : public ::testing::Test {
protected:
    QuickCheckProgram() : src(f.env.Path("src")) {
        CreateTree(src, Dir({{"a.txt", File("alpha content")},
                             {"b.txt", File("bravo content")},
                             {"c.txt", File("alpha content")}}));
        f.AddSource(src);
        // The times of the files must lie well before the first run for their stamps to vouch.
        std::this_thread::sleep_for(std::chrono::milliseconds(2100));
    }

    Lines FileRows(int bid) const {
        return f.RowTexts("SELECT md5, path, file, backup, size FROM Files WHERE bid = " +
                          std::to_string(bid) + " ORDER BY fid");
    }

    BackupFixture f;
    std::string src;
};

TEST_F(QuickCheckProgram, SecondRunOpensNoUnchangedFileAndRecordsEveryOne) {
    f.SetOption("QuickCheck", "1");
    ASSERT_EQ(RunStashwell({"backup"}).exitCode, 0);
    const std::string kept = f.backup + "/db/QuickCheck.db";
    struct stat st {};
    ASSERT_EQ(::stat(kept.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    EXPECT_EQ(SqlRows(kept, "SELECT count(*) FROM Stamps"), (std::vector<Lines>{{"3"}}));

    const OpenedFiles opened(src);
    const ProgramRun second = RunStashwell({"backup"});
    EXPECT_EQ(second.exitCode, 0) << second.err;
    EXPECT_EQ(opened.Names(), Lines{});
    EXPECT_EQ(FileRows(2), FileRows(1));
    EXPECT_EQ(FileRows(2).size(), 3u);
}

TEST_F(QuickCheckProgram, OptionOffReadsEveryFileAndKeepsNoStamps) {
    f.SetOption("QuickCheck", "0");
    ASSERT_EQ(RunStashwell({"backup"}).exitCode, 0);
    const OpenedFiles opened(src);
    ASSERT_EQ(RunStashwell({"backup"}).exitCode, 0);
    EXPECT_EQ(opened.Names(), (Lines{"a.txt", "b.txt", "c.txt"}));
    EXPECT_FALSE(Exists(f.backup + "/db/QuickCheck.db"));
    EXPECT_EQ(FileRows(2), FileRows(1));
}

TEST_F(QuickCheckProgram, ChangedFileIsReadAgainAndItsNewContentStored) {
    f.SetOption("QuickCheck", "1");
    ASSERT_EQ(RunStashwell({"backup"}).exitCode, 0);
    WriteFile(src + "/b.txt", "BRAVO CONTENT");
    const OpenedFiles opened(src);
    ASSERT_EQ(RunStashwell({"backup"}).exitCode, 0);
    EXPECT_EQ(opened.Names(), Lines{"b.txt"});
    EXPECT_EQ(
        f.RowTexts("SELECT md5, backup FROM Files WHERE bid = 2 AND file = '" + src + "/b.txt'"),
        Lines{TestSignature("BRAVO CONTENT") + "|" + StoreFile(f.backup, "BRAVO CONTENT")});
    EXPECT_EQ(ReadFile(StoreFile(f.backup, "BRAVO CONTENT")), "BRAVO CONTENT");
}

} // namespace
