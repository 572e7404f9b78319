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
// Beside what the tree holds, each node has what a person needs to find a file: a file's size and
// modification time, and a folder's, from the run's metadata record where it has one, else the
// catalogue's own date (the run's: its rows leave the file's date empty); children come folders
// first, then files, each in natural order (NaturalSortKey). A folder shows a partial tick when
// some but not all of what is loaded below it is ticked; the totals of the ticked files (with the
// files of ticked folders not loaded yet, from the catalogue) are kept as ticks change. A search
// shows only the run's files whose names match, with the folders they are in, opened; the tree
// keeps every node and tick meanwhile, and clearing the search shows them all again.
//
// Everything runs on the window's thread; observers let a view follow the tree as it changes.

#include <climits>
#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

class CFileRestorer;
class CMetadataReader;

// No time kept for a node: the run's date stands for it.
inline constexpr int64_t kNoTime = INT64_MIN;

struct BrowserNode {
    std::string key;
    std::string text;
    int32_t image = 1;
    int32_t selectedImage = 2;
    bool checked = false;
    bool expanded = false;
    int32_t parent = -1;
    int32_t row = 0; // its place among its parent's children as shown
    std::vector<int32_t> children;
    std::vector<int32_t> shown; // while a search is shown: the children on its paths
    bool hidden = false;        // not on a path of the search shown
    int64_t size = -1;          // a file's size in bytes; -1 for a folder
    int64_t writeNs = kNoTime;  // when it was last written, from the run's record
    std::string sortKey;        // NaturalSortKey of its text
    bool populated = false;     // a folder whose files are loaded
    int32_t below = 0;          // nodes loaded below it
    int32_t tickedBelow = 0;    // of those, the ticked ones
};

// What a node's check box shows: a folder of which some but not all is ticked shows kPartly.
enum class TickState { kUnticked, kPartly, kTicked };

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
    // The children a view shows: all of them, or those on a path of the search shown.
    const std::vector<int32_t>& Children(int32_t node) const;
    TickState Ticks(int32_t node) const;

    // The columns of the tree: their titles ("Name", "Size", "Modified") and a node's texts.
    static constexpr int kColumns = 3;
    static const char* ColumnTitle(int column);
    std::string ColumnText(int32_t node, int column) const;

    // The ticked files and their bytes, and in words: "312 files, 1.4 GB selected", "No files
    // selected".
    int64_t TickedFiles() const { return m_tickedFiles; }
    int64_t TickedBytes() const { return m_tickedBytes; }
    std::string SelectionText() const;

    // Shows only the files of the run whose names match `search` (a part of the name, or a
    // wildcard pattern: NameMatches), with their folders opened; "" shows the whole tree again.
    void Search(const std::string& search);
    const std::string& Searched() const { return m_search; }
    int64_t Matches() const { return m_matches; }
    // "3 files match", "No file of this run matches"; "" with no search.
    std::string SearchText() const;

    // Observers. A view hears of a reset (before and after), of children about to be inserted
    // under a node (rows first to last as shown) and inserted, of a node whose tick, picture
    // or opening changed, and of new totals of what is ticked (SelectionText).
    std::function<void()> OnAboutToReset;
    std::function<void()> OnReset;
    std::function<void(int32_t parent, int32_t first, int32_t last)> OnAboutToInsert;
    std::function<void(int32_t parent, int32_t first, int32_t last)> OnInserted;
    std::function<void(int32_t node)> OnChanged;
    std::function<void()> OnSelection;
    std::function<void(const std::string&)> OnStatus; // lblRestore
    std::function<void(int32_t percent)> OnProgress;  // XP_PB2

private:
    int32_t Insert(int32_t parent, BrowserNode node);
    void InsertFiles(int32_t parent, std::vector<BrowserNode> files);
    int32_t Add(int32_t parent, BrowserNode node, size_t at);
    void Renumber(int32_t parent, size_t from);
    void Counted(int32_t node, int32_t loaded, int32_t ticked);
    void Changed(int32_t node);
    void Selection();
    void SetChecked(int32_t node, bool checked);
    void PendingFiles(int32_t folder, int sign);
    void LoadFolderTotals();
    bool OpenRecord(CMetadataReader& record) const;
    void KeepRecordOpen(CMetadataReader* record);
    void Reshow(const std::vector<int32_t>& matches);
    void Status(const std::string& text);
    void Restore(const std::string& destination, bool verify);
    int32_t CountCheckedFiles(int32_t node) const;
    void RestoreWalk(int32_t node, CFileRestorer& restorer);
    void CollectCheckedFolders(int32_t node, std::unordered_set<std::string>& folders) const;

    std::string m_bid;
    std::string m_datebk;
    std::vector<BrowserNode> m_nodes;
    // The files of each folder of the run (count and bytes), by folder key: what a ticked
    // folder whose files are not loaded yet adds to the totals.
    std::unordered_map<std::string, std::pair<int64_t, int64_t>> m_folderTotals;
    int64_t m_tickedFiles = 0;
    int64_t m_tickedBytes = 0;
    std::string m_search;
    int64_t m_matches = 0;
    // The run's metadata record, kept open while many folders load at once (a restore, a
    // search); else each load opens it for itself.
    CMetadataReader* m_record = nullptr;
    bool m_recorded = false;
    std::unordered_map<std::string, int32_t> m_byKey;
    bool m_restoring = false;
    int32_t m_toRestore = 0;
    int32_t m_restored = 0;
};
