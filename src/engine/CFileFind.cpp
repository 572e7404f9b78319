#include "engine/CFileFind.h"

#include "platform/modPlatformPaths.h"

#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <fnmatch.h>

CFileFind::~CFileFind() {
    FindClose();
}

bool CFileFind::FindFile(std::string name) {
    FindClose();
    if (name.empty()) name = "*.*";
    if (name.back() == '/') name += "*.*";
    const size_t slash = name.rfind('/');
    std::string folder = slash == std::string::npos ? std::string() : name.substr(0, slash + 1);
    m_mask = slash == std::string::npos ? name : name.substr(slash + 1);
    // The root is the full path of the search's folder.
    if (folder.empty() || folder[0] != '/') folder = CurrentFolder() + "/" + folder;
    m_root = folder;
    m_dir = ::opendir(m_root.c_str());
    m_openError = m_dir ? 0 : errno;
    if (!m_dir) return false;
    if (NextListed()) return true;
    FindClose();
    return false;
}

bool CFileFind::FindNextFile() {
    return m_dir && NextListed();
}

void CFileFind::FindClose() {
    if (m_dir) ::closedir(m_dir);
    m_dir = nullptr;
}

bool CFileFind::NextListed() {
    while (dirent* entry = ::readdir(m_dir)) {
        const std::string name = entry->d_name;
        if (m_mask != "*.*" && m_mask != "*" && ::fnmatch(m_mask.c_str(), name.c_str(), 0) != 0)
            continue;
        unsigned char type = entry->d_type;
        m_statDone = false;
        if (type == DT_UNKNOWN) {
            if (::fstatat(::dirfd(m_dir), entry->d_name, &m_stat, AT_SYMLINK_NOFOLLOW) != 0)
                continue;
            m_statDone = true;
            type = S_ISDIR(m_stat.st_mode) ? DT_DIR : S_ISREG(m_stat.st_mode) ? DT_REG : DT_LNK;
        }
        if (type != DT_DIR && type != DT_REG) continue; // links, FIFOs, sockets, devices
        m_name = name;
        m_isDir = type == DT_DIR;
        return true;
    }
    return false;
}

const struct stat& CFileFind::Stat() const {
    if (!m_statDone) {
        if (::lstat(GetFilePath().c_str(), &m_stat) != 0) m_stat = {};
        m_statDone = true;
    }
    return m_stat;
}

uint32_t CFileFind::GetAttributes() const {
    uint32_t attributes = 0;
    if (m_isDir) attributes |= kDirectory;
    if (!m_name.empty() && m_name[0] == '.' && !IsDots()) attributes |= kHidden;
    if (!m_isDir) attributes |= kArchive;
    if ((Stat().st_mode & S_IWUSR) == 0) attributes |= kReadOnly;
    return attributes == 0 ? kNormal : attributes;
}

FolderIdentity CFileFind::GetIdentity() const {
    const struct stat& st = Stat();
    if (!S_ISDIR(st.st_mode)) return {};
    return {static_cast<uint64_t>(st.st_dev), static_cast<uint64_t>(st.st_ino), true};
}

bool CFileFind::IsDots() const {
    return m_isDir && (m_name == "." || m_name == "..");
}

std::time_t CFileFind::GetLastWriteTime() const {
    return Stat().st_mtim.tv_sec;
}
std::time_t CFileFind::GetLastAccessTime() const {
    return Stat().st_atim.tv_sec;
}
std::time_t CFileFind::GetCreationDate() const {
    return Stat().st_ctim.tv_sec;
}

uint64_t CFileFind::FileTime(const timespec& t) {
    std::tm local{};
    localtime_r(&t.tv_sec, &local);
    const int64_t seconds = t.tv_sec + local.tm_gmtoff + 11644473600LL;
    return static_cast<uint64_t>(seconds) * 10000000ULL + static_cast<uint64_t>(t.tv_nsec / 100);
}

std::string CFileFind::GetFileTitle() const {
    const size_t dot = m_name.rfind('.');
    return dot == std::string::npos ? m_name : m_name.substr(0, dot);
}

double CFileFind::GetLength64() const {
    const uint64_t size = static_cast<uint64_t>(Stat().st_size);
    const uint32_t high = static_cast<uint32_t>(size >> 32);
    const int32_t low = static_cast<int32_t>(static_cast<uint32_t>(size));
    return high != 0 ? high * 2E+32 + low : static_cast<double>(GetLength());
}
