#include "app/CBackupBrowser.h"

#include "app/CBackupFolderLock.h"
#include "app/modCatalogueQuery.h"
#include "app/modMainWindow.h"
#include "app/modPaths.h"
#include "app/modRestore.h"
#include "app/modRunSummary.h"
#include "catalogue/CMetadataDB.h"
#include "catalogue/modBulkQuery.h"
#include "catalogue/modSQLQuote.h"
#include "platform/modFileSystem.h"
#include "support/CByteProgress.h"
#include "support/CProcTrap.h"
#include "support/modDateText.h"
#include "support/modFSCommon.h"
#include "support/modMsgBox.h"
#include "support/modNaturalOrder.h"
#include "support/modNumText.h"
#include "support/modServices.h"
#include "support/modWildcard.h"
#include "support/modYield.h"

#include <algorithm>
#include <cstdlib>

namespace {

bool IsFolderImage(int32_t image) {
    return image == 1 || image == 2;
}

// The last component of a stored path, in real bytes.
std::string ShownName(const std::string& stored) {
    return StoredPathBytes(stored.substr(StoredLastSeparator(stored) + 1));
}

// The key of the run's own folder `folder` (ending in "/"): its stored form, or, for a run
// stored before names kept their backslashes, the older form that its folder rows begin with.
// The two differ only when the folder's own path holds a "\" or the escape byte.
std::string RootKey(ADOSQLite& paths, const std::string& folder) {
    const std::string stored = SQLQuoteEncode(folder);
    const std::string before = SQLQuoteEncodeBeforeEscape(folder);
    if (before == stored) return stored;
    for (int32_t row = 1; row <= paths.RecordCount(); ++row) {
        paths.MoveAbs(row);
        if (paths.Field("path").compare(0, before.size(), before) == 0) return before;
    }
    return stored;
}

// A folder of at least this many files has the times of its files read from the record at once.
constexpr int64_t kManyFiles = 256;

// Folders before files, each in natural order.
bool ComesBefore(const BrowserNode& a, const BrowserNode& b) {
    const bool aFolder = IsFolderImage(a.image);
    if (aFolder != IsFolderImage(b.image)) return aFolder;
    return a.sortKey < b.sortKey;
}

// The path under which the run's metadata record keeps the entry of the node keyed `key`.
std::string RecordPath(const std::string& key) {
    std::string path = StoredPathBytes(key);
    if (path.size() > 1 && IsPathSeparator(path.back())) path.pop_back();
    return path;
}

// A time of the record as the catalogue writes its dates.
std::string WrittenText(int64_t writeNs) {
    constexpr int64_t kNsPerSecond = 1'000'000'000;
    int64_t seconds = writeNs / kNsPerSecond;
    if (writeNs % kNsPerSecond < 0) --seconds;
    return DateTimeText(static_cast<std::time_t>(seconds));
}

// Sets a flag for the life of the scope.
class CScopedFlag {
public:
    explicit CScopedFlag(bool& flag) : m_flag(flag) { m_flag = true; }
    ~CScopedFlag() { m_flag = false; }
    CScopedFlag(const CScopedFlag&) = delete;
    CScopedFlag& operator=(const CScopedFlag&) = delete;

private:
    bool& m_flag;
};

} // namespace

int32_t FileKindImage(const std::string& name) {
    static const std::unordered_map<std::string, int32_t> kinds = {
        {"TXT", 16}, {"DOC", 15}, {"DOT", 15}, {"PPT", 14}, {"PPS", 14}, {"XLS", 13}, {"XLW", 13},
        {"MDB", 12}, {"MDE", 12}, {"JPG", 11}, {"GIF", 11}, {"BMP", 11}, {"AVI", 10}, {"MPG", 10},
        {"VOB", 10}, {"WAV", 9},  {"MP3", 9},  {"OGG", 9},  {"WMA", 9},  {"HTM", 8},  {"HTML", 8},
        {"TTF", 7},  {"MSI", 6},  {"ZIP", 5},  {"RAR", 5},  {"DLL", 4},  {"INI", 4},  {"OCX", 4}};
    const auto kind = kinds.find(FSGetExtension(name));
    return kind == kinds.end() ? 3 : kind->second;
}

