#include "app/CTaskScheduler.h"

#include "platform/modClock.h"
#include "platform/modPlatformPaths.h"
#include "platform/modProcess.h"
#include "support/modDateText.h"
#include "support/modFSCommon.h"

#include <cstdio>
#include <ctime>
#include <utility>

namespace {

// schtasks' switches.
constexpr const char* kCreateSwitch = "/Create"; // not a path separator
constexpr const char* kDeleteSwitch = "/Delete"; // not a path separator
constexpr const char* kForceSwitch = "/F";       // not a path separator
constexpr const char* kNameSwitch = "/TN";       // not a path separator
constexpr const char* kXmlSwitch = "/XML";       // not a path separator

// `text` as XML character data.
std::string Escaped(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        switch (c) {
        case '&':
            escaped += "&amp;";
            break;
        case '<':
            escaped += "&lt;";
            break;
        case '>':
            escaped += "&gt;";
            break;
        case '"':
            escaped += "&quot;";
            break;
        case '\'':
            escaped += "&apos;";
            break;
        default:
            escaped += c;
        }
    }
    return escaped;
}

// UTF-8 text as UTF-16 little-endian bytes with their byte order mark, as schtasks reads a
// definition; the text is the program's own and a path's, both valid UTF-8.
std::string Utf16(const std::string& text) {
    std::string bytes = "\xFF\xFE";
    const auto unit = [&bytes](unsigned value) {
        bytes += static_cast<char>(value & 0xFF);
        bytes += static_cast<char>(value >> 8);
    };
    for (size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        const int extra = lead < 0x80 ? 0 : lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : 3;
        unsigned point = extra == 0 ? lead : lead & (0x3F >> extra);
        for (int k = 1; k <= extra && i + static_cast<size_t>(k) < text.size(); ++k)
            point = (point << 6) |
                    (static_cast<unsigned char>(text[i + static_cast<size_t>(k)]) & 0x3F);
        i += static_cast<size_t>(extra) + 1;
        if (point >= 0x10000) {
            point -= 0x10000;
            unit(0xD800 + (point >> 10));
            unit(0xDC00 + (point & 0x3FF));
        } else {
            unit(point);
        }
    }
    return bytes;
}

// What both tasks hold besides their triggers: run as the user while logged on, one at a time,
// also on batteries, without a time limit, started as soon as it can after a time missed.
std::string Task(const std::string& description, const std::string& triggers,
                 const std::string& program) {
    return "<?xml version=\"1.0\" encoding=\"UTF-16\"?>\r\n"
           "<Task version=\"1.2\" "
           "xmlns=\"http://schemas.microsoft.com/windows/2004/02/mit/task\">\r\n"
           "  <RegistrationInfo>\r\n"
           "    <Description>" +
           Escaped(description) +
           "</Description>\r\n"
           "  </RegistrationInfo>\r\n"
           "  <Triggers>\r\n" +
           triggers +
           "  </Triggers>\r\n"
           "  <Principals>\r\n"
           "    <Principal id=\"Author\">\r\n"
           "      <LogonType>InteractiveToken</LogonType>\r\n"
           "      <RunLevel>LeastPrivilege</RunLevel>\r\n"
           "    </Principal>\r\n"
           "  </Principals>\r\n"
           "  <Settings>\r\n"
           "    <MultipleInstancesPolicy>IgnoreNew</MultipleInstancesPolicy>\r\n"
           "    <DisallowStartIfOnBatteries>false</DisallowStartIfOnBatteries>\r\n"
           "    <StopIfGoingOnBatteries>false</StopIfGoingOnBatteries>\r\n"
           "    <StartWhenAvailable>true</StartWhenAvailable>\r\n"
           "    <ExecutionTimeLimit>PT0S</ExecutionTimeLimit>\r\n"
           "    <Enabled>true</Enabled>\r\n"
           "  </Settings>\r\n"
           "  <Actions Context=\"Author\">\r\n"
           "    <Exec>\r\n"
           "      <Command>" +
           Escaped(program) +
           "</Command>\r\n"
           "      <Arguments>backup</Arguments>\r\n"
           "    </Exec>\r\n"
           "  </Actions>\r\n"
           "</Task>\r\n";
}

// hh:mm as two digits each.
std::string Clock(int hour, int minute) {
    char text[8];
    std::snprintf(text, sizeof text, "%02d:%02d", hour, minute);
    return text;
}

} // namespace

CTaskScheduler::CTaskScheduler(std::string program, std::string tool)
    : m_program(std::move(program)), m_tool(std::move(tool)) {}

