// The real main window on the offscreen platform, driven as a person would: clicks and
// keystrokes on its named controls, every message box and folder pick answered from a script
// and recorded. Start-up, the options, the source list, the backup path, a run with its labels,
// cancel by a second click, the report, the unattended words, about and manual.

#include "WindowTest.h"

#include "app/CRunOutcome.h"
#include "app/modLastBackup.h"
#include "app/modPaths.h"
#include "app/modSysInfo.h"
#include "catalogue/CDatabase.h"
#include "controls/XP_ProgressBar.h"
#include "platform/modPlatformPaths.h"
#include "support/Version.h"
#include "support/modDateText.h"
#include "support/modServices.h"
#include "ui/frmAbout.h"
#include "ui/frmReport.h"

#include <QAbstractButton>
#include <QAction>
#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QTabWidget>

#include <map>
#include <sys/stat.h>

namespace {

QStringList ListRows(const QListWidget* list) {
    QStringList rows;
    for (int i = 0; i < list->count(); ++i)
        rows << list->item(i)->text();
    return rows;
}

// Types into a box one key at a time, replacing what it held, and calls `after` after each key.
template <class After> void TypeOver(QLineEdit* box, const QString& keys, After after) {
    box->setFocus();
    box->selectAll();
    for (const QChar key : keys) {
        QTest::keyClick(box, key.toLatin1());
        after(key);
    }
}

int Reports(const frmMain& window) {
    return static_cast<int>(window.findChildren<frmReport*>().size());
}

} // namespace

class frmMainTest : public QObject {
    Q_OBJECT

private slots:
    // ---- start-up ----

    void LoadSetsTheTitleAndTheBarColoursAndShowsTheFirstTab() {
        WindowEnv w;
        frmMain& window = w.Open();
        QCOMPARE(window.Form_Load(), std::nullopt);
        QCOMPARE(window.windowTitle(),
                 QStringLiteral("Korvex QRV - Ver ") + QString::number(version::kMajor) + "." +
                     QString::number(version::kMinor) + "." + QString::number(version::kRevision));
        for (const char* bar : {"XP_PB1", "XP_PB2", "XP_PB3"})
            QCOMPARE(w.Get<XP_ProgressBar>(bar)->Color(), 0x004A86E4u);
        QCOMPARE(w.Get<QTabWidget>("SSTab1")->currentIndex(), 0);
        QCOMPARE(w.Get<QLineEdit>("txtBackupPath")->text(), Q(w.f.backup));
        QVERIFY(w.env.box.calls.empty());
        QCOMPARE(ErrHandler().StackPointer(), 0);
    }

    void FirstStartWithoutABackupPathAsksForOneAndLoadsNothingElse() {
        WindowEnv w;
        WriteRegSetting("BackupPath", "");
        w.f.AddSource(w.env.Path("listed in another catalogue"));
        frmMain& window = w.Open();
        QCOMPARE(window.Form_Load(), std::nullopt);
        QCOMPARE(w.Get<QTabWidget>("SSTab1")->currentIndex(), 2);
        // The path box is painted yellow inside.
        auto* path = w.Get<QLineEdit>("txtBackupPath");
        w.ShowTab(2);
        const QImage box = path->grab().toImage();
        QCOMPARE(box.pixelColor(box.width() / 2, box.height() / 2), QColor(255, 255, 0));
        QCOMPARE(Boxes(w.env.box.calls),
                 QStringList{Box("Please define the backup path to proceed", 64)});
        QCOMPARE(w.Get<QListWidget>("lstSources")->count(), 0);
        QCOMPARE(w.Get<QLineEdit>("txtBackupPath")->text(), QString());
    }

