// The run history dialogs of the restore tab, driven as a person would, on a backup folder of
// three real runs of one source (a.txt changed and new.txt added for the second, gone.txt
// removed for the third): "Find in all runs" with a name typed and Find clicked, its versions
// grouped by content, a version chosen and restored to its place and elsewhere with the
// question and the folder pick answered from a script; and "Compare with previous run" for each
// run, the first one saying there is nothing to compare it with.

#include "WindowTest.h"

#include "app/CRunControl.h"
#include "support/CByteProgress.h"
#include "ui/frmRunDiff.h"
#include "ui/frmVersions.h"

#include <QDir>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>

#include <filesystem>

namespace {

// Three runs of `src` below the window test's own backup folder.
struct ThreeRuns {
    WindowEnv w;
    std::string src = w.env.Path("Documents");

    ThreeRuns() {
        CreateTree(src, Dir({{"a.txt", File("alpha")},
                             {"gone.txt", File("gone")},
                             {"Bob's notes.txt", File("bob")},
                             {"sub", Dir({{"a.txt", File("sub alpha")}})}}));
        BackUp(); // run 1
        WriteFile(src + "/a.txt", "alpha, changed");
        WriteFile(src + "/new.txt", "new");
        BackUp(); // run 2
        std::filesystem::remove(src + "/gone.txt");
        BackUp(); // run 3
    }

    void BackUp() const {
        CRunControl run({src}, BackupOptions{});
        run.cmdBackup_Click();
    }

    QString Date(const std::string& bid) const {
        return Q(w.f.Rows("SELECT datebk FROM Backups WHERE bid = " + bid)[0]);
    }

    // The row of a version as lvwVersions shows it.
    QString Version(const std::string& relative, const std::string& content, int runs) const {
        return QString::number(runs) + (runs == 1 ? " run" : " runs") + " |  | " +
               Q(src + relative) + " | " + Q(ByteSizeText(content.size())) + " | " +
               Q(TestSignature(content));
    }
    // The row of a run below its version.
    QString Run(const std::string& bid) const {
        return "  " + Date(bid) + " | " + Q(src) + " |  |  | ";
    }
};

template <class Control> Control* Get(QWidget* dialog, const char* name) {
    auto* control = dialog->findChild<Control*>(QString::fromLatin1(name));
    if (!control) qFatal("no control %s", name);
    return control;
}

// Every row of a tree widget, its columns joined by " | ", a row below another indented.
QStringList RowsOf(const QTreeWidget* tree) {
    QStringList rows;
    const auto add = [&](const QTreeWidgetItem* item, const QString& indent) {
        QStringList columns;
        for (int column = 0; column < tree->columnCount(); ++column)
            columns << item->text(column);
        rows << indent + columns.join(" | ");
    };
    for (int top = 0; top < tree->topLevelItemCount(); ++top) {
        add(tree->topLevelItem(top), {});
        for (int child = 0; child < tree->topLevelItem(top)->childCount(); ++child)
            add(tree->topLevelItem(top)->child(child), QStringLiteral("  "));
    }
    return rows;
}

QStringList Headers(const QTreeWidget* tree) {
    QStringList headers;
    for (int column = 0; column < tree->columnCount(); ++column)
        headers << tree->headerItem()->text(column);
    return headers;
}

// Types `text` into txtFind over what it holds and clicks Find.
void FindByName(QWidget* dialog, const QString& text) {
    auto* find = Get<QLineEdit>(dialog, "txtFind");
    QTest::mouseClick(find, Qt::LeftButton);
    QTest::keyClick(find, Qt::Key_A, Qt::ControlModifier);
    QTest::keyClick(find, Qt::Key_Delete);
    QTest::keyClicks(find, text);
    QTest::mouseClick(Get<QPushButton>(dialog, "cmdFind"), Qt::LeftButton);
}

// Clicks the row of lvwVersions that is the `child`th run of the `top`th version.
void ChooseRow(QWidget* dialog, int top, int child = -1) {
    auto* tree = Get<QTreeWidget>(dialog, "lvwVersions");
    QTreeWidgetItem* item = tree->topLevelItem(top);
    if (child >= 0) item = item->child(child);
    tree->scrollToItem(item);
    // On its first column, past the branch's arrow.
    const int x = tree->header()->sectionViewportPosition(0) + tree->header()->sectionSize(0) / 2;
    QTest::mouseClick(tree->viewport(), Qt::LeftButton, {},
                      QPoint(x, tree->visualItemRect(item).center().y()));
}

bool CanRestore(QWidget* dialog) {
    const bool here = Get<QPushButton>(dialog, "cmdRestoreVersion")->isEnabled();
    const bool elsewhere = Get<QPushButton>(dialog, "cmdRestoreVersionTo")->isEnabled();
    if (here != elsewhere) qFatal("the restore buttons disagree");
    return here;
}

QString LabelText(QWidget* dialog, const char* name) {
    return Get<QLabel>(dialog, name)->text();
}

// What is wrong with how the dialog shows its controls: a control without an accessible name,
// one outside the dialog, a button or label whose text does not fit.
QStringList Problems(QDialog* dialog) {
    QStringList problems;
    for (QWidget* control : dialog->findChildren<QWidget*>()) {
        const QString name = control->objectName();
        if (name.isEmpty() || name.startsWith("qt_") || !control->isVisible()) continue;
        if (control->accessibleName().isEmpty()) problems << name + " has no accessible name";
        const QRect inDialog(control->mapTo(dialog, QPoint(0, 0)), control->size());
        if (!dialog->rect().contains(inDialog)) problems << name + " lies outside the dialog";
        if (auto* button = qobject_cast<QPushButton*>(control);
            button && button->sizeHint().width() > button->width())
            problems << name + " text is cut off";
        if (auto* label = qobject_cast<QLabel*>(control);
            label && !label->wordWrap() && label->sizeHint().width() > label->width())
            problems << name + " text is cut off";
    }
    return problems;
}

// Saves what the dialog shows to <build>/screenshots, named after it and the scale.
void Screenshot(QDialog* dialog, const QString& name) {
    const QString scale = qEnvironmentVariable("QT_SCALE_FACTOR", "1");
    QDir().mkpath(QStringLiteral(QT_TESTCASE_BUILDDIR "/screenshots"));
    dialog->grab().save(
        QStringLiteral(QT_TESTCASE_BUILDDIR "/screenshots/%1-scale%2.png").arg(name).arg(scale));
}

void Show(QDialog& dialog) {
    dialog.show();
    QVERIFY(QTest::qWaitForWindowExposed(&dialog));
}

} // namespace

