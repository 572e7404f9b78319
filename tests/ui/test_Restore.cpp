// The restore tab of the real main window, driven as a person would: a run chosen in
// frmSelBackup, folders opened and ticked in tvDirs with the mouse and the keyboard, Restore
// and Restore to with every question and folder pick answered from a script, and the files that
// come back compared byte for byte, also of names that differ only by an apostrophe and a
// backslash, and of a catalogue that holds two rows of one place.

#include "QuoteNames.h"
#include "WindowTest.h"

#include "app/CBackupBrowser.h"
#include "catalogue/CDatabase.h"
#include "controls/XP_ProgressBar.h"
#include "support/modServices.h"
#include "ui/modFileIcons.h"

#include <QCheckBox>
#include <QLabel>
#include <QListWidget>
#include <QTreeView>

#include <cstring>
#include <map>

namespace {

using Files = std::map<std::string, std::string>;

// Every file below `root`, with its content.
Files Tree(const std::string& root) {
    Files tree;
    for (const std::string& path : WalkOrder(root))
        tree[path] = ReadFile(path);
    return tree;
}

// What a restore of `relative` paths below `source` writes below `root`: the same names and
// bytes.
Files Expected(const Files& source, const std::string& sourceRoot, const std::string& root,
               const std::vector<std::string>& relative) {
    Files expected;
    for (const std::string& path : relative)
        expected[root + path] = source.at(sourceRoot + path);
    return expected;
}

// The error box of a file that the restore refused, as the error handler shows it.
QString RefusalBox(const std::string& text) {
    return Q("The following error has occurred in procedure: \r\nRestoreFile on line 0\r\n"
             "Error (10005) " +
             text + "\r\nCurrent Operation: " + text) +
           " | 16 | Stashwell";
}

QImage Picture(const QModelIndex& index) {
    return index.data(Qt::DecorationRole).value<QIcon>().pixmap(16).toImage();
}

} // namespace

