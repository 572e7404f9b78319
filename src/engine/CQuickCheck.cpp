#include "engine/CQuickCheck.h"

#include <algorithm>

namespace {
// The folders cached at most: more than the files the read-ahead has in hand at once, so that
// no folder the run still has files of goes. A folder goes sooner once the cache holds this
// many rows.
constexpr size_t kCachedFolders = 64;
constexpr size_t kCachedRowsPerFolderRead = 4;
} // namespace

CQuickCheck::CQuickCheck(const std::string& file, const std::string& source,
                         const QuickCheckRun& last, int64_t startNs, size_t folderRows)
    : m_file(file), m_source(source), m_settledBeforeNs(startNs - kSettledNs),
      m_folderRows(folderRows) {
    m_kept = last.bid > 0 && m_lookup.Open(file, source, last);
}

CQuickCheck::~CQuickCheck() = default;

CQuickCheck::KeptFolder& CQuickCheck::FolderOf(std::string_view folder) const {
    for (auto cached = m_folders.rbegin(); cached != m_folders.rend(); ++cached)
        if (cached->folder == folder) return *cached;
    while (!m_folders.empty() && (m_folders.size() >= kCachedFolders ||
                                  m_cachedRows >= kCachedRowsPerFolderRead * m_folderRows)) {
        LetGo(m_folders.front());
        m_cachedRows -= m_folders.front().rows.size();
        m_folders.pop_front();
    }
    KeptFolder& read = m_folders.emplace_back();
    read.folder = folder;
    m_reached.insert(read.folder);
    read.whole = m_lookup.Folder(read.folder, m_folderRows, [&](QuickCheckRow&& row) {
        read.rows.emplace(std::move(row.path),
                          KeptRow{row.stamp, std::move(row.signature), row.length});
    });
    m_cachedRows += read.rows.size();
    return read;
}

void CQuickCheck::LetGo(const KeptFolder& folder) const {
    for (const auto& [name, row] : folder.rows)
        if (!row.asked) m_gone.Add({folder.folder + name, {}, {}, 0});
}

std::optional<SignedContent> CQuickCheck::Find(const std::string& path,
                                               const FileStamp& now) const {
    if (!m_kept) return std::nullopt;
    const size_t nameStart = CQuickCheckDB::NameStart(path);
    KeptRow found;
    {
        std::lock_guard lock(m_mutex);
        const std::string_view whole(path);
        KeptFolder& folder = FolderOf(whole.substr(0, nameStart));
        const auto row = folder.rows.find(whole.substr(nameStart));
        if (row != folder.rows.end()) {
            row->second.asked = true;
            found = row->second;
        } else if (folder.whole) {
            return std::nullopt;
        } else if (std::optional<QuickCheckRow> one = m_lookup.Find(path)) {
            found = {one->stamp, std::move(one->signature), one->length};
        } else {
            return std::nullopt;
        }
    }
    if (!now.Known() || found.stamp != now) return std::nullopt;
    if (found.signature.empty() || found.length <= 0 || found.length != now.size)
        return std::nullopt;
    return SignedContent{found.signature, static_cast<uint64_t>(found.length)};
}

void CQuickCheck::Note(const std::string& path, const FileStamp& stamp,
                       const SignedContent& content, bool kept) {
    // A row kept and found unchanged stays as it is.
    if (kept && m_kept) return;
    if (!stamp.Known() || content.signature.empty()) return;
    if (static_cast<uint64_t>(stamp.size) != content.length) return;
    if (std::max(stamp.mtimeNs, stamp.ctimeNs) >= m_settledBeforeNs) return;
    m_noted.Add({path, stamp, content.signature, stamp.size});
}

bool CQuickCheck::Save(const QuickCheckRun& run) {
    std::lock_guard lock(m_mutex);
    const auto noted = [this](const auto& each) { return m_noted.ForEach(each); };
    if (!m_kept) return CQuickCheckDB::Save(m_file, m_source, run, noted);
    for (const KeptFolder& folder : m_folders)
        LetGo(folder);
    m_folders.clear();
    m_kept = false;
    m_lookup.Close(); // its read lock goes before the file is written
    return CQuickCheckDB::Update(
        m_file, m_source, run,
        [this](const std::string& folder) { return m_reached.count(folder) > 0; },
        [this](const auto& each) { return m_gone.ForEach(each); }, noted);
}
