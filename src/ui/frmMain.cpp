#include "ui/frmMain.h"

#include "app/CRunOutcome.h"
#include "app/modBackupRuns.h"
#include "app/modMain.h"
#include "app/modMainWindow.h"
#include "app/modMaintenance.h"
#include "app/modManual.h"
#include "app/modNotify.h"
#include "app/modPaths.h"
#include "app/modRetention.h"
#include "app/modSetup.h"
#include "app/modWindowDesign.h"
#include "controls/XP_ProgressBar.h"
#include "controls/modResize.h"
#include "platform/modPlatformPaths.h"
#include "support/CProcTrap.h"
#include "support/modMsgBox.h"
#include "support/modServices.h"
#include "support/modShell.h"
#include "ui/CBackupTab.h"
#include "ui/CConfigTab.h"
#include "ui/CRestoreTab.h"
#include "ui/CRunTreeModel.h"
#include "ui/frmAbout.h"
#include "ui/frmReport.h"
#include "ui/frmRunDiff.h"
#include "ui/frmSelBackup.h"
#include "ui/frmVersions.h"
#include "ui/modDesign.h"
#include "ui/modFileNames.h"
#include "ui/modHandler.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QCloseEvent>
#include <QFontMetrics>
#include <QHeaderView>
#include <QLineEdit>
#include <QListWidget>
#include <QMenuBar>
#include <QPainter>
#include <QPushButton>
#include <QRadioButton>
#include <QShortcut>
#include <QSignalBlocker>
#include <QSpinBox>
#include <QTabWidget>
#include <QTimer>
#include <QTreeView>

#include <iostream>
#include <map>

namespace {

constexpr QSize kDesignSize{kMainWindowDesign.width, kMainWindowDesign.height};
constexpr auto kProgressInterval = std::chrono::milliseconds(50);
// Text that warns (a backup overdue): dark red, readable on the light window background.
const QString kWarningColour = QStringLiteral("#b00020");

std::string Bytes(const QString& text) {
    return text.toStdString();
}

// The logo: the product's name on the program's bar colour, sharp at any scale.
QPixmap Logo(QSize size) {
    const qreal ratio = qApp->devicePixelRatio();
    QPixmap logo(size * ratio);
    logo.setDevicePixelRatio(ratio);
    logo.fill(XP_ProgressBar::ToColor(kRunBarColour));
    QPainter painter(&logo);
    painter.setPen(Qt::white);
    QFont font = painter.font();
    font.setBold(true);
    font.setPointSize(11);
    painter.setFont(font);
    painter.drawText(QRect(QPoint(10, 0), size), Qt::AlignVCenter | Qt::AlignLeft,
                     QString::fromUtf8(kLogoText));
    return logo;
}

} // namespace

