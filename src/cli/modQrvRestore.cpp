#include "cli/modQrvRestore.h"

#include "app/CBackupFolderLock.h"
#include "app/modPaths.h"
#include "app/modRestore.h"
#include "catalogue/CMetadataDB.h"
#include "catalogue/modSQLQuote.h"
#include "cli/CProgressLine.h"
#include "cli/CQrvArgs.h"
#include "cli/CQrvCatalogue.h"
#include "cli/CRestoreWorkers.h"
#include "cli/modQrvExit.h"
#include "cli/modQrvPaths.h"
#include "cli/modQrvText.h"
#include "cli/modStoreScan.h"
#include "engine/CStore.h"
#include "engine/kvCryptDriver.h"
#include "platform/modFileStatus.h"
#include "platform/modFileSystem.h"
#include "platform/modPlatformPaths.h"
#include "support/CByteProgress.h"
#include "support/modFSCommon.h"
#include "support/modMsgBox.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <ostream>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace {

using Row = CQrvCatalogue::Row;

// Restoring processes side by side: enough to keep two cores and the disk busy.
constexpr unsigned kWorkers = 4;

struct StoredFile {
    std::string file;
    std::string backup;
    uint64_t size = 0;
};

// The folder restored into: "" for each file's own place, else `to` as a tidy full path; false
// with `problem` for a folder that cannot be one (it, or the nearest of its folders that
// exists, is not a folder).
bool Destination(const CQrvArgs& args, std::string& destination, std::string& problem) {
    if (!args.ToGiven()) return true;
    destination = TidyPath(FSFullPath(args.To()));
    if (FSIsRoot(destination)) {
        problem = "cannot restore into " + destination + " itself: name a folder";
        return false;
    }
    std::string existing = destination;
    PathStatus status = StatusOf(existing);
    while (!status.Exists() && (status.error == ENOENT || status.error == ENOTDIR) &&
           !FSIsRoot(existing)) {
        const size_t slash = FSLastSeparator(existing);
        existing = existing.substr(
            0, std::max(slash == std::string::npos ? 0 : slash, FSRootLength(existing)));
        status = StatusOf(existing);
    }
    if (status.Exists() && status.kind != PathKind::kFolder) {
        problem = LineText(existing) + " is not a folder";
        return false;
    }
    return true;
}

// The run's metadata record, when it has one and the restore uses it.
bool OpenRecord(const QrvRun& run, bool use, CMetadataReader& record) {
    return use &&
           record.Open(CMetadataDB::PathBeside(GetDBPath()),
                       static_cast<int32_t>(std::strtol(run.bid.c_str(), nullptr, 10)), run.datebk);
}

// The files of `run` that the stored paths `chosen` choose (all when none is named), in the order
// the run met them, handed to `file` one by one with their fid; false with `problem` when the
// catalogue cannot be read.
bool ForEachChosenFile(CQrvCatalogue& db, const QrvRun& run, const std::vector<std::string>& chosen,
                       const std::function<void(uint64_t fid, StoredFile&& file)>& file,
                       std::vector<bool>* met, std::string& problem) {
    const auto choose = [&](const std::string& path) {
        bool any = chosen.empty();
        for (size_t k = 0; k < chosen.size(); ++k)
            if (IsAtOrBelow(path, chosen[k])) {
                any = true;
                if (met) (*met)[k] = true;
            }
        return any;
    };
    if (db.Rows("SELECT fid, file, backup, size FROM Files WHERE bid = " + run.bid +
                    " ORDER BY fid",
                [&](const Row& r) {
                    std::string path(r[1]);
                    if (choose(path))
                        file(std::strtoull(std::string(r[0]).c_str(), nullptr, 10),
                             {std::move(path), std::string(r[2]),
                              std::strtoull(std::string(r[3]).c_str(), nullptr, 10)});
                }))
        return true;
    problem = db.Problem();
    return false;
}

// Where each chosen file goes, decided before any is restored, without keeping a row per file:
// the first file of the run's order that aims at a place keeps it, and the others are known by
// their fid. Places are compared by a hash of the target and, when two hashes meet, by the
// targets themselves (the earlier file's row is read again).
struct Places {
    uint64_t files = 0; // chosen
    uint64_t kept = 0;  // that keep their place
    uint64_t keptBytes = 0;
    std::unordered_set<uint64_t> others; // the fids of the files that do not
};

