#include "app/modBackupRuns.h"

#include "app/modCatalogueQuery.h"
#include "support/modMsgBox.h"

#include <unordered_map>

namespace {

void ShowLoadError(const ADOSQLite& db) {
    MsgBox("frmSelBackup Error: Form_Load," + db.ErrMsg(), mb::kCritical, "");
}

} // namespace

std::vector<SourceRuns> ListBackupRuns() {
    std::vector<SourceRuns> sources;
    std::unordered_map<std::string, size_t> groupOf;
    ADOSQLite bySource;
    QueryCatalogue(bySource, "Backups", sqlaction::kSelect, "", "source");
    if (bySource.Err()) {
        ShowLoadError(bySource);
        return sources;
    }
    for (int32_t row = 1; row <= bySource.RecordCount(); ++row) {
        bySource.MoveAbs(row);
        const std::string source = bySource.Field("source");
        if (groupOf.emplace(source, sources.size()).second) sources.push_back({source, {}});
    }
    ADOSQLite newestFirst;
    QueryCatalogue(newestFirst, "Backups", sqlaction::kSelect, "", "bid DESC");
    if (newestFirst.Err()) {
        ShowLoadError(newestFirst);
        return sources;
    }
    for (int32_t row = 1; row <= newestFirst.RecordCount(); ++row) {
        newestFirst.MoveAbs(row);
        const auto group = groupOf.find(newestFirst.Field("source"));
        if (group != groupOf.end())
            sources[group->second].runs.push_back(
                {newestFirst.Field("bid"), newestFirst.Field("datebk")});
    }
    return sources;
}

bool RunExists(const std::string& bid) {
    if (bid.empty()) return false;
    ADOSQLite run;
    QueryCatalogue(run, "Backups", sqlaction::kSelect, "bid = " + bid);
    return !run.Err() && run.RecordCount() >= 1;
}

std::string RunKey(const std::string& bid) {
    return "a" + bid;
}

std::string BidOfRunKey(const std::string& key) {
    return !key.empty() && key[0] == 'a' ? key.substr(1) : std::string();
}
