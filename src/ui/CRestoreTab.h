#pragma once

// Tab 1 of the main window: choosing a run (cmdSelBackup, its bid shown in lblBid), its tree of
// folders and files with check boxes (tvDirs), the restore buttons, the status label
// lblRestore and the progress bar XP_PB2; beside them a search of the run's files by name
// (txtSearch, its count in lblFound), the totals of what is ticked (lblSelected), and the
// buttons that find a file in every run (cmdFindVersions) and compare the run with the one
// before it (cmdCompare). The tab only holds the controls; frmMain connects them to the app
// layer's CBackupBrowser.

#include <QWidget>

class QLabel;
class QLineEdit;
class QPushButton;
class QTreeView;
class XP_ProgressBar;

class CRestoreTab : public QWidget {
    Q_OBJECT

public:
    explicit CRestoreTab(QWidget* parent = nullptr);

    QPushButton* cmdSelBackup;
    QLabel* lblBid;
    QLineEdit* txtSearch;
    QPushButton* cmdFindVersions;
    QPushButton* cmdCompare;
    QTreeView* tvDirs;
    QLabel* lblFound;
    QLabel* lblSelected;
    QLabel* lblRestore;
    QPushButton* cmdRestore;
    QPushButton* cmdRestoreTo;
    XP_ProgressBar* XP_PB2;
};
