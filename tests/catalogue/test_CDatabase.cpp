// The catalogue connection of one backup run: its Backups, Paths and Files rows, exactly as
// they are stored, the boxes of its SQL errors, and the do-nothing behaviour when not connected.

#include "BackupFixture.h"
#include "TestSupport.h"
#include "catalogue/CDatabase.h"
#include "catalogue/modSchema.h"
#include "support/modDateText.h"

#include <gtest/gtest.h>
#include <ostream>
#include <regex>

// Readable failure output for recorded message boxes.
void PrintTo(const CScriptedMessageBox::Call& call, std::ostream* out) {
    *out << "{\"" << call.text << "\", " << call.style << ", \"" << call.title << "\"}";
}

namespace {

using Rows = std::vector<std::vector<std::string>>;
using Calls = std::vector<CScriptedMessageBox::Call>;

// A database with the catalogue's tables and indexes, made through the access layer.
std::string MakeCatalogue(const ScopedTestEnv& env) {
    const std::string path = env.Path("Backup.db");
    ADOSQLite db;
    EXPECT_TRUE(db.Connect(path, true));
    db.Action(sqlaction::kAsIs);
    for (const char* statement : schema::kTables) {
        std::string text = statement;
        db.Exec(text);
    }
    for (const char* statement : schema::kIndexes) {
        std::string text = statement;
        db.Exec(text);
    }
    EXPECT_FALSE(db.Err()) << db.ErrMsg();
    return path;
}

void DropTable(const std::string& path, const std::string& table) {
    ADOSQLite db;
    db.Connect(path);
    db.Action(sqlaction::kAsIs);
    std::string text = "DROP TABLE " + table + ";";
    db.Exec(text);
    ASSERT_FALSE(db.Err()) << db.ErrMsg();
}

// A trigger on the catalogue at `path` that refuses a Files row of the signature "bad" with
// RAISE(`how`, `why`).
void RefuseBadRows(const std::string& path, const std::string& how, const std::string& why) {
    ADOSQLite db;
    db.Connect(path);
    db.Action(sqlaction::kAsIs);
    std::string text = "CREATE TRIGGER refuse BEFORE INSERT ON Files WHEN NEW.md5 = 'bad'"
                       " BEGIN SELECT RAISE(" +
                       how + ", '" + why + "'); END;";
    db.Exec(text);
    ASSERT_FALSE(db.Err()) << db.ErrMsg();
}

Rows FileRows(const std::string& path) {
    return SqlRows(path, "SELECT fid, bid, md5, path, file, backup, size, filedate, "
                         "typeof(filedate) FROM Files ORDER BY fid");
}

const std::string kSig = "0123456789abcdef0123456789abcdef";
const std::string kTarget = "/backup/Files/01/23/0123456789abcdef0123456789abcdef.QRV";

// --- not connected --------------------------------------------------------------------------

TEST(CDatabase, ConnectToMissingCatalogueLeavesItUnconnectedAndCreatesNothing) {
    ScopedTestEnv env;
    CDatabase db;
    db.Connect(env.Path("missing.db"));
    EXPECT_FALSE(db.Connected());
    EXPECT_EQ(db.Connection().ErrMsg(), "DB not found");
    EXPECT_FALSE(Exists(env.Path("missing.db")));
    EXPECT_TRUE(env.box.calls.empty());
}

TEST(CDatabase, OperationsWhileNotConnectedDoNothing) {
    ScopedTestEnv env;
    CDatabase db;
    EXPECT_FALSE(db.Connected());
    EXPECT_EQ(db.BackupRun("/home"), 0);
    db.AddPath(1, "/home/");
    db.AddBackupRecord(1, kSig, "/home/a.txt", kTarget, " 5");
    EXPECT_EQ(db.GetFileFromMD5(kSig), "");
    EXPECT_TRUE(env.box.calls.empty());
}

TEST(CDatabase, OperationsAfterFailedConnectDoNothing) {
    ScopedTestEnv env;
    CDatabase db;
    db.Connect(env.Path("missing.db"));
    EXPECT_EQ(db.BackupRun("/home"), 0);
    db.AddPath(1, "/home/");
    EXPECT_TRUE(env.box.calls.empty());
}

TEST(CDatabase, ConnectToCatalogueConnects) {
    ScopedTestEnv env;
    CDatabase db;
    db.Connect(MakeCatalogue(env));
    EXPECT_TRUE(db.Connected());
    EXPECT_FALSE(db.Connection().Err());
}

TEST(CDatabase, ConnectToFileThatIsNoDatabaseLeavesItUnconnectedWithoutBox) {
    ScopedTestEnv env;
    WriteFile(env.Path("Backup.db"), std::string(4096, 'x'));
    CDatabase db;
    db.Connect(env.Path("Backup.db"));
    EXPECT_FALSE(db.Connected());
    EXPECT_TRUE(env.box.calls.empty());
}

// --- BackupRun ------------------------------------------------------------------------------

TEST(CDatabase, BackupRunReturnsConsecutiveIdsInNewCatalogue) {
    ScopedTestEnv env;
    CDatabase db;
    db.Connect(MakeCatalogue(env));
    EXPECT_EQ(db.BackupRun("/home/a"), 1);
    EXPECT_EQ(db.BackupRun("/home/b"), 2);
    EXPECT_EQ(db.BackupRun("/home/c"), 3);
    EXPECT_TRUE(env.box.calls.empty());
}

TEST(CDatabase, BackupRunStoresSourceAsGivenAndCurrentDate) {
    ScopedTestEnv env;
    const std::string path = MakeCatalogue(env);
    CDatabase db;
    db.Connect(path);
    const std::string before = NowText();
    db.BackupRun("/home/bob/My Docs/");
    const std::string after = NowText();
    const Rows rows = SqlRows(path, "SELECT bid, source, datebk FROM Backups");
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0][0], "1");
    EXPECT_EQ(rows[0][1], "/home/bob/My Docs/");
    EXPECT_TRUE(std::regex_match(rows[0][2], std::regex(R"(\d\d/\d\d/\d{4} \d\d:\d\d:\d\d)")))
        << rows[0][2];
    EXPECT_TRUE(rows[0][2] == before || rows[0][2] == after) << rows[0][2];
}