class RestoreTabTest : public QObject {
    Q_OBJECT

private slots:
    void TheRoundTripAPersonMakes() {
        WindowEnv w;
        const std::string src = w.env.Path("Documents");
        w.OpenAfterOneRun(
            src, Dir({{"big.bin", File(PatternContent(20 * 1024 * 1024))},
                      {"top.txt", File("top")},
                      {"nested", Dir({{"Bob's file.txt", File("apostrophe")},
                                      {"back\\slash.txt", File("backslash")},
                                      {"with blank.txt", File("blank")},
                                      {"new\nline.txt", File("newline")},
                                      {"bad\xff\xfe.bin", File("not UTF-8")},
                                      {"empty.dat", File("")},
                                      {"dup.txt", File("top")},
                                      {"deeper", Dir({{"d.txt", File(PatternContent(9000))}})}})},
                      {"other", Dir({{"o1.txt", File("one")}, {"o2.txt", File("two")}})}}));
        const Files original = Tree(src);
        // Every file but the empty one, which a run never stores.
        QCOMPARE(Rows(w.f, "SELECT count(*) FROM Files WHERE bid = 1"), QStringList{"11"});
        // Content stored once: "top" twice, one store file.
        QCOMPARE(Rows(w.f, "SELECT count(DISTINCT md5) FROM Files"), QStringList{"10"});

        w.ShowTab(1);
        QVERIFY(!w.Get<QPushButton>("cmdRestore")->isEnabled());
        QVERIFY(ChooseRun(w, "1"));
        QCOMPARE(w.Get<QLabel>("lblBid")->text(), QStringLiteral("1"));
        QCOMPARE(w.Get<QLabel>("lblRestore")->text(), QStringLiteral("Ready"));
        QCOMPARE(w.Get<XP_ProgressBar>("XP_PB2")->Value(), 100);
        QVERIFY(w.Get<QPushButton>("cmdRestore")->isEnabled());
        // The folder never opened is ticked with the mouse on its box.
        const QModelIndex nested = NodeIndex(w, src + "/nested/");
        QCOMPARE(nested.data().toString(), QStringLiteral("nested"));
        QCOMPARE(w.Get<QTreeView>("tvDirs")->model()->rowCount(nested), 1); // deeper/ only
        ClickCheckBox(w, nested);
        QVERIFY(Ticked(nested));
        // A file at the top, shown since the root is open, ticked with the keyboard.
        TickWithSpace(w, NodeIndex(w, src + "/big.bin"));
        // A file in another folder: the folder opened with a click, then its file ticked.
        ClickNode(w, NodeIndex(w, src + "/other/"));
        TickWithSpace(w, NodeIndex(w, src + "/other/o1.txt"));
        QVERIFY(!Ticked(NodeIndex(w, src + "/other/o2.txt")));
        QVERIFY(!Ticked(NodeIndex(w, src + "/other/")));
        // A name that is not UTF-8 is shown decoded and kept as its bytes.
        const QModelIndex bad = NodeIndex(w, src + "/nested/bad\xff\xfe.bin");
        QVERIFY(bad.isValid());
        QCOMPARE(bad.data().toString(), QFile::decodeName("bad\xff\xfe.bin"));

        const std::string elsewhere = w.env.Path("Elsewhere");
        CreateTree(elsewhere, Dir());
        w.env.picker.Answer(elsewhere);
        w.Click("cmdRestoreTo");
        QCOMPARE(Q(w.env.picker.prompts), QStringList{"Select alternate folder to restore to"});
        QCOMPARE(w.Get<QLabel>("lblRestore")->text(), QStringLiteral("Restore complete"));
        QCOMPARE(w.Get<XP_ProgressBar>("XP_PB2")->Value(), 100);
        QCOMPARE(Boxes(w.env.box.calls), QStringList{});
        const std::vector<std::string> restored = {
            "/big.bin", "/other/o1.txt", "/nested/Bob's file.txt", "/nested/back\\slash.txt",
            "/nested/with blank.txt", "/nested/new\nline.txt", "/nested/bad\xff\xfe.bin",
            "/nested/dup.txt", "/nested/deeper/d.txt",
            // made again, as the ticked folder held it
            "/nested/empty.dat"};
        QVERIFY(Tree(elsewhere) == Expected(original, src, elsewhere, restored));

        // Back to their place, over changed files, after the overwrite question.
        WriteFile(src + "/other/o1.txt", "changed");
        WriteFile(src + "/nested/dup.txt", "changed too");
        w.env.box.Answer(1);
        w.Click("cmdRestore");
        QCOMPARE(Boxes(w.env.box.calls),
                 QStringList{Box("QRV will overwrite any existing files with the same name. "
                                 "Is this OK?",
                                 33)});
        QCOMPARE(ReadFile(src + "/other/o1.txt"), std::string("one"));
        QCOMPARE(ReadFile(src + "/nested/dup.txt"), std::string("top"));
        QCOMPARE(ReadFile(src + "/nested/back\\slash.txt"), std::string("backslash"));
        QVERIFY(!Exists(src + "/nested/back'slash.txt"));
    }

    void NamesThatDifferOnlyByAnApostropheAndABackslashComeBackApart() {
        WindowEnv w;
        const std::string src = w.env.Path("quotes");
        w.OpenAfterOneRun(src, QuoteNamesTree());
        w.ShowTab(1);
        QVERIFY(ChooseRun(w, "1"));
        ClickCheckBox(w, NodeIndex(w, src + "/"));
        QCOMPARE(NodeIndex(w, src + "/q\\r.txt").data().toString(), QStringLiteral("q'r.txt"));
        QCOMPARE(NodeIndex(w, src + "/q\001br.txt").data().toString(), QStringLiteral("q\\r.txt"));

        const std::string elsewhere = w.env.Path("Elsewhere");
        CreateTree(elsewhere, Dir());
        w.env.picker.Answer(elsewhere);
        w.Click("cmdRestoreTo");
        QCOMPARE(Q(w.env.picker.prompts), QStringList{"Select alternate folder to restore to"});
        QCOMPARE(Boxes(w.env.box.calls), QStringList{});
        QVERIFY(Tree(elsewhere) == QuoteNamesBelow(elsewhere));

        for (const auto& [path, content] : QuoteNamesBelow(src))
            WriteFile(path, "changed");
        w.env.box.Answer(1);
        w.Click("cmdRestore");
        QCOMPARE(Boxes(w.env.box.calls),
                 QStringList{Box("QRV will overwrite any existing files with the same name. "
                                 "Is this OK?",
                                 33)});
        QVERIFY(Tree(src) == QuoteNamesBelow(src));
        QCOMPARE(w.Get<QLabel>("lblRestore")->text(), QStringLiteral("Restore complete"));
    }