    void FirstStartThroughToAFinishedBackup() {
        WindowEnv w;
        WriteRegSetting("BackupPath", "");
        frmMain& window = w.Open();
        QCOMPARE(window.Form_Load(), std::nullopt);

        // The backup path, picked.
        const std::string chosen = w.env.Path("chosen");
        CreateTree(chosen, Dir());
        w.env.picker.Answer(chosen);
        QTest::mouseClick(w.Get<QPushButton>("cmdSelBackupPath"), Qt::LeftButton);
        QCOMPARE(w.Get<QLineEdit>("txtBackupPath")->text(), Q(chosen));
        QCOMPARE(w.Get<QLineEdit>("txtBackupPath")->styleSheet(), QString());
        QVERIFY(Exists(chosen + "/db/Backup.db"));
        QCOMPARE(Q(GetBackupPath()), Q(chosen));

        // Two sources, added.
        const std::string one = w.env.Path("one"), two = w.env.Path("two");
        CreateTree(one, Dir({{"a.txt", File("alpha")}, {"sub", Dir({{"b.txt", File("beta")}})}}));
        CreateTree(two, Dir({{"c.txt", File("gamma")}}));
        w.env.picker.Answer(one);
        w.env.picker.Answer(two);
        QTest::mouseClick(w.Get<QPushButton>("cmdAddSrc"), Qt::LeftButton);
        QTest::mouseClick(w.Get<QPushButton>("cmdAddSrc"), Qt::LeftButton);
        QCOMPARE(ListRows(w.Get<QListWidget>("lstSources")), (QStringList{Q(one), Q(two)}));
        QCOMPARE(Q(w.env.picker.prompts),
                 (QStringList{"Select Backup Path", "Select source to backup",
                              "Select source to backup"}));

        // The run.
        w.Get<QTabWidget>("SSTab1")->setCurrentIndex(0);
        QTest::mouseClick(w.Get<QPushButton>("cmdBackup"), Qt::LeftButton);
        const std::string db = chosen + "/db/Backup.db";
        QStringList files;
        for (const auto& row : SqlRows(db, "SELECT bid, file, md5, size FROM Files ORDER BY fid"))
            files << Q(row[0] + "|" + row[1] + "|" + row[2] + "|" + row[3]);
        QCOMPARE(files, (QStringList{Q("1|" + one + "/a.txt|" + TestSignature("alpha") + "|5"),
                                     Q("1|" + one + "/sub/b.txt|" + TestSignature("beta") + "|4"),
                                     Q("2|" + two + "/c.txt|" + TestSignature("gamma") + "|5")}));
        for (const char* content : {"alpha", "beta", "gamma"})
            QCOMPARE(Q(ReadFile(StoreFile(chosen, content))), Q(content));
        QVERIFY(TextOf(w.Get<QLabel>("lblSource")).starts_with("Backup Complete. MB in 00:00:0"));
        QCOMPARE(w.Get<QLabel>("lblProcessing")->text(), Q(two));
        QCOMPARE(w.Get<QLabel>("lblCount")->text(), QStringLiteral("1"));
        QCOMPARE(w.Get<QLabel>("lblDone")->text(), QStringLiteral("1"));
        QVERIFY(TextOf(w.Get<QLabel>("lblThruPut")).ends_with(" MB/s"));
        // The bytes of the last source, all done, and of the whole run.
        QCOMPARE(w.Get<QLabel>("lblBytes")->text(),
                 QStringLiteral("5 bytes of 5 bytes; whole run 14 bytes of 14 bytes"));
        QCOMPARE(w.Get<XP_ProgressBar>("XP_PB1")->Value(), 100);
        QCOMPARE(w.Get<QPushButton>("cmdBackup")->text(), QStringLiteral("Backup"));
        QCOMPARE(w.Get<QPushButton>("cmdBackup")->toolTip(), QStringLiteral("Commence backup run"));
        QVERIFY(w.Get<QTabWidget>("SSTab1")->isTabEnabled(2));
        QCOMPARE(Reports(window), 1);
        // The report begins with what the run did, above the day's log.
        auto* summary = window.findChild<frmReport*>()->findChild<QPlainTextEdit*>("txtSummary");
        QVERIFY(summary && summary->isVisible());
        QCOMPARE(summary->toPlainText(),
                 Q("Added 3 new files, 14 bytes; 0 already stored; no problems.\n" + one +
                   ": 2 files, 2 new (9 bytes), 0 already stored.\n" + two +
                   ": 1 file, 1 new (5 bytes), 0 already stored."));
        QCOMPARE(Boxes(w.env.box.calls),
                 QStringList{Box("Please define the backup path to proceed", 64)});
    }

    void DriveNotReadyYesGoesToTheConfiguration() {
        WindowEnv w;
        WriteRegSetting("BackupPath", w.env.Path("unplugged"));
        w.env.box.Answer(mb::kYes);
        frmMain& window = w.Open();
        QCOMPARE(window.Form_Load(), std::nullopt);
        QCOMPARE(
            Boxes(w.env.box.calls),
            (QStringList{Box("Error: Backup drive not ready. Do you wish to change the path?", 20),
                         Box("Please define the backup path to proceed", 64)}));
        QCOMPARE(w.Get<QTabWidget>("SSTab1")->currentIndex(), 2);
        QCOMPARE(w.Get<QLineEdit>("txtBackupPath")->text(), Q(w.env.Path("unplugged")));
        QVERIFY(!Exists(w.env.Path("unplugged")));
    }

    void DriveNotReadyNoEndsTheProcess() {
        WindowEnv w;
        WriteRegSetting("BackupPath", w.env.Path("unplugged"));
        w.env.box.Answer(mb::kNo);
        frmMain& window = w.Open();
        QCOMPARE(window.Form_Load(), std::optional<int>(1));
        QCOMPARE(
            Boxes(w.env.box.calls),
            (QStringList{Box("Error: Backup drive not ready. Do you wish to change the path?", 20),
                         Box("Error: Backup drive not ready. Please fix and start again.", 16)}));
    }

    void DriveNotReadyWithACommandLineEndsWithoutAMessage() {
        WindowEnv w;
        WriteRegSetting("BackupPath", w.env.Path("unplugged"));
        frmMain& window = w.Open("backup");
        QCOMPARE(window.Form_Load(), std::optional<int>(1));
        QVERIFY(w.env.box.calls.empty());
    }

    // ---- options ----

    void StoredOptionsShowInTheirControls() {
        WindowEnv w;
        for (const auto& [key, value] :
             std::vector<std::pair<std::string, std::string>>{{"Hidden", "1"},
                                                              {"Restore", "1"},
                                                              {"Exclude", "*.bak"},
                                                              {"ExDirs", "cache"},
                                                              {"MaxBackups", "7"},
                                                              {"Log", "Advanced"}})
            w.f.SetOption(key, value);
        w.Open().Form_Load();
        QVERIFY(w.Get<QCheckBox>("chkHidden")->isChecked());
        QVERIFY(!w.Get<QCheckBox>("chkSystem")->isChecked());
        QVERIFY(w.Get<QCheckBox>("chkRestore")->isChecked());
        QCOMPARE(w.Get<QLineEdit>("txtExclude")->text(), QStringLiteral("*.bak"));
        QCOMPARE(w.Get<QLineEdit>("txtExDirs")->text(), QStringLiteral("cache"));
        QCOMPARE(w.Get<QLineEdit>("txtMaxBackups")->text(), QStringLiteral("7"));
        QVERIFY(w.Get<QRadioButton>("Option2")->isChecked());
        QCOMPARE(Logger().LogLevel(), 2);
    }

    void DesignTextsStayWhereTheStoreHoldsNothing() {
        WindowEnv w;
        w.Open().Form_Load();
        QCOMPARE(w.Get<QLineEdit>("txtExclude")->text(), QStringLiteral("*.tmp *.tst"));
        QCOMPARE(w.Get<QLineEdit>("txtExDirs")->text(), QStringLiteral("cvs tmp"));
        QCOMPARE(w.Get<QLineEdit>("txtMaxBackups")->text(), QStringLiteral("10"));
        QVERIFY(w.Get<QRadioButton>("Option1")->isChecked());
    }

