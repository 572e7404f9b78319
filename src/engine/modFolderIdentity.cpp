#include "engine/modFolderIdentity.h"

#include "platform/modFileStatus.h"
#include "platform/modFileSystem.h"
#include "platform/modPlatformPaths.h"

#include <cerrno>

namespace {

// `path` without its last part ("/a/b" -> "/a", "/a" -> "/"); "" when nothing is above it.
std::string Parent(const std::string& path) {
    const size_t end = path.find_last_not_of('/');
    if (end == std::string::npos) return {};
    const size_t slash = path.rfind('/', end);
    if (slash == std::string::npos) return {};
    const size_t keep = path.find_last_not_of('/', slash);
    return keep == std::string::npos ? std::string("/") : path.substr(0, keep + 1);
}

// The resolved path of `path`, or of its nearest part that exists; "" when none resolves.
std::string ResolvedExisting(std::string path) {
    if (path.empty()) return {};
    if (!IsAbsolutePath(path)) path = CurrentFolder() + kPathSeparator + path;
    while (!path.empty()) {
        int error = 0;
        std::string resolved = ResolvedPath(path, error);
        if (!resolved.empty()) return resolved;
        if (error != ENOENT && error != ENOTDIR) return {};
        path = Parent(path);
    }
    return {};
}

} // namespace

FolderIdentity FolderIdentityOf(const std::string& path) {
    if (path.empty()) return {};
    const PathStatus status = StatusOf(path);
    if (status.kind != PathKind::kFolder) return {};
    return {status.identity.device, status.identity.file, true};
}

FolderPlace PlaceOf(const std::string& folder, const std::string& outer) {
    const FolderIdentity target = FolderIdentityOf(outer);
    if (!target.known) return FolderPlace::kOutside;
    const FolderIdentity self = FolderIdentityOf(folder);
    if (self.known && self == target) return FolderPlace::kSame;
    // Each folder above the resolved path is one the folder lies in, whatever its spelling.
    std::string above = ResolvedExisting(folder);
    if (self.known) above = Parent(above);
    for (; !above.empty(); above = above == "/" ? std::string() : Parent(above))
        if (FolderIdentityOf(above) == target) return FolderPlace::kInside;
    return FolderPlace::kOutside;
}
