#pragma once

// "Find in all runs", modal: the name typed in txtFind (a part of the name, or a pattern with
// "*", "?" or "[") is looked for in every run when cmdFind is clicked (and at once when the
// dialog opens with a name). lvwVersions shows one row per version of a file (its path, size
// and signature, and how many runs hold it) with the runs that hold it below it, their date
// and source; lblVersions counts what was found. With a run chosen, cmdRestoreVersion puts
// that run's version back in its place and cmdRestoreVersionTo below a folder the person
// picks, as the restore tab's buttons do; lblRestoreVersion says how it went. The logic is
// the app layer's (modFileVersions.h).

#include "app/modFileVersions.h"

#include <QDialog>

#include <string>

class QLabel;
class QLineEdit;
class QPushButton;
class QTreeWidget;

class frmVersions : public QDialog {
    Q_OBJECT

public:
    // `search` fills txtFind; `verify` checks each restored file (chkRestore).
    frmVersions(const std::string& search, bool verify, QWidget* parent = nullptr);

private:
    // The controls, laid out to follow the dialog's size and the screen's scale.
    void MakeControls(const std::string& search);
    void ConnectControls();
    void cmdFind_Click();
    void cmdRestoreVersion_Click(bool elsewhere);
    void ShowVersions();
    // The run row chosen in lvwVersions, or nullptr when none is.
    const VersionRun* ChosenRun() const;
    void EnableButtons();

    QLineEdit* txtFind;
    QPushButton* cmdFind;
    QTreeWidget* lvwVersions;
    QLabel* lblVersions;
    QLabel* lblRestoreVersion;
    QPushButton* cmdRestoreVersion;
    QPushButton* cmdRestoreVersionTo;
    QPushButton* cmdClose;

    bool m_verify;
    bool m_busy = false; // a find or a restore is going (the window's events run meanwhile)
    VersionsFound m_found;
};
