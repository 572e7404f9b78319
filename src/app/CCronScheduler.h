#pragma once

// The daily run as one line of the user's crontab, for systems without a systemd user instance:
// "M H * * * '<program>' backup # stashwell-backup". The comment at its end marks it, so that it
// is found and replaced or removed; every other line of the crontab is kept byte for byte. The
// crontab is read with "crontab -l" and written whole with "crontab -". Cron does not make up a
// run missed while the computer was off. While a run is owed, a second marked line tries it
// every few minutes: "*/5 * * * * '<program>' backup # stashwell-backup-retry".

#include "app/IScheduler.h"

#include <string>

class CCronScheduler : public IScheduler {
public:
    explicit CCronScheduler(std::string program);

    std::string Name() const override;
    bool Available() override;
    std::string Install(int hour, int minute) override;
    std::string Remove() override;
    std::string NextRun() override;
    std::string StartRetry() override;
    std::string StopRetry() override;

    // The line for a daily run at hour:minute, and the line of the tries of an owed run.
    std::string Line(int hour, int minute) const;
    std::string RetryLine() const;
    // `crontab` without the lines that end with `mark`, then `line` when it is not empty.
    static std::string WithLine(const std::string& crontab, const std::string& line,
                                const std::string& mark = kMark);

    static constexpr const char* kMark = " # stashwell-backup";
    static constexpr const char* kRetryMark = " # stashwell-backup-retry";

private:
    // The user's crontab; false with `problem` set when it cannot be read. No crontab at all is
    // an empty one.
    bool Read(std::string& crontab, std::string& problem);
    std::string Write(const std::string& crontab);
    // Sets the line that ends with `mark` to `line` ("": none), writing only on a change.
    std::string SetLine(const std::string& line, const std::string& mark);

    std::string m_program;
};
