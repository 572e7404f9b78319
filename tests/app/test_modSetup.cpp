// Creation of a new catalogue (folders, exact schema, DBVersion, one box per failed statement)
// and the key/value settings store in table Setup.

#include "TestSupport.h"
#include "app/modPaths.h"
#include "app/modSetup.h"
#include "catalogue/CDatabase.h"
#include "platform/modFileStatus.h"
#include "support/CRuntimeError.h"
#include "support/modServices.h"
#include "support/modYield.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <memory>
#include <ostream>
#include <sqlite3.h>
#ifndef _WIN32
#include <sys/stat.h>
#endif

// Readable failure output for recorded message boxes.
void PrintTo(const CScriptedMessageBox::Call& call, std::ostream* out) {
    *out << "{\"" << call.text << "\", " << call.style << ", \"" << call.title << "\"}";
}

namespace {

using Rows = std::vector<std::vector<std::string>>;
using Calls = std::vector<CScriptedMessageBox::Call>;

// A test environment whose backup path is <root>/backup, with the error handler's stack made
// as start-up makes it.
struct BackupEnv : ScopedTestEnv {
    BackupEnv() {
        ErrHandler().MaxProcStackItems(100);
        WriteRegSetting("BackupPath", Path("backup"));
    }
    std::string Catalogue() const { return Path("backup/db/Backup.db"); }
    // Where a new catalogue is built before it is put in place.
    std::string Building() const { return Catalogue() + ".new"; }
};

bool IsFolder(const std::string& path) {
    return StatusOf(path).kind == PathKind::kFolder;
}

// Runs `sql` on its own connection, as another program touching the catalogue would.
void RunElsewhere(const std::string& path, const std::string& sql) {
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
    char* error = nullptr;
    const int rc = sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &error);
    const std::string text = error ? error : "";
    sqlite3_free(error);
    sqlite3_close(db);
    ASSERT_EQ(rc, SQLITE_OK) << text;
}

// Runs `sql` elsewhere at the first yield after the catalogue being built appears, which is
// inside CreateDB's transaction, just before its first CREATE TABLE.
void InterfereOnceCreated(const BackupEnv& env, const std::string& sql) {
    auto done = std::make_shared<bool>(false);
    SetYieldHook([&env, sql, done] {
        if (*done || !Exists(env.Building())) return;
        *done = true;
        RunElsewhere(env.Building(), sql);
    });
}

const char* const kTitle = "QRV - Stashwell";

// --- CreateDB -------------------------------------------------------------------------------

TEST(CreateDB, MakesTheFourFoldersPrivate) {
    BackupEnv env;
    CreateDB();
    for (const char* folder : {"backup", "backup/db", "backup/Files", "backup/Logs"}) {
        EXPECT_TRUE(IsFolder(env.Path(folder))) << folder;
        EXPECT_TRUE(IsPrivate(env.Path(folder))) << folder;
    }
    EXPECT_TRUE(env.box.calls.empty());
}

TEST(CreateDB, LeavesExistingFoldersAsTheyAre) {
    BackupEnv env;
    CreateTree(env.Path("backup"),
               Dir({{"Files", Dir({{"ab", Dir({{"keep.QRV", File("x")}})}})}, {"Logs", Dir()}}));
    CreateDB();
    EXPECT_EQ(ReadFile(env.Path("backup/Files/ab/keep.QRV")), "x");
    EXPECT_TRUE(IsFolder(env.Path("backup/db")));
    EXPECT_TRUE(Exists(env.Catalogue()));
    EXPECT_TRUE(env.box.calls.empty());
}

