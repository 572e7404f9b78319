#include "app/modRetention.h"

#include "app/modCatalogueQuery.h"
#include "app/modIntegrity.h"
#include "app/modPaths.h"
#include "app/modSetup.h"
#include "catalogue/CCatalogueReader.h"
#include "catalogue/CDatabase.h"
#include "catalogue/CMetadataDB.h"
#include "catalogue/modBulkQuery.h"
#include "catalogue/modSQLQuote.h"
#include "engine/CDriveMap.h"
#include "platform/modFileStatus.h"
#include "platform/modFileSystem.h"
#include "support/CProcTrap.h"
#include "support/CServiceContext.h"
#include "support/modFSCommon.h"
#include "support/modMsgBox.h"
#include "support/modNumText.h"
#include "support/modServices.h"
#include "support/modText.h"
#include "support/modYield.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <fstream>
#include <map>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace {

MaintenanceView& View() {
    return ServicePart<MaintenanceView>();
}

void Status(const std::string& text) {
    if (const auto& status = View().status) status(text);
}

void ExecAsIs(const std::string& text) {
    ADOSQLite db;
    ExecOnCatalogue(db, text);
}

// VB's Mid(text, start, length) with a 1-based start.
std::string Mid(const std::string& text, size_t start, size_t length) {
    if (start < 1 || start > text.size()) return {};
    return text.substr(start - 1, length);
}

// SQLite's LIKE walks text as UTF-8: a byte from 0xC0 up takes every continuation byte (0x80
// to 0xBF) after it. Where the character that starts at `i` ends.
size_t NextLikeChar(const std::string& text, size_t i) {
    if (static_cast<unsigned char>(text[i++]) >= 0xC0)
        while (i < text.size() && (static_cast<unsigned char>(text[i]) & 0xC0) == 0x80)
            ++i;
    return i;
}

size_t LikeChars(const std::string& text) {
    size_t count = 0;
    for (size_t i = 0; i < text.size(); i = NextLikeChar(text, i))
        ++count;
    return count;
}

// The bytes that the first `count` characters of `text` take.
size_t LikeCharBytes(const std::string& text, size_t count) {
    size_t i = 0;
    for (; count > 0 && i < text.size(); --count)
        i = NextLikeChar(text, i);
    return i;
}

// The signatures that keep a store file, read once: every md5 value that any row holds. (The
// lookup of one row per file, as first written, let a file go when the first of its rows had an
// empty `file`; a store file that any row names is never deleted.) A signature of 32 hex digits
// is kept as its 16 bytes in one sorted list (a few MB for a million contents); any other value
// is kept as it is.
class SignaturesInUse {
public:
    bool Load(const ADOSQLite& db, std::string& error) {
        const bool read = ForEachRow(
            db, "SELECT DISTINCT md5 FROM Files WHERE md5 IS NOT NULL",
            [&](const auto& row) {
                if (const std::optional<Digest> digest = DigestOf(row[0]))
                    m_digests.push_back(*digest);
                else
                    m_others.emplace(row[0]);
            },
            error);
        std::sort(m_digests.begin(), m_digests.end());
        return read;
    }

    bool Keeps(const std::string& signature) const {
        if (const std::optional<Digest> digest = DigestOf(signature))
            return std::binary_search(m_digests.begin(), m_digests.end(), *digest);
        return m_others.count(signature) > 0;
    }

private:
    using Digest = std::array<uint8_t, 16>;

    // The bytes that 32 lower-case hex digits spell; nothing for any other text (so that a value
    // in capitals, say, is still compared as the text it is).
    static std::optional<Digest> DigestOf(std::string_view text) {
        if (text.size() != 32) return std::nullopt;
        Digest digest{};
        for (size_t i = 0; i < 32; ++i) {
            const char c = text[i];
            int value;
            if (c >= '0' && c <= '9')
                value = c - '0';
            else if (c >= 'a' && c <= 'f')
                value = c - 'a' + 10;
            else
                return std::nullopt;
            digest[i / 2] = static_cast<uint8_t>(digest[i / 2] << 4 | value);
        }
        return digest;
    }

    std::vector<Digest> m_digests;
    std::unordered_set<std::string> m_others;
};

