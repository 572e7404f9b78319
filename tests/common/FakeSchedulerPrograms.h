#pragma once

// Stand-ins for systemctl, crontab and schtasks: a folder of small shell scripts that is the only
// folder on PATH while the object lives (for this process and the programs it starts), so that no
// test reaches the machine's own systemd or crontab. Each records its arguments as one line.

#ifndef _WIN32

#include "TestSupport.h"

#include <ctime>
#include <string>
#include <vector>

class FakeSchedulerPrograms {
public:
    explicit FakeSchedulerPrograms(const ScopedTestEnv& env);
    ~FakeSchedulerPrograms();
    FakeSchedulerPrograms(const FakeSchedulerPrograms&) = delete;
    FakeSchedulerPrograms& operator=(const FakeSchedulerPrograms&) = delete;

    // A systemctl whose user instance answers, or (`answers` false) does not; one that fails,
    // with "Access denied" on stderr, each call whose arguments hold `failing` ("enable", ...).
    // "show" answers kNextElapse.
    void Systemctl(bool answers = true, const std::string& failing = {});
    // A crontab keeping the user's table in `crontab` (none while the file is not there).
    void Crontab();
    // A schtasks that records its calls and answers 0, or with `failure` on stderr and status 1.
    void Schtasks(const std::string& failure = {});
    // The calls recorded, one a line: "systemctl --user ...", "crontab -l".
    std::vector<std::string> Calls() const;
    void ForgetCalls();

    // The time the fake systemctl gives as the timer's next run.
    static constexpr std::time_t kNextElapse = 1764192600;

    const std::string bin;
    const std::string calls;
    const std::string crontab;

private:
    void Write(const std::string& name, const std::string& body);
    std::string m_oldPath;
};

#endif
