#pragma once

// Telling the user that an unattended run went wrong: at the end of every unattended run whose
// exit status is not 0, a desktop notification titled "Stashwell" with the outcome in words
// ("Backup drive /media/usb/Backup is not connected", "Backup completed with 3 problems", "A
// backup run was lost: ..."), the first problem line and the path of the day's log. With the
// option NotifySuccess ("1") a run that ended with 0 is told too. The notifier is a service: the
// program with its window installs one that speaks to the freedesktop notification service on
// the session bus; without one, or without a session bus, nothing is sent and a line at level 2
// says so. Sending never delays a run by more than a moment nor changes its outcome.

#include <string>
#include <vector>

class INotifier {
public:
    virtual ~INotifier() = default;
    // Shows the notification; "" when it was taken, else why not, in plain words.
    virtual std::string Send(const std::string& title, const std::string& body) = 0;
};

// The notifier of the current service context; none (nullptr) sends nothing.
void SetNotifierService(INotifier* notifier);

struct RunNotice {
    std::string title = "Stashwell";
    std::string body;
};

// The notice for an unattended run that ended with `status`: `words` says how it ended,
// `problems` are its problem lines (the first is shown), `logFile` the day's log.
RunNotice NoticeOfRunEnd(const std::string& words, const std::vector<std::string>& problems,
                         const std::string& logFile);

// Whether a run that ended with 0 is told too: the option NotifySuccess is "1". A catalogue that
// cannot be read now says no.
bool TellsSuccess();

// Sends the notice of an unattended run's end with `status`, unless the status is 0 and
// `toldOnSuccess` is false; never raises.
void TellRunEnd(int status, const std::string& words, const std::vector<std::string>& problems,
                bool toldOnSuccess = false);