class RunHistoryTest : public QObject {
    Q_OBJECT

private slots:
    void FindingANameListsItsVersionsGroupedByContentWithTheirRuns() {
        ThreeRuns r;
        frmVersions dialog("", false, nullptr);
        Show(dialog);
        QCOMPARE(dialog.windowTitle(), QStringLiteral("Find in all runs"));
        auto* versions = Get<QTreeWidget>(&dialog, "lvwVersions");
        QCOMPARE(Headers(versions), (QStringList{"Run", "Source", "File", "Size", "Signature"}));
        QVERIFY(!Get<QPushButton>(&dialog, "cmdFind")->isEnabled()); // nothing typed yet
        QVERIFY(!CanRestore(&dialog));

        FindByName(&dialog, "a.txt");
        QCOMPARE(RowsOf(versions),
                 (QStringList{r.Version("/a.txt", "alpha, changed", 2), r.Run("3"), r.Run("2"),
                              r.Version("/a.txt", "alpha", 1), r.Run("1"),
                              r.Version("/sub/a.txt", "sub alpha", 3), r.Run("3"), r.Run("2"),
                              r.Run("1")}));
        QCOMPARE(LabelText(&dialog, "lblVersions"),
                 QStringLiteral("3 versions of 2 files in 3 runs"));
        QVERIFY(!CanRestore(&dialog));
        ChooseRow(&dialog, 0); // a version, not a run of it
        QVERIFY(!CanRestore(&dialog));
        ChooseRow(&dialog, 0, 1);
        QVERIFY(CanRestore(&dialog));

        // A pattern, without regard to case; and a name whose runs are those that had it.
        FindByName(&dialog, "[GN]*.TXT");
        QCOMPARE(RowsOf(versions),
                 (QStringList{r.Version("/gone.txt", "gone", 2), r.Run("2"), r.Run("1"),
                              r.Version("/new.txt", "new", 2), r.Run("3"), r.Run("2")}));
        QCOMPARE(LabelText(&dialog, "lblVersions"),
                 QStringLiteral("2 versions of 2 files in 3 runs"));
        QVERIFY(!CanRestore(&dialog)); // a new list has nothing chosen

        FindByName(&dialog, "b's");
        QCOMPARE(RowsOf(versions), (QStringList{r.Version("/Bob's notes.txt", "bob", 3), r.Run("3"),
                                                r.Run("2"), r.Run("1")}));
        QCOMPARE(LabelText(&dialog, "lblVersions"),
                 QStringLiteral("1 version of 1 file in 3 runs"));

        FindByName(&dialog, "zzz");
        QCOMPARE(RowsOf(versions), QStringList{});
        QCOMPARE(LabelText(&dialog, "lblVersions"), QStringLiteral("No file in any run matches"));
        QCOMPARE(Boxes(r.w.env.box.calls), QStringList{});
    }

