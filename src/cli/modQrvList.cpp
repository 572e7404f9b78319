#include "cli/modQrvList.h"

#include "app/modPaths.h"
#include "app/modRunDiff.h"
#include "catalogue/CMetadataDB.h"
#include "catalogue/modSQLQuote.h"
#include "cli/CQrvArgs.h"
#include "cli/CQrvCatalogue.h"
#include "cli/modQrvExit.h"
#include "cli/modQrvPaths.h"
#include "cli/modQrvText.h"
#include "platform/modFileSystem.h"
#include "platform/modPlatformPaths.h"
#include "support/modDateText.h"
#include "support/modFSCommon.h"
#include "support/modWildcard.h"

#include <algorithm>
#include <map>
#include <ostream>

namespace {

using Row = CQrvCatalogue::Row;

int Failed(const CQrvCatalogue& db, std::ostream& err) {
    err << "qrv: " << db.Problem() << "\n";
    return db.Status();
}

// `text` padded with blanks to `width` on the left (`right`) or on the right; never cut.
std::string Pad(const std::string& text, size_t width, bool right = true) {
    const std::string blanks(text.size() < width ? width - text.size() : 0, ' ');
    return right ? blanks + text : text + blanks;
}

std::string RunLine(const std::string& bid, const std::string& date, const std::string& files,
                    const std::string& bytes, const std::string& addedFiles,
                    const std::string& addedBytes) {
    return Pad(bid, 8) + "  " + Pad(date, 19, false) + "  " + Pad(files, 10) + "  " +
           Pad(bytes, 16) + "  " + Pad(addedFiles, 11) + "  " + Pad(addedBytes, 16) + "\n";
}

// A run's files and bytes, and those of its files whose content no earlier run holds: what
// the run added to the store (each of two files of new content counts).
struct RunTotals {
    std::string files = "0";
    std::string bytes = "0";
    std::string addedFiles = "0";
    std::string addedBytes = "0";
};

struct SourceGroup {
    std::string source;
    std::vector<QrvRun> runs;
};

void PrintRuns(const std::vector<SourceGroup>& groups,
               const std::map<std::string, RunTotals>& totals, bool json, std::ostream& out) {
    const auto total = [&](const std::string& bid) {
        const auto found = totals.find(bid);
        return found == totals.end() ? RunTotals() : found->second;
    };
    if (json) {
        out << "{\"backup_path\":" << JsonString(GetBackupPath()) << ",\"sources\":[";
        for (size_t g = 0; g < groups.size(); ++g) {
            out << (g ? "," : "") << "{\"source\":" << JsonString(groups[g].source)
                << ",\"runs\":[";
            for (size_t r = 0; r < groups[g].runs.size(); ++r) {
                const QrvRun& run = groups[g].runs[r];
                out << (r ? "," : "") << "{\"bid\":" << run.bid
                    << ",\"date\":" << JsonString(IsoDateText(run.datebk))
                    << ",\"files\":" << total(run.bid).files
                    << ",\"bytes\":" << total(run.bid).bytes
                    << ",\"added_files\":" << total(run.bid).addedFiles
                    << ",\"added_bytes\":" << total(run.bid).addedBytes << "}";
            }
            out << "]}";
        }
        out << "]}\n";
        return;
    }
    for (size_t g = 0; g < groups.size(); ++g) {
        out << (g ? "\n" : "") << LineText(groups[g].source) << "\n"
            << RunLine("bid", "date", "files", "bytes", "added files", "added bytes");
        for (const QrvRun& run : groups[g].runs) {
            const RunTotals totals = total(run.bid);
            out << RunLine(run.bid, LineText(run.datebk), totals.files, totals.bytes,
                           totals.addedFiles, totals.addedBytes);
        }
    }
}

} // namespace

