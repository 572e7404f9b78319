#include "app/CCronScheduler.h"

#include "platform/modProcess.h"
#include "support/modDateText.h"

#include <cstdio>
#include <ctime>
#include <utility>

namespace {

// `word` as one word of the shell that cron runs the line with: in single quotes, a quote
// written '\'' and a percent sign as \% (cron turns a bare one into a new line, and takes the
// backslash away).
std::string ShellWord(const std::string& word) {
    std::string quoted = "'";
    for (const char c : word) {
        if (c == '\'')
            quoted += "'\\''";
        else if (c == '%')
            quoted += "\\%";
        else
            quoted += c;
    }
    return quoted + "'";
}

bool EndsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

} // namespace

CCronScheduler::CCronScheduler(std::string program) : m_program(std::move(program)) {}

std::string CCronScheduler::Name() const {
    return "the user's crontab";
}

std::string CCronScheduler::Line(int hour, int minute) const {
    return std::to_string(minute) + " " + std::to_string(hour) + " * * * " + ShellWord(m_program) +
           " backup" + kMark;
}

std::string CCronScheduler::RetryLine() const {
    return "*/" + std::to_string(kRetryMinutes) + " * * * * " + ShellWord(m_program) + " backup" +
           kRetryMark;
}

std::string CCronScheduler::WithLine(const std::string& crontab, const std::string& line,
                                     const std::string& mark) {
    std::string kept;
    size_t start = 0;
    while (start < crontab.size()) {
        size_t end = crontab.find('\n', start);
        const bool lastWithoutEnd = end == std::string::npos;
        if (lastWithoutEnd) end = crontab.size();
        const std::string one = crontab.substr(start, end - start);
        if (!EndsWith(one, mark)) kept += one + (lastWithoutEnd ? "" : "\n");
        start = end + 1;
    }
    if (line.empty()) return kept;
    if (!kept.empty() && kept.back() != '\n') kept += '\n';
    return kept + line + "\n";
}

bool CCronScheduler::Read(std::string& crontab, std::string& problem) {
    const ProgramAnswer answer = RunAndWait("crontab", {"-l"}, {}, kProgramAnswerMs);
    if (answer.started && answer.exitCode == 0) {
        crontab = answer.output;
        return true;
    }
    // "no crontab for <user>": none yet, which is an empty one.
    if (answer.started && !answer.timedOut &&
        answer.errors.find("no crontab") != std::string::npos) {
        crontab.clear();
        return true;
    }
    problem = AnswerProblem("crontab -l", answer, kProgramAnswerMs);
    return false;
}

std::string CCronScheduler::Write(const std::string& crontab) {
    return AnswerProblem("crontab -", RunAndWait("crontab", {"-"}, crontab, kProgramAnswerMs),
                         kProgramAnswerMs);
}

bool CCronScheduler::Available() {
    std::string crontab;
    std::string problem;
    return Read(crontab, problem);
}

std::string CCronScheduler::SetLine(const std::string& line, const std::string& mark) {
    std::string crontab;
    std::string problem;
    if (!Read(crontab, problem)) return problem;
    const std::string changed = WithLine(crontab, line, mark);
    return changed == crontab ? std::string() : Write(changed);
}

std::string CCronScheduler::Install(int hour, int minute) {
    return SetLine(Line(hour, minute), kMark);
}

std::string CCronScheduler::Remove() {
    std::string crontab;
    std::string problem;
    if (!Read(crontab, problem)) return problem;
    const std::string without = WithLine(WithLine(crontab, {}, kRetryMark), {}, kMark);
    return without == crontab ? std::string() : Write(without);
}

std::string CCronScheduler::StartRetry() {
    return SetLine(RetryLine(), kRetryMark);
}

std::string CCronScheduler::StopRetry() {
    return SetLine({}, kRetryMark);
}

std::string CCronScheduler::NextRun() {
    std::string crontab;
    std::string problem;
    if (!Read(crontab, problem)) return {};
    size_t start = 0;
    while (start < crontab.size()) {
        size_t end = crontab.find('\n', start);
        if (end == std::string::npos) end = crontab.size();
        const std::string line = crontab.substr(start, end - start);
        start = end + 1;
        if (!EndsWith(line, kMark)) continue;
        int minute = -1;
        int hour = -1;
        if (std::sscanf(line.c_str(), "%d %d", &minute, &hour) == 2 && minute >= 0 &&
            minute <= 59 && hour >= 0 && hour <= 23)
            return DateTimeText(NextTimeOfDay(hour, minute));
    }
    return {};
}
