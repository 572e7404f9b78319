#include "platform/modWin32Security.h"

#include "platform/modWin32Error.h"

#include <cerrno>
#include <memory>
#include <sddl.h>

namespace {

// The process's user as a SID string ("S-1-5-21-..."), "" when it cannot be read.
std::wstring UserSid() {
    HANDLE token = nullptr;
    if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token)) return std::wstring();
    DWORD size = 0;
    ::GetTokenInformation(token, TokenUser, nullptr, 0, &size);
    std::unique_ptr<char[]> buffer(new char[size ? size : 1]);
    std::wstring sid;
    LPWSTR text = nullptr;
    if (size && ::GetTokenInformation(token, TokenUser, buffer.get(), size, &size) &&
        ::ConvertSidToStringSidW(reinterpret_cast<TOKEN_USER*>(buffer.get())->User.Sid, &text)) {
        sid = text;
        ::LocalFree(text);
    }
    ::CloseHandle(token);
    return sid;
}

} // namespace

CPrivateSecurity::CPrivateSecurity() {
    // The user never changes during the process's life.
    static const std::wstring sid = UserSid();
    if (sid.empty()) return;
    // D:P protects the list from what the folders above pass on; OICI passes each right on to
    // the files and folders made inside.
    const std::wstring sddl = L"D:P(A;OICI;FA;;;" + sid + L")(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)";
    if (!::ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl.c_str(), SDDL_REVISION_1,
                                                                &m_descriptor, nullptr))
        m_descriptor = nullptr;
    m_attributes = {sizeof m_attributes, m_descriptor, FALSE};
}

CPrivateSecurity::~CPrivateSecurity() {
    ::LocalFree(m_descriptor);
}

SECURITY_ATTRIBUTES* PrivateAttributes() {
    static CPrivateSecurity security;
    return security.Attributes();
}

int MakeEntryPrivateW(const std::wstring& path) {
    CPrivateSecurity security;
    if (!security.Descriptor()) return EACCES;
    // SetFileSecurityW rather than SetNamedSecurityInfoW: the same on Windows for one file, and
    // the one that Wine also carries over to the file's own mode.
    return ::SetFileSecurityW(path.c_str(), DACL_SECURITY_INFORMATION, security.Descriptor())
               ? 0
               : LastErrno();
}
