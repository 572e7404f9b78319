// The SQL access layer: connection, the statement builder's exact texts, errors that stay set
// until Reset, and navigation over a result fetched whole as text.

#include "TestSupport.h"
#include "catalogue/ADOSQLite.h"
#include "catalogue/modSchema.h"
#include "support/modServices.h"
#include "support/modYield.h"

#include <gtest/gtest.h>
#include <ostream>
#include <sqlite3.h>

// Readable failure output for recorded message boxes.
void PrintTo(const CScriptedMessageBox::Call& call, std::ostream* out) {
    *out << "{\"" << call.text << "\", " << call.style << ", \"" << call.title << "\"}";
}

namespace {

using Rows = std::vector<std::vector<std::string>>;

// A database with the catalogue's five tables, made through the access layer itself.
std::string MakeCatalogue(const ScopedTestEnv& env) {
    const std::string path = env.Path("catalogue.db");
    ADOSQLite db;
    EXPECT_TRUE(db.Connect(path, true));
    db.Action(sqlaction::kAsIs);
    for (const char* statement : schema::kTables) {
        std::string text = statement;
        db.Exec(text);
    }
    EXPECT_FALSE(db.Err()) << db.ErrMsg();
    return path;
}

void RunAsIs(ADOSQLite& db, const std::string& sql) {
    db.Action(sqlaction::kAsIs);
    std::string text = sql;
    db.Exec(text);
}

// Setup rows sid 1..3: (a, x), (b, NULL), (c, z).
std::string MakeSetupRows(const ScopedTestEnv& env) {
    const std::string path = MakeCatalogue(env);
    ADOSQLite db;
    db.Connect(path);
    RunAsIs(db, "INSERT INTO Setup (key, value) VALUES ('a', 'x');"
                "INSERT INTO Setup (key, value) VALUES ('b', NULL);"
                "INSERT INTO Setup (key, value) VALUES ('c', 'z');");
    EXPECT_FALSE(db.Err()) << db.ErrMsg();
    return path;
}

void SelectAll(ADOSQLite& db, const std::string& table = "Setup") {
    db.Reset();
    db.Table(table);
    db.Action(sqlaction::kSelect);
    db.Exec();
}

// Replaces the running library's version number for the life of the object.
struct ScopedVersionProbe {
    explicit ScopedVersionProbe(int version) {
        ADOSQLite::SetLibVersionProbe([version] { return version; });
    }
    ~ScopedVersionProbe() { ADOSQLite::SetLibVersionProbe(nullptr); }
};

// --- creation and version check -------------------------------------------------------------

TEST(ADOSQLite, NewObjectStartsResetOnRowOne) {
    ScopedTestEnv env;
    ADOSQLite db;
    EXPECT_FALSE(db.Err());
    EXPECT_EQ(db.ErrMsg(), "");
    EXPECT_EQ(db.Table(), "");
    EXPECT_EQ(db.Where(), "");
    EXPECT_EQ(db.Sort(), "");
    EXPECT_EQ(db.Action(), sqlaction::kSelect);
    EXPECT_EQ(db.Idx(), 1);
    EXPECT_TRUE(db.BOF());
    EXPECT_EQ(db.RecordCount(), 0);
    EXPECT_EQ(db.FieldCount(), 0);
    EXPECT_EQ(db.Handle(), nullptr);
}

TEST(ADOSQLite, MatchingLibraryVersionShowsNoBox) {
    ScopedTestEnv env;
    ADOSQLite db;
    EXPECT_TRUE(env.box.calls.empty());
}

TEST(ADOSQLite, LibraryVersionMismatchShowsCriticalBoxAndObjectStaysUsable) {
    ScopedTestEnv env;
    ScopedVersionProbe probe(SQLITE_VERSION_NUMBER + 1);
    ADOSQLite db;
    const std::vector<CScriptedMessageBox::Call> expected = {
        {"Wrong version of NVK_SQLite.dll available. Database may not work properly. Please "
         "correct",
         16, ""}};
    EXPECT_EQ(env.box.calls, expected);
    // Reset at creation has cleared "Incorrect NVK_SQLite.dll" again.
    EXPECT_FALSE(db.Err());
    EXPECT_EQ(db.ErrMsg(), "");
    EXPECT_TRUE(db.Connect(env.Path("new.db"), true));
    RunAsIs(db, "SELECT 1");
    EXPECT_FALSE(db.Err());
}

TEST(ADOSQLite, ClearedProbeComparesTheRunningLibraryAgain) {
    ScopedTestEnv env;
    { ScopedVersionProbe probe(1); }
    ADOSQLite db;
    EXPECT_TRUE(env.box.calls.empty());
}

// --- Connect --------------------------------------------------------------------------------

TEST(ADOSQLite, ConnectToMissingFileGivesDbNotFoundAndCreatesNoFile) {
    ScopedTestEnv env;
    ADOSQLite db;
    EXPECT_FALSE(db.Connect(env.Path("missing.db")));
    EXPECT_TRUE(db.Err());
    EXPECT_EQ(db.ErrMsg(), "DB not found");
    EXPECT_EQ(db.Handle(), nullptr);
    EXPECT_FALSE(Exists(env.Path("missing.db")));
}

TEST(ADOSQLite, ConnectWithCreateMakesPrivateFile) {
    ScopedTestEnv env;
    ADOSQLite db;
    EXPECT_TRUE(db.Connect(env.Path("new.db"), true));
    EXPECT_FALSE(db.Err());
    EXPECT_EQ(db.ErrMsg(), "");
    ASSERT_TRUE(Exists(env.Path("new.db")));
    EXPECT_TRUE(IsPrivate(env.Path("new.db")));
    RunAsIs(db, "CREATE TABLE t (a TEXT);");
    EXPECT_FALSE(db.Err()) << db.ErrMsg();
    EXPECT_EQ(SqlRows(env.Path("new.db"), "SELECT name FROM sqlite_master"), Rows{{"t"}});
}

TEST(ADOSQLite, ConnectWithCreateOpensExistingFileAsItIs) {
    ScopedTestEnv env;
    const std::string path = MakeSetupRows(env);
    ADOSQLite db;
    EXPECT_TRUE(db.Connect(path, true));
    SelectAll(db);
    EXPECT_EQ(db.RecordCount(), 3);
}

TEST(ADOSQLite, ConnectTracesQueryingTheMasterTable) {
    ScopedTestEnv env;
    ErrHandler().CurrentOperation("before");
    ADOSQLite db;
    db.Connect(env.Path("new.db"), true);
    EXPECT_EQ(ErrHandler().CurrentOperation(), "Query Master table");
}

TEST(ADOSQLite, ConnectToFileThatIsNoDatabaseGivesTableListError) {
    ScopedTestEnv env;
    WriteFile(env.Path("text.db"), std::string(4096, 'x'));
    ADOSQLite db;
    EXPECT_FALSE(db.Connect(env.Path("text.db")));
    EXPECT_TRUE(db.Err());
    EXPECT_EQ(db.ErrMsg(), "Could not get table list: file is not a database");
}

TEST(ADOSQLite, ConnectToFolderFailsWithEngineText) {
    ScopedTestEnv env;
    ADOSQLite db;
    EXPECT_FALSE(db.Connect(env.Root()));
    EXPECT_TRUE(db.Err());
    EXPECT_EQ(db.ErrMsg(), "unable to open database file");
    EXPECT_EQ(db.Handle(), nullptr);
}

TEST(ADOSQLite, CloseConnectionLeavesNoConnection) {
    ScopedTestEnv env;
    ADOSQLite db;
    db.Connect(env.Path("new.db"), true);
    db.CloseConnection();
    EXPECT_EQ(db.Handle(), nullptr);
    db.CloseConnection(); // a second close does nothing
    RunAsIs(db, "SELECT 1");
    EXPECT_EQ(db.ErrMsg(), "No database connection");
}

TEST(ADOSQLite, DestructionClosesAndDropsAnOpenTransaction) {
    ScopedTestEnv env;
    const std::string path = MakeCatalogue(env);
    {
        ADOSQLite db;
        db.Connect(path);
        db.Begin();
        RunAsIs(db, "INSERT INTO Sources (source) VALUES ('/home');");
        EXPECT_FALSE(db.Err()) << db.ErrMsg();
        EXPECT_TRUE(Exists(path + "-journal"));
    }
    EXPECT_FALSE(Exists(path + "-journal"));
    EXPECT_EQ(SqlRows(path, "SELECT COUNT(*) FROM Sources"), Rows{{"0"}});
}

// --- Exec without a connection, without a statement -----------------------------------------

TEST(ADOSQLite, ExecWithoutConnectionSetsMessageButNotErr) {
    ScopedTestEnv env;
    ADOSQLite db;
    db.Action(sqlaction::kAsIs);
    std::string statement = "SELECT 1";
    db.Exec(statement);
    EXPECT_FALSE(db.Err());
    EXPECT_EQ(db.ErrMsg(), "No database connection");
    EXPECT_EQ(statement, "SELECT 1");
}

TEST(ADOSQLite, ExecWithoutConnectionBuildsNothing) {
    ScopedTestEnv env;
    ADOSQLite db;
    db.Table("Setup");
    db.Action(sqlaction::kSelect);
    std::string statement = "untouched";
    db.Exec(statement);
    EXPECT_EQ(statement, "untouched");
    EXPECT_FALSE(db.Err());
}

TEST(ADOSQLite, EmptyStatementGivesNoSqlStatement) {
    ScopedTestEnv env;
    ADOSQLite db;
    db.Connect(MakeCatalogue(env));
    db.Action(sqlaction::kAsIs);
    std::string statement;
    db.Exec(statement);
    EXPECT_TRUE(db.Err());
    EXPECT_EQ(db.ErrMsg(), "No SQL statement");
}

TEST(ADOSQLite, MissingStatementArgumentCountsAsEmpty) {
    ScopedTestEnv env;
    ADOSQLite db;
    db.Connect(MakeCatalogue(env));
    db.Action(sqlaction::kAsIs);
    db.Exec();
    EXPECT_TRUE(db.Err());
    EXPECT_EQ(db.ErrMsg(), "No SQL statement");
}

TEST(ADOSQLite, UnknownTableGivesNoSqlStatementAndEmptiesTheText) {
    ScopedTestEnv env;
    ADOSQLite db;
    db.Connect(MakeCatalogue(env));
    db.Table("Nowhere");
    db.Action(sqlaction::kSelect);
    std::string statement = "SELECT 1";
    db.Exec(statement);
    EXPECT_TRUE(db.Err());
    EXPECT_EQ(db.ErrMsg(), "No SQL statement");
    EXPECT_EQ(statement, "");
}

TEST(ADOSQLite, TableNameInOtherLetterCaseIsUnknown) {
    ScopedTestEnv env;
    ADOSQLite db;
    db.Connect(MakeCatalogue(env));
    for (int32_t action :
         {sqlaction::kSelect, sqlaction::kUpdate, sqlaction::kDelete, sqlaction::kInsert}) {
        db.Reset();
        db.Table("setup");
        db.Action(action);
        db.Field("key", "'k'");
        db.Exec();
        EXPECT_TRUE(db.Err()) << action;
        EXPECT_EQ(db.ErrMsg(), "No SQL statement") << action;
    }
}

TEST(ADOSQLite, TableCreatedThroughConnectionIsUnknownUntilNextConnect) {
    ScopedTestEnv env;
    const std::string path = env.Path("new.db");
    ADOSQLite db;
    db.Connect(path, true);
    RunAsIs(db, "CREATE TABLE Fresh (a TEXT);");
    SelectAll(db, "Fresh");
    EXPECT_TRUE(db.Err());
    EXPECT_EQ(db.ErrMsg(), "No SQL statement");
    db.Connect(path);
    SelectAll(db, "Fresh");
    EXPECT_FALSE(db.Err()) << db.ErrMsg();
}

// --- the builder's texts --------------------------------------------------------------------

TEST(ADOSQLite, SelectTextHasTwoBlanksBeforeTable) {
    ScopedTestEnv env;
    ADOSQLite db;
    db.Connect(MakeSetupRows(env));
    db.Table("Setup");
    db.Action(sqlaction::kSelect);
    std::string statement = "ignored";
    db.Exec(statement);
    EXPECT_EQ(statement, "SELECT * FROM  Setup");
    EXPECT_EQ(db.RecordCount(), 3);
}

TEST(ADOSQLite, SelectTextWithWhereAndSort) {
    ScopedTestEnv env;
    ADOSQLite db;
    db.Connect(MakeSetupRows(env));
    db.Table("Setup");
    db.Action(sqlaction::kSelect);
    db.Where("key = 'name'");
    std::string statement;
    db.Exec(statement);
    EXPECT_EQ(statement, "SELECT * FROM  Setup WHERE key = 'name'");

    db.Where("sid > 1");
    db.Sort("sid DESC");
    db.Exec(statement);
    EXPECT_EQ(statement, "SELECT * FROM  Setup WHERE sid > 1 ORDER BY sid DESC");
    EXPECT_EQ(db.Field("key"), "c");

    db.Where("");
    db.Exec(statement);
    EXPECT_EQ(statement, "SELECT * FROM  Setup ORDER BY sid DESC");
}

TEST(ADOSQLite, SelectIgnoresFieldPairs) {
    ScopedTestEnv env;
    ADOSQLite db;
    db.Connect(MakeSetupRows(env));
    db.Table("Setup");
    db.Field("key", "'a'");
    std::string statement;
    db.Exec(statement);
    EXPECT_EQ(statement, "SELECT * FROM  Setup");
}

TEST(ADOSQLite, UpdateTextListsPairsInOrder) {
    ScopedTestEnv env;
    const std::string path = MakeSetupRows(env);
    ADOSQLite db;
    db.Connect(path);
    db.Table("Setup");
    db.Action(sqlaction::kUpdate);
    db.Field("value", "'new'");
    db.Field("key", "'k'");
    db.Where("sid = 1");
    std::string statement;
    db.Exec(statement);
    EXPECT_EQ(statement, "UPDATE Setup SET value = 'new', key = 'k' WHERE sid = 1");
    EXPECT_FALSE(db.Err()) << db.ErrMsg();
    EXPECT_EQ(SqlRows(path, "SELECT key, value FROM Setup WHERE sid = 1"), (Rows{{"k", "new"}}));
}

TEST(ADOSQLite, UpdateTextWithoutWhere) {
    ScopedTestEnv env;
    const std::string path = MakeSetupRows(env);
    ADOSQLite db;
    db.Connect(path);
    db.Table("Setup");
    db.Action(sqlaction::kUpdate);
    db.Field("value", "'all'");
    std::string statement;
    db.Exec(statement);
    EXPECT_EQ(statement, "UPDATE Setup SET value = 'all'");
    EXPECT_EQ(SqlRows(path, "SELECT DISTINCT value FROM Setup"), Rows{{"all"}});
}

TEST(ADOSQLite, DeleteTextWithoutFieldsHasTwoBlanks) {
    ScopedTestEnv env;
    const std::string path = MakeSetupRows(env);
    ADOSQLite db;
    db.Connect(path);
    db.Table("Setup");
    db.Action(sqlaction::kDelete);
    db.Where("key = 'name'");
    std::string statement;
    db.Exec(statement);
    EXPECT_EQ(statement, "DELETE  FROM Setup WHERE key = 'name'");
    EXPECT_FALSE(db.Err()) << db.ErrMsg();

    db.Where("key = 'a'");
    db.Exec(statement);
    EXPECT_EQ(statement, "DELETE  FROM Setup WHERE key = 'a'");
    EXPECT_EQ(SqlRows(path, "SELECT key FROM Setup"), (Rows{{"b"}, {"c"}}));

    db.Where("");
    db.Exec(statement);
    EXPECT_EQ(statement, "DELETE  FROM Setup");
    EXPECT_EQ(SqlRows(path, "SELECT COUNT(*) FROM Setup"), Rows{{"0"}});
}

TEST(ADOSQLite, DeleteTextWithFieldsNamesThemByTable) {
    ScopedTestEnv env;
    const std::string path = MakeSetupRows(env);
    ADOSQLite db;
    db.Connect(path);
    db.Table("Setup");
    db.Action(sqlaction::kDelete);
    db.Field("key", "");
    db.Field("value", "");
    db.Where("sid = 1");
    std::string statement;
    db.Exec(statement);
    EXPECT_EQ(statement, "DELETE Setup.key, Setup.value FROM Setup WHERE sid = 1");
    // The engine does not accept that form.
    EXPECT_TRUE(db.Err());
    EXPECT_EQ(db.ErrMsg(), "near \"Setup\": syntax error");
}

TEST(ADOSQLite, InsertTextListsNamesThenValuesInOrder) {
    ScopedTestEnv env;
    const std::string path = MakeCatalogue(env);
    ADOSQLite db;
    db.Connect(path);
    db.Table("Setup");
    db.Action(sqlaction::kInsert);
    db.Field("key", "'name'");
    db.Field("value", "'value'");
    std::string statement;
    db.Exec(statement);
    EXPECT_EQ(statement, "INSERT INTO Setup (key, value) SELECT 'name', 'value'");
    EXPECT_FALSE(db.Err()) << db.ErrMsg();
    EXPECT_EQ(db.RecordCount(), 0);
    EXPECT_EQ(SqlRows(path, "SELECT sid, key, value FROM Setup"), (Rows{{"1", "name", "value"}}));
}

TEST(ADOSQLite, InsertValuesGoInAsGiven) {
    ScopedTestEnv env;
    const std::string path = MakeCatalogue(env);
    ADOSQLite db;
    db.Connect(path);
    db.Table("Paths");
    db.Action(sqlaction::kInsert);
    db.Field("bid", "12");
    db.Field("path", "'/data/'");
    std::string statement;
    db.Exec(statement);
    EXPECT_EQ(statement, "INSERT INTO Paths (bid, path) SELECT 12, '/data/'");
    EXPECT_EQ(SqlRows(path, "SELECT pid, bid, typeof(bid), path FROM Paths"),
              (Rows{{"1", "12", "integer", "/data/"}}));
}

TEST(ADOSQLite, AsIsStatementRunsUnchanged) {
    ScopedTestEnv env;
    const std::string path = MakeCatalogue(env);
    ADOSQLite db;
    db.Connect(path);
    db.Table("Setup");
    db.Where("ignored");
    db.Action(sqlaction::kAsIs);
    std::string statement = "INSERT INTO Sources (source) VALUES ('/home');";
    db.Exec(statement);
    EXPECT_EQ(statement, "INSERT INTO Sources (source) VALUES ('/home');");
    EXPECT_EQ(SqlRows(path, "SELECT source FROM Sources"), Rows{{"/home"}});
}

TEST(ADOSQLite, UnknownActionRunsTextAsItStands) {
    ScopedTestEnv env;
    ADOSQLite db;
    db.Connect(MakeCatalogue(env));
    db.Table("Setup");
    db.Action(9);
    std::string statement = "SELECT 5";
    db.Exec(statement);
    EXPECT_EQ(statement, "SELECT 5");
    EXPECT_FALSE(db.Err());
    EXPECT_EQ(db.RecordCount(), 0);
}

TEST(ADOSQLite, EveryStatementOfTheTextRuns) {
    ScopedTestEnv env;
    const std::string path = MakeCatalogue(env);
    ADOSQLite db;
    db.Connect(path);
    RunAsIs(db, "INSERT INTO Sources (source) VALUES ('/a');  "
                "INSERT INTO Sources (source) VALUES ('/b');\n-- done\n");
    EXPECT_FALSE(db.Err()) << db.ErrMsg();
    EXPECT_EQ(SqlRows(path, "SELECT source FROM Sources"), (Rows{{"/a"}, {"/b"}}));
}

TEST(ADOSQLite, FailingStatementKeepsEarlierStatementsOfTheText) {
    ScopedTestEnv env;
    const std::string path = MakeCatalogue(env);
    ADOSQLite db;
    db.Connect(path);
    RunAsIs(db, "INSERT INTO Sources (source) VALUES ('/a'); INSERT INTO Nowhere VALUES (1);");
    EXPECT_TRUE(db.Err());
    EXPECT_EQ(db.ErrMsg(), "no such table: Nowhere");
    EXPECT_EQ(SqlRows(path, "SELECT source FROM Sources"), Rows{{"/a"}});
}

// --- errors ---------------------------------------------------------------------------------

TEST(ADOSQLite, EngineErrorTextBecomesErrMsg) {
    ScopedTestEnv env;
    ADOSQLite db;
    db.Connect(MakeCatalogue(env));
    RunAsIs(db, "SELEC 1");
    EXPECT_TRUE(db.Err());
    EXPECT_EQ(db.ErrMsg(), "near \"SELEC\": syntax error");
}

TEST(ADOSQLite, ErrStaysSetUntilReset) {
    ScopedTestEnv env;
    ADOSQLite db;
    db.Connect(MakeCatalogue(env));
    RunAsIs(db, "SELEC 1");
    RunAsIs(db, "SELECT 1");
    EXPECT_TRUE(db.Err());
    EXPECT_EQ(db.ErrMsg(), "near \"SELEC\": syntax error");
    EXPECT_TRUE(db.Reset());
    EXPECT_FALSE(db.Err());
    EXPECT_EQ(db.ErrMsg(), "");
    RunAsIs(db, "SELECT 1");
    EXPECT_FALSE(db.Err());
}

TEST(ADOSQLite, NoConnectionMessageKeepsEarlierErr) {
    ScopedTestEnv env;
    ADOSQLite db;
    db.Connect(env.Path("missing.db"));
    RunAsIs(db, "SELECT 1");
    EXPECT_TRUE(db.Err());
    EXPECT_EQ(db.ErrMsg(), "No database connection");
}

// --- results and navigation -----------------------------------------------------------------

TEST(ADOSQLite, SelectFetchesEveryValueAsText) {
    ScopedTestEnv env;
    ADOSQLite db;
    db.Connect(MakeSetupRows(env));
    SelectAll(db);
    EXPECT_FALSE(db.Err());
    EXPECT_EQ(db.RecordCount(), 3);
    EXPECT_EQ(db.FieldCount(), 3);
    Rows rows;
    for (db.MoveFirst(); !db.Eof(); db.MoveNext())
        rows.push_back({db.Field("sid"), db.Field("key"), db.Field("value")});
    EXPECT_EQ(rows, (Rows{{"1", "a", "x"}, {"2", "b", ""}, {"3", "c", "z"}}));
}

TEST(ADOSQLite, SelectWithNoMatchingRowsGivesZeroCountAndEofAtOnce) {
    ScopedTestEnv env;
    ADOSQLite db;
    db.Connect(MakeSetupRows(env));
    db.Table("Setup");
    db.Where("key = 'none'");
    db.Exec();
    EXPECT_FALSE(db.Err());
    EXPECT_EQ(db.RecordCount(), 0);
    EXPECT_EQ(db.FieldCount(), 0);
    EXPECT_TRUE(db.Eof());
    EXPECT_EQ(db.Idx(), 0);
    EXPECT_EQ(db.Field("key"), "");
}

TEST(ADOSQLite, FieldByNameIsExactAndCaseSensitive) {
    ScopedTestEnv env;
    ADOSQLite db;
    db.Connect(MakeSetupRows(env));
    SelectAll(db);
    EXPECT_EQ(db.Field("key"), "a");
    EXPECT_EQ(db.Field("KEY"), "");
    EXPECT_EQ(db.Field("ke"), "");
}

TEST(ADOSQLite, FieldByNumberCountsFromZero) {
    ScopedTestEnv env;
    ADOSQLite db;
    db.Connect(MakeSetupRows(env));
    SelectAll(db);
    db.MoveAbs(3);
    EXPECT_EQ(db.Field(0), "3");
    EXPECT_EQ(db.Field(1), "c");
    EXPECT_EQ(db.Field(2), "z");
    EXPECT_EQ(db.Field(3), "");
    EXPECT_EQ(db.Field(-1), "");
}

TEST(ADOSQLite, MoveNextPastLastRowThenEofPutsRowBackOnLast) {
    ScopedTestEnv env;
    ADOSQLite db;
    db.Connect(MakeSetupRows(env));
    SelectAll(db);
    db.MoveLast();
    EXPECT_EQ(db.Idx(), 3);
    EXPECT_FALSE(db.Eof());
    db.MoveNext();
    EXPECT_EQ(db.Idx(), 4);
    db.MoveNext(); // no further than one past the end
    EXPECT_EQ(db.Idx(), 4);
    EXPECT_TRUE(db.Eof());
    EXPECT_EQ(db.Idx(), 3);
    EXPECT_EQ(db.Field("key"), "c");
}

TEST(ADOSQLite, MoveAbsOutsideTheRowsChangesNothing) {
    ScopedTestEnv env;
    ADOSQLite db;
    db.Connect(MakeSetupRows(env));
    SelectAll(db);
    db.MoveAbs(2);
    EXPECT_EQ(db.Idx(), 2);
    db.MoveAbs(0);
    EXPECT_EQ(db.Idx(), 2);
    db.MoveAbs(db.RecordCount() + 1);
    EXPECT_EQ(db.Idx(), 2);
    db.MoveAbs(-5);
    EXPECT_EQ(db.Idx(), 2);
    db.MoveAbs(3);
    EXPECT_EQ(db.Idx(), 3);
}

TEST(ADOSQLite, MovePreviousStopsOnFirstRow) {
    ScopedTestEnv env;
    ADOSQLite db;
    db.Connect(MakeSetupRows(env));
    SelectAll(db);
    db.MoveAbs(2);
    EXPECT_FALSE(db.BOF());
    db.MovePrevious();
    EXPECT_EQ(db.Idx(), 1);
    EXPECT_TRUE(db.BOF());
    db.MovePrevious();
    EXPECT_EQ(db.Idx(), 1);
    db.MoveLast();
    db.MoveFirst();
    EXPECT_EQ(db.Idx(), 1);
}

TEST(ADOSQLite, ExecDoesNotMoveTheCurrentRow) {
    ScopedTestEnv env;
    ADOSQLite db;
    db.Connect(MakeSetupRows(env));
    SelectAll(db);
    db.MoveAbs(3);
    db.Exec();
    EXPECT_EQ(db.Idx(), 3);
    EXPECT_EQ(db.Field("key"), "c");
}

TEST(ADOSQLite, IntegrityCheckAsItStandsGivesZeroRecordCount) {
    ScopedTestEnv env;
    ADOSQLite db;
    db.Connect(MakeSetupRows(env));
    RunAsIs(db, "PRAGMA INTEGRITY_CHECK");
    EXPECT_FALSE(db.Err()) << db.ErrMsg();
    EXPECT_EQ(db.RecordCount(), 0);
    EXPECT_EQ(db.FieldCount(), 0);
    // The rows are fetched all the same.
    EXPECT_EQ(db.Field("integrity_check"), "ok");
}

TEST(ADOSQLite, AsIsSelectLeavesCountsAtZero) {
    ScopedTestEnv env;
    ADOSQLite db;
    db.Connect(MakeSetupRows(env));
    SelectAll(db);
    EXPECT_EQ(db.RecordCount(), 3);
    RunAsIs(db, "SELECT * FROM Setup");
    EXPECT_EQ(db.RecordCount(), 0);
    EXPECT_EQ(db.FieldCount(), 0);
}

TEST(ADOSQLite, ResetKeepsActionFieldCountAndResult) {
    ScopedTestEnv env;
    ADOSQLite db;
    db.Connect(MakeSetupRows(env));
    SelectAll(db);
    db.MoveAbs(2);
    db.Action(sqlaction::kUpdate);
    db.Where("w");
    db.Sort("s");
    EXPECT_TRUE(db.Reset());
    EXPECT_EQ(db.Action(), sqlaction::kUpdate);
    EXPECT_EQ(db.FieldCount(), 3);
    EXPECT_EQ(db.RecordCount(), 0);
    EXPECT_EQ(db.Idx(), 1);
    EXPECT_EQ(db.Table(), "");
    EXPECT_EQ(db.Where(), "");
    EXPECT_EQ(db.Sort(), "");
    EXPECT_EQ(db.Field("key"), "a");
}

TEST(ADOSQLite, ResetEmptiesTheFieldList) {
    ScopedTestEnv env;
    ADOSQLite db;
    db.Connect(MakeCatalogue(env));
    db.Field("stale", "'x'");
    db.Reset();
    db.Table("Sources");
    db.Action(sqlaction::kInsert);
    db.Field("source", "'/home'");
    std::string statement;
    db.Exec(statement);
    EXPECT_EQ(statement, "INSERT INTO Sources (source) SELECT '/home'");
}

TEST(ADOSQLite, OddBytesSurviveAsText) {
    ScopedTestEnv env;
    ADOSQLite db;
    db.Connect(MakeCatalogue(env));
    const std::string odd = "/d/\xff\xfe\x80 two\nlines\\and\ttab";
    db.Table("Sources");
    db.Action(sqlaction::kInsert);
    db.Field("source", "'" + odd + "'");
    db.Exec();
    EXPECT_FALSE(db.Err()) << db.ErrMsg();
    SelectAll(db, "Sources");
    EXPECT_EQ(db.Field("source"), odd);
}

// --- transactions, row ids, yielding --------------------------------------------------------

TEST(ADOSQLite, BeginCommitRollbackAndCompressLeaveActionAsIs) {
    ScopedTestEnv env;
    const std::string path = MakeCatalogue(env);
    ADOSQLite db;
    db.Connect(path);
    db.Action(sqlaction::kSelect);
    db.Begin();
    EXPECT_EQ(db.Action(), sqlaction::kAsIs);
    RunAsIs(db, "INSERT INTO Sources (source) VALUES ('/gone');");
    db.Action(sqlaction::kInsert);
    db.Rollback();
    EXPECT_EQ(db.Action(), sqlaction::kAsIs);
    db.Begin();
    RunAsIs(db, "INSERT INTO Sources (source) VALUES ('/kept');");
    db.Action(sqlaction::kSelect);
    db.Commit();
    EXPECT_EQ(db.Action(), sqlaction::kAsIs);
    db.Action(sqlaction::kSelect);
    db.Compress();
    EXPECT_EQ(db.Action(), sqlaction::kAsIs);
    EXPECT_FALSE(db.Err()) << db.ErrMsg();
    EXPECT_EQ(SqlRows(path, "SELECT source FROM Sources"), Rows{{"/kept"}});
}

TEST(ADOSQLite, CommitWithoutTransactionFails) {
    ScopedTestEnv env;
    ADOSQLite db;
    db.Connect(MakeCatalogue(env));
    db.Commit();
    EXPECT_TRUE(db.Err());
    EXPECT_EQ(db.ErrMsg(), "cannot commit - no transaction is active");
}

TEST(ADOSQLite, LastRowIDIsTheNewRow) {
    ScopedTestEnv env;
    ADOSQLite db;
    EXPECT_EQ(db.LastRowID(), 0);
    db.Connect(MakeCatalogue(env));
    for (int64_t expected = 1; expected <= 3; ++expected) {
        db.Reset();
        db.Table("Backups");
        db.Action(sqlaction::kInsert);
        db.Field("source", "'/home'");
        db.Exec();
        EXPECT_EQ(db.LastRowID(), expected);
    }
}

TEST(ADOSQLite, ExecYieldsOnceToTheMessageLoop) {
    ScopedTestEnv env;
    const std::string path = MakeCatalogue(env);
    ADOSQLite db;
    int yields = 0;
    SetYieldHook([&] { ++yields; });
    RunAsIs(db, "SELECT 1"); // no connection: returns before yielding
    EXPECT_EQ(yields, 0);
    db.Connect(path);
    EXPECT_EQ(yields, 0);
    RunAsIs(db, "SELECT 1; SELECT 2;");
    EXPECT_EQ(yields, 1);
}

TEST(ADOSQLite, SeveralConnectionsToOneFile) {
    ScopedTestEnv env;
    const std::string path = MakeSetupRows(env);
    ADOSQLite writer, reader;
    writer.Connect(path);
    reader.Connect(path);
    writer.Begin();
    RunAsIs(writer, "INSERT INTO Sources (source) VALUES ('/home');");
    SelectAll(reader);
    EXPECT_FALSE(reader.Err()) << reader.ErrMsg();
    EXPECT_EQ(reader.RecordCount(), 3);
    writer.Commit();
    SelectAll(reader, "Sources");
    EXPECT_EQ(reader.Field("source"), "/home");
}

} // namespace