TEST(CreateDB, NewCatalogueHoldsExactlyTheFiveTablesAndThreeIndexes) {
    BackupEnv env;
    CreateDB();
    const Rows expected = {
        {"table", "Setup", "Setup",
         "CREATE TABLE Setup (sid INTEGER PRIMARY KEY, key TEXT, value TEXT)"},
        {"table", "Backups", "Backups",
         "CREATE TABLE Backups (bid INTEGER PRIMARY KEY, source TEXT, datebk DATETIME)"},
        {"table", "Files", "Files",
         "CREATE TABLE Files (fid INTEGER PRIMARY KEY, bid INTEGER, md5 TEXT, path TEXT, file "
         "TEXT, backup TEXT, size TEXT, filedate DATETIME)"},
        {"table", "Sources", "Sources",
         "CREATE TABLE Sources (sid INTEGER PRIMARY KEY, source TEXT)"},
        {"table", "Paths", "Paths",
         "CREATE TABLE Paths (pid INTEGER PRIMARY KEY, bid INTEGER, path TEXT)"},
        {"index", "IDX_Files_1", "Files", "CREATE INDEX IDX_Files_1 ON Files (file)"},
        {"index", "IDX_Files_2", "Files", "CREATE INDEX IDX_Files_2 ON Files (bid, path)"},
        {"index", "IDX_Paths_1", "Paths", "CREATE INDEX IDX_Paths_1 ON Paths (bid)"},
    };
    EXPECT_EQ(SqlRows(env.Catalogue(), "SELECT type, name, tbl_name, sql FROM sqlite_master "
                                       "ORDER BY rowid"),
              expected);
    EXPECT_TRUE(
        SqlRows(env.Catalogue(), "SELECT name FROM sqlite_master WHERE name = 'IDX_Files_3'")
            .empty());
}

TEST(CreateDB, NewCatalogueHoldsOneSetupRowDBVersion1) {
    BackupEnv env;
    CreateDB();
    EXPECT_EQ(SqlRows(env.Catalogue(), "SELECT sid, key, value FROM Setup"),
              (Rows{{"1", "DBVersion", "1"}}));
    EXPECT_EQ(GetSetupValue("DBVersion"), "1");
}

TEST(CreateDB, NewCatalogueIsPrivateAndLeavesNoJournal) {
    BackupEnv env;
    CreateDB();
    EXPECT_TRUE(IsPrivate(env.Catalogue()));
    EXPECT_FALSE(Exists(env.Catalogue() + "-journal"));
    EXPECT_FALSE(DBJournalExists());
}

TEST(CreateDB, SecondCallChangesNothing) {
    BackupEnv env;
    CreateDB();
    SetSetupValue("DBVersion", "7");
    CreateDB();
    EXPECT_EQ(SqlRows(env.Catalogue(), "SELECT key, value FROM Setup"), (Rows{{"DBVersion", "7"}}));
    EXPECT_EQ(SqlRows(env.Catalogue(), "SELECT COUNT(*) FROM sqlite_master"), Rows{{"8"}});
    EXPECT_TRUE(env.box.calls.empty());
}

TEST(CreateDB, ExistingCatalogueIsUsedAsItIs) {
    BackupEnv env;
    CreateTree(env.Path("backup"), Dir({{"db", Dir()}}));
    RunElsewhere(env.Catalogue(), "CREATE TABLE Other (a TEXT);");
    CreateDB();
    EXPECT_EQ(SqlRows(env.Catalogue(), "SELECT name FROM sqlite_master"), Rows{{"Other"}});
    EXPECT_TRUE(IsFolder(env.Path("backup/Files")));
    EXPECT_TRUE(IsFolder(env.Path("backup/Logs")));
    EXPECT_TRUE(env.box.calls.empty());
}

TEST(CreateDB, FolderInTheCataloguesPlaceShowsDatabaseErrorAndStops) {
    BackupEnv env;
    // A folder in the catalogue's place is no catalogue file, and cannot be replaced by one.
    CreateTree(env.Catalogue(), Dir());
    CreateDB();
    EXPECT_EQ(env.box.calls,
              (Calls{{"Database error: cannot create " + env.Catalogue() + ": Is a directory", 16,
                      kTitle}}));
    EXPECT_TRUE(IsFolder(env.Catalogue()));
    EXPECT_EQ(ListTree(env.Path("backup/db")), std::vector<std::string>{"Backup.db/"});
}

