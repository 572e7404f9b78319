// Where the program keeps its own files: the settings home, the state folder and the files in
// it, the folders of the program and of the process, and the private folders it makes.

#include "TestSupport.h"
#include "platform/modFileStatus.h"
#include "platform/modPlatformPaths.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#ifdef _WIN32
#include "platform/modWin32Text.h"

#include <aclapi.h>
#include <memory>
#include <optional>
#include <sddl.h>
#endif

namespace {

const char* const kStateNames[] = {"QRVERR.LOG", "ERRORS.TXT", "LOGGER.TXT", "trace.log",
                                   "QRV.lock"};

#ifndef _WIN32

TEST(PlatformPaths, TheStateFolderIsBelowXdgStateHome) {
    ScopedTestEnv env;
    EXPECT_EQ(ConfigHome(), env.ConfigHome());
    EXPECT_EQ(StateFolder(), env.StateHome() + "/Korvex/QRV");
    EXPECT_FALSE(StatusOf(StateFolder()).Exists());
    for (const char* name : kStateNames)
        EXPECT_EQ(StateFile(name), StateFolder() + "/" + name);
    EXPECT_EQ(std::filesystem::status(StateFolder()).permissions(),
              std::filesystem::perms::owner_all);
}

TEST(PlatformPaths, EveryMissingFolderIsMadePrivate) {
    ScopedTestEnv env;
    ASSERT_TRUE(MakePrivateFolders(env.Path("a/b/c")));
    for (const char* folder : {"a", "a/b", "a/b/c"})
        EXPECT_EQ(std::filesystem::status(env.Path(folder)).permissions(),
                  std::filesystem::perms::owner_all)
            << folder;
    EXPECT_TRUE(MakePrivateFolders(env.Path("a/b/c")));
    WriteFile(env.Path("a/file"), "x");
    EXPECT_FALSE(MakePrivateFolders(env.Path("a/file/d")));
    EXPECT_FALSE(MakePrivateFolders(""));
}

#else

// A variable of the environment, set (or removed, for nullopt) for one test and put back after.
class ScopedVariable {
public:
    ScopedVariable(const wchar_t* name, const std::optional<std::string>& value) : m_name(name) {
        const DWORD size = ::GetEnvironmentVariableW(name, nullptr, 0);
        if (size > 0) {
            std::wstring saved(size, L'\0');
            saved.resize(::GetEnvironmentVariableW(name, saved.data(), size));
            m_saved = saved;
        }
        ::SetEnvironmentVariableW(name, value ? Wide(*value).c_str() : nullptr);
    }
    ~ScopedVariable() { ::SetEnvironmentVariableW(m_name, m_saved ? m_saved->c_str() : nullptr); }
    ScopedVariable(const ScopedVariable&) = delete;
    ScopedVariable& operator=(const ScopedVariable&) = delete;

private:
    const wchar_t* m_name;
    std::optional<std::wstring> m_saved;
};

std::string SidText(PSID sid) {
    LPWSTR text = nullptr;
    if (!::ConvertSidToStringSidW(sid, &text)) return "?";
    const std::string result = Narrow(text);
    ::LocalFree(text);
    return result;
}

std::string UserSid() {
    HANDLE token = nullptr;
    if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token)) return "?";
    DWORD size = 0;
    ::GetTokenInformation(token, TokenUser, nullptr, 0, &size);
    std::unique_ptr<char[]> buffer(new char[size ? size : 1]);
    std::string sid = "?";
    if (size && ::GetTokenInformation(token, TokenUser, buffer.get(), size, &size))
        sid = SidText(reinterpret_cast<TOKEN_USER*>(buffer.get())->User.Sid);
    ::CloseHandle(token);
    return sid;
}

// Whom the security of `path` lets in: the SIDs of its allowing entries.
std::vector<std::string> AllowedSids(const std::string& path) {
    PACL dacl = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (::GetNamedSecurityInfoW(WidePath(path).c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION,
                                nullptr, nullptr, &dacl, nullptr, &descriptor) != ERROR_SUCCESS)
        return {"unreadable"};
    std::vector<std::string> sids;
    for (DWORD i = 0; dacl && i < dacl->AceCount; ++i) {
        void* entry = nullptr;
        if (::GetAce(dacl, i, &entry) &&
            static_cast<ACE_HEADER*>(entry)->AceType == ACCESS_ALLOWED_ACE_TYPE)
            sids.push_back(SidText(&static_cast<ACCESS_ALLOWED_ACE*>(entry)->SidStart));
    }
    ::LocalFree(descriptor);
    return sids;
}

