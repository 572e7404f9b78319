#pragma once

// Named text values under one four-level key, kept in the per-user INI file
// $XDG_CONFIG_HOME/Korvex/QRV.conf: one section per key path ("[SOFTWARE\Korvex\QRV\Settings]"),
// lines "name=value". Any byte string round-trips: "\", CR, LF and NUL in names and values are
// escaped. Reading falls back to the default and writing fails silently, as a registry would.

#include <cstdint>
#include <string>

class CProgramSettings {
public:
    // Root keys; both map to the same per-user file here.
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
    // The same for a key given as a whole path ("SOFTWARE\Korvex\QRV\Settings").
    static std::string ReadEntryAt(const std::string& keyPath, const std::string& entry,
                                   const std::string& defaultValue);
    void WriteEntry(const std::string& entry, const std::string& value) const;

    // The settings file.
    static std::string FilePath();

private:
    uint32_t m_rootKey = kLocalMachine;
    std::string m_mainBranch = "SOFTWARE";
    std::string m_regBase;
    std::string m_program;
    std::string m_section = "Settings";
};