    void OfTwoRowsOfOnePlaceInAnOlderCatalogueTheFirstIsRestoredAndTheSecondRefused() {
        WindowEnv w;
        const std::string src = w.env.Path("quotes");
        w.OpenAfterOneRun(src, QuoteNamesTree());
        StoreQuoteNamesBeforeEscape(w.f, src, "1");
        w.ShowTab(1);
        QVERIFY(ChooseRun(w, "1"));
        ClickCheckBox(w, NodeIndex(w, src + "/"));
        const std::string samePlace = ": another file of the run goes to the same place";

        const std::string elsewhere = w.env.Path("Elsewhere");
        CreateTree(elsewhere, Dir());
        w.env.picker.Answer(elsewhere);
        w.Click("cmdRestoreTo");
        QCOMPARE(Boxes(w.env.box.calls), QStringList{RefusalBox("Failed to restore " + elsewhere +
                                                                "/q'r.txt" + samePlace)});
        QVERIFY(Tree(elsewhere) == QuoteNamesBeforeEscapeBelow(elsewhere));
        QCOMPARE(w.Get<QLabel>("lblRestore")->text(), QStringLiteral("Restore complete"));

        // Back to its place, over a changed file: the first row's content, and the same refusal.
        WriteFile(src + "/q'r.txt", "changed");
        w.env.box.calls.clear();
        w.env.box.Answer(1);
        w.Click("cmdRestore");
        QCOMPARE(Boxes(w.env.box.calls),
                 (QStringList{Box("QRV will overwrite any existing files with the same name. "
                                  "Is this OK?",
                                  33),
                              RefusalBox("Failed to restore " + src + "/q'r.txt" + samePlace)}));
        QCOMPARE(ReadFile(src + "/q'r.txt"), std::string("ONE"));
        QCOMPARE(ReadFile(src + "/q\\r.txt"), std::string("TWO")); // never written
    }

    void OlderRunGivesTheOlderContent() {
        WindowEnv w;
        const std::string src = w.env.Path("s");
        w.OpenAfterOneRun(src, Dir({{"a.txt", File("first")}}));
        WriteFile(src + "/a.txt", "second, and longer");
        w.BackUp();
        w.ShowTab(1);
        QVERIFY(ChooseRun(w, "1"));
        TickWithSpace(w, NodeIndex(w, src + "/a.txt"));
        const std::string elsewhere = w.env.Path("old");
        CreateTree(elsewhere, Dir());
        w.env.picker.Answer(elsewhere);
        w.Click("cmdRestoreTo");
        QCOMPARE(ReadFile(elsewhere + "/a.txt"), std::string("first"));
        QVERIFY(ChooseRun(w, "2"));
        QCOMPARE(w.Get<QLabel>("lblBid")->text(), QStringLiteral("2"));
        QVERIFY(!Ticked(NodeIndex(w, src + "/a.txt"))); // a new tree
        TickWithSpace(w, NodeIndex(w, src + "/a.txt"));
        w.env.picker.Answer(elsewhere);
        w.Click("cmdRestoreTo");
        QCOMPARE(ReadFile(elsewhere + "/a.txt"), std::string("second, and longer"));
    }

