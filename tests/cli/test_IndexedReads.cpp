// The reads whose cost must not grow with the runs a catalogue keeps. Every statement that these
// steps run on the catalogue's Files and Paths tables is taken as the program runs it, and
// SQLite's EXPLAIN QUERY PLAN must show it finding its rows through an index (a run's rows by
// its bid) instead of reading the whole table: backup runs (the first, a quick run with nothing
// changed, a run with a changed and a new file, which reads the sizes of stored content, and a
// run whose retention drops the oldest run), the run chooser's list, a run opened in the
// restore tree with a folder opened and a search, and `qrv ls`.
//
// Compact, `qrv find`, `qrv runs` and `qrv check` read every run by what they do (all content
// in use, a name in every run, every run's totals, every store file named) and are not here.

#include "BackupFixture.h"
#include "app/CBackupBrowser.h"
#include "app/CRunControl.h"
#include "app/modBackupRuns.h"
#include "app/modOptions.h"
#include "catalogue/modStatementTrace.h"
#include "cli/modQrvMain.h"
#include "platform/modFileSystem.h"

#include <gtest/gtest.h>

#include <mutex>
#include <regex>
#include <sstream>

namespace {

using Lines = std::vector<std::string>;

class IndexedReads : public ::testing::Test {
protected:
    BackupFixture f;
    std::string src = f.env.Path("src");
    BackupOptions options;

    void SetUp() override {
        StartTestLog(f.env);
        CreateTree(src, Dir({{"a.txt", File("alpha")},
                             {"b.txt", File("bravo")},
                             {"sub", Dir({{"c.doc", File("charlie")},
                                          {"deeper", Dir({{"d.txt", File("delta")}})}})}}));
        f.AddSource(src);
        options.quickCheck = 1;
        SetStatementListener([this](const std::string& statement) {
            std::lock_guard lock(m_mutex);
            m_statements.push_back(statement);
        });
    }
    void TearDown() override { SetStatementListener({}); }

    void BackUp() {
        CRunControl run({src}, options);
        run.cmdBackup_Click();
    }

    // The statements run since the last call that name the Files or Paths table.
    Lines TakeTableStatements() {
        std::lock_guard lock(m_mutex);
        Lines taken;
        static const std::regex table(R"(\b(Files|Paths)\b)");
        for (const std::string& statement : m_statements)
            if (std::regex_search(statement, table)) taken.push_back(statement);
        m_statements.clear();
        return taken;
    }

    // The lines of SQLite's plan for `statement` that read a whole table, "SCAN Files" say.
    Lines WholeTableReads(const std::string& statement) const {
        Lines scans;
        static const std::regex whole(R"(^SCAN (TABLE )?(Files|Paths)\b)");
        for (const auto& row : SqlRows(f.db, "EXPLAIN QUERY PLAN " + statement))
            if (!row.empty() && std::regex_search(row.back(), whole)) scans.push_back(row.back());
        return scans;
    }

    // Each statement of a step finds its rows through an index; the step ran at least one.
    void ExpectIndexed(const std::string& step, bool mustReadTables = true) {
        const Lines statements = TakeTableStatements();
        if (mustReadTables) {
            EXPECT_FALSE(statements.empty()) << step << " read no Files or Paths";
        }
        for (const std::string& statement : statements)
            EXPECT_EQ(WholeTableReads(statement), Lines{}) << step << ": " << statement;
    }

    std::string NewestBid() const { return f.Rows("SELECT MAX(bid) FROM Backups")[0]; }

private:
    std::mutex m_mutex;
    Lines m_statements;
};

TEST_F(IndexedReads, ABackupRunFindsEveryRowItReadsThroughAnIndex) {
    BackUp();
    ExpectIndexed("the first run");
    BackUp();
    ExpectIndexed("a quick run with nothing changed");
    WriteFile(src + Native("/b.txt"), "bravo, changed");
    WriteFile(src + Native("/sub/e.txt"), "echo, new");
    BackUp();
    ExpectIndexed("a run with a changed and a new file");
    options.maxBackups = "2";
    BackUp();
    ExpectIndexed("a run that drops the oldest run");
    EXPECT_EQ(f.Rows("SELECT bid FROM Backups ORDER BY bid"), (Lines{"3", "4"}));
}

// The sizes of the stored content, which a run reads when a file may hold new content, come
// from the newest run of each source alone: new content of a size that only an older run holds
// is copied again beside the run, and that copy is dropped once its content is found stored.
TEST_F(IndexedReads, ContentOfASizeOnlyAnOlderRunHoldsIsStoredOnceAndRecorded) {
    WriteFile(src + Native("/a.txt"), "alpha one"); // 9 bytes: no other file has that size
    BackUp();
    WriteFile(src + Native("/a.txt"), "alpha, two"); // 10 bytes
    BackUp();
    WriteFile(src + Native("/a.txt"), "alpha one"); // of a size only the first run holds
    BackUp();
    EXPECT_EQ(f.Rows("SELECT md5 FROM Files WHERE bid = 3 AND file LIKE '%a.txt'"),
              Lines{TestSignature("alpha one")});
    EXPECT_EQ(ListTree(f.backup + Native("/Files")),
              StoreEntries({"alpha one", "alpha, two", "bravo", "charlie", "delta"}));
    EXPECT_EQ(f.Rows("SELECT COUNT(*) FROM Files WHERE bid = 3"), Lines{"4"});
}

TEST_F(IndexedReads, TheRunChooserReadsNoFileRow) {
    BackUp();
    BackUp();
    TakeTableStatements();
    const std::vector<SourceRuns> runs = ListBackupRuns();
    ASSERT_EQ(runs.size(), 1u);
    EXPECT_EQ(runs[0].runs.size(), 2u);
    EXPECT_EQ(TakeTableStatements(), Lines{});
}

TEST_F(IndexedReads, ARunsTreeItsFoldersAndItsSearchReadOnlyThatRunsRows) {
    BackUp();
    BackUp();
    TakeTableStatements();
    CBackupBrowser browser;
    browser.cmbBackups_Click(NewestBid());
    ExpectIndexed("the run's tree");
    const int32_t sub = browser.Find(src + Native("/sub/"));
    ASSERT_NE(sub, CBackupBrowser::kNone);
    browser.NodeClick(sub);
    ExpectIndexed("a folder opened");
    browser.Search("*.txt");
    ExpectIndexed("a search");
    browser.NodeCheck(0, true);
    ExpectIndexed("the run ticked whole", false);
}

TEST_F(IndexedReads, QrvLsReadsOnlyTheFolderOfItsRun) {
    BackUp();
    BackUp();
    TakeTableStatements();
    std::ostringstream out, err;
    EXPECT_EQ(QrvMain({"ls", NewestBid(), src + Native("/sub/")}, out, err), 0) << err.str();
    EXPECT_NE(out.str().find("c.doc"), std::string::npos) << out.str();
    ExpectIndexed("qrv ls");
}

} // namespace
