#include "ui/frmAbout.h"

#include "app/modAbout.h"
#include "app/modMainWindow.h"
#include "app/modSysInfo.h"
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
    const AboutTexts about = About();
    setWindowTitle(QString::fromStdString(about.windowTitle));
    auto* picIcon = new QLabel(this);
    picIcon->setObjectName(QStringLiteral("picIcon"));
    picIcon->setPixmap(style()->standardIcon(QStyle::SP_DriveHDIcon).pixmap(48, 48));
    auto* lblTitle = Label(this, "lblTitle", QString::fromStdString(about.title));
    QFont title = lblTitle->font();
    title.setPointSizeF(title.pointSizeF() * 1.5);
    title.setBold(true);
    lblTitle->setFont(title);
    auto* lblVersion = Label(this, "lblVersion", QString::fromStdString(about.version));
    auto* lblDescription = Label(this, "lblDescription", QString::fromStdString(about.description));
    auto* lblDisclaimer = Label(this, "lblDisclaimer", QString::fromStdString(about.disclaimer));
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
