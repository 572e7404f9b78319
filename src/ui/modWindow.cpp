#include "ui/modWindow.h"

#include "ui/CApplication.h"
#include "ui/CQtServices.h"
#include "ui/frmMain.h"

#include <QApplication>

#include <iostream>
#include <thread>
#include <utility>

namespace {

// Set while the application is being built, on the thread that builds it.
const std::function<int()>* g_withoutWindow = nullptr;
std::thread::id g_builder;
QtMessageHandler g_qtHandler = nullptr;

void OnQtMessage(QtMsgType type, const QMessageLogContext& context, const QString& text) {
    g_qtHandler(type, context, text);
    // A fatal message of a thread of Qt's own aborts as Qt means it to: the builder still runs.
    if (type != QtFatalMsg || !g_withoutWindow || std::this_thread::get_id() != g_builder) return;
    // Qt aborts when this returns: the start goes on here, and the process ends with its status.
    const int status = (*std::exchange(g_withoutWindow, nullptr))();
    std::cout.flush();
    std::_Exit(status);
}

} // namespace

CWindowRunner::CWindowRunner() = default;
CWindowRunner::~CWindowRunner() = default;

bool CWindowRunner::FindDisplay() {
    m_display = ::FindDisplay();
    return !m_display.platform.empty();
}

void CWindowRunner::Open(const std::string& program, const std::function<int()>& withoutWindow) {
    // Only the platform found: the command line's words are the program's own, and a Qt option
    // among them could choose another display than the one found.
    m_args = {program, "-platform", m_display.platform};
    for (std::string& arg : m_args)
        m_argv.push_back(arg.data());
    m_argv.push_back(nullptr);
    m_argc = static_cast<int>(m_args.size());
    g_withoutWindow = &withoutWindow;
    g_builder = std::this_thread::get_id();
    g_qtHandler = qInstallMessageHandler(OnQtMessage);
    m_application = std::make_unique<CApplication>(m_argc, m_argv.data());
    qInstallMessageHandler(g_qtHandler);
    g_withoutWindow = nullptr;
    QApplication::setApplicationName(QStringLiteral("Stashwell"));
    InstallWindowServices();
}

int CWindowRunner::Run(const std::string& commandLine) {
    frmMain window(commandLine);
    if (const std::optional<int> exit = window.Form_Load()) return *exit;
    window.show();
    return QApplication::exec();
}
