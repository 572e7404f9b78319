// The file-system helpers: textual cut rules, mount points as drives, private folders, deletes
// that never follow links, the copy with retries through three modes with its exact log lines,
// the all-or-nothing write of a new destination, moves, and paths made of odd bytes.

#include "TestSupport.h"
#include "WindowsTestHelpers.h"
#include "platform/COpenFolder.h"
#include "platform/modFileStatus.h"
#include "platform/modFileSystem.h"
#include "support/CRuntimeError.h"
#include "support/modFSCommon.h"
#include "support/modFileCopy.h"
#include "support/modServices.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <future>
#include <gtest/gtest.h>
#include <regex>
#ifndef _WIN32
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Lines = std::vector<std::string>;

std::string ReportText(const std::string& procedure, int number, const std::string& description) {
    return "The following error has occurred in procedure: \r\n" + procedure + " on line 0\r\n" +
           "Error (" + std::to_string(number) + ") " + description;
}

#ifndef _WIN32
// Runs `work` and fails the test when it does not finish within five seconds; a FIFO that
// blocks it is then opened from the other side so that the test can end.
template <class Work> void ExpectFinishesWithoutBlockingOn(const std::string& fifo, Work work) {
    auto done = std::async(std::launch::async, work);
    if (done.wait_for(5s) == std::future_status::ready) return;
    ADD_FAILURE() << "blocked on " << fifo;
    const int other = ::open(fifo.c_str(), O_RDWR | O_NONBLOCK);
    done.wait();
    ::close(other);
}
#endif

// A second file system for moves and copies across devices, or empty when there is none.
std::string OtherFileSystemFolder(const ScopedTestEnv& env) {
    return FolderOnAnotherFileSystem(env.Root(), "stashwell-fs-");
}

// Only the owner may read it: a file of mode 0400 on Linux, with its read-only attribute on
// Windows.
void MakeReadOnly(const std::string& path) {
    fs::permissions(FsPath(path), fs::perms::owner_read, fs::perm_options::replace);
}

// A folder of the test's own inside the test folder, which also holds the program's state
// files (the error report), so that listings show only what the test made.
class TestFolder {
public:
    explicit TestFolder(const ScopedTestEnv& env) : m_root(env.Path("data")) {
        CreateTree(m_root, Dir());
    }
    const std::string& Root() const { return m_root; }
    std::string Path(const std::string& relative) const { return m_root + Native("/" + relative); }

private:
    std::string m_root;
};

// ---- Cut rules -------------------------------------------------------------------------------

TEST(FSBuildPath, JoinsWithExactlyOneSlash) {
    ScopedTestEnv env;
    EXPECT_EQ(FSBuildPath(Native("/a"), "b"), Native("/a/b"));
    EXPECT_EQ(FSBuildPath(Native("/a/"), "b"), Native("/a/b"));
    EXPECT_EQ(FSBuildPath(Native("/a"), Native("/b")), Native("/a/b"));
    EXPECT_EQ(FSBuildPath(Native("/a/"), Native("/b")), Native("/a/b"));
    EXPECT_EQ(FSBuildPath(Native("/a//"), Native("//b/c")), Native("/a/b/c"));
    EXPECT_EQ(FSBuildPath("rel", "b"), Native("rel/b"));
    EXPECT_EQ(FSBuildPath(Native("/"), "b"), Native("/b"));
}

TEST(FSBuildPath, SlashAsNameGivesThePathWithOneTrailingSlash) {
    ScopedTestEnv env;
    EXPECT_EQ(FSBuildPath(Native("/a"), Native("/")), Native("/a/"));
    EXPECT_EQ(FSBuildPath(Native("/a/"), Native("/")), Native("/a/"));
    EXPECT_EQ(FSBuildPath(Native("/"), Native("/")), Native("/"));
}

TEST(FSBuildPath, EmptyPathGivesTheName) {
    ScopedTestEnv env;
    EXPECT_EQ(FSBuildPath("", "b"), "b");
    EXPECT_EQ(FSBuildPath("", Native("/b")), Native("/b"));
}

TEST(FSGetExtension, NameWithoutDotHasNoExtension) {
    ScopedTestEnv env;
    EXPECT_EQ(FSGetExtension("readme"), "");
    EXPECT_EQ(FSGetExtension(Native("/home/u/readme")), "");
}

TEST(FSGetExtension, OnlyTheTailAfterTheLastDotUpperCased) {
    ScopedTestEnv env;
    EXPECT_EQ(FSGetExtension("archive.tar.gz"), "GZ");
    EXPECT_EQ(FSGetExtension(Native("/x/photo.Jpeg")), "JPEG");
    EXPECT_EQ(FSGetExtension("name."), "");
}

TEST(FSGetExtension, DotInAFolderNameWithNoDotInTheFileNameGivesTheTailAfterIt) {
    ScopedTestEnv env;
    EXPECT_EQ(FSGetExtension(Native("a/a.b/readme")), Native("B/README"));
}

TEST(FSGetExtension, BytesOutsideAsciiAreLeftAsTheyAre) {
    ScopedTestEnv env;
    EXPECT_EQ(FSGetExtension("f.\xc3\xa9t\xff"), "\xc3\xa9T\xff");
}

TEST(FSGetPathPart, BareFileNameHasAnEmptyFolderPart) {
    EXPECT_EQ(FSGetPathPart("file.txt"), "");
    EXPECT_EQ(FSGetNamePart("file.txt"), "file.txt");
}

TEST(FSGetPathPart, CutsAfterTheLastSlash) {
    EXPECT_EQ(FSGetPathPart(Native("/a/b/c.txt")), Native("/a/b/"));
    EXPECT_EQ(FSGetNamePart(Native("/a/b/c.txt")), "c.txt");
    EXPECT_EQ(FSGetPathPart(Native("/a/b/")), Native("/a/b/"));
    EXPECT_EQ(FSGetNamePart(Native("/a/b/")), "");
    EXPECT_EQ(FSGetPathPart(Native("/")), Native("/"));
    EXPECT_EQ(FSGetNamePart(""), "");
}