frmMain::frmMain(std::string commandLine, QWidget* parent)
    : QMainWindow(parent), m_commandLine(std::move(commandLine)), m_run({}, BackupOptions{}) {
    setObjectName(QStringLiteral("frmMain"));
    auto* central = new QWidget(this);
    central->setObjectName(QStringLiteral("frmMainClient"));
    setCentralWidget(central);

    const auto rect = [](DesignRect place) {
        return QRect(place.x, place.y, place.width, place.height);
    };
    SSTab1 = Place<QTabWidget>(central, "SSTab1", rect(kTabStripDesign),
                               QString::fromUtf8(kTabStripName));
    m_backup = new CBackupTab;
    m_restore = new CRestoreTab;
    m_config = new CConfigTab;
    // The tabs are reached with Alt+1, Alt+2 and Alt+3 (and Ctrl+Tab); Alt+letters belong to
    // the buttons.
    QWidget* const pages[kMainTabCount] = {m_backup, m_restore, m_config};
    for (int tab = 0; tab < kMainTabCount; ++tab)
        SSTab1->addTab(pages[tab], QString::fromUtf8(kTabCaptions[tab]));
    for (int tab = 0; tab < kMainTabCount; ++tab) {
        auto* shortcut = new QShortcut(QKeySequence(Qt::ALT | Qt::Key(Qt::Key_1 + tab)), this);
        OnSignal(shortcut, &QShortcut::activated, this, "frmMain SSTab1_Click",
                 [this, tab] { SSTab1->setCurrentIndex(tab); });
    }
    kvLogo = Place<QLabel>(central, "kvLogo", rect(kLogoDesign), QString::fromUtf8(kLogoText));
    kvLogo->setPixmap(Logo(kvLogo->size()));

    BuildMenus();
    ConnectOptions();
    // The run's own trap is "cmdBackup_Click": its errors are reported under it, as ever.
    OnClick(m_backup->cmdBackup, nullptr, &frmMain::cmdBackup_Click);
    OnClick(m_backup->cmdAddSrc, "cmdAddSrc_Click", &frmMain::cmdAddSrc_Click);
    OnClick(m_backup->cmdRemove, "cmdRemove_Click", &frmMain::cmdRemove_Click);
    OnClick(m_config->cmdSelBackupPath, "cmdSelBackupPath_Click", &frmMain::cmdSelBackupPath_Click);
    ConnectRestore();
    ConnectMaintenance();
    m_shown.lblThruPut = "MB/s"; // the label's design text
    m_run.OnViewChanged = [this](const RunView& view) { Render(view); };
    m_run.OnShowReport = [this] { ShowReport(); };
    ShowLastBackup(m_run.View());
    m_shown.lblLastBackup = m_run.View().lblLastBackup;
    m_shown.lastBackupWarning = m_run.View().lastBackupWarning;

    for (XP_ProgressBar* bar : findChildren<XP_ProgressBar*>()) {
        bar->eBrushStyle(0);
        bar->Color(kDesignBarColour);
        bar->ShowText(true);
    }
    const int menuHeight = menuBar()->sizeHint().height();
    resize(kDesignSize.width(), kDesignSize.height() + menuHeight);
}

frmMain::~frmMain() {
    // The tree's model reads the browser, which goes before the window's controls do.
    m_restore->tvDirs->setModel(nullptr);
    delete m_tree;
    SetMaintenanceView({});
    ForgetForms(); // the next main window is recorded anew
}

