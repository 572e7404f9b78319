// Nothing a person does ends the real main window: damaged option rows in the catalogue, the
// commands before a backup path is chosen, garbage typed into every text box and every button
// clicked with no backup path, an empty catalogue and a full one, an error inside a handler,
// a cancelled run, and Help > Manual where no program opens the manual.

#include "WindowTest.h"

#include "app/modMainWindow.h"
#include "app/modManual.h"
#include "app/modPaths.h"
#include "app/modRetention.h"
#include "catalogue/CDatabase.h"
#include "platform/modPlatformPaths.h"
#include "support/modFSCommon.h"
#include "support/modMsgBox.h"
#include "support/modServices.h"
#include "ui/frmReport.h"

#include <QAction>
#include <QCheckBox>
#include <QClipboard>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QRadioButton>

#include <cstdio>

namespace {

const QString kAskForPath = Box("Please define the backup path to proceed", 64);

// What the catalogue holds apart from the options: sources, runs, folders and files.
QStringList Catalogue(const BackupFixture& f) {
    QStringList rows;
    for (const char* table : {"Sources", "Backups", "Paths", "Files"})
        rows << Q(table) << Rows(f, std::string("SELECT * FROM ") + table + " ORDER BY rowid");
    return rows;
}

QStringList StoreFiles(const BackupFixture& f) {
    return Q(ListTree(f.backup + "/Files"));
}

int Reports(const frmMain& window) {
    return static_cast<int>(window.findChildren<frmReport*>().size());
}

// Texts a person may type or paste: quotes, backslashes, a new line, SQL, format directives,
// numbers out of every range, and a long line.
const QStringList kGarbage = {
    QStringLiteral("'"),     QStringLiteral("a'b\\c"),
    QStringLiteral("5x"),    QStringLiteral("-1"),
    QStringLiteral("1e999"), QStringLiteral("%s%n%d"),
    QStringLiteral("x\ny"),  QStringLiteral("'; DROP TABLE Sources; --"),
    QStringLiteral("   "),   QString::fromUtf8("\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80"),
    QStringLiteral("0"),     QStringLiteral("101"),
};

// Types `text` key by key; a character that no key of a US keyboard gives comes as the text of
// one key press, as an input method sends it.
void Type(QWidget* box, const QString& text) {
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar ch = text[i];
        if (ch == QLatin1Char('\n')) {
            QTest::keyClick(box, Qt::Key_Return);
            continue;
        }
        if (ch.unicode() < 0x80) {
            QTest::keyClick(box, ch.toLatin1());
            continue;
        }
        const qsizetype length = ch.isHighSurrogate() ? 2 : 1;
        QTest::sendKeyEvent(QTest::Click, box, Qt::Key_unknown, text.mid(i, length),
                            Qt::NoModifier);
        i += length - 1;
    }
}

// Types every garbage text into every text box of the window that takes typing, as a person
// does: the box emptied with Ctrl+A and Backspace, the text typed key by key, and a long line
// pasted.
void TypeGarbageEverywhere(WindowEnv& w) {
    w.ShowTab(2);
    QApplication::clipboard()->setText(QString(3000, QLatin1Char('7')) + "x'\\");
    for (QLineEdit* box : w.window->findChildren<QLineEdit*>()) {
        if (box->isReadOnly() || !box->isEnabled()) continue;
        for (const QString& text : kGarbage) {
            box->setFocus();
            QTest::keyClick(box, Qt::Key_A, Qt::ControlModifier);
            QTest::keyClick(box, Qt::Key_Backspace);
            Type(box, text);
        }
        QTest::keyClick(box, Qt::Key_A, Qt::ControlModifier);
        QTest::keyClick(box, Qt::Key_V, Qt::ControlModifier);
    }
}

