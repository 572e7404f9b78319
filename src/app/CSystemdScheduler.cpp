#include "app/CSystemdScheduler.h"

#include "platform/CFile.h"
#include "platform/modFileStatus.h"
#include "platform/modPlatformPaths.h"
#include "platform/modProcess.h"
#include "support/modDateText.h"
#include "support/modFSCommon.h"

#include <cstdio>
#include <utility>

namespace {

// A word of ExecStart as systemd reads it back: in double quotes, with a backslash before a
// backslash or a quote, "%%" for a percent sign (specifiers) and "$$" for a dollar (variables).
std::string ExecWord(const std::string& word) {
    std::string quoted = "\"";
    for (const char c : word) {
        if (c == '\\' || c == '"') quoted += '\\';
        if (c == '%' || c == '$') quoted += c;
        quoted += c;
    }
    return quoted + "\"";
}

std::string TwoDigits(int value) {
    char text[8];
    std::snprintf(text, sizeof text, "%02d", value);
    return text;
}

} // namespace

CSystemdScheduler::CSystemdScheduler(std::string program) : m_program(std::move(program)) {}

std::string CSystemdScheduler::Name() const {
    return std::string("the systemd user timer ") + kTimer;
}

std::string CSystemdScheduler::UnitFolder() {
    return FSJoinPath(FSJoinPath(ConfigHome(), "systemd"), "user");
}

std::string CSystemdScheduler::ServiceText() const {
    return "# Stashwell's daily backup, written by its window when \"Back up every day at\" was\n"
           "# ticked; unticking it removes this file and stashwell-backup.timer again.\n"
           "\n"
           "[Unit]\n"
           "Description=Stashwell backup of every source\n"
           "Documentation=man:stashwell(1) man:qrv(1)\n"
           "\n"
           "[Service]\n"
           "Type=oneshot\n"
           "ExecStart=" +
           ExecWord(m_program) +
           " backup\n"
           "# No window: the run is headless and does not depend on the session staying open.\n"
           "UnsetEnvironment=DISPLAY WAYLAND_DISPLAY QT_QPA_PLATFORM\n"
           "# Leave the computer to whoever uses it meanwhile.\n"
           "Nice=19\n"
           "CPUSchedulingPolicy=idle\n"
           "IOSchedulingClass=idle\n";
}

std::string CSystemdScheduler::TimerText(int hour, int minute) {
    const std::string time = TwoDigits(hour) + ":" + TwoDigits(minute);
    return "# Starts stashwell-backup.service every day at " + time +
           ", written by Stashwell's window.\n"
           "# A day whose time passed while the computer was off is made up soon after the next\n"
           "# start (Persistent=true).\n"
           "\n"
           "[Unit]\n"
           "Description=Daily Stashwell backup at " +
           time +
           "\n"
           "Documentation=man:stashwell(1)\n"
           "\n"
           "[Timer]\n"
           "OnCalendar=*-*-* " +
           time +
           ":00\n"
           "Persistent=true\n"
           "\n"
           "[Install]\n"
           "WantedBy=timers.target\n";
}

std::string CSystemdScheduler::RetryTimerText() {
    const std::string every = std::to_string(kRetryMinutes) + "min";
    return "# Starts stashwell-backup.service every " + std::to_string(kRetryMinutes) +
           " minutes while a daily backup is owed\n"
           "# because the backup drive was away, written by Stashwell; it is removed again once\n"
           "# the backup was made.\n"
           "\n"
           "[Unit]\n"
           "Description=Stashwell backup owed, tried every " +
           std::to_string(kRetryMinutes) +
           " minutes\n"
           "Documentation=man:stashwell(1)\n"
           "\n"
           "[Timer]\n"
           "OnActiveSec=" +
           every +
           "\n"
           "OnUnitInactiveSec=" +
           every +
           "\n"
           "Unit=stashwell-backup.service\n"
           "\n"
           "[Install]\n"
           "WantedBy=timers.target\n";
}

