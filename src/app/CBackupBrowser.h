#pragma once

// The restore tab without the window: one backup run as a tree of check boxes (tvDirs), and
// the two restore commands that walk it. The folders of the run come in at once from Paths;
// the files of a folder only when it is opened or ticked (PopulateNode). Ticking a folder
// ticks what is below it; unticking a file changes nothing else.
//
// Node keys are the catalogue's stored (encoded) paths: a folder's ends in "/", a file's is its
// full path; texts are the last component in real bytes (StoredPathBytes), the root's the
// run's source. Both are bytes; the window decodes them only to show them. Images: 1 closed
// folder, 2 open folder, 3 to 16 file kinds (FileKindImage).
//
// Everything runs on the window's thread; observers let a view follow the tree as it changes.

#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

class CFileRestorer;

struct BrowserNode {
    std::string key;
    std::string text;
    int32_t image = 1;
    int32_t selectedImage = 2;
    bool checked = false;
    bool expanded = false;
    int32_t parent = -1;
    int32_t row = 0; // its place among its parent's children
    std::vector<int32_t> children;
};

// The picture of a file by its name's extension (upper-cased): TXT 16, DOC DOT 15, PPT PPS 14,
// XLS XLW 13, MDB MDE 12, JPG GIF BMP 11, AVI MPG VOB 10, WAV MP3 OGG WMA 9, HTM HTML 8, TTF 7,
// MSI 6, ZIP RAR 5, DLL INI OCX 4, any other (and none) 3.
int32_t FileKindImage(const std::string& name);

class CBackupBrowser {
public:
    static constexpr int32_t kNone = -1;

    // cmbBackups_Click: clears the tree and fills it with the root and the folders of run
    // `bid` (the caption of lblBid), reporting "Populating tree: N folders", progress and then
    // "Ready".
    void cmbBackups_Click(const std::string& bid);
    void Clear();

    // A click on a node opens it (loading its files) or closes it.
    void NodeClick(int32_t node);
    // A tick loads the node's files and ticks everything below it; an untick of a folder
    // unticks everything below it.
    void NodeCheck(int32_t node, bool checked);
    void PopulateNode(int32_t node);
    void TickChildren(int32_t node);
    void UntickChildren(int32_t node);

    // The expansion walk: every ticked folder below `node` gets its files.
    void LoadCheckedFolders(int32_t node);
    // The restore walk: every ticked file below `node` is restored into `destination` ("" for
    // its own place), verified when `verify`; then the empty files and links of every ticked
    // folder, and the ticked folders' own times and modes (CFileRestorer::RestoreEntries).
    void RestoreChecked(int32_t node, const std::string& destination, bool verify);

    // cmdRestore_Click (after the overwrite question) and cmdRestoreTo_Click (after the folder
    // picker); `verify` is chkRestore. False when the person declined or cancelled.
    bool cmdRestore_Click(bool verify);
    bool cmdRestoreTo_Click(bool verify);
    // While a restore runs, the tree takes no clicks, ticks or other runs.
    bool Restoring() const { return m_restoring; }

    const std::string& Bid() const { return m_bid; }
    int32_t Root() const { return m_nodes.empty() ? kNone : 0; }
    const BrowserNode& Node(int32_t node) const { return m_nodes[static_cast<size_t>(node)]; }
    int32_t NodeCount() const { return static_cast<int32_t>(m_nodes.size()); }
    int32_t Find(const std::string& key) const;

    // Observers. A view hears of a reset (before and after), of children about to be
    // appended to a node and appended, and of a node whose tick, picture or opening changed.
    std::function<void()> OnAboutToReset;
    std::function<void()> OnReset;
    std::function<void(int32_t parent, int32_t first, int32_t last)> OnAboutToAppend;
    std::function<void(int32_t node)> OnAppended;
    std::function<void(int32_t node)> OnChanged;
    std::function<void(const std::string&)> OnStatus; // lblRestore
    std::function<void(int32_t percent)> OnProgress;  // XP_PB2

private:
    int32_t Append(int32_t parent, BrowserNode node);
    void SetChecked(int32_t node, bool checked);
    void Status(const std::string& text);
    void Restore(const std::string& destination, bool verify);
    int32_t CountCheckedFiles(int32_t node) const;
    void RestoreWalk(int32_t node, CFileRestorer& restorer);
    void CollectCheckedFolders(int32_t node, std::unordered_set<std::string>& folders) const;

    std::string m_bid;
    std::vector<BrowserNode> m_nodes;
    std::unordered_map<std::string, int32_t> m_byKey;
    bool m_restoring = false;
    int32_t m_toRestore = 0;
    int32_t m_restored = 0;
};
