#include "engine/CDriveMap.h"

#include "catalogue/CDatabase.h"
#include "catalogue/CMetadataDB.h"
#include "platform/modFileStatus.h"
#include "platform/modFileSystem.h"
#include "support/CRuntimeError.h"
#include "support/modFSCommon.h"
#include "support/modServices.h"
#include "support/modText.h"
#include "support/modYield.h"

#include <algorithm>

namespace {
std::vector<std::string> SplitAtBlanks(const std::string& text) {
    std::vector<std::string> items;
    size_t start = 0;
    for (size_t blank; (blank = text.find(' ', start)) != std::string::npos; start = blank + 1)
        items.push_back(text.substr(start, blank - start));
    items.push_back(text.substr(start));
    return items;
}

} // namespace

void CDriveMap::Reset() {
    m_fileCount = 0;
    m_totalBytes = 0;
    m_hiddenFiles = m_systemFiles = m_excludedFiles = 0;
    m_cursor = 1;
    m_folderCursor = 1;
    m_folderCount = 0;
    m_bid = 0;
    m_hidden = false;
    m_system = false;
    m_patternsActive = false;
    m_foldersActive = false;
    m_keepStamps = false;
    m_db = nullptr;
    m_limitExceeded = false;
    m_skip = {};
    // The lists keep their content, as the fixed arrays they stand in for; the counts govern.
    m_files.clear();
    m_folders.resize(0);
    m_unreadableFolders.clear();
}

void CDriveMap::ExcludeFiles(const std::string& patterns) {
    if (patterns.empty()) return;
    m_patternExts.clear();
    // Only a pattern's extension counts: *.tmp, .tmp and x.tmp all exclude the extension tmp.
    for (const std::string& pattern : SplitAtBlanks(patterns))
        m_patternExts.push_back(LowerAscii(FSGetExtension(pattern)));
    m_patternsActive = true;
}

void CDriveMap::ExcludeDirs(const std::string& folders) {
    if (folders.empty()) return;
    m_exFolders.clear();
    for (const std::string& folder : SplitAtBlanks(folders))
        m_exFolders.push_back(LowerAscii(folder));
    m_foldersActive = true;
}

void CDriveMap::SkipFolder(const std::string& path) {
    m_skip = FolderIdentityOf(path);
}

bool CDriveMap::Exec() {
    Log(3, "FindFiles " + m_source);
    if (m_record) Note(m_source, StatusOf(m_source), true);
    Search(m_source);
    while (m_folderCursor <= m_folderCount) {
        DoEvents();
        if (m_folderCursor > kMaxListEntries) Raise(err::kSubscript);
        Search(m_folders[static_cast<size_t>(m_folderCursor - 1)]);
        ++m_folderCursor;
    }
    if (m_limitExceeded) Log(1, "Max file/folder limit exceeded in " + m_source);
    if (m_bid > 0 && m_db) {
        m_db->AddPath(m_bid, FSBuildPath(m_source, std::string(1, kPathSeparator)));
        for (const std::string& folder : m_folders)
            m_db->AddPath(m_bid, folder + kPathSeparator);
    }
    return false;
}

void CDriveMap::Search(const std::string& folder) {
    CFileFind finder;
    finder.ListLinks(m_record != nullptr);
    // FSBuildPath leaves exactly one separator before the "*.*" that FindFile appends.
    for (bool found = finder.FindFile(FSBuildPath(folder, std::string(1, kPathSeparator))); found;
         found = finder.FindNextFile())
        TestEntry(finder);
    if (finder.OpenError() != 0)
        m_unreadableFolders.push_back(folder + ": " + FSPlainCause(finder.OpenError()));
    finder.FindClose();
}

void CDriveMap::TestEntry(const CFileFind& finder) {
    if (finder.IsDots()) return;
    if (finder.IsDirectory()) {
        if (m_skip.known && finder.GetIdentity() == m_skip) {
            Log(2, "Skipped the backup folder " + finder.GetFilePath() +
                       ": Stashwell does not back up its own store");
            return;
        }
        // Hidden folders are always walked; only their files are filtered.
        if (m_foldersActive && ExcludedFolder(FSGetNamePart(finder.GetFileName()))) return;
        std::string path = finder.GetFilePath();
        if (path == m_source) return;
        ++m_folderCount;
        if (m_folderCount > kMaxListEntries) {
            m_limitExceeded = true;
            return;
        }
        Note(path, finder.Listed(), true);
        m_folders.push_back(std::move(path));
        return;
    }
    // Links are no files of the run: they are neither counted nor left out.
    const bool link = finder.IsLink();
    if (!m_hidden && finder.IsHidden()) {
        if (!link) ++m_hiddenFiles;
        return;
    }
    if (!m_system && finder.IsSystem()) {
        if (!link) ++m_systemFiles;
        return;
    }
    if (m_patternsActive && ExcludedFile(finder.GetFileName())) {
        if (!link) ++m_excludedFiles;
        return;
    }
    if (link) {
        NoteLink(finder.GetFilePath(), finder.Listed());
        return;
    }
    ++m_fileCount;
    if (m_fileCount <= kMaxListEntries) {
        const std::string path = finder.GetFilePath();
        const PathStatus& listed = finder.Listed();
        // The stamp goes with the path when the listing told the file's identity (a Windows
        // listing tells none): the read-ahead then takes it instead of looking again.
        const bool stamped = m_keepStamps && listed.identity != FileIdentity{};
        m_files.push_back(path, stamped ? FSStampOfStatus(listed) : FileStamp{});
        m_totalBytes += listed.size;
        Note(path, listed, false);
    } else {
        m_limitExceeded = true;
    }
}

void CDriveMap::Note(const std::string& path, const PathStatus& status, bool folder) {
    if (!m_record || !status.Exists()) return;
    using Kind = EntryMetadata::Kind;
    m_record->Add({path,
                   folder             ? Kind::kFolder
                   : status.size == 0 ? Kind::kEmptyFile
                                      : Kind::kFile,
                   status.writeNs, status.mode, status.owner, status.group, ""});
}

void CDriveMap::NoteLink(const std::string& path, const PathStatus& status) {
    int error = 0;
    std::string target = LinkText(path, error);
    if (error != 0 || !status.Exists()) return; // gone meanwhile, or a system without links
    m_record->Add({path, EntryMetadata::Kind::kLink, status.writeNs, status.mode, status.owner,
                   status.group, std::move(target)});
}

bool CDriveMap::ExcludedFolder(const std::string& name) const {
    return std::find(m_exFolders.begin(), m_exFolders.end(), LowerAscii(name)) != m_exFolders.end();
}

bool CDriveMap::ExcludedFile(const std::string& name) const {
    const std::string ext = LowerAscii(FSGetExtension(name));
    return std::find(m_patternExts.begin(), m_patternExts.end(), ext) != m_patternExts.end();
}

void CDriveMap::MoveNext() {
    if (m_cursor <= m_fileCount) ++m_cursor;
}

bool CDriveMap::Eof() {
    if (m_cursor > m_fileCount) {
        m_cursor = m_fileCount;
        return true;
    }
    return false;
}

std::string CDriveMap::FilePath() const {
    if (m_cursor < 1 || m_cursor > kMaxListEntries ||
        m_cursor > static_cast<int32_t>(m_files.size()))
        Raise(err::kSubscript);
    return m_files[static_cast<size_t>(m_cursor - 1)];
}