// The tree follows the browser; a click on a node that changed no tick opens or closes it, as
// do the view's own ways of opening (its arrows, the keyboard).
void frmMain::ConnectRestore() {
    QTreeView* tree = m_restore->tvDirs;
    m_tree = new CRunTreeModel(m_browser, this);
    tree->setModel(m_tree);
    tree->setExpandsOnDoubleClick(false);
    // The name takes what the size and the date leave; those two fit their widest texts.
    QHeaderView* header = tree->header();
    header->setSectionResizeMode(0, QHeaderView::Stretch);
    const QFontMetrics metrics = tree->fontMetrics();
    header->resizeSection(1, metrics.horizontalAdvance(QStringLiteral("999.9 MB")) + 24);
    header->resizeSection(2, metrics.horizontalAdvance(QStringLiteral("28/12/2026 23:59:59")) + 24);
    const auto node = [this](const QModelIndex& index) { return m_tree->NodeOf(index); };
    connect(tree, &QTreeView::pressed, this,
            [this] { m_checkEditsAtPress = m_tree->CheckEdits(); });
    OnSignal(tree, &QTreeView::clicked, this, "frmMain tvDirs_NodeClick",
             [this, node](const QModelIndex& index) {
                 if (m_tree->CheckEdits() == m_checkEditsAtPress) m_browser.NodeClick(node(index));
             });
    OnSignal(tree, &QTreeView::expanded, this, "frmMain tvDirs_Expand",
             [this, node](const QModelIndex& index) {
                 if (!m_browser.Node(node(index)).expanded) m_browser.NodeClick(node(index));
             });
    OnSignal(tree, &QTreeView::collapsed, this, "frmMain tvDirs_Collapse",
             [this, node](const QModelIndex& index) {
                 if (m_browser.Node(node(index)).expanded) m_browser.NodeClick(node(index));
             });
    connect(m_tree, &CRunTreeModel::ExpansionChanged, this,
            [tree](const QModelIndex& index, bool expanded) {
                if (tree->isExpanded(index) != expanded) tree->setExpanded(index, expanded);
            });
    m_browser.OnStatus = [this](const std::string& text) {
        m_restore->lblRestore->setText(QString::fromStdString(text));
    };
    m_browser.OnProgress = [this](int32_t percent) {
        if (m_restore->XP_PB2->Value() != percent) m_restore->XP_PB2->Value(percent);
    };
    m_browser.OnSelection = [this] {
        m_restore->lblSelected->setText(QString::fromStdString(m_browser.SelectionText()));
    };
    // The search follows the typing once it pauses, or at once on Enter.
    auto* searchPause = new QTimer(this);
    searchPause->setSingleShot(true);
    searchPause->setInterval(250);
    connect(m_restore->txtSearch, &QLineEdit::textChanged, searchPause,
            qOverload<>(&QTimer::start));
    OnSignal(searchPause, &QTimer::timeout, this, "frmMain txtSearch_Change",
             [this] { SearchRun(); });
    OnSignal(m_restore->txtSearch, &QLineEdit::returnPressed, this, "frmMain txtSearch_Change",
             [this, searchPause] {
                 searchPause->stop();
                 SearchRun();
             });
    OnClick(m_restore->cmdSelBackup, "cmdSelBackup_Click", &frmMain::cmdSelBackup_Click);
    OnClick(m_restore->cmdRestore, "cmdRestore_Click", &frmMain::cmdRestore_Click);
    OnClick(m_restore->cmdRestoreTo, "cmdRestoreTo_Click", &frmMain::cmdRestoreTo_Click);
    OnClick(m_restore->cmdFindVersions, "cmdFindVersions_Click", &frmMain::cmdFindVersions_Click);
    OnClick(m_restore->cmdCompare, "cmdCompare_Click", &frmMain::cmdCompare_Click);
}

void frmMain::ConnectMaintenance() {
    SetMaintenanceView({[this](const std::string& text) {
                            m_config->lblStatus->setText(QString::fromStdString(text));
                        },
                        [this](int32_t percent) { m_config->XP_PB3->Value(percent); }});
    OnClick(m_config->cmdManage, "cmdManage_Click", &frmMain::cmdManage_Click);
    OnClick(m_config->cmdPurge, "cmdPurge_Click", &frmMain::cmdPurge_Click);
    OnClick(m_config->cmdCompact, "cmdCompact_Click", &frmMain::cmdCompact_Click);
}

void frmMain::BuildMenus() {
    struct Item {
        Command command;
        QKeySequence::StandardKey keys;
    };
    const std::map<std::string, Item> items = {
        {"mnuExit", {&frmMain::mnuExit_Click, QKeySequence::Quit}},
        {"mnuManual", {&frmMain::mnuManual_Click, QKeySequence::HelpContents}},
        {"mnuAbout", {&frmMain::mnuAbout_Click, QKeySequence::UnknownKey}}};
    std::map<std::string, QMenu*> menus;
    for (const MenuDesign& design : MainWindowMenus()) {
        const QString caption = QString::fromUtf8(design.caption);
        if (!design.menu) {
            QMenu* menu = menuBar()->addMenu(caption);
            menu->setObjectName(QString::fromUtf8(design.name));
            menus[design.name] = menu;
            continue;
        }
        const Item& item = items.at(design.name);
        const std::string handler = std::string(design.name) + "_Click";
        QAction* action =
            menus.at(design.menu)->addAction(caption, this, Handler(handler.c_str(), item.command));
        action->setObjectName(QString::fromUtf8(design.name));
        if (item.keys != QKeySequence::UnknownKey) action->setShortcut(item.keys);
    }
}