    void ANameGivenIsLookedForWhenTheDialogOpens() {
        ThreeRuns r;
        frmVersions dialog("gone", false, nullptr);
        QCOMPARE(Get<QLineEdit>(&dialog, "txtFind")->text(), QStringLiteral("gone"));
        Show(dialog);
        QTRY_COMPARE(LabelText(&dialog, "lblVersions"),
                     QStringLiteral("1 version of 1 file in 2 runs"));
        QCOMPARE(RowsOf(Get<QTreeWidget>(&dialog, "lvwVersions")),
                 (QStringList{r.Version("/gone.txt", "gone", 2), r.Run("2"), r.Run("1")}));
    }

    void AChosenVersionIsRestoredToItsPlaceAfterTheQuestion() {
        ThreeRuns r;
        frmVersions dialog("", true, nullptr);
        Show(dialog);
        FindByName(&dialog, "a.txt");
        ChooseRow(&dialog, 1, 0); // the first content, of run 1

        // Declined: nothing changes.
        r.w.env.box.Answer(mb::kCancel);
        QTest::mouseClick(Get<QPushButton>(&dialog, "cmdRestoreVersion"), Qt::LeftButton);
        const QString question =
            Box("QRV will overwrite any existing files with the same name. Is this OK?", 33);
        QCOMPARE(Boxes(r.w.env.box.calls), QStringList{question});
        QCOMPARE(ReadFile(r.src + "/a.txt"), std::string("alpha, changed"));
        QCOMPARE(LabelText(&dialog, "lblRestoreVersion"), QString());

        r.w.env.box.Answer(mb::kOK);
        QTest::mouseClick(Get<QPushButton>(&dialog, "cmdRestoreVersion"), Qt::LeftButton);
        QCOMPARE(Boxes(r.w.env.box.calls), (QStringList{question, question}));
        QCOMPARE(ReadFile(r.src + "/a.txt"), std::string("alpha"));
        QCOMPARE(LabelText(&dialog, "lblRestoreVersion"), Q("Restored " + r.src + "/a.txt"));
        QVERIFY(CanRestore(&dialog));

        // The file the last run no longer holds, from the run before.
        FindByName(&dialog, "gone");
        ChooseRow(&dialog, 0, 0);
        r.w.env.box.Answer(mb::kOK);
        QTest::mouseClick(Get<QPushButton>(&dialog, "cmdRestoreVersion"), Qt::LeftButton);
        QCOMPARE(ReadFile(r.src + "/gone.txt"), std::string("gone"));
        QCOMPARE(Q(r.w.env.picker.prompts), QStringList{});
    }

