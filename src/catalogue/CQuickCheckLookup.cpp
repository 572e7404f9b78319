#include "catalogue/CQuickCheckLookup.h"

#include "catalogue/CSqliteConnection.h"
#include "catalogue/CSqliteStatement.h"
#include "catalogue/modQuickCheckColumns.h"
#include "platform/modFileStatus.h"

namespace {

constexpr const char* kStampColumns = "name, device, inode, size, mtime, ctime, md5, length";

// The row read, its path `folder` and the name kept.
QuickCheckRow RowOf(const CSqliteStatement& read, std::string_view folder) {
    QuickCheckRow row;
    const auto* name = static_cast<const char*>(sqlite3_column_blob(read.Get(), 0));
    const auto size = static_cast<size_t>(sqlite3_column_bytes(read.Get(), 0));
    row.path.reserve(folder.size() + size);
    row.path.append(folder);
    if (name) row.path.append(name, size);
    ReadStampColumns(read, 1, row);
    return row;
}

} // namespace

CQuickCheckLookup::CQuickCheckLookup() = default;

CQuickCheckLookup::~CQuickCheckLookup() {
    Close();
}

void CQuickCheckLookup::Close() {
    // The statements go before the connection they belong to.
    m_find.reset();
    m_folder.reset();
    m_db.reset();
}

bool CQuickCheckLookup::Open(const std::string& file, const std::string& source,
                             const QuickCheckRun& run) {
    Close();
    if (!StatusOf(file).Exists()) return false; // never created by a read
    // Its users take turns under a lock of their own (CQuickCheck): the connection needs none.
    auto db = std::make_unique<CSqliteConnection>(
        file, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOFOLLOW | SQLITE_OPEN_NOMUTEX);
    // Every read sees the same state of the file, under one lock taken once.
    if (!*db || !db->Run("BEGIN") || !HoldsStampsOf(db->Handle(), source, run)) return false;
    const std::string from =
        std::string("SELECT ") + kStampColumns + " FROM Stamps WHERE source = ?1";
    auto find = std::make_unique<CSqliteStatement>(
        db->Handle(), (from + " AND folder = ?2 AND name = ?3").c_str());
    auto folder = std::make_unique<CSqliteStatement>(db->Handle(),
                                                     (from + " AND folder = ?2 LIMIT ?3").c_str());
    if (!*find || !*folder) return false;
    find->Bind(1, source); // bindings outlive each reset
    folder->Bind(1, source);
    m_db = std::move(db);
    m_find = std::move(find);
    m_folder = std::move(folder);
    return true;
}

bool CQuickCheckLookup::Folder(const std::string& folder, size_t most,
                               const std::function<void(QuickCheckRow&& row)>& each) {
    if (!m_folder) return false;
    CSqliteStatement& read = *m_folder;
    read.Bind(2, folder);
    read.Bind(3, static_cast<int64_t>(most) + 1); // one more tells that there are more
    size_t count = 0;
    int rc;
    while ((rc = sqlite3_step(read.Get())) == SQLITE_ROW && ++count <= most)
        each(RowOf(read, {}));
    sqlite3_reset(read.Get());
    return rc == SQLITE_DONE;
}

std::optional<QuickCheckRow> CQuickCheckLookup::Find(const std::string& path) {
    if (!m_find) return std::nullopt;
    CSqliteStatement& find = *m_find;
    const size_t name = CQuickCheckDB::NameStart(path);
    const std::string folder = path.substr(0, name);
    find.Bind(2, folder);
    find.Bind(3, path.substr(name));
    std::optional<QuickCheckRow> row;
    if (sqlite3_step(find.Get()) == SQLITE_ROW) row = RowOf(find, folder);
    sqlite3_reset(find.Get());
    return row;
}