std::string CSystemdScheduler::Systemctl(const std::vector<std::string>& arguments,
                                         std::string* output) {
    std::vector<std::string> all = {"--user"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    const ProgramAnswer answer = RunAndWait("systemctl", all, {}, kProgramAnswerMs);
    if (output) *output = answer.output;
    std::string command = "systemctl";
    for (const std::string& argument : all)
        command += " " + argument;
    return AnswerProblem(command, answer, kProgramAnswerMs);
}

bool CSystemdScheduler::Available() {
    return Systemctl({"show-environment"}).empty();
}

std::string CSystemdScheduler::Install(int hour, int minute) {
    const std::string folder = UnitFolder();
    if (!MakePrivateFolders(folder)) return "cannot make the folder " + folder;
    if (std::string problem = FSWriteWhole(FSJoinPath(folder, kService), ServiceText());
        !problem.empty())
        return problem;
    if (std::string problem = FSWriteWhole(FSJoinPath(folder, kTimer), TimerText(hour, minute));
        !problem.empty())
        return problem;
    for (const std::vector<std::string>& step :
         {std::vector<std::string>{"daemon-reload"}, {"enable", kTimer}, {"restart", kTimer}})
        if (std::string problem = Systemctl(step); !problem.empty()) return problem;
    return {};
}

std::string CSystemdScheduler::StartRetry() {
    const std::string folder = UnitFolder();
    if (!MakePrivateFolders(folder)) return "cannot make the folder " + folder;
    if (std::string problem = FSWriteWhole(FSJoinPath(folder, kRetryTimer), RetryTimerText());
        !problem.empty())
        return problem;
    for (const std::vector<std::string>& step :
         {std::vector<std::string>{"daemon-reload"}, {"enable", "--now", kRetryTimer}})
        if (std::string problem = Systemctl(step); !problem.empty()) return problem;
    return {};
}

std::string CSystemdScheduler::StopRetry() {
    const std::string retry = FSJoinPath(UnitFolder(), kRetryTimer);
    if (!StatusOf(retry).Exists()) return {};
    std::string problem = Systemctl({"disable", "--now", kRetryTimer});
    if (RemoveFile(retry) != 0 && StatusOf(retry).Exists() && problem.empty())
        problem = "cannot remove " + retry;
    if (std::string reload = Systemctl({"daemon-reload"}); problem.empty()) problem = reload;
    return problem;
}

std::string CSystemdScheduler::Remove() {
    std::string problem = StopRetry();
    const std::string folder = UnitFolder();
    const std::string timer = FSJoinPath(folder, kTimer);
    const std::string service = FSJoinPath(folder, kService);
    if (!StatusOf(timer).Exists() && !StatusOf(service).Exists()) return problem;
    if (std::string disable = Systemctl({"disable", "--now", kTimer}); problem.empty())
        problem = disable;
    for (const std::string& file : {timer, service})
        if (RemoveFile(file) != 0 && StatusOf(file).Exists() && problem.empty())
            problem = "cannot remove " + file;
    if (std::string reload = Systemctl({"daemon-reload"}); problem.empty()) problem = reload;
    return problem;
}

std::string CSystemdScheduler::NextRun() {
    std::string output;
    if (!Systemctl(
             {"show", kTimer, "--property=NextElapseUSecRealtime", "--value", "--timestamp=unix"},
             &output)
             .empty())
        return {};
    while (!output.empty() && (output.back() == '\n' || output.back() == ' '))
        output.pop_back();
    // "@1764192600": seconds since 1970, shown as the program shows times.
    if (output.size() > 1 && output[0] == '@' &&
        output.find_first_not_of("0123456789", 1) == std::string::npos)
        return DateTimeText(static_cast<std::time_t>(std::stoll(output.substr(1))));
    return output == "n/a" ? std::string() : output;
}
