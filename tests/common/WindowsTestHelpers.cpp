#include "WindowsTestHelpers.h"

#ifdef _WIN32

#include "platform/modWin32Text.h"

#include <aclapi.h>
#include <cstdlib>
#include <cwctype>
#include <memory>
#include <mutex>
#include <sddl.h>

namespace {

// The name part of an environment entry "NAME=VALUE" (entries of drives' folders begin with
// "=", which is part of their name).
std::wstring EntryName(const std::wstring& entry) {
    const size_t equals = entry.find(L'=', 1);
    return entry.substr(0, equals);
}

bool SameName(const std::wstring& a, const std::wstring& b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (std::towupper(a[i]) != std::towupper(b[i])) return false;
    return true;
}

// This process's environment with `changes` made, as a block for CreateProcessW.
std::wstring EnvironmentBlock(const std::vector<std::pair<std::string, std::string>>& changes) {
    std::vector<std::wstring> entries;
    if (wchar_t* strings = ::GetEnvironmentStringsW()) {
        for (const wchar_t* at = strings; *at; at += std::wcslen(at) + 1)
            entries.emplace_back(at);
        ::FreeEnvironmentStringsW(strings);
    }
    for (const auto& [name, value] : changes) {
        const std::wstring wideName = Wide(name);
        std::erase_if(entries, [&](const std::wstring& entry) {
            return SameName(EntryName(entry), wideName);
        });
        if (!value.empty()) entries.push_back(wideName + L"=" + Wide(value));
    }
    std::wstring block;
    for (const std::wstring& entry : entries) {
        block += entry;
        block += L'\0';
    }
    block += L'\0';
    return block;
}

std::string ErrorText(const char* what) {
    return std::string(what) + " failed with Windows error " + std::to_string(::GetLastError());
}

// Handles of the started programs are inherited: one program at a time is started, so that no
// program inherits the pipes of another.
std::mutex& StartLock() {
    static std::mutex lock;
    return lock;
}

struct SidOf {
    std::unique_ptr<char[]> bytes;
    PSID Sid() const { return bytes.get(); }
};

SidOf WellKnown(WELL_KNOWN_SID_TYPE type) {
    SidOf sid{std::make_unique<char[]>(SECURITY_MAX_SID_SIZE)};
    DWORD size = SECURITY_MAX_SID_SIZE;
    if (!::CreateWellKnownSid(type, nullptr, sid.Sid(), &size)) sid.bytes.reset();
    return sid;
}

SidOf ProcessUser() {
    SidOf sid;
    HANDLE token = nullptr;
    if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token)) return sid;
    DWORD size = 0;
    ::GetTokenInformation(token, TokenUser, nullptr, 0, &size);
    auto buffer = std::make_unique<char[]>(size ? size : 1);
    if (size && ::GetTokenInformation(token, TokenUser, buffer.get(), size, &size)) {
        const PSID user = reinterpret_cast<TOKEN_USER*>(buffer.get())->User.Sid;
        const DWORD length = ::GetLengthSid(user);
        sid.bytes = std::make_unique<char[]>(length);
        ::CopySid(length, sid.Sid(), user);
    }
    ::CloseHandle(token);
    return sid;
}

std::string SidText(PSID sid) {
    LPWSTR text = nullptr;
    if (!::ConvertSidToStringSidW(sid, &text)) return "an unknown account";
    const std::string narrow = Narrow(text);
    ::LocalFree(text);
    return narrow;
}

} // namespace

void SetWindowsEnvironment(const std::string& name, const std::string& value) {
    // The C runtime keeps a copy of its own that getenv reads; _wputenv changes both it and
    // Windows' environment, which GetEnvironmentVariableW and started programs see.
    const std::wstring entry = Wide(name) + L"=" + Wide(value);
    ::_wputenv(entry.c_str());
    ::SetEnvironmentVariableW(Wide(name).c_str(), value.empty() ? nullptr : Wide(value).c_str());
}

std::string WindowsEnvironment(const std::string& name) {
    const std::wstring wideName = Wide(name);
    const DWORD size = ::GetEnvironmentVariableW(wideName.c_str(), nullptr, 0);
    if (size == 0) return std::string();
    std::wstring value(size, L'\0');
    const DWORD n = ::GetEnvironmentVariableW(wideName.c_str(), value.data(), size);
    value.resize(n < size ? n : 0);
    return Narrow(value);
}

