// Retention and catalogue maintenance: the run limit of each source, the rows of dropped runs,
// store files that no row refers to (checked against the per-file rule, run literally on the
// same awkward stores), logs of days without a run, and compacting the catalogue.

#include "BackupFixture.h"
#include "WindowsTestHelpers.h"
#include "app/modPaths.h"
#include "app/modRetention.h"
#include "app/modSetup.h"
#include "catalogue/ADOSQLite.h"
#include "catalogue/CDatabase.h"
#include "catalogue/CMetadataDB.h"
#include "engine/CBackup.h"
#include "engine/CDriveMap.h"
#include "support/modDateText.h"
#include "support/modFSCommon.h"
#include "support/modServices.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <ostream>
#include <random>
#include <string>
#include <vector>
#ifndef _WIN32
#include <unistd.h>
#endif

// Readable failure output for recorded message boxes.
void PrintTo(const CScriptedMessageBox::Call& call, std::ostream* out) {
    *out << "{\"" << call.text << "\", " << call.style << ", \"" << call.title << "\"}";
}

namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;
using Calls = std::vector<CScriptedMessageBox::Call>;

// Runs a statement on the catalogue of the current backup path.
void Sql(const std::string& statement) {
    ADOSQLite db;
    db.Connect(GetDBPath());
    db.Action(sqlaction::kAsIs);
    std::string text = statement;
    db.Exec(text);
    ASSERT_FALSE(db.Err()) << db.ErrMsg() << " in " << statement;
}

// A text as a SQL literal.
std::string Quoted(const std::string& text) {
    std::string out = "'";
    for (char c : text)
        out += c == '\'' ? std::string("''") : std::string(1, c);
    return out + "'";
}

Lines Numbers(int from, int to) {
    Lines out;
    for (int i = from; i <= to; ++i)
        out.push_back(std::to_string(i));
    return out;
}

// A signature-like name: `head` padded with zeros to 32 characters.
std::string Sig(const std::string& head) {
    return head + std::string(32 - head.size(), '0');
}

// The local time of a day and hour, as the catalogue's run dates are written.
std::time_t LocalTime(int year, int month, int day, int hour, int minute, int second) {
    std::tm tm{};
    tm.tm_year = year - 1900;
    tm.tm_mon = month - 1;
    tm.tm_mday = day;
    tm.tm_hour = hour;
    tm.tm_min = minute;
    tm.tm_sec = second;
    tm.tm_isdst = -1;
    return std::mktime(&tm);
}

uint64_t FileSize(const std::string& path) {
    return StatusOf(path).size;
}

// Whether any row holds `signature` as its md5, whatever the value's type.
bool HeldByARow(const std::string& signature) {
    std::string text = signature;
    for (size_t at = 0; (at = text.find('\'', at)) != std::string::npos; at += 2)
        text.insert(at, 1, '\'');
    return SqlRows(GetDBPath(), "SELECT count(*) FROM Files WHERE md5 IS NOT NULL AND CAST(md5 "
                                "AS TEXT) = '" +
                                    text + "'") != std::vector<Lines>{{"0"}};
}

// A folder that may go: below the store, no row under it, and empty.
bool DeleteUnusedFolderLiterally(const std::string& folder) {
    const std::string store = GetFilesPath() + kPathSeparator;
    return folder.size() > store.size() && folder.compare(0, store.size(), store) == 0 &&
           IsBackupFolderUnused(folder) && FSDeleteEmptyFolder(folder);
}

// The per-file rule, run literally: one lookup of the signature per store file (any row that
// holds it keeps the file), one folder query per orphan folder level, and a folder goes only
// when it is empty as well. The reference that KillOrphans must agree with.
void DeleteOrphansOneByOne() {
    CDriveMap finder;
    finder.Hidden(true);
    finder.System(true);
    finder.SourcePath(GetFilesPath());
    finder.Exec();
    for (finder.MoveFirst(); !finder.Eof(); finder.MoveNext()) {
        const std::string path = finder.FilePath();
        const std::string name = FSGetNamePart(path);
        const std::string signature = name.substr(0, name.size() - FSGetExtension(name).size() - 1);
        if (HeldByARow(signature)) continue;
        FSDeleteFile(path);
        const std::string folder = path.substr(0, path.rfind(kPathSeparator));
        if (!DeleteUnusedFolderLiterally(folder)) continue;
        DeleteUnusedFolderLiterally(folder.substr(0, folder.size() - 3));
    }
}

struct Retention : ::testing::Test {
    BackupFixture f;
    std::string backup = f.backup; // the backup path in use
    std::string log = f.env.Path("maintenance.log");
    Lines statuses;
    std::vector<int32_t> percents;

    void SetUp() override {
        ErrHandler().MaxProcStackItems(100);
        Logger().LogFile(log);
        Logger().LogLevel(3);
        ASSERT_TRUE(Logger().StartLogger());
        SetMaintenanceView({[this](const std::string& text) { statuses.push_back(text); },
                            [this](int32_t percent) { percents.push_back(percent); }});
    }

    // Moves to another backup path (made under the test folder) with a new catalogue.
    void UseBackupPath(const std::string& name) {
        backup = f.env.Path(name);
        WriteRegSetting("BackupPath", backup);
        CreateDB();
        ASSERT_TRUE(Exists(GetDBPath()));
    }

    Lines LogLines() const { return LogMessages(ReadFile(log)); }
    Lines LogLinesFrom(size_t first) const {
        const Lines all = LogLines();
        return Lines(all.begin() + static_cast<ptrdiff_t>(std::min(first, all.size())), all.end());
    }
    bool Logged(const std::string& line) const {
        const Lines lines = LogLines();
        return std::find(lines.begin(), lines.end(), line + "\r\n") != lines.end();
    }
    Lines Rows(const std::string& sql) const {
        Lines out;
        for (const auto& row : SqlRows(GetDBPath(), sql))
            for (const auto& value : row)
                out.push_back(value);
        return out;
    }

    std::vector<int32_t> AddRuns(const std::string& source, int count) {
        CDatabase db;
        db.Connect(GetDBPath());
        std::vector<int32_t> bids;
        for (int i = 0; i < count; ++i)
            bids.push_back(db.BackupRun(source));
        return bids;
    }
    Lines Bids(const std::string& source) const {
        return Rows("SELECT bid FROM Backups WHERE source = " + Quoted(source) + " ORDER BY bid");
    }

