#include "engine/CFileList.h"

#include "platform/modFileSystem.h"

#include <algorithm>
#include <cstring>

CFileList::CFileList(std::initializer_list<std::string> paths) {
    for (const std::string& path : paths)
        push_back(path);
}

CFileList::CFileList(const std::vector<std::string>& paths) {
    for (const std::string& path : paths)
        push_back(path);
}

std::pair<uint32_t, uint32_t> CFileList::Keep(std::string_view bytes) {
    const size_t needed = bytes.size() + 1;
    if (m_blocks.empty() || m_blockUsed + needed > m_blockSize) {
        m_blockSize = std::max(kBlockBytes, needed);
        m_blocks.push_back(std::make_unique<char[]>(m_blockSize));
        m_blockUsed = 0;
    }
    char* at = m_blocks.back().get() + m_blockUsed;
    std::memcpy(at, bytes.data(), bytes.size());
    at[bytes.size()] = '\0';
    const std::pair<uint32_t, uint32_t> kept{static_cast<uint32_t>(m_blocks.size() - 1),
                                             static_cast<uint32_t>(m_blockUsed)};
    m_blockUsed += needed;
    return kept;
}

void CFileList::push_back(std::string_view path, const FileStamp& stamp) {
    size_t nameStart = path.size();
    while (nameStart > 0 && !IsPathSeparator(path[nameStart - 1]))
        --nameStart;
    const std::string_view folder = path.substr(0, nameStart);
    // A folder's files come together: only a folder unlike the last one is kept anew.
    if (m_folders.empty() || m_folders.back() != folder) m_folders.emplace_back(folder);
    const auto [block, offset] = Keep(path.substr(nameStart));
    m_entries.push_back({static_cast<uint32_t>(m_folders.size() - 1), block, offset});
    if (stamp.Known()) {
        m_stamps.resize(m_entries.size() - 1); // unknown for the paths listed without one
        m_stamps.push_back(stamp);
    }
}

const FileStamp& CFileList::Stamp(size_t index) const {
    static const FileStamp unknown;
    return index < m_stamps.size() ? m_stamps[index] : unknown;
}

void CFileList::clear() {
    m_entries.clear();
    m_stamps.clear();
    m_folders.clear();
    m_blocks.clear();
    m_blockSize = m_blockUsed = 0;
}

std::string CFileList::operator[](size_t index) const {
    const Entry& entry = m_entries[index];
    std::string path = m_folders[entry.folder];
    path += m_blocks[entry.block].get() + entry.offset;
    return path;
}

std::vector<std::string> CFileList::Strings() const {
    std::vector<std::string> paths;
    paths.reserve(size());
    for (size_t i = 0; i < size(); ++i)
        paths.push_back((*this)[i]);
    return paths;
}