bool PlaceFiles(CQrvCatalogue& db, const QrvRun& run, const std::vector<std::string>& chosen,
                CMetadataReader* record, const std::string& destination, Places& places,
                std::string& problem) {
    std::unordered_multimap<uint64_t, uint64_t> firstByHash; // target hash -> fid
    const auto targetOf = [&](uint64_t fid, std::string& target) {
        return db.Rows("SELECT file FROM Files WHERE fid = " + std::to_string(fid),
                       [&](const Row& r) {
                           target = RestoreTarget(std::string(r[0]), run.source, destination);
                       });
    };
    std::vector<bool> met(chosen.size(), false);
    bool read = true;
    if (!ForEachChosenFile(
            db, run, chosen,
            [&](uint64_t fid, StoredFile&& file) {
                ++places.files;
                const std::string target = RestoreTarget(file.file, run.source, destination);
                const uint64_t hash = std::hash<std::string>{}(target);
                const auto [first, last] = firstByHash.equal_range(hash);
                for (auto earlier = first; earlier != last; ++earlier) {
                    std::string other;
                    read = read && targetOf(earlier->second, other);
                    if (other == target) {
                        places.others.insert(fid);
                        return;
                    }
                }
                firstByHash.emplace(hash, fid);
                ++places.kept;
                places.keptBytes += file.size;
            },
            &met, problem) ||
        !read || !db.Rows("SELECT path FROM Paths WHERE bid = " + run.bid, [&](const Row& r) {
            const std::string path(r[0]);
            for (size_t k = 0; k < chosen.size(); ++k)
                if (IsAtOrBelow(path, chosen[k])) met[k] = true;
        })) {
        if (problem.empty()) problem = db.Problem();
        return false;
    }
    for (size_t k = 0; k < chosen.size(); ++k)
        if (!met[k] && !(record && record->Find(StoredPathBytes(chosen[k])))) {
            problem = "run " + run.bid + " holds no file or folder " +
                      LineText(StoredPathBytes(chosen[k]));
            return false;
        }
    return true;
}

// While the restore runs, the restorer's box about a failed verification is not shown: the
// restore names that file itself, with the signature that was expected.
class CNoBoxes : public IMessageBoxService {
public:
    CNoBoxes() : m_before(MessageBoxService()) { SetMessageBoxService(this); }
    ~CNoBoxes() override { SetMessageBoxService(&m_before); }
    CNoBoxes(const CNoBoxes&) = delete;
    CNoBoxes& operator=(const CNoBoxes&) = delete;
    int Show(const std::string&, int style, const std::string&) override {
        return FirstButton(style);
    }

private:
    IMessageBoxService& m_before;
};

// Why the store file at `path` cannot give back content of `size` bytes whose signature is its
// name, in words; "" when it can. The content is read only when `read`. A restore asks first,
// so that a damaged store file never replaces a good file in its place.
std::string StoreFileProblem(const std::string& path, uint64_t size, bool read) {
    const StoreEntry entry = InspectStoreFile(path, size);
    const std::string storeFile = "its store file " + path;
    switch (entry.fault) {
    case StoreEntry::kSound:
        break;
    case StoreEntry::kMissing:
        return storeFile + " is missing";
    case StoreEntry::kUnreadable:
        return storeFile + " cannot be read: " + std::strerror(entry.error);
    case StoreEntry::kNotAFile:
        return storeFile + " is not a regular file";
    case StoreEntry::kWrongSize:
        return storeFile + " " + entry.SizeMismatch(size);
    }
    if (!read) return {};
    const auto content = ComputeSignature(path);
    if (!content) return storeFile + " cannot be read";
    if (content->signature != CStore::SignatureOfName(FSGetNamePart(path)))
        return "the content of " + storeFile + " has the signature " + content->signature +
               ", not that of its name";
    return {};
}

std::string Files(uint64_t count) {
    return std::to_string(count) + (count == 1 ? " file" : " files");
}

// How many files are dealt out to the workers at once: the restore keeps only these in memory.
constexpr size_t kChunk = 8192;

// What the files restored so far came to.
struct Tally {
    uint64_t restored = 0, failed = 0, wrong = 0, bytes = 0;
};

// Restores one chunk of files side by side, each worker with its copy of `restorer`, after a
// look at each store file; a file whose place another file keeps is not restored. Names the
// files that were not restored, in the run's order, and counts them all.
void RestoreChunk(const std::vector<std::pair<uint64_t, StoredFile>>& files, const Places& places,
                  const QrvRun& run, const std::string& destination, CFileRestorer& restorer,
                  bool verify, CProgressLine& progress, CByteProgress& bytes, uint64_t& done,
                  uint64_t& doneBytes, Tally& tally, std::ostream& err) {
    const std::string store = GetFilesPath();
    std::vector<RestoreOutcome> outcomes;
    std::vector<size_t> kept;
    for (size_t i = 0; i < files.size(); ++i) {
        outcomes.push_back({false, false,
                            RestoreTarget(files[i].second.file, run.source, destination),
                            kSamePlaceProblem});
        if (!places.others.count(files[i].first)) kept.push_back(i);
    }
    const std::vector<RestoreOutcome> restored = CRestoreWorkers(kWorkers).Run(
        kept.size(),
        [&](size_t k) {
            const StoredFile& file = files[kept[k]].second;
            const std::string problem = StoreFileProblem(
                CStore::StorePath(store, FSGetNamePart(file.backup)), file.size, verify);
            if (!problem.empty())
                return RestoreOutcome{false, false, outcomes[kept[k]].target, problem};
            return restorer.RestoreRow(file.file, file.backup);
        },
        [&](size_t, size_t k) {
            doneBytes += files[kept[k]].second.size;
            bytes.Update(doneBytes);
            progress.Show("Restoring " + std::to_string(++done) + " of " + Files(places.kept) +
                          ", " + bytes.Text());
        });
    for (size_t k = 0; k < restored.size(); ++k) {
        std::string target = std::move(outcomes[kept[k]].target);
        outcomes[kept[k]] = restored[k];
        if (outcomes[kept[k]].target.empty()) outcomes[kept[k]].target = std::move(target);
    }
    bool cleared = false;
    for (size_t i = 0; i < files.size(); ++i) {
        const RestoreOutcome& outcome = outcomes[i];
        if (outcome.restored && outcome.verified) {
            ++tally.restored;
            tally.bytes += files[i].second.size;
            continue;
        }
        if (!cleared) progress.Clear(); // the lines stand on their own; the next file redraws it
        cleared = true;
        if (!outcome.restored) {
            err << "qrv: not restored: " << LineText(outcome.target) << ": " << outcome.problem
                << "\n";
            ++tally.failed;
        } else {
            err << "qrv: restored with the wrong content: " << LineText(outcome.target) << ": "
                << outcome.problem << "\n";
            ++tally.wrong;
        }
    }
}

} // namespace