TEST(CDatabase, BackupRunSourceIsNotEncoded) {
    ScopedTestEnv env;
    const std::string path = MakeCatalogue(env);
    CDatabase db;
    db.Connect(path);
    db.BackupRun("/data/back\\slash");
    EXPECT_EQ(SqlRows(path, "SELECT source FROM Backups"), Rows{{"/data/back\\slash"}});
}

TEST(CDatabase, BackupRunKeepsASourceWithApostrophesExactlyAsItIs) {
    ScopedTestEnv env;
    const std::string path = MakeCatalogue(env);
    CDatabase db;
    db.Connect(path);
    EXPECT_EQ(db.BackupRun("/home/Bob's Documents/it''s"), 1);
    EXPECT_TRUE(env.box.calls.empty());
    EXPECT_EQ(SqlRows(path, "SELECT source FROM Backups"), Rows{{"/home/Bob's Documents/it''s"}});
}

TEST(CDatabase, BackupRunAfterTableVanishedShowsEngineText) {
    ScopedTestEnv env;
    const std::string path = MakeCatalogue(env);
    CDatabase db;
    db.Connect(path);
    DropTable(path, "Backups");
    EXPECT_EQ(db.BackupRun("/home"), -1);
    EXPECT_EQ(env.box.calls, (Calls{{"Error: no such table: Backups", 0, ""}}));
}

// --- AddPath --------------------------------------------------------------------------------