// A value with an apostrophe breaks its built statement, which then fails; what follows the
// apostrophe is never run as statements of its own, and nothing of the statement is run.
TEST(ADOSQLite, AValueThatEndsABuiltStatementEarlyFailsAndRunsNothing) {
    ScopedTestEnv env;
    const std::string path = MakeSetupRows(env);
    ADOSQLite db;
    db.Connect(path);
    db.Table("Setup");
    db.Action(sqlaction::kInsert);
    db.Field("key", "'Exclude'");
    db.Field("value", "''; DROP TABLE Sources; --'");
    std::string statement;
    db.Exec(statement);
    EXPECT_EQ(statement,
              "INSERT INTO Setup (key, value) SELECT 'Exclude', ''; DROP TABLE Sources; --'");
    EXPECT_TRUE(db.Err());
    EXPECT_EQ(db.ErrMsg(), "a value ends the statement early; nothing of it was run: " + statement);
    SelectAll(db, "Sources");
    EXPECT_FALSE(db.Err()) << db.ErrMsg();
    SelectAll(db);
    EXPECT_EQ(db.RecordCount(), 3);

    db.Reset();
    db.Table("Setup");
    db.Action(sqlaction::kDelete);
    db.Where("key = 'a'; DELETE FROM Setup");
    db.Exec();
    EXPECT_TRUE(db.Err());
    SelectAll(db);
    EXPECT_EQ(db.RecordCount(), 3);
}

// Texts run as they stand keep running every statement they hold.
TEST(ADOSQLite, AsIsTextsStillRunEveryStatement) {
    ScopedTestEnv env;
    const std::string path = MakeSetupRows(env);
    ADOSQLite db;
    db.Connect(path);
    RunAsIs(db, "DELETE FROM Setup WHERE key = 'a'; DELETE FROM Setup WHERE key = 'b';");
    EXPECT_FALSE(db.Err()) << db.ErrMsg();
    SelectAll(db);
    EXPECT_EQ(db.RecordCount(), 1);
}
