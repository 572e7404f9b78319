// A backup run or a restore through the real main window on the offscreen platform, for
// bench/run.sh.
//
//   window_run                       clicks Backup; prints "seconds S"
//   window_run --cancel-after MS     clicks Backup, and Cancel MS milliseconds later; prints
//                                    "late L stopped T": how late the Cancel click was handled
//                                    and how long the run took to stop after it, in ms
//   window_run --restore DEST        chooses the newest run in the Select Backup dialog, ticks
//                                    its root and restores it all into DEST with Restore to;
//                                    prints "fill F tick K restore R" in seconds: the dialog's
//                                    OK to the folder tree shown, the tick, and the restore
//   window_run --tree PATTERN        chooses the newest run, opens its top folder and searches
//                                    for PATTERN; prints "open O search S clear C matches M
//                                    choose L" in seconds: the run chooser's list shown (L),
//                                    the top folder opened from OK, the search and its clearing
//
// XDG_CONFIG_HOME and XDG_STATE_HOME point at a prepared backup folder, as for the program.

#include "app/modMain.h"
#include "support/modBrowseFolder.h"
#include "support/modMsgBox.h"
#include "support/modServices.h"
#include "ui/CQtServices.h"
#include "ui/frmMain.h"

#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTimer>
#include <QTreeView>
#include <QTreeWidget>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

using Clock = std::chrono::steady_clock;

double Seconds(Clock::duration d) {
    return std::chrono::duration<double>(d).count();
}

// Answers every folder prompt with one folder.
class CFixedFolder : public IFolderPickerService {
public:
    explicit CFixedFolder(std::string folder) : m_folder(std::move(folder)) {}
    std::string Pick(const std::string&) override { return m_folder; }

private:
    std::string m_folder;
};

// Picks the first run listed (the newest of the first source) once the dialog shows, and
// notes when it showed, its runs listed, and when OK was clicked.
void AnswerSelectBackup(Clock::time_point& ok, Clock::time_point* shown = nullptr) {
    auto* poll = new QTimer;
    QObject::connect(poll, &QTimer::timeout, [poll, &ok, shown] {
        QWidget* dialog = QApplication::activeModalWidget();
        if (!dialog || dialog->objectName() != "frmSelBackup") return;
        if (shown) *shown = Clock::now();
        poll->stop();
        poll->deleteLater();
        auto* runs = dialog->findChild<QTreeWidget*>("tvBackups");
        runs->setCurrentItem(runs->topLevelItem(0)->child(0));
        ok = Clock::now();
        dialog->findChild<QPushButton*>("OKButton")->click();
    });
    poll->start(1);
}

int Restore(frmMain& window, const std::string& destination) {
    CFixedFolder folder(destination);
    SetFolderPickerService(&folder);
    Clock::time_point ok{};
    AnswerSelectBackup(ok);
    window.cmdSelBackup_Click();
    const auto shown = Clock::now();
    auto* tree = window.findChild<QTreeView*>("tvDirs");
    if (ok == Clock::time_point{} || tree->model()->rowCount() != 1) return 1;
    tree->model()->setData(tree->model()->index(0, 0), Qt::Checked, Qt::CheckStateRole);
    const auto ticked = Clock::now();
    window.cmdRestoreTo_Click();
    const auto restored = Clock::now();
    std::printf("fill %.3f tick %.3f restore %.3f\n", Seconds(shown - ok), Seconds(ticked - shown),
                Seconds(restored - ticked));
    SetFolderPickerService(nullptr);
    return 0;
}

int Tree(frmMain& window, const std::string& search) {
    Clock::time_point ok{}, listed{};
    AnswerSelectBackup(ok, &listed);
    const auto asked = Clock::now();
    window.cmdSelBackup_Click();
    auto* tree = window.findChild<QTreeView*>("tvDirs");
    if (ok == Clock::time_point{} || tree->model()->rowCount() != 1) return 1;
    const QModelIndex root = tree->model()->index(0, 0);
    if (tree->model()->rowCount(root) < 1) return 1;
    tree->expand(tree->model()->index(0, 0, root));
    tree->repaint();
    const auto opened = Clock::now();
    auto* box = window.findChild<QLineEdit*>("txtSearch");
    box->setText(QString::fromStdString(search));
    emit box->returnPressed();
    tree->repaint();
    const auto found = Clock::now();
    const QString matches = window.findChild<QLabel*>("lblFound")->text();
    box->clear();
    emit box->returnPressed();
    tree->repaint();
    const auto cleared = Clock::now();
    std::printf("open %.3f search %.3f clear %.3f matches %s choose %.3f\n", Seconds(opened - ok),
                Seconds(found - opened), Seconds(cleared - found),
                matches.section(' ', 0, 0).remove(',').toUtf8().constData(),
                Seconds(listed - asked));
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    const bool cancel = argc == 3 && std::strcmp(argv[1], "--cancel-after") == 0;
    const bool restore = argc == 3 && std::strcmp(argv[1], "--restore") == 0;
    const bool tree = argc == 3 && std::strcmp(argv[1], "--tree") == 0;
    const int cancelAfter = cancel ? std::atoi(argv[2]) : -1;
    const std::string destination = restore ? argv[2] : "";
    QApplication application(argc, argv);
    StartDailyLog();
    InstallWindowServices();
    SetMessageBoxService(nullptr); // nothing may wait for a person
    frmMain window;
    if (window.Form_Load()) return 1;
    window.show();
    QApplication::processEvents();
    if (restore) return Restore(window, destination);
    if (tree) return Tree(window, argv[2]);

    const auto start = Clock::now();
    Clock::time_point handled{};
    if (cancelAfter >= 0)
        QTimer::singleShot(cancelAfter, [&] {
            handled = Clock::now();
            window.cmdBackup_Click();
        });
    window.cmdBackup_Click();
    const auto end = Clock::now();
    if (cancelAfter < 0) {
        std::printf("seconds %.3f\n", Seconds(end - start));
    } else {
        if (handled == Clock::time_point{}) return 3; // the run ended before the click
        std::printf("late %.1f stopped %.1f\n", Seconds(handled - start) * 1000 - cancelAfter,
                    Seconds(end - handled) * 1000);
    }
    return 0;
}
