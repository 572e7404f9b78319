#pragma once

// A line of progress on stderr for long commands, redrawn in place at most ten times a second,
// and only when stderr is a terminal: a script or a journal sees no progress, only results.

#include <chrono>
#include <string>

class CProgressLine {
public:
    // Shown only when `shown` (normally: stderr is a terminal).
    explicit CProgressLine(bool shown);
    ~CProgressLine();
    CProgressLine(const CProgressLine&) = delete;
    CProgressLine& operator=(const CProgressLine&) = delete;

    // Redraws the line with `text` unless it was drawn less than a tenth of a second ago.
    void Show(const std::string& text);
    // Removes the line, so that what follows starts on a clean line.
    void Clear();

    // Whether stderr is a terminal.
    static bool StderrIsTerminal();

private:
    bool m_shown;
    bool m_drawn = false;
    std::chrono::steady_clock::time_point m_last{};
};
