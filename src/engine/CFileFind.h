#pragma once

// One folder's entries, one at a time, with the questions the walk asks about each. Only
// folders and regular files are listed ("." and ".." included where the system lists them, as
// IsDots expects): symbolic links (and Windows junctions) are neither followed nor listed,
// unless ListLinks asks for them (as links, never followed), and FIFOs, sockets and devices are
// skipped without being opened. Names are kept as bytes. The
// attributes are the platform's (CFolderListing): on Linux hidden = the name begins with "."
// and there are no system files. The short name is the name.

#include "engine/modFolderIdentity.h"
#include "platform/CFolderListing.h"

#include <cstdint>
#include <ctime>
#include <string>

class CFileFind {
public:
    // Attribute bits of the entry, as the attribute word reports them.
    static constexpr uint32_t kReadOnly = CFolderListing::kReadOnly,
                              kHidden = CFolderListing::kHidden, kSystem = CFolderListing::kSystem,
                              kDirectory = CFolderListing::kDirectory,
                              kArchive = CFolderListing::kArchive,
                              kNormal = CFolderListing::kNormal,
                              kTemporary = CFolderListing::kTemporary,
                              kCompressed = CFolderListing::kCompressed;

    CFileFind() = default;
    ~CFileFind();
    CFileFind(const CFileFind&) = delete;
    CFileFind& operator=(const CFileFind&) = delete;

    // Starts a search: "" means "*.*"; a name ending in a separator gets "*.*" appended. The
    // part after the last separator is the mask ("*.*" and "*" match every name; otherwise "*"
    // stands for any run of characters and "?" for one).
    bool FindFile(std::string name);
    // The system error that kept the last FindFile from opening its folder; 0 when it opened.
    int OpenError() const { return m_openError; }
    bool FindNextFile();
    void FindClose();
    // Lists symbolic links too, from the next entry on: IsLink tells them.
    void ListLinks(bool list) { m_listLinks = list; }
    bool IsLink() const { return m_isLink; }

    uint32_t GetAttributes() const;
    bool IsArchived() const { return MatchesMask(kArchive); }
    bool IsNormal() const { return MatchesMask(kNormal); }
    bool IsTemporary() const { return MatchesMask(kTemporary); }
    bool IsHidden() const { return MatchesMask(kHidden); }
    bool IsSystem() const { return MatchesMask(kSystem); }
    bool IsCompressed() const { return MatchesMask(kCompressed); }
    bool IsDirectory() const { return m_isDir; }
    bool IsReadOnly() const { return MatchesMask(kReadOnly); }
    bool IsDots() const;
    bool MatchesMask(uint32_t mask) const { return (GetAttributes() & mask) > 0; }
    // The device and inode of a folder entry (a mount point's are those of what is mounted
    // there); unknown for a file.
    FolderIdentity GetIdentity() const;

    // Local times; 0 when unknown.
    std::time_t GetLastWriteTime() const;
    std::time_t GetLastAccessTime() const;
    std::time_t GetCreationDate() const;
    // Halves of the local file times in 100-ns units since 1601, as the platform's file times.
    uint32_t GetLastWriteTimeHigh() const { return FileTime(Stat().writeNs) >> 32; }
    uint32_t GetLastWriteTimeLow() const { return static_cast<uint32_t>(FileTime(Stat().writeNs)); }
    uint32_t GetLastAccessTimeHigh() const { return FileTime(Stat().accessNs) >> 32; }
    uint32_t GetLastAccessTimeLow() const {
        return static_cast<uint32_t>(FileTime(Stat().accessNs));
    }
    uint32_t GetCreationDateHigh() const { return FileTime(Stat().changeNs) >> 32; }
    uint32_t GetCreationDateLow() const { return static_cast<uint32_t>(FileTime(Stat().changeNs)); }

    const std::string& GetRoot() const { return m_root; }
    std::string GetFileURL() const { return "file://" + m_root + m_name; }
    std::string GetFileTitle() const;
    std::string GetFilePath() const { return m_root + m_name; }
    const std::string& GetFileName() const { return m_name; }
    std::string GetShortPath() const { return GetFilePath(); }
    const std::string& GetShortName() const { return m_name; }
    uint32_t GetLength() const { return static_cast<uint32_t>(Stat().size); }
    // High half times 2E+32 plus the low half as a signed 32-bit number, as defined.
    double GetLength64() const;
    // What the listing tells of the entry without its identity (CFolderListing::Listed): size,
    // times, permission bits and owner.
    const PathStatus& Listed() const { return m_listing.Listed(); }

private:
    bool NextListed();
    // The entry's size, identity and times; unknown when it went meanwhile.
    const PathStatus& Stat() const;
    static uint64_t FileTime(int64_t ns);

    CFolderListing m_listing;
    bool m_open = false;
    int m_openError = 0;
    std::string m_root;
    std::string m_mask;
    std::string m_name;
    bool m_isDir = false;
    bool m_listLinks = false;
    bool m_isLink = false;
};
