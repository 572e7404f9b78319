#include "support/CLogger.h"

#include "platform/modPlatformPaths.h"
#include "support/CRuntimeError.h"
#include "support/modDateText.h"
#include "support/modNumText.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

CLogger::CLogger() : m_path(StateFile("LOGGER.TXT")) {}

CLogger::~CLogger() {
    StopLogger();
    for (int fd : m_earlierFds)
        ::close(fd);
}

void CLogger::LogLevel(int32_t level) {
    m_level = level;
    Log(1, "LogLevel switched to " + NumText(level));
}

bool CLogger::StartLogger() {
    const int fd =
        ::open(m_path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, kPrivateFileMode);
    if (fd < 0) return false;
    if (m_fd >= 0) m_earlierFds.push_back(m_fd);
    m_fd = fd;
    m_started = true;
    m_writeError = 0;
    return true;
}

void CLogger::StopLogger() {
    m_started = false;
    if (m_fd >= 0) ::close(m_fd);
    m_fd = -1;
}

bool CLogger::ClearLog() {
    if (!m_started) ::unlink(m_path.c_str()); // errors are ignored by design
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
    size_t done = 0;
    while (done < line.size()) {
        const ssize_t n = ::write(m_fd, line.data() + done, line.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            // A write that takes nothing without saying why counts as the device's failure.
            m_writeError = n < 0 ? errno : EIO;
            const bool full = m_writeError == ENOSPC || m_writeError == EDQUOT;
            Raise(full ? err::kDiskFull : err::kDeviceIO);
        }
        done += static_cast<size_t>(n);
    }
}
