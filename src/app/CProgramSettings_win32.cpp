#include "app/CProgramSettings.h"

#include "platform/modPlatformPaths.h"
#include "platform/modRegistry.h"
#include "support/CServiceContext.h"

#include <cerrno>

// The settings in the registry, key by key as described in the header. Every failure is silent:
// a read that fails gives the default, a write that fails leaves the registry as it was.

namespace {

// Query, set, create sub-key, enumerate, notify and create link.
constexpr uint32_t kAccess = 0x3F;

// The roots a test gave (RootsForTests), none otherwise.
struct RootsGiven {
    uint32_t localMachine = 0;
    uint32_t currentUser = 0;
};

// The keys that the environment variable STASHWELL_SETTINGS_KEY names in place of the two
// roots: its sub-keys Machine and User below HKEY_CURRENT_USER. The tests start the programs
// with their own test's keys this way; without the variable the roots are the real ones.
struct EnvironmentRoots {
    CRegKey machine;
    CRegKey user;
    EnvironmentRoots() {
        const std::string path = EnvironmentValue("STASHWELL_SETTINGS_KEY");
        if (path.empty()) return;
        if (machine.Create(reg::kCurrentUser, path + "\\Machine", reg::kAllAccess) != 0 ||
            user.Create(reg::kCurrentUser, path + "\\User", reg::kAllAccess) != 0) {
            machine.Close();
            user.Close();
        }
    }
};

uint32_t ActualRoot(uint32_t root) {
    const RootsGiven& given = ServicePart<RootsGiven>();
    if (root == CProgramSettings::kLocalMachine && given.localMachine != 0)
        return given.localMachine;
    if (root == CProgramSettings::kCurrentUser && given.currentUser != 0) return given.currentUser;
    static const EnvironmentRoots environment;
    if (environment.machine.AsRoot() != 0 && environment.user.AsRoot() != 0)
        return root == CProgramSettings::kLocalMachine ? environment.machine.AsRoot()
                                                       : environment.user.AsRoot();
    return root;
}

// The value's text, "" when the key cannot be opened or the value is missing.
std::string ReadAt(uint32_t root, const std::string& keyPath, const std::string& entry) {
    CRegKey key;
    RegValue value;
    if (key.Open(ActualRoot(root), keyPath, kAccess) != 0 || key.Read(entry, value) != 0)
        return std::string();
    return RegValueText(value);
}

// HKEY_LOCAL_MACHINE's value, else HKEY_CURRENT_USER's; another root's alone.
std::string ReadInOrder(uint32_t root, const std::string& keyPath, const std::string& entry,
                        const std::string& defaultValue) {
    std::string value = ReadAt(root, keyPath, entry);
    if (value.empty() && root == CProgramSettings::kLocalMachine)
        value = ReadAt(CProgramSettings::kCurrentUser, keyPath, entry);
    return value.empty() ? defaultValue : value;
}

int WriteAt(uint32_t root, const std::string& keyPath, const std::string& entry,
            const RegValue& value) {
    CRegKey key;
    const int error = key.Create(ActualRoot(root), keyPath, kAccess);
    return error != 0 ? error : key.Write(entry, value);
}

} // namespace

void CProgramSettings::RootsForTests(uint32_t localMachine, uint32_t currentUser) {
    ServicePart<RootsGiven>() = {localMachine, currentUser};
}

std::string CProgramSettings::ReadEntry(const std::string& entry,
                                        const std::string& defaultValue) const {
    return ReadInOrder(m_rootKey, KeyPath(), entry, defaultValue);
}

std::string CProgramSettings::ReadEntryAt(const std::string& keyPath, const std::string& entry,
                                          const std::string& defaultValue) {
    return ReadInOrder(kLocalMachine, keyPath, entry, defaultValue);
}

void CProgramSettings::WriteEntry(const std::string& entry, const std::string& value) const {
    // The stored length is the text's own, without a terminating zero.
    const RegValue text = RegTextValue(reg::kString, value, false);
    const std::string keyPath = KeyPath();
    if (WriteAt(m_rootKey, keyPath, entry, text) == EACCES && m_rootKey == kLocalMachine)
        WriteAt(kCurrentUser, keyPath, entry, text); // a failure here too stays silent
}

bool CProgramSettings::ReadStoredAt(uint32_t root, const std::string& keyPath,
                                    const std::string& entry, std::string& value) {
    value.clear();
    for (const uint32_t each : {root, root == kLocalMachine ? kCurrentUser : 0u}) {
        CRegKey key;
        RegValue stored;
        if (each == 0 || key.Open(ActualRoot(each), keyPath, kAccess) != 0 ||
            key.Read(entry, stored) != 0)
            continue;
        if (stored.type == reg::kDword && stored.data.size() == 4) {
            static const char kDigits[] = "0123456789abcdef";
            value = "dword:";
            for (int i = 3; i >= 0; --i) {
                const auto byte = static_cast<unsigned char>(stored.data[static_cast<size_t>(i)]);
                value += kDigits[byte >> 4];
                value += kDigits[byte & 0xF];
            }
        } else {
            value = RegValueText(stored);
        }
        return true;
    }
    return false;
}

std::string CProgramSettings::FilePath() {
    return {}; // the registry holds the settings
}