// Clicks every button, check box and option button of every tab but cmdBackup (whose run is
// meant to change the catalogue), and every menu entry but Exit; a dialog that opens is
// cancelled. Every question is declined, or with `accept` answered by its first button (Yes,
// OK).
void ClickEverything(WindowEnv& w, bool accept = false) {
    for (int i = 0; i < 200 && !accept; ++i)
        w.env.box.Answer(mb::kCancel);
    auto* tabs = w.Get<QTabWidget>("SSTab1");
    for (int tab = 0; tab < tabs->count(); ++tab) {
        w.ShowTab(tab);
        for (QAbstractButton* button : tabs->widget(tab)->findChildren<QAbstractButton*>()) {
            if (button->objectName() == "cmdBackup" || !button->isVisible() || !button->isEnabled())
                continue;
            WhenModal("frmSelBackup", [](QWidget* dialog) {
                QTest::mouseClick(dialog->findChild<QPushButton*>("CancelButton"), Qt::LeftButton);
            });
            for (const char* window : {"frmVersions", "frmRunDiff"})
                WhenModal(window, [](QWidget* dialog) {
                    QTest::mouseClick(dialog->findChild<QPushButton*>("cmdClose"), Qt::LeftButton);
                });
            Tick(button);
            QVERIFY(w.window->isVisible());
        }
    }
    WhenModal("frmAbout", [](QWidget* dialog) {
        QTest::mouseClick(dialog->findChild<QPushButton*>("cmdOK"), Qt::LeftButton);
    });
    w.Get<QAction>("mnuAbout")->trigger();
    w.Get<QAction>("mnuManual")->trigger();
    QVERIFY(w.window->isVisible());
}

const QString kPurgeMismatch =
    QStringLiteral("The following error has occurred in procedure: \r\nfrmMain cmdPurge_Click on "
                   "line 0\r\nError (13) Type mismatch\r\nCurrent Operation: Query Master table");

QStringList ErrorBoxes(const Calls& calls) {
    QStringList texts;
    for (const auto& call : calls)
        if (call.text.starts_with("The following error has occurred")) texts << Q(call.text);
    return texts;
}

bool HasErrorBox(const Calls& calls) {
    return !ErrorBoxes(calls).isEmpty();
}

// The manual next to the test program, for as long as the test runs.
class ScopedManual {
public:
    ScopedManual() : m_made(!FSFileExists(ManualPath())) {
        if (m_made) WriteFile(ManualPath(), "%PDF-1.4\n");
    }
    ~ScopedManual() {
        if (m_made) std::remove(ManualPath().c_str());
    }

private:
    bool m_made;
};

} // namespace

class RobustnessTest : public QObject {
    Q_OBJECT

private slots:
    void ACheckOptionThatIsNotANumberOpensTheWindowWithOneProblemLine() {
        WindowEnv w;
        w.f.SetOption("Hidden", "x");
        w.f.SetOption("System", "1");
        frmMain& window = w.Open();
        QCOMPARE(window.Form_Load(), std::nullopt);
        QVERIFY(!w.Get<QCheckBox>("chkHidden")->isChecked());
        QVERIFY(w.Get<QCheckBox>("chkSystem")->isChecked());
        QVERIFY(w.env.box.calls.empty());
        const auto log = LogMessages(w.f.TodaysLog());
        QCOMPARE(
            std::count_if(log.begin(), log.end(),
                          [](const std::string& line) { return line.starts_with("Problem: "); }),
            1);
        QVERIFY(std::count(log.begin(), log.end(),
                           "Problem: The option Hidden holds \"x\", which is not a number; its box "
                           "is shown unticked\r\n"));
    }

    void EveryCheckOptionThatDoesNotConvertIsUntickedAndNamed() {
        WindowEnv w;
        const std::pair<const char*, const char*> rows[] = {{"Hidden", "x"},
                                                            {"System", "1e999"},
                                                            {"Backup", "on"},
                                                            {"Restore", "tick"},
                                                            {"ExclRecycler", "-"}};
        for (const auto& [key, value] : rows)
            w.f.SetOption(key, value);
        QCOMPARE(w.Open().Form_Load(), std::nullopt);
        for (const char* box :
             {"chkHidden", "chkSystem", "chkBackup", "chkRestore", "chkExclRecycler"})
            QVERIFY2(!w.Get<QCheckBox>(box)->isChecked(), box);
        const auto log = LogMessages(w.f.TodaysLog());
        for (const auto& [key, value] : rows)
            QVERIFY2(std::count(log.begin(), log.end(),
                                std::string("Problem: The option ") + key + " holds \"" + value +
                                    "\", which is not a number; its box is shown unticked\r\n"),
                     key);
    }

    void TheReloadAfterANewBackupPathSurvivesABadOption() {
        WindowEnv w;
        const std::string first = w.f.backup, other = w.env.Path("other backup");
        FSCreateFolder(other);
        w.f.UseBackupPath(other); // a catalogue of its own, with a damaged option row
        w.f.SetOption("Restore", "yes");
        w.f.SetOption("ExDirs", "build");
        w.f.UseBackupPath(first);
        frmMain& window = w.Open();
        window.Form_Load();
        w.f.env.picker.Answer(other);
        w.ShowTab(2);
        w.Click("cmdSelBackupPath");
        QVERIFY(window.isVisible());
        QCOMPARE(w.Get<QLineEdit>("txtExDirs")->text(), QStringLiteral("build"));
        QVERIFY(!w.Get<QCheckBox>("chkRestore")->isChecked());
        QVERIFY(!HasErrorBox(w.env.box.calls));
        const auto log = LogMessages(ReadFile(Logger().LogFile()));
        QVERIFY(std::count(log.begin(), log.end(),
                           "Problem: The option Restore holds \"yes\", which is not a number; its "
                           "box is shown unticked\r\n"));
    }

