#include "engine/CQuickCheck.h"

#include <algorithm>

CQuickCheck::CQuickCheck(const std::string& file, const std::string& source,
                         const QuickCheckRun& last, int64_t startNs)
    : m_file(file), m_source(source), m_settledBeforeNs(startNs - kSettledNs) {
    std::vector<QuickCheckRow> rows;
    if (last.bid <= 0 || !CQuickCheckDB::Load(file, source, last, rows)) return;
    m_kept.reserve(rows.size());
    for (QuickCheckRow& row : rows) {
        std::string path = row.path;
        m_kept.emplace(std::move(path), std::move(row));
    }
}

std::optional<SignedContent> CQuickCheck::Find(const std::string& path,
                                               const FileStamp& now) const {
    if (!now.Known()) return std::nullopt;
    const auto found = m_kept.find(path);
    if (found == m_kept.end() || found->second.stamp != now) return std::nullopt;
    const QuickCheckRow& row = found->second;
    if (row.signature.empty() || row.length <= 0 || row.length != now.size) return std::nullopt;
    return SignedContent{row.signature, static_cast<uint64_t>(row.length)};
}

void CQuickCheck::Note(const std::string& path, const FileStamp& stamp,
                       const SignedContent& content) {
    if (!stamp.Known() || content.signature.empty()) return;
    if (static_cast<uint64_t>(stamp.size) != content.length) return;
    if (std::max(stamp.mtimeNs, stamp.ctimeNs) >= m_settledBeforeNs) return;
    m_noted.push_back({path, stamp, content.signature, stamp.size});
}

bool CQuickCheck::Save(const QuickCheckRun& run) const {
    return CQuickCheckDB::Save(m_file, m_source, run, m_noted);
}