bool AddWindowsAttributes(const std::string& path, uint32_t attributes) {
    const std::wstring wide = WidePath(path);
    const DWORD old = ::GetFileAttributesW(wide.c_str());
    return old != INVALID_FILE_ATTRIBUTES && ::SetFileAttributesW(wide.c_str(), old | attributes);
}

bool SetWindowsFileTimes(const std::string& path, int64_t accessNs, int64_t writeNs) {
    // 100-ns units since 1601.
    const auto fileTime = [](int64_t ns) {
        const uint64_t units = static_cast<uint64_t>(ns / 100 + 116444736000000000LL);
        return FILETIME{static_cast<DWORD>(units), static_cast<DWORD>(units >> 32)};
    };
    HANDLE file = ::CreateFileW(WidePath(path).c_str(), FILE_WRITE_ATTRIBUTES,
                                FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    const FILETIME access = fileTime(accessNs), write = fileTime(writeNs);
    const bool set = ::SetFileTime(file, nullptr, &access, &write);
    ::CloseHandle(file);
    return set;
}

std::string FolderOnAnotherDrive(const std::string& beside, const std::string& prefix) {
    const wchar_t besideDrive =
        beside.size() >= 2 && beside[1] == ':' ? std::towupper(beside[0]) : 0;
    const DWORD drives = ::GetLogicalDrives();
    for (wchar_t letter = L'A'; letter <= L'Z'; ++letter) {
        if (!(drives & (1u << (letter - L'A'))) || letter == besideDrive) continue;
        const std::wstring root = std::wstring(1, letter) + L":\\";
        if (::GetDriveTypeW(root.c_str()) != DRIVE_FIXED) continue;
        const DWORD attributes = ::GetFileAttributesW((root + L"tmp").c_str());
        if (attributes == INVALID_FILE_ATTRIBUTES || !(attributes & FILE_ATTRIBUTE_DIRECTORY))
            continue;
        for (unsigned n = ::GetTickCount() % 100000, tries = 0; tries < 100; ++n, ++tries) {
            const std::wstring folder = root + L"tmp\\" + Wide(prefix) + std::to_wstring(n);
            if (::CreateDirectoryW(folder.c_str(), nullptr)) return Narrow(folder);
        }
    }
    return std::string();
}

uint32_t WindowsProcessId() {
    return ::GetCurrentProcessId();
}

std::string WindowsProgramFile() {
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        const DWORD n = ::GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
        if (n < path.size()) {
            path.resize(n);
            return Narrow(path);
        }
        path.resize(path.size() * 2);
    }
}

ExclusiveHold::ExclusiveHold(const std::string& path)
    : m_handle(::CreateFileW(WidePath(path).c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                             FILE_ATTRIBUTE_NORMAL, nullptr)) {}

ExclusiveHold::~ExclusiveHold() {
    Release();
}

bool ExclusiveHold::Ok() const {
    return m_handle != INVALID_HANDLE_VALUE;
}

void ExclusiveHold::Release() {
    if (m_handle != INVALID_HANDLE_VALUE) ::CloseHandle(m_handle);
    m_handle = INVALID_HANDLE_VALUE;
}

std::string WhoElseMayReach(const std::string& path) {
    PACL dacl = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    const DWORD read =
        ::GetNamedSecurityInfoW(WidePath(path).c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION,
                                nullptr, nullptr, &dacl, nullptr, &descriptor);
    if (read != ERROR_SUCCESS)
        return "its security could not be read (Windows error " + std::to_string(read) + ")";
    std::string other;
    if (!dacl) other = "no access list, which lets everyone in";
    const SidOf user = ProcessUser(), system = WellKnown(WinLocalSystemSid),
                admins = WellKnown(WinBuiltinAdministratorsSid);
    for (DWORD i = 0; dacl && other.empty() && i < dacl->AceCount; ++i) {
        void* ace = nullptr;
        if (!::GetAce(dacl, i, &ace)) continue;
        if (static_cast<ACE_HEADER*>(ace)->AceType != ACCESS_ALLOWED_ACE_TYPE) continue;
        const PSID sid = &static_cast<ACCESS_ALLOWED_ACE*>(ace)->SidStart;
        const bool known = (user.Sid() && ::EqualSid(sid, user.Sid())) ||
                           (system.Sid() && ::EqualSid(sid, system.Sid())) ||
                           (admins.Sid() && ::EqualSid(sid, admins.Sid()));
        if (!known) other = "access allowed to " + SidText(sid);
    }
    ::LocalFree(descriptor);
    return other;
}