    void RunListIsGroupedBySourceNewestFirstAndCancelChangesNothing() {
        WindowEnv w;
        const std::string one = w.env.Path("one"), two = w.env.Path("two");
        CreateTree(one, Dir({{"a.txt", File("a")}}));
        CreateTree(two, Dir({{"b.txt", File("b")}}));
        w.f.AddSource(one);
        w.f.AddSource(two);
        frmMain& window = w.Open();
        window.Form_Load();
        w.BackUp();
        w.BackUp();
        w.ShowTab(1);
        QStringList shown;
        WhenModal("frmSelBackup", [&](QWidget* dialog) {
            auto* runs = dialog->findChild<QTreeWidget*>("tvBackups");
            for (int top = 0; top < runs->topLevelItemCount(); ++top) {
                QTreeWidgetItem* source = runs->topLevelItem(top);
                shown << source->text(0) + (source->isExpanded() ? " (open)" : "");
                for (int run = 0; run < source->childCount(); ++run)
                    shown << "  " + source->child(run)->data(0, Qt::UserRole).toString();
            }
            QVERIFY(!dialog->findChild<QPushButton*>("OKButton")->isEnabled());
            QTest::mouseClick(dialog->findChild<QPushButton*>("CancelButton"), Qt::LeftButton);
        });
        w.Click("cmdSelBackup");
        QCOMPARE(shown, (QStringList{Q(one) + " (open)", "  a3", "  a1", Q(two) + " (open)", "  a4",
                                     "  a2"}));
        QCOMPARE(w.Get<QLabel>("lblBid")->text(), QString());
        QCOMPARE(w.Get<QTreeView>("tvDirs")->model()->rowCount(), 0);
        QVERIFY(!w.Get<QPushButton>("cmdRestoreTo")->isEnabled());
    }

    void RunWithoutFolderRowsShowsOnlyTheRoot() {
        WindowEnv w;
        CDatabase db;
        db.Connect(w.f.db);
        db.BackupRun("/gone/source");
        frmMain& window = w.Open();
        window.Form_Load();
        w.ShowTab(1);
        QVERIFY(ChooseRun(w, "1"));
        QAbstractItemModel* model = w.Get<QTreeView>("tvDirs")->model();
        QCOMPARE(model->rowCount(), 1);
        QCOMPARE(model->index(0, 0).data().toString(), QStringLiteral("/gone/source/"));
        QCOMPARE(model->rowCount(model->index(0, 0)), 0);
        QCOMPARE(w.Get<QLabel>("lblRestore")->text(), QStringLiteral("Ready"));
    }

    void FileKindsShowTheirPictures() {
        WindowEnv w;
        const std::string src = w.env.Path("s");
        w.OpenAfterOneRun(src, Dir({{"REPORT.Txt", File("r")},
                                    {"noext", File("n")},
                                    {"song.MP3", File("m")},
                                    {"d", Dir({{"x.zip", File("z")}})}}));
        w.ShowTab(1);
        QVERIFY(ChooseRun(w, "1"));
        QCOMPARE(Picture(NodeIndex(w, src + "/REPORT.Txt")), FileKindIcon(16).pixmap(16).toImage());
        QCOMPARE(Picture(NodeIndex(w, src + "/noext")), FileKindIcon(3).pixmap(16).toImage());
        QCOMPARE(Picture(NodeIndex(w, src + "/song.MP3")), FileKindIcon(9).pixmap(16).toImage());
        QCOMPARE(Picture(NodeIndex(w, src + "/d/")), FileKindIcon(1).pixmap(16).toImage());
        QVERIFY(Picture(NodeIndex(w, src + "/REPORT.Txt")) !=
                Picture(NodeIndex(w, src + "/noext")));
    }