    // Where the store keeps a signature, and a store file under any name below Files.
    std::string StorePath(const std::string& sig) const {
        return backup +
               Native("/Files/" + sig.substr(0, 2) + "/" + sig.substr(2, 2) + "/" + sig + ".QRV");
    }
    void PutFile(const std::string& relative) const {
        const std::string path = backup + Native("/Files/" + relative);
        fs::create_directories(FsPath(FSGetPathPart(path)));
        WriteFile(path, "content of " + relative);
    }
    // A Files row as a run writes it: the signature, a source file and the backup location.
    void Record(int32_t bid, const std::string& sig, const std::string& backupValue) const {
        Sql("INSERT INTO Files (bid, md5, file, path, backup, size) SELECT " + std::to_string(bid) +
            ", " + Quoted(sig) + ", '/data/" + sig.substr(0, 8) + ".txt', '/data/', " +
            Quoted(backupValue) + ", 12");
    }
    void Record(int32_t bid, const std::string& sig) const { Record(bid, sig, StorePath(sig)); }

    // Every file and folder of the store, "Files/..." relative to the backup path.
    Lines StoreTree() const {
        Lines out;
        if (!Exists(backup + Native("/Files"))) return out;
        out.push_back("Files/");
        for (const std::string& entry : ListTree(backup + Native("/Files")))
            out.push_back("Files/" + entry);
        return out;
    }

    // Runs the per-file rule and KillOrphans on the same store (restored from a copy between
    // the two) and expects the same tree and the same message boxes from both, and that tree.
    void ExpectSameAsPerFileRule(const Lines& expected) {
        const std::string files = backup + Native("/Files");
        const std::string copy = f.env.Path("store-copy");
        fs::copy(FsPath(files), FsPath(copy), fs::copy_options::recursive);
        const Lines before = StoreTree();

        f.env.box.calls.clear();
        DeleteOrphansOneByOne();
        const Lines reference = StoreTree();
        const Calls referenceBoxes = f.env.box.calls;

        fs::remove_all(FsPath(files));
        fs::copy(FsPath(copy), FsPath(files), fs::copy_options::recursive);
        fs::remove_all(FsPath(copy));
        ASSERT_EQ(StoreTree(), before);

        f.env.box.calls.clear();
        EXPECT_TRUE(KillOrphans());
        EXPECT_EQ(StoreTree(), reference);
        EXPECT_EQ(f.env.box.calls, referenceBoxes);
        EXPECT_EQ(reference, expected);
    }
};

// ---- the run limit of a source ----

TEST_F(Retention, AbsentMaxBackupsKeepsTenRuns) {
    ASSERT_TRUE(Rows("SELECT value FROM Setup WHERE key = 'MaxBackups'").empty());
    AddRuns("/src", 12);
    int16_t limit = -1;
    PruneSource("/src", limit);
    EXPECT_EQ(limit, 10);
    EXPECT_EQ(Bids("/src"), Numbers(3, 12));
}

TEST_F(Retention, EmptyMaxBackupsKeepsTenRuns) {
    f.SetOption("MaxBackups", "");
    ASSERT_EQ(Rows("SELECT value FROM Setup WHERE key = 'MaxBackups'"), Lines{""});
    AddRuns("/src", 11);
    int16_t limit = -1;
    PruneSource("/src", limit);
    EXPECT_EQ(limit, 10);
    EXPECT_EQ(Bids("/src"), Numbers(2, 11));
}

TEST_F(Retention, ZeroMaxBackupsKeepsTenRuns) {
    f.SetOption("MaxBackups", "0");
    AddRuns("/src", 13);
    int16_t limit = -1;
    PruneSource("/src", limit);
    EXPECT_EQ(limit, 10);
    EXPECT_EQ(Bids("/src"), Numbers(4, 13));
}

TEST_F(Retention, NegativeMaxBackupsKeepsTenRuns) {
    for (const std::string stored : {"-1", "-7"}) {
        f.SetOption("MaxBackups", stored);
        AddRuns("/src" + stored, 13);
        int16_t limit = -1;
        PruneSource("/src" + stored, limit);
        EXPECT_EQ(limit, 10) << stored;
        EXPECT_EQ(Bids("/src" + stored).size(), 10u) << stored;
    }
}

TEST_F(Retention, LimitBelowOneFromTheCallerKeepsTenRunsWithoutReadingTheSetting) {
    f.SetOption("MaxBackups", "2");
    AddRuns("/zero", 12);
    AddRuns("/minus", 12);
    int16_t zero = 0;
    PruneSource("/zero", zero);
    int16_t minus = -3;
    PruneSource("/minus", minus);
    EXPECT_EQ(zero, 10);
    EXPECT_EQ(minus, 10);
    EXPECT_EQ(Bids("/zero"), Numbers(3, 12));
    EXPECT_EQ(Bids("/minus"), Numbers(15, 24));
}

TEST_F(Retention, SourceWithAnApostropheIsPrunedLikeAnyOther) {
    f.SetOption("MaxBackups", "2");
    AddRuns("/home/Bob's Documents", 4);
    int16_t limit = -1;
    PruneSource("/home/Bob's Documents", limit);
    EXPECT_EQ(Bids("/home/Bob's Documents"), Numbers(3, 4));
    EXPECT_TRUE(f.env.box.calls.empty());
}

TEST_F(Retention, ExactlyMaxBackupsRunsDeletesNothing) {
    f.SetOption("MaxBackups", "3");
    AddRuns("/src", 3);
    int16_t limit = -1;
    PruneSource("/src", limit);
    EXPECT_EQ(limit, 3);
    EXPECT_EQ(Bids("/src"), Numbers(1, 3));
}

TEST_F(Retention, OneRunMoreThanMaxBackupsDeletesTheSmallestBidOfThatSource) {
    f.SetOption("MaxBackups", "3");
    AddRuns("/src", 1);   // 1
    AddRuns("/other", 1); // 2
    AddRuns("/src", 3);   // 3, 4, 5
    int16_t limit = -1;
    PruneSource("/src", limit);
    EXPECT_EQ(limit, 3);
    EXPECT_EQ(Bids("/src"), Numbers(3, 5));
    EXPECT_EQ(Bids("/other"), Lines{"2"});
}

TEST_F(Retention, RunDatesPlayNoPartInChoosingTheRunsToDrop) {
    AddRuns("/src", 3);
    // The oldest run carries the newest date and the newest run the oldest.
    Sql("UPDATE Backups SET datebk = " + Quoted(DateTimeText(LocalTime(2030, 1, 1, 0, 0, 0))) +
        " WHERE bid = 1");
    Sql("UPDATE Backups SET datebk = " + Quoted(DateTimeText(LocalTime(2001, 1, 1, 0, 0, 0))) +
        " WHERE bid = 3");
    int16_t limit = 2;
    PruneSource("/src", limit);
    EXPECT_EQ(Bids("/src"), Numbers(2, 3));
}