TEST(CDatabase, AddPathStoresRunAndPath) {
    ScopedTestEnv env;
    const std::string path = MakeCatalogue(env);
    CDatabase db;
    db.Connect(path);
    db.AddPath(12, "/home/bob/Data/");
    EXPECT_EQ(SqlRows(path, "SELECT pid, bid, typeof(bid), path FROM Paths"),
              (Rows{{"1", "12", "integer", "/home/bob/Data/"}}));
    EXPECT_TRUE(env.box.calls.empty());
}

TEST(CDatabase, AddPathStoresApostrophesEncoded) {
    ScopedTestEnv env;
    const std::string path = MakeCatalogue(env);
    CDatabase db;
    db.Connect(path);
    db.AddPath(1, Native("/home/bob/Bob's Files/a'b/"));
    // Linux stores "/home/bob/Bob\s Files/a\b/", Windows "\home\bob\Bob/s Files\a/b\".
    EXPECT_EQ(SqlRows(path, "SELECT path FROM Paths"),
              Rows{{Encoded(Native("/home/bob/Bob's Files/a'b/"))}});
}

TEST(CDatabase, AddPathWithLeadingApostropheIsStoredUnencoded) {
    ScopedTestEnv env;
    const std::string path = MakeCatalogue(env);
    CDatabase db;
    db.Connect(path);
    // The leading apostrophe keeps every apostrophe as it is; the statement still holds it.
    db.AddPath(1, "'rel/a'b/");
    EXPECT_TRUE(env.box.calls.empty());
    EXPECT_EQ(SqlRows(path, "SELECT bid, path FROM Paths"), (Rows{{"1", "'rel/a'b/"}}));
}

TEST(CDatabase, AddPathSqlErrorShowsPlainBoxWithDefaultTitle) {
    ScopedTestEnv env;
    const std::string path = MakeCatalogue(env);
    CDatabase db;
    db.Connect(path);
    DropTable(path, "Paths");
    db.AddPath(3, "/home/");
    db.AddPath(3, "/home/x/");
    EXPECT_EQ(env.box.calls, (Calls{{"Error: no such table: Paths", 0, ""},
                                    {"Error: no such table: Paths", 0, ""}}));
}

// --- AddBackupRecord ------------------------------------------------------------------------

TEST(CDatabase, AddBackupRecordStoresEveryColumn) {
    ScopedTestEnv env;
    const std::string path = MakeCatalogue(env);
    CDatabase db;
    db.Connect(path);
    db.AddBackupRecord(12, kSig, Native("/home/bob/a.txt"), kTarget, " 1234");
    EXPECT_EQ(FileRows(path), (Rows{{"1", "12", kSig, Native("/home/bob/"),
                                     Native("/home/bob/a.txt"), kTarget, "1234", "", "null"}}));
    EXPECT_TRUE(env.box.calls.empty());
}

TEST(CDatabase, AddBackupRecordEncodesFileAndFolderButNotBackup) {
    ScopedTestEnv env;
    const std::string path = MakeCatalogue(env);
    CDatabase db;
    db.Connect(path);
    db.AddBackupRecord(1, kSig, Native("/home/bob/Bob's Files/a'b.txt"), "/backup/x.QRV", "7");
    EXPECT_EQ(SqlRows(path, "SELECT file, path, backup FROM Files"),
              (Rows{{Encoded(Native("/home/bob/Bob's Files/a'b.txt")),
                     Encoded(Native("/home/bob/Bob's Files/")), "/backup/x.QRV"}}));
}

TEST(CDatabase, AddBackupRecordSizeGoesInBare) {
    ScopedTestEnv env;
    const std::string path = MakeCatalogue(env);
    CDatabase db;
    db.Connect(path);
    db.AddBackupRecord(1, kSig, "/a/b", kTarget, "1024 * 2");
    EXPECT_EQ(SqlRows(path, "SELECT size FROM Files"), Rows{{"2048"}});
}