// Every option control writes its key on every change a person makes.
void frmMain::ConnectOptions() {
    const std::pair<QCheckBox*, const char*> checks[] = {
        {m_config->chkHidden, "Hidden"},
        {m_config->chkSystem, "System"},
        {m_config->chkBackup, "Backup"},
        {m_config->chkRestore, "Restore"},
        {m_config->chkExclRecycler, "ExclRecycler"},
        {m_config->chkQuickCheck, "QuickCheck"}};
    for (const auto& [box, key] : checks)
        OnSignal(box, &QCheckBox::clicked, this,
                 "frmMain " + box->objectName().toStdString() + "_Click",
                 [key = std::string(key)](bool ticked) { StoreOption(key, ticked ? "1" : "0"); });
    const std::pair<QRadioButton*, const char*> levels[] = {{m_config->Option1, "Basic"},
                                                            {m_config->Option2, "Advanced"},
                                                            {m_config->Option3, "Trace"}};
    for (const auto& [button, word] : levels)
        OnSignal(button, &QRadioButton::clicked, this,
                 "frmMain " + button->objectName().toStdString() + "_Click",
                 [word = std::string(word)] { SelectLogLevel(word); });
    OnSignal(m_config->txtExclude, &QLineEdit::textEdited, this, "frmMain txtExclude_Change",
             [](const QString& text) { StoreOption("Exclude", Bytes(text)); });
    OnSignal(m_config->txtExDirs, &QLineEdit::textEdited, this, "frmMain txtExDirs_Change",
             [](const QString& text) { StoreOption("ExDirs", Bytes(text)); });
    OnSignal(m_config->txtMaxBackups, &QLineEdit::textEdited, this, "frmMain txtMaxBackups_Change",
             [this](const QString& text) {
                 if (const auto back = MaxBackupsChanged(Bytes(text)))
                     m_config->txtMaxBackups->setText(QString::fromStdString(*back));
             });
    OnSignal(
        m_config->chkSchedule, &QCheckBox::clicked, this, "frmMain chkSchedule_Click",
        [this](bool ticked) { ShowSchedule(ScheduleChanged("SchedEnabled", ticked ? "1" : "0")); });
    OnSignal(m_config->chkNotifySuccess, &QCheckBox::clicked, this,
             "frmMain chkNotifySuccess_Click",
             [](bool ticked) { StoreOption("NotifySuccess", ticked ? "1" : "0"); });
    const std::pair<QSpinBox*, const char*> times[] = {{m_config->spnHour, "Hour"},
                                                       {m_config->spnMinute, "Minute"}};
    for (const auto& [box, key] : times)
        OnSignal(box, &QSpinBox::valueChanged, this,
                 "frmMain " + box->objectName().toStdString() + "_Change",
                 [this, key = std::string(key)](int value) {
                     if (!m_showingSchedule)
                         ShowSchedule(ScheduleChanged(key, std::to_string(value)));
                 });
}

std::function<void()> frmMain::Handler(const char* name, Command command) {
    return TrappedHandler(name ? std::string("frmMain ") + name : std::string(),
                          [this, command] { (this->*command)(); });
}

void frmMain::OnClick(QAbstractButton* button, const char* name, Command command) {
    connect(button, &QAbstractButton::clicked, this, Handler(name, command));
}

// The load runs under the error trap: an error that no step caught is reported, and the window
// opens all the same (an unattended start ends with the status of a run that could not start,
// or of one whose record is unknown once its words began).
std::optional<int> frmMain::Form_Load() {
    CProcTrap trap("frmMain Form_Load");
    const bool unattended = !m_commandLine.empty();
    // No error box waits for a person during an unattended start; a window left open for a
    // person (no backup path set yet) shows them again.
    if (unattended) ErrHandler().DisplayMsgOnError(false);
    try {
        trap.Check();
        std::optional<int> exit = Load();
        if (!exit) ErrHandler().DisplayMsgOnError(true);
        return exit;
    } catch (...) {
        const std::string error = CurrentRuntimeError().Description();
        trap.Handle();
        if (!unattended) return std::nullopt;
        std::cerr << "Error: the unattended run stopped at an error: " << error << std::endl;
        return m_wordsBegun ? kExitRunLost : kExitCannotRun;
    }
}

