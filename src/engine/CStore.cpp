#include "engine/CStore.h"

#include "engine/CDriveMap.h"
#include "platform/modPlatformPaths.h"
#include "support/CRuntimeError.h"
#include "support/modFSCommon.h"
#include "support/modFileCopy.h"
#include "support/modNumText.h"
#include "support/modServices.h"

#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace {

constexpr const char* kUnfinishedMark = ".unfinished";
constexpr long kFuseMagic = 0x65735546; // FUSE_SUPER_MAGIC

std::atomic<bool> g_useAnonymous = true;

// Signs the bytes of a copy as the copy writes them, and ends the copy at its next piece once
// `stop` is true.
class SigningObserver : public ICopyObserver {
public:
    explicit SigningObserver(const std::atomic<bool>* stop = nullptr) : m_stop(stop) {}
    void Restart() override { m_stream.Restart(); }
    void Written(const char* data, size_t size) override { m_stream.Add(data, size); }
    bool Stopped() const override { return m_stop && m_stop->load(std::memory_order_relaxed); }
    CSignatureStream& Stream() { return m_stream; }

private:
    CSignatureStream m_stream;
    const std::atomic<bool>* m_stop;
};

bool IsTemporaryName(const std::string& name) {
    return name.size() > 4 && name[0] == '.' && name.compare(name.size() - 4, 4, ".tmp") == 0;
}

void LogLine(int32_t level, const std::string& line) {
    Log(level, line);
}

} // namespace

FolderHandle::~FolderHandle() {
    if (fd >= 0) ::close(fd);
}

StoreFailure CStore::CopyFailure(const CopyOutcome& outcome) {
    std::string cause = "the copy into the store failed";
    if (outcome.systemError != 0) cause += ": " + FSPlainCause(outcome.systemError);
    return {cause, outcome.systemError};
}

void CStore::UseAnonymousFiles(bool use) {
    g_useAnonymous = use;
}

void CStore::Open(const std::string& root) {
    Close();
    int fd = ::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const int error = fd < 0 ? errno : 0;
    // A store folder that went while its backup folder stayed (removed by hand, or a catalogue
    // copied to a new drive) is made again; content its rows name is stored afresh when met.
    // Only where the folder above holds the catalogue: an empty folder in its place is the
    // mount point of a drive that is not there, on the system disk.
    const std::string above = FSGetPathPart(root.substr(0, root.find_last_not_of('/') + 1));
    if (error == ENOENT && !above.empty() && FSFileExists(above + "db/Backup.db") &&
        ::mkdir(root.c_str(), kPrivateFolderMode) == 0) {
        Log(1, "The store folder " + root + " was missing and was made anew");
        fd = ::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    }
    struct stat st {};
    if (fd < 0 || ::fstat(fd, &st) != 0) {
        if (fd >= 0) ::close(fd);
        Raise(err::kDeviceUnavailable, "Backup folder not available: " + root);
    }
    m_root = root;
    m_rootFolder = std::make_shared<FolderHandle>(fd);
    m_rootFd = fd;
    m_device = st.st_dev;
    m_inode = st.st_ino;
    m_open = true;
    m_folders.clear();
    ReadLegacyNames();
    // Anonymous files need O_TMPFILE from the file system and /proc to link them by.
    m_procFds = ::access("/proc/self/fd", X_OK) == 0;
    m_way = StagingWay::kNamed;
    if (g_useAnonymous && m_procFds) {
        const int probe = ::openat(m_rootFd, ".", O_TMPFILE | O_RDWR | O_CLOEXEC, kPrivateFileMode);
        if (probe >= 0) {
            ::close(probe);
            m_way = StagingWay::kAnonymous;
        }
    }
    struct statfs fs {};
    m_flushEach = ::fstatfs(m_rootFd, &fs) == 0 && fs.f_type == kFuseMagic;
    const std::string mark = FSBuildPath(m_root, kUnfinishedMark);
    if (FSFileExists(mark)) RemoveTemporaries();
    // A store that cannot take the mark cannot take a temporary file either.
    const int markFd =
        ::open(mark.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, kPrivateFileMode);
    if (markFd >= 0) ::close(markFd);
}

void CStore::Close() {
    if (!m_open) return;
    m_open = false;
    m_rootFolder.reset(); // closed once no staged file needs it
    m_rootFd = -1;
    struct stat st {};
    // The mark of a store folder that went away stays where it is.
    if (::stat(m_root.c_str(), &st) == 0 && st.st_dev == m_device && st.st_ino == m_inode)
        FSDeleteFile(FSBuildPath(m_root, kUnfinishedMark));
}

std::string CStore::StorePath(const std::string& root, const std::string& name) {
    // Without the error trap of FSBuildPath: the read-ahead's workers ask for store paths too,
    // and the error handler belongs to the run's thread.
    const std::string first = name.substr(0, 2);
    const std::string second = name.size() > 2 ? name.substr(2, 2) : std::string();
    return FSJoinPath(FSJoinPath(FSJoinPath(root, first), second), name);
}

