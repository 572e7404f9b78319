#include "support/CRuntimeError.h"

CRuntimeError::CRuntimeError(int number, std::string description)
    : std::runtime_error(description), m_number(number), m_description(std::move(description)) {}

std::string ErrorDescription(int number) {
    switch (number) {
    case err::kInvalidCall:
        return "Invalid procedure call or argument";
    case err::kOverflow:
        return "Overflow";
    case err::kOutOfMemory:
        return "Out of memory";
    case err::kSubscript:
        return "Subscript out of range";
    case err::kDivisionByZero:
        return "Division by zero";
    case err::kTypeMismatch:
        return "Type mismatch";
    case err::kInternal:
        return "Internal error";
    case err::kBadFileName:
        return "Bad file name or number";
    case err::kFileNotFound:
        return "File not found";
    case err::kDeviceIO:
        return "Device I/O error";
    case err::kDiskFull:
        return "Disk full";
    case err::kDeviceUnavailable:
        return "Device unavailable";
    case err::kPermissionDenied:
        return "Permission denied";
    case err::kPathFileAccess:
        return "Path/File access error";
    case err::kPathNotFound:
        return "Path not found";
    default:
        return "Application-defined or object-defined error";
    }
}

void Raise(int number, std::string description) {
    if (description.empty()) description = ErrorDescription(number);
    throw CRuntimeError(number, std::move(description));
}
