#include "app/modFileVersions.h"

#include "app/CBackupFolderLock.h"
#include "app/modMainWindow.h"
#include "catalogue/modSQLQuote.h"
#include "support/modWildcard.h"

#include <algorithm>
#include <charconv>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

namespace {

uint64_t Number(std::string_view text) {
    uint64_t number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

// The last component of a stored path, still encoded.
std::string_view StoredName(std::string_view stored) {
    for (size_t k = stored.size(); k > 0; --k)
        if (IsStoredSeparator(stored[k - 1])) return stored.substr(k);
    return stored;
}

std::string Counted(size_t count, const char* one, const char* many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

// Each version's runs newest first, and the versions in path order, of one path the one with
// the newest run first; of two with the same newest run (an older catalogue's two rows under
// one stored path), the one the catalogue holds first.
void Order(std::vector<FileVersion>& versions) {
    const auto newer = [](const VersionRun& a, const VersionRun& b) {
        return Number(a.bid) > Number(b.bid);
    };
    for (FileVersion& version : versions)
        std::sort(version.runs.begin(), version.runs.end(), newer);
    std::stable_sort(versions.begin(), versions.end(),
                     [&](const FileVersion& a, const FileVersion& b) {
                         if (a.path != b.path) return a.path < b.path;
                         return newer(a.runs.front(), b.runs.front());
                     });
}

} // namespace

bool FindFileVersions(const CatalogueQuery& query, const std::string& search,
                      VersionsFound& found) {
    found = {};
    if (search.empty()) return true;
    // The runs are few and read first, so that the files are one pass over their table in the
    // order it holds them (no join, no sort of the whole table by the engine).
    std::unordered_map<std::string, std::pair<std::string, std::string>> runOf; // source, date
    std::unordered_map<std::string, size_t> versionOf; // path and signature -> version
    std::unordered_set<std::string> paths, runs;
    const bool read =
        query("SELECT bid, source, datebk FROM Backups",
              [&](const CCatalogueReader::Row& row) {
                  runOf.try_emplace(std::string(row[0]), row[1], row[2]);
              }) &&
        query("SELECT bid, file, backup, size, md5 FROM Files ORDER BY fid",
              [&](const CCatalogueReader::Row& row) {
                  const std::string_view stored = row[1];
                  if (stored.empty() ||
                      !NameMatches(search, StoredPathBytes(std::string(StoredName(stored)))))
                      return;
                  const std::string bid(row[0]);
                  const auto run = runOf.find(bid);
                  if (run == runOf.end()) return; // a row of no run the catalogue holds
                  const std::string path = StoredPathBytes(std::string(stored));
                  const std::string md5(row[4]);
                  const auto [at, fresh] =
                      versionOf.try_emplace(path + '\0' + md5, found.versions.size());
                  if (fresh) found.versions.push_back({path, md5, Number(row[3]), {}});
                  found.versions[at->second].runs.push_back(
                      {bid, run->second.first, run->second.second, std::string(stored),
                       std::string(row[2])});
                  paths.insert(path);
                  runs.insert(bid);
              });
    if (!read) {
        found = {};
        return false;
    }
    Order(found.versions);
    found.files = paths.size();
    found.runs = runs.size();
    return true;
}

std::string VersionRunsText(const FileVersion& version) {
    return Counted(version.runs.size(), "run", "runs");
}

std::string VersionsSummary(const VersionsFound& found) {
    if (found.versions.empty()) return "No file in any run matches";
    return Counted(found.versions.size(), "version", "versions") + " of " +
           Counted(found.files, "file", "files") + " in " + Counted(found.runs, "run", "runs");
}

std::optional<RestoreOutcome> RestoreVersion(const VersionRun& run, const std::string& destination,
                                             bool verify) {
    // No compact may take the store file away while it is restored.
    CBackupFolderLock lock;
    if (!LockBackupFolder(lock)) return std::nullopt;
    CFileRestorer restorer(run.bid, destination, verify);
    return restorer.RestoreRow(run.file, run.backup);
}

std::optional<RestoreOutcome> cmdRestoreVersion_Click(const VersionRun& run, bool verify) {
    if (!AskToOverwrite()) return std::nullopt;
    return RestoreVersion(run, "", verify);
}

std::optional<RestoreOutcome> cmdRestoreVersionTo_Click(const VersionRun& run, bool verify) {
    const std::string folder = AskRestoreFolder();
    if (folder.empty()) return std::nullopt;
    return RestoreVersion(run, folder, verify);
}

std::string VersionRestoreText(const RestoreOutcome& outcome) {
    if (!outcome.restored) return "Could not restore " + outcome.target + ": " + outcome.problem;
    if (!outcome.verified) return "Restored " + outcome.target + ", but it failed verification";
    return "Restored " + outcome.target;
}