int QrvRuns(const CQrvArgs& args, std::ostream& out, std::ostream& err) {
    CQrvCatalogue db;
    if (!db.Open()) return Failed(db, err);
    std::map<std::string, RunTotals> totals;
    const auto number = [](std::string_view text) {
        return text.empty() ? std::string("0") : std::string(text);
    };
    // The three reads below see the catalogue as one moment left it: a run that commits while
    // they go is in all of them or in none, never listed with its files uncounted. The read
    // lock is let go when the catalogue closes.
    if (!db.Rows("BEGIN", [](const Row&) {})) return Failed(db, err);
    if (!db.Rows("SELECT bid, count(*), sum(CAST(size AS INTEGER)) FROM Files GROUP BY bid",
                 [&](const Row& r) {
                     totals[std::string(r[0])] = {std::string(r[1]), number(r[2])};
                 }))
        return Failed(db, err);
    // What a run added: as its record tells it, for runs made since records keep it; for
    // older runs, the first run that holds each content added it.
    std::map<std::string, RunTally> kept;
    for (const KeptTally& tally : CMetadataDB::Tallies(CMetadataDB::PathBeside(GetDBPath())))
        kept[std::to_string(tally.bid) + "|" + tally.datebk] = tally.tally;
    if (!db.Rows("SELECT f.bid, count(*), sum(CAST(f.size AS INTEGER)) FROM Files f JOIN "
                 "(SELECT md5, min(bid) AS first FROM Files GROUP BY md5) m "
                 "ON m.md5 = f.md5 AND m.first = f.bid GROUP BY f.bid",
                 [&](const Row& r) {
                     RunTotals& run = totals[std::string(r[0])];
                     run.addedFiles = std::string(r[1]);
                     run.addedBytes = number(r[2]);
                 }))
        return Failed(db, err);
    std::string wanted;
    if (!args.Arguments().empty()) {
        const std::string& given = args.Arguments()[0];
        wanted = TidyPath(FSFullPath(given));
    }
    std::vector<SourceGroup> groups;
    if (!db.Rows("SELECT bid, source, datebk FROM Backups ORDER BY source, bid DESC",
                 [&](const Row& r) {
                     QrvRun run{std::string(r[0]), std::string(r[1]), std::string(r[2])};
                     const std::string source = TidyPath(run.source);
                     if (!wanted.empty() && wanted != source) return;
                     if (groups.empty() || groups.back().source != run.source)
                         groups.push_back({run.source, {}});
                     groups.back().runs.push_back(std::move(run));
                 }))
        return Failed(db, err);
    if (!wanted.empty() && groups.empty()) {
        err << "qrv: the catalogue holds no run of " << LineText(wanted) << "\n";
        return kQrvCannotOpen;
    }
    for (const SourceGroup& group : groups)
        for (const QrvRun& run : group.runs)
            if (const auto found = kept.find(run.bid + "|" + run.datebk); found != kept.end()) {
                totals[run.bid].addedFiles = std::to_string(found->second.added);
                totals[run.bid].addedBytes = std::to_string(found->second.addedBytes);
            }
    PrintRuns(groups, totals, args.Json(), out);
    return kQrvDone;
}

int QrvLs(const CQrvArgs& args, std::ostream& out, std::ostream& err) {
    CQrvCatalogue db;
    QrvRun run;
    if (!db.Open() || !db.Run(args.Arguments()[0], run)) return Failed(db, err);
    const std::string folder = StoredRunPath(
        run.source, args.Arguments().size() > 1 ? args.Arguments()[1] : "", run.storedBeforeEscape);
    const std::string key = FSIsRoot(folder) ? folder : folder + kPathSeparator;
    bool known = false;
    std::vector<std::string> folders;
    if (!db.Rows("SELECT path FROM Paths WHERE bid = " + run.bid, [&](const Row& r) {
            const std::string path = TidyStoredPath(std::string(r[0]));
            if (path + kPathSeparator == key || path == key) known = true;
            const size_t slash = StoredLastSeparator(path);
            if (slash != std::string::npos && path.substr(0, slash + 1) == key)
                folders.push_back(StoredPathBytes(path.substr(slash + 1)));
        }))
        return Failed(db, err);
    if (!known) {
        err << "qrv: run " << run.bid << " holds no folder " << LineText(StoredPathBytes(folder))
            << "\n";
        return kQrvCannotOpen;
    }
    struct Entry {
        std::string name, size, signature;
        bool operator<(const Entry& other) const { return name < other.name; }
    };
    std::vector<Entry> files;
    if (!db.Rows("SELECT file, size, md5 FROM Files WHERE bid = " + run.bid +
                     " AND path = " + SQLLiteral(key),
                 [&](const Row& r) {
                     const std::string file(r[0]);
                     files.push_back({StoredPathBytes(file.substr(StoredLastSeparator(file) + 1)),
                                      std::string(r[1]), std::string(r[2])});
                 }))
        return Failed(db, err);
    std::sort(folders.begin(), folders.end());
    std::sort(files.begin(), files.end());
    if (args.Json()) {
        out << "{\"bid\":" << run.bid << ",\"source\":" << JsonString(run.source)
            << ",\"folder\":" << JsonString(StoredPathBytes(folder)) << ",\"folders\":[";
        for (size_t k = 0; k < folders.size(); ++k)
            out << (k ? "," : "") << JsonString(folders[k]);
        out << "],\"files\":[";
        for (size_t k = 0; k < files.size(); ++k)
            out << (k ? "," : "") << "{\"name\":" << JsonString(files[k].name)
                << ",\"size\":" << (files[k].size.empty() ? "0" : files[k].size)
                << ",\"signature\":" << JsonString(files[k].signature) << "}";
        out << "]}\n";
        return kQrvDone;
    }
    for (const std::string& name : folders)
        out << Pad("-", 12) << "  " << LineText(name) << "/\n";
    for (const Entry& file : files)
        out << Pad(file.size, 12) << "  " << LineText(file.name) << "\n";
    return kQrvDone;
}

