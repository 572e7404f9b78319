#include "platform/modFileStatus.h"

#include "platform/modStatusOfStat_posix.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

PathStatus StatusOf(const std::string& path, bool ofLink) {
    struct stat st {};
    if ((ofLink ? ::lstat(path.c_str(), &st) : ::stat(path.c_str(), &st)) != 0)
        return PathStatus::Missing(errno);
    return StatusOfStat(st);
}

int WriteAccessError(const std::string& path) {
    return ::faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) == 0 ? 0 : errno;
}

bool IsRunnableFile(const std::string& path) {
    return StatusOf(path).kind == PathKind::kFile && ::access(path.c_str(), X_OK) == 0;
}