int32_t CBackupBrowser::Find(const std::string& key) const {
    const auto found = m_byKey.find(key);
    return found == m_byKey.end() ? kNone : found->second;
}

const std::vector<int32_t>& CBackupBrowser::Children(int32_t node) const {
    return m_search.empty() ? Node(node).children : Node(node).shown;
}

TickState CBackupBrowser::Ticks(int32_t node) const {
    const BrowserNode& n = Node(node);
    if (!IsFolderImage(n.image) || n.below == 0)
        return n.checked ? TickState::kTicked : TickState::kUnticked;
    if (n.checked && n.tickedBelow == n.below) return TickState::kTicked;
    if (!n.checked && n.tickedBelow == 0) return TickState::kUnticked;
    return TickState::kPartly;
}

const char* CBackupBrowser::ColumnTitle(int column) {
    static const char* const kTitles[kColumns] = {"Name", "Size", "Modified"};
    return column >= 0 && column < kColumns ? kTitles[column] : "";
}

std::string CBackupBrowser::ColumnText(int32_t node, int column) const {
    const BrowserNode& n = Node(node);
    switch (column) {
    case 0:
        return n.text;
    case 1:
        return n.size >= 0 ? ByteSizeText(static_cast<uint64_t>(n.size)) : std::string();
    case 2:
        return n.writeNs != kNoTime ? WrittenText(n.writeNs) : m_datebk;
    default:
        return {};
    }
}

std::string CBackupBrowser::SelectionText() const {
    if (m_tickedFiles == 0) return "No files selected";
    return GroupedCount(m_tickedFiles) + (m_tickedFiles == 1 ? " file, " : " files, ") +
           ByteSizeText(static_cast<uint64_t>(std::max<int64_t>(m_tickedBytes, 0))) + " selected";
}

std::string CBackupBrowser::SearchText() const {
    if (m_search.empty()) return {};
    if (m_matches == 0) return "No file of this run matches";
    return GroupedCount(m_matches) + (m_matches == 1 ? " file matches" : " files match");
}

void CBackupBrowser::Clear() {
    if (m_restoring) return;
    if (OnAboutToReset) OnAboutToReset();
    m_nodes.clear();
    m_byKey.clear();
    m_folderTotals.clear();
    m_tickedFiles = 0;
    m_tickedBytes = 0;
    m_search.clear();
    m_matches = 0;
    if (OnReset) OnReset();
    Selection();
}

void CBackupBrowser::Status(const std::string& text) {
    if (OnStatus) OnStatus(text);
}

void CBackupBrowser::Changed(int32_t node) {
    if (OnChanged && !Node(node).hidden) OnChanged(node);
}

void CBackupBrowser::Selection() {
    if (OnSelection) OnSelection();
}

// The node goes among its parent's children where it belongs; while a search is shown it
// stays out of sight.
int32_t CBackupBrowser::Insert(int32_t parent, BrowserNode node) {
    node.sortKey = NaturalSortKey(node.text);
    size_t at = 0;
    if (parent != kNone) {
        const std::vector<int32_t>& children = Node(parent).children;
        at = static_cast<size_t>(std::upper_bound(children.begin(), children.end(), node,
                                                  [&](const BrowserNode& n, int32_t child) {
                                                      return ComesBefore(n, Node(child));
                                                  }) -
                                 children.begin());
    }
    const bool shown = m_search.empty();
    const auto row = static_cast<int32_t>(at);
    if (shown && OnAboutToInsert) OnAboutToInsert(parent, row, row);
    const int32_t index = Add(parent, std::move(node), at);
    if (shown) {
        Renumber(parent, at + 1);
    } else {
        m_nodes[static_cast<size_t>(index)].hidden = true;
    }
    if (shown && OnInserted) OnInserted(parent, row, row);
    const BrowserNode& added = Node(index);
    if (shown && added.expanded) Changed(index);
    Counted(parent, 1, added.checked ? 1 : 0);
    return index;
}

