// The maintenance buttons of the real main window's configuration tab: Delete of the runs of
// removed sources, Manual Purge and Compact, with every question answered from a script, the
// busy pointer, the status line and the progress bar, and what they leave in the catalogue
// and the store.

#include "WindowTest.h"

#include "catalogue/CDatabase.h"
#include "controls/XP_ProgressBar.h"
#include "support/modYield.h"

#include <QCursor>
#include <QLabel>
#include <QListWidget>
#include <QTreeView>

namespace {

const QString kDeleteQuestion =
    Box("This will permanently delete the backups of removed Sources. Ok to proceed?", 17);
const QString kDeleteDone = Box("Delete complete. You should now run Compact", 64);
const QString kCompactQuestion =
    Box("This may take an extended amount of time. Ok to continue?", 65);
const QString kCompactDone = Box("Compact process complete", 64);

void AddRuns(const BackupFixture& f, const std::string& source, int count) {
    CDatabase db;
    db.Connect(f.db);
    for (int i = 0; i < count; ++i)
        db.BackupRun(source);
}

// The store files below the backup path, relative to it.
QStringList StoreFiles(const BackupFixture& f) {
    QStringList files;
    for (const std::string& path : ListTree(f.backup + "/Files"))
        if (path.back() != '/') files << Q(path);
    return files;
}

} // namespace

class MaintenanceTest : public QObject {
    Q_OBJECT

private slots:
    void DeleteOfARemovedSourceThenCompactFreesOnlyItsOwnContent() {
        WindowEnv w;
        const std::string gone = w.env.Path("gone"), kept = w.env.Path("kept");
        CreateTree(gone, Dir({{"only.txt", File("only in the removed source")},
                              {"shared.txt", File("in both sources")}}));
        CreateTree(kept, Dir({{"mine.txt", File("only in the kept source")},
                              {"also.txt", File("in both sources")}}));
        w.f.AddSource(gone);
        w.f.AddSource(kept);
        frmMain& window = w.Open();
        window.Form_Load();
        w.BackUp();
        w.Click("cmdBackup");
        QCOMPARE(StoreFiles(w.f).size(), 3);
        const QStringList keptRuns =
            Rows(w.f, "SELECT * FROM Backups WHERE source = '" + kept + "'");
        const QStringList keptFiles = Rows(w.f, "SELECT * FROM Files WHERE bid IN (2, 4)");

        // The source leaves the list, then Delete drops its runs.
        auto* sources = w.Get<QListWidget>("lstSources");
        sources->setCurrentRow(0);
        w.Click("cmdRemove");
        w.env.box.calls.clear();
        w.ShowTab(2);
        w.Click("cmdManage");
        QCOMPARE(Boxes(w.env.box.calls), (QStringList{kDeleteQuestion, kDeleteDone}));
        QCOMPARE(Rows(w.f, "SELECT bid FROM Backups"), (QStringList{"2", "4"}));
        QCOMPARE(StoreFiles(w.f).size(), 3); // the store waits for Compact

        w.env.box.calls.clear();
        w.Click("cmdCompact");
        QCOMPARE(Boxes(w.env.box.calls), (QStringList{kCompactQuestion, kCompactDone}));
        QStringList expected;
        for (const char* content : {"in both sources", "only in the kept source"})
            expected << Q(StoreFile(w.f.backup, content).substr(w.f.backup.size() + 7));
        expected.sort();
        QCOMPARE(StoreFiles(w.f), expected);
        QCOMPARE(Rows(w.f, "SELECT * FROM Backups"), keptRuns);
        QCOMPARE(Rows(w.f, "SELECT * FROM Files"), keptFiles);
        QCOMPARE(Rows(w.f, "SELECT count(*) FROM Paths WHERE bid NOT IN (2, 4)"), QStringList{"0"});
        QCOMPARE(Rows(w.f, "PRAGMA integrity_check"), QStringList{"ok"});
        QCOMPARE(w.Get<XP_ProgressBar>("XP_PB3")->Value(), 100);
        QCOMPARE(w.Get<QLabel>("lblStatus")->text(), QStringLiteral("Del. unused files"));
        QVERIFY(!QApplication::overrideCursor());
    }

    void EmptySourceListDeletesEveryRun() {
        WindowEnv w;
        AddRuns(w.f, "/data", 2);
        AddRuns(w.f, "/photos", 1);
        frmMain& window = w.Open();
        window.Form_Load();
        w.ShowTab(2);
        w.Click("cmdManage");
        QCOMPARE(Rows(w.f, "SELECT count(*) FROM Backups"), QStringList{"0"});
        QCOMPARE(Boxes(w.env.box.calls), (QStringList{kDeleteQuestion, kDeleteDone}));
    }

