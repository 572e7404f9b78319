#pragma once

// What every window test needs: a backup folder of its own with the scripted services
// (message boxes, folder picks, the desktop), the yield hook that processes the window's events
// as the program sets it, the real frmMain, and finding its controls by their names.

#include "BackupFixture.h"
#include "app/modMain.h"
#include "support/modYield.h"
#include "ui/frmMain.h"

#include <QAbstractButton>
#include <QApplication>
#include <QPushButton>
#include <QStyledItemDelegate>
#include <QTabWidget>
#include <QTimer>
#include <QTreeView>
#include <QTreeWidget>
#include <QtTest>

#include <functional>
#include <memory>
#include <string>

class WindowEnv {
public:
    // As the program starts: the daily log is open under the backup path.
    WindowEnv() {
        SetYieldHook([] { QApplication::processEvents(); });
        StartDailyLog();
    }
    ~WindowEnv() { window.reset(); }

    frmMain& Open(std::string commandLine = {}) {
        window = std::make_unique<frmMain>(std::move(commandLine));
        return *window;
    }

    // A control of the window by its name; the test program stops when there is none.
    template <class Control> Control* Get(const char* name) const {
        auto* control = window->findChild<Control*>(QString::fromLatin1(name));
        if (!control) qFatal("no control %s", name);
        return control;
    }

    // Shows the window at tab `tab`, as a person sees it before using its controls.
    void ShowTab(int tab) {
        window->show();
        QVERIFY(QTest::qWaitForWindowExposed(window.get()));
        Get<QTabWidget>("SSTab1")->setCurrentIndex(tab);
    }

    // Clicks the button `name` as a person does, with the mouse.
    void Click(const char* name) const {
        QTest::mouseClick(Get<QPushButton>(name), Qt::LeftButton);
    }

    // Backs up every source through the Backup button of the first tab.
    void BackUp() {
        ShowTab(0);
        Click("cmdBackup");
    }

    // Makes `tree` at `source`, lists it as the only source, opens the window and backs it up
    // once through the window.
    frmMain& OpenAfterOneRun(const std::string& source, const TestNode& tree) {
        CreateTree(source, tree);
        f.AddSource(source);
        frmMain& opened = Open();
        opened.Form_Load();
        BackUp();
        return opened;
    }

    BackupFixture f;
    ScopedTestEnv& env = f.env;
    std::unique_ptr<frmMain> window;
};

// The next widget that the Tab key reaches after `widget`.
inline QWidget* NextTabStop(QWidget* widget) {
    QWidget* next = widget->nextInFocusChain();
    while (next != widget && !(next->focusPolicy() & Qt::TabFocus))
        next = next->nextInFocusChain();
    return next;
}

using Calls = std::vector<CScriptedMessageBox::Call>;

inline QString Q(const std::string& text) {
    return QString::fromStdString(text);
}

inline QStringList Q(const std::vector<std::string>& texts) {
    QStringList list;
    for (const std::string& text : texts)
        list << Q(text);
    return list;
}

// Message boxes as "text | style | title", one per box.
inline QStringList Boxes(const Calls& calls) {
    QStringList list;
    for (const auto& call : calls)
        list << Q(call.text) + " | " + QString::number(call.style) + " | " + Q(call.title);
    return list;
}

inline QString Box(const std::string& text, int style) {
    return Q(text) + " | " + QString::number(style) + " | QRV - Stashwell";
}

inline QStringList Rows(const BackupFixture& f, const std::string& sql) {
    return Q(f.RowTexts(sql));
}

// The text of a label or button as bytes, for comparing with the program's texts.
template <class Control> std::string TextOf(const Control* control) {
    return control->text().toStdString();
}

// Clicks a check box or option button on its box, where a person clicks.
inline void Tick(QAbstractButton* button) {
    QTest::mouseClick(button, Qt::LeftButton, {}, QPoint(8, button->height() / 2));
}

// ---- the restore tab ----