    void StoredLogLevelTraceInLowerCaseSelectsBasic() {
        WindowEnv w;
        w.f.SetOption("Log", "trace");
        w.Open().Form_Load();
        QVERIFY(w.Get<QRadioButton>("Option1")->isChecked());
        QVERIFY(!w.Get<QRadioButton>("Option3")->isChecked());
    }

    void EveryOptionControlWritesItsKeyOnEveryChange() {
        WindowEnv w;
        w.Open().Form_Load();
        w.ShowTab(2);
        const auto value = [&](const std::string& key) {
            return Rows(w.f, "SELECT value FROM Setup WHERE key = '" + key + "'");
        };
        for (const auto& [name, key] : std::vector<std::pair<const char*, std::string>>{
                 {"chkHidden", "Hidden"},
                 {"chkSystem", "System"},
                 {"chkBackup", "Backup"},
                 {"chkRestore", "Restore"},
                 {"chkExclRecycler", "ExclRecycler"}}) {
            Tick(w.Get<QCheckBox>(name));
            QCOMPARE(value(key), QStringList{"1"});
            Tick(w.Get<QCheckBox>(name));
            QCOMPARE(value(key), QStringList{"0"});
        }
        Tick(w.Get<QRadioButton>("Option3"));
        QCOMPARE(value("Log"), QStringList{"Trace"});
        QCOMPARE(Logger().LogLevel(), 3);
        Tick(w.Get<QRadioButton>("Option2"));
        QCOMPARE(value("Log"), QStringList{"Advanced"});
        QCOMPARE(Logger().LogLevel(), 2);
        Tick(w.Get<QRadioButton>("Option1"));
        QCOMPARE(value("Log"), QStringList{"Basic"});
        QCOMPARE(Logger().LogLevel(), 1);
        QStringList stored;
        TypeOver(w.Get<QLineEdit>("txtExclude"), "*.b z",
                 [&](QChar) { stored << value("Exclude").join(","); });
        // The store keeps a value trimmed of blanks.
        QCOMPARE(stored, (QStringList{"*", "*.", "*.b", "*.b", "*.b z"}));
        stored.clear();
        TypeOver(w.Get<QLineEdit>("txtExDirs"), "ab",
                 [&](QChar) { stored << value("ExDirs").join(","); });
        QCOMPARE(stored, (QStringList{"a", "ab"}));
        QVERIFY(w.env.box.calls.empty());
    }

    void QuickCheckIsOffUntilTickedAndEachChangeIsKept() {
        WindowEnv w;
        const std::string source = w.env.Path("s");
        CreateTree(source, Dir({{"a.txt", File("alpha")}}));
        w.f.AddSource(source);
        w.Open().Form_Load();
        w.ShowTab(2);
        QCheckBox* box = w.Get<QCheckBox>("chkQuickCheck");
        QCOMPARE(box->text(),
                 QStringLiteral("Skip unchanged files (trust size and modification time)"));
        QVERIFY(!box->accessibleName().isEmpty());
        QVERIFY(!box->isChecked());
        const auto value = [&] {
            return Rows(w.f, "SELECT value FROM Setup WHERE key = 'QuickCheck'");
        };
        QCOMPARE(value(), QStringList{});
        Tick(box);
        QCOMPARE(value(), QStringList{"1"});
        // A run through the window keeps the stamps of its files beside the catalogue.
        w.ShowTab(0);
        QTest::mouseClick(w.Get<QPushButton>("cmdBackup"), Qt::LeftButton);
        const std::string kept = w.f.backup + "/db/QuickCheck.db";
        QCOMPARE(SqlRows(kept, "SELECT source, bid FROM Runs"),
                 (std::vector<std::vector<std::string>>{{source, "1"}}));
        w.ShowTab(2);
        Tick(box);
        QCOMPARE(value(), QStringList{"0"});
        QVERIFY(w.env.box.calls.empty());
    }

    void QuickCheckStoredAsTickedIsShownTicked() {
        WindowEnv w;
        w.f.SetOption("QuickCheck", "1");
        w.Open().Form_Load();
        QVERIFY(w.Get<QCheckBox>("chkQuickCheck")->isChecked());
    }

    void Typing150IntoALimitBoxThatHeld1() {
        WindowEnv w;
        w.f.SetOption("MaxBackups", "1");
        w.Open().Form_Load();
        QLineEdit* box = w.Get<QLineEdit>("txtMaxBackups");
        QCOMPARE(box->text(), QStringLiteral("1"));
        QStringList stored, shown;
        TypeOver(box, "150", [&](QChar) {
            stored << Rows(w.f, "SELECT value FROM Setup WHERE key = 'MaxBackups'").join(",");
            shown << box->text();
        });
        QCOMPARE(stored, (QStringList{"1", "15", "15"}));
        QCOMPARE(shown, (QStringList{"1", "15", "15"}));
        QCOMPARE(Boxes(w.env.box.calls), QStringList{Box("Valid range between 1-100", 64)});
    }

    void ClearingTheLimitBoxPutsBackTheStoredLimitOrTen() {
        WindowEnv w;
        w.Open().Form_Load();
        QLineEdit* box = w.Get<QLineEdit>("txtMaxBackups");
        box->setFocus();
        box->selectAll();
        QTest::keyClick(box, Qt::Key_Delete);
        QCOMPARE(box->text(), QStringLiteral("10"));
        QCOMPARE(Boxes(w.env.box.calls), QStringList{Box("Valid range between 1-100", 64)});
        QCOMPARE(Rows(w.f, "SELECT count(*) FROM Setup WHERE key = 'MaxBackups'"),
                 QStringList{"0"});
    }