int QrvRestore(const CQrvArgs& args, std::ostream& out, std::ostream& err) {
    std::string destination, problem;
    if (!Destination(args, destination, problem)) {
        err << "qrv: " << problem << "\n";
        return kQrvUsage;
    }
    CQrvCatalogue db;
    QrvRun run;
    if (!db.Open() || !db.Run(args.Arguments()[0], run)) {
        err << "qrv: " << db.Problem() << "\n";
        return db.Status();
    }
    std::vector<std::string> chosen;
    for (auto path = args.Arguments().begin() + 1; path != args.Arguments().end(); ++path)
        chosen.push_back(StoredRunPath(run.source, *path, run.storedBeforeEscape));
    CMetadataReader record;
    const bool recorded = OpenRecord(run, !args.NoMetadata(), record);
    Places places;
    if (!PlaceFiles(db, run, chosen, recorded ? &record : nullptr, destination, places, problem)) {
        err << "qrv: " << problem << "\n";
        return db.Problem().empty() ? kQrvCannotOpen : db.Status();
    }
    db.Close();

    CBackupFolderLock lock;
    if (!lock.Acquire(GetBackupPath())) {
        err << "qrv: " << LockProblem(lock) << "\n";
        return kQrvBusy;
    }
    CNoBoxes noBoxes;
    CFileRestorer restorer(run.bid, destination, args.Verify());
    restorer.UseRecord(!args.NoMetadata());
    out.flush();
    err.flush();
    // The rows are read again, now that no run can change them, a chunk at a time.
    CProgressLine progress(CProgressLine::StderrIsTerminal());
    CByteProgress bytes;
    bytes.Start(places.keptBytes);
    uint64_t done = 0, doneBytes = 0;
    Tally tally;
    std::vector<std::pair<uint64_t, StoredFile>> chunk;
    const auto restoreChunk = [&] {
        RestoreChunk(chunk, places, run, destination, restorer, args.Verify(), progress, bytes,
                     done, doneBytes, tally, err);
        chunk.clear();
    };
    if (!db.Open() || !ForEachChosenFile(
                          db, run, chosen,
                          [&](uint64_t fid, StoredFile&& file) {
                              chunk.emplace_back(fid, std::move(file));
                              if (chunk.size() == kChunk) restoreChunk();
                          },
                          nullptr, problem)) {
        progress.Clear();
        err << "qrv: " << (problem.empty() ? db.Problem() : problem) << "\n";
        return db.Status();
    }
    if (!chunk.empty()) restoreChunk();
    db.Close();
    progress.Clear();
    // Then the empty files, links and folders of what was chosen.
    const std::vector<RestoreOutcome> entries =
        restorer.RestoreEntries([&](const EntryMetadata& entry) {
            const std::string path = SQLQuoteEncode(entry.path);
            return chosen.empty() || std::any_of(chosen.begin(), chosen.end(), [&](auto& folder) {
                       return IsAtOrBelow(path, folder);
                   });
        });
    uint64_t others = 0;
    for (const RestoreOutcome& outcome : entries)
        if (!outcome.restored) {
            err << "qrv: not restored: " << LineText(outcome.target) << ": " << outcome.problem
                << "\n";
            ++others;
        }
    const std::string where =
        destination.empty() ? "to their places" : "into " + LineText(destination);
    if (tally.failed == 0 && tally.wrong == 0) {
        out << (args.Verify() ? "Restored and verified " : "Restored ") << Files(tally.restored)
            << " (" << std::to_string(tally.bytes) << " bytes) of run " << run.bid << " " << where
            << ".\n";
    } else {
        out << "Restored " << std::to_string(tally.restored) << " of " << Files(places.files)
            << " of run " << run.bid << " " << where << ": " << std::to_string(tally.failed)
            << " not restored, " << std::to_string(tally.wrong) << " with the wrong content.\n";
    }
    if (others > 0)
        out << std::to_string(others)
            << (others == 1 ? " empty file, link or folder" : " empty files, links or folders")
            << " not restored.\n";
    return tally.failed == 0 && tally.wrong == 0 && others == 0 ? kQrvDone : kQrvProblems;
}
