// The opt-in quick check of a backup run: a file whose stamp (device, inode, size, modification
// and change times) is what the source's last committed run kept takes that run's signature
// without being opened; every other file is read and signed as usual, and the run is recorded
// as if every file had been hashed. Which files a run opens is watched with inotify on Linux;
// Windows tells no one, so there every file the run must not open is held with no sharing,
// which makes the run fail to read it.
//
// A stamp is kept only for files whose times lie 2 seconds before the run's start, so the tests
// make their files, then wait that long before the first run.

#include "EngineFixture.h"
#include "OpenWatch.h"
#include "StoreAudit.h"
#include "WindowsTestHelpers.h"

#include "app/modPaths.h"
#include "app/modSetup.h"
#include "catalogue/CQuickCheckDB.h"
#include "engine/CBackup.h"
#include "engine/CQuickCheck.h"
#include "support/CMMTimer.h"
#include "support/modServices.h"
#include "support/modYield.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using Strings = std::vector<std::string>;
using Rows = std::vector<Strings>;

PathStatus StatOf(const std::string& path) {
    const PathStatus status = StatusOf(path, true);
    EXPECT_TRUE(status.Exists()) << path << ": " << status.error;
    return status;
}

// Lets the files just made grow old enough for their stamps to be kept by the next run.
void LetFilesSettle() {
    std::this_thread::sleep_for(std::chrono::nanoseconds(CQuickCheck::kSettledNs) +
                                std::chrono::milliseconds(100));
}

class CQuickCheckTest : public EngineFixture {
protected:
    CQuickCheckTest() : quickFile(CQuickCheckDB::PathBeside(GetDBPath())) {}

    void Prepare(CBackup& backup, const std::string& folder, bool quick) {
        backup.Source(folder);
        backup.BackupDB(GetDBPath());
        backup.BackupPath(GetFilesPath());
        backup.QuickCheck(quick);
        backup.OnStart = [this](int32_t) { now += 3000; };
    }

    // One complete run of `folder`; the run must raise no box and meet no problem.
    void Run(bool quick, const std::string& folder) {
        CBackup backup;
        Prepare(backup, folder, quick);
        EXPECT_EQ(backup.Exec(), CBackup::Result::kEmpty);
        EXPECT_FALSE(backup.Problems().Any()) << backup.Problems().lost;
        EXPECT_EQ(env.box.calls.size(), 0u);
    }
    void Run(bool quick) { Run(quick, source); }

    // One complete run of `folder`, which must open or read exactly the files `opened` below it
    // (relative, sorted).
    void ExpectOpens(bool quick, const std::string& folder, const Strings& opened) {
#ifdef _WIN32
        std::vector<std::unique_ptr<ExclusiveHold>> held;
        for (const std::string& path : WalkOrder(folder)) {
            std::string relative = path.substr(folder.size() + 1);
            std::replace(relative.begin(), relative.end(), kPathSeparator, '/');
            if (std::find(opened.begin(), opened.end(), relative) != opened.end()) continue;
            held.push_back(std::make_unique<ExclusiveHold>(path));
            EXPECT_TRUE(held.back()->Ok()) << path;
        }
        Run(quick, folder);
#else
        OpenWatch watch(folder);
        Run(quick, folder);
        EXPECT_EQ(watch.Opened(), opened);
#endif
    }
    void ExpectOpens(bool quick, const Strings& opened) {
        ExpectOpens(quick, source, opened);
    }

    // Every content is in the store under its signature, and nothing else is.
    void ExpectStoreHolds(const Strings& contents) const {
        EXPECT_EQ(StoreListing(), StoreEntries(contents));
        for (const std::string& content : contents)
            EXPECT_EQ(ReadFile(StoreFile(content)), content) << TestSignature(content);
        EXPECT_EQ(AuditBackupFolder(env.Path("bk")), Strings{});
    }

    // The Files rows of run `bid`, in the order they were written.
    Rows RunRows(int bid) const {
        return Query("SELECT md5, path, file, backup, size FROM Files WHERE bid = " +
                     std::to_string(bid) + " ORDER BY fid");
    }

