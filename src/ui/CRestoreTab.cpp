#include "ui/CRestoreTab.h"

#include "controls/XP_ProgressBar.h"
#include "controls/modAccessible.h"
#include "ui/modDesign.h"

#include <QHeaderView>
#include <QKeySequence>
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
    tvDirs = Place<QTreeView>(this, "tvDirs", {12, 48, 596, 330}, tr("Folders and files"));
    tvDirs->header()->hide();
    tvDirs->setUniformRowHeights(true);
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

    setTabOrder(cmdSelBackup, tvDirs);
    setTabOrder(tvDirs, cmdRestore);
    setTabOrder(cmdRestore, cmdRestoreTo);
}
