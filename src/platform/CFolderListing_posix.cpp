#include "platform/CFolderListing.h"

#include "platform/modStatusOfStat_posix.h"

#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

struct CFolderListing::State {
    DIR* dir = nullptr;
    std::string name;
    PathKind kind = PathKind::kNone;
    mutable bool statusDone = false;
    mutable PathStatus status;
};

CFolderListing::CFolderListing() : m_state(std::make_unique<State>()) {}

CFolderListing::~CFolderListing() {
    Close();
}

int CFolderListing::Open(const std::string& folder) {
    Close();
    m_state->dir = ::opendir(folder.c_str());
    return m_state->dir ? 0 : errno;
}

bool CFolderListing::Next(std::string& name, PathKind& kind) {
    if (!m_state->dir) return false;
    while (const dirent* entry = ::readdir(m_state->dir)) {
        m_state->name = entry->d_name;
        m_state->statusDone = false;
        switch (entry->d_type) {
        case DT_DIR:
            m_state->kind = PathKind::kFolder;
            break;
        case DT_REG:
            m_state->kind = PathKind::kFile;
            break;
        case DT_LNK:
            m_state->kind = PathKind::kLink;
            break;
        case DT_UNKNOWN:
            // Some file systems do not tell the kind in the listing: ask, without following.
            m_state->kind = Status().kind;
            if (m_state->kind == PathKind::kNone) continue; // gone meanwhile
            break;
        default:
            m_state->kind = PathKind::kOther;
            break;
        }
        name = m_state->name;
        kind = m_state->kind;
        return true;
    }
    return false;
}

const PathStatus& CFolderListing::Status() const {
    if (!m_state->statusDone) {
        struct stat st {};
        m_state->status =
            ::fstatat(::dirfd(m_state->dir), m_state->name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0
                ? StatusOfStat(st)
                : PathStatus::Missing(errno);
        m_state->statusDone = true;
    }
    return m_state->status;
}

const PathStatus& CFolderListing::Listed() const {
    return Status();
}

uint32_t CFolderListing::Attributes() const {
    const std::string& name = m_state->name;
    const bool folder = m_state->kind == PathKind::kFolder;
    uint32_t attributes = 0;
    if (folder) attributes |= kDirectory;
    if (!name.empty() && name[0] == '.' && name != "." && name != "..") attributes |= kHidden;
    if (!folder) attributes |= kArchive;
    if (Status().readOnly) attributes |= kReadOnly;
    return attributes == 0 ? kNormal : attributes;
}

void CFolderListing::Close() {
    if (m_state->dir) ::closedir(m_state->dir);
    m_state->dir = nullptr;
}
