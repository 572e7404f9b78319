// The program settings in the Windows registry: a missing key reads the default, a text reads
// back without a trailing zero, a 32-bit number reads as its decimal text, and a write that
// HKEY_LOCAL_MACHINE refuses goes to HKEY_CURRENT_USER, read after it. The two roots are keys
// of each test's own below HKEY_CURRENT_USER\Software, deleted afterwards.

#ifdef _WIN32

#include "app/CProgramSettings.h"
#include "app/modPaths.h"
#include "platform/modRegistry.h"

#include <gtest/gtest.h>

#include <chrono>
#include <random>

#include <windows.h>
// After windows.h, which it needs.
#include <sddl.h>

namespace {

constexpr const char* kSettingsKey = "SOFTWARE\\Korvex\\QRV\\Settings";

class ProgramSettingsRegistry : public ::testing::Test {
protected:
    void SetUp() override {
        std::random_device random;
        m_path = "Software\\StashwellTests\\Settings-" + std::to_string(random()) + "-" +
                 std::to_string(std::chrono::steady_clock::now().time_since_epoch().count());
        ASSERT_EQ(m_machine.Create(reg::kCurrentUser, m_path + "\\Machine", reg::kAllAccess), 0);
        ASSERT_EQ(m_user.Create(reg::kCurrentUser, m_path + "\\User", reg::kAllAccess), 0);
        CProgramSettings::RootsForTests(m_machine.AsRoot(), m_user.AsRoot());
    }
    void TearDown() override {
        CProgramSettings::RootsForTests(0, 0);
        m_machine.Close();
        m_user.Close();
        DeleteRegKeyTree(reg::kCurrentUser, m_path);
    }

    // The value as stored, or one of type kNone when it cannot be read.
    static RegValue Raw(const CRegKey& root, const std::string& name) {
        CRegKey key;
        RegValue value;
        if (key.Open(root.AsRoot(), kSettingsKey, reg::kQueryValue) == 0) key.Read(name, value);
        return value;
    }
    static void Store(const CRegKey& root, const std::string& name, const RegValue& value) {
        CRegKey key;
        ASSERT_EQ(key.Create(root.AsRoot(), kSettingsKey, reg::kAllAccess), 0);
        ASSERT_EQ(key.Write(name, value), 0);
    }
    // Lets everyone only read the settings key below `root`, as HKEY_LOCAL_MACHINE's keys are to
    // a standard user: opening it with the mask 0x3F is refused.
    static void MakeReadOnly(const CRegKey& root) {
        CRegKey key;
        ASSERT_EQ(key.Create(root.AsRoot(), kSettingsKey, reg::kAllAccess | WRITE_DAC), 0);
        PSECURITY_DESCRIPTOR descriptor = nullptr;
        ASSERT_TRUE(::ConvertStringSecurityDescriptorToSecurityDescriptorW(
            L"D:P(A;OICI;KR;;;WD)", SDDL_REVISION_1, &descriptor, nullptr));
        const HKEY handle =
            reinterpret_cast<HKEY>(static_cast<intptr_t>(static_cast<int32_t>(key.AsRoot())));
        EXPECT_EQ(::RegSetKeySecurity(handle, DACL_SECURITY_INFORMATION, descriptor),
                  ERROR_SUCCESS);
        ::LocalFree(descriptor);
    }