    // The rows a run of `folder` writes when its files hold `contents` (keyed by full path).
    Rows ExpectedRows(const std::map<std::string, std::string>& contents,
                      const std::string& folder) const {
        Rows rows;
        for (const std::string& path : WalkOrder(folder)) {
            const auto found = contents.find(path);
            EXPECT_NE(found, contents.end()) << path;
            if (found == contents.end()) continue;
            const std::string& content = found->second;
            rows.push_back({TestSignature(content),
                            Encoded(path.substr(0, path.rfind(kPathSeparator) + 1)), Encoded(path),
                            StoreFile(content), std::to_string(content.size())});
        }
        return rows;
    }
    Rows ExpectedRows(const std::map<std::string, std::string>& contents) const {
        return ExpectedRows(contents, source);
    }

    std::string quickFile;

    // A small tree used by most tests: files of three sizes, two of them with equal content,
    // in the source folder and two levels below it.
    const std::string a = "alpha content", b = PatternContent(20000), c = PatternContent(9000);
    std::map<std::string, std::string> Contents() const {
        return {{source + Native("/a.txt"), a},
                {source + Native("/sub/b.bin"), b},
                {source + Native("/sub/deep/c.dat"), c},
                {source + Native("/sub/deep/copy.dat"), c}};
    }
    void MakeTree() {
        CreateTree(
            source,
            Dir({{"a.txt", File(a)},
                 {"sub", Dir({{"b.bin", File(b)},
                              {"deep", Dir({{"c.dat", File(c)}, {"copy.dat", File(c)}})}})}}));
    }
    static inline const Strings kAllFiles{"a.txt", "sub/b.bin", "sub/deep/c.dat",
                                          "sub/deep/copy.dat"};
};

// ---- Unchanged files ----

TEST_P(CQuickCheckTest, SecondRunOpensNoUnchangedFileAndRecordsItAsTheFirstDid) {
    MakeTree();
    LetFilesSettle();
    Run(true);
    ASSERT_EQ(RunRows(1), ExpectedRows(Contents()));
    const Strings storeAfterFirst = StoreListing();
    ASSERT_EQ(storeAfterFirst, StoreEntries({a, b, c}));
    const size_t firstRunLines = LogLines().size();
    const Strings order = WalkOrder(source);

    ExpectOpens(true, Strings{});

    EXPECT_EQ(RunRows(2), RunRows(1));
    EXPECT_EQ(StoreListing(), storeAfterFirst);
    ExpectStoreHolds({a, b, c});
    // The run's lines from the file count on, as for files that were hashed and found stored.
    const Strings lines = LogLines();
    ASSERT_GT(lines.size(), firstRunLines);
    const Strings second(lines.begin() + static_cast<std::ptrdiff_t>(firstRunLines), lines.end());
    const auto from = std::find(second.begin(), second.end(), "Files found  : 4");
    ASSERT_NE(from, second.end());
    Strings expected{"Files found  : 4"};
    const std::map<std::string, std::string> contents = Contents();
    for (const std::string& path : order) {
        const std::string& content = contents.at(path);
        const std::string size = std::to_string(content.size());
        for (const std::string& line :
             {"FIL: " + path, "SIZ: " + size, "MD5: " + TestSignature(content),
              "File size: " + size, "File size: " + size,
              std::string("File already in backup collection")})
            expected.push_back(line);
    }
    expected.push_back("List of duplicates");
    for (const std::string& path : order)
        expected.push_back("Duplicate: " + path);
    for (const char* line :
         {"Total Files : 4", "Tot Filesize: 38,013", "Fil not copd: 4", "Siz not copd: 38,013"})
        expected.push_back(line);
    ASSERT_GE(second.end() - from, static_cast<std::ptrdiff_t>(expected.size()));
    EXPECT_EQ(Strings(from, from + static_cast<std::ptrdiff_t>(expected.size())), expected);
}

TEST_P(CQuickCheckTest, ARunThatTookTheKeptSignaturesKeepsThemForTheNextRun) {
    MakeTree();
    LetFilesSettle();
    Run(true);
    ExpectOpens(true, Strings{});
    ExpectOpens(true, Strings{});
    EXPECT_EQ(RunRows(3), ExpectedRows(Contents()));
    ExpectStoreHolds({a, b, c});
}

