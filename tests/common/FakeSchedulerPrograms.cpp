#include "FakeSchedulerPrograms.h"

#ifndef _WIN32

#include <cstdlib>
#include <filesystem>

FakeSchedulerPrograms::FakeSchedulerPrograms(const ScopedTestEnv& env)
    : bin(env.Path("bin")), calls(env.Path("calls")), crontab(env.Path("crontab.txt")),
      m_oldPath(std::getenv("PATH") ? std::getenv("PATH") : "") {
    std::filesystem::create_directories(bin);
    SetEnv("PATH", bin);
}

FakeSchedulerPrograms::~FakeSchedulerPrograms() {
    SetEnv("PATH", m_oldPath);
}

void FakeSchedulerPrograms::Systemctl(bool answers, const std::string& failing) {
    Write("systemctl", "echo \"systemctl $*\" >> '" + calls + "'\n" +
                           (answers ? ""
                                    : "echo 'Failed to connect to bus: No medium found' >&2\n"
                                      "exit 1\n") +
                           (failing.empty() ? ""
                                            : "case \"$*\" in *" + failing +
                                                  "*) echo 'Access denied' >&2; exit 1 ;; esac\n") +
                           "[ \"$2\" = show ] && echo '@" + std::to_string(kNextElapse) +
                           "'\nexit 0\n");
}

void FakeSchedulerPrograms::Crontab() {
    Write("crontab", "echo \"crontab $*\" >> '" + calls +
                         "'\n"
                         "if [ \"$1\" = -l ]; then\n"
                         "  [ -e '" +
                         crontab +
                         "' ] || { echo 'no crontab for tester' >&2; exit 1; }\n"
                         "  cat '" +
                         crontab +
                         "'\n"
                         "else\n"
                         "  cat > '" +
                         crontab +
                         "'\n"
                         "fi\n");
}

void FakeSchedulerPrograms::Schtasks(const std::string& failure) {
    Write("schtasks",
          "echo \"schtasks $*\" >> '" + calls + "'\n" +
              (failure.empty() ? std::string("exit 0\n") : "echo '" + failure + "' >&2\nexit 1\n"));
}

std::vector<std::string> FakeSchedulerPrograms::Calls() const {
    std::vector<std::string> lines;
    const std::string text = std::filesystem::exists(calls) ? ReadFile(calls) : std::string();
    for (size_t start = 0, end; start < text.size(); start = end + 1) {
        end = text.find('\n', start);
        lines.push_back(text.substr(start, end - start));
    }
    return lines;
}

void FakeSchedulerPrograms::ForgetCalls() {
    std::filesystem::remove(calls);
}

void FakeSchedulerPrograms::Write(const std::string& name, const std::string& body) {
    const std::string path = bin + "/" + name;
    WriteFile(path, "#!/bin/sh\nPATH=/usr/bin:/bin\n" + body);
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
}

#endif