    void ToolTipsTellWhatEachOptionDoes() {
        WindowEnv w;
        w.Open().Form_Load();
        const std::vector<std::pair<const char*, const char*>> tips = {
            {"txtBackupPath", "The location where your backup files will be kept"},
            {"txtExclude", "Space-delimited list of file extensions to exclude from backups"},
            {"txtExDirs", "Space-delimited list of folders to exclude from backups. CAUTION: It "
                          "will also exclude any files and folders below any folders with these "
                          "names"},
            {"chkExclRecycler", "Exclude files already deleted"},
            {"txtMaxBackups", "Maximum number of backups per source. After the number is reached "
                              "any further backups will replace the oldest backup"},
            {"fraLogLevel",
             "Basic is for most users. Advanced is for the paranoid. Trace is for nerds"},
            {"fraVerification", "Use this if you are paranoid"},
            {"cmdRestoreTo", "Restore to an alternate location"},
            {"cmdRestore", "Commence restore"},
            {"cmdSelBackup", "Select the files or folders to be restored from Source"},
            {"cmdCompact", "Removes orphan files and cleans up the database. Can take many "
                           "minutes. Normally run after you \"Delete\" a source"},
            {"cmdManage", "CAUTION: this deletes all backups of any source not currently shown "
                          "in the window on the \"Backup\" tab. Run \"Compact\" after deleting"},
            {"cmdPurge", "If you have reduced the \"Backup limit\" above, this will purge excess "
                         "records from the database. A purge is executed automatically after "
                         "each backup run"},
            {"cmdBackup", "Commence backup run"},
        };
        for (const auto& [name, tip] : tips)
            QCOMPARE(w.Get<QWidget>(name)->toolTip(), QString::fromLatin1(tip));
    }

    void EveryControlHasItsNameAndAnAccessibleName() {
        WindowEnv w;
        w.Open().Form_Load();
        for (const char* name :
             {"SSTab1",        "kvLogo",       "lstSources",    "cmdAddSrc",     "cmdRemove",
              "cmdBackup",     "lblSource",    "lblProcessing", "lblCount",      "lblDone",
              "lblThruPut",    "XP_PB1",       "cmdSelBackup",  "lblBid",        "tvDirs",
              "cmdRestore",    "cmdRestoreTo", "XP_PB2",        "txtBackupPath", "cmdSelBackupPath",
              "chkHidden",     "chkSystem",    "chkBackup",     "chkRestore",    "Option1",
              "Option2",       "Option3",      "txtExclude",    "txtExDirs",     "chkExclRecycler",
              "txtMaxBackups", "cmdManage",    "cmdPurge",      "cmdCompact",    "XP_PB3"})
            QVERIFY2(!w.Get<QWidget>(name)->accessibleName().isEmpty(), name);
        for (const char* menu : {"mnuExit", "mnuManual", "mnuAbout"})
            QVERIFY(w.Get<QAction>(menu));
        QCOMPARE(w.Get<QAction>("mnuExit")->shortcut(), QKeySequence(QKeySequence::Quit));
        QCOMPARE(w.Get<QPushButton>("cmdBackup")->shortcut(), QKeySequence("Alt+B"));
        // Alt+3 shows the configuration tab.
        w.ShowTab(0);
        QTest::keyClick(w.window.get(), Qt::Key_3, Qt::AltModifier);
        QCOMPARE(w.Get<QTabWidget>("SSTab1")->currentIndex(), 2);
        QCOMPARE(w.Get<QCheckBox>("chkHidden")->text(), QStringLiteral("Hidden files"));
        QCOMPARE(w.Get<QCheckBox>("chkBackup")->text(), QStringLiteral("On Backup"));
        QCOMPARE(w.Get<QRadioButton>("Option3")->text(), QStringLiteral("Trace"));
        QCOMPARE(w.Get<QCheckBox>("chkExclRecycler")->text(),
                 QStringLiteral("Exclude Recycle Bin"));
        // Keyboard users meet the sources, then Add, Remove and Backup.
        QCOMPARE(NextTabStop(w.Get<QWidget>("lstSources")), w.Get<QWidget>("cmdAddSrc"));
        QCOMPARE(NextTabStop(w.Get<QWidget>("cmdAddSrc")), w.Get<QWidget>("cmdRemove"));
        QCOMPARE(NextTabStop(w.Get<QWidget>("cmdRemove")), w.Get<QWidget>("cmdBackup"));
        QCOMPARE(NextTabStop(w.Get<QWidget>("txtExDirs")), w.Get<QWidget>("chkExclRecycler"));
    }

    // ---- sources and the backup path ----

    void AddingTheSameFolderTwiceSaysSoAndAddsNothing() {
        WindowEnv w;
        w.Open().Form_Load();
        const std::string folder = w.env.Path("Bob's Documents");
        CreateTree(folder, Dir());
        w.env.picker.Answer(folder);
        w.env.picker.Answer(folder);
        QTest::mouseClick(w.Get<QPushButton>("cmdAddSrc"), Qt::LeftButton);
        QTest::mouseClick(w.Get<QPushButton>("cmdAddSrc"), Qt::LeftButton);
        QCOMPARE(Boxes(w.env.box.calls), QStringList{Box("Source already in list", 64)});
        QCOMPARE(Rows(w.f, "SELECT source FROM Sources"), QStringList{Q(folder)});
        QCOMPARE(ListRows(w.Get<QListWidget>("lstSources")), QStringList{Q(folder)});
    }

    void CancelledSourcePickAddsNothing() {
        WindowEnv w;
        w.Open().Form_Load();
        QTest::mouseClick(w.Get<QPushButton>("cmdAddSrc"), Qt::LeftButton);
        QCOMPARE(Rows(w.f, "SELECT count(*) FROM Sources"), QStringList{"0"});
        QCOMPARE(Q(w.env.picker.prompts), QStringList{"Select source to backup"});
    }

