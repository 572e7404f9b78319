#include "app/modRestore.h"

#include "app/modMainWindow.h"
#include "app/modPaths.h"
#include "catalogue/modSQLQuote.h"
#include "engine/CStore.h"
#include "engine/kvCryptDriver.h"
#include "platform/CFile.h"
#include "platform/modFileIO.h"
#include "platform/modFileStatus.h"
#include "platform/modFileSystem.h"
#include "support/CProcTrap.h"
#include "support/modBrowseFolder.h"
#include "support/modFSCommon.h"
#include "support/modMsgBox.h"
#include "support/modServices.h"
#include "support/modYield.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <optional>

namespace {

std::string FirstRowField(const ADOSQLite& db, const std::string& field) {
    return db.RecordCount() >= 1 ? db.Field(field) : std::string();
}

// `folder` without trailing separators (but a root stays as it is).
std::string FolderRoot(const std::string& folder) {
    std::string root = folder;
    while (root.size() > std::max<size_t>(FSRootLength(root), 1) && IsPathSeparator(root.back()))
        root.pop_back();
    return root;
}

std::string Below(const std::string& root) {
    return FSIsRoot(root) ? root : root + kPathSeparator;
}

// Creates the missing folders of `folder` (ending in a separator) with the user's default mode.
void CreateRestoreFolders(const std::string& folder) {
    for (size_t slash = FSNextSeparator(folder, std::max<size_t>(FSRootLength(folder), 1));
         slash != std::string::npos; slash = FSNextSeparator(folder, slash + 1)) {
        const std::string path = folder.substr(0, slash);
        if (StatusOf(path, true).Exists()) continue;
        const int error = MakeOrdinaryFolder(path);
        if (error != 0 && error != EEXIST)
            Raise(IsDiskFullError(error) ? err::kDiskFull : err::kPathNotFound);
    }
}

// The part of stored path `file` behind the run's `source`. Rows written since names keep
// their backslashes begin with the source in its stored form; older rows hold a "\" of the
// source as it stood and are cut at the source's own length, as they always were.
std::string StoredTail(const std::string& file, const std::string& source) {
    const std::string stored = SQLQuoteEncode(source);
    if (file.compare(0, stored.size(), stored) == 0) return file.substr(stored.size());
    return file.size() > source.size() ? file.substr(source.size()) : std::string();
}

std::string LinkStandsAt(const std::string& path) {
    return "a symbolic link stands at " + path;
}

// Names in the trace and the log why the row meant for `outcome.target` is not restored, and
// raises the restore's error with it.
[[noreturn]] void Refuse(RestoreOutcome& outcome, const std::string& problem) {
    outcome.problem = problem;
    const std::string text = "Failed to restore " + outcome.target + ": " + problem;
    Operation(text);
    Log(1, text);
    Raise(err::kNoDestination, text);
}

} // namespace

std::string RestoreTarget(const std::string& file, const std::string& source,
                          const std::string& destination) {
    if (destination.empty()) return StoredPathBytes(file);
    return destination + StoredPathBytes(StoredTail(file, source));
}

std::string RestoreTargetProblem(const std::string& folder, const std::string& target,
                                 const std::string& checked) {
    const std::string root = FolderRoot(folder);
    const std::string prefix = Below(root);
    const std::string outside = "the stored path leads outside " + root;
    if (root.empty() || target.compare(0, prefix.size(), prefix) != 0 ||
        target.size() == prefix.size())
        return outside;
    // A root loses its own separator ("/" -> "", "C:\\" -> "C:"): each part brings one.
    std::string path =
        FSIsRoot(root) && IsPathSeparator(root.back()) ? root.substr(0, root.size() - 1) : root;
    bool exists = true;
    for (size_t start = prefix.size(); start <= target.size();) {
        const size_t slash = std::min(FSNextSeparator(target, start), target.size());
        const std::string part = target.substr(start, slash - start);
        if (part.empty() || part == "." || part == "..") return outside;
        path += kPathSeparator + part;
        const bool known = checked.size() > path.size() &&
                           checked.compare(0, path.size(), path) == 0 &&
                           IsPathSeparator(checked[path.size()]);
        const PathStatus status = exists && !known ? StatusOf(path, true) : PathStatus{};
        if (exists && !known && !status.Exists()) exists = false;
        if (exists && !known && status.kind == PathKind::kLink) return LinkStandsAt(path);
        start = slash + 1;
    }
    return {};
}

