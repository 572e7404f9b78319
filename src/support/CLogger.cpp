#include "support/CLogger.h"

#include "platform/modPlatformPaths.h"
#include "support/CRuntimeError.h"
#include "support/modDateText.h"
#include "support/modNumText.h"

#include <utility>

CLogger::CLogger() : m_path(StateFile("LOGGER.TXT")) {}

CLogger::~CLogger() {
    StopLogger();
}

void CLogger::LogLevel(int32_t level) {
    m_level = level;
    Log(1, "LogLevel switched to " + NumText(level));
}

bool CLogger::StartLogger() {
    CFile file;
    if (!file.Open(m_path, CFile::Mode::kAppend)) return false;
    if (m_file.IsOpen()) m_earlierFiles.push_back(std::move(m_file));
    m_file = std::move(file);
    m_started = true;
    m_writeError = 0;
    return true;
}

void CLogger::StopLogger() {
    m_started = false;
    m_file.Close();
}

bool CLogger::ClearLog() {
    if (!m_started) RemoveFile(m_path); // errors are ignored by design
    return false;
}

void CLogger::Log(int32_t level, const std::string& message) {
    if (!m_started || level > m_level) return;
    WriteLine(NowText() + ": " + message + "\r\n");
}

void CLogger::BlankLine() {
    if (m_started) WriteLine(" \r\n");
}

void CLogger::WriteLine(const std::string& line) {
    if (m_file.WriteAll(line)) return;
    // A write that takes nothing without saying why counts as the device's failure.
    m_writeError = m_file.Error();
    Raise(IsDiskFullError(m_writeError) ? err::kDiskFull : err::kDeviceIO);
}