std::string WindowsPathOfBuildFile(const std::string& path) {
    if (path.empty() || path[0] != '/') return path;
    std::string windows = "Z:" + path;
    for (char& c : windows)
        if (c == '/') c = '\\';
    return windows;
}

std::wstring QuotedArgument(const std::wstring& argument) {
    if (!argument.empty() && argument.find_first_of(L" \t\n\v\"") == std::wstring::npos)
        return argument;
    std::wstring quoted = L"\"";
    for (size_t i = 0;; ++i) {
        size_t backslashes = 0;
        while (i < argument.size() && argument[i] == L'\\') {
            ++backslashes;
            ++i;
        }
        if (i == argument.size()) {
            // Doubled, so that the closing quote stays a quote.
            quoted.append(backslashes * 2, L'\\');
            break;
        }
        if (argument[i] == L'"')
            quoted.append(backslashes * 2 + 1, L'\\');
        else
            quoted.append(backslashes, L'\\');
        quoted += argument[i];
    }
    quoted += L'"';
    return quoted;
}

WindowsProcess::WindowsProcess(const std::string& program,
                               const std::vector<std::string>& arguments,
                               const std::vector<std::pair<std::string, std::string>>& environment,
                               const std::string& folder) {
    const std::wstring application = Wide(WindowsPathOfBuildFile(program));
    std::wstring commandLine = QuotedArgument(application);
    for (const std::string& argument : arguments)
        commandLine += L" " + QuotedArgument(Wide(argument));
    std::wstring block = EnvironmentBlock(environment);
    const std::wstring wideFolder = Wide(folder);

    std::lock_guard<std::mutex> lock(StartLock());
    SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
    HANDLE outWrite = nullptr, errWrite = nullptr;
    if (!::CreatePipe(&m_out, &outWrite, &inherited, 0) ||
        !::CreatePipe(&m_err, &errWrite, &inherited, 0)) {
        m_startError = ErrorText("CreatePipe");
        return;
    }
    ::SetHandleInformation(m_out, HANDLE_FLAG_INHERIT, 0);
    ::SetHandleInformation(m_err, HANDLE_FLAG_INHERIT, 0);
    HANDLE input = ::CreateFileW(L"NUL", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                 &inherited, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);

    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = input;
    startup.hStdOutput = outWrite;
    startup.hStdError = errWrite;
    PROCESS_INFORMATION info{};
    const BOOL created =
        ::CreateProcessW(application.c_str(), commandLine.data(), nullptr, nullptr, TRUE,
                         CREATE_UNICODE_ENVIRONMENT | CREATE_NO_WINDOW, block.data(),
                         wideFolder.empty() ? nullptr : wideFolder.c_str(), &startup, &info);
    if (!created) m_startError = ErrorText("CreateProcessW");
    ::CloseHandle(outWrite);
    ::CloseHandle(errWrite);
    if (input != INVALID_HANDLE_VALUE) ::CloseHandle(input);
    if (!created) return;
    ::CloseHandle(info.hThread);
    m_process = info.hProcess;
    m_id = info.dwProcessId;
}

WindowsProcess::~WindowsProcess() {
    uint32_t code = 0;
    if (m_process && !Ended(code)) Terminate();
    for (void* handle : {m_process, m_out, m_err})
        if (handle) ::CloseHandle(handle);
}

bool WindowsProcess::Started() const {
    return m_process != nullptr;
}

void WindowsProcess::Drain(std::string& out, std::string& err) {
    for (auto [pipe, into] : {std::pair{m_out, &out}, std::pair{m_err, &err}}) {
        if (!pipe) continue;
        for (;;) {
            DWORD available = 0;
            if (!::PeekNamedPipe(pipe, nullptr, 0, nullptr, &available, nullptr) || !available)
                break;
            char buffer[4096];
            DWORD got = 0;
            if (!::ReadFile(pipe, buffer, available < sizeof buffer ? available : sizeof buffer,
                            &got, nullptr) ||
                got == 0)
                break;
            into->append(buffer, got);
        }
    }
}

bool WindowsProcess::Ended(uint32_t& exitCode) const {
    if (!m_process || ::WaitForSingleObject(m_process, 0) != WAIT_OBJECT_0) return false;
    DWORD code = 0;
    ::GetExitCodeProcess(m_process, &code);
    exitCode = code;
    return true;
}

bool WindowsProcess::Terminate() {
    if (!m_process) return false;
    const bool ended = ::TerminateProcess(m_process, 1);
    ::WaitForSingleObject(m_process, 10000);
    return ended;
}

#endif