std::optional<int> frmMain::Load() {
    for (XP_ProgressBar* bar : findChildren<XP_ProgressBar*>())
        bar->Color(kRunBarColour);
    setWindowTitle(QString::fromStdString(MainWindowCaption()));
    ShowTab(MainTab::kBackup);
    return LoadMainWindow(*this, m_run, m_commandLine, m_wordsBegun);
}

void frmMain::ShowBackupPath(const std::string& path) {
    m_config->txtBackupPath->setText(ShownName(path));
}

void frmMain::GotoConfigure() {
    ShowTab(MainTab::kConfiguration);
    m_config->txtBackupPath->setStyleSheet(QStringLiteral("background-color: rgb(255, 255, 0);"));
    AskForBackupPath();
}

void frmMain::ShowOptions(const BackupOptions& options) {
    QRadioButton* level = options.log == "Advanced" ? m_config->Option2
                          : options.log == "Trace"  ? m_config->Option3
                                                    : m_config->Option1;
    level->setChecked(true);
    m_config->chkHidden->setChecked(options.hidden != 0);
    m_config->chkSystem->setChecked(options.system != 0);
    m_config->chkBackup->setChecked(options.backup != 0);
    m_config->chkRestore->setChecked(options.restore != 0);
    m_config->chkExclRecycler->setChecked(options.exclRecycler != 0);
    m_config->chkQuickCheck->setChecked(options.quickCheck != 0);
    m_config->txtExclude->setText(ShownName(options.exclude));
    m_config->txtExDirs->setText(ShownName(options.exDirs));
    m_config->txtMaxBackups->setText(ShownName(options.maxBackups));
}

BackupOptions frmMain::OptionsShown() const {
    BackupOptions options;
    options.log = m_config->Option2->isChecked()   ? "Advanced"
                  : m_config->Option3->isChecked() ? "Trace"
                                                   : "Basic";
    options.hidden = m_config->chkHidden->isChecked();
    options.system = m_config->chkSystem->isChecked();
    options.backup = m_config->chkBackup->isChecked();
    options.restore = m_config->chkRestore->isChecked();
    options.exclRecycler = m_config->chkExclRecycler->isChecked();
    options.quickCheck = m_config->chkQuickCheck->isChecked();
    options.exclude = Bytes(m_config->txtExclude->text());
    options.exDirs = Bytes(m_config->txtExDirs->text());
    options.maxBackups = Bytes(m_config->txtMaxBackups->text());
    return options;
}

// The sources are shown decoded; each row keeps the folder's bytes.
void frmMain::ShowSources(const std::vector<std::string>& sources) {
    m_backup->lstSources->clear();
    for (const std::string& source : sources) {
        auto* row = new QListWidgetItem(ShownName(source), m_backup->lstSources);
        row->setData(Qt::UserRole, QByteArray::fromStdString(source));
    }
}

std::vector<std::string> frmMain::ListedSources() const {
    std::vector<std::string> sources;
    for (int row = 0; row < m_backup->lstSources->count(); ++row)
        sources.push_back(
            m_backup->lstSources->item(row)->data(Qt::UserRole).toByteArray().toStdString());
    return sources;
}

bool frmMain::BackupPathChosen() {
    if (IsBackupPathSet()) return true;
    GotoConfigure();
    return false;
}

void frmMain::cmdBackup_Click() {
    if (!m_run.Running() && !BackupPathChosen()) return;
    if (!m_run.Running()) m_run.Inputs(ListedSources(), OptionsShown());
    m_run.cmdBackup_Click();
    CloseIfAsked();
}