    void EveryKindHasItsOwnDrawnPicture() {
        QList<QImage> pictures;
        for (int image = 1; image <= 16; ++image) {
            const QImage picture = DrawnFileKindIcon(image).pixmap(32).toImage();
            for (int other = 0; other < pictures.size(); ++other)
                QVERIFY2(
                    picture != pictures[other],
                    qPrintable(
                        QStringLiteral("image %1 looks like image %2").arg(image).arg(other + 1)));
            pictures << picture;
        }
    }

    void TickingAFolderNeverOpenedLoadsItsFilesAndTicksThemAll() {
        WindowEnv w;
        const std::string src = w.env.Path("s");
        w.OpenAfterOneRun(src, Dir({{"d", Dir({{"a.txt", File("a")},
                                               {"b.txt", File("b")},
                                               {"e", Dir({{"c.txt", File("c")}})}})}}));
        w.ShowTab(1);
        QVERIFY(ChooseRun(w, "1"));
        const QModelIndex d = NodeIndex(w, src + "/d/");
        QAbstractItemModel* model = w.Get<QTreeView>("tvDirs")->model();
        QCOMPARE(model->rowCount(d), 1);
        ClickCheckBox(w, d);
        QCOMPARE(model->rowCount(d), 3);
        for (const char* key : {"/d/a.txt", "/d/b.txt", "/d/e/"})
            QVERIFY2(Ticked(NodeIndex(w, src + key)), key);
        // Unticking one file changes no other tick; the folder, still ticked itself, shows
        // that not all of it is.
        TickWithSpace(w, NodeIndex(w, src + "/d/a.txt"));
        QVERIFY(!Ticked(NodeIndex(w, src + "/d/a.txt")));
        for (const char* key : {"/d/b.txt", "/d/e/"})
            QVERIFY2(Ticked(NodeIndex(w, src + key)), key);
        QCOMPARE(NodeIndex(w, src + "/d/").data(Qt::CheckStateRole).toInt(),
                 int(Qt::PartiallyChecked));
        // The sub-folder never opened still comes back whole.
        const std::string elsewhere = w.env.Path("x");
        CreateTree(elsewhere, Dir());
        w.env.picker.Answer(elsewhere);
        w.Click("cmdRestoreTo");
        QVERIFY(Tree(elsewhere) ==
                (Files{{elsewhere + "/d/b.txt", "b"}, {elsewhere + "/d/e/c.txt", "c"}}));
    }

    void ClickingAFolderOpensItAndClosesIt() {
        WindowEnv w;
        const std::string src = w.env.Path("s");
        frmMain& window = w.OpenAfterOneRun(src, Dir({{"d", Dir({{"a.txt", File("a")}})}}));
        w.ShowTab(1);
        QVERIFY(ChooseRun(w, "1"));
        auto* tree = w.Get<QTreeView>("tvDirs");
        const QModelIndex d = NodeIndex(w, src + "/d/");
        ClickNode(w, d);
        QVERIFY(tree->isExpanded(d));
        QCOMPARE(tree->model()->rowCount(d), 1);
        ClickNode(w, d);
        QVERIFY(!tree->isExpanded(d));
        ClickNode(w, d); // opened again: no second copy of its file
        QCOMPARE(tree->model()->rowCount(d), 1);
        // The arrow key opens and closes it as well.
        tree->setCurrentIndex(d);
        QTest::keyClick(tree, Qt::Key_Left);
        QVERIFY(!window.Browser().Node(window.Browser().Find(src + "/d/")).expanded);
        QTest::keyClick(tree, Qt::Key_Right);
        QVERIFY(window.Browser().Node(window.Browser().Find(src + "/d/")).expanded);
    }