    void AManualPurgeWithALimitThatIsNotANumberIsReportedAndChangesNothing() {
        WindowEnv w;
        const std::string src = w.env.Path("s");
        w.f.AddSource(src);
        CDatabase db;
        db.Connect(w.f.db);
        for (int run = 0; run < 3; ++run)
            db.BackupRun(src);
        frmMain& window = w.Open();
        window.Form_Load();
        w.ShowTab(2);
        auto* limit = w.Get<QLineEdit>("txtMaxBackups");
        limit->setFocus();
        QTest::keyClick(limit, Qt::Key_A, Qt::ControlModifier);
        QTest::keyClicks(limit, "5x"); // "5" and then "5x" are stored: each counts as 5
        QCOMPARE(Rows(w.f, "SELECT value FROM Setup WHERE key = 'MaxBackups'"), QStringList{"5x"});
        const QStringList before = Catalogue(w.f);
        w.env.box.calls.clear();
        w.Click("cmdPurge");
        QVERIFY(window.isVisible());
        QCOMPARE(Catalogue(w.f), before);
        // The conversion error is the handler's report, and no "Purge Complete" follows it.
        QCOMPARE(Boxes(w.env.box.calls), QStringList{kPurgeMismatch + " | 16 | Stashwell"});
        // The window still answers: a valid limit purges.
        QTest::keyClick(limit, Qt::Key_Backspace);
        QCOMPARE(limit->text(), QStringLiteral("5"));
        QTest::keyClick(limit, Qt::Key_Backspace); // empty: the message, and "5" back
        QTest::keyClick(limit, Qt::Key_A, Qt::ControlModifier);
        QTest::keyClicks(limit, "1");
        w.env.box.calls.clear();
        w.Click("cmdPurge");
        QCOMPARE(Boxes(w.env.box.calls),
                 QStringList{Box("Purge Complete. You should run Compact", 64)});
        QCOMPARE(Rows(w.f, "SELECT bid FROM Backups"), QStringList{"3"});
    }

    void BackupBeforeABackupPathIsChosenAsksForOneAndRunsNothing() {
        WindowEnv w;
        WriteRegSetting("BackupPath", "");
        frmMain& window = w.Open();
        window.Form_Load();
        w.env.box.calls.clear();
        w.BackUp();
        QCOMPARE(Boxes(w.env.box.calls), QStringList{kAskForPath});
        QCOMPARE(w.Get<QTabWidget>("SSTab1")->currentIndex(), 2);
        QCOMPARE(w.Get<QLineEdit>("txtBackupPath")->styleSheet(),
                 QStringLiteral("background-color: rgb(255, 255, 0);"));
        QCOMPARE(Reports(window), 0);
        QCOMPARE(w.Get<QLabel>("lblSource")->text(), QString());
        QCOMPARE(w.Get<QPushButton>("cmdBackup")->text(), QStringLiteral("Backup"));
        const auto log = LogMessages(ReadFile(Logger().LogFile()));
        for (const char* line : {"Backup started\r\n", "Backup complete\r\n"})
            QVERIFY2(!std::count(log.begin(), log.end(), line), line);
    }

    void CompactBeforeABackupPathIsChosenAsksForOneAndSaysNothingCompleted() {
        WindowEnv w;
        WriteRegSetting("BackupPath", "");
        w.Open().Form_Load();
        w.env.box.calls.clear();
        w.ShowTab(2);
        w.Click("cmdCompact");
        QCOMPARE(Boxes(w.env.box.calls), QStringList{kAskForPath});
        QCOMPARE(w.Get<QTabWidget>("SSTab1")->currentIndex(), 2);
        QVERIFY(!FSFolderExists("Files"));
    }