// Only what changed is touched: a run renders twice per file, and most of the view stays.
// A change of the progress alone (file count done, throughput, bar, bytes) is shown at most every
// 50 ms, except the first after any other change: painting every file of a run of many small
// files would cost the run its speed. Whatever is held back shows with the next render.
void frmMain::Render(const RunView& view) {
    const RunView& shown = m_shown;
    RunView progressOnly = shown;
    progressOnly.lblDone = view.lblDone;
    progressOnly.lblThruPut = view.lblThruPut;
    progressOnly.lblBytes = view.lblBytes;
    progressOnly.progress = view.progress;
    const bool onlyProgress = progressOnly == view;
    const auto now = std::chrono::steady_clock::now();
    if (onlyProgress && m_lastWasProgress && now - m_progressShown < kProgressInterval) return;
    m_lastWasProgress = onlyProgress;
    if (onlyProgress) m_progressShown = now;
    const auto text = [](QLabel* label, const std::string& now, const std::string& before) {
        if (now != before) label->setText(ShownName(now));
    };
    text(m_backup->lblSource, view.lblSource, shown.lblSource);
    text(m_backup->lblProcessing, view.lblProcessing, shown.lblProcessing);
    text(m_backup->lblCount, view.lblCount, shown.lblCount);
    text(m_backup->lblDone, view.lblDone, shown.lblDone);
    text(m_backup->lblThruPut, view.lblThruPut, shown.lblThruPut);
    text(m_backup->lblBytes, view.lblBytes, shown.lblBytes);
    if (m_backup->XP_PB1->Value() != view.progress) m_backup->XP_PB1->Value(view.progress);
    if (view.cmdBackupCaption != shown.cmdBackupCaption)
        m_backup->ShowBackupCaption(QString::fromStdString(view.cmdBackupCaption),
                                    QString::fromStdString(view.cmdBackupToolTip));
    if (view.sourceButtonsEnabled != shown.sourceButtonsEnabled) {
        m_backup->cmdAddSrc->setEnabled(view.sourceButtonsEnabled);
        m_backup->cmdRemove->setEnabled(view.sourceButtonsEnabled);
    }
    if (view.tabsEnabled != shown.tabsEnabled) {
        SSTab1->setTabEnabled(static_cast<int>(MainTab::kRestore), view.tabsEnabled);
        SSTab1->setTabEnabled(static_cast<int>(MainTab::kConfiguration), view.tabsEnabled);
    }
    if (view.lblLastBackup != shown.lblLastBackup ||
        view.lastBackupWarning != shown.lastBackupWarning)
        ShowLastBackup(view);
    if (view.selectedSource != m_backup->lstSources->currentRow() && view.selectedSource >= 0 &&
        view.selectedSource < m_backup->lstSources->count())
        m_backup->lstSources->setCurrentRow(view.selectedSource);
    m_shown = view;
    emit RunShown();
}

// One report window: a cancelled run ends its closing steps twice (at the click and at the
// run's end), and the second time the open report is read again, so it holds the whole log.
void frmMain::ShowReport() {
    if (m_closeAfterRun) return; // the person is leaving
    const QString logFile = QString::fromStdString(Logger().LogFile());
    if (m_report) {
        m_report->Reload(logFile);
    } else {
        m_report = new frmReport(logFile, this);
        m_report->setAttribute(Qt::WA_DeleteOnClose);
    }
    m_report->Summary(m_run.SummaryLines());
    m_report->show(); // modeless
    m_report->raise();
}

void frmMain::cmdAddSrc_Click() {
    if (!BackupPathChosen()) return;
    if (AddSource()) ShowSources(FillSources());
}

void frmMain::cmdRemove_Click() {
    if (!BackupPathChosen()) return;
    const QListWidgetItem* row = m_backup->lstSources->currentItem();
    const bool selected = row && row->isSelected();
    if (RemoveSource(selected ? row->data(Qt::UserRole).toByteArray().toStdString() : ""))
        ShowSources(FillSources());
}

void frmMain::cmdSelBackupPath_Click() {
    const std::string path = SelectBackupPath();
    if (path.empty()) return;
    m_config->txtBackupPath->setText(ShownName(path));
    m_config->txtBackupPath->setStyleSheet({});
    // Each backup path has its own catalogue, and so its own options and sources.
    ShowOptions(LoadOptions());
    ShowSources(FillSources());
    ShowStoredSchedule();
}

