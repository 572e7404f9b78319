#pragma once

// Windows only: the registry calls that the program settings and cRegistry need, through the W
// functions, with names and texts as UTF-8 in and out. A key is held by CRegKey, which closes it
// when it goes. Every call answers with an errno value (0 when it worked; modWin32Error's
// mapping: a missing key or value is ENOENT, a refused one EACCES) instead of raising, so that
// each caller decides what a failure means: silence for the settings, error 26001 for cRegistry.
//
// A root is the 32-bit value of a predefined key (HKEY_CURRENT_USER is 0x80000001), which
// Windows sign-extends into a handle. An open key's own handle fits in 32 bits as well (Windows
// keeps handle values within 32 bits so that 32- and 64-bit programs can share them), so a key
// may serve as the root of the keys below it: tests use that to give the settings roots of
// their own.

#ifdef _WIN32

#include <cstdint>
#include <string>
#include <vector>

namespace reg {
// Predefined root keys.
inline constexpr uint32_t kClassesRoot = 0x80000000u;
inline constexpr uint32_t kCurrentUser = 0x80000001u;
inline constexpr uint32_t kLocalMachine = 0x80000002u;
inline constexpr uint32_t kUsers = 0x80000003u;
inline constexpr uint32_t kCurrentConfig = 0x80000005u;

// Value types, by their registry type numbers.
inline constexpr uint32_t kNone = 0;
inline constexpr uint32_t kString = 1;       // REG_SZ
inline constexpr uint32_t kExpandString = 2; // REG_EXPAND_SZ
inline constexpr uint32_t kBinary = 3;       // REG_BINARY
inline constexpr uint32_t kDword = 4;        // REG_DWORD, little-endian
inline constexpr uint32_t kDwordBigEndian = 5;
inline constexpr uint32_t kLink = 6;
inline constexpr uint32_t kMultiString = 7;
inline constexpr uint32_t kQword = 11;

// Access rights.
inline constexpr uint32_t kQueryValue = 0x0001;
inline constexpr uint32_t kSetValue = 0x0002;
inline constexpr uint32_t kCreateSubKey = 0x0004;
inline constexpr uint32_t kEnumerateSubKeys = 0x0008;
inline constexpr uint32_t kNotify = 0x0010;
inline constexpr uint32_t kCreateLink = 0x0020;
inline constexpr uint32_t kDelete = 0x00010000;
inline constexpr uint32_t kRead = 0x00020019;
inline constexpr uint32_t kAllAccess = 0x000F003F;
} // namespace reg

// A value as stored: its type and its data, byte for byte (a text is UTF-16 with whatever
// terminating zero it was written with).
struct RegValue {
    uint32_t type = reg::kNone;
    std::string data;
};

// A text type's data as UTF-8, less one terminating zero character when it has one; a 32-bit
// number's as its decimal text; any other type's data as it is.
std::string RegValueText(const RegValue& value);
// `text` (UTF-8) stored as `type` (a text type), in UTF-16, with a terminating zero character
// when `withZero`.
RegValue RegTextValue(uint32_t type, const std::string& text, bool withZero);
// A 32-bit number, little-endian (or big-endian for kDwordBigEndian).
RegValue RegNumberValue(uint32_t number, uint32_t type = reg::kDword);
// A 32-bit number value's number; false for data of another size.
bool RegValueNumber(const RegValue& value, uint32_t& number);

class CRegKey {
public:
    CRegKey() = default;
    ~CRegKey() { Close(); }
    CRegKey(const CRegKey&) = delete;
    CRegKey& operator=(const CRegKey&) = delete;
    CRegKey(CRegKey&& other) noexcept;
    CRegKey& operator=(CRegKey&& other) noexcept;

    // Opens `path` below `root` with `access`; on `machine` (a computer's name, "" for this one)
    // through a connection to its registry.
    int Open(uint32_t root, const std::string& path, uint32_t access,
             const std::string& machine = {});
    // Opens `path`, creating it and its missing parents (non-volatile) when it is not there.
    int Create(uint32_t root, const std::string& path, uint32_t access,
               const std::string& machine = {});
    void Close();
    bool IsOpen() const { return m_key != 0; }
    // The open key as a root for keys below it.
    uint32_t AsRoot() const { return static_cast<uint32_t>(m_key); }

    int Read(const std::string& name, RegValue& value) const;
    int Write(const std::string& name, const RegValue& value) const;
    int DeleteValue(const std::string& name) const;
    // Deletes the sub-key `name`, which must have no sub-keys of its own.
    int DeleteSubKey(const std::string& name) const;
    int ValueNames(std::vector<std::string>& names) const;
    int SubKeyNames(std::vector<std::string>& names) const;

private:
    intptr_t m_key = 0;    // an HKEY
    intptr_t m_remote = 0; // the connected root of another computer's registry, or 0
};

// Deletes `path` below `root` with everything below it.
int DeleteRegKeyTree(uint32_t root, const std::string& path, const std::string& machine = {});

// The running program's file, and its name without folder and extension ("qrv" for
// C:\Tools\qrv.exe).
std::string RunningProgramFile();
std::string RunningProgramName();

#endif
