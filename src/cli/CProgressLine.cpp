#include "cli/CProgressLine.h"

#include "platform/modTerminal.h"

#include <cstdio>

CProgressLine::CProgressLine(bool shown) : m_shown(shown) {}

CProgressLine::~CProgressLine() {
    Clear();
}

bool CProgressLine::StderrIsTerminal() {
    return ::StderrIsTerminal();
}

void CProgressLine::Show(const std::string& text) {
    if (!m_shown) return;
    const auto now = std::chrono::steady_clock::now();
    if (m_drawn && now - m_last < std::chrono::milliseconds(100)) return;
    m_last = now;
    m_drawn = true;
    std::fprintf(stderr, "\r\033[K%s", text.c_str());
    std::fflush(stderr);
}

void CProgressLine::Clear() {
    if (!m_drawn) return;
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
    m_drawn = false;
}
