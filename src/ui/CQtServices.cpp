#include "ui/CQtServices.h"

#include "support/modYield.h"
#include "ui/modFileNames.h"

#include <QApplication>
#include <QFileDialog>
#include <QMessageBox>
#include <QPushButton>

#include <vector>

namespace {

// The buttons of a style, each with its answer, in the order they show.
std::vector<std::pair<QMessageBox::StandardButton, int>> ButtonsOf(int style) {
    switch (style & 7) {
    case mb::kOKCancel:
        return {{QMessageBox::Ok, mb::kOK}, {QMessageBox::Cancel, mb::kCancel}};
    case mb::kAbortRetryIgnore:
        return {{QMessageBox::Abort, mb::kAbort},
                {QMessageBox::Retry, mb::kRetry},
                {QMessageBox::Ignore, mb::kIgnore}};
    case mb::kYesNoCancel:
        return {{QMessageBox::Yes, mb::kYes},
                {QMessageBox::No, mb::kNo},
                {QMessageBox::Cancel, mb::kCancel}};
    case mb::kYesNo:
        return {{QMessageBox::Yes, mb::kYes}, {QMessageBox::No, mb::kNo}};
    case mb::kRetryCancel:
        return {{QMessageBox::Retry, mb::kRetry}, {QMessageBox::Cancel, mb::kCancel}};
    default:
        return {{QMessageBox::Ok, mb::kOK}};
    }
}

QMessageBox::Icon IconOf(int style) {
    switch (style & 0x70) {
    case mb::kCritical:
        return QMessageBox::Critical;
    case mb::kQuestion:
        return QMessageBox::Question;
    case mb::kExclamation:
        return QMessageBox::Warning;
    case mb::kInformation:
        return QMessageBox::Information;
    default:
        return QMessageBox::NoIcon;
    }
}

} // namespace

int CQtMessageBox::Show(const std::string& text, int style, const std::string& title) {
    QMessageBox box(IconOf(style), QString::fromStdString(title.empty() ? "Stashwell" : title),
                    QString::fromStdString(text), QMessageBox::NoButton,
                    QApplication::activeWindow());
    const auto buttons = ButtonsOf(style);
    for (const auto& [button, answer] : buttons)
        box.addButton(button);
    box.setDefaultButton(buttons.front().first);
    box.exec();
    for (const auto& [button, answer] : buttons)
        if (box.clickedButton() == box.button(button)) return answer;
    // Closed without a button: the answer of Cancel where there is one, else the first.
    for (const auto& [button, answer] : buttons)
        if (answer == mb::kCancel || answer == mb::kNo) return answer;
    return buttons.front().second;
}

void CQtMessageBox::Beep() {
    QApplication::beep();
}

std::string CQtFolderPicker::Pick(const std::string& title) {
    const QString folder = QFileDialog::getExistingDirectory(QApplication::activeWindow(),
                                                             QString::fromStdString(title));
    return folder.isEmpty() ? std::string() : NameBytes(folder);
}

void InstallWindowServices() {
    static CQtMessageBox box;
    static CQtFolderPicker picker;
    SetMessageBoxService(&box);
    SetFolderPickerService(&picker);
    SetYieldHook([] { QApplication::processEvents(); });
}
