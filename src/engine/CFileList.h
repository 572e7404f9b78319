#pragma once

// The paths a run lists, in the order found, kept in blocks of bytes: a path costs its bytes, a
// NUL and one small entry, instead of a string and its own allocation (a list of half a million
// files takes a third of the memory it took as strings). Paths never hold a NUL.

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

class CFileList {
public:
    CFileList() = default;
    CFileList(std::initializer_list<std::string> paths);
    explicit CFileList(const std::vector<std::string>& paths);

    void push_back(std::string_view path);
    void clear();
    size_t size() const { return m_entries.size(); }
    bool empty() const { return m_entries.empty(); }
    // The path at `index` (below size()); valid while the list lives.
    std::string_view operator[](size_t index) const;
    std::string_view back() const { return (*this)[size() - 1]; }
    // Every path, as strings.
    std::vector<std::string> Strings() const;

private:
    static constexpr size_t kBlockBytes = size_t{1} << 20;
    struct Entry {
        uint32_t block;
        uint32_t offset;
    };
    std::vector<std::unique_ptr<char[]>> m_blocks;
    size_t m_blockSize = 0;      // the size of the last block (a path longer than kBlockBytes gets
    size_t m_blockUsed = 0;      // a block of its own)
    std::deque<Entry> m_entries; // grows in pieces: no copy of the whole list as it grows
};
