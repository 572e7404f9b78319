#include "app/modRestore.h"

#include "app/modCatalogueQuery.h"
#include "app/modPaths.h"
#include "catalogue/ADOSQLite.h"
#include "catalogue/modSQLQuote.h"
#include "engine/CStore.h"
#include "engine/kvCryptDriver.h"
#include "support/CProcTrap.h"
#include "support/modFSCommon.h"
#include "support/modMsgBox.h"
#include "support/modServices.h"
#include "support/modYield.h"

#include <algorithm>

namespace {
std::string FirstRowField(ADOSQLite& db, const std::string& field) {
    return db.RecordCount() >= 1 ? db.Field(field) : std::string();
}
} // namespace

void RestoreFile(const std::string& bid, const std::string& key, const std::string& destination,
                 bool verify) {
    CProcTrap trap("RestoreFile");
    try {
        trap.Check();
        Operation("Calculate filename to restore");
        ADOSQLite files;
        QueryCatalogue(files, "Files", sqlaction::kSelect,
                       "bid = " + bid + " AND file = " + SQLLiteral(key));
        const std::string file = FirstRowField(files, "file");
        const std::string backup = FirstRowField(files, "backup");

        std::string target = file;
        if (!destination.empty()) {
            ADOSQLite backups;
            QueryCatalogue(backups, "Backups", sqlaction::kSelect, "bid = " + bid);
            const std::string source = FirstRowField(backups, "source");
            const size_t below = file.size() > source.size() ? file.size() - source.size() : 0;
            target = destination + file.substr(file.size() - below);
        }
        // Every stored "\" is an apostrophe of the real name.
        std::replace(target.begin(), target.end(), '\\', '\'');

        Operation("Restore file");
        FSCreatePath(target);
        const std::string storeFile = CStore::StorePath(GetFilesPath(), FSGetNamePart(backup));
        if (!FSCopyFile(storeFile, target)) {
            Operation("Failed to restore " + target);
            Log(1, "Failed to restore " + target);
            Raise(err::kNoDestination);
        }
        DoEvents();
        Operation("Restore verify");
        if (verify) {
            const std::string name = FSGetNamePart(backup);
            if (MD5File(target) != name.substr(0, name.size() >= 4 ? name.size() - 4 : 0))
                MsgBox("Restored file failed verification " + file, mb::kCritical | mb::kOKOnly,
                       "QRV - Stashwell");
        }
    } catch (...) {
        trap.Handle();
    }
}
