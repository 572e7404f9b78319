#pragma once

// Windows only: what makes a folder or a file private to the user, as mode 0700 and 0600 do on
// Linux. The security is a protected list of rights (nothing passed on from the folders above)
// that lets in only the user, the system and the administrators, and that a folder passes on
// to everything made inside it. Its owner is the user who made it.

#ifdef _WIN32

#include "platform/modWin32.h"

#include <string>

class CPrivateSecurity {
public:
    // Made from the process's own user; when that cannot be read, Attributes() is null and a
    // folder is made with the security its parent passes on, as every other program's folder.
    CPrivateSecurity();
    ~CPrivateSecurity();
    CPrivateSecurity(const CPrivateSecurity&) = delete;
    CPrivateSecurity& operator=(const CPrivateSecurity&) = delete;

    // For CreateDirectoryW and CreateFileW; null when the security could not be made.
    SECURITY_ATTRIBUTES* Attributes() { return m_descriptor ? &m_attributes : nullptr; }
    // The security descriptor itself; null when it could not be made.
    PSECURITY_DESCRIPTOR Descriptor() const { return m_descriptor; }

private:
    PSECURITY_DESCRIPTOR m_descriptor = nullptr;
    SECURITY_ATTRIBUTES m_attributes{};
};

// The private security of a file or folder about to be made, for CreateFileW and
// CreateDirectoryW, made once for the process: a new file is private whatever its folder passes
// on, as a file made with mode 0600 is. Null when the security could not be made.
SECURITY_ATTRIBUTES* PrivateAttributes();

// Gives the existing file or folder at `path` (a W function's path) the private security in
// place of what it had: 0 or the errno value.
int MakeEntryPrivateW(const std::wstring& path);

#endif