TEST_P(CQuickCheckTest, FileAddedSinceTheLastRunIsTheOnlyOneOpened) {
    MakeTree();
    LetFilesSettle();
    Run(true);
    const std::string added = "a file that came later";
    WriteFile(source + Native("/sub/added.txt"), added);
    std::map<std::string, std::string> contents = Contents();
    contents[source + Native("/sub/added.txt")] = added;

    ExpectOpens(true, Strings{"sub/added.txt"});
    EXPECT_EQ(RunRows(2), ExpectedRows(contents));
    ExpectStoreHolds({a, b, c, added});
}

TEST_P(CQuickCheckTest, OddSourceAndFileNamesAreRecognisedUnchanged) {
    source = env.Path("Bob's src");
#ifdef _WIN32
    // The names Windows allows: UTF-8 here, no control characters.
    const std::map<std::string, std::string> contents{
        {source + Native("/it's.txt"), "apostrophe"},
        {source + Native("/caf\xc3\xa9 \xe6\x97\xa5.txt"), "beyond ascii"},
        {source + Native("/Bob's dir/x'y.txt"), "apostrophes in folder and name"},
    };
#else
    const std::map<std::string, std::string> contents{
        {source + "/it's.txt", "apostrophe"},
        {source + "/new\nline.txt", "new line"},
        {source + "/bad\xff\xfe name.bin", "invalid utf-8"},
        {source + "/Bob's dir/x'y\r.txt", "apostrophes in folder and name"},
    };
#endif
    CreateTree(source, Dir({{"Bob's dir", Dir()}}));
    for (const auto& [path, content] : contents)
        WriteFile(path, content);
    LetFilesSettle();
    Run(true);
    ASSERT_EQ(RunRows(1), ExpectedRows(contents));

    ExpectOpens(true, Strings{});
    EXPECT_EQ(RunRows(2), ExpectedRows(contents));
}

// ---- Changed files ----

TEST_P(CQuickCheckTest, FileRewrittenWithTheSameSizeIsReadAgainAndStoredUnderItsNewSignature) {
    MakeTree();
    LetFilesSettle();
    Run(true);
    const std::string path = source + Native("/sub/b.bin");
    const PathStatus before = StatOf(path);
    std::string changed = b;
    changed[100] = static_cast<char>(changed[100] + 1);
    WriteFile(path, changed);
    const PathStatus after = StatOf(path);
    ASSERT_EQ(after.identity, before.identity);
    ASSERT_EQ(after.size, before.size);
    ASSERT_NE(after.writeNs, before.writeNs);

    ExpectOpens(true, Strings{"sub/b.bin"});

    std::map<std::string, std::string> contents = Contents();
    contents[path] = changed;
    EXPECT_EQ(RunRows(2), ExpectedRows(contents));
    EXPECT_EQ(RunRows(1), ExpectedRows(Contents()));
    ExpectStoreHolds({a, b, c, changed});
}

TEST_P(CQuickCheckTest, FileReplacedByAnotherOfTheSameSizeAndModificationTimeIsReadAgain) {
    MakeTree();
    LetFilesSettle();
    Run(true);
    const std::string path = source + Native("/sub/deep/c.dat");
    const PathStatus before = StatOf(path);
    // Made beside the source, given the old file's modification time, and renamed over it.
    std::string other = c;
    std::reverse(other.begin(), other.end());
    ASSERT_NE(other, c);
    const std::string replacement = env.Path("replacement.dat");
    WriteFile(replacement, other);
    ASSERT_TRUE(SetFileTimes(replacement, before.accessNs, before.writeNs));
    std::filesystem::rename(FsPath(replacement), FsPath(path));
    const PathStatus after = StatOf(path);
    ASSERT_NE(after.identity, before.identity);
    ASSERT_EQ(after.size, before.size);
    ASSERT_EQ(after.writeNs, before.writeNs);

    ExpectOpens(true, Strings{"sub/deep/c.dat"});

    std::map<std::string, std::string> contents = Contents();
    contents[path] = other;
    EXPECT_EQ(RunRows(2), ExpectedRows(contents));
    ExpectStoreHolds({a, b, c, other});
}