TEST(FSGetTempName, FreshNameEndingInTmpOnEveryCall) {
    const std::regex form("rad[0-9A-F]{5}\\.tmp");
    std::string previous;
    for (int i = 0; i < 200; ++i) {
        const std::string name = FSGetTempName();
        EXPECT_TRUE(std::regex_match(name, form)) << name;
        EXPECT_NE(name, previous);
        previous = name;
    }
}

// ---- Drives ----------------------------------------------------------------------------------

TEST(FSDriveFromPath, RelativePathHasNoDrive) {
    EXPECT_EQ(FSDriveFromPath("docs/file.txt"), "");
    EXPECT_EQ(FSDriveFromPath("file.txt"), "");
    EXPECT_EQ(FSDriveFromPath(""), "");
}

#ifdef _WIN32
TEST(FSDriveFromPath, DriveLetterRootHoldingThePath) {
    EXPECT_EQ(FSDriveFromPath("C:\\"), "C:\\");
    EXPECT_EQ(FSDriveFromPath("C:\\windows\\system32"), "C:\\");
    EXPECT_EQ(FSDriveFromPath("C:\\windows\\"), "C:\\");
}

TEST(FSDriveFromPath, PathNotCreatedYetTakesTheDriveOfItsNearestFolder) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    EXPECT_EQ(FSDriveFromPath("C:\\windows\\no\\such\\file"), "C:\\");
    EXPECT_EQ(FSDriveFromPath(dir.Path("no/such/file")), FSDriveFromPath(dir.Root()));
}
#else
TEST(FSDriveFromPath, MountPointHoldingThePath) {
    EXPECT_EQ(FSDriveFromPath("/"), "/");
    EXPECT_EQ(FSDriveFromPath("/proc/self/status"), "/proc");
    EXPECT_EQ(FSDriveFromPath("/proc/"), "/proc");
}

TEST(FSDriveFromPath, PathNotCreatedYetTakesTheDriveOfItsNearestFolder) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    EXPECT_EQ(FSDriveFromPath("/proc/1/no/such/file"), "/proc");
    EXPECT_EQ(FSDriveFromPath(dir.Path("no/such/file")), FSDriveFromPath(dir.Root()));
}
#endif

TEST(FSDriveFromPath, DriveIsAFolderAboveOnTheSameDevice) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    const std::string drive = FSDriveFromPath(dir.Root());
    ASSERT_FALSE(drive.empty());
    EXPECT_EQ(dir.Root().compare(0, drive.size(), drive), 0);
    const PathStatus root = StatusOf(dir.Root()), mount = StatusOf(drive);
    ASSERT_TRUE(root.Exists()) << root.error;
    ASSERT_TRUE(mount.Exists()) << mount.error;
    EXPECT_EQ(root.identity.device, mount.identity.device);
}

TEST(FSGetFreeDiskSpace, DriveOfARelativePathReportsAnErrorAndGivesZero) {
    ScopedTestEnv env;
    EXPECT_EQ(FSGetFreeDiskSpace(FSDriveFromPath("docs/file.txt")), 0);
    EXPECT_EQ(ErrHandler().ErrNumber(), 5);
    EXPECT_EQ(ErrHandler().ErrProcedure(), "FSGetFreeDiskSpace");
    ASSERT_EQ(env.box.calls.size(), 1u);
    EXPECT_EQ(env.box.calls[0].text,
              ReportText("FSGetFreeDiskSpace", 5, "Invalid procedure call or argument"));
    EXPECT_EQ(env.box.calls[0].style, 16);
    EXPECT_EQ(ErrHandler().StackPointer(), 0);
}

TEST(FSGetFreeDiskSpace, MissingDriveReportsDeviceUnavailable) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    EXPECT_EQ(FSGetFreeDiskSpace(dir.Path("unplugged")), 0);
    EXPECT_EQ(ErrHandler().ErrNumber(), 68);
    EXPECT_EQ(ErrHandler().ErrProcedure(), "FSGetFreeDiskSpace");
}

TEST(FSGetFreeDiskSpace, FreeBytesAvailableToTheUser) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    const std::string drive = FSDriveFromPath(dir.Root());
    std::error_code error;
    const fs::space_info info = fs::space(FsPath(drive), error);
    ASSERT_FALSE(error) << error.message();
    const double expected = static_cast<double>(info.available);
    EXPECT_NEAR(FSGetFreeDiskSpace(drive), expected, 256.0 * 1024 * 1024);
    EXPECT_TRUE(env.box.calls.empty());
}

TEST(FSDriveExists, DriveExistsWhenItsFolderDoes) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    WriteFile(dir.Path("file"), "x");
    EXPECT_TRUE(FSDriveExists(dir.Root()));
    EXPECT_FALSE(FSDriveExists(dir.Path("unplugged")));
    EXPECT_FALSE(FSDriveExists(dir.Path("file")));
}

// ---- Existence, size, readability ------------------------------------------------------------

TEST(FSFileExists, FilesAndFoldersAreToldApart) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    CreateTree(dir.Root(), Dir({{"f", File("x")}, {"d", Dir()}}));
    EXPECT_TRUE(FSFileExists(dir.Path("f")));
    EXPECT_FALSE(FSFileExists(dir.Path("d")));
    EXPECT_FALSE(FSFileExists(dir.Path("none")));
    EXPECT_TRUE(FSFolderExists(dir.Path("d")));
    EXPECT_FALSE(FSFolderExists(dir.Path("f")));
    EXPECT_FALSE(FSFolderExists(dir.Path("none")));
}

