#include "app/modIntegrity.h"

#include "app/modPaths.h"
#include "catalogue/ADOSQLite.h"
#include "support/modServices.h"

bool IntegrityCheck() {
    try {
        ADOSQLite db;
        Log(1, "Running Integrity Check");
        db.Connect(GetDBPath());
        db.Action(sqlaction::kAsIs);
        std::string statement = "PRAGMA INTEGRITY_CHECK";
        db.Exec(statement);
        return !db.Err();
    } catch (...) {
        return false; // errors count as a failed check and go no further
    }
}