TEST_P(CQuickCheckTest, UnchangedFileWhoseStoreFileWentMissingIsCopiedAgain) {
    MakeTree();
    LetFilesSettle();
    Run(true);
    ASSERT_EQ(RemoveFile(StoreFile(b)), 0);
    const size_t firstRunLines = LogLines().size();

    // Only the copy into the store reads it.
    ExpectOpens(true, Strings{"sub/b.bin"});

    EXPECT_EQ(RunRows(2), ExpectedRows(Contents()));
    ExpectStoreHolds({a, b, c});
    const Strings lines = LogLines();
    const Strings copies = [&] {
        Strings found;
        for (size_t i = firstRunLines; i < lines.size(); ++i)
            if (lines[i].compare(0, 5, "COP: ") == 0) found.push_back(lines[i]);
        return found;
    }();
    EXPECT_EQ(copies, Strings{"COP: " + source + Native("/sub/b.bin")});
}

// ---- Fresh files ----

TEST_P(CQuickCheckTest, FilesMadeJustBeforeTheFirstRunAreReadAgainByTheNext) {
    MakeTree();
    Run(true);
    ExpectOpens(true, kAllFiles);
    EXPECT_EQ(RunRows(2), ExpectedRows(Contents()));
    ExpectStoreHolds({a, b, c});
}

TEST_P(CQuickCheckTest, OnlyTheFileMadeJustBeforeTheFirstRunIsReadAgain) {
    MakeTree();
    LetFilesSettle();
    const std::string fresh = "made a moment before the run";
    WriteFile(source + Native("/sub/fresh.txt"), fresh);
    std::map<std::string, std::string> contents = Contents();
    contents[source + Native("/sub/fresh.txt")] = fresh;
    Run(true);
    ASSERT_EQ(RunRows(1), ExpectedRows(contents));

    ExpectOpens(true, Strings{"sub/fresh.txt"});
    EXPECT_EQ(RunRows(2), ExpectedRows(contents));
    ExpectStoreHolds({a, b, c, fresh});
}

// ---- The data file ----

TEST_P(CQuickCheckTest, DamagedQuickCheckFileMeansEveryFileIsReadAndItIsReplaced) {
    MakeTree();
    LetFilesSettle();
    Run(true);
    ASSERT_TRUE(Exists(quickFile));
    const std::string garbage = "not a database\n" + PatternContent(3000);
    WriteFile(quickFile, garbage);
    const size_t firstRunLines = LogLines().size();

    ExpectOpens(true, kAllFiles);

    EXPECT_EQ(RunRows(2), ExpectedRows(Contents()));
    ExpectStoreHolds({a, b, c});
    EXPECT_EQ(ReadFile(quickFile).substr(0, 16), std::string("SQLite format 3\0", 16));
    const Strings lines = LogLines();
    EXPECT_EQ(std::count(lines.begin() + static_cast<std::ptrdiff_t>(firstRunLines), lines.end(),
                         "The quick check could not keep the stamps of this run"),
              0);

    ExpectOpens(true, Strings{});
    EXPECT_EQ(RunRows(3), ExpectedRows(Contents()));
}

TEST_P(CQuickCheckTest, DeletedQuickCheckFileMeansEveryFileIsReadAndItIsMadeAgain) {
    MakeTree();
    LetFilesSettle();
    Run(true);
    ASSERT_EQ(RemoveFile(quickFile), 0);

    ExpectOpens(true, kAllFiles);

    EXPECT_EQ(RunRows(2), ExpectedRows(Contents()));
    ExpectStoreHolds({a, b, c});
    ASSERT_TRUE(Exists(quickFile));
    EXPECT_TRUE(IsPrivate(quickFile));

    ExpectOpens(true, Strings{});
    EXPECT_EQ(RunRows(3), ExpectedRows(Contents()));
}

// ---- The option ----

