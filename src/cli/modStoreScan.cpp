#include "cli/modStoreScan.h"

#include "platform/CFolderListing.h"
#include "support/modFSCommon.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <thread>

namespace {

// The entries of folder `path` that `keep` accepts, by name and kind.
std::vector<std::string> Entries(const std::string& path,
                                 const std::function<bool(const std::string&, PathKind)>& keep) {
    std::vector<std::string> names;
    CFolderListing listing;
    if (listing.Open(path) != 0) return names;
    std::string name;
    PathKind kind = PathKind::kNone;
    while (listing.Next(name, kind))
        if (keep(name, kind)) names.push_back(name);
    return names;
}

bool IsLevelName(const std::string& name, PathKind kind) {
    return name.size() == 2 && name != ".." && kind == PathKind::kFolder;
}

bool IsStoreEntry(const std::string& name, PathKind kind) {
    return kind != PathKind::kFolder && IsStoreName(name);
}

} // namespace

std::string StoreEntry::SizeMismatch(uint64_t size) const {
    return "holds " + std::to_string(status.size) + " bytes, the catalogue records " +
           std::to_string(size);
}

std::string StoreEntry::Kind() const {
    if (status.kind == PathKind::kFolder) return "a folder";
    if (status.kind == PathKind::kLink) return "a symbolic link";
    return "a special file";
}

StoreEntry InspectStoreFile(const std::string& path, uint64_t size) {
    StoreEntry entry;
    entry.status = StatusOf(path, true);
    if (!entry.status.Exists()) {
        entry.error = entry.status.error;
        entry.fault = entry.error == ENOENT ? StoreEntry::kMissing : StoreEntry::kUnreadable;
    } else if (entry.status.kind != PathKind::kFile) {
        entry.fault = StoreEntry::kNotAFile;
    } else if (entry.status.size != size) {
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
        files.push_back(FSJoinPath(root, name));
    for (const std::string& first : Entries(root, IsLevelName))
        for (const std::string& second : Entries(FSJoinPath(root, first), IsLevelName)) {
            const std::string folder = FSJoinPath(FSJoinPath(root, first), second);
            for (const std::string& name : Entries(folder, IsStoreEntry))
                files.push_back(FSJoinPath(folder, name));
        }
    std::sort(files.begin(), files.end());
    return files;
}

std::vector<std::optional<SignedContent>>
SignFiles(const std::vector<std::string>& paths,
          const std::function<void(size_t, uint64_t)>& done) {
    std::vector<std::optional<SignedContent>> signatures(paths.size());
    std::atomic<size_t> next{0}, signedCount{0};
    std::atomic<uint64_t> read{0};
    const auto work = [&] {
        for (size_t k; (k = next.fetch_add(1)) < paths.size();) {
            signatures[k] = ComputeSignature(paths[k], nullptr, nullptr, &read);
            signedCount.fetch_add(1);
        }
    };
    const unsigned helpers = std::max(1u, std::min(4u, std::thread::hardware_concurrency())) - 1;
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < helpers; ++t)
        threads.emplace_back(work);
    for (size_t k; (k = next.fetch_add(1)) < paths.size();) {
        signatures[k] = ComputeSignature(paths[k], nullptr, nullptr, &read);
        signedCount.fetch_add(1);
        if (done) done(signedCount.load(), read.load());
    }
    for (std::thread& thread : threads)
        thread.join();
    if (done) done(paths.size(), read.load());
    return signatures;
}