#ifndef _WIN32
// A folder whose mode refuses new files.
TEST(CreateDB, UnwritableCatalogueFolderShowsDatabaseErrorAndStops) {
    BackupEnv env;
    CreateTree(env.Path("backup/db"), Dir());
    ASSERT_EQ(::chmod(env.Path("backup/db").c_str(), 0500), 0);
    ScopedNoPermissionOverride noOverride;
    if (!noOverride.Ok()) GTEST_SKIP() << "permissions cannot be enforced here";
    CreateDB();
    EXPECT_EQ(env.box.calls, (Calls{{"Database error: unable to open database file", 16, kTitle}}));
    EXPECT_EQ(ListTree(env.Path("backup/db")), std::vector<std::string>{});
}
#endif

TEST(CreateDB, CatalogueAppearsOnlyWhenItIsWhole) {
    BackupEnv env;
    std::vector<bool> seen; // whether the catalogue was in place at each yield of its creation
    SetYieldHook([&] { seen.push_back(Exists(env.Catalogue())); });
    CreateDB();
    SetYieldHook(nullptr);
    ASSERT_FALSE(seen.empty());
    EXPECT_EQ(std::count(seen.begin(), seen.end(), true), 0);
    EXPECT_EQ(SqlRows(env.Catalogue(), "SELECT COUNT(*) FROM sqlite_master"), Rows{{"8"}});
    EXPECT_EQ(SqlRows(env.Catalogue(), "SELECT key, value FROM Setup"), (Rows{{"DBVersion", "1"}}));
    EXPECT_EQ(ListTree(env.Path("backup/db")), std::vector<std::string>{"Backup.db"});
}

TEST(CreateDB, EmptyCatalogueLeftByAKilledStartIsMadeAnew) {
    BackupEnv env;
    // A start killed during creation used to leave an empty file, and its journal.
    CreateTree(env.Path("backup/db"),
               Dir({{"Backup.db", File("")}, {"Backup.db-journal", File(std::string(512, 'j'))}}));
    CreateDB();
    EXPECT_TRUE(env.box.calls.empty());
    EXPECT_EQ(SqlRows(env.Catalogue(), "SELECT COUNT(*) FROM sqlite_master"), Rows{{"8"}});
    EXPECT_EQ(SqlRows(env.Catalogue(), "SELECT key, value FROM Setup"), (Rows{{"DBVersion", "1"}}));
    EXPECT_EQ(ListTree(env.Path("backup/db")), std::vector<std::string>{"Backup.db"});
    EXPECT_TRUE(IsPrivate(env.Catalogue()));
}

TEST(CreateDB, CatalogueHalfBuiltByAKilledStartIsRemovedAndBuiltAgain) {
    BackupEnv env;
    CreateTree(env.Path("backup/db"),
               Dir({{"Backup.db.new", File(std::string(4096, 'x'))},
                    {"Backup.db.new-journal", File(std::string(512, 'j'))}}));
    CreateDB();
    EXPECT_TRUE(env.box.calls.empty());
    EXPECT_EQ(SqlRows(env.Catalogue(), "SELECT COUNT(*) FROM sqlite_master"), Rows{{"8"}});
    EXPECT_EQ(ListTree(env.Path("backup/db")), std::vector<std::string>{"Backup.db"});
}

TEST(CreateDB, FailingTableStatementShowsItsBoxAndCreationGoesOn) {
    BackupEnv env;
    InterfereOnceCreated(env, "CREATE TABLE Paths (pid INTEGER PRIMARY KEY, bid INTEGER, path "
                              "TEXT);");
    CreateDB();
    EXPECT_EQ(env.box.calls,
              (Calls{{"Error creating tables: table Paths already exists", 16, kTitle}}));
    EXPECT_EQ(SqlRows(env.Catalogue(), "SELECT name FROM sqlite_master ORDER BY rowid"),
              (Rows{{"Paths"},
                    {"Setup"},
                    {"Backups"},
                    {"Files"},
                    {"Sources"},
                    {"IDX_Files_1"},
                    {"IDX_Files_2"},
                    {"IDX_Paths_1"}}));
    EXPECT_EQ(SqlRows(env.Catalogue(), "SELECT key, value FROM Setup"), (Rows{{"DBVersion", "1"}}));
}

