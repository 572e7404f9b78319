#pragma once

// qrv check [--read-data [--repair]]: whether a backup folder can give back what its runs
// hold. The catalogue must pass "PRAGMA integrity_check"; every file of every run must have
// its store file, of the size the catalogue records. With --read-data every store file there
// is gets read, and its content must have the signature of its name. Each store file found
// wanting is named, with the files of the runs that hold it; the end is one summary line.
//
// --repair moves each store file whose content does not have the signature of its name out of
// the store into <backup path>/Quarantine/, so that the next backup, finding that content
// missing, stores it afresh. The catalogue is opened read-only and no run is changed; a
// repair holds the backup folder's lock while it moves files.
//
// The exit status is 0 when nothing is wrong, 1 when something is (also after a repair).

#include <iosfwd>

class CQrvArgs;

int QrvCheck(const CQrvArgs& args, std::ostream& out, std::ostream& err);
