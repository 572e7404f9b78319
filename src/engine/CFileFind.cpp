#include "engine/CFileFind.h"

#include "platform/modClock.h"
#include "platform/modFileSystem.h"
#include "platform/modPlatformPaths.h"
#include "support/modWildcard.h"

namespace {

// Where the folder part of a search ends: after its last separator.
size_t FolderEnd(const std::string& name) {
    for (size_t i = name.size(); i > 0; --i)
        if (IsPathSeparator(name[i - 1])) return i;
    return 0;
}

} // namespace

CFileFind::~CFileFind() {
    FindClose();
}

bool CFileFind::FindFile(std::string name) {
    FindClose();
    if (name.empty()) name = "*.*";
    if (IsPathSeparator(name.back())) name += "*.*";
    const size_t end = FolderEnd(name);
    std::string folder = name.substr(0, end);
    m_mask = name.substr(end);
    // The root is the full path of the search's folder.
    if (!IsAbsolutePath(folder)) folder = CurrentFolder() + kPathSeparator + folder;
    m_root = folder;
    m_openError = m_listing.Open(m_root);
    m_open = m_openError == 0;
    if (!m_open) return false;
    if (NextListed()) return true;
    FindClose();
    return false;
}

bool CFileFind::FindNextFile() {
    return m_open && NextListed();
}

void CFileFind::FindClose() {
    m_listing.Close();
    m_open = false;
}

bool CFileFind::NextListed() {
    std::string name;
    PathKind kind = PathKind::kNone;
    while (m_listing.Next(name, kind)) {
        if (m_mask != "*.*" && m_mask != "*" && !WildcardMatch(m_mask, name)) continue;
        const bool link = kind == PathKind::kLink && m_listLinks;
        if (kind != PathKind::kFolder && kind != PathKind::kFile && !link) continue; // FIFOs, ...
        m_name = name;
        m_isDir = kind == PathKind::kFolder;
        m_isLink = link;
        return true;
    }
    return false;
}

const PathStatus& CFileFind::Stat() const {
    return m_listing.Status();
}

uint32_t CFileFind::GetAttributes() const {
    return m_listing.Attributes();
}

FolderIdentity CFileFind::GetIdentity() const {
    const PathStatus& status = Stat();
    if (status.kind != PathKind::kFolder) return {};
    return {status.identity.device, status.identity.file, true};
}

bool CFileFind::IsDots() const {
    return m_isDir && (m_name == "." || m_name == "..");
}

std::time_t CFileFind::GetLastWriteTime() const {
    return static_cast<std::time_t>(Stat().writeNs / 1'000'000'000);
}
std::time_t CFileFind::GetLastAccessTime() const {
    return static_cast<std::time_t>(Stat().accessNs / 1'000'000'000);
}
std::time_t CFileFind::GetCreationDate() const {
    return static_cast<std::time_t>(Stat().changeNs / 1'000'000'000);
}

uint64_t CFileFind::FileTime(int64_t ns) {
    return LocalFileTime(ns);
}

std::string CFileFind::GetFileTitle() const {
    const size_t dot = m_name.rfind('.');
    return dot == std::string::npos ? m_name : m_name.substr(0, dot);
}

double CFileFind::GetLength64() const {
    const uint64_t size = Stat().size;
    const uint32_t high = static_cast<uint32_t>(size >> 32);
    const int32_t low = static_cast<int32_t>(static_cast<uint32_t>(size));
    return high != 0 ? high * 2E+32 + low : static_cast<double>(GetLength());
}