TEST(CDatabase, FiledateIsAlwaysEmpty) {
    ScopedTestEnv env;
    const std::string path = MakeCatalogue(env);
    CDatabase db;
    db.Connect(path);
    const int32_t run = db.BackupRun("/home");
    for (int i = 0; i < 3; ++i)
        db.AddBackupRecord(run, kSig, "/home/f" + std::to_string(i), kTarget, " 1");
    EXPECT_EQ(SqlRows(path, "SELECT COUNT(*) FROM Files WHERE filedate IS NULL"), Rows{{"3"}});
}

TEST(CDatabase, AddBackupRecordSqlErrorIsDroppedSilently) {
    ScopedTestEnv env;
    const std::string path = MakeCatalogue(env);
    CDatabase db;
    db.Connect(path);
    db.AddBackupRecord(1, kSig, "/a/b", kTarget, "not a number");
    EXPECT_TRUE(db.Connection().Err());
    EXPECT_TRUE(env.box.calls.empty());
    EXPECT_TRUE(FileRows(path).empty());
    // The run goes on: the next record is stored.
    db.AddBackupRecord(1, kSig, "/a/c", kTarget, " 3");
    EXPECT_EQ(SqlRows(path, "SELECT file FROM Files"), Rows{{"/a/c"}});
}

TEST(CDatabase, AddBackupRecordWithLeadingApostropheIsStoredUnencoded) {
    ScopedTestEnv env;
    const std::string path = MakeCatalogue(env);
    CDatabase db;
    db.Connect(path);
    db.AddBackupRecord(1, kSig, Native("'rel/a'b"), kTarget, " 3");
    EXPECT_TRUE(env.box.calls.empty());
    EXPECT_EQ(SqlRows(path, "SELECT file, path FROM Files"),
              (Rows{{Native("'rel/a'b"), Native("'rel/")}}));
}

TEST(CDatabase, AddBackupRecordKeepsABackupPathWithApostrophesAsItIs) {
    ScopedTestEnv env;
    const std::string path = MakeCatalogue(env);
    CDatabase db;
    db.Connect(path);
    const std::string target = "/media/Bob's drive/Files/ab/cd/" + kSig + ".QRV";
    db.AddBackupRecord(1, kSig, Native("/home/bob's/a"), target, " 3");
    EXPECT_TRUE(env.box.calls.empty());
    EXPECT_EQ(SqlRows(path, "SELECT file, path, backup FROM Files"),
              (Rows{{Encoded(Native("/home/bob's/a")), Encoded(Native("/home/bob's/")), target}}));
}

// Rows written aside come out as rows written in place would, in the order given; a row the
// catalogue refuses is counted with its error and the others are kept; a size that is no plain
// number still goes in bare, after the rows before it.
TEST(CDatabase, RowsWrittenAsideAreTheRowsWrittenInPlaceInTheirOrder) {
    ScopedTestEnv env;
    const std::string aside = MakeCatalogue(env);
    const std::string inPlace = aside + "-in-place.db";
    WriteFile(inPlace, ReadFile(aside));
    for (const std::string& path : {aside, inPlace})
        RefuseBadRows(path, "ABORT", "refused by the test");
    const auto write = [](CDatabase& db) {
        for (int i = 0; i < 1500; ++i) {
            const std::string name =
                Native("/home/bob/d" + std::to_string(i % 7) + "/f'") + std::to_string(i);
            db.AddBackupRecord(3, i == 700 ? "bad" : kSig, name, kTarget,
                               i == 1000 ? "1024 * 2" : " " + std::to_string(i));
        }
    };
    CDatabase first;
    first.Connect(aside);
    first.Begin();
    first.WriteRowsAside();
    write(first);
    first.Commit();
    CDatabase second;
    second.Connect(inPlace);
    second.Begin();
    write(second);
    second.Commit();

    EXPECT_EQ(FileRows(aside), FileRows(inPlace));
    EXPECT_EQ(FileRows(aside).size(), 1499u);
    EXPECT_EQ(SqlRows(aside, "SELECT size FROM Files WHERE file LIKE '%f_1000'"), Rows{{"2048"}});
    EXPECT_EQ(first.FailedWrites(), 1);
    EXPECT_EQ(first.LastWriteError(), "refused by the test");
    EXPECT_EQ(second.FailedWrites(), 1);
    EXPECT_TRUE(env.box.calls.empty());
}

