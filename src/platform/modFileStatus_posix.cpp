#include "platform/modFileStatus.h"

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

PathStatus StatusOf(const std::string& path, bool ofLink) {
    PathStatus status;
    struct stat st {};
    if ((ofLink ? ::lstat(path.c_str(), &st) : ::stat(path.c_str(), &st)) != 0) {
        status.error = errno;
        return status;
    }
    status.kind = S_ISDIR(st.st_mode)   ? PathKind::kFolder
                  : S_ISREG(st.st_mode) ? PathKind::kFile
                  : S_ISLNK(st.st_mode) ? PathKind::kLink
                                        : PathKind::kOther;
    status.size = static_cast<uint64_t>(st.st_size);
    status.identity = {static_cast<uint64_t>(st.st_dev), static_cast<uint64_t>(st.st_ino)};
    return status;
}

bool IsRunnableFile(const std::string& path) {
    return StatusOf(path).kind == PathKind::kFile && ::access(path.c_str(), X_OK) == 0;
}
