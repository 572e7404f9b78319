#include "ui/frmRunDiff.h"

#include "ui/modDesign.h"
#include "ui/modFileNames.h"

#include "app/modRunHistory.h"
#include "controls/modAccessible.h"
#include "support/CByteProgress.h"
#include "ui/modHandler.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QTimer>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace {

enum DiffColumn { kDiffChange, kDiffFile, kDiffBefore, kDiffAfter, kDiffColumns };

void SetSize(QTreeWidgetItem* item, int column, uint64_t size) {
    item->setText(column, QString::fromStdString(ByteSizeText(size)));
    item->setToolTip(column, QObject::tr("%1 bytes").arg(size));
    item->setTextAlignment(column, Qt::AlignRight | Qt::AlignVCenter);
}

} // namespace

frmRunDiff::frmRunDiff(const std::string& bid, QWidget* parent) : QDialog(parent), m_bid(bid) {
    setObjectName(QStringLiteral("frmRunDiff"));
    setWindowTitle(tr("Compare with previous run"));
    lblCompare = StatusLabel(this, "lblCompare", tr("Runs compared"));
    lblCompare->setText(tr("Comparing with the previous run ..."));
    lvwChanges = new QTreeWidget(this);
    lvwChanges->setObjectName(QStringLiteral("lvwChanges"));
    lvwChanges->setAccessibleName(tr("Changes"));
    lvwChanges->setColumnCount(kDiffColumns);
    lvwChanges->setHeaderLabels({tr("Change"), tr("File"), tr("Size before"), tr("Size after")});
    lvwChanges->setRootIsDecorated(false);
    lvwChanges->setUniformRowHeights(true);
    lvwChanges->setAllColumnsShowFocus(true);
    lvwChanges->header()->setStretchLastSection(false); // the sizes stay beside their files
    lblChanges = StatusLabel(this, "lblChanges", tr("Changes counted"));
    cmdClose = new QPushButton(tr("Close"), this);
    cmdClose->setObjectName(QStringLiteral("cmdClose"));
    cmdClose->setAccessibleName(tr("Close"));
    cmdClose->setDefault(true);
    connect(cmdClose, &QPushButton::clicked, this, &QDialog::reject);

    auto* buttonRow = new QHBoxLayout;
    buttonRow->addWidget(lblChanges, 1);
    buttonRow->addWidget(cmdClose);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(lblCompare);
    layout->addWidget(lvwChanges, 1);
    layout->addLayout(buttonRow);
    resize(720, 420);

    // The runs are read once the dialog runs, so that nothing else of the window takes a click
    // meanwhile.
    QTimer::singleShot(0, this, TrappedHandler("frmRunDiff Form_Load", [this] { Compare(); }));
}

void frmRunDiff::Compare() {
    lvwChanges->clear();
    CCatalogueRows catalogue;
    RunComparison comparison;
    const bool read =
        CompareWithPreviousRun(catalogue.Query(), m_bid, comparison, [&](const RunChange& change) {
            auto* item = new QTreeWidgetItem(lvwChanges);
            item->setText(kDiffChange, QString::fromLatin1(ChangeWord(change.kind)));
            item->setText(kDiffFile, ShownName(change.path));
            if (change.kind != RunChange::Kind::kAdded) SetSize(item, kDiffBefore, change.before);
            if (change.kind != RunChange::Kind::kRemoved) SetSize(item, kDiffAfter, change.after);
        });
    for (int column = 0; column < kDiffColumns; ++column)
        lvwChanges->resizeColumnToContents(column);
    if (!read) {
        lblCompare->setText(
            catalogue.Problem().empty()
                ? tr("The catalogue holds no run %1.").arg(ShownName(m_bid))
                : ShownName("The catalogue could not be read: " + catalogue.Problem()));
        lblChanges->clear();
        return;
    }
    lblCompare->setText(ShownName(ComparisonCaption(comparison)));
    lblChanges->setText(QString::fromStdString(ChangeTotals(comparison)));
}