// Runs `answer` on the modal dialog named `name` as soon as it shows and, when `ready` is
// given, `ready` says it is done with what it does on opening (checked every 10 ms, for at most
// 10 s), while the caller's next step opens it.
template <class Answer>
void WhenModal(const char* name, Answer answer,
               std::function<bool(QWidget*)> ready = std::function<bool(QWidget*)>()) {
    auto* poll = new QTimer;
    auto tries = std::make_shared<int>(0);
    QObject::connect(poll, &QTimer::timeout, [poll, tries, name, answer, ready] {
        QWidget* dialog = QApplication::activeModalWidget();
        if (dialog && dialog->objectName() == name && dialog->isVisible() &&
            (!ready || ready(dialog))) {
            poll->stop();
            poll->deleteLater();
            answer(dialog);
        } else if (++*tries > 1000) {
            poll->stop();
            poll->deleteLater();
        }
    });
    poll->start(10);
}

// Chooses run `bid` in frmSelBackup as a person does: cmdSelBackup opens the dialog, the run is
// clicked in tvBackups, then OK. False when the dialog did not list the run (it is then
// cancelled).
inline bool ChooseRun(WindowEnv& w, const std::string& bid) {
    bool chosen = false;
    WhenModal("frmSelBackup", [&chosen, bid](QWidget* dialog) {
        auto* runs = dialog->findChild<QTreeWidget*>("tvBackups");
        for (int top = 0; top < runs->topLevelItemCount(); ++top)
            for (int run = 0; run < runs->topLevelItem(top)->childCount(); ++run) {
                QTreeWidgetItem* item = runs->topLevelItem(top)->child(run);
                if (item->data(0, Qt::UserRole).toByteArray() != "a" + QByteArray(bid.c_str()))
                    continue;
                QTest::mouseClick(runs->viewport(), Qt::LeftButton, {},
                                  runs->visualItemRect(item).center());
                QTest::mouseClick(dialog->findChild<QPushButton*>("OKButton"), Qt::LeftButton);
                chosen = true;
                return;
            }
        QTest::mouseClick(dialog->findChild<QPushButton*>("CancelButton"), Qt::LeftButton);
    });
    QTest::mouseClick(w.Get<QPushButton>("cmdSelBackup"), Qt::LeftButton);
    return chosen;
}

// The node of tvDirs whose key (the item's raw bytes) is `key`, among the nodes loaded.
inline QModelIndex NodeIndex(WindowEnv& w, const std::string& key, const QModelIndex& parent = {}) {
    QAbstractItemModel* model = w.Get<QTreeView>("tvDirs")->model();
    for (int row = 0; row < model->rowCount(parent); ++row) {
        const QModelIndex index = model->index(row, 0, parent);
        if (index.data(Qt::UserRole).toByteArray().toStdString() == key) return index;
        if (const QModelIndex below = NodeIndex(w, key, index); below.isValid()) return below;
    }
    return {};
}

// A click on a node's name.
inline void ClickNode(WindowEnv& w, const QModelIndex& index) {
    auto* tree = w.Get<QTreeView>("tvDirs");
    tree->scrollTo(index);
    const QRect item = tree->visualRect(index);
    QTest::mouseClick(tree->viewport(), Qt::LeftButton, {},
                      QPoint(item.left() + item.height() * 3, item.center().y()));
}

// A click on a node's check box, where the view draws it.
inline void ClickCheckBox(WindowEnv& w, const QModelIndex& index) {
    struct Options : QStyledItemDelegate {
        using QStyledItemDelegate::initStyleOption;
    } options;
    auto* tree = w.Get<QTreeView>("tvDirs");
    tree->scrollTo(index);
    QStyleOptionViewItem option;
    option.initFrom(tree->viewport());
    option.rect = tree->visualRect(index);
    options.initStyleOption(&option, index);
    const QRect box =
        tree->style()->subElementRect(QStyle::SE_ItemViewItemCheckIndicator, &option, tree);
    QTest::mouseClick(tree->viewport(), Qt::LeftButton, {}, box.center());
}

// Ticks or unticks a node with the keyboard: the node made current, then the space bar.
inline void TickWithSpace(WindowEnv& w, const QModelIndex& index) {
    auto* tree = w.Get<QTreeView>("tvDirs");
    tree->setCurrentIndex(index);
    QTest::keyClick(tree, Qt::Key_Space);
}

inline bool Ticked(const QModelIndex& index) {
    return index.data(Qt::CheckStateRole).toInt() == Qt::Checked;
}
