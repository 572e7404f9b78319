#include "cli/modStoreScan.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <dirent.h>
#include <thread>

namespace {

// The entries of folder `path` that `keep` accepts, by name.
std::vector<std::string> Entries(const std::string& path,
                                 const std::function<bool(const dirent&)>& keep) {
    std::vector<std::string> names;
    DIR* dir = ::opendir(path.c_str());
    if (!dir) return names;
    while (const dirent* entry = ::readdir(dir))
        if (keep(*entry)) names.emplace_back(entry->d_name);
    ::closedir(dir);
    return names;
}

bool IsLevelName(const dirent& entry) {
    const std::string name = entry.d_name;
    return name.size() == 2 && name != ".." &&
           (entry.d_type == DT_DIR || entry.d_type == DT_UNKNOWN);
}

bool IsStoreEntry(const dirent& entry) {
    return entry.d_type != DT_DIR && IsStoreName(entry.d_name);
}

} // namespace

std::string StoreEntry::SizeMismatch(uint64_t size) const {
    return "holds " + std::to_string(st.st_size) + " bytes, the catalogue records " +
           std::to_string(size);
}

std::string StoreEntry::Kind() const {
    if (S_ISDIR(st.st_mode)) return "a folder";
    if (S_ISLNK(st.st_mode)) return "a symbolic link";
    return "a special file";
}

StoreEntry InspectStoreFile(const std::string& path, uint64_t size) {
    StoreEntry entry;
    if (::lstat(path.c_str(), &entry.st) != 0) {
        entry.error = errno;
        entry.fault = errno == ENOENT ? StoreEntry::kMissing : StoreEntry::kUnreadable;
    } else if (!S_ISREG(entry.st.st_mode)) {
        entry.fault = StoreEntry::kNotAFile;
    } else if (static_cast<uint64_t>(entry.st.st_size) != size) {
        entry.fault = StoreEntry::kWrongSize;
    }
    return entry;
}

bool IsStoreName(const std::string& name) {
    const size_t dot = name.size() >= 5 ? name.size() - 4 : 0;
    if (dot == 0 || name.compare(dot, 4, ".QRV") != 0) return false;
    return std::all_of(name.begin(), name.begin() + static_cast<long>(dot),
                       [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); });
}

std::vector<std::string> StoreFiles(const std::string& root) {
    std::vector<std::string> files;
    for (const std::string& name : Entries(root, IsStoreEntry))
        files.push_back(root + "/" + name);
    for (const std::string& first : Entries(root, IsLevelName))
        for (const std::string& second : Entries(root + "/" + first, IsLevelName)) {
            const std::string folder = root + "/" + first + "/" + second;
            for (const std::string& name : Entries(folder, IsStoreEntry))
                files.push_back(folder + "/" + name);
        }
    std::sort(files.begin(), files.end());
    return files;
}

std::vector<std::optional<SignedContent>> SignFiles(const std::vector<std::string>& paths,
                                                    const std::function<void(size_t)>& done) {
    std::vector<std::optional<SignedContent>> signatures(paths.size());
    std::atomic<size_t> next{0}, signedCount{0};
    const auto work = [&] {
        for (size_t k; (k = next.fetch_add(1)) < paths.size();) {
            signatures[k] = ComputeSignature(paths[k]);
            signedCount.fetch_add(1);
        }
    };
    const unsigned helpers = std::max(1u, std::min(4u, std::thread::hardware_concurrency())) - 1;
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < helpers; ++t)
        threads.emplace_back(work);
    for (size_t k; (k = next.fetch_add(1)) < paths.size();) {
        signatures[k] = ComputeSignature(paths[k]);
        signedCount.fetch_add(1);
        if (done) done(signedCount.load());
    }
    for (std::thread& thread : threads)
        thread.join();
    if (done) done(paths.size());
    return signatures;
}
