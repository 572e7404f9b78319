#include "ui/frmVersions.h"

#include "ui/modDesign.h"
#include "ui/modFileNames.h"

#include "app/modRunHistory.h"
#include "controls/modAccessible.h"
#include "support/CByteProgress.h"
#include "ui/modHandler.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeySequence>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTimer>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace {

enum VersionColumn { kRun, kSource, kFile, kSize, kSignature, kColumns };

// A run row knows its version and its run by their places in what was found.
constexpr int kVersionRole = Qt::UserRole;
constexpr int kRunRole = Qt::UserRole + 1;

// Sets a flag for the life of the scope.
class CBusy {
public:
    explicit CBusy(bool& flag) : m_flag(flag) { m_flag = true; }
    ~CBusy() { m_flag = false; }
    CBusy(const CBusy&) = delete;
    CBusy& operator=(const CBusy&) = delete;

private:
    bool& m_flag;
};

QPushButton* Button(QWidget* parent, const char* name, const QString& text) {
    auto* button = new QPushButton(text, parent);
    button->setObjectName(QString::fromLatin1(name));
    button->setAccessibleName(text);
    button->setAutoDefault(false);
    return button;
}

} // namespace

frmVersions::frmVersions(const std::string& search, bool verify, QWidget* parent)
    : QDialog(parent), m_verify(verify) {
    setObjectName(QStringLiteral("frmVersions"));
    setWindowTitle(tr("Find in all runs"));
    MakeControls(search);
    ConnectControls();
    EnableButtons();
    // A name given is looked for once the dialog runs, so that nothing else of the window
    // takes a click while the runs are read.
    if (!search.empty())
        QTimer::singleShot(0, this,
                           TrappedHandler("frmVersions Form_Load", [this] { cmdFind_Click(); }));
}

void frmVersions::MakeControls(const std::string& search) {
    auto* lblFind = new QLabel(tr("Find files named:"), this);
    lblFind->setObjectName(QStringLiteral("lblFind"));
    lblFind->setAccessibleName(tr("Find files named"));
    txtFind = new QLineEdit(ShownName(search), this);
    txtFind->setObjectName(QStringLiteral("txtFind"));
    txtFind->setAccessibleName(tr("Name to find"));
    txtFind->setPlaceholderText(tr("a part of the name, or a pattern such as *.doc"));
    lblFind->setBuddy(txtFind);
    cmdFind = Button(this, "cmdFind", tr("Find"));
    cmdFind->setDefault(true); // Enter in txtFind finds
    cmdFind->setToolTip(tr("Find the files of every run whose names match"));

    lvwVersions = new QTreeWidget(this);
    lvwVersions->setObjectName(QStringLiteral("lvwVersions"));
    lvwVersions->setAccessibleName(tr("Versions found"));
    lvwVersions->setColumnCount(kColumns);
    lvwVersions->setHeaderLabels(
        {tr("Run"), tr("Source"), tr("File"), tr("Size"), tr("Signature")});
    lvwVersions->setUniformRowHeights(true);
    lvwVersions->setAllColumnsShowFocus(true);
    lvwVersions->setSelectionMode(QAbstractItemView::SingleSelection);
    lvwVersions->header()->setStretchLastSection(false);

    lblVersions = StatusLabel(this, "lblVersions", tr("Versions found"));
    lblRestoreVersion = StatusLabel(this, "lblRestoreVersion", tr("Restore status"));
    cmdRestoreVersion = Button(this, "cmdRestoreVersion", tr("Restore"));
    cmdRestoreVersion->setShortcut(QKeySequence(tr("Alt+E")));
    cmdRestoreVersion->setToolTip(tr("Put the chosen run's version back in its place"));
    cmdRestoreVersionTo = Button(this, "cmdRestoreVersionTo", tr("Restore to ..."));
    cmdRestoreVersionTo->setShortcut(QKeySequence(tr("Alt+T")));
    cmdRestoreVersionTo->setToolTip(tr("Restore the chosen run's version to another folder"));
    cmdClose = Button(this, "cmdClose", tr("Close"));

    auto* findRow = new QHBoxLayout;
    findRow->addWidget(lblFind);
    findRow->addWidget(txtFind, 1);
    findRow->addWidget(cmdFind);
    auto* buttonRow = new QHBoxLayout;
    buttonRow->addWidget(cmdRestoreVersion);
    buttonRow->addWidget(cmdRestoreVersionTo);
    buttonRow->addStretch(1);
    buttonRow->addWidget(cmdClose);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(findRow);
    layout->addWidget(lvwVersions, 1);
    layout->addWidget(lblVersions);
    layout->addWidget(lblRestoreVersion);
    layout->addLayout(buttonRow);
    resize(1000, 480); // room for a path, its size and its signature side by side

    setTabOrder(txtFind, cmdFind);
    setTabOrder(cmdFind, lvwVersions);
    setTabOrder(lvwVersions, cmdRestoreVersion);
    setTabOrder(cmdRestoreVersion, cmdRestoreVersionTo);
    setTabOrder(cmdRestoreVersionTo, cmdClose);
}

