#include "engine/CStore.h"

#include "engine/CDriveMap.h"
#include "platform/CFile.h"
#include "platform/modFileStatus.h"
#include "platform/modFileSystem.h"
#include "support/CRuntimeError.h"
#include "support/CServiceContext.h"
#include "support/modFSCommon.h"
#include "support/modFileCopy.h"
#include "support/modNumText.h"
#include "support/modServices.h"

#include "engine/CFileFind.h"

#include <cerrno>
#include <string_view>

namespace {

constexpr const char* kUnfinishedMark = ".unfinished";

struct StagingChoice {
    std::atomic<bool> useAnonymous = true;
};

// Signs the bytes of a copy as the copy writes them, and ends the copy at its next piece once
// `stop` is true.
class SigningObserver : public ICopyObserver {
public:
    explicit SigningObserver(const std::atomic<bool>* stop = nullptr,
                             std::atomic<uint64_t>* read = nullptr)
        : m_stop(stop), m_read(read) {}
    void Restart() override { m_stream.Restart(); }
    void Written(const char* data, size_t size) override {
        m_stream.Add(data, size);
        if (m_read) m_read->fetch_add(size, std::memory_order_relaxed);
    }
    bool Stopped() const override { return m_stop && m_stop->load(std::memory_order_relaxed); }
    CSignatureStream& Stream() { return m_stream; }

private:
    CSignatureStream m_stream;
    const std::atomic<bool>* m_stop;
    std::atomic<uint64_t>* m_read;
};

bool IsTemporaryName(const std::string& name) {
    return name.size() > 4 && name[0] == '.' && name.compare(name.size() - 4, 4, ".tmp") == 0;
}

void LogLine(int32_t level, const std::string& line) {
    Log(level, line);
}

} // namespace

StoreFailure CStore::CopyFailure(const CopyOutcome& outcome) {
    std::string cause = "the copy into the store failed";
    if (outcome.systemError != 0) cause += ": " + FSPlainCause(outcome.systemError);
    return {cause, outcome.systemError};
}

void CStore::UseAnonymousFiles(bool use) {
    ServicePart<StagingChoice>().useAnonymous = use;
}

void CStore::Open(const std::string& root) {
    Close();
    auto folder = std::make_shared<COpenFolder>();
    int error = folder->Open(root);
    // A store folder that went while its backup folder stayed (removed by hand, or a catalogue
    // copied to a new drive) is made again; content its rows name is stored afresh when met.
    // Only where the folder above holds the catalogue: an empty folder in its place is the
    // mount point of a drive that is not there, on the system disk.
    size_t end = root.size();
    while (end > 0 && IsPathSeparator(root[end - 1]))
        --end;
    const std::string above = FSGetPathPart(root.substr(0, end));
    if (error == ENOENT && !above.empty() &&
        FSFileExists(FSJoinPath(FSJoinPath(above, "db"), "Backup.db")) && MakeFolder(root) == 0) {
        Log(1, "The store folder " + root + " was missing and was made anew");
        error = folder->Open(root);
    }
    if (error != 0) Raise(err::kDeviceUnavailable, "Backup folder not available: " + root);
    m_root = root;
    m_rootFolder = std::move(folder);
    m_identity = m_rootFolder->Identity();
    m_open = true;
    m_folders.clear();
    ReadLegacyNames();
    m_way = ServicePart<StagingChoice>().useAnonymous && m_rootFolder->HasAnonymousFiles()
                ? StagingWay::kAnonymous
                : StagingWay::kNamed;
    m_flushEach = m_rootFolder->NeedsFlushPerFile();
    const std::string mark = FSBuildPath(m_root, kUnfinishedMark);
    if (FSFileExists(mark)) RemoveTemporaries();
    // A store that cannot take the mark cannot take a temporary file either.
    MakePrivateFile(mark);
}

void CStore::Close() {
    if (!m_open) return;
    m_open = false;
    m_rootFolder.reset(); // closed once no staged file needs it
    // The mark of a store folder that went away stays where it is.
    const PathStatus status = StatusOf(m_root);
    if (status.kind == PathKind::kFolder && status.identity == m_identity)
        FSDeleteFile(FSBuildPath(m_root, kUnfinishedMark));
}

std::string CStore::StorePath(const std::string& root, const std::string& name) {
    // Without the error trap of FSBuildPath: the read-ahead's workers ask for store paths too,
    // and the error handler belongs to the run's thread.
    // FSJoinPath(FSJoinPath(FSJoinPath(root, first), second), name), made in one string: the
    // run asks for a store path for every file it meets.
    const std::string_view whole(name);
    std::string path;
    path.reserve(root.size() + 7 + name.size());
    path = root;
    const auto join = [&path](std::string_view part) {
        if (path.empty()) {
            path = part;
            return;
        }
        while (!path.empty() && IsPathSeparator(path.back()))
            path.pop_back();
        while (!part.empty() && IsPathSeparator(part.front()))
            part.remove_prefix(1);
        path += kPathSeparator;
        path += part;
    };
    join(whole.substr(0, 2));
    join(name.size() > 2 ? whole.substr(2, 2) : std::string_view());
    join(whole);
    return path;
}

