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
    cmdSelBackup = Place<QPushButton>(this, "cmdSelBackup");
    Place<QLabel>(this, "lblBidCaption");
    lblBid = Place<QLabel>(this, "lblBid");
    txtSearch = Place<QLineEdit>(this, "txtSearch");
    txtSearch->setClearButtonEnabled(true);
    cmdFindVersions = Place<QPushButton>(this, "cmdFindVersions");
    cmdCompare = Place<QPushButton>(this, "cmdCompare");
    tvDirs = Place<QTreeView>(this, "tvDirs");
    tvDirs->setUniformRowHeights(true);
    tvDirs->header()->setStretchLastSection(false);
    lblFound = Place<QLabel>(this, "lblFound");
    lblSelected = Place<QLabel>(this, "lblSelected");
    lblRestore = Place<QLabel>(this, "lblRestore");
    cmdRestore = Place<QPushButton>(this, "cmdRestore");
    cmdRestoreTo = Place<QPushButton>(this, "cmdRestoreTo");
    XP_PB2 = Place<XP_ProgressBar>(this, "XP_PB2");

    setTabOrder(cmdSelBackup, txtSearch);
    setTabOrder(txtSearch, cmdFindVersions);
    setTabOrder(cmdFindVersions, cmdCompare);
    setTabOrder(cmdCompare, tvDirs);
    setTabOrder(tvDirs, cmdRestore);
    setTabOrder(cmdRestore, cmdRestoreTo);
}
