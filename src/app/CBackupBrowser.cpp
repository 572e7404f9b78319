#include "app/CBackupBrowser.h"

#include "app/CBackupFolderLock.h"
#include "app/modCatalogueQuery.h"
#include "app/modMainWindow.h"
#include "app/modRestore.h"
#include "catalogue/modSQLQuote.h"
#include "platform/modFileSystem.h"
#include "support/CProcTrap.h"
#include "support/modBrowseFolder.h"
#include "support/modFSCommon.h"
#include "support/modMsgBox.h"
#include "support/modNumText.h"
#include "support/modServices.h"
#include "support/modYield.h"

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

void CBackupBrowser::Clear() {
    if (m_restoring) return;
    if (OnAboutToReset) OnAboutToReset();
    m_nodes.clear();
    m_byKey.clear();
    if (OnReset) OnReset();
}

void CBackupBrowser::Status(const std::string& text) {
    if (OnStatus) OnStatus(text);
}

int32_t CBackupBrowser::Append(int32_t parent, BrowserNode node) {
    const auto index = static_cast<int32_t>(m_nodes.size());
    const auto row = parent == kNone ? 0 : static_cast<int32_t>(Node(parent).children.size());
    if (OnAboutToAppend) OnAboutToAppend(parent, row, row);
    node.parent = parent;
    node.row = row;
    m_byKey.emplace(node.key, index);
    m_nodes.push_back(std::move(node));
    if (parent != kNone) m_nodes[static_cast<size_t>(parent)].children.push_back(index);
    if (OnAppended) OnAppended(index);
    return index;
}

void CBackupBrowser::SetChecked(int32_t node, bool checked) {
    BrowserNode& n = m_nodes[static_cast<size_t>(node)];
    if (n.checked == checked) return;
    n.checked = checked;
    if (OnChanged) OnChanged(node);
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
        if (rootText.empty() || !IsPathSeparator(rootText.back())) rootText += kPathSeparator;
        ADOSQLite paths;
        QueryCatalogue(paths, "Paths", sqlaction::kSelect, "bid = " + bid, "path");
        const std::string rootKey = RootKey(paths, rootText);

        Clear();
        BrowserNode root;
        root.key = rootKey;
        root.text = rootText;
        root.expanded = true;
        Append(kNone, std::move(root));
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
                Append(parent, std::move(folder));
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
        if (OnChanged) OnChanged(node);
        return;
    }
    n.expanded = true;
    if (OnChanged) OnChanged(node);
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
        for (int32_t row = 1; row <= files.RecordCount(); ++row) {
            files.MoveAbs(row);
            std::string file = files.Field("file");
            if (Find(file) != kNone) continue;
            BrowserNode leaf;
            leaf.text = ShownName(file);
            leaf.image = FileKindImage(leaf.text);
            leaf.selectedImage = leaf.image;
            leaf.checked = ticked;
            leaf.key = std::move(file);
            Append(node, std::move(leaf));
        }
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
    if (Root() != kNone) LoadCheckedFolders(Root());
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
    if (MsgBox("QRV will overwrite any existing files with the same name. Is this OK?",
               mb::kOKCancel | mb::kQuestion, kWindowTitle) != mb::kOK)
        return false;
    Restore("", verify);
    return true;
}

bool CBackupBrowser::cmdRestoreTo_Click(bool verify) {
    if (m_restoring) return false;
    const std::string folder = BrowseForFolder("Select alternate folder to restore to");
    if (folder.empty()) return false;
    Restore(folder, verify);
    return true;
}
