// The registry wrapper (Windows only): keys made, tested and deleted; values of each type read
// back by their stored type; values and sub-keys listed; file types registered; and the texts
// of error 26001. Every test works below a key of its own under HKEY_CURRENT_USER\Software,
// used as the root, and deletes it afterwards.

#ifdef _WIN32

#include "platform/modRegistry.h"
#include "support/cRegistry.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <random>

#include <windows.h>
// After windows.h, which it needs.
#include <sddl.h>

namespace {

class RegistryTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::random_device random;
        m_path = "Software\\StashwellTests\\cRegistry-" + std::to_string(random()) + "-" +
                 std::to_string(std::chrono::steady_clock::now().time_since_epoch().count());
        ASSERT_EQ(m_root.Create(reg::kCurrentUser, m_path, reg::kAllAccess), 0);
        m_registry.ClassKey(m_root.AsRoot());
    }
    void TearDown() override {
        m_root.Close();
        DeleteRegKeyTree(reg::kCurrentUser, m_path);
    }

    // The raw value `name` of `key` below the test's root.
    RegValue Raw(const std::string& key, const std::string& name) {
        CRegKey opened;
        RegValue value;
        EXPECT_EQ(opened.Open(m_root.AsRoot(), key, reg::kQueryValue), 0) << key;
        EXPECT_EQ(opened.Read(name, value), 0) << key << " " << name;
        return value;
    }
    std::string DefaultText(const std::string& key) { return RegValueText(Raw(key, "")); }

    // The error that `call` raises.
    template <typename Call> CRegistryError Raised(Call call) {
        try {
            call();
        } catch (const CRegistryError& error) {
            return error;
        }
        ADD_FAILURE() << "no error 26001 raised";
        return CRegistryError("", "");
    }

    std::string m_path;
    CRegKey m_root;
    cRegistry m_registry;
};

// Lets everyone only read the key `path` below `root` (as HKEY_LOCAL_MACHINE is to a standard
// user), so that opening it for writing is refused.
void MakeReadOnly(uint32_t root, const std::string& path) {
    CRegKey key;
    ASSERT_EQ(key.Open(root, path, reg::kRead | WRITE_DAC), 0) << path;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    ASSERT_TRUE(::ConvertStringSecurityDescriptorToSecurityDescriptorW(
        L"D:P(A;OICI;KR;;;WD)", SDDL_REVISION_1, &descriptor, nullptr));
    const HKEY handle =
        reinterpret_cast<HKEY>(static_cast<intptr_t>(static_cast<int32_t>(key.AsRoot())));
    EXPECT_EQ(::RegSetKeySecurity(handle, DACL_SECURITY_INFORMATION, descriptor), ERROR_SUCCESS);
    ::LocalFree(descriptor);
}

std::string Source() {
    return RunningProgramName() + ".cRegistry";
}

TEST_F(RegistryTest, KeyIsCreatedWithItsParentsFoundAndDeleted) {
    m_registry.SectionKey("Korvex\\Tools\\Deep");
    EXPECT_FALSE(m_registry.KeyExists());
    EXPECT_TRUE(m_registry.CreateKey());
    EXPECT_TRUE(m_registry.KeyExists());
    EXPECT_TRUE(m_registry.DeleteKey());
    EXPECT_FALSE(m_registry.KeyExists());
    m_registry.SectionKey("Korvex\\Tools");
    EXPECT_TRUE(m_registry.KeyExists());
}

TEST_F(RegistryTest, CreatingAnExistingKeyIsNoError) {
    m_registry.SectionKey("Korvex");
    EXPECT_TRUE(m_registry.CreateKey());
    EXPECT_TRUE(m_registry.CreateKey());
    EXPECT_TRUE(m_registry.KeyExists());
}

TEST_F(RegistryTest, TextValueReadsBackWithoutItsTerminatingZero) {
    m_registry.SectionKey("Korvex\\Values");
    m_registry.ValueKey("Path");
    m_registry.ValueType(cRegistry::kString);
    m_registry.Value(std::string("E:\\Backup"));
    EXPECT_EQ(std::get<std::string>(m_registry.Value()), "E:\\Backup");
    const RegValue raw = Raw("Korvex\\Values", "Path");
    EXPECT_EQ(raw.type, reg::kString);
    EXPECT_EQ(raw.data.size(), 10u * 2); // nine characters and the zero, in UTF-16
}

