#pragma once

// The three maintenance buttons of the configuration tab without the window: Delete (the runs
// of sources no longer listed), Manual Purge (the backup limit applied to every source now) and
// Compact (rows and store files that nothing refers to, then the catalogue compacted). Each
// holds the backup folder, so no backup of it runs meanwhile. Every box is titled
// "QRV - Stashwell".

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

// cmdManage_Click: after the OK/Cancel question, deletes the Backups rows of every source
// that no row of `listed` (lstSources as shown) equals exactly, case included; `select(row)`
// selects each row of the list in turn while it is compared. False when the person declined.
bool DeleteRemovedSources(const std::vector<std::string>& listed,
                          const std::function<void(int32_t row)>& select);

// cmdPurge_Click: PruneAllSources, PurgeOldLogs, then "Purge Complete. You should run Compact".
void PurgeBackups();

// cmdCompact_Click: after the OK/Cancel question, `busy(true)`, the compact sequence,
// `busy(false)`, the maintenance bar at 100 and "Compact process complete". False when the
// person declined (then nothing at all happens).
bool CompactBackups(const std::function<void(bool busy)>& busy);
