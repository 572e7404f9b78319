#include "app/modMaintenance.h"

#include "app/CBackupFolderLock.h"
#include "app/modCatalogueQuery.h"
#include "app/modMainWindow.h"
#include "app/modRetention.h"
#include "catalogue/modSQLQuote.h"
#include "support/modMsgBox.h"
#include "support/modYield.h"

bool DeleteRemovedSources(const std::vector<std::string>& listed,
                          const std::function<void(int32_t row)>& select) {
    if (MsgBox("This will permanently delete the backups of removed Sources. Ok to proceed?",
               mb::kOKCancel | mb::kCritical, kWindowTitle) != mb::kOK)
        return false;
    CBackupFolderLock lock;
    if (!LockBackupFolder(lock)) return true;
    ADOSQLite runs;
    QueryCatalogue(runs, "Backups", sqlaction::kSelect);
    for (int32_t row = 1; row <= runs.RecordCount(); ++row) {
        runs.MoveAbs(row);
        const std::string source = runs.Field("source");
        bool shown = false;
        for (size_t item = 0; item < listed.size(); ++item) {
            if (select) select(static_cast<int32_t>(item));
            DoEvents();
            shown = shown || listed[item] == source;
        }
        if (!shown) {
            ADOSQLite drop;
            QueryCatalogue(drop, "Backups", sqlaction::kDelete, "source = " + SQLLiteral(source));
        }
    }
    PruneMetadata();
    MsgBox("Delete complete. You should now run Compact", mb::kInformation, kWindowTitle);
    return true;
}

void PurgeBackups() {
    CBackupFolderLock lock;
    if (!LockBackupFolder(lock)) return;
    PruneAllSources();
    PurgeOldLogs();
    MsgBox("Purge Complete. You should run Compact", mb::kInformation, kWindowTitle);
}

bool CompactBackups(const std::function<void(bool busy)>& busy) {
    if (MsgBox("This may take an extended amount of time. Ok to continue?",
               mb::kOKCancel | mb::kInformation, kWindowTitle) != mb::kOK)
        return false;
    CBackupFolderLock lock;
    if (!LockBackupFolder(lock)) return true;
    if (busy) busy(true);
    CompactCatalogue();
    if (busy) busy(false);
    ShowMaintenanceProgress(100);
    MsgBox("Compact process complete", mb::kInformation, kWindowTitle);
    return true;
}