TEST(FSGetFileSize, SizeInBytesAndZeroWithoutAReport) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    CreateTree(dir.Root(), Dir({{"f", File(PatternContent(70000))}, {"d", Dir()}}));
    EXPECT_EQ(FSGetFileSize(dir.Path("f")), 70000);
    EXPECT_EQ(FSGetFileSize(dir.Path("none")), 0);
    EXPECT_EQ(FSGetFileSize(dir.Path("d")), 0);
    EXPECT_TRUE(env.box.calls.empty());
    EXPECT_EQ(ErrHandler().ErrNumber(), 0);
}

TEST(FSIsReadable, RegularFilesOfAnySizeAreReadable) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    CreateTree(dir.Root(), Dir({{"empty", File("")},
                                {"short", File("abc")},
                                {"exact", File(PatternContent(8193))},
                                {"long", File(PatternContent(100000))}}));
    EXPECT_TRUE(FSIsReadable(dir.Path("empty")));
    EXPECT_TRUE(FSIsReadable(dir.Path("short")));
    EXPECT_TRUE(FSIsReadable(dir.Path("exact")));
    EXPECT_TRUE(FSIsReadable(dir.Path("long")));
}

TEST(FSIsReadable, MissingFileAndFolderAreNot) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    CreateTree(dir.Root(), Dir({{"d", Dir()}}));
    EXPECT_FALSE(FSIsReadable(dir.Path("none")));
    EXPECT_FALSE(FSIsReadable(dir.Path("d")));
#ifdef _WIN32
    EXPECT_FALSE(FSIsReadable("NUL"));
#else
    EXPECT_FALSE(FSIsReadable("/dev/null"));
#endif
}

#ifdef _WIN32
TEST(FSIsReadable, FileThatAnotherProgramHoldsWithoutSharingIsNot) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    WriteFile(dir.Path("locked"), "secret");
    const ExclusiveHold hold(dir.Path("locked"));
    ASSERT_TRUE(hold.Ok());
    EXPECT_FALSE(FSIsReadable(dir.Path("locked")));
}
#else
TEST(FSIsReadable, FifoIsNotReadableAndDoesNotBlock) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    const std::string fifo = dir.Path("fifo");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    ExpectFinishesWithoutBlockingOn(fifo, [&] { EXPECT_FALSE(FSIsReadable(fifo)); });
}

TEST(FSIsReadable, FileWithoutReadPermissionIsNot) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    WriteFile(dir.Path("locked"), "secret");
    ASSERT_EQ(::chmod(dir.Path("locked").c_str(), 0), 0);
    ScopedNoPermissionOverride noOverride;
    if (!noOverride.Ok()) GTEST_SKIP() << "cannot drop the permission override of root";
    EXPECT_FALSE(FSIsReadable(dir.Path("locked")));
}

TEST(FSIsReadable, SymbolicLinkIsNotFollowedEvenToAReadableFile) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    WriteFile(dir.Path("target"), "readable");
    ASSERT_EQ(::symlink(dir.Path("target").c_str(), dir.Path("link").c_str()), 0);
    EXPECT_TRUE(FSIsReadable(dir.Path("target")));
    EXPECT_FALSE(FSIsReadable(dir.Path("link")));
}
#endif

// ---- Folders ---------------------------------------------------------------------------------

TEST(FSCreateFolder, FolderIsPrivateWhateverTheUmask) {
    ScopedTestEnv env;
    const TestFolder dir(env);
#ifdef _WIN32
    FSCreateFolder(dir.Path("new"));
#else
    const mode_t oldMask = ::umask(0);
    FSCreateFolder(dir.Path("new"));
    ::umask(oldMask);
#endif
    EXPECT_TRUE(FSFolderExists(dir.Path("new")));
    EXPECT_TRUE(IsPrivate(dir.Path("new")));
}

TEST(FSCreateFolder, ExistingFolderIsReported) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    FSCreateFolder(dir.Root());
    EXPECT_EQ(ErrHandler().ErrNumber(), 58);
    EXPECT_EQ(ErrHandler().ErrProcedure(), "FSCreateFolder");
    ASSERT_EQ(env.box.calls.size(), 1u);
    EXPECT_EQ(env.box.calls[0].text, ReportText("FSCreateFolder", 58, "File already exists"));
}

TEST(FSCreateFolder, MissingParentIsReportedAsPathNotFound) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    FSCreateFolder(dir.Path("a/b"));
    EXPECT_EQ(ErrHandler().ErrNumber(), 76);
    EXPECT_FALSE(Exists(dir.Path("a")));
}

TEST(FSCreateFolderTree, EveryPrefixEndingInSlashIsCreatedPrivate) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    FSCreateFolderTree(dir.Path("a/b/c/"));
    EXPECT_EQ(ListTree(dir.Root()), (Lines{"a/", "a/b/", "a/b/c/"}));
    for (const char* folder : {"a", "a/b", "a/b/c"})
        EXPECT_TRUE(IsPrivate(dir.Path(folder)));
    EXPECT_TRUE(env.box.calls.empty());
}

TEST(FSCreateFolderTree, LastComponentWithoutSlashIsNotCreated) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    FSCreateFolderTree(dir.Path("a/b"));
    EXPECT_EQ(ListTree(dir.Root()), (Lines{"a/"}));
}

TEST(FSCreateFolderTree, ExistingFoldersAreKept) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    CreateTree(dir.Root(), Dir({{"a", Dir({{"f", File("x")}})}}));
    FSCreateFolderTree(dir.Path("a/b/"));
    EXPECT_EQ(ListTree(dir.Root()), (Lines{"a/", "a/b/", "a/f"}));
    EXPECT_TRUE(env.box.calls.empty());
}