std::string CTaskScheduler::Name() const {
    return std::string("the Task Scheduler task ") + kTaskName;
}

bool CTaskScheduler::Available() {
    return RunAndWait(m_tool, {"/?"}, {}, kProgramAnswerMs).started;
}

std::string CTaskScheduler::DailyTask(int hour, int minute) const {
    return Task("Stashwell backs up every source every day at " + Clock(hour, minute) + ".",
                "    <CalendarTrigger>\r\n"
                "      <StartBoundary>2000-01-01T" +
                    Clock(hour, minute) +
                    ":00</StartBoundary>\r\n"
                    "      <Enabled>true</Enabled>\r\n"
                    "      <ScheduleByDay>\r\n"
                    "        <DaysInterval>1</DaysInterval>\r\n"
                    "      </ScheduleByDay>\r\n"
                    "    </CalendarTrigger>\r\n",
                m_program);
}

std::string CTaskScheduler::RetryTask(const std::string& start) const {
    const std::string every = "PT" + std::to_string(kRetryMinutes) + "M";
    const std::string repetition = "      <Repetition>\r\n"
                                   "        <Interval>" +
                                   every +
                                   "</Interval>\r\n"
                                   "      </Repetition>\r\n";
    return Task("Stashwell tries the backup missed at its daily time again until it is made.",
                "    <TimeTrigger>\r\n" + repetition + "      <StartBoundary>" + start +
                    "</StartBoundary>\r\n"
                    "      <Enabled>true</Enabled>\r\n"
                    "    </TimeTrigger>\r\n"
                    "    <LogonTrigger>\r\n" +
                    repetition +
                    "      <Enabled>true</Enabled>\r\n"
                    "    </LogonTrigger>\r\n",
                m_program);
}

std::string CTaskScheduler::Create(const std::string& name, const std::string& file,
                                   const std::string& xml) {
    const std::string path = StateFile(file);
    if (const std::string problem = FSWriteWhole(path, Utf16(xml)); !problem.empty())
        return problem;
    return AnswerProblem(
        m_tool + " /Create",
        RunAndWait(m_tool, {kCreateSwitch, kForceSwitch, kNameSwitch, name, kXmlSwitch, path}, {},
                   kProgramAnswerMs),
        kProgramAnswerMs);
}

std::string CTaskScheduler::Delete(const std::string& name, const std::string& file) {
    const std::string path = StateFile(file);
    std::string kept;
    if (!FSReadWhole(path, kept)) return {}; // none was made
    const std::string problem = AnswerProblem(
        m_tool + " " + kDeleteSwitch,
        RunAndWait(m_tool, {kDeleteSwitch, kForceSwitch, kNameSwitch, name}, {}, kProgramAnswerMs),
        kProgramAnswerMs);
    if (problem.empty()) FSDeleteFile(path);
    return problem;
}

std::string CTaskScheduler::Install(int hour, int minute) {
    return Create(kTaskName, kTaskFile, DailyTask(hour, minute));
}

std::string CTaskScheduler::Remove() {
    const std::string retry = StopRetry();
    const std::string daily = Delete(kTaskName, kTaskFile);
    return daily.empty() ? retry : daily;
}

std::string CTaskScheduler::NextRun() {
    std::string kept;
    if (!FSReadWhole(StateFile(kTaskFile), kept)) return {};
    // The time set is in the definition kept: "...T21:30:00</StartBoundary>" in UTF-16.
    std::string text;
    for (size_t i = 2; i + 1 < kept.size(); i += 2)
        if (kept[i + 1] == 0) text += kept[i];
    const size_t end = text.find(":00</StartBoundary>");
    int hour = -1;
    int minute = -1;
    if (end == std::string::npos || end < 5 ||
        std::sscanf(text.c_str() + end - 5, "%2d:%2d", &hour, &minute) != 2 || hour < 0 ||
        hour > 23 || minute < 0 || minute > 59)
        return {};
    return DateTimeText(NextTimeOfDay(hour, minute));
}

std::string CTaskScheduler::StartRetry() {
    char start[32];
    const std::tm local = LocalTime(std::time(nullptr));
    std::strftime(start, sizeof start, "%Y-%m-%dT%H:%M:%S", &local);
    return Create(kRetryTaskName, kRetryTaskFile, RetryTask(start));
}

std::string CTaskScheduler::StopRetry() {
    return Delete(kRetryTaskName, kRetryTaskFile);
}
