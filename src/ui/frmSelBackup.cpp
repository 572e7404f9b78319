#include "ui/frmSelBackup.h"

#include "app/modBackupRuns.h"
#include "ui/modFileIcons.h"
#include "ui/modFileNames.h"
#include "ui/modHandler.h"

#include <QDialogButtonBox>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace {

constexpr int kKeyRole = Qt::UserRole;

} // namespace

frmSelBackup::frmSelBackup(QWidget* parent) : QDialog(parent) {
    setObjectName(QStringLiteral("frmSelBackup"));
    setWindowTitle(tr("Select Backup"));
    auto* prompt = new QLabel(tr("Choose the backup run to restore from:"), this);
    prompt->setObjectName(QStringLiteral("lblPrompt"));
    tvBackups = new QTreeWidget(this);
    tvBackups->setObjectName(QStringLiteral("tvBackups"));
    tvBackups->setAccessibleName(tr("Backup runs"));
    tvBackups->header()->hide();
    prompt->setBuddy(tvBackups);
    auto* buttons = new QDialogButtonBox(this);
    OKButton = buttons->addButton(QDialogButtonBox::Ok);
    OKButton->setObjectName(QStringLiteral("OKButton"));
    OKButton->setEnabled(false);
    CancelButton = buttons->addButton(QDialogButtonBox::Cancel);
    CancelButton->setObjectName(QStringLiteral("CancelButton"));
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(prompt);
    layout->addWidget(tvBackups);
    layout->addWidget(buttons);
    resize(460, 360);

    const QIcon folder = FileKindIcon(1);
    for (const SourceRuns& source : ListBackupRuns()) {
        auto* top = new QTreeWidgetItem(tvBackups);
        top->setText(0, ShownName(source.source));
        top->setData(0, kKeyRole, QByteArray::fromStdString(source.source));
        top->setIcon(0, folder);
        for (const BackupRunEntry& run : source.runs) {
            auto* item = new QTreeWidgetItem(top);
            item->setText(0, QString::fromStdString(run.datebk));
            item->setData(0, kKeyRole, QByteArray::fromStdString(RunKey(run.bid)));
        }
        top->setExpanded(true);
    }

    OnSignal(tvBackups, &QTreeWidget::currentItemChanged, this, "frmSelBackup tvBackups_Click",
             [this](QTreeWidgetItem* item) { OKButton->setEnabled(!BidOf(item).empty()); });
    OnSignal(tvBackups, &QTreeWidget::itemDoubleClicked, this, "frmSelBackup tvBackups_DblClick",
             [this](QTreeWidgetItem* item) {
                 if (!BidOf(item).empty()) OKButton_Click();
             });
    OnSignal(OKButton, &QPushButton::clicked, this, "frmSelBackup OKButton_Click",
             [this] { OKButton_Click(); });
    connect(CancelButton, &QPushButton::clicked, this, &QDialog::reject);
}

std::string frmSelBackup::BidOf(const QTreeWidgetItem* item) const {
    // Runs stand below their source; a source's key is its folder.
    return item && item->parent() ? BidOfRunKey(item->data(0, kKeyRole).toByteArray().toStdString())
                                  : std::string();
}

void frmSelBackup::OKButton_Click() {
    m_bid = BidOf(tvBackups->currentItem());
    if (!m_bid.empty()) accept();
}