TEST_F(Retention, LimitGivenByTheCallerIsUsedWithoutReadingTheSetting) {
    f.SetOption("MaxBackups", "5");
    AddRuns("/src", 4);
    int16_t limit = 2;
    PruneSource("/src", limit);
    EXPECT_EQ(limit, 2);
    EXPECT_EQ(Bids("/src"), Numbers(3, 4));
}

TEST_F(Retention, LimitReadOnceIsKeptInTheCallersVariable) {
    f.SetOption("MaxBackups", "3");
    AddRuns("/a", 4);
    AddRuns("/b", 4);
    int16_t limit = -1;
    PruneSource("/a", limit);
    f.SetOption("MaxBackups", "1");
    PruneSource("/b", limit);
    EXPECT_EQ(limit, 3);
    EXPECT_EQ(Bids("/a"), Numbers(2, 4));
    EXPECT_EQ(Bids("/b"), Numbers(6, 8));
}

TEST_F(Retention, PruneAllSourcesAppliesTheStoredLimitToEverySource) {
    f.SetOption("MaxBackups", "2");
    f.AddSource("/a");
    f.AddSource("/b");
    f.AddSource("/never-backed-up");
    AddRuns("/a", 3);          // 1-3
    AddRuns("/b", 4);          // 4-7
    AddRuns("/not-listed", 3); // 8-10
    PruneAllSources();
    EXPECT_EQ(Bids("/a"), Numbers(2, 3));
    EXPECT_EQ(Bids("/b"), Numbers(6, 7));
    EXPECT_EQ(Bids("/not-listed"), Numbers(8, 10));
}

TEST_F(Retention, DeletingARunDeletesOnlyItsBackupsRow) {
    const auto bids = AddRuns("/src", 2);
    CDatabase db;
    db.Connect(GetDBPath());
    db.AddPath(bids[0], "/src/");
    db.AddBackupRecord(bids[0], Sig("aa"), "/src/a.txt", StorePath(Sig("aa")), " 5");
    DeleteBackupRun(bids[0]);
    EXPECT_EQ(Rows("SELECT bid FROM Backups"), Lines{"2"});
    EXPECT_EQ(Rows("SELECT bid, md5 FROM Files"), (Lines{"1", Sig("aa")}));
    EXPECT_EQ(Rows("SELECT bid, path FROM Paths"), (Lines{"1", "/src/"}));
}

// ---- rows of dropped runs ----

TEST_F(Retention, RowsOfDroppedRunsStayUntilTheTreeIsPruned) {
    f.SetOption("MaxBackups", "1");
    const auto bids = AddRuns("/src", 2);
    CDatabase db;
    db.Connect(GetDBPath());
    for (int32_t bid : bids) {
        db.AddPath(bid, "/src/");
        db.AddPath(bid, "/src/sub/");
        db.AddBackupRecord(bid, Sig("aa" + std::to_string(bid)), "/src/a.txt",
                           StorePath(Sig("aa" + std::to_string(bid))), " 5");
        db.AddBackupRecord(bid, Sig("bb"), "/src/sub/b.txt", StorePath(Sig("bb")), " 7");
    }
    // Rows of a run that never had a Backups row go too.
    Record(99, Sig("cc"));
    Sql("INSERT INTO Paths (bid, path) SELECT 99, '/lost/'");
    const Lines keptFiles = Rows("SELECT * FROM Files WHERE bid = 2 ORDER BY fid");
    const Lines keptPaths = Rows("SELECT * FROM Paths WHERE bid = 2 ORDER BY pid");

    int16_t limit = -1;
    PruneSource("/src", limit);
    ASSERT_EQ(Bids("/src"), Lines{"2"});
    // A purge leaves the rows of the dropped run.
    EXPECT_EQ(Rows("SELECT COUNT(*) FROM Files WHERE bid = 1"), Lines{"2"});
    EXPECT_EQ(Rows("SELECT COUNT(*) FROM Paths WHERE bid = 1"), Lines{"2"});

    const size_t logged = LogLines().size();
    PruneDBTree();
    EXPECT_EQ(Rows("SELECT COUNT(*) FROM Files WHERE bid NOT IN (SELECT bid FROM Backups)"),
              Lines{"0"});
    EXPECT_EQ(Rows("SELECT COUNT(*) FROM Paths WHERE bid NOT IN (SELECT bid FROM Backups)"),
              Lines{"0"});
    EXPECT_EQ(Rows("SELECT * FROM Files ORDER BY fid"), keptFiles);
    EXPECT_EQ(Rows("SELECT * FROM Paths ORDER BY pid"), keptPaths);
    EXPECT_EQ(LogLinesFrom(logged), (Lines{"Pruning DB tree\r\n", " Prune DB Files tree\r\n",
                                           " Prune DB Paths tree\r\n"}));
    EXPECT_EQ(statuses, Lines{"Pruning DB tree"});
}

TEST_F(Retention, TheMetadataOfRunsThatGoGoesWithThem) {
    f.SetOption("MaxBackups", "2");
    const auto bids = AddRuns("/src", 3);
    const std::string file = CMetadataDB::PathBeside(GetDBPath());
    auto dateOf = [&](int32_t bid) {
        return Rows("SELECT datebk FROM Backups WHERE bid = " + std::to_string(bid))[0];
    };
    for (int32_t bid : bids) {
        CMetadataDB record;
        ASSERT_TRUE(record.Begin(file, bid));
        ASSERT_TRUE(record.Add({"/src/a.txt", EntryMetadata::Kind::kFile, bid, 0644, 0, 0, ""}));
        ASSERT_TRUE(record.Keep(dateOf(bid)));
    }
    auto kept = [&](int32_t bid, const std::string& datebk) {
        CMetadataReader reader;
        return reader.Open(file, bid, datebk);
    };
    const std::string first = dateOf(bids[0]), second = dateOf(bids[1]);
    // The limit drops the oldest run, and its record with it.
    int16_t limit = -1;
    PruneSource("/src", limit);
    EXPECT_FALSE(kept(bids[0], first));
    EXPECT_TRUE(kept(bids[1], second));
    EXPECT_TRUE(kept(bids[2], dateOf(bids[2])));
    // A run deleted otherwise loses its record when the tree is pruned (Compact).
    DeleteBackupRun(bids[1]);
    EXPECT_TRUE(kept(bids[1], second));
    PruneDBTree();
    EXPECT_FALSE(kept(bids[1], second));
    EXPECT_TRUE(kept(bids[2], dateOf(bids[2])));
}