// Answers IsBackupFolderUnused, "no backup value is LIKE 'folder/%'", from one read of the
// backup column. LIKE compares ASCII letters without case and every other character exactly as
// decoded (see LikeChars), and "_" stands for any one character. A folder is split after its
// last "_" or non-ASCII byte: the engine's own LIKE matches that head against each value once
// (one character of the value per character of the head), and the plain ASCII tail is looked up
// among the sorted, lowered rests of the values that matched. A folder with a "%" in its head is
// asked literally. SqlLike is the engine's LIKE as the catalogue uses it (no ICU,
// case_sensitive_like off).
class FolderReferences {
public:
    bool Load(const ADOSQLite& db, std::string& error) {
        std::unordered_set<std::string> folders;
        std::string statement = "SELECT DISTINCT backup FROM Files WHERE typeof(backup) = 'text'";
        if (SqlLikeMatchesBlobs()) statement += " OR typeof(backup) = 'blob'";
        return ForEachRow(
            db, statement,
            // LIKE reads a value as C text, up to its first NUL. A folder's pattern ends in a
            // separator, so a value matches it exactly when the value's own folder does: only
            // the values' distinct folders are kept (a few thousand, not a row per content).
            [&](const auto& row) {
                const std::string_view value = row[0].substr(0, row[0].find('\0'));
                size_t end = value.size();
                while (end > 0 && !IsPathSeparator(value[end - 1]))
                    --end;
                if (end > 0 && folders.emplace(value.substr(0, end)).second)
                    m_values.emplace_back(value.substr(0, end));
            },
            error);
    }

    bool Unused(const std::string& folder) {
        size_t split = 0;
        for (size_t i = 0; i < folder.size(); ++i) {
            const auto c = static_cast<unsigned char>(folder[i]);
            if (c >= 0x80 || c == '_' || c == '%') split = i + 1;
        }
        const std::string head = folder.substr(0, split);
        if (head.find('%') != std::string::npos) return IsBackupFolderUnused(folder);
        const std::string tail = LowerAscii(folder.substr(split)) + kPathSeparator;
        const std::vector<std::string>& rests = RestsAfter(head);
        const auto it = std::lower_bound(rests.begin(), rests.end(), tail);
        return it == rests.end() || it->compare(0, tail.size(), tail) != 0;
    }

private:
    const std::vector<std::string>& RestsAfter(const std::string& head) {
        auto [entry, fresh] = m_rests.try_emplace(head);
        std::vector<std::string>& rests = entry->second;
        if (!fresh) return rests;
        const std::string pattern = head + "%";
        const size_t chars = LikeChars(head);
        for (const std::string& value : m_values) {
            if (head.empty())
                rests.push_back(LowerAscii(value));
            else if (SqlLike(pattern, value))
                rests.push_back(LowerAscii(value.substr(LikeCharBytes(value, chars))));
        }
        std::sort(rests.begin(), rests.end());
        return rests;
    }

    std::vector<std::string> m_values;
    std::map<std::string, std::vector<std::string>> m_rests;
};

// The signature a store file is named after: its name less the extension and the dot.
std::string SignatureOfName(const std::string& name) {
    const size_t extension = FSGetExtension(name).size();
    return name.substr(0, name.size() >= extension + 1 ? name.size() - extension - 1 : 0);
}

// A folder below the store that may go: no row lies under it and it is empty. Emptiness is
// the safe half: rows hold the store path as it was spelt when they were written, so a backup
// folder reached by another path (a drive mounted elsewhere, a link) looks unused while it
// still holds the files of kept runs. The store folder itself, and anything above it, stays.
bool DeleteUnusedFolder(const std::string& folder, const std::string& store,
                        FolderReferences& folders) {
    if (folder.size() <= store.size() + 1 ||
        folder.compare(0, store.size() + 1, store + kPathSeparator) != 0)
        return false;
    return folders.Unused(folder) && FSDeleteEmptyFolder(folder);
}

void DeleteIfOrphan(const std::string& path, const std::string& store,
                    const SignaturesInUse& signatures, FolderReferences& folders) {
    if (signatures.Keeps(SignatureOfName(FSGetNamePart(path)))) return;
    FSDeleteFile(path);
    std::string folder = FSGetPathPart(path);
    folder.pop_back();
    if (!DeleteUnusedFolder(folder, store, folders)) return;
    // One level up: less "/" and the two-character folder name.
    DeleteUnusedFolder(folder.substr(0, folder.size() >= 3 ? folder.size() - 3 : 0), store,
                       folders);
}

} // namespace

