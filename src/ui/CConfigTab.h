#pragma once

// Tab 2 of the main window, the configuration: the backup path, every option of the Setup
// keys (include, verification, log level, exclusions, backup limit) with its tool tip, the
// maintenance buttons of Manage Backups with their status line lblStatus and progress bar
// XP_PB3, and the daily schedule: the switch, the hour and minute boxes and the next run.

#include <QWidget>

class QCheckBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QRadioButton;
class QSpinBox;
class XP_ProgressBar;

class CConfigTab : public QWidget {
    Q_OBJECT

public:
    explicit CConfigTab(QWidget* parent = nullptr);

    QLineEdit* txtBackupPath;
    QPushButton* cmdSelBackupPath;
    QCheckBox* chkHidden;
    QCheckBox* chkSystem;
    QCheckBox* chkBackup;
    QCheckBox* chkRestore;
    QRadioButton* Option1;
    QRadioButton* Option2;
    QRadioButton* Option3;
    QLineEdit* txtExclude;
    QLineEdit* txtExDirs;
    QCheckBox* chkQuickCheck;
    QCheckBox* chkSchedule;
    QSpinBox* spnHour;
    QSpinBox* spnMinute;
    QLabel* lblNextBackup;
    QCheckBox* chkNotifySuccess;
    QCheckBox* chkExclRecycler;
    QLineEdit* txtMaxBackups;
    QPushButton* cmdManage;
    QPushButton* cmdPurge;
    QPushButton* cmdCompact;
    QLabel* lblStatus;
    XP_ProgressBar* XP_PB3;
};
