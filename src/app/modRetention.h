#pragma once

// Keeps the catalogue and the store bounded. Dropping runs (PruneSource, DeleteBackupRun) only
// deletes Backups rows; the Files and Paths rows and the store files of dropped runs go only at
// Compact (PruneDBTree, KillOrphans, VacuumDB). A store file is an orphan when no Files row
// holds the signature in its name; a store folder goes when no row lies under it and it is
// empty. KillOrphans and PurgeOldLogs find their victims in one pass over the folder and one
// read of the columns they need, whatever the size of the store. Compact never runs beside a
// backup of the same backup folder (CBackupFolderLock), whose rows are not committed yet.

#include <cstdint>
#include <functional>
#include <string>

// Where the window shows maintenance progress: its status line and its progress bar.
struct MaintenanceView {
    std::function<void(const std::string&)> status;
    std::function<void(int32_t percent)> progress;
};
void SetMaintenanceView(MaintenanceView view);
// Sets the maintenance progress bar, when a view is set.
void ShowMaintenanceProgress(int32_t percent);

void PruneAllSources();
// A limit of -1 reads MaxBackups; any limit below 1 (also 0, absent or empty) keeps ten runs.
// The limit applied is written back into `limit`.
void PruneSource(const std::string& source, int16_t& limit);
void DeleteBackupRun(int32_t bid);
// Drops the metadata records (CMetadataDB) of runs the catalogue no longer holds: after the
// limit dropped runs, after Delete, and in Compact.
void PruneMetadata();
// At the start of the program: a kill between a commit of the catalogue and the record's own
// may have left the record naming runs the catalogue has dropped, or holding a journal that
// only a writer rolls back; PruneMetadata puts both right, once the catalogue's own journal was
// seen to (CheckInterruptedRun). Nothing happens without a catalogue and a record.
void TidyMetadata();
void PruneDBTree();
void PruneDBFiles();
void PruneDBPaths();
bool KillOrphans();
// True when no Files row has a backup value under `folder` (LIKE 'folder/%').
bool IsBackupFolderUnused(const std::string& folder);
// Deletes the daily logs of days without a committed run; a log that holds a problem line
// (kProblemMark) is kept as evidence, and nothing is deleted when the runs cannot be read.
void PurgeOldLogs();
// What begins the log line of each problem of a run.
inline constexpr const char* kProblemMark = "Problem: ";
void VacuumDB();
// The compact sequence: PruneDBTree, KillOrphans, VacuumDB.
void CompactCatalogue();
