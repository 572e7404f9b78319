// The walk of a source: breadth-first in the order the file system lists entries, the source's
// own files first; hidden files, excluded extensions and excluded folders left out; links,
// FIFOs and sockets never listed or followed; one Paths row per folder of the run. On Windows
// hidden and system are the entries' attribute bits.

#include "BackupFixture.h"
#include "WindowsTestHelpers.h"

#include "app/modPaths.h"
#include "app/modSetup.h"
#include "catalogue/CDatabase.h"
#include "engine/CDriveMap.h"
#include "engine/CFileFind.h"
#include "platform/modFileIO.h"
#include "support/CRuntimeError.h"
#include "support/modServices.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <string>
#include <vector>
#ifndef _WIN32
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace {

using Strings = std::vector<std::string>;

Strings Listed(CDriveMap& map) {
    Strings files;
    map.MoveFirst();
    while (!map.Eof()) {
        files.push_back(map.FilePath());
        map.MoveNext();
    }
    return files;
}

Strings Sorted(Strings items) {
    std::sort(items.begin(), items.end());
    return items;
}

class CDriveMapTest : public ::testing::Test {
protected:
    CDriveMapTest() : source(env.Path("src")) {}

    Strings Walked(const TestNode& tree, const std::string& excludeFiles = {},
                   const std::string& excludeDirs = {}, bool hidden = false) {
        CreateTree(source, tree);
        CDriveMap map;
        map.SourcePath(source);
        map.Hidden(hidden);
        map.ExcludeFiles(excludeFiles);
        map.ExcludeDirs(excludeDirs);
        map.Exec();
        return Sorted(Listed(map));
    }

    Strings Under(const Strings& relative) const {
        Strings paths;
        for (const std::string& name : relative)
            paths.push_back(source + Native("/" + name));
        return Sorted(paths);
    }

    ScopedTestEnv env;
    std::string source;
};

TEST_F(CDriveMapTest, EmptySourceHasNoFilesAndEofSetsTheCursorToZero) {
    CreateTree(source, Dir());
    CDriveMap map;
    map.SourcePath(source);
    map.Exec();
    EXPECT_EQ(map.FileCount(), 0);
    map.MoveFirst();
    EXPECT_EQ(map.Idx(), 1);
    EXPECT_TRUE(map.Eof());
    EXPECT_EQ(map.Idx(), 0);
}

TEST_F(CDriveMapTest, NewMapIsReset) {
    CDriveMap map;
    EXPECT_EQ(map.FileCount(), 0);
    EXPECT_EQ(map.Idx(), 1);
    EXPECT_EQ(map.BackupID(), 0);
    EXPECT_FALSE(map.Hidden());
    EXPECT_FALSE(map.System());
    EXPECT_FALSE(map.LimitExceeded());
}

TEST_F(CDriveMapTest, SourceFilesComeFirstThenEachFolderBreadthFirst) {
    CreateTree(source, Dir({{"a", Dir({{"a1.txt", File("1")},
                                       {"deep", Dir({{"d.txt", File("d")}})},
                                       {"a2.txt", File("2")}})},
                            {"top1.txt", File("t")},
                            {"b", Dir({{"b1.txt", File("b")}, {"bb", Dir({{"x", File("x")}})}})},
                            {"top2.txt", File("u")}}));
    CDriveMap map;
    map.SourcePath(source);
    map.Exec();
    const TreeWalk expected = WalkBreadthFirst(source);
    EXPECT_EQ(Listed(map), expected.files);
    EXPECT_EQ(map.Folders(), expected.folders);
    EXPECT_EQ(map.FileCount(), 7);
    // The walk is breadth-first: both top files first, the deepest files last.
    const Strings files = Listed(map);
    EXPECT_EQ(Sorted({files[0], files[1]}), Under({"top1.txt", "top2.txt"}));
    EXPECT_EQ(Sorted({files[5], files[6]}), Under({"a/deep/d.txt", "b/bb/x"}));
}

TEST_F(CDriveMapTest, MoveNextStopsOnePastTheLastFile) {
    CreateTree(source, Dir({{"a", File("a")}, {"b", File("b")}}));
    CDriveMap map;
    map.SourcePath(source);
    map.Exec();
    map.MoveFirst();
    for (int i = 0; i < 5; ++i)
        map.MoveNext();
    EXPECT_EQ(map.Idx(), 3);
    EXPECT_TRUE(map.Eof());
    EXPECT_EQ(map.Idx(), 2);
    EXPECT_FALSE(map.Eof());
}

TEST_F(CDriveMapTest, FilePathAtCursorZeroIsSubscriptError) {
    CreateTree(source, Dir());
    CDriveMap map;
    map.SourcePath(source);
    map.Exec();
    map.MoveFirst();
    ASSERT_TRUE(map.Eof());
    try {
        (void)map.FilePath();
        FAIL() << "no error raised";
    } catch (const CRuntimeError& e) {
        EXPECT_EQ(e.Number(), 9);
    }
}

TEST_F(CDriveMapTest, FoldersNamedCvsOrRecyclerAreSkippedAtAnyDepthInAnyCase) {
    const Strings files = Walked(
        Dir({{"keep.txt", File("k")},
             {"CVS", Dir({{"Entries", File("e")}, {"inner", Dir({{"i", File("i")}})}})},
             {"Recycler", Dir({{"gone.txt", File("g")}})},
             {"work", Dir({{"cvs", Dir({{"Root", File("r")}})},
                           {"deeper",
                            Dir({{"RECYCLER", Dir({{"x", File("x")}})}, {"kept.txt", File("k")}})},
                           {"recyclers", Dir({{"y", File("y")}})}})}}),
        {}, "cvs recycler");
    EXPECT_EQ(files, Under({"keep.txt", "work/deeper/kept.txt", "work/recyclers/y"}));
}

TEST_F(CDriveMapTest, ExcludedFoldersAreNeitherWalkedNorQueued) {
    CreateTree(source, Dir({{"CVS", Dir({{"sub", Dir()}})}, {"keep", Dir()}}));
    CDriveMap map;
    map.SourcePath(source);
    map.ExcludeDirs("cvs");
    map.Exec();
    EXPECT_EQ(map.Folders(), Strings{source + Native("/keep")});
}

TEST_F(CDriveMapTest, PatternsTmpAndBakSkipTmpFilesAndFilesWithoutExtensionButKeepBak) {
    const Strings files =
        Walked(Dir({{"a.tmp", File("1")},
                    {"B.TMP", File("2")},
                    {"c.Tmp", File("3")},
                    {"README", File("4")},
                    {"x.bak", File("5")},
                    {"y.BAK", File("6")},
                    {"z.txt", File("7")},
                    {"tmp", File("8")},
                    {"d.tmp.txt", File("9")},
                    {"e.txt.tmp", File("10")},
                    {"sub.d", Dir({{"noext", File("11")}, {"f.bak", File("12")}})}}),
               "*.tmp bak");
    EXPECT_EQ(files, Under({"x.bak", "y.BAK", "z.txt", "d.tmp.txt", "sub.d/f.bak"}));
}

TEST_F(CDriveMapTest, OnlyThePatternsExtensionCounts) {
    const Strings files = Walked(Dir({{"a.tmp", File("1")},
                                      {"b.log", File("2")},
                                      {"c.old", File("3")},
                                      {"d.txt", File("4")},
                                      {"e", File("5")}}),
                                 ".tmp x.log anything.OLD");
    EXPECT_EQ(files, Under({"d.txt", "e"}));
}

TEST_F(CDriveMapTest, TwoBlanksInPatternsLeaveAnEmptyItemThatSkipsFilesWithoutExtension) {
    const Strings files = Walked(
        Dir({{"a.tmp", File("1")}, {"noext", File("2")}, {"c.txt", File("3")}}), "*.tmp  *.log");
    EXPECT_EQ(files, Under({"c.txt"}));
}

TEST_F(CDriveMapTest, EmptyExcludeTextLeavesTheEarlierListInPlace) {
    CreateTree(source, Dir({{"a.tmp", File("1")}, {"b.txt", File("2")}}));
    CDriveMap map;
    map.SourcePath(source);
    map.ExcludeFiles("*.tmp");
    map.ExcludeFiles("");
    map.Exec();
    EXPECT_EQ(Listed(map), Strings{source + Native("/b.txt")});
}

TEST_F(CDriveMapTest, NewExcludeTextReplacesTheEarlierList) {
    CreateTree(source, Dir({{"a.tmp", File("1")}, {"b.txt", File("2")}}));
    CDriveMap map;
    map.SourcePath(source);
    map.ExcludeFiles("*.tmp");
    map.ExcludeFiles("*.txt");
    map.Exec();
    EXPECT_EQ(Listed(map), Strings{source + Native("/a.tmp")});
}

#ifdef _WIN32
// Hidden is the attribute bit: a leading dot means nothing.
class CDriveMapHiddenTest : public CDriveMapTest {
protected:
    Strings WalkedWithHidden(bool hidden) {
        CreateTree(source,
                   Dir({{"config", Dir({{"settings.ini", File("s")}, {"secret", File("x")}})},
                        {"profile", File("p")},
                        {".dotted", File("d")},
                        {"visible.txt", File("v")}}));
        for (const char* name : {"/config", "/config/secret", "/profile"})
            EXPECT_TRUE(AddWindowsAttributes(source + Native(name), CFileFind::kHidden)) << name;
        CDriveMap map;
        map.SourcePath(source);
        map.Hidden(hidden);
        map.Exec();
        return Sorted(Listed(map));
    }
};

TEST_F(CDriveMapHiddenTest, HiddenFolderIsWalkedAndItsNormalFileListedWithHiddenExcluded) {
    EXPECT_EQ(WalkedWithHidden(false), Under({".dotted", "config/settings.ini", "visible.txt"}));
}

TEST_F(CDriveMapHiddenTest, HiddenFilesAreListedWhenHiddenIsIncluded) {
    EXPECT_EQ(WalkedWithHidden(true),
              Under({".dotted", "config/secret", "config/settings.ini", "profile", "visible.txt"}));
}

TEST_F(CDriveMapTest, SystemFilesAreListedOnlyWhenSystemIsIncluded) {
    CreateTree(source, Dir({{"system.dat", File("s")}, {"plain.txt", File("p")}}));
    ASSERT_TRUE(AddWindowsAttributes(source + Native("/system.dat"), CFileFind::kSystem));
    for (const bool system : {false, true}) {
        CDriveMap map;
        map.SourcePath(source);
        map.System(system);
        map.Exec();
        EXPECT_EQ(Sorted(Listed(map)),
                  system ? Under({"plain.txt", "system.dat"}) : Under({"plain.txt"}))
            << system;
    }
}
#else
TEST_F(CDriveMapTest, HiddenFolderIsWalkedAndItsNormalFileListedWithHiddenExcluded) {
    const Strings files =
        Walked(Dir({{".config", Dir({{"settings.ini", File("s")}, {".secret", File("x")}})},
                    {".profile", File("p")},
                    {"visible.txt", File("v")}}));
    EXPECT_EQ(files, Under({".config/settings.ini", "visible.txt"}));
}

TEST_F(CDriveMapTest, HiddenFilesAreListedWhenHiddenIsIncluded) {
    const Strings files =
        Walked(Dir({{".config", Dir({{"settings.ini", File("s")}, {".secret", File("x")}})},
                    {".profile", File("p")},
                    {"visible.txt", File("v")}}),
               {}, {}, true);
    EXPECT_EQ(files, Under({".config/settings.ini", ".config/.secret", ".profile", "visible.txt"}));
}
#endif

TEST_F(CDriveMapTest, SourceWithTrailingSlashGivesPathsWithOneSlash) {
    CreateTree(source, Dir({{"a.txt", File("a")}, {"sub", Dir({{"b.txt", File("b")}})}}));
    CDriveMap map;
    map.SourcePath(source + kPathSeparator);
    map.Exec();
    EXPECT_EQ(Sorted(Listed(map)), Under({"a.txt", "sub/b.txt"}));
    EXPECT_EQ(map.Folders(), Strings{source + Native("/sub")});
}

#ifndef _WIN32
// Links, FIFOs, sockets and folders that refuse their owner, which Linux makes for anyone.
TEST_F(CDriveMapTest, SymbolicLinksAreNeitherListedNorFollowed) {
    CreateTree(env.Path("outside"), Dir({{"far.txt", File("far")}, {"farsub", Dir()}}));
    CreateTree(source, Dir({{"a.txt", File("a")}, {"sub", Dir({{"b.txt", File("b")}})}}));
    ASSERT_EQ(::symlink("a.txt", (source + "/link-to-file").c_str()), 0);
    ASSERT_EQ(::symlink(env.Path("outside").c_str(), (source + "/link-to-folder").c_str()), 0);
    ASSERT_EQ(::symlink("..", (source + "/sub/loop").c_str()), 0);
    ASSERT_EQ(::symlink("missing", (source + "/dangling").c_str()), 0);
    CDriveMap map;
    map.SourcePath(source);
    map.Exec();
    EXPECT_EQ(Sorted(Listed(map)), Under({"a.txt", "sub/b.txt"}));
    EXPECT_EQ(map.Folders(), Strings{source + "/sub"});
}

TEST_F(CDriveMapTest, FifoAndSocketAreNotListedAndTheWalkDoesNotHang) {
    CreateTree(source, Dir({{"a.txt", File("a")}, {"sub", Dir()}}));
    ASSERT_EQ(::mkfifo((source + "/sub/fifo").c_str(), 0600), 0);
    const int sock = MakeUnixSocket(source + "/socket");
    ASSERT_GE(sock, 0);
    CDriveMap map;
    map.SourcePath(source);
    map.Exec();
    ::close(sock);
    EXPECT_EQ(Listed(map), Strings{source + "/a.txt"});
}

TEST_F(CDriveMapTest, UnreadableFolderContributesNothing) {
    CreateTree(source, Dir({{"a.txt", File("a")}, {"locked", Dir({{"b.txt", File("b")}})}}));
    ASSERT_EQ(::chmod((source + "/locked").c_str(), 0), 0);
    ScopedNoPermissionOverride noOverride;
    if (!noOverride.Ok()) GTEST_SKIP() << "permissions cannot be enforced here";
    CDriveMap map;
    map.SourcePath(source);
    map.Exec();
    EXPECT_EQ(Listed(map), Strings{source + "/a.txt"});
}
#endif

TEST_F(CDriveMapTest, NamesAreListedByteForByte) {
#ifdef _WIN32
    // Windows names are UTF-8 here, with no control character and no backslash.
    const std::string odd = std::string("n\xc3\xa9 l'ine \xe6\x97\xa5x");
#else
    const std::string odd = std::string("n\xff\xfe\nl'ine\\x");
#endif
    const Strings files = Walked(Dir({{odd, Dir({{odd + ".txt", File("o")}})}}));
    EXPECT_EQ(files, Strings{source + kPathSeparator + odd + kPathSeparator + odd + ".txt"});
}

TEST_F(CDriveMapTest, MissingSourceListsNothing) {
    CDriveMap map;
    map.SourcePath(env.Path("missing"));
    map.Exec();
    EXPECT_EQ(map.FileCount(), 0);
    EXPECT_TRUE(map.Folders().empty());
}

TEST_F(CDriveMapTest, SecondExecWithoutResetAppends) {
    CreateTree(source, Dir({{"a", File("a")}, {"b", File("b")}}));
    CDriveMap map;
    map.SourcePath(source);
    map.Exec();
    map.Exec();
    EXPECT_EQ(map.FileCount(), 4);
    const Strings files = Listed(map);
    EXPECT_EQ(Strings(files.begin(), files.begin() + 2), Strings(files.begin() + 2, files.end()));
}

TEST_F(CDriveMapTest, ResetStartsTheListsAgainAndKeepsTheSourcePath) {
    CreateTree(source, Dir({{"a", File("a")}, {"b", File("b")}}));
    CDriveMap map;
    map.SourcePath(source);
    map.Hidden(true);
    map.BackupID(4);
    map.Exec();
    map.Reset();
    EXPECT_EQ(map.FileCount(), 0);
    EXPECT_EQ(map.Idx(), 1);
    EXPECT_FALSE(map.Hidden());
    EXPECT_EQ(map.BackupID(), 0);
    map.Exec();
    EXPECT_EQ(Sorted(Listed(map)), Under({"a", "b"}));
}

TEST_F(CDriveMapTest, ResetClearsTheExclusionsButEmptyTextNeverDoes) {
    CreateTree(source, Dir({{"a.tmp", File("a")}, {"CVS", Dir({{"b", File("b")}})}}));
    CDriveMap map;
    map.SourcePath(source);
    map.ExcludeFiles("*.tmp");
    map.ExcludeDirs("cvs");
    map.Reset();
    map.Exec();
    EXPECT_EQ(Sorted(Listed(map)), Under({"CVS/b", "a.tmp"}));
}

TEST_F(CDriveMapTest, PastTheFileLimitOnlyThe512000FirstAreListedButAllAreCounted) {
#ifdef _WIN32
    GTEST_SKIP() << "Wine makes 512,001 files in one folder in more than eight minutes";
#endif
    CreateTree(source, Dir());
#ifndef _WIN32
    // Made in memory where the test may mount: half a million files made and removed on the
    // disk take the tests after it to a crawl.
    struct Unmount {
        std::string at;
        ~Unmount() {
            if (!at.empty()) ::umount2(at.c_str(), MNT_DETACH);
        }
    } inMemory;
    if (::mount("tmpfs", source.c_str(), "tmpfs", 0, "nr_inodes=600k,mode=0700") == 0)
        inMemory.at = source;
#endif
    for (int i = 0; i <= kMaxListEntries; ++i) {
        int error = 0;
        const NativeFile file = OpenFileHandle(source + kPathSeparator + std::to_string(i),
                                               OpenMode::kCreateNew, error);
        ASSERT_NE(file, kNoFile) << error;
        CloseFileHandle(file);
    }
    Logger().LogFile(env.Path("t.log"));
    Logger().StartLogger();
    CDriveMap map;
    map.SourcePath(source);
    map.Exec();
    EXPECT_EQ(map.FileCount(), 512001);
    EXPECT_TRUE(map.LimitExceeded());
    EXPECT_EQ(LogMessages(ReadFile(env.Path("t.log"))),
              Strings{"Max file/folder limit exceeded in " + source + "\r\n"});
    map.MoveFirst();
    for (int i = 1; i < kMaxListEntries; ++i)
        map.MoveNext();
    ASSERT_EQ(map.Idx(), 512000);
    EXPECT_EQ(map.FilePath().compare(0, source.size() + 1, source + kPathSeparator), 0);
    map.MoveNext();
    ASSERT_FALSE(map.Eof());
    try {
        (void)map.FilePath();
        FAIL() << "no error raised";
    } catch (const CRuntimeError& e) {
        EXPECT_EQ(e.Number(), 9);
    }
}

TEST_F(CDriveMapTest, WalkIsLoggedAtTraceLevel) {
    CreateTree(source, Dir());
    Logger().LogFile(env.Path("t.log"));
    Logger().StartLogger();
    Logger().LogLevel(3);
    CDriveMap map;
    map.SourcePath(source);
    map.Exec();
    EXPECT_EQ(LogMessages(ReadFile(env.Path("t.log"))),
              (Strings{"LogLevel switched to 3\r\n", "FindFiles " + source + "\r\n"}));
}

// ---- The backup folder inside a source ----

class CDriveMapSkipTest : public CDriveMapTest {
protected:
    // Walks the source at level 2, stepping around `skip`; the lines logged.
    Strings WalkSkipping(CDriveMap& map, const std::string& skip) {
        const std::string log = env.Path("t" + std::to_string(++m_walks) + ".log");
        Logger().LogFile(log);
        Logger().StartLogger();
        Logger().LogLevel(2);
        map.SourcePath(source);
        map.SkipFolder(skip);
        map.Exec();
        Strings lines = LogMessages(ReadFile(log));
        lines.erase(lines.begin()); // "LogLevel switched to 2"
        return lines;
    }

    static std::string Skipped(const std::string& path) {
        return "Skipped the backup folder " + path +
               ": Stashwell does not back up its own store\r\n";
    }

    // A source whose folder "bk" is a backup folder, with its catalogue, store and logs.
    void MakeSourceHoldingABackupFolder() {
        CreateTree(
            source,
            Dir({{"a.txt", File("a")},
                 {"docs", Dir({{"d.txt", File("d")}})},
                 {"bk", Dir({{"db", Dir({{"Backup.db", File("catalogue")}})},
                             {"Files", Dir({{"0c", Dir({{"c1", Dir({{"x.QRV", File("x")}})}})}})},
                             {"Logs", Dir({{"QRV-20260101.LOG", File("log")}})}})}}));
    }

private:
    int m_walks = 0;
};

TEST_F(CDriveMapSkipTest, BackupFolderInsideTheSourceIsLeftOutWithAllItHoldsAndOneLine) {
    MakeSourceHoldingABackupFolder();
    CDriveMap map;
    EXPECT_EQ(WalkSkipping(map, source + Native("/bk")), Strings{Skipped(source + Native("/bk"))});
    EXPECT_EQ(Sorted(Listed(map)), Under({"a.txt", "docs/d.txt"}));
    EXPECT_EQ(map.Folders(), Strings{source + Native("/docs")});
}

TEST_F(CDriveMapSkipTest, BackupFolderDeeperDownIsLeftOutWhereTheWalkMeetsIt) {
    CreateTree(source, Dir({{"a", Dir({{"b", Dir({{"bk", Dir({{"s.QRV", File("s")}})},
                                                  {"b.txt", File("b")}})}})}}));
    CDriveMap map;
    EXPECT_EQ(WalkSkipping(map, source + Native("/a/b/bk")),
              Strings{Skipped(source + Native("/a/b/bk"))});
    EXPECT_EQ(Listed(map), Strings{source + Native("/a/b/b.txt")});
    EXPECT_EQ(map.Folders(), (Strings{source + Native("/a"), source + Native("/a/b")}));
}

#ifdef _WIN32
TEST_F(CDriveMapSkipTest, BackupPathSpelledAnotherWayIsSeenThrough) {
    MakeSourceHoldingABackupFolder();
    for (const std::string& spelling :
         {source + Native("/docs/../bk/"), source + Native("//./bk")}) {
        CDriveMap map;
        EXPECT_EQ(WalkSkipping(map, spelling), Strings{Skipped(source + Native("/bk"))})
            << spelling;
        EXPECT_EQ(Sorted(Listed(map)), Under({"a.txt", "docs/d.txt"})) << spelling;
    }
}
#else
// Links, and a bind mount for root, which Linux makes.
TEST_F(CDriveMapSkipTest, BackupPathSpelledAnotherWayOrThroughALinkIsSeenThrough) {
    MakeSourceHoldingABackupFolder();
    ASSERT_EQ(::symlink((source + "/bk").c_str(), env.Path("link").c_str()), 0);
    for (const std::string& spelling :
         {env.Path("link"), env.Path("link/"), source + "/docs/../bk/", source + "//./bk"}) {
        CDriveMap map;
        EXPECT_EQ(WalkSkipping(map, spelling), Strings{Skipped(source + "/bk")}) << spelling;
        EXPECT_EQ(Sorted(Listed(map)), Under({"a.txt", "docs/d.txt"})) << spelling;
    }
}

TEST_F(CDriveMapSkipTest, SourceReachedThroughALinkStillLeavesTheBackupFolderOut) {
    MakeSourceHoldingABackupFolder();
    const std::string link = env.Path("src-link");
    ASSERT_EQ(::symlink(source.c_str(), link.c_str()), 0);
    CDriveMap map;
    Logger().LogFile(env.Path("t.log"));
    Logger().StartLogger();
    Logger().LogLevel(2);
    map.SourcePath(link);
    map.SkipFolder(source + "/bk");
    map.Exec();
    EXPECT_EQ(Sorted(Listed(map)), Sorted({link + "/a.txt", link + "/docs/d.txt"}));
    const Strings lines = LogMessages(ReadFile(env.Path("t.log")));
    EXPECT_EQ(std::count(lines.begin(), lines.end(), Skipped(link + "/bk")), 1);
}

TEST_F(CDriveMapSkipTest, BackupFolderMountedInsideTheSourceIsLeftOut) {
    CreateTree(source, Dir({{"a.txt", File("a")}, {"mnt", Dir()}}));
    CreateTree(env.Path("bk"), Dir({{"Files", Dir({{"s.QRV", File("s")}})}}));
    if (::mount(env.Path("bk").c_str(), (source + "/mnt").c_str(), nullptr, MS_BIND, nullptr) != 0)
        GTEST_SKIP() << "a bind mount needs root";
    CDriveMap map;
    const Strings lines = WalkSkipping(map, env.Path("bk"));
    ::umount2((source + "/mnt").c_str(), MNT_DETACH);
    EXPECT_EQ(lines, Strings{Skipped(source + "/mnt")});
    EXPECT_EQ(Listed(map), Strings{source + "/a.txt"});
}
#endif

TEST_F(CDriveMapSkipTest, FolderOfTheSameNameElsewhereIsWalked) {
    CreateTree(source, Dir({{"bk", Dir({{"mine.txt", File("m")}})}}));
    CreateTree(env.Path("bk"), Dir());
    CDriveMap map;
    EXPECT_EQ(WalkSkipping(map, env.Path("bk")), Strings{});
    EXPECT_EQ(Listed(map), Strings{source + Native("/bk/mine.txt")});
}

TEST_F(CDriveMapSkipTest, ResetForgetsTheFolderToSkip) {
    MakeSourceHoldingABackupFolder();
    CDriveMap map;
    map.SkipFolder(source + Native("/bk"));
    map.Reset();
    map.SourcePath(source);
    map.Exec();
    EXPECT_EQ(map.FileCount(), 5);
}

class CDriveMapPathsTest : public CDriveMapTest {
protected:
    CDriveMapPathsTest() {
        WriteRegSetting("BackupPath", env.Path("bk"));
        CreateDB();
        db.Connect(GetDBPath());
    }

    std::vector<Strings> PathRows() const {
        return SqlRows(GetDBPath(), "SELECT bid, path FROM Paths ORDER BY pid");
    }

    CDatabase db;
};

TEST_F(CDriveMapPathsTest, SourceAndEveryFolderAreRecordedBreadthFirst) {
    CreateTree(source, Dir({{"a", Dir({{"deep", Dir({{"d.txt", File("d")}})}})},
                            {"f.txt", File("f")},
                            {"b", Dir()}}));
    CDriveMap map;
    map.SourcePath(source);
    map.BackupID(7);
    map.Database(&db);
    map.Exec();
    const TreeWalk walk = WalkBreadthFirst(source);
    ASSERT_EQ(walk.folders.size(), 3u);
    EXPECT_EQ(walk.folders[2], source + Native("/a/deep"));
    std::vector<Strings> expected{{"7", source + kPathSeparator}};
    for (const std::string& folder : walk.folders)
        expected.push_back({"7", folder + kPathSeparator});
    EXPECT_EQ(PathRows(), expected);
}

TEST_F(CDriveMapPathsTest, ExcludedFoldersAreNotRecorded) {
    CreateTree(source, Dir({{"CVS", Dir({{"sub", Dir()}})}, {"keep", Dir()}}));
    CDriveMap map;
    map.SourcePath(source);
    map.BackupID(2);
    map.ExcludeDirs("cvs");
    map.Database(&db);
    map.Exec();
    EXPECT_EQ(PathRows(), (std::vector<Strings>{{"2", source + kPathSeparator},
                                                {"2", source + Native("/keep/")}}));
}

TEST_F(CDriveMapPathsTest, TheBackupFolderIsNotRecorded) {
    CreateTree(source, Dir({{"bk", Dir({{"Files", Dir()}})}, {"keep", Dir()}}));
    CDriveMap map;
    map.SourcePath(source);
    map.BackupID(3);
    map.SkipFolder(source + Native("/bk"));
    map.Database(&db);
    map.Exec();
    EXPECT_EQ(PathRows(), (std::vector<Strings>{{"3", source + kPathSeparator},
                                                {"3", source + Native("/keep/")}}));
}

TEST_F(CDriveMapPathsTest, NoBackupIdRecordsNothing) {
    CreateTree(source, Dir({{"sub", Dir()}}));
    CDriveMap map;
    map.SourcePath(source);
    map.Database(&db);
    map.Exec();
    EXPECT_TRUE(PathRows().empty());
}

TEST_F(CDriveMapPathsTest, ApostropheInAFolderNameIsStoredAsBackslash) {
    CreateTree(source, Dir({{"Bob's", Dir()}}));
    CDriveMap map;
    map.SourcePath(source);
    map.BackupID(1);
    map.Database(&db);
    map.Exec();
    EXPECT_EQ(PathRows(), (std::vector<Strings>{{"1", source + kPathSeparator},
                                                {"1", Encoded(source + Native("/Bob's/"))}}));
}

} // namespace
