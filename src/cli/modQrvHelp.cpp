#include "cli/modQrvHelp.h"

#include "support/Version.h"

#include <map>

namespace {

const char* const kProgram =
    R"(Usage: qrv [--backup-path DIR] COMMAND [ARGUMENTS] [OPTIONS]

Lists, finds, restores and checks the backups that Stashwell made, without its window.
It works on the backup path that Stashwell keeps in its settings, or on DIR.

Commands:
  runs [SOURCE]                       every run, grouped by source, newest first
  ls BID [FOLDER]                     the folders and files of a folder of a run
  find PATTERN                        the runs and paths of files whose name matches
  diff BID [BID]                      what changed between two runs, or since the one before
  restore BID [PATH...] [--to DIR]    restore a run, or files and folders of it
  check [--read-data [--repair]]      check the catalogue and the store
  help [COMMAND]                      this help, or a command's

Options:
  --backup-path DIR   work on the backup folder DIR
  --json              runs, ls, find, diff and check write JSON for scripts
  --help, -h          show the help of the program or of a command
  --version           show the version

Exit status: 0 done; 1 problems found (check), files not restored (restore), nothing
matched (find); 2 a command line that cannot be understood; 3 no backup path, folder,
catalogue, run or path; a catalogue that cannot be read; 4 the catalogue or the backup
folder is busy. See qrv(1).
)";

const std::map<std::string, std::string>& Commands() {
    static const std::map<std::string, std::string> help = {
        {"runs", R"(Usage: qrv runs [SOURCE] [--json]

Lists every run of the catalogue, grouped by source (sources in name order), the newest
run first: its bid, its date, its files and their bytes, and the files and bytes it added
(whose content the store did not hold yet). With SOURCE, only the runs of that source
folder.
)"},
        {"ls", R"(Usage: qrv ls BID [FOLDER] [--json]

Lists the folders (ending in "/"), then the files with their sizes, directly in FOLDER of
run BID, as the restore tree shows them. FOLDER is a full path or a path below the run's
source; without it, the source itself. Names holding a new line, a backslash, a control
character or bytes that are not UTF-8 are escaped ("\n", "\\", "\xff"); --json keeps
every byte (a byte that is not UTF-8 as \udcXX).
)"},
        {"find", R"(Usage: qrv find PATTERN [--json]

Lists the run, its date and the path of every file whose name matches PATTERN, a glob
("*.txt", "report-202?.*", "[Bb]udget*"), newest run first. Quote the pattern so that
the shell does not expand it. Exits 1 when nothing matches.
)"},
        {"diff", R"(Usage: qrv diff BID [BID] [--json]

Lists what changed from the earlier run to the later: the files added, the files whose
content changed (with the size they had before) and the files removed, with their sizes,
in path order, then how many of each. With one BID, the run is compared with the run of
the same source made before it; with two, the first is the earlier.
)"},
        {"restore", R"(Usage: qrv restore BID [PATH...] [--to DIR] [--verify] [--no-metadata]

Restores every file of run BID, or the files and folders PATH names (full paths, or
paths below the run's source), as the window's Restore does. Without --to each file goes
back to its own place, over any file of the same name; with --to the files go below DIR
as they were below the source. Nothing is written outside the folder restored into, and
no symbolic link is followed. A store file that is missing, has another size than the
catalogue records or, with --verify, other content than its name signs, is not copied and
what stands in its place is left alone. With --verify each restored file is checked too.
Each file that could not be restored is named on stderr and the others go on; exits 0
only when every file was restored (and verified when asked).

Files get back the modification time and permission bits they had, and the empty files,
symbolic links and folders of what is restored come back too, folders with their own times
and permission bits (from runs made since Stashwell keeps these). Owners, and the setuid,
setgid and sticky bits into the original place, come back only for root. With --no-metadata
only the files' bytes are restored.
)"},
        {"check", R"(Usage: qrv check [--read-data [--repair]] [--json]

Checks that the catalogue passes SQLite's integrity check and that every file of every
run has its store file, of the size the catalogue records. With --read-data every store
file is read, and its content must have the signature of its name. Each store file found
wanting is named with the runs' files that hold it. Exits 1 when anything is wrong.

--repair (with --read-data) moves each store file whose content does not match its name
out of the store into <backup path>/Quarantine/, so that the next backup stores that
content afresh. The runs that held it are named; until then they cannot restore it.
)"},
        {"help", R"(Usage: qrv help [COMMAND]

Shows the help of the program, or of COMMAND.
)"},
    };
    return help;
}

} // namespace

std::string QrvHelp(const std::string& command) {
    const auto found = Commands().find(command);
    return found == Commands().end() ? kProgram : found->second;
}

std::string QrvVersion() {
    return "qrv (Stashwell) " + std::to_string(version::kMajor) + "." +
           std::to_string(version::kMinor) + "." + std::to_string(version::kRevision);
}
