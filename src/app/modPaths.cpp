#include "app/modPaths.h"

#include "app/CProgramSettings.h"
#include "support/CServiceContext.h"
#include "support/modFSCommon.h"
#include "support/modServices.h"

namespace {
struct ChosenBackup {
    std::string path;
};

std::string& ChosenBackupPath() {
    return ServicePart<ChosenBackup>().path;
}

CProgramSettings ProgramSettings() {
    CProgramSettings settings;
    settings.RootKey(CProgramSettings::kLocalMachine);
    settings.MainBranch("SOFTWARE");
    settings.RegBase("Korvex");
    settings.Program("QRV");
    settings.Section("Settings");
    return settings;
}
} // namespace

std::string ReadRegSetting(const std::string& name) {
    return ProgramSettings().ReadEntry(name, "");
}

void WriteRegSetting(const std::string& name, const std::string& value) {
    ProgramSettings().WriteEntry(name, value);
}

std::string GetBackupPath() {
    return ChosenBackupPath().empty() ? ReadRegSetting("BackupPath") : ChosenBackupPath();
}

void UseBackupPath(const std::string& path) {
    ChosenBackupPath() = path;
}

bool IsBackupPathSet() {
    return !GetBackupPath().empty();
}

std::string GetDBPath() {
    const std::string backupPath = GetBackupPath();
    return backupPath.empty() ? std::string()
                              : FSJoinPath(FSBuildPath(backupPath, "db"), "Backup.db");
}

std::string GetFilesPath() {
    return FSBuildPath(GetBackupPath(), "Files");
}

std::string GetLogsPath() {
    return FSBuildPath(GetBackupPath(), "Logs");
}

FolderPlace PlaceInBackupFolder(const std::string& folder) {
    return IsBackupPathSet() ? PlaceOf(folder, GetBackupPath()) : FolderPlace::kOutside;
}

bool IsBackupDriveReady() {
    return FSDriveExists(GetBackupPath());
}

bool DBJournalExists() {
    return FSFileExists(GetDBPath() + "-journal");
}

bool KillDBJournal() {
    if (!DBJournalExists()) return false;
    FSDeleteFile(GetDBPath() + "-journal");
    Log(1, "Killed DB Journal. Possible previous crash");
    return true;
}