    void RemovingASourceAsksFirstAndKeepsItsRuns() {
        WindowEnv w;
        const std::string source = w.env.Path("src");
        w.f.AddSource(source);
        CDatabase db;
        db.Connect(w.f.db);
        db.BackupRun(source);
        w.Open().Form_Load();
        QListWidget* list = w.Get<QListWidget>("lstSources");
        QPushButton* remove = w.Get<QPushButton>("cmdRemove");

        QTest::mouseClick(remove, Qt::LeftButton); // nothing selected
        list->setCurrentRow(0);
        w.env.box.Answer(mb::kNo);
        QTest::mouseClick(remove, Qt::LeftButton);
        QCOMPARE(list->count(), 1);
        w.env.box.Answer(mb::kYes);
        QTest::mouseClick(remove, Qt::LeftButton);
        QCOMPARE(Boxes(w.env.box.calls),
                 (QStringList{Box("Please select a Source to remove", 64),
                              Box("Are you sure you want to remove '" + source + "'", 36),
                              Box("Are you sure you want to remove '" + source + "'", 36),
                              Box("'" + source + "' successfully removed", 64)}));
        QCOMPARE(list->count(), 0);
        QCOMPARE(Rows(w.f, "SELECT count(*) FROM Sources"), QStringList{"0"});
        QCOMPARE(Rows(w.f, "SELECT source FROM Backups"), QStringList{Q(source)});
    }

    void ChangingTheBackupPathShowsThatCataloguesOptionsAndSources() {
        WindowEnv w;
        w.f.AddSource(w.env.Path("first source"));
        const std::string first = w.f.backup;
        // A second backup folder with its own options and sources.
        w.f.UseBackupPath(w.env.Path("second"));
        w.f.SetOption("Exclude", "*.bak");
        w.f.SetOption("MaxBackups", "3");
        w.f.SetOption("Hidden", "1");
        w.f.AddSource(w.env.Path("second source"));
        WriteRegSetting("BackupPath", first);
        w.Open().Form_Load();
        QCOMPARE(ListRows(w.Get<QListWidget>("lstSources")),
                 QStringList{Q(w.env.Path("first source"))});
        w.env.picker.Answer(w.env.Path("second"));
        QTest::mouseClick(w.Get<QPushButton>("cmdSelBackupPath"), Qt::LeftButton);
        QCOMPARE(ListRows(w.Get<QListWidget>("lstSources")),
                 QStringList{Q(w.env.Path("second source"))});
        QCOMPARE(w.Get<QLineEdit>("txtExclude")->text(), QStringLiteral("*.bak"));
        QCOMPARE(w.Get<QLineEdit>("txtMaxBackups")->text(), QStringLiteral("3"));
        QVERIFY(w.Get<QCheckBox>("chkHidden")->isChecked());
        QCOMPARE(Q(ReadRegSetting("BackupPath")), Q(w.env.Path("second")));
        // The daily log now goes under the new backup path.
        QCOMPARE(Q(Logger().LogFile()).startsWith(Q(w.env.Path("second/Logs/QRV-"))), true);
    }

    // ---- the run ----

    void EmptySourceListCompletesWithAnEmptySummary() {
        WindowEnv w;
        frmMain& window = w.Open();
        window.Form_Load();
        QTest::mouseClick(w.Get<QPushButton>("cmdBackup"), Qt::LeftButton);
        QCOMPARE(w.Get<QLabel>("lblSource")->text(),
                 QStringLiteral("Backup Complete. MB in 00:00:00"));
        QCOMPARE(Reports(window), 1);
        QVERIFY(Logger().Started());
    }

    void LabelsShowEachSourceOfFiveAndTheSummary() {
        WindowEnv w;
        std::vector<std::string> sources;
        for (int i = 1; i <= 5; ++i) {
            sources.push_back(w.env.Path("s" + std::to_string(i)));
            // 1,536,000 bytes in all: the summary shows 2MB.
            CreateTree(sources.back(), Dir({{"f.bin", File(std::string(307200, char('a' + i)))}}));
            w.f.AddSource(sources.back());
        }
        frmMain& window = w.Open();
        window.Form_Load();
        QStringList statuses;
        std::map<int, QString> progress; // by the row shown selected
        QObject::connect(&window, &frmMain::RunShown, [&] {
            const QString status = w.Get<QLabel>("lblSource")->text();
            if (!status.isEmpty() && (statuses.isEmpty() || statuses.back() != status))
                statuses << status;
            if (w.Get<QLabel>("lblDone")->text() == "1")
                progress[w.Get<QListWidget>("lstSources")->currentRow()] =
                    w.Get<QLabel>("lblThruPut")->text().section(' ', 1) + "|" +
                    QString::number(w.Get<XP_ProgressBar>("XP_PB1")->Value());
        });
        QTest::mouseClick(w.Get<QPushButton>("cmdBackup"), Qt::LeftButton);
        QCOMPARE(statuses.mid(0, 5),
                 (QStringList{"Processing 1 of 5", "Processing 2 of 5", "Processing 3 of 5",
                              "Processing 4 of 5", "Processing 5 of 5"}));
        QVERIFY(statuses.back().startsWith("Backup Complete. 2MB in 00:00:0"));
        QStringList done;
        for (const auto& [row, shown] : progress)
            done << QString::number(row) + "|" + shown;
        QCOMPARE(done, (QStringList{"0|MB/s|100", "1|MB/s|100", "2|MB/s|100", "3|MB/s|100",
                                    "4|MB/s|100"}));
    }

    void ProgressShownSparinglyStillEndsAtTheLastFile() {
        WindowEnv w;
        const std::string source = w.env.Path("many");
        MakeRandomFiles(source, 300, 7);
        w.f.AddSource(source);
        w.Open().Form_Load();
        QTest::mouseClick(w.Get<QPushButton>("cmdBackup"), Qt::LeftButton);
        QCOMPARE(w.Get<QLabel>("lblCount")->text(), QStringLiteral("300"));
        QCOMPARE(w.Get<QLabel>("lblDone")->text(), QStringLiteral("300"));
        QCOMPARE(w.Get<XP_ProgressBar>("XP_PB1")->Value(), 100);
        QVERIFY(TextOf(w.Get<QLabel>("lblSource")).starts_with("Backup Complete. "));
    }

