// The check that a catalogue can be used before a run trusts it.

#include "catalogue/modCatalogueCheck.h"

#include "TestSupport.h"
#include "catalogue/modSchema.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

namespace {

// A catalogue of the program's format at `path`, plus `extra` SQL.
void MakeCatalogue(const std::string& path, const std::string& extra = {}) {
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
    std::string sql;
    for (const char* statement : schema::kTables)
        sql += statement;
    for (const char* statement : schema::kIndexes)
        sql += statement;
    sql += extra;
    ASSERT_EQ(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(db);
}

TEST(CatalogueCheck, SoundCatalogueHasNoProblem) {
    ScopedTestEnv env;
    MakeCatalogue(env.Path("Backup.db"));
    EXPECT_EQ(CatalogueProblem(env.Path("Backup.db")), "");
}

TEST(CatalogueCheck, MissingTableAndColumnAreNamed) {
    ScopedTestEnv env;
    MakeCatalogue(env.Path("a.db"), "DROP TABLE Paths;");
    EXPECT_EQ(CatalogueProblem(env.Path("a.db")), "no such table: Paths");
    MakeCatalogue(env.Path("b.db"), "ALTER TABLE Files DROP COLUMN md5;");
    EXPECT_EQ(CatalogueProblem(env.Path("b.db")), "no such column: md5");
}

TEST(CatalogueCheck, FileThatIsNoDatabaseAndAMissingOneAreNamed) {
    ScopedTestEnv env;
    WriteFile(env.Path("text.db"), std::string(4096, 'x'));
    EXPECT_EQ(CatalogueProblem(env.Path("text.db")), "file is not a database");
    EXPECT_EQ(CatalogueProblem(env.Path("none.db")), "unable to open database file");
}

TEST(CatalogueCheck, DamagedPagesAreFoundByTheQuickCheckOnOneLine) {
    ScopedTestEnv env;
    const std::string path = env.Path("Backup.db");
    std::string rows = "BEGIN;";
    for (int i = 0; i < 2000; ++i)
        rows += "INSERT INTO Files (bid, md5, path, file) VALUES (1, 'x', '/p/', '/p/file" +
                std::to_string(i) + "');";
    MakeCatalogue(path, rows + "COMMIT;");
    std::string content = ReadFile(path);
    content.replace(content.size() - 8192, 4096, std::string(4096, '\0'));
    WriteFile(path, content);
    const std::string problem = CatalogueProblem(path);
    EXPECT_EQ(problem.rfind("it is damaged (", 0), 0u) << problem;
    EXPECT_EQ(problem.find('\n'), std::string::npos);
}

// A catalogue whose last pages are zeroed after `rows` were written into an empty one.
std::string DamagedCatalogue(ScopedTestEnv& env, const std::string& rows) {
    const std::string path = env.Path("Backup.db");
    MakeCatalogue(path, "BEGIN;" + rows + "COMMIT;");
    std::string content = ReadFile(path);
    content.replace(content.size() - 8192, 4096, std::string(4096, '\0'));
    WriteFile(path, content);
    return path;
}

TEST(CatalogueCheck, BigCatalogueHasItsSmallTablesCheckedPageByPage) {
    ScopedTestEnv env;
    std::string rows;
    for (int i = 0; i < 2000; ++i)
        rows += "INSERT INTO Backups (source, datebk) VALUES ('/source/number/" +
                std::to_string(i) + "', '01/02/2026 10:11:12');";
    const std::string path = DamagedCatalogue(env, rows);
    // Bigger than the size read whole: the Backups table is still read page by page, and its
    // damaged page stops the check with SQLite's own words.
    EXPECT_EQ(CatalogueProblem(path, 0), "database disk image is malformed");
}

TEST(CatalogueCheck, BigCatalogueLeavesItsFilesPagesToTheRunThatReadsThem) {
    ScopedTestEnv env;
    std::string rows;
    for (int i = 0; i < 2000; ++i)
        rows += "INSERT INTO Files (bid, md5, path, file) VALUES (1, 'x', '/p/', '/p/file" +
                std::to_string(i) + "');";
    const std::string path = DamagedCatalogue(env, rows);
    EXPECT_EQ(CatalogueProblem(path, 0), "");
    // At or below the size read whole, every page is read and the damage found.
    const std::string problem = CatalogueProblem(path, ReadFile(path).size());
    EXPECT_EQ(problem.rfind("it is damaged (", 0), 0u) << problem;
}

} // namespace
