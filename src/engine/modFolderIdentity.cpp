#include "engine/modFolderIdentity.h"

#include "platform/modFileStatus.h"
#include "platform/modFileSystem.h"
#include "platform/modPlatformPaths.h"
#include "support/modFSCommon.h"

#include <cerrno>

namespace {

// `path` without its last part ("/a/b" -> "/a", "/a" -> "/", "C:\\a" -> "C:\\"); "" when
// nothing is above it.
std::string Parent(const std::string& path) {
    size_t end = path.size();
    while (end > 0 && IsPathSeparator(path[end - 1]))
        --end;
    if (end == 0) return {};
    const size_t slash = FSLastSeparator(path.substr(0, end));
    if (slash == std::string::npos) return {};
    size_t keep = slash;
    while (keep > 0 && IsPathSeparator(path[keep - 1]))
        --keep;
    const size_t root = std::max<size_t>(FSRootLength(path), 1);
    return keep < root ? path.substr(0, root) : path.substr(0, keep);
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
    for (; !above.empty(); above = FSIsRoot(above) ? std::string() : Parent(above))
        if (FolderIdentityOf(above) == target) return FolderPlace::kInside;
    return FolderPlace::kOutside;
}
