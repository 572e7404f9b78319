#pragma once

// The last line of defence against unexpected run-time errors. Running procedures push their
// names on a hand-kept stack; HandleError writes a report file holding that stack (newest error
// only), beeps and shows a critical message box unless DisplayMsgOnError is off. Listeners of
// ErrorRaised may cancel all of that. Tracing writes every pushed name to trace.log.

#include "platform/CFile.h"
#include "support/CRuntimeError.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

class CErrHandler {
public:
    CErrHandler();
    ~CErrHandler();
    CErrHandler(const CErrHandler&) = delete;
    CErrHandler& operator=(const CErrHandler&) = delete;

    const std::string& Destination() const { return m_destination; }
    void Destination(const std::string& path) { m_destination = path; }
    bool DisplayMsgOnError() const { return m_displayMsg; }
    void DisplayMsgOnError(bool value) { m_displayMsg = value; }
    bool IncludeExpandedInfo() const { return m_expandedInfo; }
    void IncludeExpandedInfo(bool value) { m_expandedInfo = value; }
    int16_t MaxProcStackItems() const { return m_maxItems; }
    // Re-creates the stack; call before the first Push. A 16-bit overflow raises error 6.
    void MaxProcStackItems(int16_t value);
    bool TraceExecution() const { return m_trace; }
    void TraceExecution(bool value);

    // Deletes the report file, ignoring every error; always true.
    bool ClearLog();
    void HandleError(const CRuntimeError& error, int32_t line = 0);
    void Pop();
    // Beyond the maximum depth the first extra push raises error 9 (pointer stays incremented).
    void Push(const std::string& procedure);

    const std::string& AppTitle() const { return m_appTitle; }
    void AppTitle(const std::string& title) { m_appTitle = title; }
    const std::string& CurrentOperation() const { return m_operation; }
    void CurrentOperation(std::string_view text) { m_operation.assign(text); }

    int32_t ErrNumber() const { return m_errNumber; }
    int32_t ErrLine() const { return m_errLine; }
    const std::string& ErrDescription() const { return m_errDescription; }
    const std::string& ErrProcedure() const { return m_errProcedure; }
    int16_t StackPointer() const { return m_pointer; }

    // Events: ErrorRaised(cancel) before anything is written, ErrorHandled at the end.
    std::function<void(bool& cancel)> OnErrorRaised;
    std::function<void()> OnErrorHandled;

    // The texts HandleError writes and shows, exposed for the report's readers and tests.
    std::string MessageText() const;
    std::string StackBlock() const;

private:
    static constexpr int16_t kDefaultMaxItems = 100;

    void WriteReport() const;

    int16_t m_maxItems = kDefaultMaxItems;
    bool m_expandedInfo = true;
    bool m_displayMsg = true;
    int32_t m_errNumber = 0;
    int32_t m_errLine = 0;
    std::string m_errDescription;
    std::string m_errProcedure;
    std::string m_appTitle;
    std::string m_destination;
    std::string m_operation;
    bool m_trace = false;
    int16_t m_pointer = 0;
    int16_t m_upper = kDefaultMaxItems + 2;
    std::vector<std::string> m_stack; // indexes 0 to m_upper
    std::string m_tracePath;
    CFile m_traceFile;
};