CFileRestorer::CFileRestorer(std::string bid, std::string destination, bool verify)
    : m_bid(std::move(bid)), m_destination(std::move(destination)), m_verify(verify),
      m_destinationWasThere(!m_destination.empty() && StatusOf(m_destination, true).Exists()),
      m_store(GetFilesPath()) {}

void CFileRestorer::CreateFolders(const std::string& target) {
    const std::string folder = FSGetPathPart(target);
    if (folder == m_lastFolder) return;
    CreateRestoreFolders(folder);
    m_lastFolder = folder;
}

const std::string& CFileRestorer::Source() {
    if (!m_sourceRead) {
        if (!m_db.Handle()) m_db.Connect(GetDBPath());
        m_db.Reset();
        m_db.Table("Backups");
        m_db.Action(sqlaction::kSelect);
        m_db.Where("bid = " + m_bid);
        m_db.Exec();
        m_source = FirstRowField(m_db, "source");
        m_datebk = FirstRowField(m_db, "datebk");
        m_sourceRead = true;
    }
    return m_source;
}

std::string CFileRestorer::Target(const std::string& file) {
    if (m_destination.empty()) return RestoreTarget(file, {}, {});
    return RestoreTarget(file, Source(), m_destination);
}

std::vector<RestoreOutcome> CFileRestorer::RestoreFile(const std::string& key) {
    std::vector<std::pair<std::string, std::string>> rows; // file, backup
    const bool read = Trapped("RestoreFile", false, [&] {
        Operation("Calculate filename to restore");
        if (!m_db.Handle()) m_db.Connect(GetDBPath());
        m_db.Reset();
        m_db.Table("Files");
        m_db.Action(sqlaction::kSelect);
        // "+bid": the file's own index finds the row; the run's would visit every file of it.
        m_db.Where("+bid = " + m_bid + " AND file = " + SQLLiteral(key));
        m_db.Sort("fid");
        m_db.Exec();
        for (int32_t row = 1; row <= m_db.RecordCount(); ++row) {
            m_db.MoveAbs(row);
            rows.emplace_back(m_db.Field("file"), m_db.Field("backup"));
        }
        return true;
    });
    if (!read) return {{false, false, key, "the catalogue could not be read"}};
    if (rows.empty()) rows.emplace_back(); // fails as the copy of nothing does
    std::vector<RestoreOutcome> outcomes;
    for (const auto& [file, backup] : rows)
        outcomes.push_back(RestoreRow(file, backup));
    return outcomes;
}

