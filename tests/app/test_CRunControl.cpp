// The run over all sources as the window drives it: labels, button states, totals, cancel by
// re-entry, retention after each source, the report, and the unattended words.

#include "BackupFixture.h"
#include "app/CRunControl.h"
#include "app/modOptions.h"
#include "app/modPaths.h"
#include "catalogue/CDatabase.h"
#include "support/CMMTimer.h"
#include "support/modServices.h"

#include <gtest/gtest.h>

namespace {

using Lines = std::vector<std::string>;

struct RunControl : ::testing::Test {
    BackupFixture f;
    std::string log = f.env.Path("run.log");
    void SetUp() override {
        Logger().LogFile(log);
        Logger().LogLevel(3);
        ASSERT_TRUE(Logger().StartLogger());
    }
    Lines LogLines() const { return LogMessages(ReadFile(log)); }
    bool Logged(const std::string& line) const {
        const Lines lines = LogLines();
        return std::find(lines.begin(), lines.end(), line + "\r\n") != lines.end();
    }
    // Earlier runs of a source, made directly in the catalogue.
    void AddRuns(const std::string& source, int count) {
        CDatabase db;
        db.Connect(f.db);
        for (int i = 0; i < count; ++i)
            db.BackupRun(source);
    }
};

TEST(BackupSummaryText, WholeMegabytesWithGroupingAndNothingForZero) {
    EXPECT_EQ(BackupSummary(1536000, 4), "Backup Complete. 2MB in 00:00:04");
    EXPECT_EQ(BackupSummary(400000, 4), "Backup Complete. MB in 00:00:04");
    EXPECT_EQ(BackupSummary(0, 0), "Backup Complete. MB in 00:00:00");
    EXPECT_EQ(BackupSummary(5.12e9, 3725), "Backup Complete. 5,000MB in 01:02:05");
}

TEST_F(RunControl, EmptySourceListCompletesWithAnEmptySummary) {
    CRunControl run({}, BackupOptions{});
    run.cmdBackup_Click();
    EXPECT_EQ(run.View().lblSource, "Backup Complete. MB in 00:00:00");
    // The closing log purge walks the logs folder.
    EXPECT_EQ(LogLines(),
              (Lines{" \r\n", "Backup started\r\n", " \r\n", "Backup Complete. MB in 00:00:00\r\n",
                     "Backup complete\r\n", "FindFiles " + f.backup + Native("/Logs") + "\r\n"}));
    EXPECT_FALSE(run.Running());
}

TEST_F(RunControl, ButtonTurnsIntoCancelDuringTheRunAndBackAfter) {
    CreateTree(f.env.Path("s"), Dir({{"a.txt", File("alpha")}}));
    CRunControl run({f.env.Path("s")}, BackupOptions{});
    std::vector<RunView> views;
    run.OnViewChanged = [&](const RunView& v) { views.push_back(v); };
    run.cmdBackup_Click();
    ASSERT_GE(views.size(), 3u);
    EXPECT_EQ(views.front().cmdBackupCaption, "Cancel");
    EXPECT_EQ(views.front().cmdBackupToolTip, "Cancel backup in progress");
    EXPECT_FALSE(views.front().sourceButtonsEnabled);
    EXPECT_FALSE(views.front().tabsEnabled);
    EXPECT_EQ(run.View().cmdBackupCaption, "Backup");
    EXPECT_EQ(run.View().cmdBackupToolTip, "Commence backup run");
    EXPECT_TRUE(run.View().sourceButtonsEnabled);
    EXPECT_TRUE(run.View().tabsEnabled);
}

TEST_F(RunControl, LabelsFollowEachSourceAndFile) {
    CreateTree(f.env.Path("s1"), Dir({{"a.txt", File("alpha")}}));
    CreateTree(f.env.Path("s2"),
               Dir({{"b.txt", File(std::string(2048000, 'b'))}, {"c.txt", File("c")}}));
    CRunControl run({f.env.Path("s1"), f.env.Path("s2")}, BackupOptions{});
    std::vector<RunView> views;
    run.OnViewChanged = [&](const RunView& v) { views.push_back(v); };
    run.cmdBackup_Click();

    auto starting = std::find_if(views.begin(), views.end(),
                                 [](auto& v) { return v.lblSource == "Processing 2 of 2"; });
    ASSERT_NE(starting, views.end());
    EXPECT_EQ(starting->lblProcessing, f.env.Path("s2"));
    EXPECT_EQ(starting->lblThruPut, "MB/s");
    EXPECT_EQ(starting->lblCount, "");
    EXPECT_EQ(starting->lblDone, "");
    EXPECT_EQ(starting->progress, 0);
    EXPECT_EQ(starting->selectedSource, 1);
    auto counted = std::find_if(starting, views.end(), [](auto& v) { return v.lblCount == "2"; });
    ASSERT_NE(counted, views.end());
    auto done = std::find_if(counted, views.end(), [](auto& v) { return v.lblDone == "1"; });
    ASSERT_NE(done, views.end());
    EXPECT_EQ(done->progress, 50);
    EXPECT_TRUE(done->lblThruPut.ends_with(" MB/s")) << done->lblThruPut;
    EXPECT_NE(done->lblThruPut, "MB/s");
    EXPECT_EQ(run.View().progress, 100);
    EXPECT_EQ(run.TotalBytes(), 5 + 2048000 + 1);
    EXPECT_TRUE(run.View().lblSource.starts_with("Backup Complete. 2MB in 00:00:0"));
    EXPECT_TRUE(Logged("RaiseEvent: CBackup_Finish 2048001"));
    EXPECT_TRUE(Logged("Source: " + f.env.Path("s2")));
}

TEST_F(RunControl, TheBytesLineFollowsEachSourceFromNothingToItsTotal) {
    CreateTree(f.env.Path("s1"), Dir({{"a.txt", File("alpha")}}));
    CreateTree(f.env.Path("s2"),
               Dir({{"b.txt", File(std::string(2048000, 'b'))}, {"c.txt", File("c")}}));
    CRunControl run({f.env.Path("s1"), f.env.Path("s2")}, BackupOptions{});
    std::vector<RunView> views;
    run.OnViewChanged = [&](const RunView& v) { views.push_back(v); };
    run.cmdBackup_Click();

    std::vector<std::string> lines; // each new text of the line, in turn
    for (const RunView& view : views)
        if (lines.empty() || lines.back() != view.lblBytes) lines.push_back(view.lblBytes);
    // Each source starts with an empty line, then its bytes from none to all: the first source's
    // 5 bytes, the second's 2,048,001 (whatever it showed between, shown at most every 200 ms).
    // The last source knows every total: it adds the whole run's.
    ASSERT_GE(lines.size(), 6u);
    EXPECT_EQ(lines[0], "");
    EXPECT_EQ(lines[1], "0 bytes of 5 bytes");
    EXPECT_EQ(lines[2], "5 bytes of 5 bytes");
    EXPECT_EQ(lines[3], "");
    EXPECT_EQ(lines[4], "0 bytes of 2.0 MB; whole run 5 bytes of 2.0 MB");
    EXPECT_EQ(lines.back(), "2.0 MB of 2.0 MB; whole run 2.0 MB of 2.0 MB");
    EXPECT_EQ(run.View().lblBytes, "2.0 MB of 2.0 MB; whole run 2.0 MB of 2.0 MB");
}

TEST_F(RunControl, TheBytesLineShowsTheTimeLeftAfterThreeSecondsAtMostFiveTimesASecond) {
    uint32_t now = 1000;
    CMMTimer::SetTickSource([&] { return now; });
    CRunControl run({}, BackupOptions{});
    int changes = 0;
    run.OnViewChanged = [&](const RunView&) { ++changes; };
    run.Bkup_BytesProgress(0, 3'000'000'000);
    EXPECT_EQ(run.View().lblBytes, "0 bytes of 3.0 GB");
    // 50 MB a second, told every 50 ms: shown every 200 ms.
    for (int step = 1; step <= 60; ++step) {
        now += 50;
        run.Bkup_BytesProgress(static_cast<uint64_t>(step) * 2'500'000, 3'000'000'000);
    }
    EXPECT_EQ(changes, 15); // nothing done yet is shown with the next change
    EXPECT_EQ(run.View().lblBytes, "150 MB of 3.0 GB, less than a minute left");
    // The pace falls to a quarter for 2 seconds: the estimate moves towards it, a fifth of the
    // way each second (50, 42.5, 36.5 MB/s), without jumping there (2,825 MB at 12.5 MB/s
    // would be about 4 minutes).
    for (int step = 1; step <= 40; ++step) {
        now += 50;
        run.Bkup_BytesProgress(150'000'000 + static_cast<uint64_t>(step) * 625'000, 3'000'000'000);
    }
    CMMTimer::SetTickSource(nullptr);
    EXPECT_EQ(run.View().lblBytes, "175 MB of 3.0 GB, about 1 minute left");
}

TEST_F(RunControl, CancelDuringTheSecondOfThreeSources) {
    std::vector<std::string> sources;
    for (const char* name : {"one", "two", "three"}) {
        sources.push_back(f.env.Path(name));
        CreateTree(sources.back(), Dir({{"a.txt", File(std::string(name) + " a")},
                                        {"b.txt", File(std::string(name) + " b")}}));
        AddRuns(sources.back(), 2); // earlier runs: retention with a limit of 1 would drop them
    }
    BackupOptions options;
    options.maxBackups = "1";
    CRunControl run(sources, options);
    int reports = 0;
    run.OnShowReport = [&] {
        ++reports;
        EXPECT_FALSE(Logger().Started());
    };
    bool clicked = false;
    run.OnViewChanged = [&](const RunView& v) {
        // The Cancel click arrives while the second source's first file is done.
        if (!clicked && v.lblProcessing == sources[1] && v.lblDone == "1") {
            clicked = true;
            run.cmdBackup_Click();
        }
    };
    run.cmdBackup_Click();

    EXPECT_TRUE(clicked);
    EXPECT_EQ(run.View().lblSource, "Backup cancelled");
    EXPECT_EQ(reports, 2);
    EXPECT_TRUE(Logger().Started());
    // Source one ran and was pruned to one run; source two was rolled back and not pruned;
    // source three never started.
    EXPECT_EQ(f.RowTexts("SELECT bid, source FROM Backups ORDER BY bid"),
              (Lines{"3|" + sources[1], "4|" + sources[1], "5|" + sources[2], "6|" + sources[2],
                     "7|" + sources[0]}));
    const Lines lines = LogLines();
    const auto cancel = std::find(lines.begin(), lines.end(), "Cancel requested. Stopping...\r\n");
    ASSERT_NE(cancel, lines.end());
    EXPECT_EQ(Lines(lines.end() - 4, lines.end()),
              (Lines{" \r\n", "Backup cancelled\r\n", "Backup complete\r\n",
                     "FindFiles " + f.backup + Native("/Logs") + "\r\n"}));
    // The cancel click ran the closing steps too: its log purge came right after the request.
    EXPECT_EQ(*(cancel + 1), "FindFiles " + f.backup + Native("/Logs") + "\r\n");
    EXPECT_FALSE(Logged("Source: " + sources[2]));
    EXPECT_FALSE(run.Running());
}

TEST_F(RunControl, ReportIsNotShownWhenMessagesAreOff) {
    ErrHandler().DisplayMsgOnError(false);
    CRunControl run({}, BackupOptions{});
    int reports = 0;
    run.OnShowReport = [&] { ++reports; };
    run.cmdBackup_Click();
    EXPECT_EQ(reports, 0);
}

TEST_F(RunControl, RecyclerTickedWithNoFoldersExcludesOnlyRecycler) {
    CreateTree(f.env.Path("s"), Dir({{"RECYCLER", Dir({{"gone.txt", File("deleted")}})},
                                     {"cvs", Dir({{"kept.txt", File("kept")}})}}));
    BackupOptions options;
    options.exDirs = "";
    options.exclRecycler = 1;
    CRunControl run({f.env.Path("s")}, options);
    run.cmdBackup_Click();
    EXPECT_EQ(f.Rows("SELECT file FROM Files"), Lines{f.env.Path("s/cvs/kept.txt")});
}

TEST_F(RunControl, RecyclerIsAddedToTheDesignFolders) {
    CreateTree(f.env.Path("s"), Dir({{"Recycler", Dir({{"r.txt", File("r")}})},
                                     {"tmp", Dir({{"t.txt", File("t")}})},
                                     {"keep", Dir({{"k.txt", File("k")}})}}));
    BackupOptions options;
    options.exclRecycler = 1;
    CRunControl run({f.env.Path("s")}, options);
    run.cmdBackup_Click();
    EXPECT_EQ(f.Rows("SELECT file FROM Files"), Lines{f.env.Path("s/keep/k.txt")});
}

TEST_F(RunControl, RecyclerValueOtherThanOneAddsNothing) {
    CreateTree(f.env.Path("s"), Dir({{"recycler", Dir({{"r.txt", File("r")}})}}));
    BackupOptions options;
    options.exclRecycler = 2;
    CRunControl run({f.env.Path("s")}, options);
    run.cmdBackup_Click();
    EXPECT_EQ(f.Rows("SELECT file FROM Files"), Lines{f.env.Path("s/recycler/r.txt")});
}

TEST_F(RunControl, HiddenOptionIncludesHiddenFiles) {
    CreateTree(f.env.Path("s"), Dir({{".secret", File("s")}}));
    BackupOptions options;
    options.hidden = 1;
    CRunControl run({f.env.Path("s")}, options);
    run.cmdBackup_Click();
    EXPECT_EQ(f.Rows("SELECT file FROM Files"), Lines{f.env.Path("s/.secret")});
}

TEST_F(RunControl, InvalidBackupLimitIsReportedThroughTheErrorHandler) {
    CreateTree(f.env.Path("s"), Dir({{"a.txt", File("a")}}));
    BackupOptions options;
    options.maxBackups = "lots";
    CRunControl run({f.env.Path("s")}, options);
    run.cmdBackup_Click();
    EXPECT_EQ(ErrHandler().ErrNumber(), 13);
    EXPECT_EQ(ErrHandler().ErrProcedure(), "cmdBackup_Click");
    ASSERT_EQ(f.env.box.calls.size(), 1u);
    EXPECT_EQ(f.env.box.calls[0].style, 16);
    EXPECT_FALSE(run.Running());
    EXPECT_EQ(ErrHandler().StackPointer(), 0);
}

TEST_F(RunControl, InvalidBackupLimitNamesTheSourcesThatWereNotBackedUp) {
    for (const char* name : {"s1", "s2", "s3"})
        CreateTree(f.env.Path(name), Dir({{"a.txt", File(name)}}));
    BackupOptions options;
    options.maxBackups = "lots";
    CRunControl run({f.env.Path("s1"), f.env.Path("s2"), f.env.Path("s3")}, options);
    run.cmdBackup_Click();
    EXPECT_EQ(
        run.Outcome().Lines(),
        (Lines{"The number of backups to keep, \"lots\", is not a whole number from 1 to "
               "100; the run stopped there",
               "The run stopped at an error: Type mismatch",
               "Source " + f.env.Path("s2") + " was not backed up: the run stopped before it",
               "Source " + f.env.Path("s3") + " was not backed up: the run stopped before it"}));
    EXPECT_EQ(run.Outcome().ExitStatus(), 4);
    EXPECT_TRUE(Logged("Problem: The run stopped at an error: Type mismatch"));
}

TEST_F(RunControl, LostRunIsShownAsAFailureAndThroughTheErrorHandler) {
    CreateTree(f.env.Path("s"), Dir({{"a.txt", File("alpha")}}));
    f.Exec("CREATE TRIGGER damaged BEFORE INSERT ON Files BEGIN "
           "SELECT RAISE(ABORT, 'damaged page'); END;");
    CRunControl run({f.env.Path("s")}, BackupOptions{});
    run.cmdBackup_Click();
    const std::string lost = "The run of " + f.env.Path("s") +
                             " was lost: the catalogue could not record 1 of its rows: damaged "
                             "page";
    EXPECT_EQ(run.View().lblSource, "Backup failed: the run of 1 source was lost");
    EXPECT_EQ(run.Outcome().Lines(), Lines{lost});
    EXPECT_EQ(run.Outcome().ExitStatus(), 5);
    // The error handler's box, with the error and the step it stopped.
    ASSERT_EQ(f.env.box.calls.size(), 1u);
    EXPECT_EQ(f.env.box.calls[0].style, 16);
    EXPECT_EQ(f.env.box.calls[0].text,
              "The following error has occurred in procedure: \r\nCBackup_Exec on line 0\r\nError "
              "(10006) the catalogue could not record 1 of its rows: damaged page\r\nCurrent "
              "Operation: Commit");
    const Lines log = LogLines();
    EXPECT_TRUE(Logged(lost));
    EXPECT_TRUE(Logged("Backup failed: the run of 1 source was lost"));
    EXPECT_TRUE(Logged("Problem: " + lost));
    EXPECT_EQ(std::count_if(
                  log.begin(), log.end(),
                  [](const std::string& line) { return line.rfind("Backup Complete", 0) == 0; }),
              0);
    EXPECT_EQ(f.Rows("SELECT count(*) FROM Backups"), Lines{"0"});
}

TEST_F(RunControl, SourceAfterALostRunIsStillRecorded) {
    CreateTree(f.env.Path("s1"), Dir({{"a.txt", File("alpha")}}));
    CreateTree(f.env.Path("s2"), Dir({{"b.txt", File("beta")}}));
    f.Exec("CREATE TRIGGER damaged BEFORE INSERT ON Files WHEN NEW.file LIKE '%" + Native("/s1/") +
           "%' BEGIN SELECT RAISE(ABORT, 'damaged page'); END;");
    CRunControl run({f.env.Path("s1"), f.env.Path("s2")}, BackupOptions{});
    run.cmdBackup_Click();
    EXPECT_EQ(run.Outcome().Lines(),
              Lines{"The run of " + f.env.Path("s1") +
                    " was lost: the catalogue could not record 1 of its rows: damaged page"});
    EXPECT_EQ(f.Rows("SELECT source FROM Backups"), Lines{f.env.Path("s2")});
    EXPECT_EQ(f.Rows("SELECT file FROM Files"), Lines{f.env.Path("s2") + Native("/b.txt")});
}

TEST_F(RunControl, RunOfElevenHoursIsSavedAndEndsWithProblemsNeverLost) {
    // The clock jumps 11 hours once the files are found: the elapsed-time texts of the run's
    // totals and of the summary overflow (they stop at 10 hours), after the run's commit.
    CreateTree(f.env.Path("s"), Dir({{"a.txt", File("alpha")}, {"b.txt", File("beta")}}));
    uint32_t now = 1000;
    CMMTimer::SetTickSource([&] { return now; });
    CRunControl run({f.env.Path("s")}, BackupOptions{});
    run.OnViewChanged = [&](const RunView& view) {
        if (view.lblCount == "2") now = 1000 + 11 * 3600 * 1000;
    };
    run.cmdBackup_Click();
    CMMTimer::SetTickSource(nullptr);
    const std::string saved =
        "The run of " + f.env.Path("s") + " was saved, but a step after saving it failed: Overflow";
    const std::string end = "Every run was saved, but the end of the backup failed: Overflow";
    EXPECT_EQ(run.Outcome().Lines(), (Lines{saved, end}));
    EXPECT_EQ(run.Outcome().ExitStatus(), 4);
    EXPECT_EQ(run.View().lblSource,
              "Backup Complete. Every run was saved; the time it took could not be shown "
              "(Overflow)");
    EXPECT_TRUE(Logged(saved));
    EXPECT_TRUE(Logged("Problem: " + saved));
    EXPECT_TRUE(Logged("Problem: " + end));
    EXPECT_TRUE(Logged("Backup complete"));
    EXPECT_FALSE(Logged("Elapsed time: 11:00:00"));
    // Both overflows went through the error handler, each with its box.
    ASSERT_EQ(f.env.box.calls.size(), 2u);
    EXPECT_EQ(f.env.box.calls[0].text,
              "The following error has occurred in procedure: \r\nCBackup_Exec on line 0\r\nError "
              "(6) Overflow\r\nCurrent Operation: Source backup complete");
    EXPECT_EQ(f.env.box.calls[1].text,
              "The following error has occurred in procedure: \r\ncmdBackup_Click on line "
              "0\r\nError (6) Overflow\r\nCurrent Operation: Backup summary");
    EXPECT_EQ(f.Rows("SELECT count(*) FROM Backups"), Lines{"1"});
    EXPECT_EQ(f.Rows("SELECT file FROM Files ORDER BY file"),
              (Lines{f.env.Path("s") + Native("/a.txt"), f.env.Path("s") + Native("/b.txt")}));
}

TEST_F(RunControl, CompleteRunHasNoProblemsAndStatusZero) {
    CreateTree(f.env.Path("s"), Dir({{"a.txt", File("alpha")}}));
    CRunControl run({f.env.Path("s")}, BackupOptions{});
    run.cmdBackup_Click();
    EXPECT_EQ(run.Outcome().Lines(), Lines{});
    EXPECT_EQ(run.Outcome().ExitStatus(), 0);
}

TEST_F(RunControl, SourceInsideTheBackupFolderIsNotWalkedAndNamedAsAProblem) {
    // The sources after it are backed up as usual.
    const std::string inside = f.backup + Native("/mine"), same = f.backup + Native("/");
    CreateTree(inside, Dir({{"m.txt", File("mine")}}));
    CreateTree(f.env.Path("s"), Dir({{"a.txt", File("alpha")}}));
    CRunControl run({inside, same, f.env.Path("s")}, BackupOptions{});
    run.cmdBackup_Click();
    const std::string why = ", and Stashwell does not back up its own store";
    const Lines problems{"Source " + inside +
                             " was not backed up: it lies inside the backup folder " + f.backup +
                             why,
                         "Source " + same + " was not backed up: it is the backup folder" + why};
    EXPECT_EQ(run.Outcome().Lines(), problems);
    EXPECT_EQ(run.Outcome().ExitStatus(), 4);
    EXPECT_TRUE(Logged(inside + " lies inside the backup folder " + f.backup + ". Skipping"));
    EXPECT_TRUE(Logged(same + " is the backup folder. Skipping"));
    for (const std::string& problem : problems)
        EXPECT_TRUE(Logged("Problem: " + problem));
    EXPECT_EQ(f.Rows("SELECT source FROM Backups"), Lines{f.env.Path("s")});
    EXPECT_EQ(f.Rows("SELECT file FROM Files"), Lines{f.env.Path("s") + Native("/a.txt")});
}

TEST_F(RunControl, SourceHoldingTheBackupFolderIsBackedUpAroundIt) {
    const std::string home = f.env.Path("home");
    CreateTree(home, Dir({{"a.txt", File("alpha")}, {"Backup", Dir()}}));
    f.UseBackupPath(home + Native("/Backup"));
    Logger().LogLevel(2);
    CRunControl run({home}, BackupOptions{});
    run.cmdBackup_Click();
    EXPECT_EQ(run.Outcome().Lines(), Lines{});
    EXPECT_EQ(run.Outcome().ExitStatus(), 0);
    EXPECT_EQ(f.Rows("SELECT file FROM Files"), Lines{home + Native("/a.txt")});
    EXPECT_TRUE(Logged("Skipped the backup folder " + home +
                       Native("/Backup: Stashwell does not back up its own store")));
}

TEST_F(RunControl, UnattendedWordsActAsOftenAsGiven) {
    CreateTree(f.env.Path("s"), Dir({{"a.txt", File("a")}}));
    CRunControl run({f.env.Path("s")}, BackupOptions{});
    run.RunUnattended("backup Backup  BACKUP");
    EXPECT_EQ(f.Rows("SELECT bid FROM Backups ORDER BY bid"), (Lines{"1", "2", "3"}));
    EXPECT_FALSE(ErrHandler().DisplayMsgOnError());
    EXPECT_EQ(LogLines().back(), "Unattended backup complete\r\n");
}

TEST_F(RunControl, UnattendedCompactRunsTheCompactSequence) {
    CRunControl run({}, BackupOptions{});
    run.RunUnattended("COMPACT");
    EXPECT_EQ(LogLines(),
              (Lines{"Compacting database\r\n", "Pruning DB tree\r\n", " Prune DB Files tree\r\n",
                     " Prune DB Paths tree\r\n", "Running Integrity Check\r\n", "Kill orphans\r\n",
                     "FindFiles " + f.backup + Native("/Files") + "\r\n", "Vacuum DB\r\n",
                     "Unattended backup complete\r\n"}));
}

TEST_F(RunControl, UnattendedUnknownWordDoesNothingButEnds) {
    CRunControl run({}, BackupOptions{});
    run.RunUnattended("-backup");
    EXPECT_EQ(LogLines(), Lines{"Unattended backup complete\r\n"});
}

} // namespace
