#include "ui/CConfigTab.h"

#include "controls/XP_ProgressBar.h"
#include "controls/modAccessible.h"
#include "ui/modDesign.h"

#include <QCheckBox>
#include <QKeySequence>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QSpinBox>

namespace {

template <class Button>
Button* PlaceButton(QWidget* parent, const char* name, QRect geometry, const QString& caption) {
    auto* button = Place<Button>(parent, name, geometry, caption);
    button->setText(caption);
    return button;
}

} // namespace

CConfigTab::CConfigTab(QWidget* parent) : QWidget(parent) {
    QWidget* path = PlaceFrame(this, "fraBackupPath", {12, 4, 596, 64}, tr("Backup path"));
    txtBackupPath = Place<QLineEdit>(path, "txtBackupPath", {10, 30, 478, 26}, tr("Backup path"));
    txtBackupPath->setReadOnly(true);
    txtBackupPath->setToolTip(tr("The location where your backup files will be kept"));
    cmdSelBackupPath =
        PlaceButton<QPushButton>(path, "cmdSelBackupPath", {496, 28, 90, 30}, tr("Browse..."));
    cmdSelBackupPath->setAccessibleName(tr("Choose the backup path"));
    cmdSelBackupPath->setShortcut(QKeySequence(tr("Alt+P")));

    QWidget* include = PlaceFrame(this, "fraInclude", {12, 72, 190, 82}, tr("Include"));
    chkHidden = PlaceButton<QCheckBox>(include, "chkHidden", {10, 28, 170, 22}, tr("Hidden files"));
    chkSystem = PlaceButton<QCheckBox>(include, "chkSystem", {10, 54, 170, 22}, tr("System files"));

    QWidget* verify = PlaceFrame(this, "fraVerification", {214, 72, 190, 82}, tr("Verification"));
    verify->setToolTip(tr("Use this if you are paranoid"));
    chkBackup = PlaceButton<QCheckBox>(verify, "chkBackup", {10, 28, 170, 22}, tr("On Backup"));
    chkRestore = PlaceButton<QCheckBox>(verify, "chkRestore", {10, 54, 170, 22}, tr("On Restore"));

    QWidget* log = PlaceFrame(this, "fraLogLevel", {416, 72, 192, 108}, tr("Log Level"));
    log->setToolTip(
        tr("Basic is for most users. Advanced is for the paranoid. Trace is for nerds"));
    Option1 = PlaceButton<QRadioButton>(log, "Option1", {10, 28, 172, 22}, tr("Basic"));
    Option2 = PlaceButton<QRadioButton>(log, "Option2", {10, 54, 172, 22}, tr("Advanced"));
    Option3 = PlaceButton<QRadioButton>(log, "Option3", {10, 80, 172, 22}, tr("Trace"));
    Option1->setChecked(true);

    QWidget* exclude = PlaceFrame(this, "fraExclude", {12, 158, 392, 114}, tr("Exclude"));
    PlaceLabel(exclude, "lblExclude", {10, 30, 96, 22}, tr("Extensions:"));
    txtExclude = Place<QLineEdit>(exclude, "txtExclude", {108, 28, 274, 26}, tr("Extensions:"));
    txtExclude->setText(QStringLiteral("*.tmp *.tst"));
    txtExclude->setToolTip(tr("Space-delimited list of file extensions to exclude from backups"));
    PlaceLabel(exclude, "lblExDirs", {10, 60, 96, 22}, tr("Folders:"));
    txtExDirs = Place<QLineEdit>(exclude, "txtExDirs", {108, 58, 274, 26}, tr("Folders:"));
    txtExDirs->setText(QStringLiteral("cvs tmp"));
    txtExDirs->setToolTip(tr("Space-delimited list of folders to exclude from backups. CAUTION: It "
                             "will also exclude any files and folders below any folders with "
                             "these names"));
    chkExclRecycler = PlaceButton<QCheckBox>(exclude, "chkExclRecycler", {108, 88, 274, 22},
                                             tr("Exclude Recycle Bin"));
    chkExclRecycler->setToolTip(tr("Exclude files already deleted"));

    PlaceLabel(this, "lblMaxBackups", {416, 194, 112, 22}, tr("Backup limit:"));
    txtMaxBackups =
        Place<QLineEdit>(this, "txtMaxBackups", {530, 192, 60, 26}, tr("Backup limit:"));
    txtMaxBackups->setText(QStringLiteral("10"));
    txtMaxBackups->setToolTip(tr("Maximum number of backups per source. After the number is "
                                 "reached any further backups will replace the oldest backup"));

    QWidget* manage = PlaceFrame(this, "fraManage", {12, 276, 596, 88}, tr("Manage Backups"));
    cmdManage = PlaceButton<QPushButton>(manage, "cmdManage", {10, 28, 104, 30}, tr("Delete"));
    cmdManage->setToolTip(
        tr("CAUTION: this deletes all backups of any source not currently shown "
           "in the window on the \"Backup\" tab. Run \"Compact\" after deleting"));
    cmdPurge = PlaceButton<QPushButton>(manage, "cmdPurge", {122, 28, 120, 30}, tr("Manual Purge"));
    cmdPurge->setToolTip(tr("If you have reduced the \"Backup limit\" above, this will purge "
                            "excess records from the database. A purge is executed automatically "
                            "after each backup run"));
    cmdCompact = PlaceButton<QPushButton>(manage, "cmdCompact", {250, 28, 104, 30}, tr("Compact"));
    cmdCompact->setToolTip(tr("Removes orphan files and cleans up the database. Can take many "
                              "minutes. Normally run after you \"Delete\" a source"));
    lblStatus = Place<QLabel>(manage, "lblStatus", {362, 33, 224, 20}, tr("Maintenance status"));
    MarkStatusText(lblStatus);
    XP_PB3 = Place<XP_ProgressBar>(manage, "XP_PB3", {10, 64, 576, 18}, tr("Maintenance progress"));
    chkQuickCheck =
        PlaceButton<QCheckBox>(this, "chkQuickCheck", {22, 368, 586, 22},
                               tr("Skip unchanged files (trust size and modification time)"));
    chkQuickCheck->setToolTip(
        tr("Faster later backups: a file whose size and times have not changed since the last "
           "backup of its source is not read again. A change that keeps the size and the times "
           "is then not noticed"));

    QWidget* schedule = PlaceFrame(this, "fraSchedule", {12, 392, 596, 84}, tr("Schedule"));
    chkSchedule = PlaceButton<QCheckBox>(schedule, "chkSchedule", {10, 29, 196, 22},
                                         tr("Back up every day at"));
    chkSchedule->setToolTip(
        tr("Back up every source every day at this time, also while this window is closed. A "
           "backup missed while the computer was off is made soon after it starts again"));
    chkSchedule->setShortcut(QKeySequence(tr("Alt+Y")));
    spnHour = Place<QSpinBox>(schedule, "spnHour", {210, 27, 60, 26}, tr("Hour of the backup"));
    spnHour->setRange(0, 23);
    spnHour->setValue(21);
    spnHour->setToolTip(tr("The hour of the daily backup, 0 to 23"));
    PlaceLabel(schedule, "lblSchedColon", {272, 30, 8, 20}, QStringLiteral(":"));
    spnMinute =
        Place<QSpinBox>(schedule, "spnMinute", {282, 27, 60, 26}, tr("Minute of the backup"));
    spnMinute->setRange(0, 59);
    spnMinute->setToolTip(tr("The minute of the daily backup, 0 to 59"));
    // A time typed is set once it is complete (Enter or leaving the box), not at every digit.
    for (QSpinBox* box : {spnHour, spnMinute})
        box->setKeyboardTracking(false);
    lblNextBackup = Place<QLabel>(schedule, "lblNextBackup", {352, 29, 234, 22}, tr("Next backup"));
    MarkStatusText(lblNextBackup);
    chkNotifySuccess = PlaceButton<QCheckBox>(schedule, "chkNotifySuccess", {10, 55, 576, 22},
                                              tr("Tell me when a scheduled backup succeeds"));
    chkNotifySuccess->setToolTip(
        tr("A backup made without this window tells the desktop when it went wrong; with this, "
           "also when it went well"));
    chkNotifySuccess->setShortcut(QKeySequence(tr("Alt+N")));

    cmdManage->setShortcut(QKeySequence(tr("Alt+D")));
    cmdPurge->setShortcut(QKeySequence(tr("Alt+U")));
    cmdCompact->setShortcut(QKeySequence(tr("Alt+C")));

    QWidget* order[] = {cmdSelBackupPath, chkHidden,     chkSystem, chkBackup,  chkRestore,
                        Option1,          Option2,       Option3,   txtExclude, txtExDirs,
                        chkExclRecycler,  txtMaxBackups, cmdManage, cmdPurge,   cmdCompact,
                        chkQuickCheck,    chkSchedule,   spnHour,   spnMinute,  chkNotifySuccess};
    for (size_t i = 1; i < std::size(order); ++i)
        setTabOrder(order[i - 1], order[i]);
}