#ifndef _WIN32
// A network path of a server that is not there: on Windows a search of the network.
TEST(FSCreateFolderTree, NetworkPathStartsAfterTheServerName) {
    ScopedTestEnv env;
    const std::string server = "stashwell-no-such-server-" + std::to_string(::getpid());
    FSCreateFolderTree("//" + server + "/share/");
    const bool serverCreated = Exists("/" + server);
    ::rmdir(("/" + server + "/share").c_str());
    ::rmdir(("/" + server).c_str());
    EXPECT_FALSE(serverCreated);
    // The first folder tried is the share, whose server folder is missing.
    EXPECT_EQ(ErrHandler().ErrNumber(), 76);
    EXPECT_EQ(ErrHandler().ErrProcedure(), "FSCreateFolder");
}

TEST(FSCreateFolderTree, NetworkPathWithOnlyAServerCreatesNothing) {
    ScopedTestEnv env;
    const std::string server = "stashwell-no-such-server-" + std::to_string(::getpid());
    FSCreateFolderTree("//" + server);
    EXPECT_FALSE(Exists("/" + server));
    EXPECT_TRUE(env.box.calls.empty());
}
#endif

TEST(FSCreateFolderTree, LooksAtNoMoreThan1024Slashes) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    // Doubled slashes name folders that exist, so each one is a step that creates nothing.
    const long slashesInRoot = std::count(dir.Root().begin(), dir.Root().end(), kPathSeparator);
    const std::string lastStep =
        std::string(static_cast<size_t>(1023 - slashesInRoot), kPathSeparator);
    FSCreateFolderTree(dir.Root() + lastStep + Native("a/"));
    FSCreateFolderTree(dir.Root() + lastStep + Native("/b/"));
    EXPECT_EQ(ListTree(dir.Root()), (Lines{"a/"}));
    EXPECT_TRUE(env.box.calls.empty());
}

TEST(FSCreatePath, CreatesTheFoldersOfAFilePathButNotTheFile) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    FSCreatePath(dir.Path("x/y/file.txt"));
    EXPECT_EQ(ListTree(dir.Root()), (Lines{"x/", "x/y/"}));
}

// ---- Deletes ---------------------------------------------------------------------------------

TEST(FSDeleteFile, ReadOnlyFileIsDeleted) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    WriteFile(dir.Path("f"), "x");
    MakeReadOnly(dir.Path("f"));
    FSDeleteFile(dir.Path("f"));
    EXPECT_FALSE(Exists(dir.Path("f")));
}

TEST(FSDeleteFile, ErrorsAreSwallowed) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    CreateTree(dir.Root(), Dir({{"d", Dir()}}));
    FSDeleteFile(dir.Path("none"));
    FSDeleteFile(dir.Path("d"));
    EXPECT_TRUE(FSFolderExists(dir.Path("d")));
    EXPECT_TRUE(env.box.calls.empty());
    EXPECT_EQ(ErrHandler().ErrNumber(), 0);
}

#ifndef _WIN32
TEST(FSDeleteFile, LinkIsDeletedNotItsTarget) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    WriteFile(dir.Path("target"), "x");
    ASSERT_EQ(::symlink(dir.Path("target").c_str(), dir.Path("link").c_str()), 0);
    FSDeleteFile(dir.Path("link"));
    EXPECT_FALSE(Exists(dir.Path("link")));
    EXPECT_EQ(ReadFile(dir.Path("target")), "x");
}
#endif

TEST(FSDeleteEmptyFolder, OnlyAnEmptyFolderGoes) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    CreateTree(dir.Root(), Dir({{"empty", Dir()}, {"full", Dir({{"f", File("kept")}})}}));
    WriteFile(dir.Path("file"), "x");
    EXPECT_TRUE(FSDeleteEmptyFolder(dir.Path("empty")));
    EXPECT_FALSE(FSDeleteEmptyFolder(dir.Path("full")));
    EXPECT_FALSE(FSDeleteEmptyFolder(dir.Path("file")));
    EXPECT_FALSE(FSDeleteEmptyFolder(dir.Path("none")));
    EXPECT_EQ(ListTree(dir.Root()), (Lines{"file", "full/", "full/f"}));
    EXPECT_TRUE(env.box.calls.empty());
}

TEST(FSCreateTempIn, EmptyPrivateFileWithAFreshTemporaryNameInTheOpenFolder) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    COpenFolder folder;
    ASSERT_EQ(folder.Open(dir.Root()), 0);
#ifndef _WIN32
    const mode_t oldMask = ::umask(0);
#endif
    const TempFile first = FSCreateTempIn(folder, "ab.QRV");
    const TempFile second = FSCreateTempIn(folder, "ab.QRV");
#ifndef _WIN32
    ::umask(oldMask);
#endif
    EXPECT_NE(first.name, second.name);
    for (const TempFile& temp : {first, second}) {
        EXPECT_NE(temp.file, kNoFile);
        EXPECT_TRUE(std::regex_match(temp.name, std::regex(R"(\.ab\.QRV\.[0-9A-F]{8}\.tmp)")))
            << temp.name;
        int error = 0;
        EXPECT_TRUE(WriteBytes(temp.file, "x", 1, nullptr, error)); // open for writing
        CloseFileHandle(temp.file);
        EXPECT_EQ(ReadFile(dir.Path(temp.name)), "x");
        EXPECT_TRUE(IsPrivate(dir.Path(temp.name)));
    }
    EXPECT_FALSE(Exists(dir.Path("ab.QRV")));
}