// A folder's files, all new: after what it holds when they sort after it (as they do when it
// had none), told to a view at once; else one by one.
void CBackupBrowser::InsertFiles(int32_t parent, std::vector<BrowserNode> files) {
    if (files.empty()) return;
    for (BrowserNode& file : files)
        file.sortKey = NaturalSortKey(file.text);
    // Sorted by their places, so that no node is moved but once.
    std::vector<size_t> order(files.size());
    for (size_t k = 0; k < order.size(); ++k)
        order[k] = k;
    std::stable_sort(order.begin(), order.end(),
                     [&](size_t a, size_t b) { return ComesBefore(files[a], files[b]); });
    std::vector<BrowserNode> sorted;
    sorted.reserve(files.size());
    for (size_t k = 0; k < order.size(); ++k)
        // Two rows of one place (an older catalogue's): the first stays.
        if (k == 0 || files[order[k]].key != sorted.back().key)
            sorted.push_back(std::move(files[order[k]]));
    files = std::move(sorted);
    m_nodes.reserve(m_nodes.size() + files.size());
    m_byKey.reserve(m_byKey.size() + files.size());
    const std::vector<int32_t>& children = Node(parent).children;
    if (!m_search.empty() || (!children.empty() && !ComesBefore(Node(children.back()), files[0]))) {
        for (BrowserNode& file : files)
            Insert(parent, std::move(file));
        return;
    }
    const auto first = static_cast<int32_t>(children.size());
    const auto last = first + static_cast<int32_t>(files.size()) - 1;
    if (OnAboutToInsert) OnAboutToInsert(parent, first, last);
    int32_t ticked = 0;
    for (BrowserNode& file : files) {
        ticked += file.checked ? 1 : 0;
        Add(parent, std::move(file), Node(parent).children.size());
    }
    if (OnInserted) OnInserted(parent, first, last);
    Counted(parent, static_cast<int32_t>(files.size()), ticked);
}

int32_t CBackupBrowser::Add(int32_t parent, BrowserNode node, size_t at) {
    const auto index = static_cast<int32_t>(m_nodes.size());
    node.parent = parent;
    node.row = static_cast<int32_t>(at);
    if (node.checked && !IsFolderImage(node.image)) {
        ++m_tickedFiles;
        m_tickedBytes += std::max<int64_t>(node.size, 0);
    }
    m_byKey.emplace(node.key, index);
    m_nodes.push_back(std::move(node));
    if (parent != kNone) {
        std::vector<int32_t>& children = m_nodes[static_cast<size_t>(parent)].children;
        children.insert(children.begin() + static_cast<std::ptrdiff_t>(at), index);
    }
    return index;
}

void CBackupBrowser::Renumber(int32_t parent, size_t from) {
    if (parent == kNone) return;
    const std::vector<int32_t>& children = Node(parent).children;
    for (size_t k = from; k < children.size(); ++k)
        m_nodes[static_cast<size_t>(children[k])].row = static_cast<int32_t>(k);
}

// `loaded` nodes more below `node`, `ticked` of them ticked (or fewer, when negative): the
// folders up to the root count them, and show a tick that changed.
void CBackupBrowser::Counted(int32_t node, int32_t loaded, int32_t ticked) {
    for (int32_t at = node; at != kNone; at = Node(at).parent) {
        const TickState before = Ticks(at);
        BrowserNode& n = m_nodes[static_cast<size_t>(at)];
        n.below += loaded;
        n.tickedBelow += ticked;
        if (Ticks(at) != before) Changed(at);
    }
}

