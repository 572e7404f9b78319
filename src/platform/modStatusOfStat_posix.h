#pragma once

// A stat result as the platform layer answers it; for the POSIX halves only.

#include "platform/modFileStatus.h"

#include <sys/stat.h>

inline int64_t Nanoseconds(const timespec& t) {
    return static_cast<int64_t>(t.tv_sec) * 1'000'000'000 + t.tv_nsec;
}

inline PathStatus StatusOfStat(const struct stat& st) {
    PathStatus status;
    status.kind = S_ISDIR(st.st_mode)   ? PathKind::kFolder
                  : S_ISREG(st.st_mode) ? PathKind::kFile
                  : S_ISLNK(st.st_mode) ? PathKind::kLink
                                        : PathKind::kOther;
    status.size = static_cast<uint64_t>(st.st_size);
    status.identity = {static_cast<uint64_t>(st.st_dev), static_cast<uint64_t>(st.st_ino)};
    status.writeNs = Nanoseconds(st.st_mtim);
    status.accessNs = Nanoseconds(st.st_atim);
    status.changeNs = Nanoseconds(st.st_ctim);
    status.readOnly = (st.st_mode & S_IWUSR) == 0;
    status.mode = static_cast<uint32_t>(st.st_mode & 07777);
    status.owner = static_cast<uint32_t>(st.st_uid);
    status.group = static_cast<uint32_t>(st.st_gid);
    return status;
}
