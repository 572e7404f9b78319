#pragma once

// Windows only: a general-purpose wrapper over the registry. It holds a current address (root,
// key path, value name, value type, default) that the value calls use, reads and writes one
// value at a time, creates, tests and deletes keys, lists values and sub-keys, and registers
// file types for the running program. Nothing else in the program calls it (the program's own
// settings go through CProgramSettings); it is kept small and tested on its own.
//
// Values come and go as a RegVariant: a text type (REG_SZ, REG_EXPAND_SZ with its "%"
// references left as they are, REG_MULTI_SZ with a NUL between its texts) reads as a string
// less its terminating zero, REG_DWORD and REG_DWORD_BIG_ENDIAN as a number, every other type
// as its bytes. A write converts the variant to ValueType: a number becomes its decimal text
// for a text type, a text its decimal number for a 32-bit type (error 13 when it is none), and
// a text or number its bytes for the others.
//
// A failed registry call raises error 26001 (CRegistryError), whose source is the running
// program's name followed by ".cRegistry" ("qrv.cRegistry"), and whose description is one of:
//   CreateKey                "Failed to create registry Key: '<SectionKey>"
//   DeleteKey, DeleteValue   "Failed to open key '<key>' for delete access" when the key that
//                            holds the one to delete cannot be opened for that, and
//                            "Failed to delete registry Key: '<ClassKey>',Section: '<key>',Key:
//                            '<name>" when the delete fails (<key> the holding key, <name> the
//                            deleted sub-key or value, <ClassKey> the root in decimal, as a
//                            signed 32-bit number)
//   Value (write)            "Failed to set registry value Key: '<SectionKey>',Key: '<ValueKey>'
//                            to value: '<the value as text>'"
// KeyExists answers false, Value (read) the Default, and the enumerations false with no names,
// instead of raising.

#include "support/CRuntimeError.h"

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#ifdef _WIN32

namespace err {
inline constexpr int kRegistry = 26001;
}

using RegBytes = std::vector<uint8_t>;
using RegVariant = std::variant<std::string, uint32_t, RegBytes>;

// Error 26001 with the source it was raised from.
class CRegistryError : public CRuntimeError {
public:
    CRegistryError(std::string source, std::string description)
        : CRuntimeError(err::kRegistry, std::move(description)), m_source(std::move(source)) {}
    const std::string& Source() const { return m_source; }

private:
    std::string m_source;
};

class cRegistry {
public:
    // Predefined roots and value types, by their registry numbers.
    static constexpr uint32_t kClassesRoot = 0x80000000u;
    static constexpr uint32_t kCurrentUser = 0x80000001u;
    static constexpr uint32_t kLocalMachine = 0x80000002u;
    static constexpr uint32_t kUsers = 0x80000003u;
    static constexpr uint32_t kString = 1;
    static constexpr uint32_t kExpandString = 2;
    static constexpr uint32_t kBinary = 3;
    static constexpr uint32_t kDword = 4;
    static constexpr uint32_t kDwordBigEndian = 5;
    static constexpr uint32_t kMultiString = 7;

    // A computer's name ("" for this one), addressed as "\\name".
    const std::string& Machine() const { return m_machine; }
    void Machine(const std::string& name) { m_machine = name; }

    bool KeyExists() const;
    // Creates SectionKey and its missing parents (non-volatile); true, or raises.
    bool CreateKey() const;
    // Deletes SectionKey, which must have no sub-keys; true, or raises.
    bool DeleteKey() const;
    // Deletes ValueKey inside SectionKey; true, or raises.
    bool DeleteValue() const;

    // The value's data by its stored type; Default when it is absent.
    RegVariant Value() const;
    // Writes `value` as ValueType, creating SectionKey when needed.
    void Value(const RegVariant& value) const;

    // The names of SectionKey's values, and of its sub-keys, with their count; false (and none)
    // when the key cannot be opened or listed.
    bool EnumerateValues(std::vector<std::string>& names, int32_t& count) const;
    bool EnumerateSections(std::vector<std::string>& names, int32_t& count) const;

    // Registers the file type `association` (an extension without its dot) for the running
    // program below ClassKey's "SOFTWARE\Classes\": the extension's key naming the class, the
    // class with its description, its open verb (and print, install and new when asked), each
    // with its command, and its icon. Empty menu texts take "&Open", "&Print", "&Install "
    // followed by the description, and "&New".
    bool CreateEXEAssociation(const std::string& className, const std::string& classDescription,
                              const std::string& association, const std::string& openMenuText = {},
                              bool supportPrint = false, const std::string& printMenuText = {},
                              bool supportNew = false, const std::string& newMenuText = {},
                              bool supportInstall = false, const std::string& installMenuText = {},
                              int32_t defaultIconIndex = 0) const;
    // Adds a verb to an existing class for each triple of `items`: name, menu text, command.
    bool CreateAdditionalEXEAssociations(const std::string& className,
                                         const std::vector<std::string>& items) const;

    uint32_t ValueType() const { return m_valueType; }
    void ValueType(uint32_t type) { m_valueType = type; }
    uint32_t ClassKey() const { return m_classKey; }
    void ClassKey(uint32_t key) { m_classKey = key; }
    const std::string& SectionKey() const { return m_sectionKey; }
    void SectionKey(const std::string& key) { m_sectionKey = key; }
    const std::string& ValueKey() const { return m_valueKey; }
    void ValueKey(const std::string& name) { m_valueKey = name; }

    // Value with the whole address given in the call; the object's own address is unchanged.
    RegVariant ValueEx(uint32_t classKey, const std::string& sectionKey,
                       const std::string& valueKey, uint32_t valueType,
                       const RegVariant& defaultValue) const;
    void ValueEx(uint32_t classKey, const std::string& sectionKey, const std::string& valueKey,
                 uint32_t valueType, const RegVariant& defaultValue,
                 const RegVariant& newValue) const;

    const RegVariant& Default() const { return m_default; }
    void Default(const RegVariant& value) { m_default = value; }

private:
    // Writes the default value of `key` (below ClassKey) as a text, creating the key.
    void WriteDefaultText(const std::string& key, const std::string& text) const;
    // Deletes `name` inside `key`, a sub-key or a value.
    void DeleteInside(const std::string& key, const std::string& name, bool subKey) const;
    [[noreturn]] void Fail(const std::string& description) const;

    std::string m_machine;
    uint32_t m_classKey = kCurrentUser;
    std::string m_sectionKey;
    std::string m_valueKey;
    uint32_t m_valueType = kString;
    RegVariant m_default;
};

#endif
