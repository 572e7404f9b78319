// One folder's entries: only folders (with "." and "..") and regular files are listed, links,
// FIFOs and sockets never; names are bytes; hidden means a leading dot; the questions asked
// about the current entry answer from the entry itself. On Windows hidden and system are the
// entry's own attribute bits.

#include "TestSupport.h"
#include "WindowsTestHelpers.h"

#include "engine/CFileFind.h"
#include "platform/modFileSystem.h"
#include "support/modServices.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>
#ifndef _WIN32
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#endif

namespace {

namespace fs = std::filesystem;

// The separator that ends a folder's search.
const std::string kSlash(1, kPathSeparator);

class CFileFindTest : public ::testing::Test {
protected:
    // Every name the search lists, sorted.
    static std::vector<std::string> Names(CFileFind& finder, const std::string& search) {
        std::vector<std::string> names;
        for (bool found = finder.FindFile(search); found; found = finder.FindNextFile())
            names.push_back(finder.GetFileName());
        std::sort(names.begin(), names.end());
        return names;
    }

    // Positions the finder on the entry called `name` of `folder`.
    static bool FindEntry(CFileFind& finder, const std::string& folder, const std::string& name) {
        for (bool found = finder.FindFile(folder + kSlash); found; found = finder.FindNextFile())
            if (finder.GetFileName() == name) return true;
        return false;
    }