TEST_F(RegistryTest, TextValueKeepsNonAsciiCharacters) {
    m_registry.SectionKey("Korvex\\Values");
    m_registry.ValueKey("Name \xc3\xa9t\xc3\xa9");
    m_registry.Value(std::string("D:\\Sauvegarde \xe2\x82\xac"));
    EXPECT_EQ(std::get<std::string>(m_registry.Value()), "D:\\Sauvegarde \xe2\x82\xac");
}

TEST_F(RegistryTest, ExpandableTextKeepsItsPercentReferences) {
    m_registry.SectionKey("Korvex\\Values");
    m_registry.ValueKey("Home");
    m_registry.ValueType(cRegistry::kExpandString);
    m_registry.Value(std::string("%USERPROFILE%\\Backup"));
    EXPECT_EQ(std::get<std::string>(m_registry.Value()), "%USERPROFILE%\\Backup");
    EXPECT_EQ(Raw("Korvex\\Values", "Home").type, reg::kExpandString);
}

TEST_F(RegistryTest, ListOfTextsReadsBackWithANulBetweenThem) {
    m_registry.SectionKey("Korvex\\Values");
    m_registry.ValueKey("List");
    m_registry.ValueType(cRegistry::kMultiString);
    const std::string list("one\0two", 7);
    m_registry.Value(list);
    EXPECT_EQ(std::get<std::string>(m_registry.Value()), list);
    EXPECT_EQ(Raw("Korvex\\Values", "List").data.size(), 9u * 2); // one, two, two zeros
}

TEST_F(RegistryTest, NumberValueReadsBackAsANumber) {
    m_registry.SectionKey("Korvex\\Values");
    m_registry.ValueKey("Count");
    m_registry.ValueType(cRegistry::kDword);
    m_registry.Value(uint32_t{4000000000u});
    EXPECT_EQ(std::get<uint32_t>(m_registry.Value()), 4000000000u);
    const RegValue raw = Raw("Korvex\\Values", "Count");
    EXPECT_EQ(raw.type, reg::kDword);
    EXPECT_EQ(raw.data, std::string("\x00\x28\x6b\xee", 4));
}

TEST_F(RegistryTest, BigEndianNumberIsStoredHighByteFirst) {
    m_registry.SectionKey("Korvex\\Values");
    m_registry.ValueKey("Big");
    m_registry.ValueType(cRegistry::kDwordBigEndian);
    m_registry.Value(uint32_t{0x0a0b0c0d});
    EXPECT_EQ(std::get<uint32_t>(m_registry.Value()), 0x0a0b0c0du);
    EXPECT_EQ(Raw("Korvex\\Values", "Big").data, "\x0a\x0b\x0c\x0d");
}

TEST_F(RegistryTest, TextOfDigitsWrittenAsANumberBecomesThatNumber) {
    m_registry.SectionKey("Korvex\\Values");
    m_registry.ValueKey("Count");
    m_registry.ValueType(cRegistry::kDword);
    m_registry.Value(std::string("42"));
    EXPECT_EQ(std::get<uint32_t>(m_registry.Value()), 42u);
    try {
        m_registry.Value(std::string("forty-two"));
        ADD_FAILURE() << "no error raised";
    } catch (const CRuntimeError& error) {
        EXPECT_EQ(error.Number(), 13);
    }
}

TEST_F(RegistryTest, NumberWrittenAsTextBecomesItsDecimalText) {
    m_registry.SectionKey("Korvex\\Values");
    m_registry.ValueKey("Size");
    m_registry.Value(uint32_t{1536000});
    EXPECT_EQ(std::get<std::string>(m_registry.Value()), "1536000");
}

TEST_F(RegistryTest, BinaryValueReadsBackByteForByte) {
    m_registry.SectionKey("Korvex\\Values");
    m_registry.ValueKey("Blob");
    m_registry.ValueType(cRegistry::kBinary);
    const RegBytes bytes = {0, 1, 2, 0xff, 0};
    m_registry.Value(bytes);
    EXPECT_EQ(std::get<RegBytes>(m_registry.Value()), bytes);
    EXPECT_EQ(Raw("Korvex\\Values", "Blob").type, reg::kBinary);
}