#ifndef _WIN32
// A folder whose mode refuses new files.
TEST(FSCreateTempIn, FolderThatRefusesFilesGivesNoneAndTheSystemsReason) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    const ScopedNoPermissionOverride noOverride;
    if (!noOverride.Ok()) GTEST_SKIP() << "cannot drop the permission override";
    ASSERT_EQ(::chmod(dir.Root().c_str(), 0500), 0);
    COpenFolder folder;
    ASSERT_EQ(folder.Open(dir.Root()), 0);
    const TempFile temp = FSCreateTempIn(folder, "ab.QRV");
    ::chmod(dir.Root().c_str(), 0700);
    EXPECT_EQ(temp.file, kNoFile);
    EXPECT_EQ(temp.error, EACCES);
    EXPECT_EQ(ListTree(dir.Root()), Lines{});
}
#endif

TEST(FSDeleteFolder, FolderAndAllItsContentGo) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    CreateTree(dir.Path("tree"),
               Dir({{"a", Dir({{"f", File("1")}, {"b", Dir({{"g", File("2")}})}})},
                    {"ro", Dir({{"h", File("3")}})},
                    {"closed", Dir({{"i", File("4")}})},
                    {"top", File("5")}}));
#ifdef _WIN32
    // Read-only attributes on a file and a folder.
    MakeReadOnly(dir.Path("tree/a/f"));
    MakeReadOnly(dir.Path("tree/ro"));
#else
    ::chmod(dir.Path("tree/a/f").c_str(), 0400);
    ::chmod(dir.Path("tree/ro").c_str(), 0500);
    ::chmod(dir.Path("tree/closed").c_str(), 0);
#endif
    FSDeleteFolder(dir.Path("tree/"));
    EXPECT_FALSE(Exists(dir.Path("tree")));
    EXPECT_TRUE(env.box.calls.empty());
}

#ifndef _WIN32
TEST(FSDeleteFolder, LinkToOutsideIsRemovedAndNotFollowed) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    CreateTree(dir.Root(), Dir({{"outside", Dir({{"keep", File("precious")}})},
                                {"tree", Dir({{"sub", Dir()}})}}));
    ASSERT_EQ(::symlink(dir.Path("outside").c_str(), dir.Path("tree/folderlink").c_str()), 0);
    ASSERT_EQ(::symlink(dir.Path("outside/keep").c_str(), dir.Path("tree/sub/filelink").c_str()),
              0);
    FSDeleteFolder(dir.Path("tree"));
    EXPECT_FALSE(Exists(dir.Path("tree")));
    EXPECT_EQ(ListTree(dir.Root()), (Lines{"outside/", "outside/keep"}));
    EXPECT_EQ(ReadFile(dir.Path("outside/keep")), "precious");
}

TEST(FSDeleteFolder, LinkGivenAsTheFolderIsRemovedAndNotFollowed) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    CreateTree(dir.Root(), Dir({{"outside", Dir({{"keep", File("precious")}})}}));
    ASSERT_EQ(::symlink(dir.Path("outside").c_str(), dir.Path("link").c_str()), 0);
    FSDeleteFolder(dir.Path("link/"));
    EXPECT_EQ(ListTree(dir.Root()), (Lines{"outside/", "outside/keep"}));
}
#endif

TEST(FSDeleteFolder, ErrorsAreSwallowed) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    WriteFile(dir.Path("file"), "x");
    FSDeleteFolder(dir.Path("none"));
    FSDeleteFolder(dir.Path("file"));
    FSDeleteFolder("");
    EXPECT_EQ(ReadFile(dir.Path("file")), "x");
    EXPECT_TRUE(env.box.calls.empty());
}

TEST(FSSyncFileSystem, FlushesTheFileSystemOfAnExistingPath) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    EXPECT_TRUE(FSSyncFileSystem(dir.Root()));
    EXPECT_FALSE(FSSyncFileSystem(dir.Path("none")));
}

// ---- Copy with retries -----------------------------------------------------------------------

// Records what an observer of a copy is shown.
struct RecordingObserver : ICopyObserver {
    void Restart() override {
        ++restarts;
        bytes.clear();
    }
    void Written(const char* data, size_t size) override { bytes.append(data, size); }
    int restarts = 0;
    std::string bytes;
};

TEST(FSCopyFile, ObserverSeesTheBytesOfTheAttemptThatSucceeded) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    // The stream copy writes only half of the file and shows its observer nothing.
    ActiveCopyMethods().mode3 = [](const std::string& source, const std::string& destination,
                                   ICopyObserver*) {
        const std::string content = ReadFile(source);
        WriteFile(destination, content.substr(0, content.size() / 2));
        return true;
    };
    const std::string content = PatternContent(3 << 20);
    WriteFile(dir.Path("src"), content);
    RecordingObserver observer;
    EXPECT_TRUE(FSCopyFile(dir.Path("src"), dir.Path("dst"), &observer));
    EXPECT_EQ(observer.restarts, 2);
    EXPECT_TRUE(observer.bytes == content);
    EXPECT_TRUE(ReadFile(dir.Path("dst")) == content);
}

TEST(FSCopyFile, FirstTryWithTheRightSizeSucceedsOnce) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    const std::string log = StartTestLog(env);
    WriteFile(dir.Path("src"), "content");
    EXPECT_TRUE(FSCopyFile(dir.Path("src"), dir.Path("dst")));
    EXPECT_EQ(ReadFile(dir.Path("dst")), "content");
    EXPECT_EQ(LogMessages(ReadFile(log)),
              (Lines{"CopyMode = 3. Returned: True\r\n", "OK on 1 tries\r\n"}));
    EXPECT_EQ(ErrHandler().StackPointer(), 0);
}

