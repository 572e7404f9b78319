#pragma once

// The report shown after a run: the current log file, line by line, each line followed by CR LF.
// The caller stops the logger first, so the file is complete and not held open.

#include <string>

// The text of `logFile`; error 53 when it cannot be read (reported by the caller's trap).
std::string ReportText(const std::string& logFile);
