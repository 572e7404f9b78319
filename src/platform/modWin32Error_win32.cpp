#include "platform/modWin32Error.h"

#include "platform/modWin32.h"

#include <cerrno>

// Codes that mingw-w64's headers leave out, with the values Windows gives them.
#ifndef ERROR_DISK_QUOTA_EXCEEDED
#define ERROR_DISK_QUOTA_EXCEEDED 1295L
#endif
#ifndef ERROR_STOPPED_ON_SYMLINK
#define ERROR_STOPPED_ON_SYMLINK 681L
#endif

int ErrnoFromWin32(unsigned long error) {
    switch (error) {
    case ERROR_SUCCESS:
        return 0;
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_DRIVE:
    case ERROR_BAD_NETPATH:
    case ERROR_BAD_NET_NAME:
    case ERROR_BAD_PATHNAME:
    case ERROR_INVALID_NAME:
    case ERROR_NO_MORE_FILES:
        return ENOENT;
    case ERROR_DIRECTORY:
        return ENOTDIR;
    case ERROR_ACCESS_DENIED:
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION:
    case ERROR_CURRENT_DIRECTORY:
    case ERROR_NETWORK_ACCESS_DENIED:
    case ERROR_CANNOT_MAKE:
    case ERROR_FAIL_I24:
    case ERROR_DRIVE_LOCKED:
    case ERROR_SEEK_ON_DEVICE:
    case ERROR_NOT_LOCKED:
    case ERROR_LOCK_FAILED:
    case ERROR_DELETE_PENDING:
    case ERROR_PRIVILEGE_NOT_HELD:
        return EACCES;
    case ERROR_FILE_EXISTS:
    case ERROR_ALREADY_EXISTS:
        return EEXIST;
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL:
    case ERROR_DISK_QUOTA_EXCEEDED:
        return ENOSPC;
    case ERROR_FILE_TOO_LARGE:
        return EFBIG;
    case ERROR_WRITE_PROTECT:
        return EROFS;
    case ERROR_CRC:
    case ERROR_READ_FAULT:
    case ERROR_WRITE_FAULT:
    case ERROR_GEN_FAILURE:
    case ERROR_NOT_READY:
    case ERROR_DEVICE_NOT_CONNECTED:
    case ERROR_SECTOR_NOT_FOUND:
    case ERROR_IO_DEVICE:
    case ERROR_UNEXP_NET_ERR:
    case ERROR_NETNAME_DELETED:
        return EIO;
    case ERROR_DIR_NOT_EMPTY:
        return ENOTEMPTY;
    case ERROR_NOT_SAME_DEVICE:
        return EXDEV;
    case ERROR_FILENAME_EXCED_RANGE:
    case ERROR_BUFFER_OVERFLOW:
        return ENAMETOOLONG;
    case ERROR_CANT_RESOLVE_FILENAME:
    case ERROR_STOPPED_ON_SYMLINK:
        return ELOOP;
    case ERROR_IO_PENDING:
        return EWOULDBLOCK;
    case ERROR_NOT_SUPPORTED:
    case ERROR_INVALID_FUNCTION:
        return ENOTSUP;
    case ERROR_INVALID_HANDLE:
    case ERROR_INVALID_TARGET_HANDLE:
    case ERROR_DIRECT_ACCESS_HANDLE:
        return EBADF;
    case ERROR_NOT_ENOUGH_MEMORY:
    case ERROR_OUTOFMEMORY:
    case ERROR_NOT_ENOUGH_QUOTA:
        return ENOMEM;
    case ERROR_BUSY:
    case ERROR_BUSY_DRIVE:
    case ERROR_PIPE_BUSY:
        return EBUSY;
    case ERROR_TOO_MANY_OPEN_FILES:
        return EMFILE;
    case ERROR_BROKEN_PIPE:
    case ERROR_NO_DATA:
        return EPIPE;
    case ERROR_BAD_FORMAT:
    case ERROR_BAD_EXE_FORMAT:
        return ENOEXEC;
    default:
        return EINVAL;
    }
}

int LastErrno() {
    return ErrnoFromWin32(::GetLastError());
}