TEST_P(CQuickCheckTest, WithTheOptionOffNoQuickCheckFileIsMadeAndEveryFileIsRead) {
    MakeTree();
    LetFilesSettle();
    Run(false);
    EXPECT_FALSE(Exists(quickFile));

    ExpectOpens(false, kAllFiles);

    EXPECT_FALSE(Exists(quickFile));
    EXPECT_EQ(ListTree(env.Path("bk/db")), (Strings{"Backup.db", "Metadata.db"}));
    EXPECT_EQ(RunRows(2), ExpectedRows(Contents()));
    ExpectStoreHolds({a, b, c});
}

TEST_P(CQuickCheckTest, WithTheOptionOffTheQuickCheckFileIsNeitherOpenedNorChanged) {
    MakeTree();
    LetFilesSettle();
    Run(true);
    const std::string kept = ReadFile(quickFile);
    const PathStatus before = StatOf(quickFile);

#ifdef _WIN32
    {
        // Held with no sharing: a run that opened it would fail there.
        const ExclusiveHold held(quickFile);
        ASSERT_TRUE(held.Ok());
        ExpectOpens(false, kAllFiles);
    }
#else
    OpenWatch catalogueFolder(env.Path("bk/db"));
    ExpectOpens(false, kAllFiles);
    // The catalogue itself was opened, its neighbour was not.
    const Strings opened = catalogueFolder.Opened();
    EXPECT_EQ(std::count(opened.begin(), opened.end(), "Backup.db"), 1);
    EXPECT_EQ(std::count(opened.begin(), opened.end(), "QuickCheck.db"), 0);
#endif

    EXPECT_EQ(ReadFile(quickFile), kept);
    const PathStatus after = StatOf(quickFile);
    EXPECT_EQ(after.identity, before.identity);
    EXPECT_EQ(after.writeNs, before.writeNs);
    EXPECT_EQ(RunRows(2), ExpectedRows(Contents()));
}

// ---- Which run the stamps belong to ----

TEST_P(CQuickCheckTest, StampsOfAnEarlierRunThanTheLastCommittedOneAreNotUsed) {
    MakeTree();
    LetFilesSettle();
    Run(true);
    Run(false);

    // The kept stamps belong to run 1; the last committed run is run 2.
    ExpectOpens(true, kAllFiles);
    EXPECT_EQ(RunRows(3), ExpectedRows(Contents()));

    // Run 3 kept its own.
    ExpectOpens(true, Strings{});
    EXPECT_EQ(RunRows(4), ExpectedRows(Contents()));
}

TEST_P(CQuickCheckTest, CancelledRunLeavesTheStampsOfTheLastCommittedRunInUse) {
    MakeTree();
    LetFilesSettle();
    Run(true);

    CBackup cancelled;
    Prepare(cancelled, source, true);
    cancelled.OnStart = [this, &cancelled](int32_t) {
        now += 3000;
        SetYieldHook([&cancelled] { cancelled.Cancel(); });
    };
    EXPECT_EQ(cancelled.Exec(), CBackup::Result::kCancel);
    SetYieldHook(nullptr);
    ASSERT_EQ(Query("SELECT bid FROM Backups"), (Rows{{"1"}}));

    ExpectOpens(true, Strings{});
    EXPECT_EQ(Query("SELECT bid FROM Backups ORDER BY bid"), (Rows{{"1"}, {"2"}}));
    EXPECT_EQ(RunRows(2), ExpectedRows(Contents()));
}

TEST_P(CQuickCheckTest, TwoSourcesEachKeepTheirOwnStamps) {
    MakeTree();
    const std::string other = env.Path("other");
    const std::string x = "the other source's file";
    CreateTree(other, Dir({{"x.txt", File(x)}, {"inner", Dir({{"y.txt", File(a)}})}}));
    const std::map<std::string, std::string> otherContents{{other + Native("/x.txt"), x},
                                                           {other + Native("/inner/y.txt"), a}};
    LetFilesSettle();
    Run(true);
    Run(true, other);

    ExpectOpens(true, Strings{});
    ExpectOpens(true, other, Strings{});

    EXPECT_EQ(RunRows(3), ExpectedRows(Contents()));
    EXPECT_EQ(RunRows(4), ExpectedRows(otherContents, other));
    ExpectStoreHolds({a, b, c, x});
}

// ---- What the data file keeps ----

