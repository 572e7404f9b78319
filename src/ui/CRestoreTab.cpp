#include "ui/CRestoreTab.h"

#include "controls/XP_ProgressBar.h"
#include "ui/modDesign.h"

#include <QHeaderView>
#include <QPushButton>
#include <QTreeWidget>

CRestoreTab::CRestoreTab(QWidget* parent) : QWidget(parent) {
    cmdSelBackup = Place<QPushButton>(this, "cmdSelBackup", {12, 10, 130, 30}, tr("Select Backup"));
    cmdSelBackup->setText(tr("Select Backup"));
    cmdSelBackup->setToolTip(tr("Select the files or folders to be restored from Source"));
    PlaceLabel(this, "lblBidCaption", {154, 15, 90, 20}, tr("Backup run:"));
    lblBid = Place<QLabel>(this, "lblBid", {246, 15, 362, 20}, tr("Backup run"));
    tvDirs = Place<QTreeWidget>(this, "tvDirs", {12, 48, 596, 248}, tr("Folders and files"));
    tvDirs->header()->hide();
    cmdRestore = Place<QPushButton>(this, "cmdRestore", {356, 304, 120, 30}, tr("Restore"));
    cmdRestore->setText(tr("Restore"));
    cmdRestore->setToolTip(tr("Commence restore"));
    cmdRestoreTo = Place<QPushButton>(this, "cmdRestoreTo", {484, 304, 124, 30}, tr("Restore to"));
    cmdRestoreTo->setText(tr("Restore to ..."));
    cmdRestoreTo->setToolTip(tr("Restore to an alternate location"));
    XP_PB2 = Place<XP_ProgressBar>(this, "XP_PB2", {12, 342, 596, 22}, tr("Restore progress"));
    for (QPushButton* button : {cmdSelBackup, cmdRestore, cmdRestoreTo})
        button->setEnabled(false);
}
