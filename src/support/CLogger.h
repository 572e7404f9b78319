#pragma once

// The running log: one line per event, "dd/MM/yyyy HH:mm:ss: message" ended by CR LF, written
// only when the message's level is at most the chosen level (1 Basic, 2 Advanced, 3 Trace).
// The file is opened for appending at StartLogger and stays open; every line goes straight to
// the file, so a killed process loses nothing that was logged.

#include "platform/CFile.h"

#include <cstdint>
#include <string>
#include <vector>

class CLogger {
public:
    CLogger();
    ~CLogger();
    CLogger(const CLogger&) = delete;
    CLogger& operator=(const CLogger&) = delete;

    // Takes effect at the next StartLogger.
    void LogFile(const std::string& path) { m_path = path; }
    const std::string& LogFile() const { return m_path; }

    // Stores the level, then announces it at level 1.
    void LogLevel(int32_t level);
    int32_t LogLevel() const { return m_level; }

    bool StartLogger();
    void StopLogger();
    bool Started() const { return m_started; }
    // Deletes the log file while the logger is stopped; always false.
    bool ClearLog();

    // A write failure raises a run-time error into the caller.
    void Log(int32_t level, const std::string& message);
    // A line holding a single blank, whatever the level.
    void BlankLine();
    // The system error (errno) of the last write that failed since StartLogger, so that the
    // caller whose trap caught the failure can name its cause; 0 when none failed.
    int LastWriteError() const { return m_writeError; }

private:
    void WriteLine(const std::string& line);

    CFile m_file;
    std::vector<CFile> m_earlierFiles; // a second StartLogger keeps the first file open
    std::string m_path;
    bool m_started = false;
    int32_t m_level = 1;
    int m_writeError = 0;
};
