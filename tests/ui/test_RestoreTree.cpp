// The restore tab's tree as a person reads it, in the real main window: the columns Name, Size
// and Modified, folders first and names in natural order, a folder's partial tick after one of
// its three files is ticked with the mouse, the totals of what is ticked under the tree, and a
// search typed into the box above it.

#include "WindowTest.h"

#include "platform/modFileSystem.h"
#include "support/modDateText.h"

#include <QLabel>
#include <QLineEdit>
#include <QTreeView>

namespace {

QStringList Names(WindowEnv& w, const QModelIndex& parent) {
    QAbstractItemModel* model = w.Get<QTreeView>("tvDirs")->model();
    QStringList names;
    for (int row = 0; row < model->rowCount(parent); ++row)
        names << model->index(row, 0, parent).data().toString();
    return names;
}

// The texts of a node's row, column by column.
QStringList Row(const QModelIndex& index) {
    QStringList row;
    for (int column = 0; column < index.model()->columnCount(index.parent()); ++column)
        row << index.siblingAtColumn(column).data().toString();
    return row;
}

int Tick(const QModelIndex& index) {
    return index.data(Qt::CheckStateRole).toInt();
}

// Types `text` into the search box as a person does, after emptying it, and waits for the
// tree to follow once the typing pauses.
void TypeSearch(WindowEnv& w, const QString& text) {
    auto* box = w.Get<QLineEdit>("txtSearch");
    box->setFocus();
    QTest::keyClick(box, Qt::Key_A, Qt::ControlModifier);
    QTest::keyClick(box, Qt::Key_Delete);
    QTest::keyClicks(box, text);
}

} // namespace

class RestoreTreeTest : public QObject {
    Q_OBJECT

    static constexpr int64_t kWritten = 981'173'106'000'000'000;

    std::string Open(WindowEnv& w) {
        const std::string src = w.env.Path("photos");
        CreateTree(src, Dir({{"file10.txt", File("ten bytes!")},
                             {"file2.txt", File("two")},
                             {"File1.txt", File("one")},
                             {"zeta", Dir({{"a.jpg", File("jpeg a")}})},
                             {"Alpha", Dir({{"b.JPG", File("jpeg bb")},
                                            {"c.txt", File("c")},
                                            {"d.txt", File("dd")}})}}));
        if (SetWriteTime(src + "/file2.txt", kWritten) != 0) qFatal("no time set");
        w.f.AddSource(src);
        w.Open().Form_Load();
        w.BackUp();
        w.ShowTab(1);
        if (!ChooseRun(w, "1")) qFatal("no run chosen");
        return src;
    }

private slots:
    void ColumnsShowSizesAndTimesWithFoldersFirstInNaturalOrder() {
        WindowEnv w;
        const std::string src = Open(w);
        QAbstractItemModel* model = w.Get<QTreeView>("tvDirs")->model();
        QCOMPARE(model->columnCount(), 3);
        QStringList titles;
        for (int column = 0; column < 3; ++column)
            titles << model->headerData(column, Qt::Horizontal).toString();
        QCOMPARE(titles, (QStringList{"Name", "Size", "Modified"}));
        QVERIFY(!w.Get<QTreeView>("tvDirs")->isHeaderHidden());
        const QModelIndex root = model->index(0, 0);
        QCOMPARE(Names(w, root),
                 (QStringList{"Alpha", "zeta", "File1.txt", "file2.txt", "file10.txt"}));
        QCOMPARE(Row(NodeIndex(w, src + "/file2.txt")),
                 (QStringList{"file2.txt", "3 bytes", Q(DateTimeText(981'173'106))}));
        QCOMPARE(Row(NodeIndex(w, src + "/file10.txt")).at(1), QStringLiteral("10 bytes"));
        QCOMPARE(Row(NodeIndex(w, src + "/Alpha/")).at(1), QString());
        QCOMPARE(w.Get<QLabel>("lblSelected")->text(), QStringLiteral("No files selected"));
    }

    void OneOfThreeFilesTickedShowsThePartialTickAndTheTotals() {
        WindowEnv w;
        const std::string src = Open(w);
        const QModelIndex alpha = NodeIndex(w, src + "/Alpha/");
        ClickNode(w, alpha);
        QCOMPARE(Names(w, alpha), (QStringList{"b.JPG", "c.txt", "d.txt"}));
        // A click on a name opens its folder and selects it; it ticks nothing.
        QCOMPARE(Tick(alpha), int(Qt::Unchecked));
        QCOMPARE(w.Get<QTreeView>("tvDirs")->currentIndex().siblingAtColumn(0), alpha);
        ClickCheckBox(w, NodeIndex(w, src + "/Alpha/c.txt"));
        QCOMPARE(Tick(NodeIndex(w, src + "/Alpha/c.txt")), int(Qt::Checked));
        QCOMPARE(Tick(alpha), int(Qt::PartiallyChecked));
        QCOMPARE(Tick(NodeIndex(w, src + "/")), int(Qt::PartiallyChecked));
        QCOMPARE(w.Get<QLabel>("lblSelected")->text(), QStringLiteral("1 file, 1 byte selected"));
        // The partly ticked folder ticked: everything below it is.
        ClickCheckBox(w, alpha);
        QCOMPARE(Tick(alpha), int(Qt::Checked));
        for (const char* key : {"/Alpha/b.JPG", "/Alpha/c.txt", "/Alpha/d.txt"})
            QCOMPARE(Tick(NodeIndex(w, src + key)), int(Qt::Checked));
        QCOMPARE(w.Get<QLabel>("lblSelected")->text(),
                 QStringLiteral("3 files, 10 bytes selected"));
        // A folder never opened counts its files too.
        ClickCheckBox(w, NodeIndex(w, src + "/zeta/"));
        QCOMPARE(w.Get<QLabel>("lblSelected")->text(),
                 QStringLiteral("4 files, 16 bytes selected"));
        ClickCheckBox(w, alpha);
        QCOMPARE(Tick(alpha), int(Qt::Unchecked));
        QCOMPARE(w.Get<QLabel>("lblSelected")->text(), QStringLiteral("1 file, 6 bytes selected"));
    }

