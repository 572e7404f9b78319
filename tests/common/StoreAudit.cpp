#include "StoreAudit.h"

#include "BackupFixture.h"
#include "TestSupport.h"

#include <set>
#include <stdexcept>

namespace {

bool IsTemporary(const std::string& name) {
    return name.size() > 4 && name[0] == '.' && name.ends_with(".tmp");
}

void AuditStoreFiles(const std::string& backup, AuditMoment moment, AuditCache* cache,
                     std::vector<std::string>& problems) {
    const std::string store = backup + Native("/Files");
    for (const std::string& entry : ListTree(store)) {
        if (entry.back() == '/') continue;
        const std::string path = store + Native("/" + entry);
        const std::string name = entry.substr(entry.rfind('/') + 1);
        if (IsTemporary(name) || name == ".unfinished") {
            if (moment == AuditMoment::kAfterCleanRun) problems.push_back("left behind: " + entry);
            continue;
        }
        if (!name.ends_with(".QRV")) {
            problems.push_back("stray file: " + entry);
            continue;
        }
        const PathStatus status = StatusOf(path, true);
        if (status.kind != PathKind::kFile || !IsPrivate(path))
            problems.push_back("not private: " + entry);
        const auto identity = std::make_pair(status.identity, status.size);
        if (cache && cache->sound.count(entry) && cache->sound[entry] == identity) continue;
        if (TestSignature(ReadFile(path)) + ".QRV" != name)
            problems.push_back("content differs from its name: " + entry);
        else if (cache)
            cache->sound[entry] = identity;
    }
}

// The metadata record beside the catalogue names committed runs only, by number and date, and
// holds no entries outside a record.
void AuditMetadata(const std::string& backup, std::vector<std::string>& problems) {
    const std::string metadata = backup + Native("/db/Metadata.db");
    if (!Exists(metadata)) return;
    // A record that cannot be read (a journal left to roll back) says so, rather than no rows.
    try {
        if (SqlRows(metadata, "PRAGMA quick_check") !=
            std::vector<std::vector<std::string>>{{"ok"}})
            problems.push_back("the metadata record fails its check");
    } catch (const std::exception& error) {
        problems.push_back(std::string("the metadata record cannot be read: ") + error.what());
        return;
    }
    std::set<std::vector<std::string>> committed;
    for (const auto& row :
         SqlRows(backup + Native("/db/Backup.db"), "SELECT bid, datebk FROM Backups"))
        committed.insert(row);
    for (const auto& row : SqlRows(metadata, "SELECT bid, datebk FROM Runs"))
        if (!committed.count(row))
            problems.push_back("the metadata record names run " + row[0] + " of " + row[1] +
                               ", which the catalogue does not hold");
    for (const auto& row : SqlRows(
             metadata, "SELECT DISTINCT bid FROM Entries WHERE bid NOT IN (SELECT bid FROM Runs)"))
        problems.push_back("metadata entries of run " + row[0] + " stand outside any record");
}

void AuditRows(const std::string& backup, std::vector<std::string>& problems) {
    const std::string db = backup + Native("/db/Backup.db");
    const auto check = SqlRows(db, "PRAGMA integrity_check");
    if (check != std::vector<std::vector<std::string>>{{"ok"}}) {
        problems.push_back("catalogue fails its integrity check");
        return;
    }
    const auto rows = SqlRows(db, "SELECT f.bid, f.md5, f.backup, f.size, f.file FROM Files f "
                                  "JOIN Backups b ON f.bid = b.bid ORDER BY f.fid");
    for (const auto& row : rows) {
        const std::string& md5 = row[1];
        const std::string where = "run " + row[0] + ", " + row[4] + ": ";
        if (md5.size() != 32) {
            problems.push_back(where + "no signature");
            continue;
        }
        const std::string stored = backup + Native("/Files/" + md5.substr(0, 2) + "/" +
                                                   md5.substr(2, 2) + "/" + md5 + ".QRV");
        if (row[2].substr(row[2].find_last_of(Native("/")) + 1) != md5 + ".QRV")
            problems.push_back(where + "backup " + row[2] + " is not the file of its signature");
        const PathStatus status = StatusOf(stored);
        if (!status.Exists()) {
            problems.push_back(where + "store file missing");
            continue;
        }
        const size_t digits = row[3].find_first_not_of(' ');
        const std::string size = digits == std::string::npos ? "" : row[3].substr(digits);
        if (size != std::to_string(status.size))
            problems.push_back(where + "size " + size + " but the store file holds " +
                               std::to_string(status.size));
    }
    AuditMetadata(backup, problems);
}

} // namespace

std::vector<std::string> AuditBackupFolder(const std::string& backup, AuditMoment moment,
                                           AuditCache* cache) {
    std::vector<std::string> problems;
    AuditStoreFiles(backup, moment, cache, problems);
    if (moment == AuditMoment::kAfterCleanRun) AuditRows(backup, problems);
    return problems;
}

std::vector<std::string> CommittedRuns(const std::string& backup) {
    std::vector<std::string> bids;
    for (const auto& row :
         SqlRows(backup + Native("/db/Backup.db"), "SELECT bid FROM Backups ORDER BY bid"))
        bids.push_back(row[0]);
    return bids;
}
