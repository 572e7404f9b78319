#pragma once

// The one exception type of the program: a run-time error with its number and description.
// Procedures under the error trap (CProcTrap) catch it and hand it to CErrHandler::HandleError;
// helpers without a trap let it reach their caller.

#include <stdexcept>
#include <string>

namespace err {
inline constexpr int kInvalidCall = 5;
inline constexpr int kOverflow = 6;
inline constexpr int kOutOfMemory = 7;
inline constexpr int kSubscript = 9;
inline constexpr int kDivisionByZero = 11;
inline constexpr int kTypeMismatch = 13;
inline constexpr int kInternal = 51;
inline constexpr int kBadFileName = 52;
inline constexpr int kFileNotFound = 53;
inline constexpr int kDeviceIO = 57;
inline constexpr int kDiskFull = 61;
inline constexpr int kDeviceUnavailable = 68;
inline constexpr int kPermissionDenied = 70;
inline constexpr int kPathFileAccess = 75;
inline constexpr int kPathNotFound = 76;
inline constexpr int kCopyFailed = 10001;
inline constexpr int kNoDestination = 10005;
inline constexpr int kCatalogueWrite = 10006;
} // namespace err

class CRuntimeError : public std::runtime_error {
public:
    CRuntimeError(int number, std::string description);

    int Number() const { return m_number; }
    const std::string& Description() const { return m_description; }

private:
    int m_number;
    std::string m_description;
};

// The runtime's standard text for an error number.
std::string ErrorDescription(int number);

// Raises error `number`; an empty description takes the standard text.
[[noreturn]] void Raise(int number, std::string description = {});