    void EveryCommandBeforeABackupPathIsChosenAsksForOne() {
        WindowEnv w;
        WriteRegSetting("BackupPath", "");
        w.Open().Form_Load();
        TypeGarbageEverywhere(w);
        for (const char* button : {"cmdAddSrc", "cmdRemove", "cmdBackup"}) {
            w.ShowTab(0);
            w.env.box.calls.clear();
            w.Click(button);
            QCOMPARE(Boxes(w.env.box.calls), QStringList{kAskForPath});
        }
        for (const char* button : {"cmdManage", "cmdPurge", "cmdCompact"}) {
            w.ShowTab(2);
            w.env.box.calls.clear();
            w.Click(button);
            QCOMPARE(Boxes(w.env.box.calls), QStringList{kAskForPath});
        }
        w.ShowTab(1);
        w.env.box.calls.clear();
        w.Click("cmdSelBackup");
        QCOMPARE(Boxes(w.env.box.calls), QStringList{kAskForPath});
        w.env.box.calls.clear();
        ClickEverything(w);
        QVERIFY(!HasErrorBox(w.env.box.calls));
        QVERIFY(w.env.picker.prompts.empty() ||
                w.env.picker.prompts == std::vector<std::string>{"Select Backup Path"});
    }

    void GarbageEverywhereWithAnEmptyCatalogueChangesNothing() {
        WindowEnv w;
        w.Open().Form_Load();
        const QStringList before = Catalogue(w.f);
        TypeGarbageEverywhere(w);
        ClickEverything(w);
        QCOMPARE(Catalogue(w.f), before);
        QVERIFY(!HasErrorBox(w.env.box.calls));
        w.BackUp();
        QVERIFY(w.window->isVisible());
        QCOMPARE(Rows(w.f, "SELECT COUNT(*) FROM Backups"), QStringList{"0"});
    }

    void GarbageEverywhereWithAFullCatalogueChangesOnlyWhatTheBackupAdds() {
        WindowEnv w;
        const std::string one = w.env.Path("one"), two = w.env.Path("it's two");
        CreateTree(one, Dir({{"a.txt", File("alpha")}, {"sub", Dir({{"b.txt", File("beta")}})}}));
        CreateTree(two, Dir({{"c'd.txt", File("gamma")}}));
        w.f.AddSource(one);
        w.f.AddSource(two);
        frmMain& window = w.Open();
        window.Form_Load();
        w.BackUp();
        w.BackUp();
        QCOMPARE(Rows(w.f, "SELECT COUNT(*) FROM Backups"), QStringList{"4"});
        const QStringList before = Catalogue(w.f);
        const QStringList store = StoreFiles(w.f);
        TypeGarbageEverywhere(w);
        ClickEverything(w);
        QCOMPARE(Catalogue(w.f), before);
        QCOMPARE(StoreFiles(w.f), store);
        // The backup limit the keystrokes left stored does not convert: Manual Purge reports it.
        QCOMPARE(ErrorBoxes(w.env.box.calls), QStringList{kPurgeMismatch});
        // A person puts a valid limit back; the next run adds a run of each source and stores
        // nothing new.
        auto* limit = w.Get<QLineEdit>("txtMaxBackups");
        QTest::keyClick(limit, Qt::Key_A, Qt::ControlModifier);
        QTest::keyClicks(limit, "10");
        QCOMPARE(limit->text(), QStringLiteral("10"));
        w.env.box.calls.clear();
        w.BackUp();
        QVERIFY(window.isVisible());
        QCOMPARE(w.Get<QPushButton>("cmdBackup")->text(), QStringLiteral("Backup"));
        QVERIFY(!HasErrorBox(w.env.box.calls));
        QCOMPARE(Rows(w.f, "SELECT COUNT(*) FROM Backups"), QStringList{"6"});
        QCOMPARE(StoreFiles(w.f), store);
    }