    ScopedTestEnv env;
};

TEST_F(CFileFindTest, ListsFoldersRegularFilesAndTheDots) {
    const std::string root = env.Path("src");
    CreateTree(root, Dir({{"a.txt", File("a")}, {"sub", Dir()}, {".hidden", File("h")}}));
    CFileFind finder;
    EXPECT_EQ(Names(finder, root + kSlash),
              (std::vector<std::string>{".", "..", ".hidden", "a.txt", "sub"}));
}

#ifndef _WIN32
// Links, FIFOs and sockets, which Linux makes for anyone (Wine makes no links, and Windows file
// systems hold no FIFOs or sockets).
TEST_F(CFileFindTest, SymbolicLinksAreNeverListed) {
    const std::string root = env.Path("src");
    CreateTree(root, Dir({{"a.txt", File("a")}, {"sub", Dir({{"in.txt", File("i")}})}}));
    ASSERT_EQ(::symlink("a.txt", (root + "/link-to-file").c_str()), 0);
    ASSERT_EQ(::symlink("sub", (root + "/link-to-folder").c_str()), 0);
    ASSERT_EQ(::symlink("nowhere", (root + "/dangling").c_str()), 0);
    ASSERT_EQ(::symlink(".", (root + "/loop").c_str()), 0);
    CFileFind finder;
    EXPECT_EQ(Names(finder, root + kSlash), (std::vector<std::string>{".", "..", "a.txt", "sub"}));
}

TEST_F(CFileFindTest, FifoAndSocketAreNeverListed) {
    const std::string root = env.Path("src");
    CreateTree(root, Dir({{"a.txt", File("a")}}));
    ASSERT_EQ(::mkfifo((root + "/fifo").c_str(), 0600), 0);
    const int sock = ::socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_GE(sock, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string socketPath = root + "/socket";
    ASSERT_LT(socketPath.size(), sizeof(address.sun_path));
    socketPath.copy(address.sun_path, socketPath.size());
    ASSERT_EQ(::bind(sock, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    CFileFind finder;
    EXPECT_EQ(Names(finder, root + kSlash), (std::vector<std::string>{".", "..", "a.txt"}));
    ::close(sock);
}
#endif

TEST_F(CFileFindTest, NameEndingInSlashSearchesEveryEntryOfThatFolder) {
    const std::string root = env.Path("src");
    CreateTree(root, Dir({{"a.txt", File("a")}, {"b", File("b")}}));
    CFileFind finder;
    ASSERT_TRUE(finder.FindFile(root + kSlash));
    EXPECT_EQ(finder.GetRoot(), root + kSlash);
}

TEST_F(CFileFindTest, MaskSelectsMatchingNames) {
    const std::string root = env.Path("src");
    CreateTree(root, Dir({{"a.txt", File("a")}, {"b.doc", File("b")}, {"c.txt", File("c")}}));
    CFileFind finder;
    EXPECT_EQ(Names(finder, root + Native("/*.txt")), (std::vector<std::string>{"a.txt", "c.txt"}));
    EXPECT_EQ(Names(finder, root + Native("/*")),
              (std::vector<std::string>{".", "..", "a.txt", "b.doc", "c.txt"}));
}

TEST_F(CFileFindTest, MissingFolderFindsNothing) {
    CFileFind finder;
    EXPECT_FALSE(finder.FindFile(env.Path("missing") + kSlash));
    EXPECT_FALSE(finder.FindNextFile());
}

#ifndef _WIN32
TEST_F(CFileFindTest, UnreadableFolderFindsNothing) {
    const std::string root = env.Path("locked");
    CreateTree(root, Dir({{"a.txt", File("a")}}));
    ASSERT_EQ(::chmod(root.c_str(), 0), 0);
    ScopedNoPermissionOverride noOverride;
    if (!noOverride.Ok()) GTEST_SKIP() << "permissions cannot be enforced here";
    CFileFind finder;
    EXPECT_FALSE(finder.FindFile(root + kSlash));
}
#endif

TEST_F(CFileFindTest, FindNextFileAfterFindCloseFindsNothing) {
    const std::string root = env.Path("src");
    CreateTree(root, Dir({{"a.txt", File("a")}}));
    CFileFind finder;
    ASSERT_TRUE(finder.FindFile(root + kSlash));
    finder.FindClose();
    EXPECT_FALSE(finder.FindNextFile());
}

TEST_F(CFileFindTest, PathPartsOfTheCurrentEntry) {
    const std::string root = env.Path("src");
    CreateTree(root, Dir({{"archive.tar.gz", File("abc")}}));
    CFileFind finder;
    ASSERT_TRUE(FindEntry(finder, root, "archive.tar.gz"));
    EXPECT_EQ(finder.GetFilePath(), root + Native("/archive.tar.gz"));
    EXPECT_EQ(finder.GetFileURL(), "file://" + root + Native("/archive.tar.gz"));
    EXPECT_EQ(finder.GetFileTitle(), "archive.tar");
    EXPECT_EQ(finder.GetShortName(), "archive.tar.gz");
    EXPECT_EQ(finder.GetShortPath(), root + Native("/archive.tar.gz"));
}

TEST_F(CFileFindTest, TitleOfANameWithoutDotIsTheWholeName) {
    const std::string root = env.Path("src");
    CreateTree(root, Dir({{"README", File("abc")}}));
    CFileFind finder;
    ASSERT_TRUE(FindEntry(finder, root, "README"));
    EXPECT_EQ(finder.GetFileTitle(), "README");
}

TEST_F(CFileFindTest, NamesAreKeptByteForByte) {
    const std::string root = env.Path("src");
#ifdef _WIN32
    // Windows names are UTF-8 here, with no control character and no backslash.
    const std::string odd = std::string("caf\xc3\xa9 \xe6\x97\xa5 name with 'quote' and ;");
#else
    const std::string odd = std::string("bad\xff\xfe name\nwith 'quote' and \\");
#endif
    CreateTree(root, Dir({{odd, File("x")}}));
    CFileFind finder;
    ASSERT_TRUE(FindEntry(finder, root, odd));
    EXPECT_EQ(finder.GetFilePath(), root + kSlash + odd);
    EXPECT_FALSE(finder.IsDirectory());
}

#ifdef _WIN32
TEST_F(CFileFindTest, HiddenAndSystemAreTheAttributeBits) {
    const std::string root = env.Path("src");
    CreateTree(root, Dir({{".dotted", File("d")},
                          {"hidden", File("h")},
                          {"system", File("s")},
                          {"shown", File("s")},
                          {"hiddenDir", Dir()}}));
    ASSERT_TRUE(AddWindowsAttributes(root + Native("/hidden"), CFileFind::kHidden));
    ASSERT_TRUE(AddWindowsAttributes(root + Native("/system"), CFileFind::kSystem));
    ASSERT_TRUE(AddWindowsAttributes(root + Native("/hiddenDir"), CFileFind::kHidden));
    CFileFind finder;
    ASSERT_TRUE(FindEntry(finder, root, "hidden"));
    EXPECT_TRUE(finder.IsHidden());
    EXPECT_FALSE(finder.IsSystem());
    ASSERT_TRUE(FindEntry(finder, root, "system"));
    EXPECT_TRUE(finder.IsSystem());
    EXPECT_FALSE(finder.IsHidden());
    ASSERT_TRUE(FindEntry(finder, root, ".dotted"));
    EXPECT_FALSE(finder.IsHidden());
    ASSERT_TRUE(FindEntry(finder, root, "shown"));
    EXPECT_FALSE(finder.IsHidden());
    EXPECT_FALSE(finder.IsSystem());
    ASSERT_TRUE(FindEntry(finder, root, "hiddenDir"));
    EXPECT_TRUE(finder.IsHidden());
    EXPECT_TRUE(finder.IsDirectory());
}
#else
TEST_F(CFileFindTest, LeadingDotMeansHidden) {
    const std::string root = env.Path("src");
    CreateTree(root, Dir({{".hidden", File("h")}, {"shown", File("s")}, {".dir", Dir()}}));
    CFileFind finder;
    ASSERT_TRUE(FindEntry(finder, root, ".hidden"));
    EXPECT_TRUE(finder.IsHidden());
    EXPECT_FALSE(finder.IsSystem());
    ASSERT_TRUE(FindEntry(finder, root, "shown"));
    EXPECT_FALSE(finder.IsHidden());
    ASSERT_TRUE(FindEntry(finder, root, ".dir"));
    EXPECT_TRUE(finder.IsHidden());
    EXPECT_TRUE(finder.IsDirectory());
    ASSERT_TRUE(FindEntry(finder, root, "."));
    EXPECT_FALSE(finder.IsHidden());
}
#endif

TEST_F(CFileFindTest, DotsAreDirectoriesThatIsDotsRecognises) {
    const std::string root = env.Path("src");
    // Windows takes the dots off the end of a name, so its name of dots alone is "..." there.
#ifdef _WIN32
    const std::string dotted = "..dotted";
#else
    const std::string dotted = "...";
#endif
    CreateTree(root, Dir({{"sub", Dir()}, {dotted, File("three dots")}}));
    CFileFind finder;
    ASSERT_TRUE(FindEntry(finder, root, "."));
    EXPECT_TRUE(finder.IsDots());
    EXPECT_TRUE(finder.IsDirectory());
    ASSERT_TRUE(FindEntry(finder, root, ".."));
    EXPECT_TRUE(finder.IsDots());
    ASSERT_TRUE(FindEntry(finder, root, "sub"));
    EXPECT_FALSE(finder.IsDots());
    EXPECT_TRUE(finder.IsDirectory());
    EXPECT_TRUE(finder.MatchesMask(CFileFind::kDirectory));
    ASSERT_TRUE(FindEntry(finder, root, dotted));
    EXPECT_FALSE(finder.IsDots());
    EXPECT_FALSE(finder.IsDirectory());
}

TEST_F(CFileFindTest, FileWithoutWriteBitIsReadOnly) {
    const std::string root = env.Path("src");
    CreateTree(root, Dir({{"ro", File("r")}, {"rw", File("w")}}));
    // Mode 0444 on Linux; the read-only attribute on Windows.
    fs::permissions(FsPath(root + Native("/ro")),
                    fs::perms::owner_read | fs::perms::group_read | fs::perms::others_read,
                    fs::perm_options::replace);
    CFileFind finder;
    ASSERT_TRUE(FindEntry(finder, root, "ro"));
    EXPECT_TRUE(finder.IsReadOnly());
    EXPECT_TRUE(finder.IsArchived());
    EXPECT_FALSE(finder.MatchesMask(CFileFind::kDirectory));
    ASSERT_TRUE(FindEntry(finder, root, "rw"));
    EXPECT_FALSE(finder.IsReadOnly());
    EXPECT_FALSE(finder.IsTemporary());
    EXPECT_FALSE(finder.IsCompressed());
}

TEST_F(CFileFindTest, LengthOfASmallFile) {
    const std::string root = env.Path("src");
    CreateTree(root, Dir({{"f", File(PatternContent(12345))}}));
    CFileFind finder;
    ASSERT_TRUE(FindEntry(finder, root, "f"));
    EXPECT_EQ(finder.GetLength(), 12345u);
    EXPECT_EQ(finder.GetLength64(), 12345.0);
}

TEST_F(CFileFindTest, Length64TakesTheHighHalfTimes2E32PlusTheSignedLowHalf) {
    const std::string root = env.Path("src");
    CreateTree(root, Dir({{"big", File("")}, {"bigger", File("")}}));
    // Sparse files: no data is written.
    const uintmax_t big = (uintmax_t{1} << 32) + (uintmax_t{1} << 30);
    const uintmax_t bigger = (uintmax_t{2} << 32) + (uintmax_t{1} << 31) + 5;
    std::error_code error;
    fs::resize_file(FsPath(root + Native("/big")), big, error);
    if (!error) fs::resize_file(FsPath(root + Native("/bigger")), bigger, error);
    if (error) GTEST_SKIP() << "the file system holds no files beyond 4 GiB";
    CFileFind finder;
    ASSERT_TRUE(FindEntry(finder, root, "big"));
    EXPECT_EQ(finder.GetLength(), 1u << 30);
    EXPECT_EQ(finder.GetLength64(), 1 * 2E+32 + 1073741824.0);
    ASSERT_TRUE(FindEntry(finder, root, "bigger"));
    EXPECT_EQ(finder.GetLength(), (1u << 31) + 5u);
    EXPECT_EQ(finder.GetLength64(), 2 * 2E+32 - 2147483643.0);
}

TEST_F(CFileFindTest, LastWriteTimeIsTheModificationTime) {
    const std::string root = env.Path("src");
    CreateTree(root, Dir({{"f", File("x")}}));
#ifdef _WIN32
    ASSERT_TRUE(
        SetWindowsFileTimes(root + Native("/f"), 1100000000'000000000, 1200000000'000000500));
#else
    const timespec times[2] = {{1100000000, 0}, {1200000000, 500}};
    ASSERT_EQ(::utimensat(AT_FDCWD, (root + "/f").c_str(), times, 0), 0);
#endif
    CFileFind finder;
    ASSERT_TRUE(FindEntry(finder, root, "f"));
    EXPECT_EQ(finder.GetLastWriteTime(), 1200000000);
    EXPECT_EQ(finder.GetLastAccessTime(), 1100000000);

    // The halves are of the local file time: 100-ns units since 1601 in local time.
    std::tm local{};
    const std::time_t modified = 1200000000;
#ifdef _WIN32
    localtime_s(&local, &modified);
    const long long offset = _mkgmtime(&local) - modified;
#else
    localtime_r(&modified, &local);
    const long long offset = local.tm_gmtoff;
#endif
    const uint64_t fileTime =
        static_cast<uint64_t>(modified + offset + 11644473600LL) * 10000000ULL + 5;
    EXPECT_EQ(finder.GetLastWriteTimeHigh(), static_cast<uint32_t>(fileTime >> 32));
    EXPECT_EQ(finder.GetLastWriteTimeLow(), static_cast<uint32_t>(fileTime));
}

TEST_F(CFileFindTest, NewSearchReplacesTheOpenOne) {
    const std::string a = env.Path("a");
    const std::string b = env.Path("b");
    CreateTree(a, Dir({{"one", File("1")}}));
    CreateTree(b, Dir({{"two", File("2")}}));
    CFileFind finder;
    ASSERT_TRUE(finder.FindFile(a + kSlash));
    EXPECT_EQ(Names(finder, b + kSlash), (std::vector<std::string>{".", "..", "two"}));
    EXPECT_EQ(finder.GetRoot(), b + kSlash);
}

} // namespace