    void SmallRunSummaryShowsNoMegabytes() {
        WindowEnv w;
        const std::string source = w.env.Path("small");
        CreateTree(source, Dir({{"f.bin", File(std::string(400000, 'x'))}}));
        w.f.AddSource(source);
        w.Open().Form_Load();
        QTest::mouseClick(w.Get<QPushButton>("cmdBackup"), Qt::LeftButton);
        QVERIFY(TextOf(w.Get<QLabel>("lblSource")).starts_with("Backup Complete. MB in 00:00:0"));
        QCOMPARE(w.Get<QLabel>("lblThruPut")->text().startsWith(" "), false);
        QVERIFY(TextOf(w.Get<QLabel>("lblThruPut")).ends_with(" MB/s"));
    }

    void DuringTheRunTheButtonCancelsAndTheOtherTabsAndSourceButtonsAreDisabled() {
        WindowEnv w;
        const std::string source = w.env.Path("s");
        CreateTree(source, Dir({{"a.txt", File("a")}, {"b.txt", File("b")}}));
        w.f.AddSource(source);
        frmMain& window = w.Open();
        window.Form_Load();
        QStringList seen;
        QObject::connect(&window, &frmMain::RunShown, [&] {
            if (!seen.isEmpty()) return;
            auto* tabs = w.Get<QTabWidget>("SSTab1");
            seen << w.Get<QPushButton>("cmdBackup")->text()
                 << w.Get<QPushButton>("cmdBackup")->toolTip()
                 << QString::number(tabs->isTabEnabled(0)) << QString::number(tabs->isTabEnabled(1))
                 << QString::number(tabs->isTabEnabled(2))
                 << QString::number(w.Get<QPushButton>("cmdAddSrc")->isEnabled())
                 << QString::number(w.Get<QPushButton>("cmdRemove")->isEnabled());
        });
        QTest::mouseClick(w.Get<QPushButton>("cmdBackup"), Qt::LeftButton);
        QCOMPARE(seen,
                 (QStringList{"Cancel", "Cancel backup in progress", "1", "0", "0", "0", "0"}));
        QVERIFY(w.Get<QTabWidget>("SSTab1")->isTabEnabled(1));
        QVERIFY(w.Get<QPushButton>("cmdAddSrc")->isEnabled());
    }

    void CancelDuringTheSecondOfThreeSources() {
        WindowEnv w;
        std::vector<std::string> sources;
        CDatabase db;
        db.Connect(w.f.db);
        for (const char* name : {"one", "two", "three"}) {
            sources.push_back(w.env.Path(name));
            CreateTree(sources.back(), Dir({{"a.txt", File(std::string(name) + " a")},
                                            {"b.txt", File(std::string(name) + " b")}}));
            w.f.AddSource(sources.back());
            db.BackupRun(sources.back()); // earlier runs: a limit of 1 would drop them
            db.BackupRun(sources.back());
        }
        w.f.SetOption("MaxBackups", "1");
        frmMain& window = w.Open();
        window.Form_Load();
        Logger().LogLevel(3);
        bool clicked = false;
        // The second click, made when the second source's first file is shown as done.
        QObject::connect(&window, &frmMain::RunShown, [&] {
            if (clicked || w.Get<QLabel>("lblProcessing")->text() != Q(sources[1]) ||
                w.Get<QLabel>("lblDone")->text() != "1")
                return;
            clicked = true;
            QTest::mouseClick(w.Get<QPushButton>("cmdBackup"), Qt::LeftButton);
        });
        QTest::mouseClick(w.Get<QPushButton>("cmdBackup"), Qt::LeftButton);
        QVERIFY(clicked);
        QCOMPARE(w.Get<QLabel>("lblSource")->text(), QStringLiteral("Backup cancelled"));
        // One report, read again at the run's end: it holds the whole log of the run.
        QCOMPARE(Reports(window), 1);
        const auto reported = LogMessages(window.findChild<frmReport*>()->Text());
        QVERIFY(std::count(reported.begin(), reported.end(), "Cancel requested. Stopping...\r\n"));
        QVERIFY(std::count(reported.begin(), reported.end(), "Backup complete\r\n"));
        // Source one ran and was pruned to one run; two was rolled back and not pruned; three
        // never started.
        QCOMPARE(Rows(w.f, "SELECT bid, source FROM Backups ORDER BY bid"),
                 (QStringList{Q("3|" + sources[1]), Q("4|" + sources[1]), Q("5|" + sources[2]),
                              Q("6|" + sources[2]), Q("7|" + sources[0])}));
        const auto log = LogMessages(ReadFile(Logger().LogFile()));
        const auto cancel = std::find(log.begin(), log.end(), "Cancel requested. Stopping...\r\n");
        QVERIFY(cancel != log.end());
        // Both closing steps purged the logs.
        QCOMPARE(std::count(cancel, log.end(), "FindFiles " + w.f.backup + "/Logs\r\n"), 2);
        QVERIFY(std::find(log.begin(), log.end(), "Source: " + sources[2] + "\r\n") == log.end());
        QCOMPARE(w.Get<QPushButton>("cmdBackup")->text(), QStringLiteral("Backup"));
    }

