#include "ui/CBackupTab.h"

#include "controls/XP_ProgressBar.h"
#include "controls/modAccessible.h"
#include "ui/modDesign.h"

#include <QKeySequence>
#include <QListWidget>
#include <QPushButton>

CBackupTab::CBackupTab(QWidget* parent) : QWidget(parent) {
    Place<QLabel>(this, "lblSources");
    lstSources = Place<QListWidget>(this, "lstSources");
    cmdAddSrc = Place<QPushButton>(this, "cmdAddSrc");
    cmdRemove = Place<QPushButton>(this, "cmdRemove");
    cmdBackup = Place<QPushButton>(this, "cmdBackup");
    QWidget* run = Place<QGroupBox>(this, "fraRun");
    lblSource = Place<QLabel>(run, "lblSource");
    lblProcessing = Place<QLabel>(run, "lblProcessing");
    // The captions hold their texts at 12 point too.
    Place<QLabel>(run, "lblCountCaption");
    lblCount = Place<QLabel>(run, "lblCount");
    Place<QLabel>(run, "lblDoneCaption");
    lblDone = Place<QLabel>(run, "lblDone");
    Place<QLabel>(run, "lblThruPutCaption");
    lblThruPut = Place<QLabel>(run, "lblThruPut");
    XP_PB1 = Place<XP_ProgressBar>(run, "XP_PB1");
    lblBytes = Place<QLabel>(run, "lblBytes");
    lblLastBackup = Place<QLabel>(this, "lblLastBackup");

    setTabOrder(lstSources, cmdAddSrc);
    setTabOrder(cmdAddSrc, cmdRemove);
    setTabOrder(cmdRemove, cmdBackup);
}

void CBackupTab::ShowBackupCaption(const QString& caption, const QString& toolTip) {
    cmdBackup->setAccessibleName(caption);
    cmdBackup->setText(caption);
    cmdBackup->setToolTip(toolTip);
    cmdBackup->setShortcut(QKeySequence(tr("Alt+B"))); // a new caption takes the key away
}
