#include "platform/modWin32Text.h"

#include <climits>

std::wstring Wide(const std::string& text) {
    if (text.empty() || text.size() > INT_MAX) return std::wstring();
    const int size = static_cast<int>(text.size());
    const int n = ::MultiByteToWideChar(CP_UTF8, 0, text.data(), size, nullptr, 0);
    std::wstring wide(static_cast<size_t>(n), L'\0');
    ::MultiByteToWideChar(CP_UTF8, 0, text.data(), size, wide.data(), n);
    return wide;
}

std::string Narrow(const std::wstring& text) {
    if (text.empty() || text.size() > INT_MAX) return std::string();
    const int size = static_cast<int>(text.size());
    const int n =
        ::WideCharToMultiByte(CP_UTF8, 0, text.data(), size, nullptr, 0, nullptr, nullptr);
    std::string narrow(static_cast<size_t>(n), '\0');
    ::WideCharToMultiByte(CP_UTF8, 0, text.data(), size, narrow.data(), n, nullptr, nullptr);
    return narrow;
}

std::wstring WidePath(const std::string& path) {
    std::wstring wide = Wide(path);
    if (wide.size() < kLongPathFrom || wide.rfind(L"\\\\?\\", 0) == 0 ||
        wide.rfind(L"\\\\.\\", 0) == 0)
        return wide;
    // GetFullPathNameW makes the path absolute, turns every / into \ and resolves . and .., none
    // of which the \\?\ form would do.
    std::wstring full(wide.size() + MAX_PATH, L'\0');
    for (;;) {
        const DWORD n =
            ::GetFullPathNameW(wide.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr);
        if (n == 0) return wide; // the call that uses it reports what is wrong with it
        if (n < full.size()) {
            full.resize(n);
            break;
        }
        full.resize(n);
    }
    if (full.rfind(L"\\\\", 0) == 0) return L"\\\\?\\UNC\\" + full.substr(2);
    return L"\\\\?\\" + full;
}
