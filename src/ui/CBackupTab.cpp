#include "ui/CBackupTab.h"

#include "controls/XP_ProgressBar.h"
#include "controls/modAccessible.h"
#include "ui/modDesign.h"

#include <QKeySequence>
#include <QListWidget>
#include <QPushButton>

CBackupTab::CBackupTab(QWidget* parent) : QWidget(parent) {
    PlaceLabel(this, "lblSources", {12, 8, 300, 20}, tr("Sources to back up:"));
    lstSources = Place<QListWidget>(this, "lstSources", {12, 30, 480, 178}, tr("Sources"));
    cmdAddSrc = Place<QPushButton>(this, "cmdAddSrc", {504, 30, 104, 30}, tr("Add source"));
    cmdAddSrc->setText(tr("Add..."));
    cmdAddSrc->setShortcut(QKeySequence(tr("Alt+A")));
    cmdAddSrc->setToolTip(tr("Add a folder to back up"));
    cmdRemove = Place<QPushButton>(this, "cmdRemove", {504, 68, 104, 30}, tr("Remove source"));
    cmdRemove->setText(tr("Remove"));
    cmdRemove->setShortcut(QKeySequence(tr("Alt+R")));
    cmdRemove->setToolTip(tr("Remove the selected folder from the list"));
    cmdBackup = Place<QPushButton>(this, "cmdBackup", {504, 166, 104, 42}, tr("Backup"));
    ShowBackupCaption(tr("Backup"), tr("Commence backup run"));
    cmdBackup->setDefault(true);

    QWidget* run = PlaceFrame(this, "fraRun", {12, 218, 596, 176}, tr("Backup run"));
    lblSource = Place<QLabel>(run, "lblSource", {12, 28, 572, 20}, tr("Status"));
    QFont bold = lblSource->font();
    bold.setBold(true);
    lblSource->setFont(bold);
    lblProcessing = Place<QLabel>(run, "lblProcessing", {12, 50, 572, 20}, tr("Source"));
    // The captions hold their texts at 12 point too.
    PlaceLabel(run, "lblCountCaption", {12, 76, 98, 20}, tr("Files found:"));
    lblCount = Place<QLabel>(run, "lblCount", {112, 76, 74, 20}, tr("Files found"));
    PlaceLabel(run, "lblDoneCaption", {192, 76, 92, 20}, tr("Files done:"));
    lblDone = Place<QLabel>(run, "lblDone", {286, 76, 74, 20}, tr("Files done"));
    PlaceLabel(run, "lblThruPutCaption", {366, 76, 106, 20}, tr("Throughput:"));
    lblThruPut = Place<QLabel>(run, "lblThruPut", {474, 76, 110, 20}, tr("Throughput"));
    lblThruPut->setText(QStringLiteral("MB/s"));
    XP_PB1 = Place<XP_ProgressBar>(run, "XP_PB1", {12, 106, 572, 26}, tr("Backup progress"));
    // The bytes done and the time left, under the bar.
    lblBytes = Place<QLabel>(run, "lblBytes", {12, 140, 572, 20}, tr("Bytes done"));
    for (QLabel* status : {lblSource, lblProcessing, lblCount, lblDone, lblThruPut, lblBytes})
        MarkStatusText(status);
    lblLastBackup = Place<QLabel>(this, "lblLastBackup", {12, 402, 596, 22}, tr("Last backup"));
    MarkStatusText(lblLastBackup);

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
