#pragma once

// Keeps the catalogue and the store bounded. Dropping runs (PruneSource, DeleteBackupRun) only
// deletes Backups rows; the Files and Paths rows and the store files of dropped runs go only at
// Compact (PruneDBTree, KillOrphans, VacuumDB). A store file is an orphan when no Files row
// holds the signature in its name. KillOrphans and PurgeOldLogs find their victims in one pass
// over the folder and one read of the columns they need, whatever the size of the store, and
// KillOrphans deletes exactly what one lookup per file and one LIKE query per orphan folder
// would (names and folders that SQL text cannot hold as written are asked that way).

#include <cstdint>
#include <functional>
#include <string>

// Where the window shows maintenance progress: its status line and its progress bar.
struct MaintenanceView {
    std::function<void(const std::string&)> status;
    std::function<void(int32_t percent)> progress;
};
void SetMaintenanceView(MaintenanceView view);

void PruneAllSources();
// A limit of -1 reads MaxBackups (0, absent or empty = 10) and writes it back into `limit`.
void PruneSource(const std::string& source, int16_t& limit);
void DeleteBackupRun(int32_t bid);
void PruneDBTree();
void PruneDBFiles();
void PruneDBPaths();
bool KillOrphans();
// True when no Files row has a backup value under `folder` (LIKE 'folder/%').
bool IsBackupFolderUnused(const std::string& folder);
void PurgeOldLogs();
void VacuumDB();