int QrvFind(const CQrvArgs& args, std::ostream& out, std::ostream& err) {
    CQrvCatalogue db;
    if (!db.Open()) return Failed(db, err);
    const std::string& pattern = args.Arguments()[0];
    bool any = false;
    if (args.Json()) out << "{\"pattern\":" << JsonString(pattern) << ",\"matches\":[";
    if (!db.Rows("SELECT f.bid, b.datebk, f.file FROM Files f JOIN Backups b ON b.bid = f.bid "
                 "ORDER BY f.bid DESC, f.fid",
                 [&](const Row& r) {
                     const std::string path = StoredPathBytes(std::string(r[2]));
                     const std::string name = path.substr(FSLastSeparator(path) + 1);
                     if (!WildcardMatch(pattern, name)) return;
                     if (args.Json())
                         out << (any ? "," : "") << "{\"bid\":" << r[0]
                             << ",\"date\":" << JsonString(IsoDateText(std::string(r[1])))
                             << ",\"path\":" << JsonString(path) << "}";
                     else
                         out << Pad(std::string(r[0]), 8) << "  "
                             << Pad(LineText(std::string(r[1])), 19, false) << "  "
                             << LineText(path) << "\n";
                     any = true;
                 })) {
        if (args.Json()) out << "]}\n";
        return Failed(db, err);
    }
    if (args.Json()) out << "]}\n";
    if (!any && !args.Json())
        err << "qrv: no file of any run matches " << LineText(pattern) << "\n";
    return any ? kQrvDone : kQrvProblems;
}

int QrvDiff(const CQrvArgs& args, std::ostream& out, std::ostream& err) {
    CQrvCatalogue db;
    QrvRun later, earlier;
    if (!db.Open()) return Failed(db, err);
    const CatalogueQuery query = [&db](const std::string& statement, const auto& row) {
        return db.Rows(statement, row);
    };
    const std::vector<std::string>& bids = args.Arguments();
    if (bids.size() == 2) {
        if (!db.Run(bids[0], earlier) || !db.Run(bids[1], later)) return Failed(db, err);
    } else {
        if (!db.Run(bids[0], later)) return Failed(db, err);
        std::string previous;
        if (!PreviousRun(query, later.bid, previous)) return Failed(db, err);
        if (previous.empty()) {
            err << "qrv: run " << later.bid << " is the first run of " << LineText(later.source)
                << ": there is no run before it to compare it with\n";
            return kQrvCannotOpen;
        }
        if (!db.Run(previous, earlier)) return Failed(db, err);
    }
    size_t counts[3] = {};
    if (args.Json())
        out << "{\"earlier\":{\"bid\":" << earlier.bid
            << ",\"source\":" << JsonString(earlier.source)
            << ",\"date\":" << JsonString(IsoDateText(earlier.datebk))
            << "},\"later\":{\"bid\":" << later.bid << ",\"source\":" << JsonString(later.source)
            << ",\"date\":" << JsonString(IsoDateText(later.datebk)) << "},\"changes\":[";
    const bool read = DiffRuns(query, earlier.bid, later.bid, [&](const RunChange& change) {
        const size_t kind = static_cast<size_t>(change.kind);
        const bool added = change.kind == RunChange::Kind::kAdded;
        const uint64_t size =
            added || change.kind == RunChange::Kind::kChanged ? change.after : change.before;
        if (args.Json()) {
            out << (counts[0] + counts[1] + counts[2] ? "," : "")
                << "{\"change\":" << JsonString(ChangeWord(change.kind))
                << ",\"path\":" << JsonString(change.path) << ",\"size\":" << size;
            if (change.kind == RunChange::Kind::kChanged)
                out << ",\"size_before\":" << change.before;
            out << "}";
        } else {
            out << Pad(ChangeWord(change.kind), 7, false) << "  " << Pad(std::to_string(size), 12)
                << "  " << LineText(change.path);
            if (change.kind == RunChange::Kind::kChanged) out << "  (was " << change.before << ")";
            out << "\n";
        }
        ++counts[kind];
    });
    if (args.Json()) out << "]}\n";
    if (!read) return Failed(db, err);
    if (!args.Json())
        out << counts[0] << " added, " << counts[1] << " changed, " << counts[2]
            << " removed from run " << earlier.bid << " to run " << later.bid << ".\n";
    return kQrvDone;
}