    void LostRunShowsTheErrorBoxAndNeverSaysBackupComplete() {
        WindowEnv w;
        const std::string src = w.env.Path("s");
        CreateTree(src, Dir({{"a.txt", File("alpha")}}));
        w.f.AddSource(src);
        w.f.Exec("CREATE TRIGGER damaged BEFORE INSERT ON Files BEGIN "
                 "SELECT RAISE(ABORT, 'damaged page'); END;");
        frmMain& window = w.Open();
        window.Form_Load();
        w.BackUp();
        QCOMPARE(w.Get<QLabel>("lblSource")->text(),
                 QStringLiteral("Backup failed: the run of 1 source was lost"));
        QCOMPARE(Boxes(w.env.box.calls),
                 QStringList{QStringLiteral("The following error has occurred in procedure: "
                                            "\r\nCBackup_Exec on line 0\r\nError (10006) the "
                                            "catalogue could not record 1 of its rows: damaged "
                                            "page\r\nCurrent Operation: Commit | 16 | Stashwell")});
        // The report shows the log, which names the lost run.
        QCOMPARE(Reports(window), 1);
        const auto log = LogMessages(ReadFile(Logger().LogFile()));
        QVERIFY(std::find(log.begin(), log.end(),
                          "Problem: The run of " + src +
                              " was lost: the catalogue could not record 1 of its rows: damaged "
                              "page\r\n") != log.end());
        QCOMPARE(Rows(w.f, "SELECT count(*) FROM Backups"), QStringList{"0"});
    }

    void DamagedCatalogueIsNamedInABoxAtLoad() {
        WindowEnv w;
        w.f.Exec("DROP TABLE Paths");
        frmMain& window = w.Open();
        window.Form_Load();
        QCOMPARE(Boxes(w.env.box.calls),
                 QStringList{
                     Box("The catalogue " + w.f.db + " cannot be read: no such table: Paths", 16)});
    }

    void ExitDuringARunCancelsItAndClosesTheWindowWhenItHasStopped() {
        WindowEnv w;
        std::vector<std::string> sources;
        for (const char* name : {"one", "two"}) {
            sources.push_back(w.env.Path(name));
            CreateTree(sources.back(), Dir({{"a.txt", File(std::string(name) + " a")},
                                            {"b.txt", File(std::string(name) + " b")}}));
            w.f.AddSource(sources.back());
        }
        CDatabase db;
        db.Connect(w.f.db);
        db.BackupRun(sources[0]); // a run of today keeps today's log when the logs are purged
        frmMain& window = w.Open();
        window.Form_Load();
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        bool exited = false;
        bool visibleWhileStopping = false;
        QObject::connect(&window, &frmMain::RunShown, [&] {
            if (exited || w.Get<QLabel>("lblDone")->text() != "1") return;
            exited = true;
            w.Get<QAction>("mnuExit")->trigger();
            visibleWhileStopping = window.isVisible();
        });
        QTest::mouseClick(w.Get<QPushButton>("cmdBackup"), Qt::LeftButton);
        QVERIFY(exited);
        QVERIFY(visibleWhileStopping);
        QVERIFY(!window.isVisible());
        QCOMPARE(w.Get<QLabel>("lblSource")->text(), QStringLiteral("Backup cancelled"));
        QCOMPARE(Reports(window), 0);
        // The cancelled run left no row; the earlier run is all there is.
        QCOMPARE(Rows(w.f, "SELECT bid, source FROM Backups"), QStringList{Q("1|" + sources[0])});
        QCOMPARE(Rows(w.f, "SELECT count(*) FROM Files"), QStringList{"0"});
        const auto log = LogMessages(ReadFile(Logger().LogFile()));
        QCOMPARE(std::count(log.begin(), log.end(), "Cancel requested. Stopping...\r\n"), 1);
        QVERIFY(std::find(log.begin(), log.end(), "Source: " + sources[1] + "\r\n") == log.end());
    }

    void RecycleBinTickedWithNoFoldersExcludesOnlyTheRecycler() {
        WindowEnv w;
        const std::string source = w.env.Path("s");
        CreateTree(source, Dir({{"recycler", Dir({{"gone.txt", File("deleted")}})},
                                {"tmp", Dir({{"kept.txt", File("kept")}})}}));
        w.f.AddSource(source);
        w.Open().Form_Load();
        w.ShowTab(2);
        Tick(w.Get<QCheckBox>("chkExclRecycler"));
        QLineEdit* folders = w.Get<QLineEdit>("txtExDirs");
        folders->setFocus();
        folders->selectAll();
        QTest::keyClick(folders, Qt::Key_Delete);
        w.ShowTab(0);
        QTest::mouseClick(w.Get<QPushButton>("cmdBackup"), Qt::LeftButton);
        QCOMPARE(Rows(w.f, "SELECT file FROM Files"), QStringList{Q(source + "/tmp/kept.txt")});
    }

    // ---- the unattended words with the window present ----

    void CompactInCapitalsIsRecognised() {
        WindowEnv w;
        frmMain& window = w.Open("COMPACT");
        QCOMPARE(window.Form_Load(), std::optional<int>(0));
        const auto log = LogMessages(ReadFile(w.f.TodaysLogPath()));
        QVERIFY(std::find(log.begin(), log.end(), "Compacting database\r\n") != log.end());
        QCOMPARE(Q(log.back()), QStringLiteral("Exiting QRV\r\n"));
        QCOMPARE(Q(*(log.end() - 2)), QStringLiteral("Unattended backup complete\r\n"));
        QCOMPARE(Reports(window), 0);
    }

    void DashBackupIsNotAWordButTheRunStillEnds() {
        WindowEnv w;
        const std::string source = w.env.Path("s");
        CreateTree(source, Dir({{"a.txt", File("a")}}));
        w.f.AddSource(source);
        frmMain& window = w.Open("-backup");
        QCOMPARE(window.Form_Load(), std::optional<int>(0));
        QCOMPARE(Rows(w.f, "SELECT count(*) FROM Backups"), QStringList{"0"});
        const auto log = LogMessages(ReadFile(w.f.TodaysLogPath()));
        QCOMPARE(Q(*(log.end() - 2)), QStringLiteral("Unattended backup complete\r\n"));
    }

