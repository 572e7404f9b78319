#pragma once

// Tab 0 of the main window: the list of sources with Add and Remove, the labels and progress
// bar of a run, and the Backup button (Cancel while a run goes).

#include <QWidget>

class QLabel;
class QListWidget;
class QPushButton;
class XP_ProgressBar;

class CBackupTab : public QWidget {
    Q_OBJECT

public:
    explicit CBackupTab(QWidget* parent = nullptr);

    QListWidget* lstSources;
    QPushButton* cmdAddSrc;
    QPushButton* cmdRemove;
    QPushButton* cmdBackup;
    QLabel* lblSource;
    QLabel* lblProcessing;
    QLabel* lblCount;
    QLabel* lblDone;
    QLabel* lblThruPut;
    XP_ProgressBar* XP_PB1;
};
