#include "ui/CRestoreTab.h"

#include "controls/XP_ProgressBar.h"
#include "controls/modAccessible.h"
#include "ui/modDesign.h"

#include <QHeaderView>
#include <QKeySequence>
#include <QLineEdit>
#include <QPushButton>
#include <QTreeView>

CRestoreTab::CRestoreTab(QWidget* parent) : QWidget(parent) {
    cmdSelBackup = Place<QPushButton>(this, "cmdSelBackup", {12, 10, 130, 30}, tr("Select Backup"));
    cmdSelBackup->setText(tr("Select Backup"));
    cmdSelBackup->setShortcut(QKeySequence(tr("Alt+S")));
    cmdSelBackup->setToolTip(tr("Select the files or folders to be restored from Source"));
    PlaceLabel(this, "lblBidCaption", {154, 15, 102, 20}, tr("Backup run:"));
    lblBid = Place<QLabel>(this, "lblBid", {258, 15, 350, 20}, tr("Backup run"));
    MarkStatusText(lblBid);
    txtSearch = Place<QLineEdit>(this, "txtSearch", {12, 46, 210, 26}, tr("Search this run"));
    txtSearch->setPlaceholderText(tr("Search by name or *.jpg"));
    txtSearch->setClearButtonEnabled(true);
    txtSearch->setToolTip(tr("Show only the files of this run whose names hold these letters, or "
                             "match a pattern such as *.jpg"));
    cmdFindVersions =
        Place<QPushButton>(this, "cmdFindVersions", {230, 44, 134, 30}, tr("Find in all runs"));
    cmdFindVersions->setText(tr("Find in all runs"));
    cmdFindVersions->setToolTip(tr("List every version of a file that any run holds"));
    cmdCompare =
        Place<QPushButton>(this, "cmdCompare", {372, 44, 236, 30}, tr("Compare with previous run"));
    cmdCompare->setText(tr("Compare with previous run"));
    cmdCompare->setToolTip(
        tr("List the files added, changed and removed since the run before this one"));
    tvDirs = Place<QTreeView>(this, "tvDirs", {12, 80, 596, 280}, tr("Folders and files"));
    tvDirs->setUniformRowHeights(true);
    tvDirs->header()->setStretchLastSection(false);
    lblFound = Place<QLabel>(this, "lblFound", {12, 364, 290, 20}, tr("Search result"));
    MarkStatusText(lblFound);
    lblSelected = Place<QLabel>(this, "lblSelected", {306, 364, 302, 20}, tr("Selected"));
    lblSelected->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    MarkStatusText(lblSelected);
    lblRestore = Place<QLabel>(this, "lblRestore", {12, 391, 336, 20}, tr("Restore status"));
    MarkStatusText(lblRestore);
    cmdRestore = Place<QPushButton>(this, "cmdRestore", {356, 386, 120, 30}, tr("Restore"));
    cmdRestore->setText(tr("Restore"));
    cmdRestore->setShortcut(QKeySequence(tr("Alt+E")));
    cmdRestore->setToolTip(tr("Commence restore"));
    cmdRestoreTo = Place<QPushButton>(this, "cmdRestoreTo", {484, 386, 124, 30}, tr("Restore to"));
    cmdRestoreTo->setText(tr("Restore to ..."));
    cmdRestoreTo->setShortcut(QKeySequence(tr("Alt+T")));
    cmdRestoreTo->setToolTip(tr("Restore to an alternate location"));
    XP_PB2 = Place<XP_ProgressBar>(this, "XP_PB2", {12, 424, 596, 22}, tr("Restore progress"));
    // Nothing to restore until a run is chosen.
    cmdRestore->setEnabled(false);
    cmdRestoreTo->setEnabled(false);
    txtSearch->setEnabled(false);
    cmdCompare->setEnabled(false);

    setTabOrder(cmdSelBackup, txtSearch);
    setTabOrder(txtSearch, cmdFindVersions);
    setTabOrder(cmdFindVersions, cmdCompare);
    setTabOrder(cmdCompare, tvDirs);
    setTabOrder(tvDirs, cmdRestore);
    setTabOrder(cmdRestore, cmdRestoreTo);
}
