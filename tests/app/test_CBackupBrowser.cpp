// The restore tab without the window: a run's tree filled from its folders, files loaded when a
// folder is opened or ticked, ticks carried down, the pictures of file kinds, the two restore
// commands and their walks, and the run list of the dialog that chooses a run.

#include "BackupFixture.h"
#include "QuoteNames.h" // Linux only
#include "app/CBackupBrowser.h"
#include "app/CRunControl.h"
#include "app/modBackupRuns.h"
#include "app/modOptions.h"
#include "catalogue/ADOSQLite.h"
#include "catalogue/CDatabase.h"
#include "catalogue/CMetadataDB.h"
#include "platform/modFileSystem.h"
#include "support/modDateText.h"
#include "support/modServices.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>

namespace {

using Lines = std::vector<std::string>;

struct Browser : ::testing::Test {
    BackupFixture f;
    std::string src = f.env.Path("src");
    std::string log;
    CBackupBrowser browser;
    Lines statuses;
    std::vector<int32_t> progress;

    void SetUp() override {
        log = StartTestLog(f.env);
        CreateTree(src, Dir({{"a.txt", File("alpha")},
                             {"REPORT.Txt", File("report")},
                             {"noext", File("no extension")},
                             {"sub", Dir({{"b.doc", File("bravo")},
                                          {"deeper", Dir({{"c.mp3", File("charlie")}})}})},
                             {"Bob's", Dir({{"x.zip", File("x-ray")}})}}));
        browser.OnStatus = [this](const std::string& text) { statuses.push_back(text); };
        browser.OnProgress = [this](int32_t percent) { progress.push_back(percent); };
    }

    void BackUp(const std::vector<std::string>& sources) {
        CRunControl run(sources, BackupOptions{});
        run.cmdBackup_Click();
    }

    // The tree's key of `relative` (written with "/") below the source: its path as the
    // catalogue holds it.
    std::string Key(const std::string& relative) const { return Encoded(src + Native(relative)); }

    int32_t Node(const std::string& relative) const {
        const int32_t node = browser.Find(Key(relative));
        EXPECT_NE(node, CBackupBrowser::kNone) << relative;
        return node;
    }

    Lines ChildKeys(int32_t node) const {
        Lines keys;
        for (const int32_t child : browser.Node(node).children)
            keys.push_back(browser.Node(child).key);
        return keys;
    }

    Lines Ticked() const {
        Lines keys;
        for (int32_t node = 0; node < browser.NodeCount(); ++node)
            if (browser.Node(node).checked) keys.push_back(browser.Node(node).key);
        std::sort(keys.begin(), keys.end());
        return keys;
    }