void SetMaintenanceView(MaintenanceView view) {
    View() = std::move(view);
}

void ShowMaintenanceProgress(int32_t percent) {
    if (const auto& progress = View().progress) progress(percent);
}

void CompactCatalogue() {
    PruneDBTree();
    KillOrphans();
    VacuumDB();
}

void PruneAllSources() {
    ADOSQLite db;
    QueryCatalogue(db, "Sources", sqlaction::kSelect);
    for (db.MoveFirst(); !db.Eof(); db.MoveNext()) {
        int16_t limit = -1;
        PruneSource(db.Field("source"), limit);
    }
}

void PruneSource(const std::string& source, int16_t& limit) {
    if (limit == -1) limit = SetupToInt(GetSetupValue("MaxBackups"));
    // 0, an absent or empty setting, and every other limit below 1 keep ten runs: a limit below
    // 1 taken as it stands would drop every run of the source, and Compact then its content.
    if (limit < 1) limit = 10;
    ADOSQLite db;
    QueryCatalogue(db, "Backups", sqlaction::kSelect, "source = " + SQLLiteral(source), "bid");
    // Runs are dropped oldest first (ascending bid); the newest `limit` stay.
    if (limit >= db.RecordCount()) return;
    const int32_t drop = db.RecordCount() - limit;
    for (int32_t i = 0; i < drop; ++i) {
        DeleteBackupRun(ToInt32(TextToNumber(db.Field("bid"))));
        db.MoveNext();
    }
    PruneMetadata();
}

void PruneMetadata() {
    ADOSQLite db;
    QueryCatalogue(db, "Backups", sqlaction::kSelect, "", "bid");
    if (db.Err()) return; // the catalogue's own error is reported; nothing is dropped blindly
    std::vector<std::pair<int32_t, std::string>> runs;
    for (db.MoveFirst(); !db.Eof(); db.MoveNext())
        runs.emplace_back(ToInt32(TextToNumber(db.Field("bid"))), db.Field("datebk"));
    if (!CMetadataDB::KeepOnly(CMetadataDB::PathBeside(GetDBPath()), runs))
        Log(2, "The metadata of runs that went could not be dropped");
}

void TidyMetadata() {
    if (GetBackupPath().empty() || !StatusOf(GetDBPath()).Exists() ||
        !StatusOf(CMetadataDB::PathBeside(GetDBPath())).Exists())
        return;
    PruneMetadata();
}

void DeleteBackupRun(int32_t bid) {
    ADOSQLite db;
    QueryCatalogue(db, "Backups", sqlaction::kDelete, "bid = " + NumText(bid));
}

void PruneDBTree() {
    Log(2, "Pruning DB tree");
    Status("Pruning DB tree");
    DoEvents();
    PruneDBFiles();
    DoEvents();
    PruneDBPaths();
    PruneMetadata();
}

void PruneDBFiles() {
    Log(3, " Prune DB Files tree");
    ExecAsIs("DELETE FROM Files WHERE bid IN (SELECT Files.bid FROM Files LEFT JOIN Backups ON "
             "Files.bid=Backups.bid WHERE (((Backups.bid) Is Null)));");
}

void PruneDBPaths() {
    Log(3, " Prune DB Paths tree");
    ExecAsIs("DELETE FROM Paths WHERE bid IN (SELECT Paths.bid FROM Paths LEFT JOIN Backups ON "
             "Paths.bid=Backups.bid WHERE (((Backups.bid) Is Null)));");
}

