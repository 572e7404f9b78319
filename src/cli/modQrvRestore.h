#pragma once

// qrv restore BID [PATH...] [--to DIR] [--verify]: the window's restore without the window.
// Every file of run BID, or those of the named files and folders (full paths, or paths below
// the run's source), goes back to its own place, or with --to below DIR as the window's
// "Restore to" puts it, through the same RestoreFile: the same target rules (nothing written
// outside the folder restored into, no symbolic link followed), the same folder creation and
// the same check of each copy's signature with --verify. Files go in the order the run met
// them. The restore holds the backup folder's lock, so no compact takes store files away
// meanwhile.
//
// No two files of the run are written to one place: of the files that aim at one place (a
// catalogue written before names kept their backslashes holds "q'r.txt" and "q\r.txt" of one
// folder under one stored path) the first in the run's order is restored and every later one
// is not, decided before any is restored.
//
// Several processes restore side by side (CRestoreWorkers). Each file that could not be
// restored (its place taken by an earlier file, its store file missing, not a file, of another size
// than the catalogue records, with --verify of other content than its name signs, or its copy not
// whole), or came back with the wrong content (with --verify, a copy of another signature), gets
// one line on stderr, in the run's order, once every file has been tried; the end is one summary
// line on stdout. The exit status is 0 only when every file chosen was restored, and verified when
// asked.

#include <iosfwd>

class CQrvArgs;

int QrvRestore(const CQrvArgs& args, std::ostream& out, std::ostream& err);
