#include "support/cRegistry.h"

#include "platform/modRegistry.h"

#include <charconv>

namespace {

// The rights CreateKey asks for: reading, writing, creating and listing sub-keys.
constexpr uint32_t kCreateAccess =
    reg::kQueryValue | reg::kSetValue | reg::kCreateSubKey | reg::kEnumerateSubKeys;
constexpr uint32_t kDeleteAccess =
    reg::kDelete | reg::kQueryValue | reg::kSetValue | reg::kEnumerateSubKeys;
constexpr const char* kClasses = "SOFTWARE\\Classes\\";

bool IsTextType(uint32_t type) {
    return type == reg::kString || type == reg::kExpandString || type == reg::kMultiString ||
           type == reg::kLink;
}

bool IsNumberType(uint32_t type) {
    return type == reg::kDword || type == reg::kDwordBigEndian;
}

RegVariant FromStored(const RegValue& stored) {
    uint32_t number = 0;
    if (RegValueNumber(stored, number)) return number;
    if (IsTextType(stored.type)) {
        std::string text = RegValueText(stored);
        // A list of texts ends with one more zero than its last text.
        if (stored.type == reg::kMultiString && !text.empty() && text.back() == '\0')
            text.pop_back();
        return text;
    }
    return RegBytes(stored.data.begin(), stored.data.end());
}

std::string AsText(const RegVariant& value) {
    if (const auto* text = std::get_if<std::string>(&value)) return *text;
    if (const auto* number = std::get_if<uint32_t>(&value)) return std::to_string(*number);
    const RegBytes& bytes = std::get<RegBytes>(value);
    return std::string(bytes.begin(), bytes.end());
}

RegValue ToStored(const RegVariant& value, uint32_t type) {
    if (IsTextType(type)) {
        std::string text = AsText(value);
        if (type == reg::kMultiString) text.push_back('\0');
        return RegTextValue(type, text, true);
    }
    if (IsNumberType(type)) {
        uint32_t number = 0;
        if (const auto* given = std::get_if<uint32_t>(&value)) {
            number = *given;
        } else {
            const std::string text = AsText(value);
            const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), number);
            if (ec != std::errc() || end != text.data() + text.size() || text.empty())
                Raise(err::kTypeMismatch);
        }
        return RegNumberValue(number, type);
    }
    RegValue stored;
    stored.type = type;
    stored.data = AsText(value);
    return stored;
}

// The key that holds `path`'s last part, and that part.
std::pair<std::string, std::string> SplitLast(const std::string& path) {
    const size_t slash = path.rfind('\\');
    if (slash == std::string::npos) return {std::string(), path};
    return {path.substr(0, slash), path.substr(slash + 1)};
}

std::string Quoted(const std::string& text) {
    return "\"" + text + "\"";
}

} // namespace

void cRegistry::Fail(const std::string& description) const {
    throw CRegistryError(RunningProgramName() + ".cRegistry", description);
}

bool cRegistry::KeyExists() const {
    CRegKey key;
    return key.Open(m_classKey, m_sectionKey, reg::kQueryValue, m_machine) == 0;
}

bool cRegistry::CreateKey() const {
    CRegKey key;
    if (key.Create(m_classKey, m_sectionKey, kCreateAccess, m_machine) != 0)
        Fail("Failed to create registry Key: '" + m_sectionKey);
    return true;
}

void cRegistry::DeleteInside(const std::string& holder, const std::string& name,
                             bool subKey) const {
    CRegKey key;
    if (key.Open(m_classKey, holder, kDeleteAccess, m_machine) != 0)
        Fail("Failed to open key '" + holder + "' for delete access");
    if ((subKey ? key.DeleteSubKey(name) : key.DeleteValue(name)) != 0)
        Fail("Failed to delete registry Key: '" + std::to_string(static_cast<int32_t>(m_classKey)) +
             "',Section: '" + holder + "',Key: '" + name);
}

bool cRegistry::DeleteKey() const {
    const auto [holder, name] = SplitLast(m_sectionKey);
    DeleteInside(holder, name, true);
    return true;
}

bool cRegistry::DeleteValue() const {
    DeleteInside(m_sectionKey, m_valueKey, false);
    return true;
}

RegVariant cRegistry::Value() const {
    CRegKey key;
    RegValue stored;
    if (key.Open(m_classKey, m_sectionKey, reg::kQueryValue, m_machine) != 0 ||
        key.Read(m_valueKey, stored) != 0)
        return m_default;
    return FromStored(stored);
}