TEST_F(Retention, PruningTheTreeAtTheAdvancedLevelLogsOnlyItsHeading) {
    Logger().LogLevel(2);
    const size_t logged = LogLines().size();
    PruneDBTree();
    EXPECT_EQ(LogLinesFrom(logged), Lines{"Pruning DB tree\r\n"});
}

TEST_F(Retention, PruningTheFilesAndPathsSeparately) {
    AddRuns("/src", 1);
    Record(1, Sig("aa"));
    Record(2, Sig("bb"));
    Sql("INSERT INTO Paths (bid, path) SELECT 1, '/src/'");
    Sql("INSERT INTO Paths (bid, path) SELECT 2, '/gone/'");
    PruneDBFiles();
    EXPECT_EQ(Rows("SELECT bid FROM Files"), Lines{"1"});
    EXPECT_EQ(Rows("SELECT bid FROM Paths ORDER BY pid"), (Lines{"1", "2"}));
    PruneDBPaths();
    EXPECT_EQ(Rows("SELECT bid FROM Paths"), Lines{"1"});
    EXPECT_TRUE(Logged(" Prune DB Files tree"));
    EXPECT_TRUE(Logged(" Prune DB Paths tree"));
    EXPECT_TRUE(statuses.empty());
}

// ---- store files that no row refers to ----

TEST_F(Retention, StoreFileWhoseSignatureIsInAnyRowIsKept) {
    const auto bids = AddRuns("/a", 2);
    AddRuns("/b", 1);
    Record(bids[0], Sig("a1"));
    // Another source's row, pointing at a location other than the store file.
    Record(3, Sig("b1"), "/elsewhere/b1.QRV");
    // The row of a dropped run, before the tree is pruned.
    Record(bids[1], Sig("c1"));
    DeleteBackupRun(bids[1]);
    for (const std::string& sig : {Sig("a1"), Sig("b1"), Sig("c1"), Sig("a1f")})
        PutFile(sig.substr(0, 2) + "/" + sig.substr(2, 2) + "/" + sig + ".QRV");

    EXPECT_TRUE(KillOrphans());
    EXPECT_TRUE(Exists(StorePath(Sig("a1"))));
    EXPECT_TRUE(Exists(StorePath(Sig("b1"))));
    EXPECT_TRUE(Exists(StorePath(Sig("c1"))));
    EXPECT_FALSE(Exists(StorePath(Sig("a1f"))));
    // The orphan's own folder goes; the level above still holds a1's folder.
    EXPECT_FALSE(Exists(backup + Native("/Files/a1/f0")));
    EXPECT_TRUE(Exists(backup + Native("/Files/a1/00")));
}

#ifndef _WIN32
// Wine makes no links.
TEST_F(Retention, StoreReachedByAnotherPathKeepsEveryFileOfItsRuns) {
    // Rows written while the backup folder was reached as `backup`; the drive is now reached
    // through a link, so no row's path lies under any folder of the store as it is now spelt.
    AddRuns("/src", 1);
    for (const std::string head : {"ab01", "ab02", "cd01"}) {
        Record(1, Sig(head));
        PutFile(head.substr(0, 2) + "/" + head.substr(2, 2) + "/" + Sig(head) + ".QRV");
    }
    PutFile("ab/01/" + Sig("ab019") + ".QRV");
    PutFile("cd/01/" + Sig("cd019") + ".QRV");
    const std::string link = f.env.Path("remounted");
    ASSERT_EQ(::symlink(backup.c_str(), link.c_str()), 0);
    WriteRegSetting("BackupPath", link);
    EXPECT_TRUE(KillOrphans());
    WriteRegSetting("BackupPath", backup);
    EXPECT_EQ(StoreTree(),
              (Lines{"Files/", "Files/ab/", "Files/ab/01/", "Files/ab/01/" + Sig("ab01") + ".QRV",
                     "Files/ab/02/", "Files/ab/02/" + Sig("ab02") + ".QRV", "Files/cd/",
                     "Files/cd/01/", "Files/cd/01/" + Sig("cd01") + ".QRV"}));
}
#endif

TEST_F(Retention, OrphanInAFolderWithReferencedFilesGoesAndTheFolderStays) {
    AddRuns("/src", 1);
    Record(1, Sig("abcd1"));
    PutFile("ab/cd/" + Sig("abcd1") + ".QRV");
    PutFile("ab/cd/" + Sig("abcd2") + ".QRV");
    EXPECT_TRUE(KillOrphans());
    EXPECT_EQ(StoreTree(), (Lines{"Files/", "Files/ab/", "Files/ab/cd/",
                                  "Files/ab/cd/" + Sig("abcd1") + ".QRV"}));
}

TEST_F(Retention, OrphanAloneInItsFoldersTakesBothLevels) {
    AddRuns("/src", 1);
    Record(1, Sig("ef01"));
    PutFile("ef/01/" + Sig("ef01") + ".QRV");
    PutFile("ab/cd/" + Sig("abcd") + ".QRV");
    EXPECT_TRUE(KillOrphans());
    EXPECT_EQ(StoreTree(), (Lines{"Files/", "Files/ef/", "Files/ef/01/",
                                  "Files/ef/01/" + Sig("ef01") + ".QRV"}));
}

TEST_F(Retention, OrphanLeavesTheUpperFolderWhileAnotherFolderBelowItIsInUse) {
    AddRuns("/src", 1);
    Record(1, Sig("ab01"));
    PutFile("ab/01/" + Sig("ab01") + ".QRV");
    PutFile("ab/cd/" + Sig("abcd") + ".QRV");
    EXPECT_TRUE(KillOrphans());
    EXPECT_EQ(StoreTree(), (Lines{"Files/", "Files/ab/", "Files/ab/01/",
                                  "Files/ab/01/" + Sig("ab01") + ".QRV"}));
}

