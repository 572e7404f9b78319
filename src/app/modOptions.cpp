#include "app/modOptions.h"

#include "app/modCatalogueQuery.h"
#include "app/modPaths.h"
#include "app/modRetention.h"
#include "app/modSetup.h"
#include "catalogue/ADOSQLite.h"
#include "support/CRuntimeError.h"
#include "support/modMsgBox.h"
#include "support/modNumText.h"
#include "support/modServices.h"

namespace {

// A check box's value; a stored text that is not a number counts as empty (unticked), with a
// problem line, so that a damaged row never keeps the window from opening.
int32_t CheckValue(const std::string& key) {
    const std::string stored = GetSetupValue(key);
    if (stored.empty()) return 0;
    try {
        return ToInt32(TextToNumber(stored));
    } catch (const CRuntimeError&) {
        Log(1, std::string(kProblemMark) + "The option " + key + " holds \"" + stored +
                   "\", which is not a number; its box is shown unticked");
        return 0;
    }
}

void KeepUnlessEmpty(std::string& option, const std::string& key) {
    const std::string stored = GetSetupValue(key);
    if (!stored.empty()) option = stored;
}
} // namespace

int32_t LogLevelOf(const std::string& word) {
    if (word == "Advanced") return 2;
    if (word == "Trace") return 3;
    return 1;
}

std::string FoldersToExclude(const BackupOptions& options) {
    return options.exclRecycler == 1 ? options.exDirs + " recycler" : options.exDirs;
}

BackupOptions LoadOptions() {
    BackupOptions options;
    const std::string log = GetSetupValue("Log");
    options.log = log == "Advanced" || log == "Trace" ? log : "Basic";
    if (LogLevelOf(options.log) != Logger().LogLevel()) Logger().LogLevel(LogLevelOf(options.log));
    options.hidden = CheckValue("Hidden");
    options.system = CheckValue("System");
    options.backup = CheckValue("Backup");
    options.restore = CheckValue("Restore");
    options.exclRecycler = CheckValue("ExclRecycler");
    options.quickCheck = GetSetupValue("QuickCheck") == "1" ? 1 : 0;
    KeepUnlessEmpty(options.exclude, "Exclude");
    KeepUnlessEmpty(options.maxBackups, "MaxBackups");
    KeepUnlessEmpty(options.exDirs, "ExDirs");
    return options;
}

std::vector<std::string> FillSources() {
    std::vector<std::string> sources;
    ADOSQLite db;
    QueryCatalogue(db, "Sources", sqlaction::kSelect);
    if (db.Err()) {
        MsgBox("Error: Repaint," + db.ErrMsg(), mb::kCritical | mb::kOKOnly, "QRV - Stashwell");
        return sources;
    }
    for (db.MoveFirst(); !db.Eof(); db.MoveNext())
        sources.push_back(db.Field("source"));
    return sources;
}
