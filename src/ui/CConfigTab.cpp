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

CConfigTab::CConfigTab(QWidget* parent) : QWidget(parent) {
    QWidget* path = Place<QGroupBox>(this, "fraBackupPath");
    txtBackupPath = Place<QLineEdit>(path, "txtBackupPath");
    cmdSelBackupPath = Place<QPushButton>(path, "cmdSelBackupPath");

    QWidget* include = Place<QGroupBox>(this, "fraInclude");
    chkHidden = Place<QCheckBox>(include, "chkHidden");
    chkSystem = Place<QCheckBox>(include, "chkSystem");

    QWidget* verify = Place<QGroupBox>(this, "fraVerification");
    chkBackup = Place<QCheckBox>(verify, "chkBackup");
    chkRestore = Place<QCheckBox>(verify, "chkRestore");

    QWidget* log = Place<QGroupBox>(this, "fraLogLevel");
    Option1 = Place<QRadioButton>(log, "Option1");
    Option2 = Place<QRadioButton>(log, "Option2");
    Option3 = Place<QRadioButton>(log, "Option3");

    QWidget* exclude = Place<QGroupBox>(this, "fraExclude");
    Place<QLabel>(exclude, "lblExclude");
    txtExclude = Place<QLineEdit>(exclude, "txtExclude");
    Place<QLabel>(exclude, "lblExDirs");
    txtExDirs = Place<QLineEdit>(exclude, "txtExDirs");
    chkExclRecycler = Place<QCheckBox>(exclude, "chkExclRecycler");

    Place<QLabel>(this, "lblMaxBackups");
    txtMaxBackups = Place<QLineEdit>(this, "txtMaxBackups");

    QWidget* manage = Place<QGroupBox>(this, "fraManage");
    cmdManage = Place<QPushButton>(manage, "cmdManage");
    cmdPurge = Place<QPushButton>(manage, "cmdPurge");
    cmdCompact = Place<QPushButton>(manage, "cmdCompact");
    lblStatus = Place<QLabel>(manage, "lblStatus");
    XP_PB3 = Place<XP_ProgressBar>(manage, "XP_PB3");
    chkQuickCheck = Place<QCheckBox>(this, "chkQuickCheck");

    QWidget* schedule = Place<QGroupBox>(this, "fraSchedule");
    chkSchedule = Place<QCheckBox>(schedule, "chkSchedule");
    spnHour = Place<QSpinBox>(schedule, "spnHour");
    Place<QLabel>(schedule, "lblSchedColon");
    spnMinute = Place<QSpinBox>(schedule, "spnMinute");
    // A time typed is set once it is complete (Enter or leaving the box), not at every digit.
    for (QSpinBox* box : {spnHour, spnMinute})
        box->setKeyboardTracking(false);
    lblNextBackup = Place<QLabel>(schedule, "lblNextBackup");
    chkNotifySuccess = Place<QCheckBox>(schedule, "chkNotifySuccess");

    QWidget* order[] = {cmdSelBackupPath, chkHidden,     chkSystem, chkBackup,  chkRestore,
                        Option1,          Option2,       Option3,   txtExclude, txtExDirs,
                        chkExclRecycler,  txtMaxBackups, cmdManage, cmdPurge,   cmdCompact,
                        chkQuickCheck,    chkSchedule,   spnHour,   spnMinute,  chkNotifySuccess};
    for (size_t i = 1; i < std::size(order); ++i)
        setTabOrder(order[i - 1], order[i]);
}