TEST_F(Retention, LevelAboveIsNotExaminedWhileTheFolderIsInUse) {
    // A stray folder with a three-letter name: the level "above" would be ".../ab/", which no
    // row lies under, so it would go if it were examined.
    AddRuns("/src", 1);
    Record(1, Sig("keep"), backup + Native("/Files/ab/xyz/keep.QRV"));
    PutFile("ab/xyz/stray.QRV");
    PutFile("ab/cd/" + Sig("abcd") + ".QRV");
    Record(1, Sig("abcd"));
    EXPECT_TRUE(KillOrphans());
    EXPECT_EQ(StoreTree(), (Lines{"Files/", "Files/ab/", "Files/ab/cd/",
                                  "Files/ab/cd/" + Sig("abcd") + ".QRV", "Files/ab/xyz/"}));
}

TEST_F(Retention, KillOrphansDeletesNothingWhenTheIntegrityCheckFails) {
    PutFile("ab/cd/" + Sig("abcd") + ".QRV");
    PutFile("top.QRV");
    WriteFile(GetDBPath(), std::string(8192, 'x'));
    const Lines before = StoreTree();
    EXPECT_FALSE(KillOrphans());
    EXPECT_EQ(StoreTree(), before);
    EXPECT_TRUE(statuses.empty());
    EXPECT_TRUE(percents.empty());
    EXPECT_FALSE(Logged("Kill orphans"));
    EXPECT_EQ(ErrHandler().StackPointer(), 0);
}

TEST_F(Retention, KillOrphansDeletesNothingWhenTheFilesTableCannotBeRead) {
    // The lookups would all come back empty and call every store file an orphan.
    PutFile("ab/cd/" + Sig("abcd") + ".QRV");
    Sql("DROP TABLE Files");
    const Lines before = StoreTree();
    EXPECT_FALSE(KillOrphans());
    EXPECT_EQ(StoreTree(), before);
    EXPECT_TRUE(Logged("Kill orphans stopped: no such table: Files"));
    EXPECT_EQ(ErrHandler().StackPointer(), 0);
}

TEST_F(Retention, KillOrphansShowsItsStepsAndProgressBelowAHundred) {
    AddRuns("/src", 1);
    for (const std::string head : {"1111", "2222", "3333", "4444", "5555"})
        PutFile(head.substr(0, 2) + "/" + head.substr(2, 2) + "/" + Sig(head) + ".QRV");
    Record(1, Sig("2222"));
    Record(1, Sig("4444"));
    const size_t logged = LogLines().size();
    EXPECT_TRUE(KillOrphans());
    EXPECT_EQ(statuses, (Lines{"Finding files", "Del. unused files"}));
    // Position after each step times 100 over five files; 100 and above are not shown.
    EXPECT_EQ(percents, (std::vector<int32_t>{40, 60, 80}));
    const Lines lines = LogLinesFrom(logged);
    ASSERT_GE(lines.size(), 3u);
    EXPECT_EQ(lines[0], "Running Integrity Check\r\n");
    EXPECT_EQ(lines[1], "Kill orphans\r\n");
    EXPECT_EQ(lines[2], "FindFiles " + backup + Native("/Files\r\n"));
    EXPECT_EQ(ErrHandler().StackPointer(), 0);
    EXPECT_EQ(StoreTree(),
              (Lines{"Files/", "Files/22/", "Files/22/22/", "Files/22/22/" + Sig("2222") + ".QRV",
                     "Files/44/", "Files/44/44/", "Files/44/44/" + Sig("4444") + ".QRV"}));
}

TEST_F(Retention, ProgressOfAManyFileStoreRisesAndStaysBelowAHundred) {
    AddRuns("/src", 1);
    for (int i = 0; i < 300; ++i) {
        const std::string sig = Sig("77" + std::to_string(100 + i));
        PutFile("77/" + sig.substr(2, 2) + "/" + sig + ".QRV");
        Record(1, sig);
    }
    EXPECT_TRUE(KillOrphans());
    ASSERT_EQ(percents.size(), 298u); // positions 2 to 299 of 300, in whole-number division
    EXPECT_TRUE(std::is_sorted(percents.begin(), percents.end()));
    EXPECT_EQ(percents.front(), 0);
    EXPECT_EQ(percents.back(), 99);
}

TEST_F(Retention, KillOrphansOnAnEmptyStore) {
    EXPECT_TRUE(KillOrphans());
    EXPECT_EQ(StoreTree(), Lines{"Files/"});
    EXPECT_EQ(statuses, (Lines{"Finding files", "Del. unused files"}));
    EXPECT_TRUE(percents.empty());
}

TEST_F(Retention, CompactAfterDroppingARunKeepsExactlyTheContentOfTheKeptRun) {
    const std::string source = f.env.Path("source");
    CreateTree(source, Dir({{"a.txt", File("alpha")}, {"b.txt", File("beta")}}));
    const auto backUp = [&] {
        CBackup run;
        run.Source(source);
        run.BackupDB(GetDBPath());
        run.BackupPath(GetFilesPath());
        ASSERT_EQ(run.Exec(), CBackup::Result::kEmpty);
    };
    backUp();
    fs::remove(FsPath(source + Native("/a.txt")));
    WriteFile(source + Native("/c.txt"), "gamma");
    backUp();
    ASSERT_TRUE(Exists(StoreFile(backup, "alpha")));

    f.SetOption("MaxBackups", "1");
    int16_t limit = -1;
    PruneSource(source, limit);
    PruneDBTree();
    EXPECT_TRUE(KillOrphans());
    VacuumDB();

    EXPECT_FALSE(Exists(StoreFile(backup, "alpha")));
    EXPECT_TRUE(Exists(StoreFile(backup, "beta")));
    EXPECT_TRUE(Exists(StoreFile(backup, "gamma")));
    EXPECT_EQ(ReadFile(StoreFile(backup, "gamma")), "gamma");
    EXPECT_EQ(Rows("SELECT DISTINCT bid FROM Files"), Lines{"2"});
}

// ---- the same outcome as the per-file rule, on awkward stores ----

TEST_F(Retention, SameAsPerFileRuleForStrayFilesWithoutExtension) {
    AddRuns("/src", 1);
    // "abc" looks up the signature "ab", which a row holds.
    Record(1, "ab", backup + Native("/Files/ab/cd/abc"));
    PutFile("ab/cd/abc");
    PutFile("ab/cd/xyz");
    PutFile("12/34/1234");
    PutFile("56/78/a.");
    ExpectSameAsPerFileRule({"Files/", "Files/ab/", "Files/ab/cd/", "Files/ab/cd/abc"});
}

