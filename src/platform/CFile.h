#pragma once

// A file the program writes itself, kept open while it writes: the daily log, the error report
// and the trace. Files it makes are private to the user and not inherited by programs it starts.

#include <cstdint>
#include <string>
#include <string_view>

class CFile {
public:
    enum class Mode {
        kAppend,  // made when missing; every write goes to the end
        kReplace, // made when missing, emptied when there
    };

    CFile() = default;
    ~CFile();
    CFile(CFile&& other) noexcept;
    CFile& operator=(CFile&& other) noexcept;

    // False with Error() set.
    bool Open(const std::string& path, Mode mode);
    // Writes all of `data`; false with Error() set (EIO for a write that took nothing without
    // saying why).
    bool WriteAll(std::string_view data);
    void Close();
    bool IsOpen() const { return m_fd >= 0; }
    // The system's error number of the last step that failed.
    int Error() const { return m_error; }

private:
    intptr_t m_fd = -1; // a descriptor; on Windows a HANDLE (INVALID_HANDLE_VALUE is -1)
    int m_error = 0;
};

// Makes an empty file at `path`, private to the user whatever the process's file-mode mask,
// when nothing is there; a file (or a link) already there is left as it is.
void MakePrivateFile(const std::string& path);
// Removes the file `path`; 0, or the system's error number.
int RemoveFile(const std::string& path);
// Gives `from` the name `to`, replacing a file of that name in one step; 0, or the system's
// error number.
int RenameReplacing(const std::string& from, const std::string& to);
// Makes the names last given in `folder` (a rename into it) last through a power cut; false
// when the folder could not be flushed (the names are given all the same).
bool SyncFolder(const std::string& folder);
// Whether the system error `error` says that the drive (or the user's quota on it) is full.
bool IsDiskFullError(int error);