    // Every file below `root`, with its content, by path.
    static std::map<std::string, std::string> Tree(const std::string& root) {
        std::map<std::string, std::string> tree;
        for (const std::string& path : WalkOrder(root))
            tree[path] = ReadFile(path);
        return tree;
    }
};

TEST(FileKinds, ExtensionsAreComparedInUpperCase) {
    EXPECT_EQ(FileKindImage("REPORT.Txt"), 16);
    EXPECT_EQ(FileKindImage("noext"), 3);
    EXPECT_EQ(FileKindImage("archive.tar.gz"), 3);
    const std::map<std::string, int32_t> kinds = {
        {"a.doc", 15}, {"a.DOT", 15}, {"a.ppt", 14}, {"a.pps", 14}, {"a.xls", 13}, {"a.xlw", 13},
        {"a.mdb", 12}, {"a.mde", 12}, {"a.jpg", 11}, {"a.gif", 11}, {"a.bmp", 11}, {"a.avi", 10},
        {"a.mpg", 10}, {"a.vob", 10}, {"a.wav", 9},  {"a.mp3", 9},  {"a.ogg", 9},  {"a.wma", 9},
        {"a.htm", 8},  {"a.html", 8}, {"a.ttf", 7},  {"a.msi", 6},  {"a.zip", 5},  {"a.rar", 5},
        {"a.dll", 4},  {"a.ini", 4},  {"a.ocx", 4},  {"a.jpeg", 3}, {"a.", 3}};
    for (const auto& [name, image] : kinds)
        EXPECT_EQ(FileKindImage(name), image) << name;
}

TEST_F(Browser, RunWithoutFolderRowsShowsOnlyTheRoot) {
    CDatabase db;
    db.Connect(f.db);
    const int32_t bid = db.BackupRun(src);
    browser.cmbBackups_Click(std::to_string(bid));
    ASSERT_EQ(browser.NodeCount(), 1);
    EXPECT_EQ(browser.Node(0).key, src + Native("/"));
    EXPECT_EQ(browser.Node(0).text, src + Native("/"));
    EXPECT_TRUE(browser.Node(0).expanded);
    EXPECT_EQ(statuses, (Lines{"Populating tree: 0 folders", "Ready"}));
    EXPECT_TRUE(progress.empty());
}

TEST_F(Browser, FoldersComeInOnePassUnderTheirParentsWithTheirNamesShown) {
    BackUp({src});
    browser.cmbBackups_Click("1");
    EXPECT_EQ(statuses, (Lines{"Populating tree: 4 folders", "Ready"}));
    EXPECT_EQ(progress, (std::vector<int32_t>{25, 50, 75, 100}));
    // The root, and one node per folder; no file until a folder is opened.
    EXPECT_EQ(browser.NodeCount(), 4);
    EXPECT_EQ(ChildKeys(0), (Lines{Key("/Bob's/"), src + Native("/sub/")}));
    EXPECT_EQ(ChildKeys(Node("/sub/")), Lines{src + Native("/sub/deeper/")});
    const BrowserNode& bob = browser.Node(Node("/Bob's/"));
    EXPECT_EQ(bob.text, "Bob's");
    EXPECT_EQ(bob.image, 1);
    EXPECT_EQ(bob.selectedImage, 2);
    EXPECT_FALSE(bob.checked);
}

TEST_F(Browser, OpeningAFolderLoadsItsFilesOnceWithTheirPictures) {
    BackUp({src});
    browser.cmbBackups_Click("1");
    browser.NodeClick(0); // the root is open: this closes it
    EXPECT_FALSE(browser.Node(0).expanded);
    EXPECT_EQ(browser.Node(0).image, 1);
    browser.NodeClick(0); // and this opens it again, loading its files
    browser.NodeClick(0);
    browser.NodeClick(0);
    Lines children = ChildKeys(0);
    std::sort(children.begin() + 2, children.end()); // files come in the order they were met
    EXPECT_EQ(children, (Lines{Key("/Bob's/"), src + Native("/sub/"), src + Native("/REPORT.Txt"),
                               src + Native("/a.txt"), src + Native("/noext")}));
    EXPECT_EQ(browser.Node(Node("/REPORT.Txt")).image, 16);
    EXPECT_EQ(browser.Node(Node("/REPORT.Txt")).selectedImage, 16);
    EXPECT_EQ(browser.Node(Node("/noext")).image, 3);
    EXPECT_EQ(browser.Node(Node("/a.txt")).text, "a.txt");
    const Lines lines = LogMessages(ReadFile(log));
    EXPECT_EQ(std::count(lines.begin(), lines.end(), src + Native("/\r\n")), 4);
}

TEST_F(Browser, TickingAFolderNeverOpenedLoadsItsFilesAndTicksThemAll) {
    BackUp({src});
    browser.cmbBackups_Click("1");
    const int32_t sub = Node("/sub/");
    browser.NodeCheck(sub, true);
    EXPECT_EQ(ChildKeys(sub), (Lines{src + Native("/sub/deeper/"), src + Native("/sub/b.doc")}));
    EXPECT_EQ(Ticked(), (Lines{src + Native("/sub/"), src + Native("/sub/b.doc"),
                               src + Native("/sub/deeper/")}));
    // The expansion walk loads the ticked folder below, ticking its files as they come in.
    browser.LoadCheckedFolders(0);
    EXPECT_EQ(Ticked(), (Lines{src + Native("/sub/"), src + Native("/sub/b.doc"),
                               src + Native("/sub/deeper/"), src + Native("/sub/deeper/c.mp3")}));
    const Lines lines = LogMessages(ReadFile(log));
    EXPECT_NE(std::find(lines.begin(), lines.end(),
                        "checkboxclick " + src + Native("/sub/. Status: True\r\n")),
              lines.end());
}

TEST_F(Browser, UntickingAFileChangesNothingElse) {
    BackUp({src});
    browser.cmbBackups_Click("1");
    browser.NodeCheck(0, true);
    const Lines before = Ticked();
    browser.NodeCheck(Node("/a.txt"), false);
    Lines expected = before;
    expected.erase(std::find(expected.begin(), expected.end(), src + Native("/a.txt")));
    EXPECT_EQ(Ticked(), expected);
}

TEST_F(Browser, UntickingAFolderUnticksEverythingBelowIt) {
    BackUp({src});
    browser.cmbBackups_Click("1");
    browser.NodeCheck(0, true);
    browser.LoadCheckedFolders(0);
    browser.NodeCheck(Node("/sub/"), false);
    EXPECT_EQ(Ticked(),
              (Lines{src + Native("/"), Key("/Bob's/"), Key("/Bob's/x.zip"),
                     src + Native("/REPORT.Txt"), src + Native("/a.txt"), src + Native("/noext")}));
}

TEST_F(Browser, NothingTickedCopiesNothingAndTheLabelEndsAtRestoreComplete) {
    BackUp({src});
    browser.cmbBackups_Click("1");
    statuses.clear();
    const auto files = Tree(src);
    const Lines names = ListTree(f.env.Root());
    EXPECT_TRUE(browser.cmdRestore_Click(false));
    EXPECT_EQ(statuses, (Lines{"Calculating files to restore", "Restoring selected files",
                               "Restore complete"}));
    ASSERT_EQ(f.env.box.calls.size(), 1u);
    EXPECT_EQ(f.env.box.calls[0],
              (CScriptedMessageBox::Call{
                  "QRV will overwrite any existing files with the same name. Is this OK?", 33,
                  "QRV - Stashwell"}));
    EXPECT_EQ(Tree(src), files);
    EXPECT_EQ(ListTree(f.env.Root()), names);
}

TEST_F(Browser, DecliningTheOverwriteQuestionDoesNothing) {
    BackUp({src});
    browser.cmbBackups_Click("1");
    browser.NodeCheck(0, true);
    WriteFile(src + Native("/a.txt"), "changed");
    statuses.clear();
    f.env.box.Answer(2); // Cancel
    EXPECT_FALSE(browser.cmdRestore_Click(false));
    EXPECT_TRUE(statuses.empty());
    EXPECT_EQ(ReadFile(src + Native("/a.txt")), "changed");
}

TEST_F(Browser, RestoreToItsPlacePutsBackTickedFilesOnly) {
    BackUp({src});
    browser.cmbBackups_Click("1");
    browser.NodeCheck(Node("/Bob's/"), true);
    browser.NodeClick(0);
    browser.NodeClick(0); // the root's files are loaded
    browser.NodeCheck(Node("/a.txt"), true);
    WriteFile(src + Native("/a.txt"), "changed");
    WriteFile(src + Native("/Bob's/x.zip"), "changed too");
    WriteFile(src + Native("/REPORT.Txt"), "not ticked");
    EXPECT_TRUE(browser.cmdRestore_Click(true));
    EXPECT_EQ(ReadFile(src + Native("/a.txt")), "alpha");
    EXPECT_EQ(ReadFile(src + Native("/Bob's/x.zip")), "x-ray");
    EXPECT_EQ(ReadFile(src + Native("/REPORT.Txt")), "not ticked");
    EXPECT_EQ(progress.back(), 100);
    EXPECT_EQ(f.env.box.calls.size(), 1u); // the question only: both verified
}

TEST_F(Browser, RestoreToAnotherFolderKeepsThePathBelowTheSource) {
    BackUp({src});
    browser.cmbBackups_Click("1");
    browser.NodeCheck(Node("/sub/"), true); // deeper/ is never opened
    const std::string other = f.env.Path("other");
    CreateTree(other, Dir());
    f.env.picker.Answer(other);
    statuses.clear();
    EXPECT_TRUE(browser.cmdRestoreTo_Click(true));
    EXPECT_EQ(f.env.picker.prompts, Lines{"Select alternate folder to restore to"});
    EXPECT_TRUE(f.env.box.calls.empty()); // no overwrite question on this path
    EXPECT_EQ(statuses, (Lines{"Calculating files to restore", "Restoring selected files",
                               "Restore complete"}));
    EXPECT_EQ(Tree(other), (std::map<std::string, std::string>{
                               {other + Native("/sub/b.doc"), "bravo"},
                               {other + Native("/sub/deeper/c.mp3"), "charlie"}}));
}

TEST_F(Browser, CancelledFolderPickRestoresNothing) {
    BackUp({src});
    browser.cmbBackups_Click("1");
    browser.NodeCheck(0, true);
    statuses.clear();
    EXPECT_FALSE(browser.cmdRestoreTo_Click(false));
    EXPECT_TRUE(statuses.empty());
}

TEST_F(Browser, ApostropheFileComesBackUnderItsOwnName) {
    BackUp({src});
    browser.cmbBackups_Click("1");
    const int32_t bob = Node("/Bob's/");
    browser.NodeCheck(bob, true);
    EXPECT_EQ(ChildKeys(bob), Lines{Key("/Bob's/x.zip")});
    const std::string other = f.env.Path("other");
    CreateTree(other, Dir());
    f.env.picker.Answer(other);
    browser.cmdRestoreTo_Click(false);
    EXPECT_EQ(ReadFile(other + Native("/Bob's/x.zip")), "x-ray");
}

#ifdef _WIN32
TEST_F(Browser, ASourceWhosePathHoldsAnApostropheShowsAndRestoresItsFiles) {
    const std::string odd = f.env.Path("Bob's a");
    CreateTree(odd, Dir({{"q'r.txt", File("ONE")}, {"sub", Dir({{"s.txt", File("s")}})}}));
    BackUp({odd});
    browser.cmbBackups_Click("1");
    EXPECT_EQ(browser.Node(0).key, Encoded(odd + Native("/")));
    EXPECT_EQ(browser.Node(0).text, odd + Native("/"));
    EXPECT_EQ(ChildKeys(0), Lines{Encoded(odd + Native("/sub/"))});
    browser.NodeCheck(0, true);
    Lines texts;
    for (const int32_t child : browser.Node(0).children)
        texts.push_back(browser.Node(child).text);
    std::sort(texts.begin(), texts.end());
    EXPECT_EQ(texts, (Lines{"q'r.txt", "sub"}));
    const std::string other = f.env.Path("other");
    CreateTree(other, Dir());
    f.env.picker.Answer(other);
    EXPECT_TRUE(browser.cmdRestoreTo_Click(false));
    EXPECT_EQ(Tree(other),
              (std::map<std::string, std::string>{{other + Native("/q'r.txt"), "ONE"},
                                                  {other + Native("/sub/s.txt"), "s"}}));
    EXPECT_TRUE(f.env.box.calls.empty());
}
#else
// Names with a backslash, and catalogues written before names kept their backslashes: Linux's.
TEST_F(Browser, ASourceWhosePathHoldsAnApostropheAndABackslashShowsAndRestoresItsFiles) {
    const std::string odd = f.env.Path("Bob's a\\b");
    CreateTree(odd, Dir({{"q'r.txt", File("ONE")},
                         {"q\\r.txt", File("TWO")},
                         {"sub", Dir({{"s.txt", File("s")}})}}));
    BackUp({odd});
    browser.cmbBackups_Click("1");
    EXPECT_EQ(browser.Node(0).key, Encoded(odd + "/"));
    EXPECT_EQ(browser.Node(0).text, odd + "/");
    EXPECT_EQ(ChildKeys(0), Lines{Encoded(odd + "/sub/")});
    browser.NodeCheck(0, true);
    Lines texts;
    for (const int32_t child : browser.Node(0).children)
        texts.push_back(browser.Node(child).text);
    std::sort(texts.begin(), texts.end());
    EXPECT_EQ(texts, (Lines{"q'r.txt", "q\\r.txt", "sub"}));
    const std::string other = f.env.Path("other");
    CreateTree(other, Dir());
    f.env.picker.Answer(other);
    EXPECT_TRUE(browser.cmdRestoreTo_Click(false));
    EXPECT_EQ(Tree(other), (std::map<std::string, std::string>{{other + "/q'r.txt", "ONE"},
                                                               {other + "/q\\r.txt", "TWO"},
                                                               {other + "/sub/s.txt", "s"}}));
    EXPECT_TRUE(f.env.box.calls.empty());
}

TEST_F(Browser, ARunStoredBeforeTheBackslashEscapeKeepsItsTreeWhenItsSourcePathHoldsABackslash) {
    const std::string odd = f.env.Path("a\\b");
    CreateTree(odd, Dir({{"sub", Dir({{"s.txt", File("s")}})}}));
    BackUp({odd});
    StoreSourceBeforeEscape(f, odd);
    browser.cmbBackups_Click("1");
    EXPECT_EQ(browser.Node(0).key, odd + "/");
    EXPECT_EQ(ChildKeys(0), Lines{odd + "/sub/"});
    browser.NodeCheck(0, true);
    const std::string other = f.env.Path("other");
    CreateTree(other, Dir());
    f.env.picker.Answer(other);
    EXPECT_TRUE(browser.cmdRestoreTo_Click(false));
    EXPECT_EQ(ChildKeys(browser.Find(odd + "/sub/")), Lines{odd + "/sub/s.txt"});
    EXPECT_EQ(Tree(other), (std::map<std::string, std::string>{{other + "/sub/s.txt", "s"}}));
}

TEST_F(Browser, OfTwoRowsOfOnePlaceInAnOlderCatalogueTheFirstIsRestoredAndTheSecondRefused) {
    const std::string quotes = f.env.Path("quotes");
    CreateTree(quotes, QuoteNamesTree());
    BackUp({quotes});
    StoreQuoteNamesBeforeEscape(f, quotes, "1");
    browser.cmbBackups_Click("1");
    browser.NodeCheck(0, true);
    EXPECT_EQ(ChildKeys(0),
              (Lines{quotes + "/back\\slash.txt", quotes + "/it\\s.txt", quotes + "/q\\r.txt"}));
    const std::string other = f.env.Path("other");
    CreateTree(other, Dir());
    f.env.picker.Answer(other);
    EXPECT_TRUE(browser.cmdRestoreTo_Click(false));
    EXPECT_EQ(Tree(other), QuoteNamesBeforeEscapeBelow(other));
    const std::string text =
        "Failed to restore " + other + "/q'r.txt: another file of the run goes to the same place";
    EXPECT_EQ(f.env.box.calls,
              (std::vector<CScriptedMessageBox::Call>{
                  {"The following error has occurred in procedure: \r\nRestoreFile on line 0\r\n"
                   "Error (10005) " +
                       text + "\r\nCurrent Operation: " + text,
                   16, "Stashwell"}}));
    const Lines lines = LogMessages(ReadFile(log));
    EXPECT_EQ(std::count(lines.begin(), lines.end(), text + "\r\n"), 1);
}

#endif

TEST_F(Browser, EachFileFailingVerificationShowsItsOwnBox) {
    BackUp({src});
    for (const char* content : {"alpha", "bravo"})
        WriteFile(StoreFile(f.backup, content), std::string(5, '#'));
    browser.cmbBackups_Click("1");
    browser.NodeCheck(0, true);
    const std::string other = f.env.Path("other");
    CreateTree(other, Dir());
    f.env.picker.Answer(other);
    browser.cmdRestoreTo_Click(true);
    EXPECT_EQ(f.env.box.calls,
              (std::vector<CScriptedMessageBox::Call>{
                  {"Restored file failed verification " + src + Native("/sub/b.doc"), 16,
                   "QRV - Stashwell"},
                  {"Restored file failed verification " + src + Native("/a.txt"), 16,
                   "QRV - Stashwell"}}));
    EXPECT_EQ(ReadFile(other + Native("/a.txt")), "#####");
}

TEST_F(Browser, PopulateErrorIsShownAndTheTreeKeepsWhatItHad) {
    BackUp({src});
    browser.cmbBackups_Click("1");
    f.Exec("DROP TABLE Files;");
    ADOSQLite probe;
    probe.Connect(f.db);
    probe.Table("Files");
    probe.Where("bid = 1 AND path = '" + src + Native("/sub/'"));
    probe.Exec();
    ASSERT_TRUE(probe.Err());
    browser.NodeClick(Node("/sub/"));
    EXPECT_EQ(f.env.box.calls,
              (std::vector<CScriptedMessageBox::Call>{
                  {"PopulateNode error: " + probe.ErrMsg(), 16, "QRV - Stashwell"}}));
    EXPECT_EQ(browser.NodeCount(), 4);
}

TEST_F(Browser, OlderRunGivesTheOlderContent) {
    BackUp({src});
    WriteFile(src + Native("/a.txt"), "alpha, second version");
    BackUp({src});
    browser.cmbBackups_Click("1");
    browser.NodeCheck(0, true);
    f.env.box.Answer(1);
    browser.cmdRestore_Click(true);
    EXPECT_EQ(ReadFile(src + Native("/a.txt")), "alpha");
    browser.cmbBackups_Click("2");
    browser.NodeCheck(0, true);
    browser.cmdRestore_Click(true);
    EXPECT_EQ(ReadFile(src + Native("/a.txt")), "alpha, second version");
}

// What the tree shows of its nodes beyond their names, in the window's order.
struct BrowserColumns : Browser {
    std::string photos = f.env.Path("photos");
    static constexpr int64_t kWritten = 981'173'106'000'000'000; // 03/02/2001 04:05:06 UTC