TEST_F(Retention, SameAsPerFileRuleForHiddenLeftoverTemporaries) {
    AddRuns("/src", 1);
    Record(1, Sig("abcd"));
    PutFile("ab/cd/" + Sig("abcd") + ".QRV");
    PutFile("ab/cd/." + Sig("abcd") + ".QRV.1a2b3c4d.tmp");
    PutFile("ef/01/." + Sig("ef01") + ".QRV.123.tmp");
    PutFile(".hidden");
    ExpectSameAsPerFileRule(
        {"Files/", "Files/ab/", "Files/ab/cd/", "Files/ab/cd/" + Sig("abcd") + ".QRV"});
}

TEST_F(Retention, SameAsPerFileRuleForABackupPathWithUnderscoreAndCapitals) {
    UseBackupPath("My_Backup.Q");
    AddRuns("/src", 1);
    std::string upper = backup;
    std::transform(upper.begin(), upper.end(), upper.begin(), [](char c) {
        return static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
    });
    const std::string anyOne = f.env.Path("MyXBackup.Q");     // "_" stands for any one character
    const std::string noDot = f.env.Path("My_BackupXQ");      // "." stands only for itself
    const std::string twoForOne = f.env.Path("MyXYBackup.Q"); // "_" is exactly one character
    Record(1, Sig("aaaa"), upper + Native("/FILES/AA/AA/") + Sig("aaaa") + ".QRV");
    PutFile("aa/aa/" + Sig("aaaa") + ".QRV");
    PutFile("aa/aa/" + Sig("aaab") + ".QRV");
    Record(1, Sig("x1"), anyOne + Native("/Files/bb/bb/x1.QRV"));
    PutFile("bb/bb/" + Sig("bbbb") + ".QRV");
    Record(1, Sig("x2"), backup + Native("/Files/cc/ccx/x2.QRV"));
    PutFile("cc/cc/" + Sig("cccc") + ".QRV");
    Record(1, Sig("x3"), backup + Native("/Files/dd/dd"));
    PutFile("dd/dd/" + Sig("dddd") + ".QRV");
    Record(1, Sig("x4"), noDot + Native("/Files/ee/ee/x4.QRV"));
    PutFile("ee/ee/" + Sig("eeee") + ".QRV");
    Record(1, Sig("x5"), twoForOne + Native("/Files/ff/ff/x5.QRV"));
    PutFile("ff/ff/" + Sig("ffff") + ".QRV");
    Record(1, Sig("x7"), f.env.Path("My\xC3\xA9\x42\x61\x63kup.Q") + Native("/Files/hh/hh/x7.QRV"));
    PutFile("hh/hh/" + Sig("hhhh") + ".QRV"); // "_" stands for the two bytes of one character
    PutFile("g_/h_/" + Sig("g_h_") + ".QRV");
    Record(1, Sig("x6"), backup + Native("/Files/gX/h_/x6.QRV"));
    ExpectSameAsPerFileRule({"Files/", "Files/aa/", "Files/aa/aa/",
                             "Files/aa/aa/" + Sig("aaaa") + ".QRV", "Files/bb/", "Files/bb/bb/",
                             "Files/cc/", "Files/dd/", "Files/g_/", "Files/g_/h_/", "Files/hh/",
                             "Files/hh/hh/"});
}

#ifndef _WIN32
// Bytes that are not UTF-8 in a name, which no Windows name holds.
TEST_F(Retention, SameAsPerFileRuleForABackupPathWithOtherThanAsciiBytes) {
    // "ä" is two bytes of UTF-8 and LIKE compares it without folding; the lone byte E9 is not
    // UTF-8 and LIKE reads it, like the lone byte FF, as the replacement character.
    UseBackupPath("B\xC3\xA4\x63k\xE9");
    AddRuns("/src", 1);
    Record(1, Sig("x1"), f.env.Path("B\xC3\x84\x63k\xE9") + "/Files/aa/aa/x1.QRV");
    PutFile("aa/aa/" + Sig("aaaa") + ".QRV");
    Record(1, Sig("x2"), f.env.Path("B\xC3\xA4\x63k\xFF") + "/Files/bb/bb/x2.QRV");
    PutFile("bb/bb/" + Sig("bbbb") + ".QRV");
    Record(1, Sig("x3"), f.env.Path("B\xC3\xA4\x43K\xE9") + "/Files/cc/cc/x3.QRV");
    PutFile("cc/cc/" + Sig("cccc") + ".QRV");
    Record(1, Sig("x4"), f.env.Path("B\xC3\xA4\x63k\xE9\x80") + "/Files/dd/dd/x4.QRV");
    PutFile("dd/dd/" + Sig("dddd") + ".QRV");
    ExpectSameAsPerFileRule({"Files/", "Files/bb/", "Files/bb/bb/", "Files/cc/", "Files/cc/cc/"});
}
#endif

TEST_F(Retention, SameAsPerFileRuleWhenRowsPointAtAnotherFolderThanTheStoreFile) {
    AddRuns("/src", 1);
    // Kept by its signature, but its row places it elsewhere: its folder counts as unused, yet
    // it still holds the kept file and stays.
    Record(1, Sig("abcd1"), backup + Native("/Files/zz/zz/") + Sig("abcd1") + ".QRV");
    PutFile("ab/cd/" + Sig("abcd1") + ".QRV");
    PutFile("ab/cd/" + Sig("abcd2") + ".QRV");
    // An orphan in a folder that a row of another signature points into.
    Record(1, Sig("efgh9"));
    PutFile("ef/gh/" + Sig("efgh1") + ".QRV");
    ExpectSameAsPerFileRule({"Files/", "Files/ab/", "Files/ab/cd/",
                             "Files/ab/cd/" + Sig("abcd1") + ".QRV", "Files/ef/", "Files/ef/gh/"});
}

TEST_F(Retention, SameAsPerFileRuleForAnEmptyFilesTable) {
    PutFile("ab/cd/" + Sig("abcd") + ".QRV");
    PutFile("ab/ef/" + Sig("abef") + ".QRV");
    PutFile("12/34/" + Sig("1234") + ".QRV");
    PutFile("ab/cd/.QRV.tmp");
    ExpectSameAsPerFileRule({"Files/"});
}

TEST_F(Retention, SameAsPerFileRuleForAStrayFileAtTheTopOfAnUnreferencedStore) {
    // The folder of a top-level file is the store itself, which stays even with no row under it.
    PutFile("ab/cd/" + Sig("abcd") + ".QRV");
    PutFile(Sig("abcd") + ".QRV");
    ExpectSameAsPerFileRule({"Files/"});
}

