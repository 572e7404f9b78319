#include "platform/COpenFolder.h"

#include "platform/CFile.h"
#include "platform/modWin32.h"
#include "platform/modWin32Error.h"
#include "platform/modWin32Security.h"
#include "platform/modWin32Status.h"
#include "platform/modWin32Text.h"

#include <cerrno>

// Windows works by path, never relative to a folder's handle, so the folder is held open
// instead: with the right to list it (a handle with no more than the right to read attributes
// takes no part in sharing) and without FILE_SHARE_DELETE, so that while it is held nobody can
// remove or rename it, and its path keeps naming it. Its files are made, renamed and removed by
// that path.
//
// Windows has no anonymous files; a staged file is made under a name and renamed into place with
// MOVEFILE_WRITE_THROUGH, after its own flush: a flush of the whole drive needs an
// administrator, so each file is flushed by itself (NeedsFlushPerFile).

COpenFolder::~COpenFolder() {
    if (m_handle != kNoFile) ::CloseHandle(AsHandle(m_handle));
}

int COpenFolder::Open(const std::string& path) {
    const HANDLE folder = ::CreateFileW(WidePath(path).c_str(),
                                        FILE_LIST_DIRECTORY | FILE_TRAVERSE | FILE_READ_ATTRIBUTES,
                                        FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                        FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (folder == INVALID_HANDLE_VALUE) return PathErrno(path, ::GetLastError());
    BY_HANDLE_FILE_INFORMATION info{};
    int error = 0;
    if (!::GetFileInformationByHandle(folder, &info))
        error = LastErrno();
    else if (!(info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY))
        error = ENOTDIR;
    if (error != 0) {
        ::CloseHandle(folder);
        return error;
    }
    if (m_handle != kNoFile) ::CloseHandle(AsHandle(m_handle));
    m_handle = AsNumber(folder);
    m_path = path;
    m_identity = {info.dwVolumeSerialNumber,
                  (uint64_t{info.nFileIndexHigh} << 32) | info.nFileIndexLow};
    return 0;
}

NativeFile COpenFolder::CreateNew(const std::string& name, int& error) const {
    // Shared for every use, as a descriptor is: the copy opens it again by its path, and the
    // store renames it while it still holds it.
    const std::string path = JoinWin32(m_path, name);
    const HANDLE file =
        ::CreateFileW(WidePath(path).c_str(), GENERIC_READ | GENERIC_WRITE,
                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, PrivateAttributes(),
                      CREATE_NEW, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        error = PathErrno(path, ::GetLastError());
        return kNoFile;
    }
    return AsNumber(file);
}

int COpenFolder::RenameNoReplace(const std::string& name, const std::string& destination) const {
    // Without MOVEFILE_REPLACE_EXISTING an entry at the destination is never replaced
    // (ERROR_ALREADY_EXISTS, EEXIST); without MOVEFILE_COPY_ALLOWED another drive is refused
    // (ERROR_NOT_SAME_DEVICE, EXDEV). MOVEFILE_WRITE_THROUGH returns once the new name is on
    // the disk.
    const std::string path = JoinWin32(m_path, name);
    return ::MoveFileExW(WidePath(path).c_str(), WidePath(destination).c_str(),
                         MOVEFILE_WRITE_THROUGH)
               ? 0
               : PathErrno(destination, ::GetLastError());
}

int COpenFolder::Remove(const std::string& name) const {
    return RemoveFile(JoinWin32(m_path, name));
}

PathStatus COpenFolder::Status(const std::string& name) const {
    return StatusOf(JoinWin32(m_path, name));
}

bool COpenFolder::HasAnonymousFiles() const {
    return false;
}

NativeFile COpenFolder::CreateAnonymous(int& error) const {
    error = ENOTSUP;
    return kNoFile;
}

std::string COpenFolder::AnonymousPath(NativeFile) {
    return std::string(); // there are none
}

int COpenFolder::LinkAnonymous(NativeFile, const std::string&) {
    return ENOTSUP;
}

bool COpenFolder::NeedsFlushPerFile() const {
    return true;
}