// An overdue backup is told in words and, besides, in the warning colour and bold.
void frmMain::ShowLastBackup(const RunView& view) {
    QLabel* label = m_backup->lblLastBackup;
    label->setText(ShownName(view.lblLastBackup));
    label->setStyleSheet(view.lastBackupWarning
                             ? QStringLiteral("color: %1; font-weight: bold;").arg(kWarningColour)
                             : QString());
}

void frmMain::ShowStoredSchedule() {
    const Schedule stored = LoadSchedule();
    m_showingSchedule = true;
    m_config->spnHour->setValue(stored.hour);
    m_config->spnMinute->setValue(stored.minute);
    m_showingSchedule = false;
    m_config->chkNotifySuccess->setChecked(TellsSuccess());
    ShowSchedule(ScheduleAtStart());
}

void frmMain::ShowSchedule(const ScheduleView& view) {
    m_config->chkSchedule->setChecked(view.enabled);
    m_config->lblNextBackup->setText(QString::fromStdString(view.next));
}

void frmMain::ShowTab(MainTab tab) {
    SSTab1->setCurrentIndex(static_cast<int>(tab));
}

void frmMain::SetBusy(MainTab tab, bool busy) {
    m_busy = busy;
    for (int other = 0; other < SSTab1->count(); ++other)
        if (other != static_cast<int>(tab)) SSTab1->setTabEnabled(other, !busy);
    for (QWidget* control : std::initializer_list<QWidget*>{
             m_restore->cmdSelBackup, m_restore->tvDirs, m_restore->cmdFindVersions,
             m_config->cmdSelBackupPath, m_config->cmdManage, m_config->cmdPurge,
             m_config->cmdCompact})
        control->setEnabled(!busy);
    EnableRunCommands(!busy && m_browser.Root() != CBackupBrowser::kNone);
}

// A restore or maintenance under way: however it ends (an error the handler reported
// included), the window is enabled again, the pointer given back, and the window closed after
// it when the person asked for that meanwhile.
class frmMain::BusyScope {
public:
    BusyScope(frmMain& window, MainTab tab) : m_window(window), m_tab(tab) {
        m_window.SetBusy(m_tab, true);
    }
    ~BusyScope() {
        m_window.SetBusy(m_tab, false);
        while (m_cursors-- > 0)
            QApplication::restoreOverrideCursor();
        QTimer::singleShot(0, &m_window, [window = &m_window] { window->CloseIfAsked(); });
    }
    BusyScope(const BusyScope&) = delete;
    BusyScope& operator=(const BusyScope&) = delete;

    // The busy pointer while `busy`.
    void Pointer(bool busy) {
        if (busy) {
            QApplication::setOverrideCursor(Qt::WaitCursor);
            ++m_cursors;
        } else if (m_cursors > 0) {
            QApplication::restoreOverrideCursor();
            --m_cursors;
        }
    }

private:
    frmMain& m_window;
    MainTab m_tab;
    int m_cursors = 0;
};

void frmMain::CloseIfAsked() {
    if (m_closeAfterRun && !m_run.Running() && !m_busy) close();
}

// The run chosen (or none, when `bid` is empty): its bid in lblBid and its tree in tvDirs.
void frmMain::ShowRun(const std::string& bid) {
    m_restore->lblBid->setText(QString::fromStdString(bid));
    if (bid.empty()) {
        m_browser.Clear();
        m_restore->lblRestore->clear();
        m_restore->XP_PB2->Value(0);
    } else {
        m_browser.cmbBackups_Click(bid);
        // The root is shown open: it shows its own files too.
        if (m_browser.Root() != CBackupBrowser::kNone) m_browser.PopulateNode(m_browser.Root());
    }
    // Another run is searched anew.
    const QSignalBlocker quiet(m_restore->txtSearch);
    m_restore->txtSearch->clear();
    m_restore->lblFound->clear();
    EnableRunCommands(m_browser.Root() != CBackupBrowser::kNone);
}