RestoreOutcome CFileRestorer::RestoreRow(const std::string& file, const std::string& backup) {
    CProcTrap trap("RestoreFile");
    RestoreOutcome outcome;
    try {
        trap.Check();
        const std::string target = Target(file);
        outcome.target = target;

        if (!file.empty()) {
            const std::string folder = m_destination.empty() ? Source() : m_destination;
            std::string problem = RestoreTargetProblem(folder, target, m_lastFolder);
            if (problem.empty() && !m_taken.insert(target).second) problem = kSamePlaceProblem;
            if (!problem.empty()) Refuse(outcome, problem);
        } else {
            outcome.problem = "the run holds no such file";
        }

        Operation("Restore file");
        CreateFolders(target);
        const std::string storeFile = CStore::StorePath(m_store, FSGetNamePart(backup));
        const bool existed = StatusOf(target, true).Exists();
        if (!FSCopyFile(storeFile, target)) {
            if (outcome.problem.empty())
                outcome.problem = StatusOf(storeFile, true).error == ENOENT
                                      ? "its store file " + storeFile + " is missing"
                                      : "it could not be copied from " + storeFile;
            Operation("Failed to restore " + target);
            Log(1, "Failed to restore " + target);
            Raise(err::kNoDestination);
        }
        // The copy's last way answers true whatever happened, so what it left is looked at.
        const PathStatus copied = StatusOf(target, true);
        const PathStatus stored = StatusOf(storeFile);
        outcome.restored = !file.empty() && copied.kind == PathKind::kFile && stored.Exists() &&
                           copied.size == stored.size;
        if (!outcome.restored && outcome.problem.empty())
            outcome.problem = "the copy of " + storeFile + " did not reach it whole";
        DoEvents();
        Operation("Restore verify");
        outcome.verified = outcome.restored;
        if (m_verify) {
            const std::string signature = CStore::SignatureOfName(FSGetNamePart(backup));
            if (MD5File(target) != signature) {
                outcome.verified = false;
                outcome.problem = "its content does not have the signature " + signature;
                MsgBox("Restored file failed verification " + file, mb::kCritical | mb::kOKOnly,
                       kWindowTitle);
            }
        }
        // What the run's record kept of the file, or else the user's usual rights for a new one.
        if (!(outcome.restored && RestoreMetadata(file, target, copied)) && !existed)
            GiveDefaultFileRights(target);
    } catch (...) {
        if (outcome.problem.empty()) outcome.problem = CurrentRuntimeError().Description();
        trap.Handle();
    }
    return outcome;
}

bool CFileRestorer::OpenRecord() {
    if (!m_recordOpened) {
        m_recordOpened = true;
        Source();
        m_hasRecord =
            m_useRecord &&
            m_record.Open(CMetadataDB::PathBeside(GetDBPath()),
                          static_cast<int32_t>(std::strtol(m_bid.c_str(), nullptr, 10)), m_datebk);
    }
    return m_hasRecord;
}

bool CFileRestorer::RestoreMetadata(const std::string& file, const std::string& target,
                                    const PathStatus& status) {
    if (!OpenRecord()) return false;
    // The record knows each entry by the path the run met it at.
    const std::optional<EntryMetadata> entry = m_record.Find(RestoreTarget(file, {}, {}));
    if (!entry) return false;
    ApplyMetadata(*entry, target, m_destination.empty(), &status);
    return true;
}

std::vector<RestoreOutcome>
CFileRestorer::RestoreEntries(const std::function<bool(const EntryMetadata&)>& chosen) {
    std::vector<RestoreOutcome> outcomes;
    if (!OpenRecord()) return outcomes;
    using Kind = EntryMetadata::Kind;
    std::vector<std::pair<EntryMetadata, std::string>> folders; // with their targets
    for (EntryMetadata& folder : m_record.OfKind(Kind::kFolder)) {
        if (!chosen(folder)) continue;
        outcomes.push_back(RestoreEntry(folder));
        if (outcomes.back().restored)
            folders.emplace_back(std::move(folder), outcomes.back().target);
    }
    for (const Kind kind : {Kind::kEmptyFile, Kind::kLink})
        for (const EntryMetadata& entry : m_record.OfKind(kind))
            if (chosen(entry)) outcomes.push_back(RestoreEntry(entry));
    // The run met folders above those they hold, so the other way round is deepest first.
    const std::string root = FolderRoot(m_destination.empty() ? Source() : m_destination);
    for (auto folder = folders.rbegin(); folder != folders.rend(); ++folder) {
        if (folder->second == root && m_destinationWasThere) continue;
        DoEvents();
        ApplyMetadata(folder->first, folder->second, m_destination.empty());
    }
    return outcomes;
}

std::string CFileRestorer::EntryTarget(const EntryMetadata& entry, std::string& problem) {
    const std::string target = RestoreTarget(SQLQuoteEncode(entry.path), Source(), m_destination);
    const std::string folder = m_destination.empty() ? Source() : m_destination;
    // The folder restored into is no path below itself, but it must be a folder all the same.
    if (target == FolderRoot(folder)) {
        const PathStatus status = StatusOf(target, true);
        if (status.kind == PathKind::kLink) problem = LinkStandsAt(target);
        return target;
    }
    problem = RestoreTargetProblem(folder, target);
    return target;
}