TEST(CreateDB, EveryFailingTableStatementShowsItsOwnBox) {
    BackupEnv env;
    InterfereOnceCreated(env, "CREATE TABLE Backups (x); CREATE TABLE Sources (x);");
    CreateDB();
    EXPECT_EQ(env.box.calls,
              (Calls{{"Error creating tables: table Backups already exists", 16, kTitle},
                     {"Error creating tables: table Sources already exists", 16, kTitle}}));
    EXPECT_EQ(SqlRows(env.Catalogue(), "SELECT key, value FROM Setup"), (Rows{{"DBVersion", "1"}}));
}

TEST(CreateDB, FailingIndexStatementShowsItsBox) {
    BackupEnv env;
    InterfereOnceCreated(env, "CREATE TABLE Other (a); CREATE INDEX IDX_Files_2 ON Other (a);");
    CreateDB();
    EXPECT_EQ(env.box.calls,
              (Calls{{"Error creating index: index IDX_Files_2 already exists", 16, kTitle}}));
    EXPECT_EQ(SqlRows(env.Catalogue(), "SELECT name FROM sqlite_master WHERE type = 'index' "
                                       "ORDER BY rowid"),
              (Rows{{"IDX_Files_2"}, {"IDX_Files_1"}, {"IDX_Paths_1"}}));
}

TEST(CreateDB, ForeignSetupTableLeavesNoDBVersionAndNoExtraBox) {
    BackupEnv env;
    InterfereOnceCreated(env, "CREATE TABLE Setup (x);");
    CreateDB();
    // DBVersion is still attempted; its statement fails on the foreign Setup table silently.
    EXPECT_EQ(env.box.calls,
              (Calls{{"Error creating tables: table Setup already exists", 16, kTitle}}));
    EXPECT_EQ(SqlRows(env.Catalogue(), "SELECT COUNT(*) FROM Setup"), Rows{{"0"}});
}

// --- SetSetupValue / GetSetupValue ----------------------------------------------------------

TEST(SetupStore, SettingKeyTwiceLeavesOneRowWithSecondValue) {
    BackupEnv env;
    CreateDB();
    SetSetupValue("MaxBackups", "10");
    SetSetupValue("MaxBackups", "20");
    EXPECT_EQ(SqlRows(env.Catalogue(), "SELECT key, value FROM Setup WHERE key = 'MaxBackups'"),
              (Rows{{"MaxBackups", "20"}}));
    EXPECT_EQ(GetSetupValue("MaxBackups"), "20");
}

TEST(SetupStore, SettingKeyRemovesEveryEarlierRowOfIt) {
    BackupEnv env;
    CreateDB();
    RunElsewhere(env.Catalogue(), "INSERT INTO Setup (key, value) VALUES ('LogLevel', '1');"
                                  "INSERT INTO Setup (key, value) VALUES ('LogLevel', '2');");
    SetSetupValue("LogLevel", "3");
    EXPECT_EQ(SqlRows(env.Catalogue(), "SELECT key, value FROM Setup WHERE key = 'LogLevel'"),
              (Rows{{"LogLevel", "3"}}));
}

TEST(SetupStore, KeyAndValueAreStoredTrimmedOfBlanks) {
    BackupEnv env;
    CreateDB();
    SetSetupValue("  LogLevel ", "  2 ");
    EXPECT_EQ(SqlRows(env.Catalogue(), "SELECT key, value FROM Setup WHERE sid > 1"),
              (Rows{{"LogLevel", "2"}}));
    EXPECT_EQ(GetSetupValue("LogLevel"), "2");
}