    void SourceListedInOtherLettersLosesItsRuns() {
        WindowEnv w;
        w.f.AddSource("/srv/Data");
        w.f.AddSource("/srv/photos");
        AddRuns(w.f, "/srv/data", 2);
        AddRuns(w.f, "/srv/photos", 1);
        frmMain& window = w.Open();
        window.Form_Load();
        w.ShowTab(2);
        w.Click("cmdManage");
        QCOMPARE(Rows(w.f, "SELECT bid, source FROM Backups"), QStringList{"3|/srv/photos"});
        // The selection ran down the list while each run was compared.
        QCOMPARE(w.Get<QListWidget>("lstSources")->currentRow(), 1);
    }

    void DecliningDeleteKeepsEveryRun() {
        WindowEnv w;
        AddRuns(w.f, "/data", 1);
        frmMain& window = w.Open();
        window.Form_Load();
        w.ShowTab(2);
        w.env.box.Answer(2);
        w.Click("cmdManage");
        QCOMPARE(Rows(w.f, "SELECT count(*) FROM Backups"), QStringList{"1"});
        QCOMPARE(Boxes(w.env.box.calls), QStringList{kDeleteQuestion});
    }

    void DeletingTheRunShownInTheRestoreTabEmptiesIt() {
        WindowEnv w;
        const std::string src = w.env.Path("s");
        w.OpenAfterOneRun(src, Dir({{"a.txt", File("a")}}));
        w.ShowTab(1);
        QVERIFY(ChooseRun(w, "1"));
        w.ShowTab(0);
        w.Get<QListWidget>("lstSources")->setCurrentRow(0);
        w.Click("cmdRemove");
        w.ShowTab(2);
        w.Click("cmdManage");
        QCOMPARE(w.Get<QLabel>("lblBid")->text(), QString());
        QCOMPARE(w.Get<QTreeView>("tvDirs")->model()->rowCount(), 0);
        QVERIFY(!w.Get<QPushButton>("cmdRestore")->isEnabled());
    }

    void ManualPurgeAppliesTheLimitAndAsksForACompact() {
        WindowEnv w;
        w.f.AddSource("/data");
        AddRuns(w.f, "/data", 4);
        w.f.SetOption("MaxBackups", "2");
        frmMain& window = w.Open();
        window.Form_Load();
        w.ShowTab(2);
        w.Click("cmdPurge");
        QCOMPARE(Rows(w.f, "SELECT bid FROM Backups"), (QStringList{"3", "4"}));
        QCOMPARE(Boxes(w.env.box.calls),
                 QStringList{Box("Purge Complete. You should run Compact", 64)});
    }

    void CancelOnTheCompactQuestionChangesNothingNotEvenThePointer() {
        WindowEnv w;
        const std::string src = w.env.Path("s");
        w.OpenAfterOneRun(src, Dir({{"a.txt", File("alpha")}}));
        w.f.Exec("DELETE FROM Backups");
        const QStringList files = StoreFiles(w.f);
        w.ShowTab(2);
        w.env.box.calls.clear();
        w.env.box.Answer(2);
        bool pointerAtQuestion = true;
        w.env.box.onShow = [&](const auto&) { pointerAtQuestion = QApplication::overrideCursor(); };
        w.Click("cmdCompact");
        QCOMPARE(Boxes(w.env.box.calls), QStringList{kCompactQuestion});
        QVERIFY(!pointerAtQuestion);
        QVERIFY(!QApplication::overrideCursor());
        QCOMPARE(w.Get<XP_ProgressBar>("XP_PB3")->Value(), 0);
        QCOMPARE(w.Get<QLabel>("lblStatus")->text(), QString());
        QCOMPARE(StoreFiles(w.f), files);
        QCOMPARE(Rows(w.f, "SELECT count(*) FROM Files"), QStringList{"1"});
    }

    void CompactShowsTheBusyPointerAndItsStepsWhileItWorks() {
        WindowEnv w;
        frmMain& window = w.Open();
        window.Form_Load();
        w.ShowTab(2);
        QStringList seen;
        bool yielded = false;
        SetYieldHook([&] {
            const QCursor* pointer = QApplication::overrideCursor();
            if (!yielded)
                seen << w.Get<QLabel>("lblStatus")->text() + " " +
                            QString::number(pointer ? pointer->shape() : -1);
            yielded = true;
            QApplication::processEvents();
        });
        w.env.box.onShow = [&](const CScriptedMessageBox::Call& call) {
            const QCursor* pointer = QApplication::overrideCursor();
            seen << Q(call.text) + " " + QString::number(pointer ? pointer->shape() : -1) + " " +
                        QString::number(w.Get<XP_ProgressBar>("XP_PB3")->Value());
        };
        w.Click("cmdCompact");
        QCOMPARE(seen,
                 (QStringList{"This may take an extended amount of time. Ok to continue? -1 0",
                              "Pruning DB tree " + QString::number(Qt::WaitCursor),
                              "Compact process complete -1 100"}));
        auto* tabs = w.Get<QTabWidget>("SSTab1");
        QVERIFY(tabs->isTabEnabled(0) && tabs->isTabEnabled(1));
    }
};

QTEST_MAIN(MaintenanceTest)
#include "test_Maintenance.moc"