// Short paths go to Windows as they are, long ones absolute in the \\?\ form.
TEST(PlatformPaths, ALongPathIsHandedOverInItsLongForm) {
    const std::string name(100, 'n');
    EXPECT_EQ(WidePath("C:/short/path"), L"C:/short/path");
    EXPECT_EQ(WidePath("C:/a/../b/" + name + "/" + name + "/" + name),
              L"\\\\?\\C:\\b\\" + Wide(name) + L"\\" + Wide(name) + L"\\" + Wide(name));
    EXPECT_EQ(WidePath("\\\\server\\share\\" + name + "\\" + name + "\\" + name),
              L"\\\\?\\UNC\\server\\share\\" + Wide(name) + L"\\" + Wide(name) + L"\\" +
                  Wide(name));
    const std::string already = "\\\\?\\C:\\" + name + "\\" + name + "\\" + name;
    EXPECT_EQ(WidePath(already), Wide(already));
    EXPECT_EQ(Narrow(Wide("Gr\xc3\xbc\xc3\x9f\x65 \xe6\x97\xa5\xe6\x9c\xac")),
              "Gr\xc3\xbc\xc3\x9f\x65 \xe6\x97\xa5\xe6\x9c\xac");
}

TEST(PlatformPaths, TheStateFolderIsBelowLocalAppData) {
    ScopedTestEnv env;
    ScopedVariable local(L"LOCALAPPDATA", env.StateHome());
    ScopedVariable roaming(L"APPDATA", env.ConfigHome());
    ScopedVariable perUser(L"STASHWELL_PER_USER_STATE", "1");
    EXPECT_EQ(ConfigHome(), env.ConfigHome());
    EXPECT_EQ(StateFolder(), env.StateHome() + "\\Korvex\\QRV");
    EXPECT_FALSE(StatusOf(StateFolder()).Exists());
    for (const char* name : kStateNames)
        EXPECT_EQ(StateFile(name), StateFolder() + "\\" + name);
    EXPECT_EQ(StatusOf(StateFolder()).kind, PathKind::kFolder);
}

// The error report and the logger file go to C:\, the trace to the program's folder, each when
// this user may write there; asking leaves nothing behind.
TEST(PlatformPaths, TheReportsGoToTheirDescribedPlacesWhenThoseAreWritable) {
    ScopedTestEnv env;
    ScopedVariable local(L"LOCALAPPDATA", env.StateHome());
    ScopedVariable perUser(L"STASHWELL_PER_USER_STATE", std::nullopt);
    const std::pair<std::string, std::string> places[] = {
        {"QRVERR.LOG", "C:\\QRVERR.LOG"},
        {"ERRORS.TXT", "C:\\ERRORS.TXT"},
        {"LOGGER.TXT", "C:\\LOGGER.TXT"},
        {"trace.log", ProgramFolder() + "\\trace.log"},
    };
    for (const auto& [name, described] : places) {
        const bool wasThere = StatusOf(described).Exists();
        const std::string place = StateFile(name);
        EXPECT_TRUE(place == described || place == StateFolder() + "\\" + name) << place;
        EXPECT_EQ(StatusOf(described).Exists(), wasThere) << described;
    }
    EXPECT_EQ(StateFile("QRV.lock"), StateFolder() + "\\QRV.lock");
}

TEST(PlatformPaths, EveryMissingFolderIsMadePrivate) {
    ScopedTestEnv env;
    ASSERT_TRUE(MakePrivateFolders(env.Path("a/b\\c")));
    const std::vector<std::string> private_ = {UserSid(), "S-1-5-18", "S-1-5-32-544"};
    for (const char* folder : {"a", "a/b", "a/b/c"}) {
        const std::vector<std::string> allowed = AllowedSids(env.Path(folder));
        EXPECT_NE(std::find(allowed.begin(), allowed.end(), UserSid()), allowed.end()) << folder;
        for (const std::string& sid : allowed)
            EXPECT_NE(std::find(private_.begin(), private_.end(), sid), private_.end())
                << folder << " lets in " << sid;
    }
    EXPECT_TRUE(MakePrivateFolders(env.Path("a/b/c")));
    WriteFile(env.Path("a/file"), "x");
    EXPECT_FALSE(MakePrivateFolders(env.Path("a/file/d")));
    EXPECT_FALSE(MakePrivateFolders(""));
    EXPECT_TRUE(MakePrivateFolders(env.Root().substr(0, 3)));
}

#endif

TEST(PlatformPaths, TheProgramAndTheCurrentFolderAreThere) {
    EXPECT_EQ(StatusOf(ProgramFolder()).kind, PathKind::kFolder);
    EXPECT_EQ(StatusOf(CurrentFolder()).kind, PathKind::kFolder);
    EXPECT_EQ(StatusOf(CurrentFolder()).identity, StatusOf(".").identity);
}

} // namespace