    void AChosenVersionIsRestoredElsewhereBelowTheFolderPicked() {
        ThreeRuns r;
        frmVersions dialog("", true, nullptr);
        Show(dialog);
        FindByName(&dialog, "a.txt");
        // Cancelled: nothing is written.
        ChooseRow(&dialog, 2, 2); // sub/a.txt of run 1
        QTest::mouseClick(Get<QPushButton>(&dialog, "cmdRestoreVersionTo"), Qt::LeftButton);
        QCOMPARE(LabelText(&dialog, "lblRestoreVersion"), QString());

        const std::string elsewhere = r.w.env.Path("Elsewhere");
        CreateTree(elsewhere, Dir());
        r.w.env.picker.Answer(elsewhere);
        QTest::mouseClick(Get<QPushButton>(&dialog, "cmdRestoreVersionTo"), Qt::LeftButton);
        r.w.env.picker.Answer(elsewhere);
        ChooseRow(&dialog, 0, 1); // a.txt of run 2
        QTest::mouseClick(Get<QPushButton>(&dialog, "cmdRestoreVersionTo"), Qt::LeftButton);
        QCOMPARE(Q(r.w.env.picker.prompts), (QStringList{"Select alternate folder to restore to",
                                                         "Select alternate folder to restore to",
                                                         "Select alternate folder to restore to"}));
        QCOMPARE(Boxes(r.w.env.box.calls), QStringList{});
        QCOMPARE(Q(ListTree(elsewhere)), (QStringList{"a.txt", "sub/", "sub/a.txt"}));
        QCOMPARE(ReadFile(elsewhere + "/a.txt"), std::string("alpha, changed"));
        QCOMPARE(ReadFile(elsewhere + "/sub/a.txt"), std::string("sub alpha"));
        QCOMPARE(LabelText(&dialog, "lblRestoreVersion"), Q("Restored " + elsewhere + "/a.txt"));
        QCOMPARE(ReadFile(r.src + "/a.txt"), std::string("alpha, changed"));
    }

    void EachRunIsComparedWithTheRunBeforeIt() {
        ThreeRuns r;
        frmRunDiff second("2", nullptr);
        Show(second);
        QCOMPARE(second.windowTitle(), QStringLiteral("Compare with previous run"));
        QTRY_COMPARE(LabelText(&second, "lblChanges"),
                     QStringLiteral("1 added, 1 changed, 0 removed"));
        QCOMPARE(LabelText(&second, "lblCompare"),
                 "Changes from the run of " + r.Date("1") + " to the run of " + r.Date("2") + ".");
        auto* changes = Get<QTreeWidget>(&second, "lvwChanges");
        QCOMPARE(Headers(changes), (QStringList{"Change", "File", "Size before", "Size after"}));
        QCOMPARE(RowsOf(changes),
                 (QStringList{"changed | " + Q(r.src) + "/a.txt | 5 bytes | 14 bytes",
                              "added | " + Q(r.src) + "/new.txt |  | 3 bytes"}));

        frmRunDiff third("3", nullptr);
        Show(third);
        QTRY_COMPARE(LabelText(&third, "lblChanges"),
                     QStringLiteral("0 added, 0 changed, 1 removed"));
        QCOMPARE(LabelText(&third, "lblCompare"),
                 "Changes from the run of " + r.Date("2") + " to the run of " + r.Date("3") + ".");
        QCOMPARE(RowsOf(Get<QTreeWidget>(&third, "lvwChanges")),
                 QStringList{"removed | " + Q(r.src) + "/gone.txt | 4 bytes | "});
    }

    void TheFirstRunHasNothingToBeComparedWith() {
        ThreeRuns r;
        frmRunDiff first("1", nullptr);
        Show(first);
        QTRY_COMPARE(LabelText(&first, "lblCompare"),
                     QStringLiteral("This is the first run of its source: there is nothing to "
                                    "compare it with."));
        QCOMPARE(RowsOf(Get<QTreeWidget>(&first, "lvwChanges")), QStringList{});
        QCOMPARE(LabelText(&first, "lblChanges"), QString());
        QTest::mouseClick(Get<QPushButton>(&first, "cmdClose"), Qt::LeftButton);
        QVERIFY(!first.isVisible());
    }

    void BothDialogsShowEveryControlWhole() {
        ThreeRuns r;
        frmVersions versions("a.txt", false, nullptr);
        Show(versions);
        QTRY_COMPARE(LabelText(&versions, "lblVersions"),
                     QStringLiteral("3 versions of 2 files in 3 runs"));
        ChooseRow(&versions, 0, 0);
        Screenshot(&versions, QStringLiteral("find-in-all-runs"));
        QStringList problems = Problems(&versions);
        QVERIFY2(problems.isEmpty(), qPrintable(problems.join("; ")));

        frmRunDiff diff("2", nullptr);
        Show(diff);
        QTRY_VERIFY(!LabelText(&diff, "lblChanges").isEmpty());
        Screenshot(&diff, QStringLiteral("compare-with-previous-run"));
        problems = Problems(&diff);
        QVERIFY2(problems.isEmpty(), qPrintable(problems.join("; ")));
    }
};

QTEST_MAIN(RunHistoryTest)
#include "test_RunHistory.moc"