void CBackupBrowser::SetChecked(int32_t node, bool checked) {
    BrowserNode& n = m_nodes[static_cast<size_t>(node)];
    if (n.checked == checked) return;
    n.checked = checked;
    if (!IsFolderImage(n.image)) {
        m_tickedFiles += checked ? 1 : -1;
        m_tickedBytes += (checked ? 1 : -1) * std::max<int64_t>(n.size, 0);
    } else if (!n.populated) {
        PendingFiles(node, checked ? 1 : -1);
    }
    const int32_t parent = n.parent;
    Changed(node);
    Counted(parent, 0, checked ? 1 : -1);
}

// The files of a ticked folder that are not loaded yet count in the totals as the catalogue
// has them.
void CBackupBrowser::PendingFiles(int32_t folder, int sign) {
    const auto totals = m_folderTotals.find(Node(folder).key);
    if (totals == m_folderTotals.end()) return;
    m_tickedFiles += sign * totals->second.first;
    m_tickedBytes += sign * totals->second.second;
}

void CBackupBrowser::LoadFolderTotals() {
    m_folderTotals.clear();
    ADOSQLite db;
    if (!db.Connect(GetDBPath())) return;
    std::string error;
    ForEachRow(
        db, "SELECT path, COUNT(*), SUM(size) FROM Files WHERE bid = " + m_bid + " GROUP BY path",
        [&](const auto& row) {
            m_folderTotals[std::string(row[0])] = {
                std::strtoll(std::string(row[1]).c_str(), nullptr, 10),
                std::strtoll(std::string(row[2]).c_str(), nullptr, 10)};
        },
        error);
}

bool CBackupBrowser::OpenRecord(CMetadataReader& record) const {
    return !m_datebk.empty() &&
           record.Open(CMetadataDB::PathBeside(GetDBPath()),
                       ToInt32(std::strtol(m_bid.c_str(), nullptr, 10)), m_datebk);
}

void CBackupBrowser::KeepRecordOpen(CMetadataReader* record) {
    m_record = record;
    m_recorded = record && OpenRecord(*record);
}

void CBackupBrowser::Search(const std::string& search) {
    CProcTrap trap("Search");
    try {
        trap.Check();
        if (m_restoring || Root() == kNone || search == m_search) return;
        std::vector<int32_t> matches;
        if (!search.empty()) {
            // The run's files whose names match, and the folders they are in, loaded.
            std::vector<std::pair<std::string, std::string>> found; // folder key, file key
            ADOSQLite db;
            std::string error;
            if (db.Connect(GetDBPath()))
                ForEachRow(
                    db, "SELECT path, file FROM Files WHERE bid = " + m_bid,
                    [&](const auto& row) {
                        std::string file(row[1]);
                        if (NameMatches(search, ShownName(file)))
                            found.emplace_back(std::string(row[0]), std::move(file));
                    },
                    error);
            CMetadataReader record;
            KeepRecordOpen(&record);
            std::unordered_set<std::string> folders;
            for (const auto& [folder, file] : found) {
                const int32_t node = Find(folder);
                if (node != kNone && !Node(node).populated && folders.insert(folder).second)
                    PopulateNode(node);
            }
            KeepRecordOpen(nullptr);
            std::unordered_set<int32_t> seen;
            for (const auto& [folder, file] : found) {
                const int32_t node = Find(file);
                if (node != kNone && seen.insert(node).second) matches.push_back(node);
            }
        }
        if (OnAboutToReset) OnAboutToReset();
        m_search = search;
        m_matches = static_cast<int64_t>(matches.size());
        Reshow(matches);
        if (OnReset) OnReset();
        // The view opens what is open.
        for (int32_t node = 0; node < NodeCount(); ++node)
            if (Node(node).expanded) Changed(node);
    } catch (...) {
        KeepRecordOpen(nullptr);
        trap.Handle();
    }
}