void cRegistry::Value(const RegVariant& value) const {
    const RegValue stored = ToStored(value, m_valueType);
    CRegKey key;
    if (key.Create(m_classKey, m_sectionKey, kCreateAccess, m_machine) != 0 ||
        key.Write(m_valueKey, stored) != 0)
        Fail("Failed to set registry value Key: '" + m_sectionKey + "',Key: '" + m_valueKey +
             "' to value: '" + AsText(value) + "'");
}

bool cRegistry::EnumerateValues(std::vector<std::string>& names, int32_t& count) const {
    names.clear();
    count = 0;
    CRegKey key;
    if (key.Open(m_classKey, m_sectionKey, reg::kQueryValue, m_machine) != 0 ||
        key.ValueNames(names) != 0) {
        names.clear();
        return false;
    }
    count = static_cast<int32_t>(names.size());
    return true;
}

bool cRegistry::EnumerateSections(std::vector<std::string>& names, int32_t& count) const {
    names.clear();
    count = 0;
    CRegKey key;
    if (key.Open(m_classKey, m_sectionKey, reg::kEnumerateSubKeys, m_machine) != 0 ||
        key.SubKeyNames(names) != 0) {
        names.clear();
        return false;
    }
    count = static_cast<int32_t>(names.size());
    return true;
}

void cRegistry::WriteDefaultText(const std::string& key, const std::string& text) const {
    cRegistry writer = *this;
    writer.SectionKey(key);
    writer.ValueKey("");
    writer.ValueType(reg::kString);
    writer.Value(text);
}

bool cRegistry::CreateEXEAssociation(
    const std::string& className, const std::string& classDescription,
    const std::string& association, const std::string& openMenuText, bool supportPrint,
    const std::string& printMenuText, bool supportNew, const std::string& newMenuText,
    bool supportInstall, const std::string& installMenuText, int32_t defaultIconIndex) const {
    const std::string program = RunningProgramFile();
    const std::string classKey = kClasses + className;
    const auto verb = [&](const std::string& name, const std::string& text,
                          const std::string& fallback, const std::string& switches) {
        WriteDefaultText(classKey + "\\shell\\" + name, text.empty() ? fallback : text);
        WriteDefaultText(classKey + "\\shell\\" + name + "\\command",
                         Quoted(program) + switches + " " + Quoted("%1"));
    };
    WriteDefaultText(kClasses + ("." + association), className);
    WriteDefaultText(classKey, classDescription);
    verb("open", openMenuText, "&Open", "");
    if (supportPrint) verb("print", printMenuText, "&Print", " /p");
    if (supportInstall) verb("add", installMenuText, "&Install " + classDescription, " /a");
    if (supportNew) verb("new", newMenuText, "&New", " /n");
    WriteDefaultText(classKey + "\\DefaultIcon", program + "," + std::to_string(defaultIconIndex));
    return true;
}

bool cRegistry::CreateAdditionalEXEAssociations(const std::string& className,
                                                const std::vector<std::string>& items) const {
    if (items.size() % 3 != 0)
        Fail("Invalid parameter list passed to CreateAdditionalEXEAssociations - expected "
             "Name/Text/Command");
    const std::string classKey = kClasses + className;
    cRegistry probe = *this;
    probe.SectionKey(classKey);
    if (!probe.KeyExists())
        Fail("Error - attempt to create additional associations before class defined.");
    for (size_t i = 0; i < items.size(); i += 3) {
        const std::string verbKey = classKey + "\\shell\\" + items[i];
        WriteDefaultText(verbKey, items[i + 1]);
        WriteDefaultText(verbKey + "\\command", items[i + 2]);
    }
    return true;
}

RegVariant cRegistry::ValueEx(uint32_t classKey, const std::string& sectionKey,
                              const std::string& valueKey, uint32_t valueType,
                              const RegVariant& defaultValue) const {
    cRegistry at = *this;
    at.ClassKey(classKey);
    at.SectionKey(sectionKey);
    at.ValueKey(valueKey);
    at.ValueType(valueType);
    at.Default(defaultValue);
    return at.Value();
}

void cRegistry::ValueEx(uint32_t classKey, const std::string& sectionKey,
                        const std::string& valueKey, uint32_t valueType,
                        const RegVariant& defaultValue, const RegVariant& newValue) const {
    cRegistry at = *this;
    at.ClassKey(classKey);
    at.SectionKey(sectionKey);
    at.ValueKey(valueKey);
    at.ValueType(valueType);
    at.Default(defaultValue);
    at.Value(newValue);
}
