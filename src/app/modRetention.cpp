#include "app/modRetention.h"

#include "app/modIntegrity.h"
#include "app/modPaths.h"
#include "app/modSetup.h"
#include "catalogue/CDatabase.h"
#include "catalogue/modBulkQuery.h"
#include "engine/CDriveMap.h"
#include "support/CProcTrap.h"
#include "support/modFSCommon.h"
#include "support/modMsgBox.h"
#include "support/modNumText.h"
#include "support/modServices.h"
#include "support/modYield.h"

#include <algorithm>
#include <unordered_set>
#include <vector>

namespace {

MaintenanceView g_view;

void Status(const std::string& text) {
    if (g_view.status) g_view.status(text);
}

void ExecAsIs(const std::string& text) {
    ADOSQLite db;
    db.Connect(GetDBPath());
    db.Action(sqlaction::kAsIs);
    std::string statement = text;
    db.Exec(statement);
}

std::string LowerAscii(std::string text) {
    for (char& c : text)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return text;
}

// VB's Mid(text, start, length) with a 1-based start.
std::string Mid(const std::string& text, size_t start, size_t length) {
    if (start < 1 || start > text.size()) return {};
    return text.substr(start - 1, length);
}

// What the store's rows refer to, read once: the signatures in use and, for the folder test,
// every backup location in lower case, sorted.
struct StoreReferences {
    std::unordered_set<std::string> signatures;
    std::vector<std::string> backupsLower;

    bool Load(const ADOSQLite& db, std::string& error) {
        const bool ok =
            ForEachRow(
                db, "SELECT DISTINCT md5 FROM Files",
                [&](const auto& row) { signatures.emplace(row[0]); }, error) &&
            ForEachRow(
                db, "SELECT DISTINCT backup FROM Files",
                [&](const auto& row) { backupsLower.push_back(LowerAscii(std::string(row[0]))); },
                error);
        std::sort(backupsLower.begin(), backupsLower.end());
        return ok;
    }

    // The same answer as IsBackupFolderUnused: no backup value is LIKE 'folder/%'.
    bool FolderUnused(const std::string& folder) const {
        if (folder.find_first_of("_%") != std::string::npos) return IsBackupFolderUnused(folder);
        const std::string prefix = LowerAscii(folder) + "/";
        auto it = std::lower_bound(backupsLower.begin(), backupsLower.end(), prefix);
        return it == backupsLower.end() || it->compare(0, prefix.size(), prefix) != 0;
    }
};

// The signature a store file is named after: its name less the extension and the dot.
std::string SignatureOfName(const std::string& name) {
    const size_t extension = FSGetExtension(name).size();
    return name.substr(0, name.size() >= extension + 1 ? name.size() - extension - 1 : 0);
}

void DeleteIfOrphan(const std::string& path, const StoreReferences& refs) {
    if (refs.signatures.count(SignatureOfName(FSGetNamePart(path)))) return;
    FSDeleteFile(path);
    std::string folder = FSGetPathPart(path);
    folder.pop_back();
    if (!refs.FolderUnused(folder)) return;
    FSDeleteFolder(folder);
    // One level up: less "/" and the two-character folder name.
    const std::string parent = folder.substr(0, folder.size() >= 3 ? folder.size() - 3 : 0);
    if (refs.FolderUnused(parent)) FSDeleteFolder(parent);
}

} // namespace

void SetMaintenanceView(MaintenanceView view) {
    g_view = std::move(view);
}

void PruneAllSources() {
    ADOSQLite db;
    db.Connect(GetDBPath());
    db.Table("Sources");
    db.Action(sqlaction::kSelect);
    db.Exec();
    for (db.MoveFirst(); !db.Eof(); db.MoveNext()) {
        int16_t limit = -1;
        PruneSource(db.Field("source"), limit);
    }
}

void PruneSource(const std::string& source, int16_t& limit) {
    if (limit == -1) {
        limit = SetupToInt(GetSetupValue("MaxBackups"));
        if (limit == 0) limit = 10;
    }
    ADOSQLite db;
    db.Connect(GetDBPath());
    db.Table("Backups");
    db.Action(sqlaction::kSelect);
    db.Where("source = '" + source + "'");
    db.Sort("bid");
    db.Exec();
    // Runs are dropped oldest first (ascending bid); the newest `limit` stay.
    if (limit >= db.RecordCount()) return;
    const int32_t drop = db.RecordCount() - limit;
    for (int32_t i = 0; i < drop; ++i) {
        DeleteBackupRun(ToInt32(TextToNumber(db.Field("bid"))));
        db.MoveNext();
    }
}