RestoreOutcome CFileRestorer::RestoreEntry(const EntryMetadata& entry) {
    using Kind = EntryMetadata::Kind;
    CProcTrap trap(entry.kind == Kind::kFolder ? "RestoreFolder" : "RestoreFile");
    RestoreOutcome outcome;
    try {
        trap.Check();
        std::string problem;
        outcome.target = EntryTarget(entry, problem);
        // A link in a link's own place is replaced, never followed.
        if (entry.kind == Kind::kLink && problem == LinkStandsAt(outcome.target)) problem.clear();
        if (!problem.empty()) Refuse(outcome, problem);
        if (entry.kind == Kind::kFolder) {
            CreateRestoreFolders(Below(outcome.target));
            if (StatusOf(outcome.target, true).kind != PathKind::kFolder)
                Refuse(outcome, "something other than a folder stands at " + outcome.target);
        } else {
            MakeLeaf(entry, outcome);
            ApplyMetadata(entry, outcome.target, m_destination.empty());
        }
        outcome.restored = outcome.verified = true;
    } catch (...) {
        if (outcome.problem.empty()) outcome.problem = CurrentRuntimeError().Description();
        trap.Handle();
    }
    return outcome;
}

void CFileRestorer::MakeLeaf(const EntryMetadata& entry, RestoreOutcome& outcome) {
    const bool link = entry.kind == EntryMetadata::Kind::kLink;
    Operation(link ? "Restore link" : "Restore file");
    CreateFolders(outcome.target);
    const PathStatus there = StatusOf(outcome.target, true);
    if (there.kind == PathKind::kFolder) Refuse(outcome, "a folder stands at " + outcome.target);
    int error = 0;
    if (link) {
        if (there.Exists()) error = RemoveFile(outcome.target);
        if (error == 0) error = MakeLink(entry.target, outcome.target);
    } else {
        const NativeFile file = OpenFileHandle(outcome.target, OpenMode::kCreateOrEmpty, error);
        if (file != kNoFile) error = CloseFileHandle(file);
        if (error == 0 && !there.Exists()) GiveDefaultFileRights(outcome.target);
    }
    if (error != 0)
        Refuse(outcome, std::string(link ? "the link" : "it") +
                            " could not be made: " + FSPlainCause(error));
}

void ApplyMetadata(const EntryMetadata& entry, const std::string& target, bool originalPlace,
                   const PathStatus* status) {
    const bool superuser = MayGiveAwayEntries();
    std::vector<std::string> failed;
    // What the entry has already is not set again.
    const bool owned = status && status->owner == entry.owner && status->group == entry.group;
    // A new owner clears the setuid and setgid bits, so the owner comes first; the time comes
    // before the mode, which may make the entry read-only.
    if (superuser && !owned && SetOwner(target, entry.owner, entry.group) != 0)
        failed.push_back("owner");
    if (SetWriteTime(target, entry.writeNs) != 0) failed.push_back("time");
    const uint32_t bits = kPlainModeBits | (superuser && originalPlace ? kSpecialModeBits : 0u);
    const bool moded = status && owned && status->mode == (entry.mode & bits);
    if (entry.kind != EntryMetadata::Kind::kLink && !moded &&
        SetPermissionBits(target, entry.mode & bits) != 0)
        failed.push_back("permission bits");
    if (failed.empty()) return;
    std::string what = failed[0];
    for (size_t i = 1; i < failed.size(); ++i)
        what += (i + 1 == failed.size() ? " and " : ", ") + failed[i];
    Log(2, "The " + what + " of " + target + " could not be restored");
}

void RestoreFile(const std::string& bid, const std::string& key, const std::string& destination,
                 bool verify) {
    CFileRestorer(bid, destination, verify).RestoreFile(key);
}

bool AskToOverwrite() {
    return MsgBox("QRV will overwrite any existing files with the same name. Is this OK?",
                  mb::kOKCancel | mb::kQuestion, kWindowTitle) == mb::kOK;
}

std::string AskRestoreFolder() {
    return BrowseForFolder("Select alternate folder to restore to");
}