std::string CStore::SignatureOfName(const std::string& name) {
    return name.substr(0, name.size() >= 4 ? name.size() - 4 : 0);
}

std::string CStore::Target(const std::string& signature) const {
    return StorePath(m_root, signature + ".QRV");
}

void CStore::CheckIdentity() const {
    struct stat st {};
    if (::stat(m_root.c_str(), &st) != 0 || st.st_dev != m_device || st.st_ino != m_inode)
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
        int error = ::mkdir(folder.c_str(), kPrivateFolderMode) == 0 ? 0 : errno;
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
    DIR* dir = ::opendir(m_root.c_str());
    if (!dir) return;
    while (const dirent* entry = ::readdir(dir)) {
        const std::string name = entry->d_name;
        if (name.size() > 4 && name.compare(name.size() - 4, 4, ".QRV") == 0 &&
            (entry->d_type == DT_REG || entry->d_type == DT_UNKNOWN))
            m_legacy.insert(name);
    }
    ::closedir(dir);
}

bool CStore::MoveLegacy(const std::string& legacy, const std::string& target) {
    CheckIdentity();
    if (!FSMoveFile(legacy, target)) return false;
    m_legacy.erase(FSGetNamePart(legacy));
    ::chmod(target.c_str(), kPrivateFileMode); // written by an earlier version, maybe public
    return true;
}

CStagedContent::~CStagedContent() {
    if (m_fd >= 0) ::close(m_fd);
    if (!m_placed && !m_name.empty()) ::unlinkat(m_folder->fd, m_name.c_str(), 0);
}

std::unique_ptr<CStagedContent> CStore::NewStaging(const std::string& folder, int& error) const {
    std::unique_ptr<CStagedContent> staged(new CStagedContent);
    if (m_way == StagingWay::kAnonymous) {
        staged->m_fd = ::openat(m_rootFd, ".", O_TMPFILE | O_RDWR | O_CLOEXEC, kPrivateFileMode);
        if (staged->m_fd < 0) {
            error = errno;
            return nullptr;
        }
        ::fchmod(staged->m_fd, kPrivateFileMode); // whatever the umask
    } else {
        // In the store folder opened, whatever its path names now, unless a folder is named.
        if (folder.empty()) {
            staged->m_folder = m_rootFolder;
        } else {
            const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
            if (fd < 0) {
                error = errno;
                return nullptr;
            }
            staged->m_folder = std::make_shared<FolderHandle>(fd);
        }
        const TempFile temp =
            FSCreateTempIn(staged->m_folder->fd, folder.empty() ? "staged" : "store");
        if (temp.fd < 0) {
            error = errno;
            return nullptr;
        }
        staged->m_fd = temp.fd;
        staged->m_name = temp.name;
    }
    staged->m_write = staged->m_folder
                          ? FSJoinPath(folder.empty() ? m_root : folder, staged->m_name)
                          : "/proc/self/fd/" + std::to_string(staged->m_fd);
    return staged;
}

SignedContent CStore::Finish(CStagedContent& staged, CSignatureStream& signer, double size) const {
    // A copy method that could not show its bytes leaves them to be read back.
    if (size == static_cast<double>(signer.Length())) return signer.Finish();
    return ComputeOpenSignature(staged.m_fd).value_or(SignedContent{});
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
    if (named && m_flushEach && ::fsync(staged->m_fd) != 0) {
        const int flushError = errno;
        problem = {"the copy in the store could not be flushed: " + FSPlainCause(flushError),
                   flushError};
        return nullptr;
    }
    return staged;
}

CStore::AheadCopy CStore::StageAhead(const std::string& source,
                                     const std::atomic<bool>* stop) const {
    AheadCopy ahead;
    int error = 0;
    ahead.staged = NewStaging({}, error);
    if (!ahead.staged) return ahead; // the run copies it itself, and says what goes wrong
    ahead.tried = true;
    SigningObserver signer(stop);
    ahead.outcome = CopyWithRetries(
        source, ahead.staged->Destination(), &signer,
        [&ahead](int32_t level, const std::string& line) { ahead.lines.emplace_back(level, line); },
        stop);
    if (ahead.outcome.copied) {
        ahead.staged->m_content = Finish(*ahead.staged, signer.Stream(), ahead.outcome.size);
        const bool flushed =
            m_way == StagingWay::kAnonymous || !m_flushEach || ::fsync(ahead.staged->m_fd) == 0;
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
    if (!staged.m_folder) {
        // A link never replaces a file: content stored already stays as it is.
        if (::linkat(AT_FDCWD, staged.m_write.c_str(), AT_FDCWD, target.c_str(),
                     AT_SYMLINK_FOLLOW) != 0)
            error = errno;
    } else {
        error = FSRenameNoReplaceAt(staged.m_folder->fd, staged.m_name, target);
    }
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
    for (const std::string& path : finder.Files()) {
        if (!IsTemporaryName(FSGetNamePart(path))) continue;
        FSDeleteFile(path);
        ++removed;
    }
    Log(1, "Removed " + NumText(removed) + " unfinished backup files of an interrupted run");
}