TEST_F(Retention, SameAsPerFileRuleForRowsWithoutSignatureOrFile) {
    AddRuns("/src", 1);
    // ".QRV" looks up the empty signature, which a NULL md5 is not.
    Sql("INSERT INTO Files (bid, md5, file, backup) SELECT 1, NULL, '/data/n', " +
        Quoted(backup + Native("/Files/zz/zz/n.QRV")));
    PutFile("ab/cd/.QRV");
    // Rows with an empty file, first or later, and a signature held as a blob: every row that
    // holds the signature keeps the file.
    Sql("INSERT INTO Files (bid, md5, file, backup) SELECT 1, " + Quoted(Sig("ef01")) + ", '', " +
        Quoted(StorePath(Sig("ef01"))));
    Record(1, Sig("ef01"));
    PutFile("ef/01/" + Sig("ef01") + ".QRV");
    Record(1, Sig("ef02"));
    Sql("INSERT INTO Files (bid, md5, file, backup) SELECT 1, " + Quoted(Sig("ef02")) + ", '', " +
        Quoted(StorePath(Sig("ef02"))));
    PutFile("ef/02/" + Sig("ef02") + ".QRV");
    Sql("INSERT INTO Files (bid, md5, file, backup) SELECT 1, CAST(" + Quoted(Sig("ef03")) +
        " AS BLOB), '/data/b', " + Quoted(StorePath(Sig("ef03"))));
    PutFile("ef/03/" + Sig("ef03") + ".QRV");
    ExpectSameAsPerFileRule({"Files/", "Files/ef/", "Files/ef/01/",
                             "Files/ef/01/" + Sig("ef01") + ".QRV", "Files/ef/02/",
                             "Files/ef/02/" + Sig("ef02") + ".QRV", "Files/ef/03/",
                             "Files/ef/03/" + Sig("ef03") + ".QRV"});
}

TEST_F(Retention, SameAsPerFileRuleForAnApostropheInTheBackupPath) {
    // Folders with apostrophes are asked like any other, without an error.
    UseBackupPath("Bob's Backup");
    AddRuns("/src", 1);
    Record(1, Sig("abcd1"));
    PutFile("ab/cd/" + Sig("abcd1") + ".QRV");
    PutFile("ab/cd/" + Sig("abcd2") + ".QRV");
    PutFile("ef/gh/it's.QRV");
    ExpectSameAsPerFileRule(
        {"Files/", "Files/ab/", "Files/ab/cd/", "Files/ab/cd/" + Sig("abcd1") + ".QRV"});
    EXPECT_TRUE(f.env.box.calls.empty());
}

TEST_F(Retention, SameAsPerFileRuleForAPercentSignInTheBackupPath) {
    UseBackupPath("100%Sure");
    AddRuns("/src", 1);
    Record(1, Sig("x1"), f.env.Path("100 per cent Sure") + Native("/Files/aa/aa/x1.QRV"));
    PutFile("aa/aa/" + Sig("aaaa") + ".QRV");
    Record(1, Sig("x2"), f.env.Path("100 per cent sure") + Native("/Files/bb/bb/x2.QRV"));
    PutFile("bb/bb/" + Sig("bbbb") + ".QRV");
    Record(1, Sig("x3"), f.env.Path("100 per cent Sur") + Native("/Files/cc/cc/x3.QRV"));
    PutFile("cc/cc/" + Sig("cccc") + ".QRV");
    ExpectSameAsPerFileRule({"Files/", "Files/aa/", "Files/aa/aa/", "Files/bb/", "Files/bb/bb/"});
}

TEST_F(Retention, SameAsPerFileRuleForStrayFolderNames) {
    AddRuns("/src", 1);
    // Below a three-letter folder: its level "above" is ".../ab/", unused, but not empty.
    Record(1, Sig("abcd"));
    PutFile("ab/cd/" + Sig("abcd") + ".QRV");
    PutFile("ab/xyz/stray.QRV");
    // A one-letter folder: its level "above" is ".../File", outside the store.
    PutFile("q/r.QRV");
    // A folder in use keeps the level above from being examined.
    Record(1, Sig("k1"), backup + Native("/Files/cd/uvw/k1.QRV"));
    PutFile("cd/uvw/stray.QRV");
    ExpectSameAsPerFileRule({"Files/", "Files/ab/", "Files/ab/cd/",
                             "Files/ab/cd/" + Sig("abcd") + ".QRV", "Files/cd/", "Files/cd/uvw/"});
}

TEST_F(Retention, SameAsPerFileRuleOnAGeneratedStore) {
    UseBackupPath("Gen_Store");
    AddRuns("/src", 1);
    std::mt19937 random(20240611);
    const auto pick = [&](const std::vector<std::string>& items) {
        return items[random() % items.size()];
    };
    const std::vector<std::string> level = {"0a", "0A", "1b", "_b", "c_", "d%", "ee", "fF"};
    const std::vector<std::string> names = {Sig("11"), Sig("22"), Sig("33"), Sig("44"),
                                            Sig("55"), Sig("66"), "77",      ".tmp"};
    for (int i = 0; i < 120; ++i) {
        const std::string folder = pick(level) + "/" + pick(level) + "/"; // PutFile's own form
        PutFile(folder + pick(names) + (random() % 3 ? ".QRV" : "") +
                (random() % 5 ? "" : std::to_string(i)));
    }
    const std::vector<std::string> roots = {backup, f.env.Path("GEN_STORE"),
                                            f.env.Path("GenXStore"), f.env.Path("Gen__Store")};
    for (int i = 0; i < 40; ++i) {
        const std::string where = pick(roots) + Native("/Files/" + pick(level) + "/" + pick(level) +
                                                       (random() % 4 ? "/x.QRV" : ""));
        Record(1, pick(names), where);
    }
    const std::string files = backup + Native("/Files");
    const std::string copy = f.env.Path("store-copy");
    fs::copy(FsPath(files), FsPath(copy), fs::copy_options::recursive);
    DeleteOrphansOneByOne();
    const Lines reference = StoreTree();
    fs::remove_all(FsPath(files));
    fs::copy(FsPath(copy), FsPath(files), fs::copy_options::recursive);
    EXPECT_TRUE(KillOrphans());
    EXPECT_EQ(StoreTree(), reference);
    EXPECT_NE(reference, Lines{}); // the draw leaves something and deletes something
    EXPECT_NE(ListTree(copy).size() + 1, reference.size());
}

// ---- logs of days without a run ----