// Which nodes a view shows, and their rows: every node without a search; with one, the root,
// the matches and the folders they are in, opened.
void CBackupBrowser::Reshow(const std::vector<int32_t>& matches) {
    const bool searching = !m_search.empty();
    for (BrowserNode& node : m_nodes) {
        node.shown.clear();
        node.hidden = searching;
    }
    if (Root() == kNone) return;
    m_nodes[0].hidden = false;
    for (const int32_t match : matches) {
        for (int32_t at = match; at != kNone && Node(at).hidden; at = Node(at).parent)
            m_nodes[static_cast<size_t>(at)].hidden = false;
        for (int32_t at = Node(match).parent; at != kNone && !Node(at).expanded;
             at = Node(at).parent)
            m_nodes[static_cast<size_t>(at)].expanded = true;
    }
    for (BrowserNode& node : m_nodes) {
        for (size_t k = 0; k < node.children.size(); ++k) {
            BrowserNode& child = m_nodes[static_cast<size_t>(node.children[k])];
            if (!searching) {
                child.row = static_cast<int32_t>(k);
            } else if (!child.hidden) {
                child.row = static_cast<int32_t>(node.shown.size());
                node.shown.push_back(node.children[k]);
            }
        }
    }
}

void CBackupBrowser::cmbBackups_Click(const std::string& bid) {
    CProcTrap trap("cmbBackups_Click");
    try {
        trap.Check();
        if (m_restoring) return;
        m_bid = bid;
        ADOSQLite run;
        QueryCatalogue(run, "Backups", sqlaction::kSelect, "bid = " + bid);
        // The run keeps its source as it stands and its folders in their stored form.
        std::string rootText = run.RecordCount() >= 1 ? run.Field("source") : std::string();
        m_datebk = run.RecordCount() >= 1 ? run.Field("datebk") : std::string();
        if (rootText.empty() || !IsPathSeparator(rootText.back())) rootText += kPathSeparator;
        ADOSQLite paths;
        QueryCatalogue(paths, "Paths", sqlaction::kSelect, "bid = " + bid, "path");
        const std::string rootKey = RootKey(paths, rootText);

        Clear();
        LoadFolderTotals();
        CMetadataReader record;
        const bool recorded = OpenRecord(record);
        const auto writtenAt = [&](const std::string& key) {
            const std::optional<EntryMetadata> entry =
                recorded ? record.Find(RecordPath(key)) : std::nullopt;
            return entry ? entry->writeNs : kNoTime;
        };
        BrowserNode root;
        root.key = rootKey;
        root.text = rootText;
        root.expanded = true;
        root.writeNs = writtenAt(rootKey);
        Insert(kNone, std::move(root));
        const int32_t rows = paths.RecordCount();
        Status("Populating tree: " + NumText(rows) + " folders");
        for (int32_t row = 1; row <= rows; ++row) {
            paths.MoveAbs(row);
            const std::string path = paths.Field("path");
            std::string stripped = path;
            if (!stripped.empty() && IsStoredSeparator(stripped.back())) stripped.pop_back();
            const std::string name = stripped.substr(StoredLastSeparator(stripped) + 1);
            const size_t parentLength =
                path.size() >= name.size() + 1 ? path.size() - name.size() - 1 : std::string::npos;
            // The run's own folder is the root; a folder whose parent is not in the run (a
            // damaged catalogue) has no place in the tree.
            const int32_t parent =
                parentLength == std::string::npos ? kNone : Find(path.substr(0, parentLength));
            if (parent != kNone && Find(path) == kNone) {
                BrowserNode folder;
                folder.key = path;
                folder.text = ShownName(stripped);
                folder.writeNs = writtenAt(path);
                Insert(parent, std::move(folder));
            }
            if (OnProgress) OnProgress(ToInt32(double(row) / rows * 100));
            DoEvents();
        }
        Status("Ready");
    } catch (...) {
        trap.Handle();
    }
}

