#include "platform/modRegistry.h"

#include "platform/modWin32Error.h"
#include "platform/modWin32Text.h"

#include <cstring>
#include <utility>

namespace {

// A root value as the handle Windows expects: predefined keys and handles alike are 32-bit
// values sign-extended to the pointer's width.
HKEY Handle(uint32_t root) {
    return reinterpret_cast<HKEY>(static_cast<intptr_t>(static_cast<int32_t>(root)));
}

HKEY Handle(intptr_t key) {
    return reinterpret_cast<HKEY>(key);
}

int Errno(LSTATUS status) {
    return status == ERROR_SUCCESS ? 0 : ErrnoFromWin32(static_cast<unsigned long>(status));
}

bool IsTextType(uint32_t type) {
    return type == reg::kString || type == reg::kExpandString || type == reg::kMultiString ||
           type == reg::kLink;
}

// The root to open below: `root` itself, or the same root of `machine`'s registry, addressed as
// "\\name" (a name given with its "\\" keeps it).
LSTATUS Connect(uint32_t root, const std::string& machine, HKEY& base, intptr_t& remote) {
    base = Handle(root);
    remote = 0;
    if (machine.empty()) return ERROR_SUCCESS;
    const std::string name = machine.rfind("\\\\", 0) == 0 ? machine : "\\\\" + machine;
    HKEY connected = nullptr;
    const LSTATUS status = ::RegConnectRegistryW(Wide(name).c_str(), base, &connected);
    if (status != ERROR_SUCCESS) return status;
    base = connected;
    remote = reinterpret_cast<intptr_t>(connected);
    return ERROR_SUCCESS;
}

// Names listed by `next` (RegEnumValueW or RegEnumKeyExW through a lambda) until it has no more.
template <typename Next> int Names(Next next, std::vector<std::string>& names) {
    names.clear();
    // Value names reach 16,383 characters and key names 255; the larger buffer serves both.
    std::wstring buffer(16384, L'\0');
    for (DWORD index = 0;; ++index) {
        DWORD size = static_cast<DWORD>(buffer.size());
        const LSTATUS status = next(index, buffer.data(), &size);
        if (status == ERROR_NO_MORE_ITEMS) return 0;
        if (status != ERROR_SUCCESS) return Errno(status);
        names.push_back(Narrow(buffer.substr(0, size)));
    }
}

} // namespace

std::string RegValueText(const RegValue& value) {
    if (IsTextType(value.type)) {
        std::wstring text(value.data.size() / sizeof(wchar_t), L'\0');
        std::memcpy(text.data(), value.data.data(), text.size() * sizeof(wchar_t));
        if (!text.empty() && text.back() == L'\0') text.pop_back();
        return Narrow(text);
    }
    uint32_t number = 0;
    if (RegValueNumber(value, number)) return std::to_string(number);
    return value.data;
}

RegValue RegTextValue(uint32_t type, const std::string& text, bool withZero) {
    std::wstring wide = Wide(text);
    if (withZero) wide.push_back(L'\0');
    RegValue value;
    value.type = type;
    value.data.assign(reinterpret_cast<const char*>(wide.data()), wide.size() * sizeof(wchar_t));
    return value;
}

RegValue RegNumberValue(uint32_t number, uint32_t type) {
    RegValue value;
    value.type = type;
    for (int i = 0; i < 4; ++i) {
        const int shift = type == reg::kDwordBigEndian ? 24 - 8 * i : 8 * i;
        value.data.push_back(static_cast<char>((number >> shift) & 0xFF));
    }
    return value;
}

bool RegValueNumber(const RegValue& value, uint32_t& number) {
    if ((value.type != reg::kDword && value.type != reg::kDwordBigEndian) || value.data.size() != 4)
        return false;
    number = 0;
    for (int i = 0; i < 4; ++i) {
        const uint32_t byte = static_cast<unsigned char>(value.data[static_cast<size_t>(i)]);
        number |= byte << (value.type == reg::kDwordBigEndian ? 24 - 8 * i : 8 * i);
    }
    return true;
}

CRegKey::CRegKey(CRegKey&& other) noexcept
    : m_key(std::exchange(other.m_key, 0)), m_remote(std::exchange(other.m_remote, 0)) {}

CRegKey& CRegKey::operator=(CRegKey&& other) noexcept {
    if (this != &other) {
        Close();
        m_key = std::exchange(other.m_key, 0);
        m_remote = std::exchange(other.m_remote, 0);
    }
    return *this;
}

