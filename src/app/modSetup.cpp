#include "app/modSetup.h"

// Creation runs every statement of the catalogue's format in one transaction on its own
// connection and shows each failure in its own box without stopping; the settings store opens
// and closes a connection per call, so it can be used while a backup run holds another one.
//
// A new catalogue is built whole under a temporary name beside its place and renamed into
// place only when complete, so a start killed during creation leaves no half-made catalogue.
// An empty catalogue file, what such a start left before, holds nothing and is made anew.

#include "app/CBackupFolderLock.h"
#include "app/modCatalogueQuery.h"
#include "app/modMainWindow.h"
#include "app/modPaths.h"
#include "catalogue/ADOSQLite.h"
#include "catalogue/modSchema.h"
#include "platform/CFile.h"
#include "support/modFSCommon.h"
#include "support/modMsgBox.h"
#include "support/modNumText.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

std::string TrimBlanks(const std::string& text) {
    const size_t first = text.find_first_not_of(' ');
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

void EnsureFolder(const std::string& path) {
    if (!FSFolderExists(path)) FSCreateFolder(path);
}

// The two statements of SetSetupValue on a connected catalogue.
void StoreSetupValue(ADOSQLite& db, const std::string& key, const std::string& value) {
    db.Table("Setup");
    db.Action(sqlaction::kDelete);
    db.Where("key = '" + key + "'");
    db.Exec();

    db.Reset();
    db.Action(sqlaction::kInsert);
    db.Table("Setup");
    db.Field("key", "'" + TrimBlanks(key) + "'");
    db.Field("value", "'" + TrimBlanks(value) + "'");
    db.Exec();
}

void RemoveCatalogueFiles(const std::string& path) {
    FSDeleteFile(path);
    FSDeleteFile(path + "-journal");
}

// Runs one statement as it stands; a failure is shown and creation goes on.
void RunCreation(ADOSQLite& db, const char* statement, const std::string& failureText) {
    db.Reset();
    db.Action(sqlaction::kAsIs);
    std::string text = statement;
    db.Exec(text);
    if (db.Err()) MsgBox(failureText + db.ErrMsg(), mb::kCritical | mb::kOKOnly, kWindowTitle);
}

} // namespace

void CreateDB() {
    const std::string backupPath = GetBackupPath();
    EnsureFolder(backupPath);
    EnsureFolder(FSBuildPath(backupPath, "db"));
    EnsureFolder(FSBuildPath(backupPath, "Files"));
    EnsureFolder(GetLogsPath());
    // An existing catalogue is used as it is.
    const std::string dbPath = GetDBPath();
    if (FSFileExists(dbPath) && FSGetFileSize(dbPath) > 0) return;
    CBackupFolderLock lock; // one creator at a time
    if (!LockBackupFolder(lock)) return;

    const std::string building = dbPath + ".new";
    RemoveCatalogueFiles(building); // left by a start killed while it built one
    ADOSQLite db;
    db.Connect(building, true);
    if (db.Err()) {
        MsgBox("Database error: " + db.ErrMsg(), mb::kCritical | mb::kOKOnly, kWindowTitle);
        RemoveCatalogueFiles(building);
        return;
    }
    db.Begin();
    for (const char* statement : schema::kTables)
        RunCreation(db, statement, "Error creating tables: ");
    for (const char* statement : schema::kIndexes)
        RunCreation(db, statement, "Error creating index: ");
    RunCreation(db, schema::kPragma, "Error setting pragma: ");
    db.Commit();
    db.CloseConnection();
    db.Connect(building);
    db.Reset();
    StoreSetupValue(db, "DBVersion", schema::kDBVersion);
    db.CloseConnection();

    // The journal of an empty catalogue would be applied to the new one.
    FSDeleteFile(dbPath + "-journal");
    if (const int error = RenameReplacing(building, dbPath); error != 0) {
        MsgBox("Database error: cannot create " + dbPath + ": " + std::strerror(error),
               mb::kCritical | mb::kOKOnly, kWindowTitle);
        RemoveCatalogueFiles(building);
        return;
    }
    SyncFolder(FSGetPathPart(dbPath));
}

void SetSetupValue(const std::string& key, const std::string& value) {
    // Errors are not reported: a failed statement leaves the store as it was.
    ADOSQLite db;
    db.Connect(GetDBPath());
    StoreSetupValue(db, key, value);
}

std::string GetSetupValue(const std::string& key) {
    ADOSQLite db;
    QueryCatalogue(db, "Setup", sqlaction::kSelect, "key = '" + key + "'");
    return db.RecordCount() >= 1 ? db.Field("value") : std::string();
}

int16_t SetupToInt(const std::string& text) {
    return text.empty() ? 0 : TextToInt16(text);
}
