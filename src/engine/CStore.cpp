#include "engine/CStore.h"

#include "engine/CDriveMap.h"
#include "support/CRuntimeError.h"
#include "support/modFSCommon.h"
#include "support/modFileCopy.h"
#include "support/modNumText.h"
#include "support/modPlatformPaths.h"
#include "support/modServices.h"

#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr const char* kUnfinishedMark = ".unfinished";

// Signs the bytes of a copy as the copy writes them.
class SigningObserver : public ICopyObserver {
public:
    void Restart() override { m_stream.Restart(); }
    void Written(const char* data, size_t size) override { m_stream.Add(data, size); }
    CSignatureStream& Stream() { return m_stream; }

private:
    CSignatureStream m_stream;
};

bool IsTemporaryName(const std::string& name) {
    return name.size() > 4 && name[0] == '.' && name.compare(name.size() - 4, 4, ".tmp") == 0;
}

} // namespace

void CStore::Open(const std::string& root) {
    Close();
    const int fd = ::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    struct stat st {};
    if (fd < 0 || ::fstat(fd, &st) != 0) {
        if (fd >= 0) ::close(fd);
        Raise(err::kDeviceUnavailable, "Backup folder not available: " + root);
    }
    m_root = root;
    m_rootFd = fd;
    m_device = st.st_dev;
    m_inode = st.st_ino;
    m_open = true;
    m_folders.clear();
    ReadLegacyNames();
    // Anonymous files need O_TMPFILE from the file system and /proc to link them by.
    m_anonymous = ::access("/proc/self/fd", X_OK) == 0;
    const int probe = OpenAnonymous();
    m_anonymous = probe >= 0;
    if (probe >= 0) ::close(probe);
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
    m_anonymous = false;
    ::close(m_rootFd);
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

void CStore::CreateFolders(const std::string& target) {
    CheckIdentity();
    std::string inner = FSGetPathPart(target);
    inner.pop_back();
    if (m_folders.count(inner)) return;
    const std::string outer = FSGetPathPart(inner);
    bool made = false;
    for (const std::string& folder : {outer.substr(0, outer.size() - 1), inner})
        if (!FSFolderExists(folder)) {
            FSCreateFolder(folder);
            made = true;
        }
    // A folder that could not be made is asked for again by the next file that needs it.
    if (!made || FSFolderExists(inner)) m_folders.insert(inner);
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

CStagedContent::CStagedContent(int fd, SignedContent content)
    : m_fd(fd), m_path("/proc/self/fd/" + std::to_string(fd)), m_content(std::move(content)) {}

CStagedContent::~CStagedContent() {
    if (m_fd >= 0)
        ::close(m_fd);
    else if (!m_placed && !m_path.empty())
        FSDeleteFile(m_path);
}

std::unique_ptr<CStagedContent> CStore::Stage(const std::string& source,
                                              const std::string& beside) {
    CheckIdentity();
    std::unique_ptr<CStagedContent> staged;
    if (const int fd = OpenAnonymous(); fd >= 0) {
        staged = std::make_unique<CStagedContent>(fd, SignedContent{});
    } else {
        // The temporary name lives beside the place the content is expected to take, in a
        // store folder that may not be there yet.
        CreateFolders(beside);
        staged.reset(new CStagedContent);
        staged->m_path = FSCreateTempBeside(beside);
    }
    SigningObserver signer;
    if (!FSCopyFile(source, staged->m_path, &signer)) return nullptr;
    // A copy method that could not show its bytes leaves them to be read back.
    if (static_cast<double>(signer.Stream().Length()) == FSGetFileSize(staged->m_path))
        staged->m_content = signer.Stream().Finish();
    else
        staged->m_content =
            staged->m_fd >= 0 ? SignOpenFile(staged->m_fd) : SignFile(staged->m_path);
    if (staged->m_content.signature.empty()) return nullptr;
    return staged;
}

int CStore::OpenAnonymous() const {
    if (!m_anonymous) return -1;
    const int fd = ::openat(m_rootFd, ".", O_TMPFILE | O_RDWR | O_CLOEXEC, kPrivateFileMode);
    if (fd >= 0) ::fchmod(fd, kPrivateFileMode); // whatever the umask
    return fd;
}

bool CStore::Place(CStagedContent& staged, const std::string& target) {
    CreateFolders(target);
    if (staged.m_fd < 0) {
        if (FSFileExists(target)) return true; // that content is stored already
        staged.m_placed = FSMoveFile(staged.m_path, target);
        return staged.m_placed;
    }
    // A link never replaces a file: content stored already stays as it is.
    return ::linkat(AT_FDCWD, staged.m_path.c_str(), AT_FDCWD, target.c_str(), AT_SYMLINK_FOLLOW) ==
               0 ||
           errno == EEXIST;
}

SignedContent CStore::Copy(const std::string& source, const std::string& target) {
    const std::unique_ptr<CStagedContent> staged = Stage(source, target);
    SignedContent copied = staged ? staged->Content() : SignedContent{};
    if (copied.length > 0) {
        const std::string place = Target(copied.signature);
        if (!Place(*staged, place)) copied = {};
        if (place == target) return copied;
    }
    RemoveEmptyFolders(target); // nothing went to `target`
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