TEST_F(RegistryTest, MissingValueOrKeyReadsTheDefault) {
    m_registry.Default(std::string("none"));
    m_registry.SectionKey("Korvex\\Nowhere");
    m_registry.ValueKey("Path");
    EXPECT_EQ(std::get<std::string>(m_registry.Value()), "none");
    m_registry.SectionKey("Korvex");
    m_registry.CreateKey();
    m_registry.Default(uint32_t{7});
    EXPECT_EQ(std::get<uint32_t>(m_registry.Value()), 7u);
}

TEST_F(RegistryTest, ValueIsDeleted) {
    m_registry.SectionKey("Korvex");
    m_registry.ValueKey("Gone");
    m_registry.Value(std::string("x"));
    EXPECT_TRUE(m_registry.DeleteValue());
    m_registry.Default(std::string("absent"));
    EXPECT_EQ(std::get<std::string>(m_registry.Value()), "absent");
}

TEST_F(RegistryTest, ValueExUsesTheAddressGivenAndLeavesTheObjectsOwn) {
    m_registry.SectionKey("Korvex\\Own");
    m_registry.ValueKey("Own");
    m_registry.ValueEx(m_root.AsRoot(), "Korvex\\Other", "Count", cRegistry::kDword, std::string(),
                       uint32_t{5});
    EXPECT_EQ(std::get<uint32_t>(m_registry.ValueEx(m_root.AsRoot(), "Korvex\\Other", "Count",
                                                    cRegistry::kDword, std::string())),
              5u);
    EXPECT_EQ(std::get<std::string>(m_registry.ValueEx(m_root.AsRoot(), "Korvex\\Other", "Missing",
                                                       cRegistry::kString, std::string("dflt"))),
              "dflt");
    EXPECT_EQ(m_registry.SectionKey(), "Korvex\\Own");
    EXPECT_EQ(m_registry.ValueKey(), "Own");
    EXPECT_FALSE(m_registry.KeyExists());
}

TEST_F(RegistryTest, ValuesAndSubKeysAreListedWithTheirCount) {
    m_registry.SectionKey("Korvex");
    for (const char* name : {"A", "B", "C"}) {
        m_registry.ValueKey(name);
        m_registry.Value(std::string(name));
    }
    for (const char* name : {"One", "Two"}) {
        cRegistry sub = m_registry;
        sub.SectionKey(std::string("Korvex\\") + name);
        sub.CreateKey();
    }
    std::vector<std::string> names;
    int32_t count = -1;
    EXPECT_TRUE(m_registry.EnumerateValues(names, count));
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"A", "B", "C"}));
    EXPECT_EQ(count, 3);
    EXPECT_TRUE(m_registry.EnumerateSections(names, count));
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"One", "Two"}));
    EXPECT_EQ(count, 2);
}

TEST_F(RegistryTest, ListingAMissingKeyGivesNothing) {
    m_registry.SectionKey("Korvex\\Nowhere");
    std::vector<std::string> names = {"stale"};
    int32_t count = 9;
    EXPECT_FALSE(m_registry.EnumerateValues(names, count));
    EXPECT_TRUE(names.empty());
    EXPECT_EQ(count, 0);
    EXPECT_FALSE(m_registry.EnumerateSections(names, count));
    EXPECT_EQ(count, 0);
}

TEST_F(RegistryTest, AssociationRegistersTheFileTypeForTheRunningProgram) {
    const std::string program = "\"" + RunningProgramFile() + "\"";
    EXPECT_TRUE(
        m_registry.CreateEXEAssociation("Stashwell.Catalogue", "Stashwell catalogue", "qrvdb"));
    EXPECT_EQ(DefaultText("SOFTWARE\\Classes\\.qrvdb"), "Stashwell.Catalogue");
    EXPECT_EQ(DefaultText("SOFTWARE\\Classes\\Stashwell.Catalogue"), "Stashwell catalogue");
    EXPECT_EQ(DefaultText("SOFTWARE\\Classes\\Stashwell.Catalogue\\shell\\open"), "&Open");
    EXPECT_EQ(DefaultText("SOFTWARE\\Classes\\Stashwell.Catalogue\\shell\\open\\command"),
              program + " \"%1\"");
    EXPECT_EQ(DefaultText("SOFTWARE\\Classes\\Stashwell.Catalogue\\DefaultIcon"),
              RunningProgramFile() + ",0");
    cRegistry probe = m_registry;
    probe.SectionKey("SOFTWARE\\Classes\\Stashwell.Catalogue\\shell\\print");
    EXPECT_FALSE(probe.KeyExists());
}

