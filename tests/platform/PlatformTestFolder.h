#pragma once

// A temporary folder for the platform layer's own tests, removed with all it holds at the end,
// and whole files read and written. Built on the standard library alone, so that these tests
// build on Windows before the shared helpers of tests/common do. Paths are UTF-8 and joined with
// the system's own separator.

#include "platform/modFileSystem.h"

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>

namespace platform_test {

// A UTF-8 path for the standard library's file functions.
inline std::filesystem::path Native(const std::string& path) {
    return std::filesystem::path(std::u8string(path.begin(), path.end()));
}

inline std::string Utf8(const std::filesystem::path& path) {
    const std::u8string text = path.u8string();
    return std::string(text.begin(), text.end());
}

inline std::string ReadWhole(const std::string& path) {
    std::ifstream in(Native(path), std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

inline void WriteWhole(const std::string& path, const std::string& content) {
    std::ofstream out(Native(path), std::ios::binary | std::ios::trunc);
    out << content;
}

inline bool IsThere(const std::string& path) {
    std::error_code error;
    return std::filesystem::exists(std::filesystem::symlink_status(Native(path), error));
}

class CTestFolder {
public:
    CTestFolder() {
        static std::atomic<unsigned> count{0};
        std::random_device random;
        const auto now = std::chrono::steady_clock::now().time_since_epoch().count();
        const std::string name = "swplat-" + std::to_string(random()) + "-" + std::to_string(now) +
                                 "-" + std::to_string(count++);
        const std::filesystem::path root = std::filesystem::temp_directory_path() / name;
        std::filesystem::create_directories(root);
        m_root = Utf8(root);
    }
    ~CTestFolder() {
        std::error_code error;
        // Read-only entries stay on Windows unless their attribute is cleared first.
        for (auto it = std::filesystem::recursive_directory_iterator(Native(m_root), error);
             !error && it != std::filesystem::recursive_directory_iterator(); it.increment(error)) {
            std::error_code ignored; // a link's own rights cannot change on Linux; no matter
            std::filesystem::permissions(it->path(), std::filesystem::perms::owner_all,
                                         std::filesystem::perm_options::add |
                                             std::filesystem::perm_options::nofollow,
                                         ignored);
        }
        std::filesystem::remove_all(Native(m_root), error);
    }
    CTestFolder(const CTestFolder&) = delete;
    CTestFolder& operator=(const CTestFolder&) = delete;

    const std::string& Root() const { return m_root; }
    std::string Path(const std::string& name) const { return m_root + kPathSeparator + name; }

private:
    std::string m_root;
};

} // namespace platform_test
