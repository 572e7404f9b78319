#pragma once

// The companion's reading commands, on a read-only catalogue:
//   runs [SOURCE]      every run, grouped by source (sources in name order), the newest run
//                      first: bid, date, files, bytes, and the files and bytes it added (as
//                      its record's tally tells; for older runs, its files whose content no
//                      earlier run holds)
//   ls BID [FOLDER]    the folders, then the files, directly in one folder of a run, as the
//                      restore tree shows them, each in byte order of its name
//   find PATTERN       every file of every run whose name matches the glob PATTERN, newest run
//                      first
//   diff BID [BID]     the files added, changed and removed from the earlier run to the later
//                      (modRunDiff); one BID is compared with its source's run before it
// Each writes its listing to `out` (JSON with --json) and a one-line problem to `err`, and
// answers the exit status.

#include <iosfwd>

class CQrvArgs;

int QrvRuns(const CQrvArgs& args, std::ostream& out, std::ostream& err);
int QrvLs(const CQrvArgs& args, std::ostream& out, std::ostream& err);
int QrvFind(const CQrvArgs& args, std::ostream& out, std::ostream& err);
int QrvDiff(const CQrvArgs& args, std::ostream& out, std::ostream& err);
