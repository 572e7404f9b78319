#pragma once

// Windows only: the platform layer promises "the system's error number", an errno value that
// callers give to strerror and compare with ENOENT, EACCES, ENOSPC, EEXIST and the like. Every
// Windows half turns GetLastError() into that number here, in one place.
//
// The mapping (anything not listed is EINVAL, as the C runtime's own mapping does):
//   ENOENT        file or path not found, bad drive, bad network path or share, a name that
//                 Windows does not allow (nothing can be there)
//   ENOTDIR       ERROR_DIRECTORY (a folder name that is not a folder)
//   EACCES        access denied, sharing and lock violations, a network access refused, a
//                 drive locked, a file whose deletion is pending, a privilege not held
//   EEXIST        the file or folder exists already
//   ENOSPC        disk full (also the handle's disk full and a quota exceeded: Windows has no
//                 EDQUOT, so IsDiskFullError sees a full quota as a full drive)
//   EFBIG         a file too large for its file system (FAT32's 4 GiB)
//   EROFS         a write-protected medium
//   EIO           CRC, read and write faults, general failure, a device that is not ready or
//                 not connected, a sector not found, an I/O device error
//   ENOTEMPTY     a folder that is not empty
//   EXDEV         a move to another drive
//   ENAMETOOLONG  a name or path too long
//   ELOOP         a chain of links that cannot be resolved
//   EWOULDBLOCK   an operation that would have to wait (a lock taken by another handle)
//   ENOTSUP       an operation that the file system or device does not support (also
//                 ERROR_INVALID_FUNCTION, its usual answer for one)
//   EBADF         an invalid handle
//   ENOMEM        not enough memory
//   EBUSY         a resource in use (a drive being used, a pipe busy)
//   EMFILE        too many open files
//   EPIPE         a broken pipe
//   ENOEXEC       a file that is not a program (bad executable format)

#ifdef _WIN32

// The errno value for a Windows error code.
int ErrnoFromWin32(unsigned long error);
// ErrnoFromWin32(GetLastError()).
int LastErrno();

#endif