std::string CStore::SignatureOfName(const std::string& name) {
    return name.substr(0, name.size() >= 4 ? name.size() - 4 : 0);
}

std::string CStore::Target(const std::string& signature) const {
    return StorePath(m_root, signature + ".QRV");
}

double CStore::StoredSize(const std::string& signature) const {
    const std::string name = signature + ".QRV";
    // Below the folder opened: a look that walks two folders instead of the whole path.
    const PathStatus status = m_rootFolder ? m_rootFolder->Status(StorePath({}, name))
                                           : StatusOf(StorePath(m_root, name));
    if (!status.Exists() || status.kind == PathKind::kFolder) return -1;
    return static_cast<double>(status.size);
}

void CStore::CheckIdentity() const {
    const PathStatus status = StatusOf(m_root);
    if (status.kind != PathKind::kFolder || status.identity != m_identity)
        Raise(err::kDeviceUnavailable, "Backup folder not available: " + m_root);
}

bool CStore::CreateFolders(const std::string& target, StoreFailure* problem) {
    CheckIdentity();
    std::string inner = FSGetPathPart(target);
    inner.pop_back();
    if (m_folders.count(inner)) return true;
    const std::string outer = FSGetPathPart(inner);
    for (const std::string& folder : {outer.substr(0, outer.size() - 1), inner}) {
        if (FSFolderExists(folder)) continue;
        int error = MakeFolder(folder);
        if (error == 0 || (error == EEXIST && FSFolderExists(folder))) continue;
        if (error == EEXIST) error = ENOTDIR; // something else stands in the folder's place
        // A folder that could not be made is asked for again by the next file that needs it.
        if (problem)
            *problem = {"the backup drive refused the store folder " + folder + ": " +
                            FSPlainCause(error),
                        error};
        return false;
    }
    m_folders.insert(inner);
    return true;
}

void CStore::ReadLegacyNames() {
    m_legacy.clear();
    CFileFind finder;
    for (bool found = finder.FindFile(FSJoinPath(m_root, "*.QRV")); found;
         found = finder.FindNextFile()) {
        const std::string& name = finder.GetFileName();
        if (!finder.IsDirectory() && name.size() > 4) m_legacy.insert(name);
    }
}

bool CStore::MoveLegacy(const std::string& legacy, const std::string& target) {
    CheckIdentity();
    if (!FSMoveFile(legacy, target)) return false;
    m_legacy.erase(FSGetNamePart(legacy));
    MakeEntryPrivate(target); // written by an earlier version, maybe public
    return true;
}

CStagedContent::~CStagedContent() {
    if (m_file != kNoFile) CloseFileHandle(m_file);
    if (!m_placed && !m_name.empty()) m_folder->Remove(m_name);
}

std::unique_ptr<CStagedContent> CStore::NewStaging(const std::string& folder, int& error) const {
    std::unique_ptr<CStagedContent> staged(new CStagedContent);
    if (m_way == StagingWay::kAnonymous) {
        staged->m_file = m_rootFolder->CreateAnonymous(error);
        if (staged->m_file == kNoFile) return nullptr;
        staged->m_write = COpenFolder::AnonymousPath(staged->m_file);
        return staged;
    }
    // In the store folder opened, whatever its path names now, unless a folder is named.
    if (folder.empty()) {
        staged->m_folder = m_rootFolder;
    } else {
        staged->m_folder = std::make_shared<COpenFolder>();
        error = staged->m_folder->Open(folder);
        if (error != 0) return nullptr;
    }
    const TempFile temp = FSCreateTempIn(*staged->m_folder, folder.empty() ? "staged" : "store");
    if (temp.file == kNoFile) {
        error = temp.error;
        return nullptr;
    }
    staged->m_file = temp.file;
    staged->m_name = temp.name;
    staged->m_write = FSJoinPath(folder.empty() ? m_root : folder, staged->m_name);
    return staged;
}

SignedContent CStore::Finish(CStagedContent& staged, CSignatureStream& signer, double size) const {
    // A copy method that could not show its bytes leaves them to be read back.
    if (size == static_cast<double>(signer.Length())) return signer.Finish();
    return ComputeOpenSignature(staged.m_file).value_or(SignedContent{});
}