TEST(FSCopyFile, FirstTryLeavingAWrongSizeRetriesWithModeTwo) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    const std::string log = StartTestLog(env);
    // The stream copy writes only half of the file.
    ActiveCopyMethods().mode3 = [](const std::string& source, const std::string& destination,
                                   ICopyObserver*) {
        const std::string content = ReadFile(source);
        WriteFile(destination, content.substr(0, content.size() / 2));
        return true;
    };
    CreateTree(dir.Root(), Dir({{"x", Dir({{"a", File(PatternContent(5000))}})}}));
    EXPECT_TRUE(FSCopyFile(dir.Path("x/a"), dir.Path("x/b")));
    EXPECT_TRUE(ReadFile(dir.Path("x/b")) == PatternContent(5000));
    EXPECT_EQ(LogMessages(ReadFile(log)), (Lines{
                                              "CopyMode = 3. Returned: True\r\n",
                                              "Retry copy of " + dir.Path("x/a") + "...\r\n",
                                              "Using Copy mode=2\r\n",
                                              "CopyMode = 2. Returned: True\r\n",
                                              "OK on 2 tries\r\n",
                                          }));
    EXPECT_EQ(ListTree(dir.Root()), (Lines{"x/", "x/a", "x/b"}));
}

TEST(FSCopyFile, StreamCopyOverALongerFileIsRetriedWithModeTwo) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    const std::string log = StartTestLog(env);
    WriteFile(dir.Path("src"), "new");
    WriteFile(dir.Path("dst"), "older and longer");
    EXPECT_TRUE(FSCopyFile(dir.Path("src"), dir.Path("dst")));
    EXPECT_EQ(ReadFile(dir.Path("dst")), "new");
    EXPECT_EQ(LogMessages(ReadFile(log)), (Lines{
                                              "CopyMode = 3. Returned: True\r\n",
                                              "Retry copy of " + dir.Path("src") + "...\r\n",
                                              "Using Copy mode=2\r\n",
                                              "CopyMode = 2. Returned: True\r\n",
                                              "OK on 2 tries\r\n",
                                          }));
}

TEST(FSCopyFile, StreamCopyOverAShorterFileSucceedsOnTheFirstTry) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    const std::string log = StartTestLog(env);
    WriteFile(dir.Path("src"), "longer new content");
    WriteFile(dir.Path("dst"), "old");
    EXPECT_TRUE(FSCopyFile(dir.Path("src"), dir.Path("dst")));
    EXPECT_EQ(ReadFile(dir.Path("dst")), "longer new content");
    EXPECT_EQ(LogMessages(ReadFile(log)).back(), "OK on 1 tries\r\n");
}

TEST(FSCopyFile, CopyThatFailsTwiceRunsModeOneAndThenFails) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    const std::string log = StartTestLog(env);
    const auto failing = [](const std::string&, const std::string&, ICopyObserver*) {
        return false;
    };
    ActiveCopyMethods().mode3 = failing;
    ActiveCopyMethods().mode2 = failing;
    int modeOneCalls = 0;
    ActiveCopyMethods().mode1 = [&](const std::string& source, const std::string& destination,
                                    ICopyObserver* observer) {
        ++modeOneCalls;
        return DefaultCopyMethods().mode1(source, destination, observer);
    };
    CreateTree(dir.Root(), Dir({{"x", Dir({{"a", File("data")}})}}));
    const std::string source = dir.Path("x/a");

    EXPECT_FALSE(FSCopyFile(source, dir.Path("x/b")));

    EXPECT_EQ(modeOneCalls, 1);
    EXPECT_EQ(LogMessages(ReadFile(log)), (Lines{
                                              "CopyMode = 3. Returned: False\r\n",
                                              "Retry copy of " + source + "...\r\n",
                                              "Using Copy mode=2\r\n",
                                              "CopyMode = 2. Returned: False\r\n",
                                              "Retry copy of " + source + "...\r\n",
                                              "Using Copy mode=1\r\n",
                                              "CopyMode = 1. Returned: True\r\n",
                                              "Failed copy on " + source + "\r\n",
                                          }));
    EXPECT_EQ(ErrHandler().ErrNumber(), 10001);
    EXPECT_EQ(ErrHandler().ErrProcedure(), "FSCopyFile");
    ASSERT_EQ(env.box.calls.size(), 1u);
    EXPECT_EQ(env.box.calls[0].text,
              ReportText("FSCopyFile", 10001, "Application-defined or object-defined error"));
    EXPECT_NE(ReadFile(ErrHandler().Destination()).find("Error Number   : 10001\r\n"),
              std::string::npos);
    EXPECT_EQ(ErrHandler().StackPointer(), 0);
    // Mode 1 made a complete copy, but the third try always fails: nothing stands at "b".
    EXPECT_EQ(ListTree(dir.Path("x")), (Lines{"a"}));
}

TEST(FSCopyFile, FailureAtBasicLevelLogsRetriesAndTheFailure) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    const std::string log = StartTestLog(env, 1);
    ActiveCopyMethods().mode3 = [](const std::string&, const std::string&, ICopyObserver*) {
        return false;
    };
    ActiveCopyMethods().mode2 = ActiveCopyMethods().mode3;
    WriteFile(dir.Path("a"), "data");
    EXPECT_FALSE(FSCopyFile(dir.Path("a"), dir.Path("b")));
    EXPECT_EQ(LogMessages(ReadFile(log)), (Lines{
                                              "Retry copy of " + dir.Path("a") + "...\r\n",
                                              "Using Copy mode=2\r\n",
                                              "Retry copy of " + dir.Path("a") + "...\r\n",
                                              "Using Copy mode=1\r\n",
                                              "Failed copy on " + dir.Path("a") + "\r\n",
                                          }));
}