TEST_F(RegistryTest, AssociationWithEveryVerbAndItsDefaultTexts) {
    const std::string program = "\"" + RunningProgramFile() + "\"";
    const std::string shell = "SOFTWARE\\Classes\\Qrv.Log\\shell\\";
    EXPECT_TRUE(m_registry.CreateEXEAssociation("Qrv.Log", "QRV log", "LOG", "", true, "", true, "",
                                                true, "", 2));
    EXPECT_EQ(DefaultText(shell + "print"), "&Print");
    EXPECT_EQ(DefaultText(shell + "print\\command"), program + " /p \"%1\"");
    EXPECT_EQ(DefaultText(shell + "add"), "&Install QRV log");
    EXPECT_EQ(DefaultText(shell + "add\\command"), program + " /a \"%1\"");
    EXPECT_EQ(DefaultText(shell + "new"), "&New");
    EXPECT_EQ(DefaultText(shell + "new\\command"), program + " /n \"%1\"");
    EXPECT_EQ(DefaultText("SOFTWARE\\Classes\\Qrv.Log\\DefaultIcon"), RunningProgramFile() + ",2");
}

TEST_F(RegistryTest, AssociationMenuTextsAreThoseGiven) {
    const std::string shell = "SOFTWARE\\Classes\\Qrv.Log\\shell\\";
    m_registry.CreateEXEAssociation("Qrv.Log", "QRV log", "LOG", "&View", true, "P&rint it", true,
                                    "&Make", true, "&Add it");
    EXPECT_EQ(DefaultText(shell + "open"), "&View");
    EXPECT_EQ(DefaultText(shell + "print"), "P&rint it");
    EXPECT_EQ(DefaultText(shell + "new"), "&Make");
    EXPECT_EQ(DefaultText(shell + "add"), "&Add it");
}

TEST_F(RegistryTest, AdditionalAssociationsAddAVerbPerTriple) {
    m_registry.CreateEXEAssociation("Qrv.Log", "QRV log", "LOG");
    EXPECT_TRUE(m_registry.CreateAdditionalEXEAssociations(
        "Qrv.Log", {"check", "&Check", "qrv.exe check \"%1\"", "list", "&List", "qrv.exe list"}));
    const std::string shell = "SOFTWARE\\Classes\\Qrv.Log\\shell\\";
    EXPECT_EQ(DefaultText(shell + "check"), "&Check");
    EXPECT_EQ(DefaultText(shell + "check\\command"), "qrv.exe check \"%1\"");
    EXPECT_EQ(DefaultText(shell + "list"), "&List");
    EXPECT_EQ(DefaultText(shell + "list\\command"), "qrv.exe list");
}

TEST_F(RegistryTest, AdditionalAssociationsRefuseAListNotMadeOfTriples) {
    m_registry.CreateEXEAssociation("Qrv.Log", "QRV log", "LOG");
    const CRegistryError error = Raised([&] {
        m_registry.CreateAdditionalEXEAssociations("Qrv.Log", {"check", "&Check"});
    });
    EXPECT_EQ(error.Number(), 26001);
    EXPECT_EQ(error.Source(), Source());
    EXPECT_EQ(error.Description(), "Invalid parameter list passed to "
                                   "CreateAdditionalEXEAssociations - expected Name/Text/Command");
}

TEST_F(RegistryTest, AdditionalAssociationsRefuseAClassNotDefinedYet) {
    const CRegistryError error = Raised([&] {
        m_registry.CreateAdditionalEXEAssociations("Qrv.None", {"a", "b", "c"});
    });
    EXPECT_EQ(error.Number(), 26001);
    EXPECT_EQ(error.Description(),
              "Error - attempt to create additional associations before class defined.");
}

