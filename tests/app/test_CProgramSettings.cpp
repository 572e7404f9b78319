// The program settings file: named text values under one key path, read with a default,
// written creating the file, failures silent.

#include "TestSupport.h"
#include "WindowsTestHelpers.h"
#include "app/CProgramSettings.h"
#include "app/modPaths.h"
#include "support/modServices.h"

#include <gtest/gtest.h>
#ifndef _WIN32
#include <sys/stat.h>
#endif

namespace {

CProgramSettings ProgramKey() {
    CProgramSettings settings;
    settings.RegBase("Korvex");
    settings.Program("QRV");
    return settings;
}

TEST(ProgramSettings, MissingKeyYieldsTheDefault) {
    ScopedTestEnv env;
    EXPECT_EQ(ReadRegSetting("BackupPath"), "");
    EXPECT_EQ(ProgramKey().ReadEntry("BackupPath", "fallback"), "fallback");
    EXPECT_FALSE(Exists(CProgramSettings::FilePath()));
}

TEST(ProgramSettings, ValueReadsBackWithoutTrailingZero) {
    ScopedTestEnv env;
    WriteRegSetting("BackupPath", "/media/usb/Backup");
    const std::string value = ReadRegSetting("BackupPath");
    EXPECT_EQ(value, "/media/usb/Backup");
    EXPECT_EQ(value.size(), 17u);
}

#ifndef _WIN32 // the settings file; on Windows the registry (test_CProgramSettingsRegistry)
TEST(ProgramSettings, FileWithCrLfLineEndsReadsTheSame) {
    ScopedTestEnv env;
    CreateTree(env.ConfigHome() + Native("/Korvex"), Dir());
    WriteFile(CProgramSettings::FilePath(),
              "[SOFTWARE\\Korvex\\QRV\\Settings]\r\nBackupPath=/media/usb/Backup\r\n");
    EXPECT_EQ(ReadRegSetting("BackupPath"), "/media/usb/Backup");
    WriteRegSetting("Other", "x");
    EXPECT_EQ(ReadRegSetting("BackupPath"), "/media/usb/Backup");
    EXPECT_EQ(ReadRegSetting("Other"), "x");
}
#endif

TEST(ProgramSettings, ValueStoredWithTerminatingZeroReadsTheSame) {
    ScopedTestEnv env;
    ProgramKey().WriteEntry("BackupPath", std::string("/data\0", 6));
    EXPECT_EQ(ProgramKey().ReadEntry("BackupPath", ""), "/data");
}

TEST(ProgramSettings, SectionWithTrailingBackslashIsTheSameKey) {
    ScopedTestEnv env;
    CProgramSettings withSlash = ProgramKey();
    withSlash.Section("Settings\\");
    EXPECT_EQ(withSlash.KeyPath(), "SOFTWARE\\Korvex\\QRV\\Settings");
    EXPECT_EQ(withSlash.KeyPath(), ProgramKey().KeyPath());
    withSlash.WriteEntry("BackupPath", "/b");
    EXPECT_EQ(ProgramKey().ReadEntry("BackupPath", ""), "/b");
}

#ifndef _WIN32 // the settings file; on Windows the registry (test_CProgramSettingsRegistry)
TEST(ProgramSettings, FileHoldsOneSectionPerKeyPath) {
    ScopedTestEnv env;
    WriteRegSetting("BackupPath", "/media/usb/Backup");
    EXPECT_EQ(ReadFile(env.ConfigHome() + Native("/Korvex/QRV.conf")),
              "[SOFTWARE\\Korvex\\QRV\\Settings]\nBackupPath=/media/usb/Backup\n");
}
#endif

#ifndef _WIN32 // the settings file; on Windows the registry (test_CProgramSettingsRegistry)
TEST(ProgramSettings, WritingAgainReplacesTheValueAndKeepsOtherKeys) {
    ScopedTestEnv env;
    CProgramSettings other = ProgramKey();
    other.Section("Other");
    other.WriteEntry("A", "1");
    WriteRegSetting("BackupPath", "/one");
    WriteRegSetting("BackupPath", "/two");
    other.WriteEntry("B", "2");
    EXPECT_EQ(ReadRegSetting("BackupPath"), "/two");
    EXPECT_EQ(other.ReadEntry("A", ""), "1");
    EXPECT_EQ(other.ReadEntry("B", ""), "2");
    EXPECT_EQ(ReadFile(CProgramSettings::FilePath()),
              "[SOFTWARE\\Korvex\\QRV\\Other]\nA=1\nB=2\n"
              "[SOFTWARE\\Korvex\\QRV\\Settings]\nBackupPath=/two\n");
}
#endif

#ifndef _WIN32 // the settings file; on Windows the registry (test_CProgramSettingsRegistry)
TEST(ProgramSettings, AnyByteStringRoundTrips) {
    ScopedTestEnv env;
    std::string odd = "/Bob's \\files\n\r=x\xff\xfe ";
    odd += '\0';
    odd += "end";
    const std::string name = "we=ird\\name\n";
    ProgramKey().WriteEntry(name, odd);
    ProgramKey().WriteEntry("BackupPath", "/after");
    EXPECT_EQ(ProgramKey().ReadEntry(name, ""), odd);
    EXPECT_EQ(ReadRegSetting("BackupPath"), "/after");
}
#endif

TEST(ProgramSettings, EmptyValueYieldsTheDefault) {
    ScopedTestEnv env;
    WriteRegSetting("BackupPath", "");
    EXPECT_EQ(ProgramKey().ReadEntry("BackupPath", "d"), "d");
}

#ifndef _WIN32 // the settings file; on Windows the registry (test_CProgramSettingsRegistry)
TEST(ProgramSettings, UnreadableFileGivesTheDefaultSilently) {
    ScopedTestEnv env;
    WriteRegSetting("BackupPath", "/x");
#ifdef _WIN32
    // Held by another program with no sharing.
    const ExclusiveHold hold(CProgramSettings::FilePath());
    ASSERT_TRUE(hold.Ok());
#else
    ::chmod(CProgramSettings::FilePath().c_str(), 0);
    ScopedNoPermissionOverride noOverride;
    if (!noOverride.Ok()) GTEST_SKIP() << "permissions cannot be enforced here";
#endif
    EXPECT_EQ(ReadRegSetting("BackupPath"), "");
    EXPECT_TRUE(env.box.calls.empty());
}
#endif

#ifndef _WIN32 // the settings file; on Windows the registry (test_CProgramSettingsRegistry)
TEST(ProgramSettings, FailedWriteIsSilent) {
    ScopedTestEnv env;
    WriteFile(env.ConfigHome(), "a file where the folder should be");
    WriteRegSetting("BackupPath", "/x");
    EXPECT_EQ(ReadRegSetting("BackupPath"), "");
    EXPECT_TRUE(env.box.calls.empty());
}
#endif

#ifndef _WIN32 // the settings file; on Windows the registry (test_CProgramSettingsRegistry)
TEST(ProgramSettings, FileIsPrivate) {
    ScopedTestEnv env;
    WriteRegSetting("BackupPath", "/x");
    EXPECT_TRUE(IsPrivate(CProgramSettings::FilePath()));
    EXPECT_TRUE(IsPrivate(env.ConfigHome() + Native("/Korvex")));
}
#endif

TEST(BackupPaths, EmptyWhenNoBackupPathIsSet) {
    ScopedTestEnv env;
    EXPECT_FALSE(IsBackupPathSet());
    EXPECT_EQ(GetBackupPath(), "");
    EXPECT_EQ(GetDBPath(), "");
    EXPECT_EQ(GetLogsPath(), "Logs");
    EXPECT_FALSE(DBJournalExists());
}

TEST(BackupPaths, FoldersBeneathTheBackupPath) {
    ScopedTestEnv env;
    WriteRegSetting("BackupPath", Native("/media/usb/Backup"));
    EXPECT_TRUE(IsBackupPathSet());
    EXPECT_EQ(GetBackupPath(), Native("/media/usb/Backup"));
    EXPECT_EQ(GetDBPath(), Native("/media/usb/Backup/db/Backup.db"));
    EXPECT_EQ(GetFilesPath(), Native("/media/usb/Backup/Files"));
    EXPECT_EQ(GetLogsPath(), Native("/media/usb/Backup/Logs"));
    WriteRegSetting("BackupPath", Native("/media/usb/Backup/"));
    EXPECT_EQ(GetDBPath(), Native("/media/usb/Backup/db/Backup.db"));
}

TEST(BackupPaths, DriveIsReadyWhileTheBackupFolderExists) {
    ScopedTestEnv env;
    WriteRegSetting("BackupPath", env.Path("unplugged"));
    EXPECT_FALSE(IsBackupDriveReady());
    CreateTree(env.Path("unplugged"), Dir());
    EXPECT_TRUE(IsBackupDriveReady());
}

TEST(BackupPaths, KillDBJournalDeletesTheJournalAndLogsIt) {
    ScopedTestEnv env;
    WriteRegSetting("BackupPath", env.Path("bk"));
    CreateTree(env.Path("bk"), Dir({{"db", Dir({{"Backup.db-journal", File("j")}})}}));
    Logger().LogFile(env.Path("t.log"));
    ASSERT_TRUE(Logger().StartLogger());
    EXPECT_TRUE(DBJournalExists());
    EXPECT_TRUE(KillDBJournal());
    EXPECT_FALSE(DBJournalExists());
    EXPECT_FALSE(KillDBJournal());
    EXPECT_EQ(LogMessages(ReadFile(env.Path("t.log"))),
              std::vector<std::string>{"Killed DB Journal. Possible previous crash\r\n"});
}

} // namespace