    void ASearchShowsTheMatchesWithTheirFoldersAndClearingItShowsAll() {
        WindowEnv w;
        const std::string src = Open(w);
        auto* found = w.Get<QLabel>("lblFound");
        TypeSearch(w, "*.jpg");
        QTest::keyClick(w.Get<QLineEdit>("txtSearch"), Qt::Key_Return);
        QCOMPARE(found->text(), QStringLiteral("2 files match"));
        // A search shows the tree anew: its nodes are asked for again each time.
        const auto root = [&w] { return w.Get<QTreeView>("tvDirs")->model()->index(0, 0); };
        QCOMPARE(Names(w, root()), (QStringList{"Alpha", "zeta"}));
        QCOMPARE(Names(w, NodeIndex(w, src + "/Alpha/")), QStringList{"b.JPG"});
        QCOMPARE(Names(w, NodeIndex(w, src + "/zeta/")), QStringList{"a.jpg"});
        QVERIFY(w.Get<QTreeView>("tvDirs")->isExpanded(NodeIndex(w, src + "/zeta/")));
        // A match ticked while the search shows.
        ClickCheckBox(w, NodeIndex(w, src + "/zeta/a.jpg"));
        QCOMPARE(w.Get<QLabel>("lblSelected")->text(), QStringLiteral("1 file, 6 bytes selected"));

        // Typing alone searches once the typing pauses.
        TypeSearch(w, "FILE");
        QTRY_COMPARE(found->text(), QStringLiteral("3 files match"));
        QCOMPARE(Names(w, root()), (QStringList{"File1.txt", "file2.txt", "file10.txt"}));
        TypeSearch(w, "nothing like it");
        QTRY_COMPARE(found->text(), QStringLiteral("No file of this run matches"));
        QCOMPARE(Names(w, root()), QStringList{});

        TypeSearch(w, "");
        QTRY_COMPARE(found->text(), QString());
        QCOMPARE(Names(w, root()),
                 (QStringList{"Alpha", "zeta", "File1.txt", "file2.txt", "file10.txt"}));
        QCOMPARE(Names(w, NodeIndex(w, src + "/Alpha/")), (QStringList{"b.JPG", "c.txt", "d.txt"}));
        QCOMPARE(Tick(NodeIndex(w, src + "/zeta/a.jpg")), int(Qt::Checked));
        // Another run chosen starts without a search.
        TypeSearch(w, "zzz");
        QTRY_COMPARE(found->text(), QStringLiteral("No file of this run matches"));
        QVERIFY(ChooseRun(w, "1"));
        QCOMPARE(w.Get<QLineEdit>("txtSearch")->text(), QString());
        QCOMPARE(found->text(), QString());
        QCOMPARE(Names(w, root()).size(), 5);
    }

    // The two buttons above the tree open their windows: every version of the file chosen in
    // the tree, and the changes since the run before the one shown.
    void TheButtonsAboveTheTreeFindVersionsAndCompareRuns() {
        WindowEnv w;
        const std::string src = Open(w);
        WriteFile(src + "/file2.txt", "two, changed");
        w.BackUp();
        w.ShowTab(1);
        QVERIFY(ChooseRun(w, "2"));
        QVERIFY(w.Get<QPushButton>("cmdCompare")->isEnabled());
        ClickNode(w, NodeIndex(w, src + "/file2.txt"));
        QString searched, versions;
        bool looked = false;
        // The window looks once it shows; it is answered once it has looked (waiting inside
        // its look, which lets events run, would hold the look up).
        WhenModal(
            "frmVersions",
            [&](QWidget* dialog) {
                looked = true;
                searched = dialog->findChild<QLineEdit*>("txtFind")->text();
                versions = dialog->findChild<QLabel*>("lblVersions")->text();
                QTest::mouseClick(dialog->findChild<QPushButton*>("cmdClose"), Qt::LeftButton);
            },
            [](QWidget* dialog) {
                const QString text = dialog->findChild<QLabel*>("lblVersions")->text();
                return !text.isEmpty() && !text.startsWith("Looking");
            });
        w.Click("cmdFindVersions");
        QVERIFY(looked);
        QCOMPARE(searched, QStringLiteral("file2.txt"));
        QVERIFY2(versions.startsWith(QStringLiteral("2 versions")), qPrintable(versions));
        QString compared, totals;
        WhenModal(
            "frmRunDiff",
            [&](QWidget* dialog) {
                looked = true;
                compared = dialog->findChild<QLabel*>("lblCompare")->text();
                totals = dialog->findChild<QLabel*>("lblChanges")->text();
                QTest::mouseClick(dialog->findChild<QPushButton*>("cmdClose"), Qt::LeftButton);
            },
            [](QWidget* dialog) {
                return !dialog->findChild<QLabel*>("lblCompare")->text().startsWith("Comparing");
            });
        looked = false;
        w.Click("cmdCompare");
        QVERIFY(looked);
        QVERIFY2(compared.startsWith(QStringLiteral("Changes from the run of ")),
                 qPrintable(compared));
        QCOMPARE(totals, QStringLiteral("0 added, 1 changed, 0 removed"));
    }
};

QTEST_MAIN(RestoreTreeTest)
#include "test_RestoreTree.moc"