bool KillOrphans() {
    CProcTrap trap("KillOrphans");
    try {
        trap.Check();
        // A damaged catalogue must never cause store files to be deleted.
        if (!IntegrityCheck()) return false;
        CDriveMap finder;
        CDatabase db;
        const std::string filesPath = FSBuildPath(GetBackupPath(), "Files");

        Log(3, "Kill orphans");
        Operation("Finding files");
        Status("Finding files");
        DoEvents();
        finder.Hidden(true);
        finder.System(true);
        finder.SourcePath(filesPath);
        finder.Exec();

        db.Connect(GetDBPath());
        Operation("KillOrphans main loop");
        Status("Del. unused files");
        DoEvents();
        SignaturesInUse signatures;
        FolderReferences folders;
        std::string error;
        if (!signatures.Load(db.Connection(), error) || !folders.Load(db.Connection(), error)) {
            // Without the full list of references nothing can be called an orphan.
            Log(1, "Kill orphans stopped: " + error);
            return false;
        }

        const int32_t count = finder.FileCount();
        finder.MoveFirst();
        while (!finder.Eof()) {
            DeleteIfOrphan(finder.FilePath(), filesPath, signatures, folders);
            finder.MoveNext();
            const int32_t percent = static_cast<int32_t>(int64_t{finder.Idx()} * 100 / count);
            if (percent < 100) ShowMaintenanceProgress(percent);
            DoEvents();
        }
        return true;
    } catch (...) {
        trap.Handle();
        return false;
    }
}

bool IsBackupFolderUnused(const std::string& folder) {
    ADOSQLite db;
    QueryCatalogue(db, "Files", sqlaction::kSelect,
                   "backup LIKE " + SQLLiteral(folder + kPathSeparator + "%"));
    if (db.Err()) {
        MsgBox(db.ErrMsg(), mb::kCritical | mb::kOKOnly, "QRV - Stashwell");
        return false;
    }
    return db.RecordCount() == 0;
}

namespace {

// Run dates are "dd/mm/yyyy hh:mm:ss"; a log file's day is put in that form to be compared.
constexpr char kDateSeparator = '/'; // not a path separator

// Whether the log at `path` tells of a problem of a run (or cannot be read to find out).
bool HoldsProblems(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return true;
    const std::string mark = std::string(": ") + kProblemMark;
    // Read a piece at a time, each piece after the end of the one before it, so that a log of
    // any size costs little memory and a mark across two pieces is still found.
    std::string window;
    std::vector<char> piece(1 << 20);
    while (in.read(piece.data(), static_cast<std::streamsize>(piece.size())) || in.gcount() > 0) {
        window.append(piece.data(), static_cast<size_t>(in.gcount()));
        if (window.find(mark) != std::string::npos) return true;
        window.erase(0, window.size() - std::min(window.size(), mark.size() - 1));
    }
    return false;
}
} // namespace

void PurgeOldLogs() {
    CDriveMap finder;
    finder.SourcePath(GetLogsPath());
    finder.Exec();
    ADOSQLite db;
    QueryCatalogue(db, "Backups", sqlaction::kSelect);
    // Without the runs, every log would look like one of a day without a run.
    if (db.Err()) return;
    // Run dates are dd/MM/yyyy ...: a log QRV-yyyymmdd.LOG of a day with a run is kept.
    std::vector<std::string> runDates;
    for (int32_t row = 1; row <= db.RecordCount(); ++row) {
        db.MoveAbs(row);
        runDates.push_back(db.Field("datebk"));
    }
    std::unordered_set<std::string> runDays;
    for (const std::string& date : runDates)
        runDays.insert(date.substr(0, 10));

    finder.MoveFirst();
    while (!finder.Eof()) {
        const std::string& path = finder.FilePath();
        const size_t found = path.find("QRV-");
        const size_t p = found == std::string::npos ? 0 : found + 1;
        const std::string day = Mid(path, p + 10, 2) + kDateSeparator + Mid(path, p + 8, 2) +
                                kDateSeparator + Mid(path, p + 4, 4);
        bool backupDay = day.size() == 10 && runDays.count(day);
        if (day.size() != 10)
            for (const std::string& date : runDates)
                backupDay = backupDay || date.compare(0, day.size(), day) == 0;
        if (!backupDay && !HoldsProblems(path)) FSDeleteFile(path);
        finder.MoveNext();
    }
}

void VacuumDB() {
    Log(3, "Vacuum DB");
    ADOSQLite db;
    db.Connect(GetDBPath());
    db.Compress();
    if (!CMetadataDB::Vacuum(CMetadataDB::PathBeside(GetDBPath())))
        Log(2, "The metadata record could not be compacted");
}
