#include "app/modUsage.h"

#include "app/modExitStatus.h"
#include "support/Version.h"

#include <ostream>

namespace {

const char* const kUsage =
    R"(Usage: stashwell              open the window
       stashwell WORD...      run the words unattended and end by itself
       stashwell --help       show this help
       stashwell --version    show the version

Words, compared in lower case and performed in the order given:
  backup    back up every source of the backup folder's catalogue
  compact   remove the rows of dropped runs and stored content no run needs,
            then compact the catalogue
Any other word is ignored; --help and --version count only as the one word.
With a display the window is loaded but not shown (shown, asking for a backup
path, when none is set); without one, no window.

Exit status of an unattended run:
  0  every source was backed up and committed
  1  could not start: no backup path or one that is not a full path, backup
     folder missing (an unplugged drive), catalogue unreadable, state folder
     not writable, settings file unreadable, the day's log not writable
  2  no display and no words
  3  could not start: another Stashwell works on the backup folder (after
     waiting up to 5 seconds) or already runs for this user
  4  completed with problems, one line each on stderr
  5  a run was lost: a source's rows could not be committed

Where things live:
  $XDG_CONFIG_HOME/Korvex/QRV.conf      the backup path (default ~/.config)
  <backup path>/Logs/QRV-yyyymmdd.LOG   the daily logs
  <backup path>/db/Backup.db            the catalogue
  $XDG_STATE_HOME/Korvex/QRV/           error report, trace, instance lock
                                        (default ~/.local/state)

See stashwell(1), qrv(1) and the manual (Help > Manual in the window).
)";

} // namespace

std::string StashwellUsage() {
    return kUsage;
}

std::string StashwellVersion() {
    return std::string(version::kProductName) + " " + std::to_string(version::kMajor) + "." +
           std::to_string(version::kMinor) + "." + std::to_string(version::kRevision);
}

std::optional<int> AnswerInfoRequest(int argc, char** argv, std::ostream& out) {
    if (argc != 2) return std::nullopt;
    const std::string word = argv[1];
    if (word == "--help")
        out << StashwellUsage();
    else if (word == "--version")
        out << StashwellVersion() << '\n';
    else
        return std::nullopt;
    out.flush();
    return out ? kExitDone : kExitCannotRun;
}