TEST(FSCopyFile, EveryTryFailingHalfWayLeavesNoPartialFile) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    std::vector<std::string> targets;
    const auto partial = [&](const std::string& source, const std::string& destination,
                             ICopyObserver*) {
        targets.push_back(destination);
        WriteFile(destination, ReadFile(source).substr(0, 10));
        return false;
    };
    ActiveCopyMethods().mode1 = ActiveCopyMethods().mode2 = ActiveCopyMethods().mode3 = partial;
    const std::string log = StartTestLog(env, 1);
    CreateTree(dir.Root(), Dir({{"store", Dir()}, {"src", File(PatternContent(100))}}));
    EXPECT_FALSE(FSCopyFile(dir.Path("src"), dir.Path("store/ab.QRV")));
    EXPECT_EQ(LogMessages(ReadFile(log)).back(), "Failed copy on " + dir.Path("src") + "\r\n");
    EXPECT_EQ(ErrHandler().ErrNumber(), 10001);
    ASSERT_EQ(targets.size(), 3u);
    EXPECT_NE(targets[0], dir.Path("store/ab.QRV"));
    EXPECT_EQ(ListTree(dir.Path("store")), Lines{});
}

TEST(FSCopyFile, NewDestinationIsWrittenUnderATemporaryNameBesideIt) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    std::vector<Lines> seen;
    const CopyMethods real = DefaultCopyMethods();
    ActiveCopyMethods().mode3 = [&](const std::string& source, const std::string& destination,
                                    ICopyObserver* observer) {
        seen.push_back(ListTree(dir.Path("store")));
        const bool copied = real.mode3(source, destination, observer);
        seen.push_back({destination});
        return copied;
    };
    CreateTree(dir.Root(), Dir({{"store", Dir()}, {"src", File("abc")}}));
    EXPECT_TRUE(FSCopyFile(dir.Path("src"), dir.Path("store/ab.QRV")));
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0], Lines{});
    const std::string temp = FSGetNamePart(seen[1][0]);
    EXPECT_EQ(FSGetPathPart(seen[1][0]), dir.Path("store/"));
    EXPECT_TRUE(std::regex_match(temp, std::regex("\\.ab\\.QRV\\.[0-9A-F]{8}\\.tmp"))) << temp;
    EXPECT_EQ(ListTree(dir.Path("store")), (Lines{"ab.QRV"}));
    EXPECT_EQ(ReadFile(dir.Path("store/ab.QRV")), "abc");
}

TEST(FSCopyFile, ExistingDestinationIsWrittenInPlace) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    Lines targets;
    const CopyMethods real = DefaultCopyMethods();
    ActiveCopyMethods().mode3 = [&](const std::string& source, const std::string& destination,
                                    ICopyObserver* observer) {
        targets.push_back(destination);
        return real.mode3(source, destination, observer);
    };
    WriteFile(dir.Path("src"), "abc");
    WriteFile(dir.Path("dst"), "xyz");
    EXPECT_TRUE(FSCopyFile(dir.Path("src"), dir.Path("dst")));
    EXPECT_EQ(targets, Lines{dir.Path("dst")});
    EXPECT_EQ(ReadFile(dir.Path("dst")), "abc");
}

TEST(FSCopyFile, TemporaryNameOfAVeryLongNameStaysWithinTheNameLimit) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    const std::string name(255, 'n');
    WriteFile(dir.Path("src"), "abc");
    EXPECT_TRUE(FSCopyFile(dir.Path("src"), dir.Path(name)));
    EXPECT_EQ(ReadFile(dir.Path(name)), "abc");
    EXPECT_TRUE(env.box.calls.empty());
}

TEST(FSCopyFile, CopiedFileIsPrivateWhateverTheSourceMode) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    WriteFile(dir.Path("src"), "abc");
#ifndef _WIN32
    ::chmod(dir.Path("src").c_str(), 0644);
#endif
    EXPECT_TRUE(FSCopyFile(dir.Path("src"), dir.Path("dst")));
    EXPECT_TRUE(IsPrivate(dir.Path("dst")));
}

TEST(FSCopyFile, MissingSourceFailsAndLeavesNothing) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    const std::string log = StartTestLog(env, 1);
    CreateTree(dir.Path("d"), Dir());
    EXPECT_FALSE(FSCopyFile(dir.Path("none"), dir.Path("d/dst")));
    EXPECT_EQ(ListTree(dir.Path("d")), Lines{});
    EXPECT_EQ(ErrHandler().ErrProcedure(), "FSCopyFile");
    EXPECT_EQ(LogMessages(ReadFile(log)).back(), "Failed copy on " + dir.Path("none") + "\r\n");
}

TEST(FSCopyFile, MissingDestinationFolderFails) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    WriteFile(dir.Path("src"), "abc");
    EXPECT_FALSE(FSCopyFile(dir.Path("src"), dir.Path("no/dst")));
    EXPECT_EQ(ErrHandler().ErrProcedure(), "FSCopyFile");
    EXPECT_FALSE(Exists(dir.Path("no")));
}

// ---- Moves -----------------------------------------------------------------------------------

TEST(FSMoveFile, MovesWithinAFileSystem) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    CreateTree(dir.Root(), Dir({{"a", File("abc")}, {"d", Dir()}}));
    EXPECT_TRUE(FSMoveFile(dir.Path("a"), dir.Path("d/b")));
    EXPECT_EQ(ListTree(dir.Root()), (Lines{"d/", "d/b"}));
    EXPECT_EQ(ReadFile(dir.Path("d/b")), "abc");
}

TEST(FSMoveFile, ExistingDestinationIsNotReplaced) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    CreateTree(dir.Root(), Dir({{"a", File("abc")}, {"b", File("xyz")}}));
    EXPECT_FALSE(FSMoveFile(dir.Path("a"), dir.Path("b")));
    EXPECT_EQ(ErrHandler().ErrNumber(), 58);
    EXPECT_EQ(ErrHandler().ErrProcedure(), "FSMoveFile");
    EXPECT_EQ(ReadFile(dir.Path("a")), "abc");
    EXPECT_EQ(ReadFile(dir.Path("b")), "xyz");
}