TEST(SetupStore, PaddedKeyDoesNotReplaceTheTrimmedRow) {
    BackupEnv env;
    CreateDB();
    SetSetupValue("LogLevel", "1");
    // The delete looks for the key as given, the insert stores it trimmed.
    SetSetupValue(" LogLevel", "2");
    EXPECT_EQ(SqlRows(env.Catalogue(), "SELECT key, value FROM Setup WHERE sid > 1"),
              (Rows{{"LogLevel", "1"}, {"LogLevel", "2"}}));
    EXPECT_EQ(GetSetupValue("LogLevel"), "1");
}

TEST(SetupStore, ValueWithApostropheIsLostWithoutBox) {
    BackupEnv env;
    CreateDB();
    SetSetupValue("Note", "plain");
    SetSetupValue("Note", "it's");
    EXPECT_TRUE(SqlRows(env.Catalogue(), "SELECT value FROM Setup WHERE key = 'Note'").empty());
    EXPECT_EQ(GetSetupValue("Note"), "");
    EXPECT_TRUE(env.box.calls.empty());
}

TEST(SetupStore, ValueBytesRoundTrip) {
    BackupEnv env;
    CreateDB();
    const std::string value = "/d/\xff\xfe two\nlines\\x";
    SetSetupValue("Odd", value);
    EXPECT_EQ(GetSetupValue("Odd"), value);
}

TEST(SetupStore, AbsentKeyYieldsEmpty) {
    BackupEnv env;
    CreateDB();
    EXPECT_EQ(GetSetupValue("NoSuchKey"), "");
}

TEST(SetupStore, KeysAreCaseSensitive) {
    BackupEnv env;
    CreateDB();
    EXPECT_EQ(GetSetupValue("dbversion"), "");
}

TEST(SetupStore, WithoutCatalogueNothingIsWrittenOrCreated) {
    BackupEnv env;
    SetSetupValue("MaxBackups", "5");
    EXPECT_EQ(GetSetupValue("MaxBackups"), "");
    EXPECT_FALSE(Exists(env.Path("backup")));
    EXPECT_TRUE(env.box.calls.empty());
}

TEST(SetupStore, WithoutBackupPathNothingHappens) {
    ScopedTestEnv env;
    ErrHandler().MaxProcStackItems(100);
    SetSetupValue("MaxBackups", "5");
    EXPECT_EQ(GetSetupValue("MaxBackups"), "");
    EXPECT_TRUE(env.box.calls.empty());
}

TEST(SetupStore, ReadableWhileRunHoldsItsTransaction) {
    BackupEnv env;
    CreateDB();
    SetSetupValue("MaxBackups", "4");
    CDatabase run;
    run.Connect(env.Catalogue());
    run.Begin();
    EXPECT_EQ(run.BackupRun("/home"), 1);
    EXPECT_EQ(GetSetupValue("MaxBackups"), "4");
    run.Commit();
    EXPECT_FALSE(run.Connection().Err()) << run.Connection().ErrMsg();
}

// --- SetupToInt -----------------------------------------------------------------------------

TEST(SetupToInt, EmptyTextIsZero) {
    EXPECT_EQ(SetupToInt(""), 0);
}

TEST(SetupToInt, NumberTextConverts) {
    EXPECT_EQ(SetupToInt("12"), 12);
    EXPECT_EQ(SetupToInt(" 7 "), 7);
    EXPECT_EQ(SetupToInt("-3"), -3);
    EXPECT_EQ(SetupToInt("32767"), 32767);
}

TEST(SetupToInt, NonNumericTextIsTypeMismatch) {
    try {
        SetupToInt("abc");
        FAIL() << "no error raised";
    } catch (const CRuntimeError& e) {
        EXPECT_EQ(e.Number(), 13);
    }
}

TEST(SetupToInt, OutOfRangeIsOverflow) {
    try {
        SetupToInt("40000");
        FAIL() << "no error raised";
    } catch (const CRuntimeError& e) {
        EXPECT_EQ(e.Number(), 6);
    }
}

} // namespace