    void UnattendedBackupWithTheWindowShowsNoBoxAndNoReport() {
        WindowEnv w;
        const std::string source = w.env.Path("s");
        CreateTree(source, Dir({{"a.txt", File("a")}}));
        w.f.AddSource(source);
        frmMain& window = w.Open("backup");
        QCOMPARE(window.Form_Load(), std::optional<int>(0));
        QCOMPARE(Rows(w.f, "SELECT file FROM Files"), QStringList{Q(source + "/a.txt")});
        QCOMPARE(Reports(window), 0);
        QVERIFY(w.env.box.calls.empty());
        QVERIFY(!ErrHandler().DisplayMsgOnError());
    }

    // ---- about, report, manual ----

    void ReportShowsTheLogFileLineByLineAfterTheLoggerStopped() {
        WindowEnv w;
        const std::string log = w.env.Path("report.log");
        WriteFile(log, "first\r\nsecond\nthird\rfourth");
        frmReport report(Q(log));
        QCOMPARE(Q(report.Text()), QStringLiteral("first\r\nsecond\r\nthird\r\nfourth\r\n"));
        QCOMPARE(report.findChild<QPlainTextEdit*>("txtReport")->toPlainText(),
                 QStringLiteral("first\nsecond\nthird\nfourth\n"));
        QVERIFY(report.findChild<QPushButton*>("OKButton"));
    }

    void ReportOfAMissingLogIsReportedByTheErrorHandler() {
        WindowEnv w;
        ErrHandler().DisplayMsgOnError(false);
        frmReport report(Q(w.env.Path("missing.log")));
        QCOMPARE(ErrHandler().ErrNumber(), 53);
        QCOMPARE(Q(ErrHandler().ErrProcedure()), QStringLiteral("frmReport Form_Load"));
        QCOMPARE(Q(report.Text()), QString());
    }

    void AboutShowsTheTitleAndVersion() {
        WindowEnv w;
        frmAbout about;
        QCOMPARE(about.windowTitle(), QStringLiteral("About Stashwell"));
        QCOMPARE(about.findChild<QLabel*>("lblVersion")->text(),
                 QStringLiteral("Version ") + QString::number(version::kMajor) + "." +
                     QString::number(version::kMinor) + "." + QString::number(version::kRevision));
        QCOMPARE(about.findChild<QPushButton*>("cmdSysInfo")->text(),
                 QStringLiteral("&System Info..."));
    }

    void SystemInfoWithoutAToolSaysItIsUnavailable() {
        WindowEnv w;
        const QByteArray path = qgetenv("PATH");
        qputenv("PATH", QByteArray::fromStdString(w.env.Path("empty")));
        frmAbout about;
        QTest::mouseClick(about.findChild<QPushButton*>("cmdSysInfo"), Qt::LeftButton);
        qputenv("PATH", path);
        QCOMPARE(Boxes(w.env.box.calls),
                 QStringList{Box("System Information Is Unavailable At This Time", 0)});
        QVERIFY(w.env.desktop.started.empty());
    }

    void SystemInfoStartsTheToolTheSettingsName() {
        WindowEnv w;
        const std::string tool = w.env.Path("sysinfo");
        WriteFile(tool, "#!/bin/sh\n");
        ::chmod(tool.c_str(), 0755);
        WriteFile(w.env.ConfigHome() + "/Korvex/QRV.conf",
                  "[SOFTWARE\\Korvex\\QRV\\Settings]\nBackupPath=" + w.f.backup +
                      "\n[SOFTWARE\\Microsoft\\Shared Tools\\MSINFO]\nPATH=" + tool + "\n");
        frmAbout about;
        QTest::mouseClick(about.findChild<QPushButton*>("cmdSysInfo"), Qt::LeftButton);
        QCOMPARE(Q(w.env.desktop.started), QStringList{Q(tool)});
        QVERIFY(w.env.box.calls.empty());
    }

    void ManualOpensQrvManualPdfFromTheProgramsFolder() {
        WindowEnv w;
        w.Open().Form_Load();
        w.Get<QAction>("mnuManual")->trigger();
        QCOMPARE(Q(w.env.desktop.opened), QStringList{Q(ProgramFolder() + "/QRV Manual.pdf")});
    }

    void LastBackupLineWarnsUntilARunCompletesAndThenTellsIt() {
        WindowEnv w;
        w.Open().Form_Load();
        auto* line = w.Get<QLabel>("lblLastBackup");
        QCOMPARE(line->text(), QStringLiteral("Last backup: none yet"));
        QVERIFY(line->styleSheet().contains(QStringLiteral("#b00020")));
        const std::string source = w.env.Path("s");
        CreateTree(source, Dir({{"a.txt", File("alpha")}}));
        w.f.AddSource(source);
        w.window->Form_Load();
        w.BackUp();
        QVERIFY2(line->text().startsWith(QStringLiteral("Last backup: ")),
                 qPrintable(line->text()));
        QVERIFY2(line->text().endsWith(QStringLiteral(", completed")), qPrintable(line->text()));
        QCOMPARE(line->styleSheet(), QString());
    }

    void AnOverdueLastBackupIsShownAtTheStart() {
        WindowEnv w;
        const std::time_t now = std::time(nullptr);
        RecordRunEnd(CRunOutcome(), now - 9 * 24 * 3600);
        w.Open().Form_Load();
        auto* line = w.Get<QLabel>("lblLastBackup");
        QCOMPARE(line->text(), Q("Last backup: " + DateTimeText(now - 9 * 24 * 3600) +
                                 ", completed. No backup for 9 days"));
        QVERIFY(line->styleSheet().contains(QStringLiteral("#b00020")));
        QVERIFY(!line->accessibleName().isEmpty());
    }

    void ExitClosesTheWindow() {
        WindowEnv w;
        frmMain& window = w.Open();
        window.Form_Load();
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        w.Get<QAction>("mnuExit")->trigger();
        QTRY_VERIFY(!window.isVisible());
    }
};

QTEST_MAIN(frmMainTest)
#include "test_frmMain.moc"
