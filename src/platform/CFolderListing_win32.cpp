#include "platform/CFolderListing.h"

#include "platform/modWin32Error.h"
#include "platform/modWin32Status.h"
#include "platform/modWin32Text.h"

#include <cerrno>

// FindFirstFileExW and FindNextFileW: each entry comes with its attributes, its size, its times
// and, for a reparse point, its tag, so the kind, Status() and Attributes() need no further
// call. Only the identity does not come with the listing (FindExInfoBasic also leaves out the
// short 8.3 name, which nothing here uses): it is read when Status() is first asked for the
// entry, through a handle opened only to read attributes, on the entry itself (a link as
// itself).

struct CFolderListing::State {
    HANDLE find = INVALID_HANDLE_VALUE;
    std::string folder;
    WIN32_FIND_DATAW data{};
    bool pending = false; // `data` holds an entry that Next has not given yet
    std::string name;
    mutable bool identityDone = false;
    mutable PathStatus status;
};

namespace {

HANDLE FindFirst(const std::wstring& pattern, WIN32_FIND_DATAW& data) {
    HANDLE find = ::FindFirstFileExW(pattern.c_str(), FindExInfoBasic, &data, FindExSearchNameMatch,
                                     nullptr, FIND_FIRST_EX_LARGE_FETCH);
    // Systems before Windows 7 know neither the basic information nor the large fetch.
    if (find == INVALID_HANDLE_VALUE && ::GetLastError() == ERROR_INVALID_PARAMETER)
        find = ::FindFirstFileExW(pattern.c_str(), FindExInfoStandard, &data, FindExSearchNameMatch,
                                  nullptr, 0);
    return find;
}

} // namespace

CFolderListing::CFolderListing() : m_state(std::make_unique<State>()) {}

CFolderListing::~CFolderListing() {
    Close();
}

int CFolderListing::Open(const std::string& folder) {
    Close();
    const std::string pattern = JoinWin32(folder, "*");
    m_state->find = FindFirst(WidePath(pattern), m_state->data);
    if (m_state->find == INVALID_HANDLE_VALUE) {
        const DWORD error = ::GetLastError();
        const DWORD attributes = ::GetFileAttributesW(WidePath(folder).c_str());
        if (attributes != INVALID_FILE_ATTRIBUTES) {
            // A folder with no entry at all (the root of an empty drive lists no "." or "..").
            if ((attributes & FILE_ATTRIBUTE_DIRECTORY) &&
                (error == ERROR_FILE_NOT_FOUND || error == ERROR_NO_MORE_FILES))
                return 0;
            // A file: Windows answers with one error or another (a bad name, no such folder).
            if (!(attributes & FILE_ATTRIBUTE_DIRECTORY)) return ENOTDIR;
        }
        return PathErrno(pattern, error);
    }
    m_state->folder = folder;
    m_state->pending = true;
    return 0;
}

bool CFolderListing::Next(std::string& name, PathKind& kind) {
    State& state = *m_state;
    if (state.find == INVALID_HANDLE_VALUE) return false;
    if (!state.pending && !::FindNextFileW(state.find, &state.data)) return false;
    state.pending = false;
    const WIN32_FIND_DATAW& data = state.data;
    state.name = Narrow(data.cFileName);
    const DWORD tag = (data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) ? data.dwReserved0 : 0;
    PathStatus& status = state.status;
    status = PathStatus();
    status.kind = KindOfAttributes(data.dwFileAttributes, tag);
    status.size = (uint64_t{data.nFileSizeHigh} << 32) | data.nFileSizeLow;
    status.writeNs = NanosecondsOf(data.ftLastWriteTime);
    status.accessNs = NanosecondsOf(data.ftLastAccessTime);
    status.changeNs = NanosecondsOf(data.ftCreationTime);
    status.readOnly = (data.dwFileAttributes & FILE_ATTRIBUTE_READONLY) != 0;
    status.mode = data.dwFileAttributes & kWindowsModeAttributes;
    state.identityDone = false;
    name = state.name;
    kind = status.kind;
    return true;
}

const PathStatus& CFolderListing::Status() const {
    State& state = *m_state;
    if (!state.identityDone && state.status.kind != PathKind::kNone) {
        state.identityDone = true;
        const std::string path = JoinWin32(state.folder, state.name);
        const HANDLE entry = ::CreateFileW(
            WidePath(path).c_str(), FILE_READ_ATTRIBUTES,
            FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
            FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
        BY_HANDLE_FILE_INFORMATION info{};
        if (entry != INVALID_HANDLE_VALUE) {
            if (::GetFileInformationByHandle(entry, &info))
                state.status.identity = {info.dwVolumeSerialNumber,
                                         (uint64_t{info.nFileIndexHigh} << 32) |
                                             info.nFileIndexLow};
            ::CloseHandle(entry);
        } else if (const DWORD error = ::GetLastError();
                   error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) {
            state.status = PathStatus::Missing(ENOENT); // gone meanwhile
        }
        // Otherwise (a system file held without sharing) it is told without its identity.
    }
    return state.status;
}

const PathStatus& CFolderListing::Listed() const {
    return m_state->status;
}

uint32_t CFolderListing::Attributes() const {
    const DWORD attributes = m_state->data.dwFileAttributes;
    return attributes == 0 ? kNormal : attributes;
}

void CFolderListing::Close() {
    if (m_state->find != INVALID_HANDLE_VALUE) ::FindClose(m_state->find);
    m_state->find = INVALID_HANDLE_VALUE;
    m_state->pending = false;
}