TEST_F(Retention, LogOfADayWithoutARunIsDeletedAndOfADayWithARunKept) {
    Sql("INSERT INTO Backups (source, datebk) SELECT '/src', " +
        Quoted(DateTimeText(LocalTime(2005, 3, 14, 10, 22, 33))) + "");
    const std::string logs = GetLogsPath();
    WriteFile(logs + Native("/QRV-20050314.LOG"), "a");
    WriteFile(logs + Native("/QRV-20050315.LOG"), "b");
    WriteFile(logs + Native("/QRV-20040314.LOG"), "c");
    PurgeOldLogs();
    EXPECT_EQ(ListTree(logs), Lines{"QRV-20050314.LOG"});
}

TEST_F(Retention, TodaysLogIsDeletedWhenNoRunWasMadeToday) {
    Sql("INSERT INTO Backups (source, datebk) SELECT '/src', " +
        Quoted(DateTimeText(LocalTime(2005, 3, 14, 10, 22, 33))) + "");
    const std::string today =
        GetLogsPath() + Native("/QRV-") + DateStamp(std::time(nullptr)) + ".LOG";
    WriteFile(today, "today");
    PurgeOldLogs();
    EXPECT_FALSE(Exists(today));
}

TEST_F(Retention, TodaysLogIsKeptWhenARunWasMadeToday) {
    AddRuns("/src", 1);
    const std::string today =
        GetLogsPath() + Native("/QRV-") + DateStamp(std::time(nullptr)) + ".LOG";
    WriteFile(today, "today");
    PurgeOldLogs();
    EXPECT_TRUE(Exists(today));
}

TEST_F(Retention, LogOfADayWithoutARunThatTellsOfAProblemIsKept) {
    const std::string logs = GetLogsPath();
    WriteFile(
        logs + Native("/QRV-20050314.LOG"),
        "14/03/2005 10:22:33: Problem: Source /gone was not backed up: it does not exist\r\n");
    WriteFile(logs + Native("/QRV-20050315.LOG"), "15/03/2005 10:22:33: Backup complete\r\n");
    // The mark counts only where a log line's text begins.
    WriteFile(logs + Native("/QRV-20050316.LOG"), "16/03/2005 10:22:33: FIL: /src/Problem: x\r\n");
    PurgeOldLogs();
    EXPECT_EQ(ListTree(logs), Lines{"QRV-20050314.LOG"});
}

TEST_F(Retention, ProblemLineAcrossAMebibyteOfLogIsFound) {
    const std::string logs = GetLogsPath();
    // The mark begins 4 bytes before the end of the first mebibyte read.
    WriteFile(logs + Native("/QRV-20050314.LOG"),
              std::string((1 << 20) - 4, 'x') +
                  ": Problem: Could not read /a: permission denied\r\n");
    WriteFile(logs + Native("/QRV-20050315.LOG"), std::string(3 << 20, 'x'));
    PurgeOldLogs();
    EXPECT_EQ(ListTree(logs), Lines{"QRV-20050314.LOG"});
}

TEST_F(Retention, NoLogIsDeletedWhenTheRunsCannotBeRead) {
    Sql("DROP TABLE Backups");
    const std::string logs = GetLogsPath();
    WriteFile(logs + Native("/QRV-20050314.LOG"), "a");
    WriteFile(logs + Native("/QRV-20050315.LOG"), "b");
    PurgeOldLogs();
    EXPECT_EQ(ListTree(logs), (Lines{"QRV-20050314.LOG", "QRV-20050315.LOG"}));
}

TEST_F(Retention, LogsOfEveryRunDayAreKeptWhateverTheSource) {
    for (int day = 1; day <= 3; ++day)
        Sql("INSERT INTO Backups (source, datebk) SELECT '/src" + std::to_string(day) + "', " +
            Quoted(DateTimeText(LocalTime(2010, 12, day, 23, 59, 59))));
    const std::string logs = GetLogsPath();
    for (int day = 1; day <= 4; ++day)
        WriteFile(logs + Native("/QRV-2010120") + std::to_string(day) + ".LOG", "x");
    PurgeOldLogs();
    EXPECT_EQ(ListTree(logs), (Lines{"QRV-20101201.LOG", "QRV-20101202.LOG", "QRV-20101203.LOG"}));
}

TEST_F(Retention, LogsFolderFilesAreJudgedByTheTextAfterTheFirstLogPrefix) {
    Sql("INSERT INTO Backups (source, datebk) SELECT '/src', " +
        Quoted(DateTimeText(LocalTime(2005, 3, 14, 10, 22, 33))));
    const std::string logs = GetLogsPath();
    WriteFile(logs + Native("/notes.txt"), "no prefix: characters of the folder are read instead");
    WriteFile(logs + Native("/.QRV-20050315.LOG"), "hidden files are not listed");
#ifdef _WIN32
    // Hidden by its attribute on Windows, not by its name.
    ASSERT_TRUE(AddWindowsAttributes(logs + Native("/.QRV-20050315.LOG"), 0x2));
#endif
    fs::create_directories(FsPath(logs + Native("/old")));
    WriteFile(logs + Native("/old/QRV-20050314.LOG"), "sub-folders are walked");
    WriteFile(logs + Native("/old/QRV-20050316.LOG"), "sub-folders are walked");
    WriteFile(logs + Native("/QRV-20050314-copy.LOG"), "the date is read after the prefix");
    PurgeOldLogs();
    EXPECT_EQ(ListTree(logs), (Lines{".QRV-20050315.LOG", "QRV-20050314-copy.LOG", "old/",
                                     "old/QRV-20050314.LOG"}));
}

// ---- compacting the catalogue ----

TEST_F(Retention, VacuumLogsAndShrinksTheCatalogueAfterManyRowsAreDeleted) {
    AddRuns("/src", 1);
    Sql("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 5000) "
        "INSERT INTO Files (bid, md5, file, path, backup, size) SELECT 1, hex(randomblob(16)), "
        "'/data/file-' || i || '.txt', '/data/', '/backup/Files/' || hex(randomblob(40)), 12 "
        "FROM n");
    Sql("DELETE FROM Files");
    const off_t before = FileSize(GetDBPath());
    const size_t logged = LogLines().size();
    VacuumDB();
    EXPECT_LT(FileSize(GetDBPath()), before / 4);
    EXPECT_EQ(LogLinesFrom(logged), Lines{"Vacuum DB\r\n"});
}

TEST_F(Retention, VacuumAtTheAdvancedLevelLogsNothing) {
    Logger().LogLevel(2);
    const size_t logged = LogLines().size();
    VacuumDB();
    EXPECT_EQ(LogLinesFrom(logged), Lines{});
}

} // namespace
