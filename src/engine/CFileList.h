#pragma once

// The paths a run lists, in the order found, kept as their folder and their name: a folder's
// files are found together, so each folder is kept once and each file costs only its name, a
// NUL and a small entry (a list of half a million files takes a third of the memory it took as
// strings). Paths never hold a NUL. A path may keep the stamp the walk saw with it (for the quick
// check, whose read-ahead then need not look at the file again): 40 bytes more per path, taken
// only once a stamp is given.

#include "support/modFSCommon.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

class CFileList {
public:
    CFileList() = default;
    CFileList(std::initializer_list<std::string> paths);
    explicit CFileList(const std::vector<std::string>& paths);

    void push_back(std::string_view path, const FileStamp& stamp = {});
    void clear();
    size_t size() const { return m_entries.size(); }
    bool empty() const { return m_entries.empty(); }
    // The path at `index` (below size()).
    std::string operator[](size_t index) const;
    std::string back() const { return (*this)[size() - 1]; }
    // The stamp kept with the path at `index`; unknown when none was given.
    const FileStamp& Stamp(size_t index) const;
    // Every path, as strings.
    std::vector<std::string> Strings() const;

private:
    static constexpr size_t kBlockBytes = size_t{1} << 20;
    struct Entry {
        uint32_t folder; // in m_folders
        uint32_t block;
        uint32_t offset; // of the name, NUL-terminated
    };
    // Keeps `bytes` and a NUL; answers the block and the offset.
    std::pair<uint32_t, uint32_t> Keep(std::string_view bytes);

    std::vector<std::string> m_folders; // each up to and with its last separator
    std::vector<std::unique_ptr<char[]>> m_blocks;
    size_t m_blockSize = 0; // of the last block (a name longer than kBlockBytes has its own)
    size_t m_blockUsed = 0;
    std::deque<Entry> m_entries;    // grows in pieces: no copy of the whole list as it grows
    std::deque<FileStamp> m_stamps; // by entry, up to the last one given a stamp
};
