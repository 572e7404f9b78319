#include "ui/modWindow.h"

#include "ui/CQtServices.h"
#include "ui/frmMain.h"

#include <QApplication>

int RunWindow(int& argc, char** argv, const std::string& commandLine) {
    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Stashwell"));
    InstallWindowServices();
    frmMain window(commandLine);
    if (const std::optional<int> exit = window.Form_Load()) return *exit;
    window.show();
    return QApplication::exec();
}