// A refused row that ends the run's transaction (here a trigger that rolls it back; SQLite does
// so itself on a full disk) ends the writing: no later row goes in, where it would be committed
// on its own, and every row from the refused one on (from the first of the rows written together
// with it) is counted as failed.
TEST(CDatabase, RowThatEndsTheTransactionLeavesNoLaterRowWritten) {
    ScopedTestEnv env;
    const std::string path = MakeCatalogue(env);
    RefuseBadRows(path, "ROLLBACK", "rolled back by the test");
    CDatabase db;
    db.Connect(path);
    db.Begin();
    db.WriteRowsAside();
    for (int i = 0; i < 1000; ++i)
        db.AddBackupRecord(2, i == 300 ? "bad" : kSig, "/a/f" + std::to_string(i), kTarget, " 1");
    db.FinishRows();
    EXPECT_GE(db.FailedWrites(), 700);
    EXPECT_LE(db.FailedWrites(), 700 + 15);
    EXPECT_EQ(db.LastWriteError(), "rolled back by the test");
    db.Commit();
    EXPECT_TRUE(FileRows(path).empty());
}

TEST(CDatabase, RollbackAfterRowsWrittenAsideKeepsNoneOfThem) {
    ScopedTestEnv env;
    const std::string path = MakeCatalogue(env);
    CDatabase db;
    db.Connect(path);
    db.Begin();
    db.WriteRowsAside();
    for (int i = 0; i < 700; ++i)
        db.AddBackupRecord(1, kSig, "/a/f" + std::to_string(i), kTarget, " 1");
    db.Rollback();
    EXPECT_TRUE(FileRows(path).empty());
    EXPECT_EQ(db.FailedWrites(), 0);
}

TEST(CDatabase, OddBytesSurviveFilesRowRoundTrip) {
    ScopedTestEnv env;
    const std::string path = MakeCatalogue(env);
    CDatabase db;
    db.Connect(path);
#ifdef _WIN32
    // The bytes of a row are kept whatever they are; a Windows name holds no backslash.
    const std::string folder = "\\d\\\xff\xfe\x80 new\nline\\";
    const std::string file = folder + "it's \xc3(\t.txt";
    const std::string storedFolder = Encoded(folder);
    const std::string storedFile = Encoded(file);
#else
    const std::string folder = "/d/\xff\xfe\x80 new\nline/back\\slash/";
    const std::string file = folder + "it's \xc3(\t.txt";
    const std::string storedFolder = "/d/\xff\xfe\x80 new\nline/back\001bslash/";
    const std::string storedFile = storedFolder + "it\\s \xc3(\t.txt";
#endif
    db.AddBackupRecord(1, kSig, file, kTarget, " 9");
    EXPECT_EQ(SqlRows(path, "SELECT file, path FROM Files"), (Rows{{storedFile, storedFolder}}));
    EXPECT_EQ(db.GetFileFromMD5(kSig), storedFile);
}

// --- GetFileFromMD5 -------------------------------------------------------------------------

TEST(CDatabase, GetFileFromMD5GivesStoredFileOfFirstRow) {
    ScopedTestEnv env;
    CDatabase db;
    db.Connect(MakeCatalogue(env));
    db.AddBackupRecord(1, kSig, Native("/home/bob's/first"), kTarget, " 1");
    db.AddBackupRecord(2, kSig, Native("/home/second"), kTarget, " 1");
    EXPECT_EQ(db.GetFileFromMD5(kSig), Encoded(Native("/home/bob's/first")));
}

