#include "cli/modQrvCheck.h"

#include "support/CByteProgress.h"

#include "app/CBackupFolderLock.h"
#include "app/modPaths.h"
#include "catalogue/modSQLQuote.h"
#include "cli/CProgressLine.h"
#include "cli/CQrvArgs.h"
#include "cli/CQrvCatalogue.h"
#include "cli/modQrvExit.h"
#include "cli/modQrvText.h"
#include "cli/modStoreScan.h"
#include "engine/CStore.h"
#include "platform/modFileStatus.h"
#include "platform/modFileSystem.h"
#include "support/CByteProgress.h"
#include "support/modFSCommon.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <optional>
#include <ostream>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace {

using Row = CQrvCatalogue::Row;

struct StoreProblem {
    std::string path;
    std::string kind; // "missing", "wrong size", "altered", "unreadable"
    std::string detail;
    bool contentWrong = false; // what --repair moves out of the store
    std::string quarantined;
    std::vector<std::pair<std::string, std::string>> heldBy; // bid, stored file
};

struct CheckResult {
    std::vector<std::string> catalogue; // the integrity check's rows
    size_t runs = 0, files = 0, storeFiles = 0, read = 0;
    std::map<std::string, StoreProblem> problems; // by store file path
};

const char* const kRunFiles = "FROM Files f JOIN Backups b ON b.bid = f.bid";

std::string NameOf(std::string_view backup) {
    return FSGetNamePart(std::string(backup));
}

// The store files the runs refer to, each with the size its first row records. A name of the
// store's own form (32 hex digits and ".QRV") is kept as its 16 bytes, so that a catalogue of
// millions of rows is checked in a few tens of MB; any other name is kept as it is.
class RecordedStoreFiles {
public:
    void Add(const std::string& name, uint64_t size) {
        if (std::optional<Digest> digest = DigestOf(name))
            m_digests.push_back({*digest, size});
        else
            m_others.emplace(name, size); // the first row's size stays
    }
    // Once every row was added: one entry per store file.
    void Finish() {
        std::stable_sort(m_digests.begin(), m_digests.end(),
                         [](const Entry& a, const Entry& b) { return a.digest < b.digest; });
        m_digests.erase(
            std::unique(m_digests.begin(), m_digests.end(),
                        [](const Entry& a, const Entry& b) { return a.digest == b.digest; }),
            m_digests.end());
    }
    size_t size() const { return m_digests.size() + m_others.size(); }
    void ForEach(const std::function<void(const std::string& name, uint64_t size)>& each) const {
        static constexpr char kHex[] = "0123456789abcdef";
        std::string name = std::string(32, '0') + std::string(kExtension);
        for (const Entry& entry : m_digests) {
            for (size_t i = 0; i < 16; ++i) {
                name[2 * i] = kHex[entry.digest[i] >> 4];
                name[2 * i + 1] = kHex[entry.digest[i] & 15];
            }
            each(name, entry.size);
        }
        for (const auto& [other, size] : m_others)
            each(other, size);
    }

private:
    using Digest = std::array<uint8_t, 16>;
    struct Entry {
        Digest digest;
        uint64_t size;
    };
    static constexpr std::string_view kExtension = ".QRV";

    static std::optional<Digest> DigestOf(std::string_view name) {
        if (name.size() != 32 + kExtension.size() || name.substr(32) != kExtension)
            return std::nullopt;
        Digest digest{};
        for (size_t i = 0; i < 32; ++i) {
            const char c = name[i];
            const int value = c >= '0' && c <= '9'   ? c - '0'
                              : c >= 'a' && c <= 'f' ? c - 'a' + 10
                                                     : -1;
            if (value < 0) return std::nullopt;
            digest[i / 2] = static_cast<uint8_t>(digest[i / 2] << 4 | value);
        }
        return digest;
    }

    std::vector<Entry> m_digests;
    std::unordered_map<std::string, uint64_t> m_others;
};

