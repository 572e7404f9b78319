#include "app/modSetup.h"

// Creation runs every statement of the catalogue's format in one transaction on its own
// connection and shows each failure in its own box without stopping; the settings store opens
// and closes a connection per call, so it can be used while a backup run holds another one.

#include "app/modCatalogueQuery.h"
#include "app/modPaths.h"
#include "catalogue/ADOSQLite.h"
#include "catalogue/modSchema.h"
#include "support/modFSCommon.h"
#include "support/modMsgBox.h"
#include "support/modNumText.h"

namespace {

constexpr const char* kTitle = "QRV - Stashwell";

std::string TrimBlanks(const std::string& text) {
    const size_t first = text.find_first_not_of(' ');
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

void EnsureFolder(const std::string& path) {
    if (!FSFolderExists(path)) FSCreateFolder(path);
}

// Runs one statement as it stands; a failure is shown and creation goes on.
void RunCreation(ADOSQLite& db, const char* statement, const std::string& failureText) {
    db.Reset();
    db.Action(sqlaction::kAsIs);
    std::string text = statement;
    db.Exec(text);
    if (db.Err()) MsgBox(failureText + db.ErrMsg(), mb::kCritical | mb::kOKOnly, kTitle);
}

} // namespace

void CreateDB() {
    const std::string backupPath = GetBackupPath();
    EnsureFolder(backupPath);
    EnsureFolder(FSBuildPath(backupPath, "db"));
    EnsureFolder(FSBuildPath(backupPath, "Files"));
    EnsureFolder(GetLogsPath());
    // An existing catalogue is used as it is.
    if (FSFileExists(GetDBPath())) return;

    ADOSQLite db;
    db.Connect(GetDBPath(), true);
    if (db.Err()) {
        MsgBox("Database error: " + db.ErrMsg(), mb::kCritical | mb::kOKOnly, kTitle);
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
    SetSetupValue("DBVersion", schema::kDBVersion);
}

void SetSetupValue(const std::string& key, const std::string& value) {
    // Errors are not reported: a failed statement leaves the store as it was.
    ADOSQLite db;
    QueryCatalogue(db, "Setup", sqlaction::kDelete, "key = '" + key + "'");

    db.Reset();
    db.Action(sqlaction::kInsert);
    db.Table("Setup");
    db.Field("key", "'" + TrimBlanks(key) + "'");
    db.Field("value", "'" + TrimBlanks(value) + "'");
    db.Exec();
}

std::string GetSetupValue(const std::string& key) {
    ADOSQLite db;
    QueryCatalogue(db, "Setup", sqlaction::kSelect, "key = '" + key + "'");
    return db.RecordCount() >= 1 ? db.Field("value") : std::string();
}

int16_t SetupToInt(const std::string& text) {
    return text.empty() ? 0 : TextToInt16(text);
}