void CBackupBrowser::NodeClick(int32_t node) {
    if (m_restoring) return;
    Log(3, Node(node).key);
    BrowserNode& n = m_nodes[static_cast<size_t>(node)];
    if (n.expanded) {
        n.expanded = false;
        n.image = 1;
        Changed(node);
        return;
    }
    n.expanded = true;
    Changed(node);
    PopulateNode(node);
}

void CBackupBrowser::NodeCheck(int32_t node, bool checked) {
    if (m_restoring) return;
    Log(3, "checkboxclick " + Node(node).key + ". Status: " + (checked ? "True" : "False"));
    SetChecked(node, checked);
    if (checked) {
        PopulateNode(node);
        TickChildren(node);
    } else {
        UntickChildren(node);
    }
    Selection();
}

void CBackupBrowser::TickChildren(int32_t node) {
    const size_t count = Node(node).children.size();
    for (size_t k = 0; k < count; ++k) {
        const int32_t child = Node(node).children[k];
        if (!Node(child).children.empty()) TickChildren(child);
        SetChecked(child, true);
    }
}

void CBackupBrowser::UntickChildren(int32_t node) {
    if (!IsFolderImage(Node(node).image)) return;
    const size_t count = Node(node).children.size();
    for (size_t k = 0; k < count; ++k) {
        const int32_t child = Node(node).children[k];
        if (!Node(child).children.empty()) UntickChildren(child);
        SetChecked(child, false);
    }
}

void CBackupBrowser::PopulateNode(int32_t node) {
    CProcTrap trap("PopulateNode");
    try {
        trap.Check();
        ADOSQLite files;
        QueryCatalogue(files, "Files", sqlaction::kSelect,
                       "bid = " + m_bid + " AND path = " + SQLLiteral(Node(node).key));
        if (files.Err())
            MsgBox("PopulateNode error: " + files.ErrMsg(), mb::kCritical, kWindowTitle);
        const bool ticked = Node(node).checked;
        // The files' own times where the run kept them: looked up one by one, or for a
        // folder of many files read at once.
        CMetadataReader ownRecord;
        CMetadataReader* record = m_record ? m_record : &ownRecord;
        const bool recorded = m_record ? m_recorded : OpenRecord(ownRecord);
        std::unordered_map<std::string, int64_t> times;
        const auto totals = m_folderTotals.find(Node(node).key);
        const bool many = totals != m_folderTotals.end() && totals->second.first >= kManyFiles;
        if (recorded && many)
            record->InFolder(RecordPath(Node(node).key), [&](const EntryMetadata& entry) {
                times.emplace(entry.path.substr(entry.path.find_last_of(kPathSeparator) + 1),
                              entry.writeNs);
            });
        std::vector<BrowserNode> leaves;
        leaves.reserve(static_cast<size_t>(std::max(files.RecordCount(), 0)));
        for (int32_t row = 1; row <= files.RecordCount(); ++row) {
            files.MoveAbs(row);
            std::string file = files.Field("file");
            if (Find(file) != kNone) continue;
            BrowserNode leaf;
            leaf.text = ShownName(file);
            leaf.image = FileKindImage(leaf.text);
            leaf.selectedImage = leaf.image;
            leaf.checked = ticked;
            leaf.size =
                std::max<int64_t>(std::strtoll(files.Field("size").c_str(), nullptr, 10), 0);
            if (many) {
                const auto time = times.find(leaf.text);
                if (time != times.end()) leaf.writeNs = time->second;
            } else if (recorded) {
                if (const auto entry = record->Find(StoredPathBytes(file)))
                    leaf.writeNs = entry->writeNs;
            }
            leaf.key = std::move(file);
            leaves.push_back(std::move(leaf));
        }
        if (!files.Err() && !Node(node).populated) {
            // The files counted from the catalogue while the folder was ticked unloaded are
            // counted as themselves from now on.
            if (ticked) PendingFiles(node, -1);
            m_nodes[static_cast<size_t>(node)].populated = true;
        }
        InsertFiles(node, std::move(leaves));
        Selection();
        DoEvents();
    } catch (...) {
        trap.Handle();
    }
}

