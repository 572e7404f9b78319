#pragma once

// The daily run as a systemd user timer: two unit files in the user's systemd folder
// ($XDG_CONFIG_HOME/systemd/user), stashwell-backup.service running "<program> backup" headless
// and stashwell-backup.timer starting it at the chosen time every day (Persistent=true, so a day
// whose time passed while the computer was off is made up soon after the next start). The
// package installs examples of the same names: these take their place. `systemctl --user`
// reloads, enables and restarts the timer, and tells the next run. While a run is owed, a third
// file, stashwell-backup-retry.timer, starts the same service every few minutes; it is enabled,
// so it outlives a restart, and goes when the run was made.

#include "app/IScheduler.h"

#include <string>
#include <vector>

class CSystemdScheduler : public IScheduler {
public:
    // `program`: the full path of the program the service runs.
    explicit CSystemdScheduler(std::string program);

    std::string Name() const override;
    bool Available() override;
    std::string Install(int hour, int minute) override;
    std::string Remove() override;
    std::string NextRun() override;
    std::string StartRetry() override;
    std::string StopRetry() override;

    // The folder of the user's own units, and the two unit files' texts.
    static std::string UnitFolder();
    std::string ServiceText() const;
    static std::string TimerText(int hour, int minute);
    static std::string RetryTimerText();

    static constexpr const char* kService = "stashwell-backup.service";
    static constexpr const char* kTimer = "stashwell-backup.timer";
    static constexpr const char* kRetryTimer = "stashwell-backup-retry.timer";

private:
    // Runs systemctl --user with `arguments`; "" when it answered 0, else what went wrong.
    std::string Systemctl(const std::vector<std::string>& arguments, std::string* output = nullptr);

    std::string m_program;
};