TEST_F(RegistryTest, SourceIsTheProgramsNameAndClass) {
    EXPECT_EQ(Source(), "support_cRegistry.cRegistry");
}

TEST_F(RegistryTest, KeyThatCannotBeOpenedForWritingRaisesTheCreateText) {
    m_registry.SectionKey("Korvex\\Locked");
    m_registry.CreateKey();
    MakeReadOnly(m_root.AsRoot(), "Korvex\\Locked");
    EXPECT_TRUE(m_registry.KeyExists());
    const CRegistryError error = Raised([&] { m_registry.CreateKey(); });
    EXPECT_EQ(error.Number(), 26001);
    EXPECT_EQ(error.Source(), Source());
    EXPECT_EQ(error.Description(), "Failed to create registry Key: 'Korvex\\Locked");
}

TEST_F(RegistryTest, ValueThatCannotBeSetRaisesItsText) {
    m_registry.SectionKey("Korvex\\Locked");
    m_registry.CreateKey();
    MakeReadOnly(m_root.AsRoot(), "Korvex\\Locked");
    m_registry.ValueKey("Path");
    const CRegistryError error = Raised([&] { m_registry.Value(std::string("E:\\Backup")); });
    EXPECT_EQ(error.Number(), 26001);
    EXPECT_EQ(error.Description(), "Failed to set registry value Key: 'Korvex\\Locked',Key: "
                                   "'Path' to value: 'E:\\Backup'");
}

TEST_F(RegistryTest, ValueOfAKeyThatCannotBeOpenedForDeleteRaisesTheOpenText) {
    m_registry.SectionKey("Korvex\\Locked");
    m_registry.ValueKey("Path");
    m_registry.Value(std::string("x"));
    MakeReadOnly(m_root.AsRoot(), "Korvex\\Locked");
    const CRegistryError error = Raised([&] { m_registry.DeleteValue(); });
    EXPECT_EQ(error.Description(), "Failed to open key 'Korvex\\Locked' for delete access");
}

TEST_F(RegistryTest, DeletingAMissingKeyRaisesTheOpenText) {
    m_registry.SectionKey("Korvex\\Nowhere\\Leaf");
    const CRegistryError error = Raised([&] { m_registry.DeleteKey(); });
    EXPECT_EQ(error.Number(), 26001);
    EXPECT_EQ(error.Description(), "Failed to open key 'Korvex\\Nowhere' for delete access");
}

TEST_F(RegistryTest, DeletingAMissingSubKeyRaisesTheDeleteText) {
    m_registry.SectionKey("Korvex");
    m_registry.CreateKey();
    m_registry.SectionKey("Korvex\\Leaf");
    const CRegistryError error = Raised([&] { m_registry.DeleteKey(); });
    EXPECT_EQ(error.Description(), "Failed to delete registry Key: '" +
                                       std::to_string(static_cast<int32_t>(m_root.AsRoot())) +
                                       "',Section: 'Korvex',Key: 'Leaf");
}

TEST_F(RegistryTest, DeletingAMissingValueRaisesTheDeleteText) {
    m_registry.ClassKey(cRegistry::kCurrentUser);
    m_registry.SectionKey(m_path);
    m_registry.ValueKey("None");
    const CRegistryError error = Raised([&] { m_registry.DeleteValue(); });
    EXPECT_EQ(error.Description(),
              "Failed to delete registry Key: '-2147483647',Section: '" + m_path + "',Key: 'None");
}

TEST_F(RegistryTest, DeletingAValueOfAMissingKeyRaisesTheOpenText) {
    m_registry.SectionKey("Korvex\\Nowhere");
    m_registry.ValueKey("Path");
    const CRegistryError error = Raised([&] { m_registry.DeleteValue(); });
    EXPECT_EQ(error.Description(), "Failed to open key 'Korvex\\Nowhere' for delete access");
}

TEST_F(RegistryTest, KeyOnAnUnknownMachineIsNotFound) {
    m_registry.Machine("no-such-machine.invalid");
    m_registry.ClassKey(cRegistry::kLocalMachine);
    m_registry.SectionKey("SOFTWARE");
    EXPECT_FALSE(m_registry.KeyExists());
}

} // namespace

#endif
