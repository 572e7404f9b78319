#pragma once

// Named text values under one four-level key. Reading falls back to the default and writing
// fails silently.
//
// Linux (CProgramSettings_posix.cpp): the per-user INI file $XDG_CONFIG_HOME/Korvex/QRV.conf,
// one section per key path ("[SOFTWARE\Korvex\QRV\Settings]"), lines "name=value". Any byte
// string round-trips: "\", CR, LF and NUL in names and values are escaped. Both roots map to
// this one file.
//
// Windows (CProgramSettings_win32.cpp): the registry key below RootKey, opened with the access
// mask 0x3F; a value is written as REG_SZ without a terminating zero, and a REG_DWORD reads as
// its decimal text. A standard user of Windows 10/11 may neither write below
// HKEY_LOCAL_MACHINE nor open a key there with that mask, so a refused write to
// HKEY_LOCAL_MACHINE goes to the same path below HKEY_CURRENT_USER, and a read finds
// HKEY_LOCAL_MACHINE's value first and HKEY_CURRENT_USER's when that one is missing or empty.

#include <cstdint>
#include <string>

class CProgramSettings {
public:
    // Root keys; on Linux both map to the same per-user file.
    static constexpr uint32_t kCurrentUser = 0x80000001u;
    static constexpr uint32_t kLocalMachine = 0x80000002u;

    const std::string& MainBranch() const { return m_mainBranch; }
    void MainBranch(const std::string& v) { m_mainBranch = v; }
    const std::string& Program() const { return m_program; }
    void Program(const std::string& v) { m_program = v; }
    const std::string& RegBase() const { return m_regBase; }
    void RegBase(const std::string& v) { m_regBase = v; }
    uint32_t RootKey() const { return m_rootKey; }
    void RootKey(uint32_t v) { m_rootKey = v; }
    const std::string& Section() const { return m_section; }
    void Section(const std::string& v) { m_section = v; }

    // MainBranch\RegBase\Program\Section, less one trailing "\".
    std::string KeyPath() const;
    // The stored value; `defaultValue` when the key or value is missing or the value is empty.
    std::string ReadEntry(const std::string& entry, const std::string& defaultValue) const;
    // The same for a key given as a whole path ("SOFTWARE\Korvex\QRV\Settings"), below
    // HKEY_LOCAL_MACHINE on Windows (and so HKEY_CURRENT_USER after it).
    static std::string ReadEntryAt(const std::string& keyPath, const std::string& entry,
                                   const std::string& defaultValue);
    void WriteEntry(const std::string& entry, const std::string& value) const;
    // The value as the settings file writes it, a 32-bit number as "dword:" and eight
    // hexadecimal digits, below `root` (on Windows HKEY_LOCAL_MACHINE, then HKEY_CURRENT_USER;
    // on Linux both roots are the one file). False when the value is missing.
    static bool ReadStoredAt(uint32_t root, const std::string& keyPath, const std::string& entry,
                             std::string& value);

#ifdef _WIN32
    // Tests only: the keys that stand for HKEY_LOCAL_MACHINE and HKEY_CURRENT_USER, given as
    // open keys' roots (CRegKey::AsRoot), so that no test touches the machine's or the user's
    // own settings and a test can have a write refused; 0 puts the real root back. They hold
    // in the current service context only.
    static void RootsForTests(uint32_t localMachine, uint32_t currentUser);
#endif
    // The settings file; "" on Windows, whose settings live in the registry.
    static std::string FilePath();

private:
    uint32_t m_rootKey = kLocalMachine;
    std::string m_mainBranch = "SOFTWARE";
    std::string m_regBase;
    std::string m_program;
    std::string m_section = "Settings";
};
