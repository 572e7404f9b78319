#include "engine/CStore.h"

#include "engine/CDriveMap.h"
#include "support/CRuntimeError.h"
#include "support/modFSCommon.h"
#include "support/modFileCopy.h"
#include "support/modNumText.h"
#include "support/modPlatformPaths.h"
#include "support/modServices.h"

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

// A temporary file that is deleted unless it was moved into place.
class TempFile {
public:
    explicit TempFile(std::string path) : m_path(std::move(path)) {}
    ~TempFile() {
        if (!m_path.empty()) FSDeleteFile(m_path);
    }
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;

    const std::string& Path() const { return m_path; }
    void Placed() { m_path.clear(); }

private:
    std::string m_path;
};

bool IsTemporaryName(const std::string& name) {
    return name.size() > 4 && name[0] == '.' && name.compare(name.size() - 4, 4, ".tmp") == 0;
}

} // namespace

void CStore::Open(const std::string& root) {
    Close();
    struct stat st {};
    if (::stat(root.c_str(), &st) != 0 || !S_ISDIR(st.st_mode))
        Raise(err::kDeviceUnavailable, "Backup folder not available: " + root);
    m_root = root;
    m_device = st.st_dev;
    m_inode = st.st_ino;
    m_open = true;
    const std::string mark = FSBuildPath(m_root, kUnfinishedMark);
    if (FSFileExists(mark)) RemoveTemporaries();
    // A store that cannot take the mark cannot take a temporary file either.
    const int fd =
        ::open(mark.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, kPrivateFileMode);
    if (fd >= 0) ::close(fd);
}

void CStore::Close() {
    if (!m_open) return;
    m_open = false;
    struct stat st {};
    // The mark of a store folder that went away stays where it is.
    if (::stat(m_root.c_str(), &st) == 0 && st.st_dev == m_device && st.st_ino == m_inode)
        FSDeleteFile(FSBuildPath(m_root, kUnfinishedMark));
}

std::string CStore::StorePath(const std::string& root, const std::string& name) {
    const std::string first = name.substr(0, 2);
    const std::string second = name.size() > 2 ? name.substr(2, 2) : std::string();
    return FSBuildPath(FSBuildPath(FSBuildPath(root, first), second), name);
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
    const std::string outer = FSGetPathPart(inner);
    for (const std::string& folder : {outer.substr(0, outer.size() - 1), inner})
        if (!FSFolderExists(folder)) FSCreateFolder(folder);
}

bool CStore::MoveLegacy(const std::string& legacy, const std::string& target) {
    CheckIdentity();
    if (!FSMoveFile(legacy, target)) return false;
    ::chmod(target.c_str(), kPrivateFileMode); // written by an earlier version, maybe public
    return true;
}

SignedContent CStore::Copy(const std::string& source, const std::string& target) {
    SignedContent copied = CopyToPlace(source, target);
    if (copied.length == 0 || Target(copied.signature) != target) {
        // Nothing went to `target`: the folders made for it go again when they are empty.
        const std::string inner = FSGetPathPart(target);
        if (FSDeleteEmptyFolder(inner))
            FSDeleteEmptyFolder(FSGetPathPart(inner.substr(0, inner.size() - 1)));
    }
    return copied;
}

SignedContent CStore::CopyToPlace(const std::string& source, const std::string& target) {
    CheckIdentity();
    TempFile temp(FSCreateTempBeside(target));
    SigningObserver signer;
    if (!FSCopyFile(source, temp.Path(), &signer)) return {};
    // A copy method that could not show its bytes leaves them to be read back.
    SignedContent copied =
        static_cast<double>(signer.Stream().Length()) == FSGetFileSize(temp.Path())
            ? signer.Stream().Finish()
            : SignFile(temp.Path());
    if (copied.signature.empty() || copied.length == 0) return copied;

    const std::string place = Target(copied.signature);
    if (place != target) CreateFolders(place);
    CheckIdentity();
    if (FSFileExists(place)) return copied; // that content is stored already
    if (!FSMoveFile(temp.Path(), place)) return {};
    temp.Placed();
    return copied;
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