// Each store file that the runs refer to is there, a regular file of the recorded size; one of
// the earlier flat layout counts where the two-level one has none.
void CheckReferenced(const RecordedStoreFiles& recorded, const std::string& store,
                     CheckResult& result) {
    recorded.ForEach([&](const std::string& name, uint64_t size) {
        std::string path = CStore::StorePath(store, name);
        StoreEntry entry = InspectStoreFile(path, size);
        if (entry.fault == StoreEntry::kMissing) {
            const StoreEntry flat = InspectStoreFile(FSJoinPath(store, name), size);
            if (flat.fault != StoreEntry::kMissing) {
                path = FSJoinPath(store, name);
                entry = flat;
            }
        }
        const auto wanting = [&](const std::string& kind, const std::string& detail) {
            result.problems[path] = {path, kind, detail, false, "", {}};
        };
        switch (entry.fault) {
        case StoreEntry::kSound:
            break;
        case StoreEntry::kMissing:
            wanting("missing", "");
            break;
        case StoreEntry::kUnreadable:
            wanting("unreadable", std::string("it cannot be read: ") + std::strerror(entry.error));
            break;
        case StoreEntry::kNotAFile:
            wanting("not a file", "it is " + entry.Kind());
            break;
        case StoreEntry::kWrongSize:
            wanting("wrong size", "it " + entry.SizeMismatch(size));
            break;
        }
    });
}

// Every store file's content has the signature of its name.
void ReadStore(const std::string& store, CheckResult& result) {
    const std::vector<std::string> paths = StoreFiles(store);
    CProgressLine progress(CProgressLine::StderrIsTerminal());
    CByteProgress bytes;
    uint64_t total = 0;
    for (const std::string& path : paths)
        total += StatusOf(path).size;
    bytes.Start(total);
    const auto signatures = SignFiles(paths, [&](size_t done, uint64_t read) {
        bytes.Update(read);
        progress.Show("Reading store files: " + std::to_string(done) + " of " +
                      std::to_string(paths.size()) + ", " + bytes.Text());
    });
    progress.Clear();
    result.read = paths.size();
    for (size_t k = 0; k < paths.size(); ++k) {
        const std::string expected = CStore::SignatureOfName(FSGetNamePart(paths[k]));
        if (signatures[k] && signatures[k]->signature == expected) continue;
        StoreProblem& problem = result.problems[paths[k]];
        const std::string what = signatures[k]
                                     ? "its content has the signature " + signatures[k]->signature
                                     : "it cannot be read";
        problem.path = paths[k];
        problem.detail += (problem.detail.empty() ? "" : "; ") + what;
        if (problem.kind.empty()) problem.kind = signatures[k] ? "altered" : "unreadable";
        problem.contentWrong = signatures[k].has_value();
    }
}

// Moves a store file whose content is wrong into <backup path>/Quarantine/.
void Quarantine(StoreProblem& problem) {
    const std::string folder = FSBuildPath(GetBackupPath(), "Quarantine");
    MakeFolder(folder); // there already, or the move below says why it is unusable
    const std::string name = FSGetNamePart(problem.path);
    std::string target = FSJoinPath(folder, name);
    for (int n = 1; StatusOf(target, true).Exists(); ++n)
        target = FSJoinPath(folder, name + "." + std::to_string(n));
    if (const int error = RenameNoReplace(problem.path, target); error == 0)
        problem.quarantined = target;
    else
        problem.detail += "; it could not be moved to " + folder + ": " + std::strerror(error);
}

void PrintJson(const CheckResult& result, bool readData, std::ostream& out) {
    out << "{\"backup_path\":" << JsonString(GetBackupPath()) << ",\"catalogue\":[";
    for (size_t k = 0; k < result.catalogue.size(); ++k)
        out << (k ? "," : "") << JsonString(result.catalogue[k]);
    out << "],\"runs\":" << result.runs << ",\"files\":" << result.files
        << ",\"store_files\":" << result.storeFiles
        << ",\"read_data\":" << (readData ? "true" : "false") << ",\"read\":" << result.read
        << ",\"problems\":[";
    bool first = true;
    for (const auto& [path, problem] : result.problems) {
        out << (first ? "" : ",") << "{\"kind\":" << JsonString(problem.kind)
            << ",\"store_file\":" << JsonString(problem.path)
            << ",\"detail\":" << JsonString(problem.detail) << ",\"held_by\":[";
        for (size_t k = 0; k < problem.heldBy.size(); ++k)
            out << (k ? "," : "") << "{\"bid\":" << problem.heldBy[k].first
                << ",\"file\":" << JsonString(StoredPathBytes(problem.heldBy[k].second)) << "}";
        out << "],\"quarantined\":" << JsonString(problem.quarantined) << "}";
        first = false;
    }
    out << "]}\n";
}

