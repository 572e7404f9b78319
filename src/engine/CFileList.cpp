#include "engine/CFileList.h"

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

void CFileList::push_back(std::string_view path) {
    const size_t needed = path.size() + 1;
    if (m_blocks.empty() || m_blockUsed + needed > m_blockSize) {
        m_blockSize = std::max(kBlockBytes, needed);
        m_blocks.push_back(std::make_unique<char[]>(m_blockSize));
        m_blockUsed = 0;
    }
    char* at = m_blocks.back().get() + m_blockUsed;
    std::memcpy(at, path.data(), path.size());
    at[path.size()] = '\0';
    m_entries.push_back(
        {static_cast<uint32_t>(m_blocks.size() - 1), static_cast<uint32_t>(m_blockUsed)});
    m_blockUsed += needed;
}

void CFileList::clear() {
    m_entries.clear();
    m_blocks.clear();
    m_blockSize = m_blockUsed = 0;
}

std::string_view CFileList::operator[](size_t index) const {
    const Entry& entry = m_entries[index];
    return std::string_view(m_blocks[entry.block].get() + entry.offset);
}

std::vector<std::string> CFileList::Strings() const {
    std::vector<std::string> paths;
    paths.reserve(size());
    for (size_t i = 0; i < size(); ++i)
        paths.emplace_back((*this)[i]);
    return paths;
}