    // Every question answered Yes or OK: Remove takes the selected source out of the list, then
    // Delete drops that source's run and Compact its rows and content; what belongs to the other
    // source stays as it was.
    void GarbageEverywhereWithEveryQuestionAcceptedDropsOnlyTheRemovedSource() {
        WindowEnv w;
        const std::string one = w.env.Path("one"), two = w.env.Path("two");
        CreateTree(one, Dir({{"a.txt", File("alpha")}}));
        CreateTree(two, Dir({{"b.txt", File("beta")}}));
        w.f.AddSource(one);
        w.f.AddSource(two);
        frmMain& window = w.Open();
        window.Form_Load();
        w.BackUp();
        const auto kept = [&w](const char* table, const char* key) {
            return Rows(w.f, std::string("SELECT * FROM ") + table +
                                 " WHERE bid IN (SELECT bid FROM Backups WHERE source = '" +
                                 w.env.Path("one") + "') ORDER BY " + key);
        };
        const QStringList runs = kept("Backups", "bid"), files = kept("Files", "fid"),
                          paths = kept("Paths", "pid");
        QCOMPARE(runs.size(), 1);
        TypeGarbageEverywhere(w);
        w.ShowTab(0);
        w.Get<QListWidget>("lstSources")->setCurrentRow(1);
        ClickEverything(w, true);
        QVERIFY(window.isVisible());
        QCOMPARE(Rows(w.f, "SELECT source FROM Sources"), QStringList{Q(one)});
        QCOMPARE(Rows(w.f, "SELECT * FROM Backups ORDER BY bid"), runs);
        QCOMPARE(Rows(w.f, "SELECT * FROM Files ORDER BY fid"), files);
        QCOMPARE(Rows(w.f, "SELECT * FROM Paths ORDER BY pid"), paths);
        QCOMPARE(StoreFiles(w.f), Q(StoreEntries({"alpha"})));
        QCOMPARE(ErrorBoxes(w.env.box.calls), QStringList{kPurgeMismatch});
        const QStringList boxes = Boxes(w.env.box.calls);
        for (const QString& done : {Box("'" + two + "' successfully removed", 64),
                                    Box("Delete complete. You should now run Compact", 64),
                                    Box("Compact process complete", 64)})
            QVERIFY2(boxes.contains(done), qPrintable(done));
    }

    // A catalogue that refuses the statement of a command: its error box, and the window goes on.
    void ACatalogueErrorInAHandlerIsShownAndTheWindowGoesOn() {
        WindowEnv w;
        w.f.AddSource(w.env.Path("s"));
        frmMain& window = w.Open();
        window.Form_Load();
        w.f.Exec("DROP TABLE Sources");
        w.f.Exec("CREATE VIEW Sources AS SELECT 1 AS source");
        w.env.box.Answer(mb::kYes);
        w.ShowTab(0);
        w.Get<QListWidget>("lstSources")->setCurrentRow(0);
        w.env.box.calls.clear();
        w.Click("cmdRemove");
        QVERIFY(window.isVisible());
        QCOMPARE(Boxes(w.env.box.calls),
                 (QStringList{Box("Are you sure you want to remove '" + w.env.Path("s") + "'", 36),
                              Box("Error: No SQL statement", 16)}));
        QVERIFY(w.Get<QPushButton>("cmdBackup")->isEnabled());
    }

    // Words on the command line with no backup path leave the window open for a person, whose
    // errors show their box as in any window.
    void AnUnattendedStartWithoutABackupPathLeavesErrorBoxesOn() {
        WindowEnv w;
        WriteRegSetting("BackupPath", "");
        frmMain& window = w.Open("backup");
        QCOMPARE(window.Form_Load(), std::nullopt);
        QVERIFY(ErrHandler().DisplayMsgOnError());
        QCOMPARE(Boxes(w.env.box.calls), QStringList{kAskForPath});
    }

    void TheManualSaysWhenNoProgramCouldOpenIt() {
        WindowEnv w;
        ScopedManual manual;
        w.env.desktop.answer = false;
        w.Open().Form_Load();
        w.Get<QAction>("mnuManual")->trigger();
        QCOMPARE(Q(w.env.desktop.opened), QStringList{Q(ManualPath())});
        QCOMPARE(Boxes(w.env.box.calls),
                 QStringList{Box("No program could open \"QRV Manual.pdf\". Open it with a PDF "
                                 "viewer; it is at " +
                                     ProgramFolder() + "/QRV Manual.pdf",
                                 48)});
    }

    void TheManualSaysWhenItIsNotThere() {
        WindowEnv w;
        if (FSFileExists(ManualPath())) QSKIP("a manual is next to the test program");
        w.env.desktop.answer = false;
        w.Open().Form_Load();
        w.Get<QAction>("mnuManual")->trigger();
        QCOMPARE(Boxes(w.env.box.calls),
                 QStringList{Box("The manual \"QRV Manual.pdf\" is not where Stashwell keeps "
                                 "it: " +
                                     ProgramFolder() + "/QRV Manual.pdf",
                                 48)});
    }

    void TheManualOpenedSaysNothing() {
        WindowEnv w;
        w.Open().Form_Load();
        w.Get<QAction>("mnuManual")->trigger();
        QCOMPARE(Q(w.env.desktop.opened), QStringList{Q(ManualPath())});
        QVERIFY(w.env.box.calls.empty());
    }
};

QTEST_MAIN(RobustnessTest)
#include "test_Robustness.moc"