void CBackupBrowser::LoadCheckedFolders(int32_t node) {
    const size_t count = Node(node).children.size();
    for (size_t k = 0; k < count; ++k) {
        const int32_t child = Node(node).children[k];
        if (!Node(child).children.empty()) LoadCheckedFolders(child);
        if (Node(child).checked && IsFolderImage(Node(child).image)) PopulateNode(child);
    }
}

int32_t CBackupBrowser::CountCheckedFiles(int32_t node) const {
    int32_t count = 0;
    for (const int32_t child : Node(node).children)
        count += CountCheckedFiles(child) +
                 (Node(child).checked && !IsFolderImage(Node(child).image) ? 1 : 0);
    return count;
}

void CBackupBrowser::RestoreWalk(int32_t node, CFileRestorer& restorer) {
    const size_t count = Node(node).children.size();
    for (size_t k = 0; k < count; ++k) {
        const int32_t child = Node(node).children[k];
        if (!Node(child).children.empty()) RestoreWalk(child, restorer);
        if (Node(child).checked && !IsFolderImage(Node(child).image)) {
            restorer.RestoreFile(Node(child).key);
            ++m_restored;
            if (OnProgress && m_toRestore > 0)
                OnProgress(ToInt32(double(m_restored) / m_toRestore * 100));
        }
    }
}

void CBackupBrowser::RestoreChecked(int32_t node, const std::string& destination, bool verify) {
    CFileRestorer restorer(m_bid, destination, verify);
    RestoreWalk(node, restorer);
    // The ticked folders are the chosen ones: their empty files and links, and their own times.
    std::unordered_set<std::string> folders;
    CollectCheckedFolders(node, folders);
    const std::string separator(1, kPathSeparator);
    restorer.RestoreEntries([&](const EntryMetadata& entry) {
        const std::string key = entry.kind == EntryMetadata::Kind::kFolder
                                    ? FSBuildPath(entry.path, separator)
                                    : FSGetPathPart(entry.path);
        return folders.count(SQLQuoteEncode(key)) > 0;
    });
}

void CBackupBrowser::CollectCheckedFolders(int32_t node,
                                           std::unordered_set<std::string>& folders) const {
    if (Node(node).checked && IsFolderImage(Node(node).image)) folders.insert(Node(node).key);
    for (const int32_t child : Node(node).children)
        CollectCheckedFolders(child, folders);
}

void CBackupBrowser::Restore(const std::string& destination, bool verify) {
    CScopedFlag restoring(m_restoring);
    // No compact may take store files away while they are restored.
    CBackupFolderLock lock;
    if (!LockBackupFolder(lock)) return;
    const bool elsewhere = !destination.empty();
    Status("Calculating files to restore");
    if (elsewhere) DoEvents();
    {
        CMetadataReader record;
        KeepRecordOpen(&record);
        if (Root() != kNone) LoadCheckedFolders(Root());
        KeepRecordOpen(nullptr);
    }
    Status("Restoring selected files");
    if (elsewhere) DoEvents();
    m_restored = 0;
    m_toRestore = Root() != kNone ? CountCheckedFiles(Root()) : 0;
    if (OnProgress) OnProgress(0);
    if (Root() != kNone) RestoreChecked(Root(), destination, verify);
    Status("Restore complete");
    if (elsewhere) DoEvents();
}

bool CBackupBrowser::cmdRestore_Click(bool verify) {
    if (m_restoring) return false;
    if (!AskToOverwrite()) return false;
    Restore("", verify);
    return true;
}

bool CBackupBrowser::cmdRestoreTo_Click(bool verify) {
    if (m_restoring) return false;
    const std::string folder = AskRestoreFolder();
    if (folder.empty()) return false;
    Restore(folder, verify);
    return true;
}