    std::string m_path;
    CRegKey m_machine;
    CRegKey m_user;
};

CProgramSettings ProgramKey() {
    CProgramSettings settings;
    settings.RegBase("Korvex");
    settings.Program("QRV");
    return settings;
}

TEST_F(ProgramSettingsRegistry, MissingKeyYieldsTheDefault) {
    EXPECT_EQ(ReadRegSetting("BackupPath"), "");
    EXPECT_EQ(ProgramKey().ReadEntry("BackupPath", "fallback"), "fallback");
}

TEST_F(ProgramSettingsRegistry, ValueReadsBackWithoutTrailingZero) {
    WriteRegSetting("BackupPath", "E:\\Backup");
    const std::string value = ReadRegSetting("BackupPath");
    EXPECT_EQ(value, "E:\\Backup");
    EXPECT_EQ(value.size(), 9u);
    const RegValue raw = Raw(m_machine, "BackupPath");
    EXPECT_EQ(raw.type, reg::kString);
    EXPECT_EQ(raw.data.size(), 9u * 2); // nine UTF-16 characters, no terminating zero
    EXPECT_EQ(RegValueText(raw), "E:\\Backup");
}

TEST_F(ProgramSettingsRegistry, ValueStoredWithTerminatingZeroReadsTheSame) {
    Store(m_machine, "BackupPath", RegTextValue(reg::kString, "E:\\Backup", true));
    EXPECT_EQ(ReadRegSetting("BackupPath"), "E:\\Backup");
}

TEST_F(ProgramSettingsRegistry, NumberValueReadsAsItsDecimalText) {
    Store(m_machine, "Ten", RegNumberValue(10));
    Store(m_machine, "Large", RegNumberValue(4000000000u));
    EXPECT_EQ(ProgramKey().ReadEntry("Ten", ""), "10");
    EXPECT_EQ(ProgramKey().ReadEntry("Large", ""), "4000000000");
}

TEST_F(ProgramSettingsRegistry, EmptyValueYieldsTheDefault) {
    WriteRegSetting("BackupPath", "");
    EXPECT_EQ(Raw(m_machine, "BackupPath").type, reg::kString);
    EXPECT_EQ(ProgramKey().ReadEntry("BackupPath", "d"), "d");
}

TEST_F(ProgramSettingsRegistry, SectionWithTrailingBackslashIsTheSameKey) {
    CProgramSettings withSlash = ProgramKey();
    withSlash.Section("Settings\\");
    EXPECT_EQ(withSlash.KeyPath(), kSettingsKey);
    withSlash.WriteEntry("BackupPath", "F:\\B");
    EXPECT_EQ(ProgramKey().ReadEntry("BackupPath", ""), "F:\\B");
}

TEST_F(ProgramSettingsRegistry, NonAsciiPathRoundTrips) {
    const std::string path = "E:\\Sauvegardes \xc3\xa9t\xc3\xa9 \xe6\x97\xa5\xe6\x9c\xac";
    WriteRegSetting("BackupPath", path);
    EXPECT_EQ(ReadRegSetting("BackupPath"), path);
}

TEST_F(ProgramSettingsRegistry, WritingAgainReplacesTheValueAndKeepsOthers) {
    WriteRegSetting("Other", "x");
    WriteRegSetting("BackupPath", "E:\\One");
    WriteRegSetting("BackupPath", "E:\\Two");
    EXPECT_EQ(ReadRegSetting("BackupPath"), "E:\\Two");
    EXPECT_EQ(ReadRegSetting("Other"), "x");
}

TEST_F(ProgramSettingsRegistry, RefusedMachineWriteGoesToTheCurrentUser) {
    MakeReadOnly(m_machine);
    WriteRegSetting("BackupPath", "E:\\Backup");
    EXPECT_EQ(Raw(m_machine, "BackupPath").type, reg::kNone);
    const RegValue raw = Raw(m_user, "BackupPath");
    EXPECT_EQ(raw.type, reg::kString);
    EXPECT_EQ(raw.data.size(), 9u * 2);
    EXPECT_EQ(ReadRegSetting("BackupPath"), "E:\\Backup");
}

TEST_F(ProgramSettingsRegistry, MachineValueComesBeforeTheCurrentUsers) {
    Store(m_machine, "BackupPath", RegTextValue(reg::kString, "E:\\Machine", false));
    Store(m_user, "BackupPath", RegTextValue(reg::kString, "E:\\User", false));
    EXPECT_EQ(ReadRegSetting("BackupPath"), "E:\\Machine");
}

TEST_F(ProgramSettingsRegistry, EmptyOrMissingMachineValueReadsTheCurrentUsers) {
    Store(m_user, "BackupPath", RegTextValue(reg::kString, "E:\\User", false));
    EXPECT_EQ(ReadRegSetting("BackupPath"), "E:\\User");
    Store(m_machine, "BackupPath", RegTextValue(reg::kString, "", false));
    EXPECT_EQ(ReadRegSetting("BackupPath"), "E:\\User");
}

TEST_F(ProgramSettingsRegistry, WriteThatHasAPlaceStaysOutOfTheCurrentUsersKey) {
    WriteRegSetting("BackupPath", "E:\\Backup");
    EXPECT_EQ(Raw(m_user, "BackupPath").type, reg::kNone);
}

TEST_F(ProgramSettingsRegistry, CurrentUserRootIsReadAndWrittenAlone) {
    CProgramSettings user = ProgramKey();
    user.RootKey(CProgramSettings::kCurrentUser);
    Store(m_machine, "BackupPath", RegTextValue(reg::kString, "E:\\Machine", false));
    EXPECT_EQ(user.ReadEntry("BackupPath", "none"), "none");
    user.WriteEntry("BackupPath", "E:\\User");
    EXPECT_EQ(RegValueText(Raw(m_user, "BackupPath")), "E:\\User");
    EXPECT_EQ(RegValueText(Raw(m_machine, "BackupPath")), "E:\\Machine");
}

TEST_F(ProgramSettingsRegistry, RefusedCurrentUserWriteIsSilent) {
    MakeReadOnly(m_machine);
    MakeReadOnly(m_user);
    WriteRegSetting("BackupPath", "E:\\Backup");
    EXPECT_EQ(ReadRegSetting("BackupPath"), "");
}

TEST_F(ProgramSettingsRegistry, ValueOfAnyKeyPathIsReadInTheSameOrder) {
    Store(m_user, "PATH", RegTextValue(reg::kString, "C:\\Tools\\msinfo32.exe", true));
    EXPECT_EQ(CProgramSettings::ReadEntryAt(kSettingsKey, "PATH", "-"), "C:\\Tools\\msinfo32.exe");
    EXPECT_EQ(CProgramSettings::ReadEntryAt(kSettingsKey, "None", "-"), "-");
}

} // namespace

#endif