TEST(FSMoveFile, MissingSourceIsReported) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    EXPECT_FALSE(FSMoveFile(dir.Path("none"), dir.Path("b")));
    EXPECT_EQ(ErrHandler().ErrNumber(), 53);
    EXPECT_EQ(ErrHandler().ErrProcedure(), "FSMoveFile");
    ASSERT_EQ(env.box.calls.size(), 1u);
    EXPECT_EQ(env.box.calls[0].text, ReportText("FSMoveFile", 53, "File not found"));
    EXPECT_EQ(ErrHandler().StackPointer(), 0);
}

TEST(FSMoveFile, MovesToAnotherFileSystemByCopyAndDelete) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    const std::string other = OtherFileSystemFolder(env);
    if (other.empty()) GTEST_SKIP() << "no second file system";
    const std::string content = PatternContent((size_t{1} << 20) + 3);
    WriteFile(dir.Path("a"), content);
    const bool moved = FSMoveFile(dir.Path("a"), other + Native("/b"));
    const std::string copied = ReadFile(other + Native("/b"));
    const Lines left = ListTree(other);
    FSDeleteFolder(other);
    EXPECT_TRUE(moved);
    EXPECT_TRUE(copied == content);
    EXPECT_EQ(left, Lines{"b"});
    EXPECT_FALSE(Exists(dir.Path("a")));
    EXPECT_TRUE(env.box.calls.empty());
}

// ---- Odd bytes in paths ----------------------------------------------------------------------

// Every helper that takes a path, run on one folder and one file name; nothing may be reported.
void ExpectEveryHelperKeepsTheBytes(const ScopedTestEnv& env, const std::string& folder,
                                    const std::string& name) {
    SCOPED_TRACE(testing::PrintToString(folder + kPathSeparator + name));
    const std::string file = FSBuildPath(folder, name + ".txt");
    const std::string moved = FSBuildPath(folder, name + "2");
    const std::string content = PatternContent(20000);
    WriteFile(env.Path("source"), content);

    FSCreatePath(file);
    EXPECT_TRUE(FSFolderExists(folder));
    EXPECT_TRUE(FSDriveExists(folder));
    EXPECT_EQ(FSGetPathPart(file), folder + kPathSeparator);
    EXPECT_EQ(FSGetNamePart(file), name + ".txt");
    EXPECT_EQ(FSGetExtension(file), "TXT");
    EXPECT_EQ(FSDriveFromPath(file), FSDriveFromPath(env.Root()));
    EXPECT_GT(FSGetFreeDiskSpace(FSDriveFromPath(file)), 0);

    EXPECT_TRUE(FSCopyFile(env.Path("source"), file));
    EXPECT_TRUE(FSFileExists(file));
    EXPECT_EQ(FSGetFileSize(file), 20000);
    EXPECT_TRUE(FSIsReadable(file));
    EXPECT_TRUE(ReadFile(file) == content);
    EXPECT_TRUE(FSCopyFile(env.Path("source"), file)); // over itself, in place

    EXPECT_TRUE(FSMoveFile(file, moved));
    EXPECT_FALSE(FSFileExists(file));
    EXPECT_TRUE(ReadFile(moved) == content);
    FSDeleteFile(moved);
    EXPECT_FALSE(Exists(moved));
    EXPECT_TRUE(FSSyncFileSystem(folder));

    WriteFile(FSBuildPath(folder, "left"), "x");
    FSDeleteFolder(folder);
    EXPECT_FALSE(Exists(folder));
    EXPECT_TRUE(env.box.calls.empty());
    EXPECT_EQ(ErrHandler().ErrNumber(), 0);
}

TEST(OddBytesInPaths, SurviveEveryHelper) {
    ScopedTestEnv env;
    const TestFolder dir(env);
#ifdef _WIN32
    // The names Windows allows: no control characters, no \\ / : * ? " < > |, and no blank or dot
    // at the end.
    for (const std::string name :
         {"it's", "with space", "-dash", "caf\xc3\xa9", "\xe6\x97\xa5\xe6\x9c\xac",
          "semi;colon,comma", "plus+equals=[]", "percent%hash#", " leading"}) {
#else
    for (const std::string name :
         {"it's", "back\\slash", "with space", "new\nline", "\xff\xfe", "tab\tand*?[]", "-dash",
          "caf\xc3\xa9", " leading and trailing "}) {
#endif
        ExpectEveryHelperKeepsTheBytes(env, FSBuildPath(dir.Root(), name + "dir"), name);
    }
}

TEST(OddBytesInPaths, PathOf4000BytesMadeOf200ByteComponents) {
    ScopedTestEnv env;
    const TestFolder dir(env);
    std::string folder = dir.Root();
#ifdef _WIN32
    const std::string odd = "\xc3\xa9"; // Windows names are UTF-8 here: an "e" with its accent
#else
    const std::string odd = "\xff";
#endif
    const size_t letters = 199 - odd.size();
    // Components are added while the file name left for a 4000-byte path stays too long.
    for (int i = 0; 3995 - folder.size() > 245; ++i) {
        folder = FSBuildPath(folder, std::string(letters, static_cast<char>('a' + i % 26)) + odd +
                                         static_cast<char>('0' + i % 10));
    }
    const std::string name(3995 - folder.size(), 'f'); // "/" + name + ".txt" ends at 4000 bytes
    ASSERT_EQ(FSBuildPath(folder, name + ".txt").size(), 4000u);
    ExpectEveryHelperKeepsTheBytes(env, folder, name);
    EXPECT_TRUE(FSFolderExists(dir.Root()));
    const std::string top = dir.Root() + kPathSeparator + std::string(letters, 'a') + odd + "0";
    FSDeleteFolder(top);
    EXPECT_FALSE(Exists(top));
}

} // namespace