// What needs a run shown: restoring it, searching it, comparing it.
void frmMain::EnableRunCommands(bool runShown) {
    for (QWidget* control :
         std::initializer_list<QWidget*>{m_restore->cmdRestore, m_restore->cmdRestoreTo,
                                         m_restore->txtSearch, m_restore->cmdCompare})
        control->setEnabled(runShown);
}

void frmMain::SearchRun() {
    if (m_busy || m_browser.Root() == CBackupBrowser::kNone) return;
    QApplication::setOverrideCursor(Qt::WaitCursor);
    m_browser.Search(NameBytes(m_restore->txtSearch->text()));
    QApplication::restoreOverrideCursor();
    m_restore->lblFound->setText(QString::fromStdString(m_browser.SearchText()));
}

void frmMain::cmdSelBackup_Click() {
    if (!BackupPathChosen()) return;
    frmSelBackup dialog(this);
    if (dialog.exec() == QDialog::Accepted) ShowRun(dialog.SelectedBid());
}

void frmMain::cmdRestore_Click() {
    BusyScope busy(*this, MainTab::kRestore);
    m_browser.cmdRestore_Click(m_config->chkRestore->isChecked());
}

// Every version of the file chosen in the tree, or of the names searched for.
void frmMain::cmdFindVersions_Click() {
    if (!BackupPathChosen()) return;
    std::string search = NameBytes(m_restore->txtSearch->text());
    const QModelIndex current = m_restore->tvDirs->currentIndex();
    if (current.isValid()) {
        const BrowserNode& node = m_browser.Node(m_tree->NodeOf(current));
        if (node.image != 1 && node.image != 2) search = node.text;
    }
    frmVersions dialog(search, m_config->chkRestore->isChecked(), this);
    dialog.exec();
}

void frmMain::cmdCompare_Click() {
    if (m_browser.Bid().empty()) return;
    frmRunDiff dialog(m_browser.Bid(), this);
    dialog.exec();
}

void frmMain::cmdRestoreTo_Click() {
    BusyScope busy(*this, MainTab::kRestore);
    m_browser.cmdRestoreTo_Click(m_config->chkRestore->isChecked());
}

void frmMain::cmdManage_Click() {
    if (!BackupPathChosen()) return;
    {
        BusyScope busy(*this, MainTab::kConfiguration);
        DeleteRemovedSources(ListedSources(),
                             [this](int32_t row) { m_backup->lstSources->setCurrentRow(row); });
    }
    if (!RunExists(m_browser.Bid())) ShowRun({});
}

void frmMain::cmdPurge_Click() {
    if (!BackupPathChosen()) return;
    {
        BusyScope busy(*this, MainTab::kConfiguration);
        PurgeBackups();
    }
    if (!RunExists(m_browser.Bid())) ShowRun({});
}

void frmMain::cmdCompact_Click() {
    if (!BackupPathChosen()) return;
    BusyScope busy(*this, MainTab::kConfiguration);
    CompactBackups([&busy](bool on) { busy.Pointer(on); });
}

void frmMain::mnuExit_Click() {
    close();
}

void frmMain::mnuManual_Click() {
    OpenManual();
}

void frmMain::mnuAbout_Click() {
    frmAbout about(this);
    about.exec();
}

// A run is cancelled as by a second click on cmdBackup, so its catalogue rows are rolled back,
// and the click that started it closes the window when it returns; a restore or maintenance
// is let finish, and closes the window when it ends.
void frmMain::closeEvent(QCloseEvent* event) {
    if (!m_run.Running() && !m_busy) {
        QMainWindow::closeEvent(event);
        return;
    }
    event->ignore();
    if (m_closeAfterRun) return; // already stopping
    m_closeAfterRun = true;
    if (m_run.Running()) TrappedHandler({}, [this] { m_run.cmdBackup_Click(); })();
}

void frmMain::resizeEvent(QResizeEvent* event) {
    QMainWindow::resizeEvent(event);
    TrappedHandler("frmMain Form_Resize", [this] { Resize(this); })();
}
