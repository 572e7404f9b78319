#pragma once

// Choosing the run to restore, modal: tvBackups lists every run of the catalogue under its
// source (newest first), OKButton takes the selected run, CancelButton changes nothing. A run
// is selected by a click (or the keyboard); a double click on it is OK.

#include <QDialog>

#include <string>

class QPushButton;
class QTreeWidget;
class QTreeWidgetItem;

class frmSelBackup : public QDialog {
    Q_OBJECT

public:
    explicit frmSelBackup(QWidget* parent = nullptr);

    // The bid of the run chosen with OK; "" before.
    const std::string& SelectedBid() const { return m_bid; }

private:
    std::string BidOf(const QTreeWidgetItem* item) const;
    void OKButton_Click();

    QTreeWidget* tvBackups;
    QPushButton* OKButton;
    QPushButton* CancelButton;
    std::string m_bid;
};
