#pragma once

// One folder's entries, one at a time, with the questions the walk asks about each. On Linux
// only folders and regular files are listed ("." and ".." included, as IsDots expects):
// symbolic links are neither followed nor listed, and FIFOs, sockets and devices are skipped
// without being opened. Names are kept as bytes. Hidden = the name begins with "."; there are
// no system files. The short name is the name.

#include "engine/modFolderIdentity.h"

#include <cstdint>
#include <ctime>
#include <string>
#include <sys/stat.h>

struct __dirstream;

class CFileFind {
public:
    // Attribute bits of the entry, as the attribute word reports them.
    static constexpr uint32_t kReadOnly = 0x1, kHidden = 0x2, kSystem = 0x4, kDirectory = 0x10,
                              kArchive = 0x20, kNormal = 0x80, kTemporary = 0x100,
                              kCompressed = 0x800;

    CFileFind() = default;
    ~CFileFind();
    CFileFind(const CFileFind&) = delete;
    CFileFind& operator=(const CFileFind&) = delete;

    // Starts a search: "" means "*.*"; a name ending in "/" gets "*.*" appended. The part after
    // the last "/" is the mask ("*.*" and "*" match every name).
    bool FindFile(std::string name);
    // The system error that kept the last FindFile from opening its folder; 0 when it opened.
    int OpenError() const { return m_openError; }
    bool FindNextFile();
    void FindClose();

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
    uint32_t GetLastWriteTimeHigh() const { return FileTime(Stat().st_mtim) >> 32; }
    uint32_t GetLastWriteTimeLow() const { return static_cast<uint32_t>(FileTime(Stat().st_mtim)); }
    uint32_t GetLastAccessTimeHigh() const { return FileTime(Stat().st_atim) >> 32; }
    uint32_t GetLastAccessTimeLow() const {
        return static_cast<uint32_t>(FileTime(Stat().st_atim));
    }
    uint32_t GetCreationDateHigh() const { return FileTime(Stat().st_ctim) >> 32; }
    uint32_t GetCreationDateLow() const { return static_cast<uint32_t>(FileTime(Stat().st_ctim)); }

    const std::string& GetRoot() const { return m_root; }
    std::string GetFileURL() const { return "file://" + m_root + m_name; }
    std::string GetFileTitle() const;
    std::string GetFilePath() const { return m_root + m_name; }
    const std::string& GetFileName() const { return m_name; }
    std::string GetShortPath() const { return GetFilePath(); }
    const std::string& GetShortName() const { return m_name; }
    uint32_t GetLength() const { return static_cast<uint32_t>(Stat().st_size); }
    // High half times 2E+32 plus the low half as a signed 32-bit number, as defined.
    double GetLength64() const;

private:
    bool NextListed();
    const struct stat& Stat() const;
    static uint64_t FileTime(const timespec& t);

    __dirstream* m_dir = nullptr;
    int m_openError = 0;
    std::string m_root;
    std::string m_mask;
    std::string m_name;
    bool m_isDir = false;
    mutable bool m_statDone = false;
    mutable struct stat m_stat {};
};