    void SetUp() override {
        Browser::SetUp();
        CreateTree(photos, Dir({{"file10.txt", File("ten bytes!")},
                                {"file2.txt", File("two")},
                                {"File1.txt", File("one")},
                                {"zeta", Dir({{"a.jpg", File("jpeg a")}})},
                                {"Alpha", Dir({{"b.JPG", File("jpeg bb")},
                                               {"c.txt", File("c")},
                                               {"d.txt", File("dd")}})}}));
        ASSERT_EQ(SetWriteTime(photos + Native("/file2.txt"), kWritten + 123), 0);
        ASSERT_EQ(SetWriteTime(photos + Native("/Alpha"), kWritten), 0);
        BackUp({photos});
        browser.cmbBackups_Click("1");
        browser.PopulateNode(0);
    }
    int32_t At(const std::string& relative) const {
        const int32_t node = browser.Find(Encoded(photos + Native(relative)));
        EXPECT_NE(node, CBackupBrowser::kNone) << relative;
        return node;
    }
    Lines Names(int32_t node) const {
        Lines names;
        for (const int32_t child : browser.Children(node))
            names.push_back(browser.Node(child).text);
        return names;
    }
    Lines Row(int32_t node) const {
        Lines row;
        for (int column = 0; column < CBackupBrowser::kColumns; ++column)
            row.push_back(browser.ColumnText(node, column));
        return row;
    }
};

TEST_F(BrowserColumns, FoldersComeFirstThenFilesWithNumbersInNaturalOrder) {
    EXPECT_EQ(Names(0), (Lines{"Alpha", "zeta", "File1.txt", "file2.txt", "file10.txt"}));
    for (int32_t k = 0; k < 5; ++k)
        EXPECT_EQ(browser.Node(browser.Children(0)[static_cast<size_t>(k)]).row, k);
    browser.NodeClick(At("/Alpha/"));
    EXPECT_EQ(Names(At("/Alpha/")), (Lines{"b.JPG", "c.txt", "d.txt"}));
}

TEST_F(BrowserColumns, ColumnsShowNameSizeAndTheTimeTheRunKept) {
    EXPECT_STREQ(CBackupBrowser::ColumnTitle(0), "Name");
    EXPECT_STREQ(CBackupBrowser::ColumnTitle(1), "Size");
    EXPECT_STREQ(CBackupBrowser::ColumnTitle(2), "Modified");
    EXPECT_EQ(Row(At("/file2.txt")), (Lines{"file2.txt", "3 bytes", DateTimeText(981'173'106)}));
    EXPECT_EQ(Row(At("/file10.txt"))[1], "10 bytes");
    // A folder has no size; its time is the one the run kept.
    EXPECT_EQ(Row(At("/Alpha/")), (Lines{"Alpha", "", DateTimeText(981'173'106)}));
}

// A folder of many files has their times read from the record at once: each file still gets
// its own.
TEST_F(Browser, AFolderOfManyFilesShowsEachFilesOwnTime) {
    std::vector<std::pair<std::string, TestNode>> files;
    for (int i = 0; i < 300; ++i)
        files.push_back({"f" + std::to_string(i) + ".txt", File(std::to_string(i))});
    const std::string many = f.env.Path("many");
    CreateTree(many, Dir({{"big", Dir(files)}}));
    for (int i : {0, 150, 299})
        ASSERT_EQ(SetWriteTime(many + Native("/big/f" + std::to_string(i) + ".txt"),
                               (981'173'106 + i) * int64_t{1'000'000'000}),
                  0);
    BackUp({many});
    browser.cmbBackups_Click("1");
    const int32_t big = browser.Find(Encoded(many + Native("/big/")));
    ASSERT_NE(big, CBackupBrowser::kNone);
    browser.NodeClick(big);
    ASSERT_EQ(browser.Children(big).size(), 300u);
    EXPECT_EQ(browser.Node(browser.Children(big)[2]).text, "f2.txt"); // f0, f1, f2, ... f10
    for (int i : {0, 150, 299}) {
        const int32_t node =
            browser.Find(Encoded(many + Native("/big/f" + std::to_string(i) + ".txt")));
        ASSERT_NE(node, CBackupBrowser::kNone);
        EXPECT_EQ(browser.ColumnText(node, 2), DateTimeText(981'173'106 + i)) << i;
    }
}

TEST_F(BrowserColumns, ARunWithoutItsMetadataRecordShowsTheRunsDate) {
    std::filesystem::remove(CMetadataDB::PathBeside(f.db));
    browser.cmbBackups_Click("1");
    browser.PopulateNode(0);
    // The catalogue keeps no file's date: the run's stands for it.
    EXPECT_EQ(f.Rows("SELECT filedate FROM Files WHERE file LIKE '%file2.txt'"), Lines{""});
    const Lines datebk = f.Rows("SELECT datebk FROM Backups WHERE bid = 1");
    ASSERT_EQ(datebk.size(), 1u);
    EXPECT_EQ(Row(At("/file2.txt")), (Lines{"file2.txt", "3 bytes", datebk[0]}));
    EXPECT_EQ(Row(At("/Alpha/")), (Lines{"Alpha", "", datebk[0]}));
}

TEST_F(BrowserColumns, AFolderOfWhichOneOfThreeFilesIsTickedShowsAPartialTick) {
    const int32_t alpha = At("/Alpha/");
    browser.NodeClick(alpha);
    EXPECT_EQ(browser.Ticks(alpha), TickState::kUnticked);
    browser.NodeCheck(At("/Alpha/c.txt"), true);
    EXPECT_EQ(browser.Ticks(alpha), TickState::kPartly);
    EXPECT_EQ(browser.Ticks(0), TickState::kPartly);
    EXPECT_EQ(browser.Ticks(At("/Alpha/c.txt")), TickState::kTicked);
    EXPECT_EQ(browser.Ticks(At("/Alpha/d.txt")), TickState::kUnticked);
    // Ticking it ticks all below it.
    browser.NodeCheck(alpha, true);
    EXPECT_EQ(browser.Ticks(alpha), TickState::kTicked);
    // Unticking one file leaves the folder's own tick, shown partly.
    browser.NodeCheck(At("/Alpha/b.JPG"), false);
    EXPECT_TRUE(browser.Node(alpha).checked);
    EXPECT_EQ(browser.Ticks(alpha), TickState::kPartly);
    browser.NodeCheck(alpha, false);
    EXPECT_EQ(browser.Ticks(alpha), TickState::kUnticked);
    EXPECT_EQ(browser.Ticks(0), TickState::kUnticked);
}

TEST_F(BrowserColumns, TheTotalsOfWhatIsTickedCountFoldersNotOpenedYet) {
    int selections = 0;
    browser.OnSelection = [&] { ++selections; };
    EXPECT_EQ(browser.SelectionText(), "No files selected");
    browser.NodeCheck(At("/file10.txt"), true);
    EXPECT_EQ(browser.SelectionText(), "1 file, 10 bytes selected");
    EXPECT_GT(selections, 0);
    // zeta's file is not loaded: the catalogue counts it.
    browser.NodeCheck(At("/zeta/"), true);
    EXPECT_EQ(browser.SelectionText(), "2 files, 16 bytes selected");
    browser.NodeCheck(0, true);
    EXPECT_EQ(browser.SelectionText(), "7 files, 32 bytes selected");
    browser.LoadCheckedFolders(0);
    EXPECT_EQ(browser.SelectionText(), "7 files, 32 bytes selected");
    EXPECT_EQ(browser.TickedFiles(), 7);
    EXPECT_EQ(browser.TickedBytes(), 32);
    browser.NodeCheck(At("/Alpha/"), false);
    EXPECT_EQ(browser.SelectionText(), "4 files, 22 bytes selected");
    browser.NodeCheck(0, false);
    EXPECT_EQ(browser.SelectionText(), "No files selected");
}

TEST_F(BrowserColumns, ASearchShowsTheMatchesWithTheirFoldersOpenedAndClearingShowsAll) {
    browser.Search("*.jpg");
    EXPECT_EQ(browser.SearchText(), "2 files match");
    EXPECT_EQ(Names(0), (Lines{"Alpha", "zeta"}));
    EXPECT_EQ(Names(At("/Alpha/")), Lines{"b.JPG"});
    EXPECT_EQ(Names(At("/zeta/")), Lines{"a.jpg"});
    EXPECT_TRUE(browser.Node(At("/zeta/")).expanded);
    EXPECT_EQ(browser.Node(At("/zeta/a.jpg")).row, 0);
    EXPECT_TRUE(browser.Node(At("/Alpha/c.txt")).hidden);

    browser.Search("FILE1");
    EXPECT_EQ(browser.SearchText(), "2 files match"); // File1.txt and file10.txt
    EXPECT_EQ(Names(0), (Lines{"File1.txt", "file10.txt"}));

    browser.Search("no such name");
    EXPECT_EQ(browser.SearchText(), "No file of this run matches");
    EXPECT_EQ(Names(0), Lines{});

    browser.Search("");
    EXPECT_EQ(browser.SearchText(), "");
    EXPECT_EQ(Names(0), (Lines{"Alpha", "zeta", "File1.txt", "file2.txt", "file10.txt"}));
    EXPECT_EQ(Names(At("/Alpha/")), (Lines{"b.JPG", "c.txt", "d.txt"}));
    EXPECT_EQ(browser.Node(At("/Alpha/d.txt")).row, 2);
    EXPECT_FALSE(browser.Node(At("/Alpha/c.txt")).hidden);
}

TEST_F(BrowserColumns, WhatIsTickedInASearchIsRestoredWithWhatWasTickedBefore) {
    browser.NodeCheck(At("/file2.txt"), true);
    browser.Search("a.jpg");
    browser.NodeCheck(At("/zeta/a.jpg"), true);
    EXPECT_EQ(browser.SelectionText(), "2 files, 9 bytes selected");
    const std::string elsewhere = f.env.Path("elsewhere");
    CreateTree(elsewhere, Dir());
    f.env.picker.Answer(elsewhere);
    ASSERT_TRUE(browser.cmdRestoreTo_Click(true));
    EXPECT_EQ(ReadFile(elsewhere + Native("/file2.txt")), "two");
    EXPECT_EQ(ReadFile(elsewhere + Native("/zeta/a.jpg")), "jpeg a");
    EXPECT_FALSE(Exists(elsewhere + Native("/file10.txt")));
}

TEST_F(Browser, RunListGroupsRunsBySourceNewestFirst) {
    const std::string other = f.env.Path("another");
    CreateTree(other, Dir({{"o.txt", File("o")}}));
    BackUp({src, other});
    BackUp({src});
    const std::vector<SourceRuns> runs = ListBackupRuns();
    ASSERT_EQ(runs.size(), 2u);
    EXPECT_EQ(runs[0].source, other);
    ASSERT_EQ(runs[0].runs.size(), 1u);
    EXPECT_EQ(runs[0].runs[0].bid, "2");
    EXPECT_EQ(runs[1].source, src);
    ASSERT_EQ(runs[1].runs.size(), 2u);
    EXPECT_EQ(runs[1].runs[0].bid, "3");
    EXPECT_EQ(runs[1].runs[1].bid, "1");
    EXPECT_EQ(runs[1].runs[0].datebk, f.Rows("SELECT datebk FROM Backups WHERE bid = 3")[0]);
    EXPECT_EQ(RunKey("3"), "a3");
    EXPECT_EQ(BidOfRunKey("a3"), "3");
    EXPECT_EQ(BidOfRunKey(src), "");
}

TEST_F(Browser, RunListOfAMissingTableSaysSo) {
    f.Exec("DROP TABLE Backups;");
    ADOSQLite probe;
    probe.Connect(f.db);
    probe.Table("Backups");
    probe.Sort("source");
    probe.Exec();
    ASSERT_TRUE(probe.Err());
    EXPECT_TRUE(ListBackupRuns().empty());
    EXPECT_EQ(f.env.box.calls, (std::vector<CScriptedMessageBox::Call>{
                                   {"frmSelBackup Error: Form_Load," + probe.ErrMsg(), 16, ""}}));
}

} // namespace
