#pragma once

// Lists what a backup run must look at: walks a source breadth-first (the folder list is the
// walk's queue), applies the hidden, extension and folder exclusions, keeps the files in
// discovery order for the run to step through, and records one Paths row per folder.
// Each list holds at most 512000 entries; past that "Max file/folder limit exceeded in " is
// logged, FileCount keeps counting, and a folder past the limit makes the walk fail with
// error 9. EOF is spelled Eof() here (EOF is a C macro).
// The backup folder is never walked: a folder found to be it (by device and inode, so a link
// or another spelling of the backup path is seen through) is left out with all it holds, with
// one line at level 2, so that a source holding the backup folder never backs up the store,
// catalogue and logs into themselves.

#include "engine/CFileFind.h"
#include "engine/CFileList.h"

#include <cstdint>
#include <string>
#include <vector>

class CDatabase;
class CMetadataDB;

inline constexpr int32_t kMaxListEntries = 512000;

class CDriveMap {
public:
    CDriveMap() { Reset(); }

    void Reset();
    // "" changes nothing; any other text is split at every single blank and replaces the list.
    void ExcludeFiles(const std::string& patterns);
    void ExcludeDirs(const std::string& folders);
    void SourcePath(const std::string& path) { m_source = path; }
    void Database(CDatabase* db) { m_db = db; }
    // Where the walk adds the metadata of the source folder, of each folder and of each file it
    // lists (an empty file as one), from the status the listing took anyway, and of each
    // symbolic link that the file rules would let through, with the text it holds (links are
    // never followed, and never become files of the run); none: nullptr.
    void Metadata(CMetadataDB* record) { m_record = record; }
    // Whether each file goes into the list with the stamp the listing told of it, for the
    // quick check (CFileList::Stamp); off after Reset.
    void KeepStamps(bool keep) { m_keepStamps = keep; }
    int32_t FileCount() const { return m_fileCount; }
    // The sizes of the files listed, added up as the listing told them.
    uint64_t TotalBytes() const { return m_totalBytes; }
    // The files the rules left out: hidden, system, excluded by their extension.
    int64_t HiddenFiles() const { return m_hiddenFiles; }
    int64_t SystemFiles() const { return m_systemFiles; }
    int64_t ExcludedFiles() const { return m_excludedFiles; }
    int32_t Idx() const { return m_cursor; }
    void BackupID(int32_t bid) { m_bid = bid; }
    int32_t BackupID() const { return m_bid; }
    void Hidden(bool value) { m_hidden = value; }
    bool Hidden() const { return m_hidden; }
    void System(bool value) { m_system = value; }
    bool System() const { return m_system; }
    // The folder the walk steps around wherever it meets it (the backup folder); "" for none.
    void SkipFolder(const std::string& path);
    // Walks the source; the result carries no information (always false).
    bool Exec();
    void MoveFirst() { m_cursor = 1; }
    void MoveNext();
    bool Eof();
    // The file at the cursor; a cursor of 0 or past 512000 raises error 9.
    std::string FilePath() const;
    bool LimitExceeded() const { return m_limitExceeded; }

    // The files listed, in discovery order (at most 512000).
    const CFileList& Files() const { return m_files; }
    // The folders of the last walk that could not be read, as "<folder>: <cause>".
    const std::vector<std::string>& UnreadableFolders() const { return m_unreadableFolders; }
    // The folders found, in discovery order (the walk's queue).
    const std::vector<std::string>& Folders() const { return m_folders; }

private:
    void Search(const std::string& folder);
    void TestEntry(const CFileFind& finder);
    // Adds `path`'s metadata from `status` to the record, if there is one.
    void Note(const std::string& path, const PathStatus& status, bool folder);
    void NoteLink(const std::string& path, const PathStatus& status);
    bool ExcludedFolder(const std::string& name) const;
    bool ExcludedFile(const std::string& name) const;

    CFileList m_files;
    int32_t m_fileCount = 0;
    uint64_t m_totalBytes = 0;
    int64_t m_hiddenFiles = 0;
    int64_t m_systemFiles = 0;
    int64_t m_excludedFiles = 0;
    int32_t m_cursor = 1;
    std::vector<std::string> m_folders;
    int32_t m_folderCursor = 1;
    int32_t m_folderCount = 0;
    int32_t m_bid = 0;
    bool m_hidden = false;
    bool m_system = false;
    std::vector<std::string> m_patternExts; // lower-case extensions of the excluded patterns
    bool m_patternsActive = false;
    std::vector<std::string> m_exFolders; // lower-case excluded folder names
    bool m_foldersActive = false;
    bool m_keepStamps = false;
    CDatabase* m_db = nullptr;
    CMetadataDB* m_record = nullptr;
    bool m_limitExceeded = false;
    std::vector<std::string> m_unreadableFolders;
    FolderIdentity m_skip;
    std::string m_source;
};