void DeleteBackupRun(int32_t bid) {
    ADOSQLite db;
    db.Connect(GetDBPath());
    db.Table("Backups");
    db.Action(sqlaction::kDelete);
    db.Where("bid = " + NumText(bid));
    db.Exec();
}

void PruneDBTree() {
    Log(2, "Pruning DB tree");
    Status("Pruning DB tree");
    DoEvents();
    PruneDBFiles();
    DoEvents();
    PruneDBPaths();
}

void PruneDBFiles() {
    Log(3, " Prune DB Files tree");
    ExecAsIs("DELETE FROM Files WHERE bid IN (SELECT Files.bid FROM Files LEFT JOIN Backups ON "
             "Files.bid=Backups.bid WHERE (((Backups.bid) Is Null)));");
}

void PruneDBPaths() {
    Log(3, " Prune DB Paths tree");
    ExecAsIs("DELETE FROM Paths WHERE bid IN (SELECT Paths.bid FROM Paths LEFT JOIN Backups ON "
             "Paths.bid=Backups.bid WHERE (((Backups.bid) Is Null)));");
}

bool KillOrphans() {
    CProcTrap trap("KillOrphans");
    try {
        trap.Check();
        // A damaged catalogue must never cause store files to be deleted.
        if (!IntegrityCheck()) return false;
        CDriveMap finder;
        CDatabase db;
        const std::string filesPath = FSBuildPath(GetBackupPath(), "Files");

        Log(3, "Kill orphans");
        Operation("Finding files");
        Status("Finding files");
        DoEvents();
        finder.Hidden(true);
        finder.System(true);
        finder.SourcePath(filesPath);
        finder.Exec();

        db.Connect(GetDBPath());
        Operation("KillOrphans main loop");
        Status("Del. unused files");
        DoEvents();
        StoreReferences refs;
        std::string error;
        if (!refs.Load(db.Connection(), error)) {
            // Without the full list of references nothing can be called an orphan.
            Log(1, "Kill orphans stopped: " + error);
            return false;
        }

        const int32_t count = finder.FileCount();
        finder.MoveFirst();
        while (!finder.Eof()) {
            DeleteIfOrphan(finder.FilePath(), refs);
            const int32_t percent = static_cast<int32_t>(int64_t{finder.Idx()} * 100 / count);
            if (percent < 100 && g_view.progress) g_view.progress(percent);
            DoEvents();
            finder.MoveNext();
        }
        return true;
    } catch (...) {
        trap.Handle();
        return false;
    }
}

bool IsBackupFolderUnused(const std::string& folder) {
    ADOSQLite db;
    db.Connect(GetDBPath());
    db.Action(sqlaction::kSelect);
    db.Table("Files");
    db.Where("backup LIKE '" + folder + "/%'");
    db.Exec();
    if (db.Err()) {
        MsgBox(db.ErrMsg(), mb::kCritical | mb::kOKOnly, "QRV - Stashwell");
        return false;
    }
    return db.RecordCount() == 0;
}

void PurgeOldLogs() {
    CDriveMap finder;
    finder.SourcePath(GetLogsPath());
    finder.Exec();
    ADOSQLite db;
    db.Connect(GetDBPath());
    db.Table("Backups");
    db.Action(sqlaction::kSelect);
    db.Exec();
    // Run dates are dd/MM/yyyy ...: a log QRV-yyyymmdd.LOG of a day with a run is kept.
    std::vector<std::string> runDates;
    for (int32_t row = 1; row <= db.RecordCount(); ++row) {
        db.MoveAbs(row);
        runDates.push_back(db.Field("datebk"));
    }
    std::unordered_set<std::string> runDays;
    for (const std::string& date : runDates)
        runDays.insert(date.substr(0, 10));

    finder.MoveFirst();
    while (!finder.Eof()) {
        const std::string& path = finder.FilePath();
        const size_t found = path.find("QRV-");
        const size_t p = found == std::string::npos ? 0 : found + 1;
        const std::string day =
            Mid(path, p + 10, 2) + "/" + Mid(path, p + 8, 2) + "/" + Mid(path, p + 4, 4);
        bool backupDay = day.size() == 10 && runDays.count(day);
        if (day.size() != 10)
            for (const std::string& date : runDates)
                backupDay = backupDay || date.compare(0, day.size(), day) == 0;
        if (!backupDay) FSDeleteFile(path);
        finder.MoveNext();
    }
}

void VacuumDB() {
    Log(3, "Vacuum DB");
    ADOSQLite db;
    db.Connect(GetDBPath());
    db.Compress();
}
