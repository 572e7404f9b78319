// The quick check's data file beside the catalogue: the rows of one run per source, given back
// only for that very run, byte for byte; a missing, damaged or foreign file gives nothing and is
// replaced on the next save; the file is private.

#include "TestSupport.h"
#include "catalogue/CQuickCheckDB.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <ostream>
#include <sqlite3.h>
#include <string>
#include <vector>
#ifndef _WIN32
#include <sys/stat.h>
#endif

// Readable failure output for rows.
void PrintTo(const QuickCheckRow& row, std::ostream* out) {
    *out << "{\"" << row.path << "\", {" << row.stamp.device << ", " << row.stamp.inode << ", "
         << row.stamp.size << ", " << row.stamp.mtimeNs << ", " << row.stamp.ctimeNs << "}, \""
         << row.signature << "\", " << row.length << "}";
}

namespace {

using Rows = std::vector<QuickCheckRow>;

const std::string kSourceA = "/home/me/Bob's \xff\xfe src";
const std::string kSourceB = "/home/me/other";

QuickCheckRow Row(std::string path, uint64_t inode, int64_t size, std::string signature) {
    return {std::move(path),
            {2049, inode, size, 1'700'000'000'123'456'789, 1'700'000'001'987'654'321},
            std::move(signature),
            size};
}

// Rows as Load gives them back, in an order of their own: compared sorted by path.
Rows Sorted(Rows rows) {
    std::sort(rows.begin(), rows.end(),
              [](const QuickCheckRow& a, const QuickCheckRow& b) { return a.path < b.path; });
    return rows;
}

// Runs statements on a SQLite file, made when missing.
void SqlExec(const std::string& path, const std::string& sql) {
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
    char* error = nullptr;
    const int rc = sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &error);
    const std::string message = error ? error : "";
    sqlite3_free(error);
    sqlite3_close(db);
    ASSERT_EQ(rc, SQLITE_OK) << message;
}

class CQuickCheckDBTest : public ::testing::Test {
protected:
    // What Load gives for `source` and `run`: whether it found them, and the rows sorted.
    std::pair<bool, Rows> Loaded(const std::string& source, const QuickCheckRun& run) const {
        // Filled beforehand: a Load that finds nothing must leave no row behind.
        Rows rows{Row("/left/over", 1, 1, "00000000000000000000000000000000")};
        const bool found = CQuickCheckDB::Load(file, source, run, rows);
        return {found, Sorted(rows)};
    }

    ScopedTestEnv env;
    std::string file = env.Path("QuickCheck.db");
    const QuickCheckRun run1{1, "01/02/2026 10:11:12"};
    const QuickCheckRun run2{2, "01/02/2026 10:11:13"};
    const QuickCheckRun run3{3, "02/02/2026 08:00:00"};
    const Rows rowsA{
        Row("/home/me/Bob's \xff\xfe src/it's.txt", 11, 5, "0123456789abcdef0123456789abcdef"),
        Row("/home/me/Bob's \xff\xfe src/line\nbreak", 12, 9000,
            "fedcba9876543210fedcba9876543210"),
        Row("/home/me/Bob's \xff\xfe src/bad\x80\xc3(.bin", 13, 1,
            "00112233445566778899aabbccddeeff"),
    };
    const Rows rowsB{Row("/home/me/other/b.txt", 21, 4, "ffeeddccbbaa99887766554433221100")};
};

TEST_F(CQuickCheckDBTest, PathBesideNamesTheFileInTheCataloguesFolder) {
    EXPECT_EQ(CQuickCheckDB::PathBeside(Native("/bk/db/Backup.db")),
              Native("/bk/db/QuickCheck.db"));
    EXPECT_EQ(CQuickCheckDB::PathBeside(Native("/Backup.db")), Native("/QuickCheck.db"));
    EXPECT_EQ(CQuickCheckDB::PathBeside("Backup.db"), "QuickCheck.db");
}

