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
#include <ostream>
#include <unordered_set>

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

// The files of `run` that the stored paths `chosen` choose (all when none is named), in the
// order the run met them; false with `problem` when a named path is neither a file nor a
// folder of it, nor an entry of the run's `record` (an empty file or a link).
bool ChosenFiles(CQrvCatalogue& db, const QrvRun& run, const std::vector<std::string>& chosen,
                 CMetadataReader* record, std::vector<StoredFile>& files, std::string& problem) {
    std::vector<bool> met(chosen.size(), false);
    const auto choose = [&](const std::string& path) {
        bool any = chosen.empty();
        for (size_t k = 0; k < chosen.size(); ++k)
            if (IsAtOrBelow(path, chosen[k])) any = met[k] = true;
        return any;
    };
    if (!db.Rows("SELECT file, backup, size FROM Files WHERE bid = " + run.bid + " ORDER BY fid",
                 [&](const Row& r) {
                     if (choose(std::string(r[0])))
                         files.push_back({std::string(r[0]), std::string(r[1]),
                                          std::strtoull(std::string(r[2]).c_str(), nullptr, 10)});
                 }) ||
        !db.Rows("SELECT path FROM Paths WHERE bid = " + run.bid,
                 [&](const Row& r) { choose(std::string(r[0])); })) {
        problem = db.Problem();
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

// Where each file goes, and which files go there: the first file of the run's order that aims
// at a place keeps it. Decided before the files are dealt out, so that no worker writes over
// the file of another.
struct Places {
    std::vector<std::string> targets; // of every file
    std::vector<size_t> kept;         // the files that keep their place, in the run's order
};

Places PlaceFiles(const std::vector<StoredFile>& files, const std::string& source,
                  const std::string& destination) {
    Places places;
    std::unordered_set<std::string> taken;
    for (size_t i = 0; i < files.size(); ++i) {
        places.targets.push_back(RestoreTarget(files[i].file, source, destination));
        if (taken.insert(places.targets.back()).second) places.kept.push_back(i);
    }
    return places;
}

// Restores the files that keep their place side by side, each worker with its copy of
// `restorer`, after a look at each store file; every other file is not restored. Answers the
// outcomes in the run's order.
std::vector<RestoreOutcome> RestorePlaced(const std::vector<StoredFile>& files,
                                          const Places& places, CFileRestorer& restorer,
                                          bool verify) {
    const std::string store = GetFilesPath();
    CProgressLine progress(CProgressLine::StderrIsTerminal());
    CByteProgress bytes;
    uint64_t total = 0, done = 0;
    for (const size_t i : places.kept)
        total += files[i].size;
    bytes.Start(total);
    std::vector<RestoreOutcome> outcomes;
    for (const std::string& target : places.targets)
        outcomes.push_back({false, false, target, kSamePlaceProblem});
    const std::vector<RestoreOutcome> kept = CRestoreWorkers(kWorkers).Run(
        places.kept.size(),
        [&](size_t k) {
            const size_t i = places.kept[k];
            const StoredFile& file = files[i];
            const std::string problem = StoreFileProblem(
                CStore::StorePath(store, FSGetNamePart(file.backup)), file.size, verify);
            if (!problem.empty()) return RestoreOutcome{false, false, places.targets[i], problem};
            return restorer.RestoreRow(file.file, file.backup);
        },
        [&](size_t count, size_t k) {
            done += files[places.kept[k]].size;
            bytes.Update(done);
            progress.Show("Restoring " + std::to_string(count) + " of " +
                          Files(places.kept.size()) + ", " + bytes.Text());
        });
    for (size_t k = 0; k < kept.size(); ++k)
        outcomes[places.kept[k]] = kept[k];
    progress.Clear();
    return outcomes;
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
    std::vector<StoredFile> files;
    if (!db.Open() || !db.Run(args.Arguments()[0], run)) {
        err << "qrv: " << db.Problem() << "\n";
        return db.Status();
    }
    std::vector<std::string> chosen;
    for (auto path = args.Arguments().begin() + 1; path != args.Arguments().end(); ++path)
        chosen.push_back(StoredRunPath(run.source, *path, run.storedBeforeEscape));
    CMetadataReader record;
    const bool recorded = OpenRecord(run, !args.NoMetadata(), record);
    if (!ChosenFiles(db, run, chosen, recorded ? &record : nullptr, files, problem)) {
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
    const Places places = PlaceFiles(files, run.source, destination);
    const std::vector<RestoreOutcome> outcomes =
        RestorePlaced(files, places, restorer, args.Verify());
    // Then the empty files, links and folders of what was chosen.
    const std::vector<RestoreOutcome> entries =
        restorer.RestoreEntries([&](const EntryMetadata& entry) {
            const std::string path = SQLQuoteEncode(entry.path);
            return chosen.empty() || std::any_of(chosen.begin(), chosen.end(), [&](auto& folder) {
                       return IsAtOrBelow(path, folder);
                   });
        });
    uint64_t restored = 0, failed = 0, wrong = 0, bytes = 0, others = 0;
    for (size_t i = 0; i < files.size(); ++i) {
        const RestoreOutcome& outcome = outcomes[i];
        if (!outcome.restored) {
            err << "qrv: not restored: "
                << LineText(outcome.target.empty() ? places.targets[i] : outcome.target) << ": "
                << outcome.problem << "\n";
            ++failed;
        } else if (!outcome.verified) {
            err << "qrv: restored with the wrong content: " << LineText(outcome.target) << ": "
                << outcome.problem << "\n";
            ++wrong;
        } else {
            ++restored;
            bytes += files[i].size;
        }
    }
    for (const RestoreOutcome& outcome : entries)
        if (!outcome.restored) {
            err << "qrv: not restored: " << LineText(outcome.target) << ": " << outcome.problem
                << "\n";
            ++others;
        }
    const std::string where =
        destination.empty() ? "to their places" : "into " + LineText(destination);
    if (failed == 0 && wrong == 0) {
        out << (args.Verify() ? "Restored and verified " : "Restored ") << Files(restored) << " ("
            << std::to_string(bytes) << " bytes) of run " << run.bid << " " << where << ".\n";
    } else {
        out << "Restored " << std::to_string(restored) << " of " << Files(files.size())
            << " of run " << run.bid << " " << where << ": " << std::to_string(failed)
            << " not restored, " << std::to_string(wrong) << " with the wrong content.\n";
    }
    if (others > 0)
        out << std::to_string(others)
            << (others == 1 ? " empty file, link or folder" : " empty files, links or folders")
            << " not restored.\n";
    return failed == 0 && wrong == 0 && others == 0 ? kQrvDone : kQrvProblems;
}