    void NothingTickedRestoresNothingAndEndsAtRestoreComplete() {
        WindowEnv w;
        const std::string src = w.env.Path("s");
        w.OpenAfterOneRun(src, Dir({{"a.txt", File("a")}}));
        WriteFile(src + "/a.txt", "changed");
        w.ShowTab(1);
        QVERIFY(ChooseRun(w, "1"));
        w.Click("cmdRestore");
        QCOMPARE(w.Get<QLabel>("lblRestore")->text(), QStringLiteral("Restore complete"));
        QCOMPARE(ReadFile(src + "/a.txt"), std::string("changed"));
        // Cancel on the question: nothing at all.
        w.Get<QLabel>("lblRestore")->setText("-");
        w.env.box.Answer(2);
        TickWithSpace(w, NodeIndex(w, src + "/a.txt"));
        w.Click("cmdRestore");
        QCOMPARE(w.Get<QLabel>("lblRestore")->text(), QStringLiteral("-"));
        QCOMPARE(ReadFile(src + "/a.txt"), std::string("changed"));
    }

    void EachFileFailingVerificationShowsItsOwnBox() {
        WindowEnv w;
        const std::string src = w.env.Path("s");
        CreateTree(
            src,
            Dir({{"a.txt", File("alpha")}, {"b.txt", File("bravo")}, {"c.txt", File("charlie")}}));
        w.f.AddSource(src);
        frmMain& window = w.Open();
        window.Form_Load();
        w.BackUp();
        for (const char* content : {"alpha", "charlie"})
            WriteFile(StoreFile(w.f.backup, content), std::string(std::strlen(content), '#'));
        w.ShowTab(2);
        Tick(w.Get<QCheckBox>("chkRestore"));
        w.ShowTab(1);
        QVERIFY(ChooseRun(w, "1"));
        ClickCheckBox(w, NodeIndex(w, src + "/"));
        const std::string elsewhere = w.env.Path("x");
        CreateTree(elsewhere, Dir());
        w.env.picker.Answer(elsewhere);
        w.Click("cmdRestoreTo");
        QStringList boxes = Boxes(w.env.box.calls);
        boxes.sort();
        QCOMPARE(boxes,
                 (QStringList{Box("Restored file failed verification " + src + "/a.txt", 16),
                              Box("Restored file failed verification " + src + "/c.txt", 16)}));
        QCOMPARE(ReadFile(elsewhere + "/a.txt"), std::string("#####"));
        QCOMPARE(ReadFile(elsewhere + "/b.txt"), std::string("bravo"));
    }

    void DuringARestoreTheOtherTabsAndTheTreeWait() {
        WindowEnv w;
        const std::string src = w.env.Path("s");
        w.OpenAfterOneRun(src, Dir({{"a.txt", File("a")}, {"b.txt", File("b")}}));
        w.ShowTab(1);
        QVERIFY(ChooseRun(w, "1"));
        ClickCheckBox(w, NodeIndex(w, src + "/"));
        // A file that fails verification shows a box while the restore runs.
        WriteFile(StoreFile(w.f.backup, "a"), "#");
        w.ShowTab(2);
        Tick(w.Get<QCheckBox>("chkRestore"));
        w.ShowTab(1);
        QStringList during;
        w.env.box.onShow = [&](const CScriptedMessageBox::Call&) {
            auto* tabs = w.Get<QTabWidget>("SSTab1");
            during << QString::number(tabs->isTabEnabled(0)) +
                          QString::number(tabs->isTabEnabled(2)) +
                          QString::number(w.Get<QTreeView>("tvDirs")->isEnabled()) +
                          QString::number(w.Get<QPushButton>("cmdRestoreTo")->isEnabled()) +
                          QString::number(w.Get<QPushButton>("cmdSelBackup")->isEnabled());
        };
        const std::string elsewhere = w.env.Path("x");
        CreateTree(elsewhere, Dir());
        w.env.picker.Answer(elsewhere);
        w.Click("cmdRestoreTo");
        QCOMPARE(during, QStringList{"00000"});
        auto* tabs = w.Get<QTabWidget>("SSTab1");
        QVERIFY(tabs->isTabEnabled(0) && tabs->isTabEnabled(2));
        QVERIFY(w.Get<QTreeView>("tvDirs")->isEnabled());
        QVERIFY(w.Get<QPushButton>("cmdRestoreTo")->isEnabled());
    }
};

QTEST_MAIN(RestoreTabTest)
#include "test_Restore.moc"
