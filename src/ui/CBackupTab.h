#pragma once

// Tab 0 of the main window: the list of sources with Add and Remove, the labels and progress
// bar of a run, and the Backup button (Cancel while a run goes). The run's labels are read by
// screen readers by the text they show.

#include <QWidget>

class QLabel;
class QListWidget;
class QPushButton;
class XP_ProgressBar;

class CBackupTab : public QWidget {
    Q_OBJECT

public:
    explicit CBackupTab(QWidget* parent = nullptr);

    // The Backup button's caption ("Backup", or "Cancel" while a run goes) and tool tip. A
    // screen reader reads the caption as the button's name, and Alt+B stays the button's key.
    void ShowBackupCaption(const QString& caption, const QString& toolTip);

    QListWidget* lstSources;
    QPushButton* cmdAddSrc;
    QPushButton* cmdRemove;
    QPushButton* cmdBackup;
    QLabel* lblSource;
    QLabel* lblProcessing;
    QLabel* lblCount;
    QLabel* lblDone;
    QLabel* lblThruPut;
    QLabel* lblBytes;
    QLabel* lblLastBackup;
    XP_ProgressBar* XP_PB1;
};