TEST_F(CQuickCheckDBTest, SavedRowsLoadBackByteForByte) {
    Rows rows = rowsA;
    // Values at the ends of their ranges: a device and an inode above 2^63, a time before 1970.
    rows.push_back(
        {"/home/me/Bob's \xff\xfe src/'quoted'\r\n\t end",
         {0xFFFF'FFFF'FFFF'FFF0u, 0x8000'0000'0000'0001u, int64_t{1} << 40, -1'500'000'000, 0},
         "abcdefabcdefabcdefabcdefabcdef12",
         int64_t{1} << 40});
    ASSERT_TRUE(CQuickCheckDB::Save(file, kSourceA, run1, rows));
    EXPECT_EQ(Loaded(kSourceA, run1), std::make_pair(true, Sorted(rows)));
    // Loading again gives the same: nothing is used up by a load.
    EXPECT_EQ(Loaded(kSourceA, run1), std::make_pair(true, Sorted(rows)));
}

TEST_F(CQuickCheckDBTest, RunWithoutRowsLoadsAsFoundAndEmpty) {
    ASSERT_TRUE(CQuickCheckDB::Save(file, kSourceA, run1, Rows{}));
    EXPECT_EQ(Loaded(kSourceA, run1), std::make_pair(true, Rows{}));
}

TEST_F(CQuickCheckDBTest, AnotherRunOfTheSourceLoadsNothing) {
    ASSERT_TRUE(CQuickCheckDB::Save(file, kSourceA, run1, rowsA));
    // Another bid with the same date, the same bid with another date, and a later run.
    EXPECT_EQ(Loaded(kSourceA, {2, run1.datebk}), std::make_pair(false, Rows{}));
    EXPECT_EQ(Loaded(kSourceA, {1, "01/02/2026 10:11:13"}), std::make_pair(false, Rows{}));
    EXPECT_EQ(Loaded(kSourceA, run2), std::make_pair(false, Rows{}));
    // A source that was never saved, and one that differs only by a trailing slash.
    EXPECT_EQ(Loaded(kSourceB, run1), std::make_pair(false, Rows{}));
    EXPECT_EQ(Loaded(kSourceA + "/", run1), std::make_pair(false, Rows{}));
    EXPECT_EQ(Loaded(kSourceA, run1), std::make_pair(true, Sorted(rowsA)));
}

// Rows handed over one at a time, as a run streams them.
CQuickCheckDB::Rows Streamed(const Rows& rows) {
    return [rows](const auto& each) {
        for (const QuickCheckRow& row : rows)
            if (!each(row)) return false;
        return true;
    };
}

TEST_F(CQuickCheckDBTest, UpdateKeepsUnchangedRowsAndWritesOnlyWhatChanged) {
    Rows rows = rowsA;
    rows.push_back(Row("/home/me/Bob's \xff\xfe src/old dir/x", 14, 3, std::string(32, 'c')));
    rows.push_back(Row("/home/me/Bob's \xff\xfe src/kept dir/y", 15, 4, std::string(32, 'd')));
    ASSERT_TRUE(CQuickCheckDB::Save(file, kSourceA, run1, rows));
    ASSERT_TRUE(CQuickCheckDB::Save(file, kSourceB, run1, rowsB));

    // The run reached the source's own folder and "kept dir/", not "old dir/"; one file of the
    // source's folder is gone, one changed and one is new.
    QuickCheckRow changed = rowsA[1];
    changed.stamp.ctimeNs += 5;
    changed.signature = std::string(32, 'e');
    const QuickCheckRow added =
        Row("/home/me/Bob's \xff\xfe src/new.txt", 16, 2, std::string(32, '1'));
    std::vector<std::string> asked;
    const auto reached = [&](const std::string& folder) {
        asked.push_back(folder);
        return folder != "/home/me/Bob's \xff\xfe src/old dir/";
    };
    ASSERT_TRUE(CQuickCheckDB::Update(file, kSourceA, run2, reached, Streamed({rowsA[0]}),
                                      Streamed({changed, added})));

    EXPECT_EQ(asked, (std::vector<std::string>{"/home/me/Bob's \xff\xfe src/",
                                               "/home/me/Bob's \xff\xfe src/kept dir/",
                                               "/home/me/Bob's \xff\xfe src/old dir/"}));
    EXPECT_EQ(Loaded(kSourceA, run2),
              std::make_pair(true, Sorted({changed, rowsA[2], rows[4], added})));
    EXPECT_EQ(Loaded(kSourceA, run1), std::make_pair(false, Rows{}));
    EXPECT_EQ(Loaded(kSourceB, run1), std::make_pair(true, rowsB));
}

TEST_F(CQuickCheckDBTest, UpdateThatCannotWriteChangesNothing) {
    ASSERT_TRUE(CQuickCheckDB::Save(file, kSourceA, run1, rowsA));
    const auto failing = [](const auto& each) { return each(Row("/x", 1, 1, "")) && false; };
    EXPECT_FALSE(CQuickCheckDB::Update(
        file, kSourceA, run2, [](const std::string&) { return false; }, Streamed({}), failing));
    EXPECT_EQ(Loaded(kSourceA, run1), std::make_pair(true, Sorted(rowsA)));
}

TEST_F(CQuickCheckDBTest, MissingFileLoadsNothingAndIsNotCreated) {
    EXPECT_EQ(Loaded(kSourceA, run1), std::make_pair(false, Rows{}));
    EXPECT_FALSE(Exists(file));
    EXPECT_EQ(ListTree(env.Root()), std::vector<std::string>{});
}

TEST_F(CQuickCheckDBTest, GarbageFileLoadsNothingAndSaveReplacesIt) {
    const std::string garbage = "this is no database at all\n" + PatternContent(5000);
    WriteFile(file, garbage);
#ifndef _WIN32
    ::chmod(file.c_str(), 0644);
#endif
    EXPECT_EQ(Loaded(kSourceA, run1), std::make_pair(false, Rows{}));
    EXPECT_EQ(ReadFile(file), garbage); // a load changes nothing

    ASSERT_TRUE(CQuickCheckDB::Save(file, kSourceA, run1, rowsA));
    EXPECT_EQ(ReadFile(file).substr(0, 16), std::string("SQLite format 3\0", 16));
    EXPECT_TRUE(IsPrivate(file));
    EXPECT_EQ(Loaded(kSourceA, run1), std::make_pair(true, Sorted(rowsA)));
}

TEST_F(CQuickCheckDBTest, EmptyFileLoadsNothingAndSaveUsesIt) {
    WriteFile(file, "");
    EXPECT_EQ(Loaded(kSourceA, run1), std::make_pair(false, Rows{}));
    ASSERT_TRUE(CQuickCheckDB::Save(file, kSourceA, run1, rowsA));
    EXPECT_EQ(Loaded(kSourceA, run1), std::make_pair(true, Sorted(rowsA)));
}

TEST_F(CQuickCheckDBTest, DatabaseOfAnotherProgramLoadsNothingAndSaveReplacesIt) {
    // A SQLite file with a table of the same name and other columns.
    SqlExec(file, "CREATE TABLE Runs (name TEXT); INSERT INTO Runs VALUES ('x');");
    EXPECT_EQ(Loaded(kSourceA, run1), std::make_pair(false, Rows{}));
    ASSERT_TRUE(CQuickCheckDB::Save(file, kSourceA, run1, rowsA));
    EXPECT_EQ(Loaded(kSourceA, run1), std::make_pair(true, Sorted(rowsA)));
    EXPECT_EQ(SqlRows(file, "SELECT COUNT(*) FROM Runs"),
              (std::vector<std::vector<std::string>>{{"1"}}));
}

TEST_F(CQuickCheckDBTest, SavingALaterRunOfASourceReplacesTheEarlierRunsRows) {
    ASSERT_TRUE(CQuickCheckDB::Save(file, kSourceA, run1, rowsA));
    const Rows later{
        Row(rowsA[0].path, 31, 6, "99999999999999999999999999999999"),
        Row("/home/me/Bob's \xff\xfe src/new.txt", 32, 7, "88888888888888888888888888888888")};
    ASSERT_TRUE(CQuickCheckDB::Save(file, kSourceA, run2, later));
    EXPECT_EQ(Loaded(kSourceA, run1), std::make_pair(false, Rows{}));
    EXPECT_EQ(Loaded(kSourceA, run2), std::make_pair(true, Sorted(later)));
    // The earlier rows are gone from the file, not only hidden.
    EXPECT_EQ(SqlRows(file, "SELECT COUNT(*) FROM Stamps"),
              (std::vector<std::vector<std::string>>{{"2"}}));
    EXPECT_EQ(SqlRows(file, "SELECT COUNT(*) FROM Runs"),
              (std::vector<std::vector<std::string>>{{"1"}}));
}

TEST_F(CQuickCheckDBTest, TwoSourcesAreKeptApart) {
    ASSERT_TRUE(CQuickCheckDB::Save(file, kSourceA, run1, rowsA));
    ASSERT_TRUE(CQuickCheckDB::Save(file, kSourceB, run2, rowsB));
    EXPECT_EQ(Loaded(kSourceA, run1), std::make_pair(true, Sorted(rowsA)));
    EXPECT_EQ(Loaded(kSourceB, run2), std::make_pair(true, Sorted(rowsB)));
    EXPECT_EQ(Loaded(kSourceA, run2), std::make_pair(false, Rows{}));
    EXPECT_EQ(Loaded(kSourceB, run1), std::make_pair(false, Rows{}));

    // A later run of one source leaves the other's rows as they were.
    const Rows laterA{Row(rowsA[1].path, 41, 9000, "77777777777777777777777777777777")};
    ASSERT_TRUE(CQuickCheckDB::Save(file, kSourceA, run3, laterA));
    EXPECT_EQ(Loaded(kSourceA, run3), std::make_pair(true, Sorted(laterA)));
    EXPECT_EQ(Loaded(kSourceB, run2), std::make_pair(true, Sorted(rowsB)));
    EXPECT_EQ(Loaded(kSourceA, run1), std::make_pair(false, Rows{}));
}

TEST_F(CQuickCheckDBTest, FileIsCreatedPrivateWhateverTheUmask) {
#ifdef _WIN32
    const bool saved1 = CQuickCheckDB::Save(file, kSourceA, run1, rowsA);
#else
    const mode_t saved = ::umask(0);
    const bool saved1 = CQuickCheckDB::Save(file, kSourceA, run1, rowsA);
    ::umask(saved);
#endif
    ASSERT_TRUE(saved1);
    EXPECT_TRUE(IsPrivate(file));
    // A later save keeps it private.
    ASSERT_TRUE(CQuickCheckDB::Save(file, kSourceB, run2, rowsB));
    EXPECT_TRUE(IsPrivate(file));
}

TEST_F(CQuickCheckDBTest, SaveIntoAMissingFolderFailsAndMakesNothing) {
    const std::string inside = env.Path("no such folder/QuickCheck.db");
    EXPECT_FALSE(CQuickCheckDB::Save(inside, kSourceA, run1, rowsA));
    EXPECT_EQ(ListTree(env.Root()), std::vector<std::string>{});
}

} // namespace