void PrintText(const CheckResult& result, bool catalogueSound, bool readData, std::ostream& out) {
    if (!catalogueSound)
        for (const std::string& line : result.catalogue)
            out << "catalogue: " << LineText(line) << "\n";
    for (const auto& [path, problem] : result.problems) {
        out << problem.kind << ": " << LineText(problem.path)
            << (problem.detail.empty() ? "" : ": " + LineText(problem.detail)) << "\n";
        if (problem.heldBy.empty()) out << "  held by no run\n";
        for (const auto& [bid, file] : problem.heldBy)
            out << "  held by run " << bid << ": " << LineText(StoredPathBytes(file)) << "\n";
        if (!problem.quarantined.empty())
            out << "  moved to " << LineText(problem.quarantined)
                << "; the next backup stores this content afresh\n";
    }
    const size_t count = result.problems.size() + (catalogueSound ? 0 : 1);
    out << "Checked " << result.runs << (result.runs == 1 ? " run, " : " runs, ") << result.files
        << (result.files == 1 ? " file and " : " files and ") << result.storeFiles
        << (result.storeFiles == 1 ? " store file" : " store files");
    if (readData)
        out << ", read " << result.read << (result.read == 1 ? " store file" : " store files");
    if (count == 0)
        out << ": no problems.\n";
    else
        out << ": " << count << (count == 1 ? " problem.\n" : " problems.\n");
}

} // namespace

int QrvCheck(const CQrvArgs& args, std::ostream& out, std::ostream& err) {
    CQrvCatalogue db;
    const auto failed = [&] {
        err << "qrv: " << db.Problem() << "\n";
        return db.Status();
    };
    if (!db.Open()) return failed();
    CBackupFolderLock lock;
    if (args.Repair() && !lock.Acquire(GetBackupPath())) {
        err << "qrv: " << LockProblem(lock) << "\n";
        return kQrvBusy;
    }
    CheckResult result;
    if (!db.Rows("PRAGMA integrity_check",
                 [&](const Row& r) { result.catalogue.emplace_back(r[0]); }))
        return failed();
    const bool catalogueSound = result.catalogue == std::vector<std::string>{"ok"};
    RecordedStoreFiles recorded;
    if (!db.Rows("SELECT count(*) FROM Backups",
                 [&](const Row& r) { result.runs = std::stoull(std::string(r[0])); }) ||
        !db.Rows(std::string("SELECT f.backup, f.size ") + kRunFiles, [&](const Row& r) {
            ++result.files;
            recorded.Add(NameOf(r[0]), std::strtoull(std::string(r[1]).c_str(), nullptr, 10));
        }))
        return failed();
    recorded.Finish();
    result.storeFiles = recorded.size();
    const std::string store = GetFilesPath();
    CheckReferenced(recorded, store, result);
    if (args.ReadData()) ReadStore(store, result);
    // The runs' files that hold each store file found wanting, found by its name.
    std::unordered_map<std::string, std::vector<StoreProblem*>> byName;
    for (auto& [path, problem] : result.problems)
        byName[FSGetNamePart(path)].push_back(&problem);
    if (!byName.empty() && !db.Rows(std::string("SELECT f.bid, f.file, f.backup ") + kRunFiles +
                                        " ORDER BY f.bid, f.fid",
                                    [&](const Row& r) {
                                        const auto found = byName.find(NameOf(r[2]));
                                        if (found == byName.end()) return;
                                        for (StoreProblem* problem : found->second)
                                            problem->heldBy.emplace_back(r[0], r[1]);
                                    }))
        return failed();
    if (args.Repair())
        for (auto& [path, problem] : result.problems)
            if (problem.contentWrong) Quarantine(problem);
    if (args.Json())
        PrintJson(result, args.ReadData(), out);
    else
        PrintText(result, catalogueSound, args.ReadData(), out);
    return catalogueSound && result.problems.empty() ? kQrvDone : kQrvProblems;
}
