#pragma once

// "Compare with previous run", modal: what changed between a run and the run of its source
// made before it. lblCompare names the two runs by their dates (or says that the run is its
// source's first), lvwChanges lists each file added, changed or removed, in path order, with
// its size before and after, and lblChanges counts them. The logic is the app layer's
// (modRunHistory.h, on modRunDiff.h); the runs are read once the dialog runs.

#include <QDialog>

#include <string>

class QLabel;
class QPushButton;
class QTreeWidget;

class frmRunDiff : public QDialog {
    Q_OBJECT

public:
    // `bid`: the run to compare with the one before it.
    explicit frmRunDiff(const std::string& bid, QWidget* parent = nullptr);

private:
    void Compare();

    QLabel* lblCompare;
    QTreeWidget* lvwChanges;
    QLabel* lblChanges;
    QPushButton* cmdClose;

    std::string m_bid;
};
