// The maintenance buttons without the window: Delete of the runs of sources no longer listed,
// Manual Purge, and Compact with its question, busy pointer and progress.

#include "BackupFixture.h"
#include "app/CRunControl.h"
#include "app/modMaintenance.h"
#include "app/modOptions.h"
#include "app/modRetention.h"
#include "catalogue/CDatabase.h"

#include <filesystem>
#include <gtest/gtest.h>

namespace {

using Lines = std::vector<std::string>;
using Call = CScriptedMessageBox::Call;

struct Maintenance : ::testing::Test {
    BackupFixture f;
    std::vector<int32_t> selected;

    void AddRuns(const std::string& source, int count) {
        CDatabase db;
        db.Connect(f.db);
        for (int i = 0; i < count; ++i)
            db.BackupRun(source);
    }
    // A store file that no row names.
    void PlaceOrphan() const {
        const std::string path = StoreFile(f.backup, "orphan");
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        WriteFile(path, "orphan");
    }
    Lines Runs() const { return f.RowTexts("SELECT bid, source FROM Backups ORDER BY bid"); }
    std::function<void(int32_t)> Select() {
        return [this](int32_t row) { selected.push_back(row); };
    }
};

const Call kDeleteQuestion{
    "This will permanently delete the backups of removed Sources. Ok to proceed?", 17,
    "QRV - Stashwell"};
const Call kDeleteDone{"Delete complete. You should now run Compact", 64, "QRV - Stashwell"};

TEST_F(Maintenance, EmptySourceListDeletesEveryRun) {
    AddRuns("/data", 2);
    AddRuns("/photos", 1);
    EXPECT_TRUE(DeleteRemovedSources({}, Select()));
    EXPECT_EQ(Runs(), Lines{});
    EXPECT_EQ(f.env.box.calls, (std::vector<Call>{kDeleteQuestion, kDeleteDone}));
    EXPECT_TRUE(selected.empty());
}

TEST_F(Maintenance, ComparisonIsCaseSensitiveAndRunsDownTheList) {
    AddRuns("/data/c", 2);
    AddRuns("/data/C", 1);
    AddRuns("/photos", 1);
    EXPECT_TRUE(DeleteRemovedSources({"/data/C", "/photos"}, Select()));
    EXPECT_EQ(Runs(), (Lines{"3|/data/C", "4|/photos"}));
    // Each run is compared with each row of the list, which is selected in turn.
    EXPECT_EQ(selected, (std::vector<int32_t>{0, 1, 0, 1, 0, 1, 0, 1}));
}

TEST_F(Maintenance, DeleteKeepsTheRowsOfFilesAndFoldersForCompact) {
    const std::string src = f.env.Path("gone");
    CreateTree(src, Dir({{"a.txt", File("alpha")}}));
    CRunControl run({src}, BackupOptions{});
    run.cmdBackup_Click();
    f.env.box.calls.clear();
    EXPECT_TRUE(DeleteRemovedSources({}, Select()));
    EXPECT_EQ(Runs(), Lines{});
    EXPECT_EQ(f.Rows("SELECT count(*) FROM Files"), Lines{"1"});
    EXPECT_TRUE(Exists(StoreFile(f.backup, "alpha")));
}

TEST_F(Maintenance, SourceWithAnApostropheIsDeletedLikeAnyOther) {
    AddRuns("/home/Bob's Documents", 1);
    EXPECT_TRUE(DeleteRemovedSources({"/photos"}, Select()));
    EXPECT_EQ(Runs(), Lines{});
}

TEST_F(Maintenance, DecliningTheDeleteQuestionDeletesNothing) {
    AddRuns("/data", 1);
    f.env.box.Answer(2);
    EXPECT_FALSE(DeleteRemovedSources({}, Select()));
    EXPECT_EQ(Runs(), Lines{"1|/data"});
    EXPECT_EQ(f.env.box.calls, std::vector<Call>{kDeleteQuestion});
}

TEST_F(Maintenance, PurgeAppliesTheLimitToEverySourceAndAsksForACompact) {
    f.AddSource("/data");
    f.AddSource("/photos");
    AddRuns("/data", 3);
    AddRuns("/photos", 2);
    AddRuns("/not listed", 3);
    f.SetOption("MaxBackups", "2");
    PurgeBackups();
    EXPECT_EQ(Runs(), (Lines{"2|/data", "3|/data", "4|/photos", "5|/photos", "6|/not listed",
                             "7|/not listed", "8|/not listed"}));
    EXPECT_EQ(f.env.box.calls, (std::vector<Call>{{"Purge Complete. You should run Compact", 64,
                                                   "QRV - Stashwell"}}));
}

TEST_F(Maintenance, CancelOnTheCompactQuestionChangesNothingNotEvenThePointer) {
    AddRuns("/data", 1);
    f.Exec("INSERT INTO Files (bid, md5, path, file, backup, size) SELECT 9, 'x', '/g/', "
           "'/g/a', '" +
           StoreFile(f.backup, "alpha") + "', 5");
    PlaceOrphan();
    f.env.box.Answer(2);
    std::vector<bool> busy;
    EXPECT_FALSE(CompactBackups([&](bool on) { busy.push_back(on); }));
    EXPECT_TRUE(busy.empty());
    EXPECT_EQ(f.Rows("SELECT count(*) FROM Files"), Lines{"1"});
    EXPECT_TRUE(Exists(StoreFile(f.backup, "orphan")));
    EXPECT_EQ(f.env.box.calls,
              (std::vector<Call>{{"This may take an extended amount of time. Ok to continue?", 65,
                                  "QRV - Stashwell"}}));
}

TEST_F(Maintenance, CompactPrunesKillsOrphansAndShowsItsEnd) {
    const std::string src = f.env.Path("s");
    CreateTree(src, Dir({{"a.txt", File("alpha")}}));
    CRunControl run({src}, BackupOptions{});
    run.cmdBackup_Click();
    f.Exec("INSERT INTO Files (bid, md5, path, file, backup, size) SELECT 9, 'x', '/g/', "
           "'/g/a', '/x', 5");
    PlaceOrphan();
    f.env.box.calls.clear();
    std::vector<std::string> events;
    SetMaintenanceView({[&](const std::string& text) { events.push_back(text); },
                        [&](int32_t percent) { events.push_back(std::to_string(percent) + "%"); }});
    EXPECT_TRUE(CompactBackups([&](bool on) { events.push_back(on ? "busy" : "idle"); }));
    SetMaintenanceView({});
    EXPECT_EQ(events.front(), "busy");
    EXPECT_EQ(events[1], "Pruning DB tree");
    EXPECT_EQ(*(events.end() - 2), "idle");
    EXPECT_EQ(events.back(), "100%");
    EXPECT_EQ(f.Rows("SELECT count(*) FROM Files WHERE bid = 9"), Lines{"0"});
    EXPECT_FALSE(Exists(StoreFile(f.backup, "orphan")));
    EXPECT_TRUE(Exists(StoreFile(f.backup, "alpha")));
    EXPECT_EQ(f.env.box.calls,
              (std::vector<Call>{{"This may take an extended amount of time. Ok to continue?", 65,
                                  "QRV - Stashwell"},
                                 {"Compact process complete", 64, "QRV - Stashwell"}}));
}

} // namespace
