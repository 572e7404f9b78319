#pragma once

// Tab 1 of the main window: choosing a run, its tree of folders and files, and the restore
// buttons. Only its controls stand here so far; the restore itself is still to come, so its
// buttons are disabled.

#include <QWidget>

class QLabel;
class QPushButton;
class QTreeWidget;
class XP_ProgressBar;

class CRestoreTab : public QWidget {
    Q_OBJECT

public:
    explicit CRestoreTab(QWidget* parent = nullptr);

    QPushButton* cmdSelBackup;
    QLabel* lblBid;
    QTreeWidget* tvDirs;
    QPushButton* cmdRestore;
    QPushButton* cmdRestoreTo;
    XP_ProgressBar* XP_PB2;
};