void frmVersions::ConnectControls() {
    OnSignal(txtFind, &QLineEdit::textChanged, this, "frmVersions txtFind_Change",
             [this] { EnableButtons(); });
    OnSignal(cmdFind, &QPushButton::clicked, this, "frmVersions cmdFind_Click",
             [this] { cmdFind_Click(); });
    OnSignal(lvwVersions, &QTreeWidget::currentItemChanged, this, "frmVersions lvwVersions_Click",
             [this] { EnableButtons(); });
    OnSignal(cmdRestoreVersion, &QPushButton::clicked, this, "frmVersions cmdRestoreVersion_Click",
             [this] { cmdRestoreVersion_Click(false); });
    OnSignal(cmdRestoreVersionTo, &QPushButton::clicked, this,
             "frmVersions cmdRestoreVersionTo_Click", [this] { cmdRestoreVersion_Click(true); });
    connect(cmdClose, &QPushButton::clicked, this, &QDialog::reject);
}

void frmVersions::cmdFind_Click() {
    const std::string search = NameBytes(txtFind->text());
    if (m_busy || search.empty()) return;
    CCatalogueRows catalogue;
    VersionsFound found;
    bool read;
    {
        CBusy busy(m_busy);
        EnableButtons();
        lblRestoreVersion->clear();
        lblVersions->setText(tr("Looking in every run ..."));
        read = FindFileVersions(catalogue.Query(), search, found);
    }
    m_found = std::move(found);
    ShowVersions();
    if (!read)
        lblVersions->setText(ShownName("The catalogue could not be read: " + catalogue.Problem()));
    EnableButtons();
}

void frmVersions::ShowVersions() {
    lvwVersions->clear();
    for (size_t v = 0; v < m_found.versions.size(); ++v) {
        const FileVersion& version = m_found.versions[v];
        auto* top = new QTreeWidgetItem(lvwVersions);
        top->setText(kRun, QString::fromStdString(VersionRunsText(version)));
        top->setText(kFile, ShownName(version.path));
        top->setText(kSize, QString::fromStdString(ByteSizeText(version.size)));
        top->setToolTip(kSize, tr("%1 bytes").arg(version.size));
        top->setTextAlignment(kSize, Qt::AlignRight | Qt::AlignVCenter);
        top->setText(kSignature, QString::fromStdString(version.md5));
        for (size_t r = 0; r < version.runs.size(); ++r) {
            auto* run = new QTreeWidgetItem(top);
            run->setText(kRun, QString::fromStdString(version.runs[r].datebk));
            run->setText(kSource, ShownName(version.runs[r].source));
            run->setData(kRun, kVersionRole, static_cast<qulonglong>(v));
            run->setData(kRun, kRunRole, static_cast<qulonglong>(r));
        }
        top->setExpanded(true);
    }
    for (int column = 0; column < kColumns; ++column)
        lvwVersions->resizeColumnToContents(column);
    lblVersions->setText(QString::fromStdString(VersionsSummary(m_found)));
}

const VersionRun* frmVersions::ChosenRun() const {
    const QTreeWidgetItem* item = lvwVersions->currentItem();
    if (!item || !item->parent()) return nullptr;
    const auto v = item->data(kRun, kVersionRole).toULongLong();
    const auto r = item->data(kRun, kRunRole).toULongLong();
    if (v >= m_found.versions.size() || r >= m_found.versions[v].runs.size()) return nullptr;
    return &m_found.versions[v].runs[r];
}

void frmVersions::cmdRestoreVersion_Click(bool elsewhere) {
    const VersionRun* chosen = ChosenRun();
    if (m_busy || !chosen) return;
    const VersionRun run = *chosen;
    std::optional<RestoreOutcome> outcome;
    {
        CBusy busy(m_busy);
        EnableButtons();
        lblRestoreVersion->clear();
        outcome = elsewhere ? ::cmdRestoreVersionTo_Click(run, m_verify)
                            : ::cmdRestoreVersion_Click(run, m_verify);
    }
    if (outcome) lblRestoreVersion->setText(ShownName(VersionRestoreText(*outcome)));
    EnableButtons();
}

void frmVersions::EnableButtons() {
    cmdFind->setEnabled(!m_busy && !txtFind->text().isEmpty());
    const bool chosen = !m_busy && ChosenRun() != nullptr;
    cmdRestoreVersion->setEnabled(chosen);
    cmdRestoreVersionTo->setEnabled(chosen);
}