TEST_P(CQuickCheckTest, RunThatChangedNothingLeavesEveryStampAsItWasAndNamesItselfTheirRun) {
    MakeTree();
    LetFilesSettle();
    Run(true);
    const std::string stamps =
        "SELECT hex(folder), hex(name), device, inode, size, mtime, ctime, md5, length"
        " FROM Stamps ORDER BY folder, name";
    const Rows before = SqlRows(quickFile, stamps);
    ASSERT_EQ(before.size(), 4u);

    ExpectOpens(true, Strings{});

    EXPECT_EQ(SqlRows(quickFile, stamps), before);
    EXPECT_EQ(SqlRows(quickFile, "SELECT bid FROM Runs"), Rows{{"2"}});
    ExpectOpens(true, Strings{});
    EXPECT_EQ(RunRows(3), ExpectedRows(Contents()));
}

TEST_P(CQuickCheckTest, FileRemovedLosesItsStampAndTheOthersKeepTheirs) {
    MakeTree();
    LetFilesSettle();
    Run(true);
    ASSERT_EQ(RemoveFile(source + Native("/sub/b.bin")), 0);

    ExpectOpens(true, Strings{});

    EXPECT_EQ(SqlRows(quickFile, "SELECT CAST(folder || name AS TEXT) FROM Stamps ORDER BY 1"),
              (Rows{{source + Native("/a.txt")},
                    {source + Native("/sub/deep/c.dat")},
                    {source + Native("/sub/deep/copy.dat")}}));
    std::map<std::string, std::string> contents = Contents();
    contents.erase(source + Native("/sub/b.bin"));
    EXPECT_EQ(RunRows(2), ExpectedRows(contents));
}

} // namespace

namespace {
STAGING_WAYS_INSTANTIATE(CQuickCheckTest);
} // namespace

namespace {

// The kept rows of a folder with more files than are read at once: the rest are looked up file
// by file, found all the same, and none of them is taken for gone.
TEST(CQuickCheckFolders, FolderOfMoreRowsThanAreReadAtOnceIsLookedUpFileByFile) {
    ScopedTestEnv env;
    const std::string file = env.Path("QuickCheck.db");
    const std::string source = Native("/home/me/src");
    const QuickCheckRun first{1, "01/02/2026 10:11:12"};
    std::vector<QuickCheckRow> rows;
    for (int i = 0; i < 5; ++i) {
        const std::string name = "f" + std::to_string(i);
        rows.push_back({source + Native("/big/") + name,
                        {7, 100u + i, 5, 1000 + i, 2000 + i},
                        std::string(32, static_cast<char>('a' + i)),
                        5});
    }
    rows.push_back(
        {source + Native("/other/gone.txt"), {7, 200, 5, 1, 2}, std::string(32, 'f'), 5});
    ASSERT_TRUE(CQuickCheckDB::Save(file, source, first, rows));

    CQuickCheck quick(file, source, first, 10'000'000'000, 2);
    ASSERT_TRUE(quick.HasKept());
    for (const QuickCheckRow& row : std::vector<QuickCheckRow>(rows.begin(), rows.end() - 1)) {
        const std::optional<SignedContent> found = quick.Find(row.path, row.stamp);
        ASSERT_TRUE(found) << row.path;
        EXPECT_EQ(found->signature, row.signature);
        EXPECT_EQ(found->length, 5u);
    }
    FileStamp touched = rows[3].stamp;
    touched.ctimeNs += 1;
    EXPECT_FALSE(quick.Find(rows[3].path, touched));
    EXPECT_FALSE(quick.Find(source + Native("/big/f9"), rows[0].stamp));

    // The folder no file was asked of loses its rows; the big folder keeps all of its own.
    const QuickCheckRun second{2, "02/02/2026 10:11:12"};
    ASSERT_TRUE(quick.Save(second));
    std::vector<QuickCheckRow> kept;
    ASSERT_TRUE(CQuickCheckDB::Load(file, source, second, kept));
    std::sort(kept.begin(), kept.end(),
              [](const QuickCheckRow& x, const QuickCheckRow& y) { return x.path < y.path; });
    EXPECT_EQ(kept, std::vector<QuickCheckRow>(rows.begin(), rows.end() - 1));
}

} // namespace