TEST(CDatabase, GetFileFromMD5OfUnknownSignatureIsEmpty) {
    ScopedTestEnv env;
    CDatabase db;
    db.Connect(MakeCatalogue(env));
    db.AddBackupRecord(1, kSig, "/home/a", kTarget, " 1");
    EXPECT_EQ(db.GetFileFromMD5("ffffffffffffffffffffffffffffffff"), "");
}

TEST(CDatabase, GetFileFromMD5OfATextWithAnApostropheFindsNothingWithoutError) {
    ScopedTestEnv env;
    const std::string path = MakeCatalogue(env);
    CDatabase db;
    db.Connect(path);
    db.AddBackupRecord(1, kSig, "/home/a", kTarget, " 1");
    EXPECT_EQ(db.GetFileFromMD5("x'y"), "");
    EXPECT_FALSE(db.Connection().Err());
    EXPECT_TRUE(env.box.calls.empty());
}

// --- one transaction for a run --------------------------------------------------------------

TEST(CDatabase, CommittedRunIsStored) {
    ScopedTestEnv env;
    const std::string path = MakeCatalogue(env);
    CDatabase db;
    db.Connect(path);
    db.Begin();
    const int32_t run = db.BackupRun("/home");
    db.AddPath(run, "/home/");
    db.AddBackupRecord(run, kSig, "/home/a", kTarget, " 1");
    db.Commit();
    EXPECT_FALSE(db.Connection().Err()) << db.Connection().ErrMsg();
    EXPECT_EQ(SqlRows(path, "SELECT COUNT(*) FROM Backups"), Rows{{"1"}});
    EXPECT_EQ(SqlRows(path, "SELECT COUNT(*) FROM Paths"), Rows{{"1"}});
    EXPECT_EQ(SqlRows(path, "SELECT COUNT(*) FROM Files"), Rows{{"1"}});
}

TEST(CDatabase, RolledBackRunLeavesNothing) {
    ScopedTestEnv env;
    const std::string path = MakeCatalogue(env);
    CDatabase db;
    db.Connect(path);
    db.Begin();
    const int32_t run = db.BackupRun("/home");
    db.AddBackupRecord(run, kSig, "/home/a", kTarget, " 1");
    db.Rollback();
    EXPECT_EQ(SqlRows(path, "SELECT COUNT(*) FROM Backups"), Rows{{"0"}});
    EXPECT_EQ(SqlRows(path, "SELECT COUNT(*) FROM Files"), Rows{{"0"}});
}

TEST(CDatabase, DestructionClosesAndDropsUncommittedRun) {
    ScopedTestEnv env;
    const std::string path = MakeCatalogue(env);
    {
        CDatabase db;
        db.Connect(path);
        db.Begin();
        db.BackupRun("/home");
    }
    EXPECT_FALSE(Exists(path + "-journal"));
    EXPECT_EQ(SqlRows(path, "SELECT COUNT(*) FROM Backups"), Rows{{"0"}});
}

TEST(CDatabase, ManyRecordsInOneTransaction) {
    ScopedTestEnv env;
    const std::string path = MakeCatalogue(env);
    CDatabase db;
    db.Connect(path);
    db.Begin();
    const int32_t run = db.BackupRun("/home");
    for (int i = 0; i < 5000; ++i)
        db.AddBackupRecord(run, kSig, "/home/d/f" + std::to_string(i), kTarget, " 10");
    db.Commit();
    EXPECT_FALSE(db.Connection().Err()) << db.Connection().ErrMsg();
    EXPECT_EQ(SqlRows(path, "SELECT COUNT(*), MIN(fid), MAX(fid) FROM Files"),
              (Rows{{"5000", "1", "5000"}}));
}

} // namespace