int CRegKey::Open(uint32_t root, const std::string& path, uint32_t access,
                  const std::string& machine) {
    Close();
    HKEY base = nullptr;
    LSTATUS status = Connect(root, machine, base, m_remote);
    HKEY key = nullptr;
    if (status == ERROR_SUCCESS)
        status = ::RegOpenKeyExW(base, Wide(path).c_str(), 0, access, &key);
    m_key = reinterpret_cast<intptr_t>(key);
    if (status != ERROR_SUCCESS) Close();
    return Errno(status);
}

int CRegKey::Create(uint32_t root, const std::string& path, uint32_t access,
                    const std::string& machine) {
    Close();
    HKEY base = nullptr;
    LSTATUS status = Connect(root, machine, base, m_remote);
    HKEY key = nullptr;
    if (status == ERROR_SUCCESS)
        status = ::RegCreateKeyExW(base, Wide(path).c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                                   access, nullptr, &key, nullptr);
    m_key = reinterpret_cast<intptr_t>(key);
    if (status != ERROR_SUCCESS) Close();
    return Errno(status);
}

void CRegKey::Close() {
    if (m_key != 0) ::RegCloseKey(Handle(m_key));
    if (m_remote != 0) ::RegCloseKey(Handle(m_remote));
    m_key = 0;
    m_remote = 0;
}

int CRegKey::Read(const std::string& name, RegValue& value) const {
    value = RegValue();
    const std::wstring wideName = Wide(name);
    // The value may grow between the call that sizes it and the one that reads it.
    for (;;) {
        DWORD type = 0, size = 0;
        LSTATUS status =
            ::RegQueryValueExW(Handle(m_key), wideName.c_str(), nullptr, &type, nullptr, &size);
        if (status != ERROR_SUCCESS) return Errno(status);
        value.data.assign(size, '\0');
        status = ::RegQueryValueExW(Handle(m_key), wideName.c_str(), nullptr, &type,
                                    reinterpret_cast<BYTE*>(value.data.data()), &size);
        if (status == ERROR_MORE_DATA) continue;
        if (status != ERROR_SUCCESS) return Errno(status);
        value.type = type;
        value.data.resize(size);
        return 0;
    }
}

int CRegKey::Write(const std::string& name, const RegValue& value) const {
    // RegSetValueExW stores a text one character longer than it was given when the character
    // just after it is a zero (it takes the zero for one forgotten in the count), so a text
    // written without its zero is handed over with a character that is not one after it.
    std::string data = value.data;
    if (IsTextType(value.type)) data.append(sizeof(wchar_t), '\x01');
    return Errno(::RegSetValueExW(Handle(m_key), Wide(name).c_str(), 0, value.type,
                                  reinterpret_cast<const BYTE*>(data.data()),
                                  static_cast<DWORD>(value.data.size())));
}

int CRegKey::DeleteValue(const std::string& name) const {
    return Errno(::RegDeleteValueW(Handle(m_key), Wide(name).c_str()));
}

int CRegKey::DeleteSubKey(const std::string& name) const {
    return Errno(::RegDeleteKeyW(Handle(m_key), Wide(name).c_str()));
}

int CRegKey::ValueNames(std::vector<std::string>& names) const {
    return Names(
        [&](DWORD index, wchar_t* buffer, DWORD* size) {
            return ::RegEnumValueW(Handle(m_key), index, buffer, size, nullptr, nullptr, nullptr,
                                   nullptr);
        },
        names);
}

int CRegKey::SubKeyNames(std::vector<std::string>& names) const {
    return Names(
        [&](DWORD index, wchar_t* buffer, DWORD* size) {
            return ::RegEnumKeyExW(Handle(m_key), index, buffer, size, nullptr, nullptr, nullptr,
                                   nullptr);
        },
        names);
}

int DeleteRegKeyTree(uint32_t root, const std::string& path, const std::string& machine) {
    HKEY base = nullptr;
    intptr_t remote = 0;
    LSTATUS status = Connect(root, machine, base, remote);
    // Given a sub-key's name, RegDeleteTreeW deletes that key too, after everything below it.
    if (status == ERROR_SUCCESS) status = ::RegDeleteTreeW(base, Wide(path).c_str());
    if (remote != 0) ::RegCloseKey(Handle(remote));
    return Errno(status);
}

std::string RunningProgramFile() {
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        const DWORD n = ::GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
        if (n == 0) return std::string();
        if (n < path.size()) {
            path.resize(n);
            return Narrow(path);
        }
        path.resize(path.size() * 2);
    }
}

std::string RunningProgramName() {
    std::string name = RunningProgramFile();
    const size_t slash = name.find_last_of("\\/");
    if (slash != std::string::npos) name.erase(0, slash + 1);
    const size_t dot = name.rfind('.');
    if (dot != std::string::npos) name.erase(dot);
    return name;
}
