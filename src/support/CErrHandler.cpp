#include "support/CErrHandler.h"

#include "platform/modPlatformPaths.h"
#include "support/Version.h"
#include "support/modDateText.h"
#include "support/modMsgBox.h"
#include "support/modNumText.h"

#include <limits>

namespace {
constexpr const char* kCrLf = "\r\n";

void WriteAll(CFile& file, const std::string& text) {
    if (!file.WriteAll(text)) Raise(err::kDeviceIO);
}
} // namespace

CErrHandler::CErrHandler()
    : m_destination(StateFile("ERRORS.TXT")), m_stack(static_cast<size_t>(kDefaultMaxItems) + 3) {}

CErrHandler::~CErrHandler() = default;

void CErrHandler::MaxProcStackItems(int16_t value) {
    m_maxItems = value; // stored before the upper bound's overflow is raised
    const int upper = value + 2;
    if (upper > std::numeric_limits<int16_t>::max()) Raise(err::kOverflow);
    m_upper = static_cast<int16_t>(upper);
    m_stack.assign(static_cast<size_t>(upper < 0 ? 0 : upper + 1), std::string());
}

void CErrHandler::TraceExecution(bool value) {
    m_trace = value;
    if (!value) return; // writing false leaves the file open
    m_tracePath = StateFile("trace.log");
    RemoveFile(m_tracePath);
    // Switching on again starts a new file; the old one is closed.
    m_traceFile.Close();
    m_traceFile.Open(m_tracePath, CFile::Mode::kReplace);
}

bool CErrHandler::ClearLog() {
    RemoveFile(m_destination);
    return true;
}

void CErrHandler::Push(const std::string& procedure) {
    if (m_pointer == std::numeric_limits<int16_t>::max()) Raise(err::kOverflow);
    ++m_pointer;
    // Beyond the maximum the name goes two slots further up: the array ends at maximum + 2,
    // so the first push too deep is out of range.
    const int slot = m_pointer <= m_maxItems ? m_pointer : m_pointer + 2;
    if (slot < 0 || slot > m_upper) Raise(err::kSubscript);
    m_stack[static_cast<size_t>(slot)] = procedure;
    if (m_trace) {
        if (!m_traceFile.IsOpen()) Raise(err::kBadFileName);
        WriteAll(m_traceFile, procedure + kCrLf);
    }
}

void CErrHandler::Pop() {
    if (m_pointer <= m_maxItems && m_pointer >= 0 && m_pointer <= m_upper)
        m_stack[static_cast<size_t>(m_pointer)].clear();
    --m_pointer;
    if (m_pointer < 0) m_pointer = 0;
}

void CErrHandler::HandleError(const CRuntimeError& error, int32_t line) {
    m_errNumber = error.Number();
    m_errLine = line;
    m_errDescription = error.Description();
    if (m_pointer < 0 || m_pointer > m_upper) Raise(err::kSubscript);
    m_errProcedure = m_stack[static_cast<size_t>(m_pointer)];
    if (m_appTitle.empty()) m_appTitle = version::kTitle;

    bool cancel = false;
    if (OnErrorRaised) OnErrorRaised(cancel);
    if (cancel) return;

    try {
        WriteReport();
    } catch (...) {
        // A report that cannot be written is ignored; the message box still shows.
    }
    if (m_displayMsg) {
        Beep();
        MsgBox(MessageText(), mb::kCritical | mb::kOKOnly, m_appTitle);
    }
    if (OnErrorHandled) OnErrorHandled();
}

std::string CErrHandler::MessageText() const {
    std::string text = "The following error has occurred in procedure: ";
    text += kCrLf + m_errProcedure + " on line " + NumText(m_errLine) + kCrLf + "Error (" +
            NumText(m_errNumber) + ") " + m_errDescription;
    if (!m_operation.empty()) text += kCrLf + std::string("Current Operation: ") + m_operation;
    return text;
}

std::string CErrHandler::StackBlock() const {
    std::string block;
    for (int i = 0; i <= m_upper; ++i) {
        const std::string& name = m_stack[static_cast<size_t>(i)];
        if (name.empty()) continue;
        block += TwoDigits(i) + std::string(static_cast<size_t>(2 * i), ' ') + name + kCrLf;
    }
    return block;
}

void CErrHandler::WriteReport() const {
    RemoveFile(m_destination);
    CFile file;
    if (!file.Open(m_destination, CFile::Mode::kAppend)) return;
    std::string r;
    r += m_appTitle + " Application Error Information" + kCrLf;
    r += std::string(36, '=') + kCrLf;
    r += "Current Time   : " + NowText() + kCrLf;
    r += "Error String   : " + m_errDescription.substr(0, 255) + kCrLf;
    r += "Error Number   : " + NumText(m_errNumber) + kCrLf;
    r += "Error Line     : " + NumText(m_errLine) + kCrLf;
    r += "Error Procedure: " + m_errProcedure + kCrLf;
    r += kCrLf;
    r += std::string("Procedure Stack") + kCrLf;
    r += std::string(15, '-') + kCrLf;
    r += StackBlock() + kCrLf;
    if (!m_operation.empty()) r += "Current Operation: " + m_operation + kCrLf;
    if (m_expandedInfo) {
        r += kCrLf;
        r += std::string("Additional Information") + kCrLf;
        r += std::string(22, '-') + kCrLf;
        r += "Current Directory: " + CurrentFolder() + kCrLf;
        r += std::string("App Title: ") + version::kTitle + kCrLf;
        r += std::string("App CompanyName: ") + version::kCompanyName + kCrLf;
        r += "App Major: " + NumText(version::kMajor) + kCrLf;
        r += "App Minor: " + NumText(version::kMinor) + kCrLf;
        r += "App Revision: " + NumText(version::kRevision) + kCrLf;
        r += "App Path: " + ProgramFolder() + kCrLf;
        r += std::string("App ProductName: ") + version::kProductName + kCrLf;
        r += kCrLf;
    }
    WriteAll(file, r);
}