std::unique_ptr<CStagedContent> CStore::Stage(const std::string& source, const std::string& beside,
                                              StoreFailure& problem) {
    CheckIdentity();
    const bool named = m_way == StagingWay::kNamed;
    // A named file waits beside the place the content is expected to take, in store folders
    // that may not be there yet.
    if (named && !CreateFolders(beside, &problem)) return nullptr;
    const std::string folder = named ? FSGetPathPart(beside) : std::string();
    int error = 0;
    std::unique_ptr<CStagedContent> staged = NewStaging(folder, error);
    if (!staged) {
        problem = {"the backup drive refused a new file in " + (named ? folder : m_root) + ": " +
                       FSPlainCause(error),
                   error};
        return nullptr;
    }
    SigningObserver signer;
    const CopyOutcome outcome = CopyWithRetries(source, staged->Destination(), &signer, LogLine);
    if (!FSCopyEnded(source, outcome)) {
        problem = CopyFailure(outcome);
        return nullptr;
    }
    staged->m_content = Finish(*staged, signer.Stream(), outcome.size);
    if (staged->m_content.signature.empty()) {
        problem = {"the copy in the store could not be read back", 0};
        return nullptr;
    }
    if (const int flushError = named && m_flushEach ? FlushToDisk(staged->m_file) : 0;
        flushError != 0) {
        problem = {"the copy in the store could not be flushed: " + FSPlainCause(flushError),
                   flushError};
        return nullptr;
    }
    return staged;
}

CStore::AheadCopy CStore::StageAhead(const std::string& source, const std::atomic<bool>* stop,
                                     std::atomic<uint64_t>* read) const {
    AheadCopy ahead;
    int error = 0;
    ahead.staged = NewStaging({}, error);
    if (!ahead.staged) return ahead; // the run copies it itself, and says what goes wrong
    ahead.tried = true;
    SigningObserver signer(stop, read);
    ahead.outcome = CopyWithRetries(
        source, ahead.staged->Destination(), &signer,
        [&ahead](int32_t level, const std::string& line) { ahead.lines.emplace_back(level, line); },
        stop);
    if (ahead.outcome.copied) {
        ahead.staged->m_content = Finish(*ahead.staged, signer.Stream(), ahead.outcome.size);
        const bool flushed = m_way == StagingWay::kAnonymous || !m_flushEach ||
                             FlushToDisk(ahead.staged->m_file) == 0;
        if (!ahead.staged->m_content.signature.empty() && flushed) return ahead;
        // Not readable or not flushed: the run copies it itself.
        ahead.tried = false;
    }
    ahead.staged.reset();
    return ahead;
}

bool CStore::Place(CStagedContent& staged, const std::string& target, StoreFailure& problem) {
    if (!CreateFolders(target, &problem)) return false;
    int error = 0;
    // Never replacing a file: content stored already stays as it is.
    if (!staged.m_folder)
        error = COpenFolder::LinkAnonymous(staged.m_file, target);
    else
        error = staged.m_folder->RenameNoReplace(staged.m_name, target);
    // EEXIST: that content is stored already. Where the file system cannot refuse a replace by
    // itself, nothing else places files meanwhile: only the run's thread places them.
    if (error == 0 || error == EEXIST) {
        staged.m_placed = error == 0;
        return true;
    }
    problem = {"the store could not give it its name " + target + ": " + FSPlainCause(error),
               error};
    return false;
}

SignedContent CStore::Copy(const std::string& source, const std::string& target,
                           StoreFailure& problem) {
    std::unique_ptr<CStagedContent> staged = Stage(source, target, problem);
    SignedContent copied = staged ? staged->Content() : SignedContent{};
    bool atTarget = false;
    if (copied.length > 0) {
        const std::string place = Target(copied.signature);
        if (!Place(*staged, place, problem)) copied = {};
        atTarget = place == target && copied.length > 0;
    }
    staged.reset(); // a temporary file that was not placed goes before its folder is looked at
    if (!atTarget) RemoveEmptyFolders(target);
    return copied;
}

void CStore::RemoveEmptyFolders(const std::string& target) {
    const std::string inner = FSGetPathPart(target);
    m_folders.erase(inner.substr(0, inner.size() - 1));
    if (FSDeleteEmptyFolder(inner))
        FSDeleteEmptyFolder(FSGetPathPart(inner.substr(0, inner.size() - 1)));
}

void CStore::RemoveTemporaries() {
    CDriveMap finder;
    finder.Hidden(true);
    finder.System(true);
    finder.SourcePath(m_root);
    finder.Exec();
    int32_t removed = 0;
    const CFileList& files = finder.Files();
    for (size_t i = 0; i < files.size(); ++i) {
        const std::string path = files[i];
        if (!IsTemporaryName(FSGetNamePart(path))) continue;
        FSDeleteFile(path);
        ++removed;
    }
    Log(1, "Removed " + NumText(removed) + " unfinished backup files of an interrupted run");
}
