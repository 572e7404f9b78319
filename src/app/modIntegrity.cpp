#include "app/modIntegrity.h"

#include "app/modCatalogueQuery.h"
#include "app/modPaths.h"
#include "catalogue/ADOSQLite.h"
#include "support/modServices.h"

bool IntegrityCheck() {
    try {
        ADOSQLite db;
        Log(1, "Running Integrity Check");
        ExecOnCatalogue(db, "PRAGMA INTEGRITY_CHECK");
        return !db.Err();
    } catch (...) {
        return false; // errors count as a failed check and go no further
    }
}
