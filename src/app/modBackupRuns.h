#pragma once

// The runs a person can choose from to restore (frmSelBackup): every run of the catalogue,
// grouped by source (sources in the catalogue's order of their names), the newest run first
// under each. A run is known to the dialog by its key, "a" followed by its bid.

#include <string>
#include <vector>

struct BackupRunEntry {
    std::string bid;
    std::string datebk; // the run's date as stored, shown as it stands
};

struct SourceRuns {
    std::string source;
    std::vector<BackupRunEntry> runs;
};

// A database error shows "frmSelBackup Error: Form_Load," followed by the SQL layer's message
// (critical icon) and returns what was read before it.
std::vector<SourceRuns> ListBackupRuns();

// True when the catalogue still holds run `bid`.
bool RunExists(const std::string& bid);

// "a" + bid; the bid of a key that begins with "a", else "".
std::string RunKey(const std::string& bid);
std::string BidOfRunKey(const std::string& key);
