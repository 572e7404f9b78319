#include "ui/frmAbout.h"

#include "app/modMainWindow.h"
#include "app/modSysInfo.h"
#include "support/Version.h"
#include "ui/modHandler.h"

#include <QGridLayout>
#include <QLabel>
#include <QPushButton>
#include <QStyle>

namespace {

QLabel* Label(QWidget* parent, const char* name, const QString& text) {
    auto* label = new QLabel(text, parent);
    label->setObjectName(QString::fromLatin1(name));
    label->setWordWrap(true);
    return label;
}

} // namespace

frmAbout::frmAbout(QWidget* parent) : QDialog(parent) {
    setObjectName(QStringLiteral("frmAbout"));
    setWindowTitle(tr("About ") + QString::fromLatin1(version::kTitle));
    auto* picIcon = new QLabel(this);
    picIcon->setObjectName(QStringLiteral("picIcon"));
    picIcon->setPixmap(style()->standardIcon(QStyle::SP_DriveHDIcon).pixmap(48, 48));
    auto* lblTitle = Label(this, "lblTitle", QStringLiteral("Korvex Stashwell"));
    QFont title = lblTitle->font();
    title.setPointSizeF(title.pointSizeF() * 1.5);
    title.setBold(true);
    lblTitle->setFont(title);
    auto* lblVersion =
        Label(this, "lblVersion",
              tr("Version ") + QString::number(version::kMajor) + "." +
                  QString::number(version::kMinor) + "." + QString::number(version::kRevision));
    auto* lblDescription =
        Label(this, "lblDescription",
              tr("Backs up the folders you choose into a backup folder, storing each content "
                 "once, and restores any earlier run, whole or in part."));
    auto* lblDisclaimer =
        Label(this, "lblDisclaimer",
              tr("Keep your backup drive apart from the computer it protects, and try a restore "
                 "now and then."));
    auto* cmdOK = new QPushButton(tr("OK"), this);
    cmdOK->setObjectName(QStringLiteral("cmdOK"));
    cmdOK->setDefault(true);
    auto* cmdSysInfo = new QPushButton(tr("&System Info..."), this);
    cmdSysInfo->setObjectName(QStringLiteral("cmdSysInfo"));
    connect(cmdOK, &QPushButton::clicked, this, &QDialog::accept);
    OnSignal(cmdSysInfo, &QPushButton::clicked, this, "frmAbout cmdSysInfo_Click",
             [] { StartSysInfo(); });

    auto* layout = new QGridLayout(this);
    layout->addWidget(picIcon, 0, 0, 3, 1, Qt::AlignTop);
    layout->addWidget(lblTitle, 0, 1, 1, 2);
    layout->addWidget(lblVersion, 1, 1, 1, 2);
    layout->addWidget(lblDescription, 2, 1, 1, 2);
    layout->addWidget(lblDisclaimer, 3, 1, 1, 2);
    layout->addWidget(cmdSysInfo, 4, 1, Qt::AlignLeft);
    layout->addWidget(cmdOK, 4, 2, Qt::AlignRight);
    setMinimumWidth(420);
}
