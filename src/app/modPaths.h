#pragma once

// The backup path (the one program setting) and the folders beneath it:
//   <backup path>/db/Backup.db   the catalogue (its journal <catalogue>-journal is the crash sign)
//   <backup path>/Files          the store
//   <backup path>/Logs           daily logs QRV-yyyymmdd.LOG

#include "engine/modFolderIdentity.h"

#include <string>

std::string ReadRegSetting(const std::string& name);
void WriteRegSetting(const std::string& name, const std::string& value);

std::string GetBackupPath();
// Makes GetBackupPath answer `path` for the rest of the process, whatever the settings file
// says (the companion's --backup-path); "" goes back to the setting.
void UseBackupPath(const std::string& path);
bool IsBackupPathSet();
// "" when no backup path is set.
std::string GetDBPath();
std::string GetFilesPath();
std::string GetLogsPath();
// Where `folder` lies against the backup folder, by identity (links and spellings seen
// through): outside it, the backup folder itself, or inside it.
FolderPlace PlaceInBackupFolder(const std::string& folder);
// The backup path exists as a folder (an unplugged drive's folder is gone).
bool IsBackupDriveReady();
bool DBJournalExists();
// Deletes the journal and logs "Killed DB Journal. Possible previous crash"; false when none.
bool KillDBJournal();
