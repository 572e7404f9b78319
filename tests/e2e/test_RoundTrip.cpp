// The real programs on a real folder, on Linux and on Windows alike: "stashwell backup" of a
// folder whose names hold an apostrophe, letters beyond ASCII and a path of more than 300
// characters, then "qrv restore" of the run into another folder, gives back every file byte
// for byte; a run killed midway leaves no store file whose content does not match its name,
// and the next run completes the backup.

#include "BackupFixture.h"
#include "StoreAudit.h"
#include "TestProgram.h"
#include "platform/modFileIO.h"
#include "platform/modFileStatus.h"
#include "platform/modFileSystem.h"
#include "platform/modPlatformKind.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace {

using Lines = std::vector<std::string>;

std::string Join(const std::string& folder, const std::string& name) {
    return folder + kPathSeparator + name;
}

// The files are written and read through the platform layer, which reaches paths longer than
// Windows' 260 characters.
void MakeFolders(const std::string& root, const std::string& relative) {
    std::string path = root;
    size_t start = 0;
    while (start <= relative.size()) {
        const size_t end = std::min(relative.find(kPathSeparator, start), relative.size());
        path = Join(path, relative.substr(start, end - start));
        const int error = MakeFolder(path);
        ASSERT_TRUE(error == 0 || error == EEXIST) << path << ": " << error;
        start = end + 1;
    }
}

void Write(const std::string& path, const std::string& content) {
    int error = 0;
    const NativeFile file = OpenFileHandle(path, OpenMode::kCreateOrEmpty, error);
    ASSERT_NE(file, kNoFile) << path << ": " << error;
    uint64_t offset = 0;
    EXPECT_TRUE(WriteBytes(file, content.data(), content.size(), &offset, error)) << path;
    EXPECT_EQ(CloseFileHandle(file), 0) << path;
}

// The whole content, or "<missing>" when the file cannot be opened.
std::string Read(const std::string& path) {
    int error = 0;
    const NativeFile file = OpenFileHandle(path, OpenMode::kRead, error);
    if (file == kNoFile) return "<missing>";
    std::string content;
    char buffer[65536];
    uint64_t offset = 0;
    for (;;) {
        const int64_t got = ReadBytes(file, buffer, sizeof buffer, &offset, error);
        if (got <= 0) break;
        content.append(buffer, static_cast<size_t>(got));
    }
    CloseFileHandle(file);
    return content;
}

// Content that no other file of the test has: `size` bytes made from `seed`.
std::string Content(const std::string& seed, size_t size) {
    std::string content;
    uint32_t state = 2166136261u;
    for (char c : seed)
        state = (state ^ static_cast<unsigned char>(c)) * 16777619u;
    content.reserve(size);
    while (content.size() < size) {
        state = state * 1103515245u + 12345u;
        content += static_cast<char>(state >> 24);
    }
    return content;
}

// The source: relative paths (with the platform's separator) and their contents.
using Tree = std::vector<std::pair<std::string, std::string>>;

Tree OddNamesTree() {
    const std::string sep(1, kPathSeparator);
    // Five folders of 60 characters: with the test's own folder in front, the deepest file's
    // full path is well past 300 characters.
    std::string deep;
    for (int level = 1; level <= 5; ++level)
        deep += (deep.empty() ? "" : sep) + std::string(58, static_cast<char>('a' + level)) + "-" +
                std::to_string(level);
    return {
        {"Bob's Documents" + sep + "Bob's letter.txt", Content("letter", 1500)},
        {"Ünïcødé – 日本語" + sep + "Ça va, à bientôt.bin", Content("unicode", 70000)},
        {"Ünïcødé – 日本語" + sep + "naïve résumé.txt", Content("resume", 10)},
        {deep + sep + "far away file with a long name.dat", Content("deep", 9000)},
        {"plain.txt", Content("plain", 8192)},
    };
}

void MakeTree(const std::string& root, const Tree& tree) {
    ASSERT_EQ(MakeFolder(root), 0) << root;
    for (const auto& [relative, content] : tree) {
        const size_t slash = relative.rfind(kPathSeparator);
        if (slash != std::string::npos) MakeFolders(root, relative.substr(0, slash));
        Write(Join(root, relative), content);
    }
}

TEST(RoundTrip, OddNamesAndALongPathAreBackedUpAndRestoredByteForByte) {
    BackupFixture f;
    const std::string src = f.env.Path("src");
    const Tree tree = OddNamesTree();
    MakeTree(src, tree);
    ASSERT_GT(Join(src, tree[3].first).size(), 300u);
    ASSERT_EQ(SetWriteTime(Join(src, tree.back().first), 915'148'800'123'456'700), 0);
    f.AddSource(src);

    const ProgramRun backup = RunStashwell({"backup"});
    ASSERT_EQ(backup.exitCode, 0) << backup.out << backup.err;
    EXPECT_EQ(CommittedRuns(f.backup), Lines{"1"});
    EXPECT_EQ(AuditBackupFolder(f.backup), Lines{});
    EXPECT_EQ(f.Rows("SELECT count(*) FROM Files"), Lines{std::to_string(tree.size())});
    // The apostrophe is kept in its stored form, the other names as they are.
    EXPECT_EQ(f.Rows("SELECT file FROM Files WHERE file LIKE '%letter.txt'"),
              Lines{Encoded(Join(src, tree[0].first))});

    // Each file's write time comes back with it (the last one's from 1999).
    const std::string to = f.env.Path("restored");
    const ProgramRun restore = RunQrv({"restore", "1", "--to", to, "--verify"});
    ASSERT_EQ(restore.exitCode, 0) << restore.out << restore.err;
    for (const auto& [relative, content] : tree) {
        EXPECT_TRUE(Read(Join(to, relative)) == content) << relative << " differs";
        EXPECT_EQ(StatusOf(Join(to, relative)).writeNs, StatusOf(Join(src, relative)).writeNs)
            << relative;
    }
    EXPECT_EQ(StatusOf(Join(to, tree.back().first)).writeNs, 915'148'800'123'456'700);
}

// Modes come back with the files (the read-only, hidden, system and archive attributes on
// Windows), and so do empty files, empty folders and folders' own modes and write times.
TEST(RoundTrip, ModesEmptyFilesAndFoldersComeBackWithTheirTimes) {
    BackupFixture f;
    f.SetOption("Hidden", "1");
    f.SetOption("System", "1");
    const std::string src = f.env.Path("src");
    const std::string sep(1, kPathSeparator);
    MakeTree(src, {{"locked.txt", "locked"},
                   {"hidden.txt", "hidden"},
                   {"system.txt", "system"},
                   {"folder" + sep + "empty.txt", ""},
                   {"folder" + sep + "inner" + sep + "also empty", ""}});
    ASSERT_EQ(MakeFolder(Join(src, "nothing")), 0);
    constexpr uint32_t kReadOnly = 0x1, kHidden = 0x2, kSystem = 0x4, kArchive = 0x20;
    const std::vector<std::pair<std::string, uint32_t>> modes =
        kWindowsBuild
            ? std::vector<std::pair<std::string, uint32_t>>{{"locked.txt", kReadOnly | kArchive},
                                                            {"hidden.txt", kHidden | kArchive},
                                                            {"system.txt", kSystem | kArchive},
                                                            {"folder", kHidden}}
            : std::vector<std::pair<std::string, uint32_t>>{{"locked.txt", 0444},
                                                            {"hidden.txt", 0600},
                                                            {"system.txt", 0755},
                                                            {"folder", 0700}};
    const std::vector<std::string> entries = {"locked.txt",
                                              "hidden.txt",
                                              "system.txt",
                                              "folder" + sep + "empty.txt",
                                              "folder" + sep + "inner" + sep + "also empty",
                                              "folder" + sep + "inner",
                                              "folder",
                                              "nothing"};
    int64_t when = 1'300'000'000'000'000'000;
    for (const std::string& relative : entries) {
        when += 86'400'000'000'123;
        ASSERT_EQ(SetWriteTime(Join(src, relative), when), 0) << relative;
    }
    for (const auto& [relative, mode] : modes)
        ASSERT_EQ(SetPermissionBits(Join(src, relative), mode), 0) << relative;
    f.AddSource(src);
    const ProgramRun backup = RunStashwell({"backup"});
    ASSERT_EQ(backup.exitCode, 0) << backup.out << backup.err;

    const std::string to = f.env.Path("restored");
    const ProgramRun restore = RunQrv({"restore", "1", "--to", to});
    ASSERT_EQ(restore.exitCode, 0) << restore.out << restore.err;
    EXPECT_EQ(restore.out, OnConsole("Restored 3 files (18 bytes) of run 1 into " + to + ".\n"));
    for (const std::string& relative : entries) {
        const PathStatus was = StatusOf(Join(src, relative)), is = StatusOf(Join(to, relative));
        EXPECT_EQ(is.kind, was.kind) << relative;
        EXPECT_EQ(is.size, was.size) << relative;
        EXPECT_EQ(is.writeNs, was.writeNs) << relative;
        EXPECT_EQ(is.mode, was.mode) << relative;
    }
    for (const auto& [relative, mode] : modes)
        EXPECT_EQ(StatusOf(Join(to, relative)).mode, mode) << relative;
    EXPECT_EQ(Read(Join(to, "locked.txt")), "locked");
    EXPECT_TRUE(StatusOf(Join(to, "locked.txt")).readOnly);
    // Made writable again, so that the test's folder can go.
    for (const std::string& root : {src, to})
        ASSERT_EQ(SetPermissionBits(Join(root, "locked.txt"), kWindowsBuild ? kArchive : 0644u), 0);
}

TEST(RoundTrip, ARunKilledMidwayLeavesOnlySoundStoreFilesAndTheNextRunCompletesIt) {
    BackupFixture f;
    const std::string src = f.env.Path("src");
    Tree tree = OddNamesTree();
    for (int i = 0; i < 400; ++i)
        tree.emplace_back("many" + std::string(1, kPathSeparator) + "file " + std::to_string(i),
                          Content("many " + std::to_string(i), 48 * 1024));
    MakeTree(src, tree);
    f.AddSource(src);

    // Killed once the store holds content of a good part of the files: its first level has a
    // folder for each first two characters of a signature, 50 of them after about 60 files.
    const std::string store = Join(f.backup, "Files");
    const ProgramRun killed = RunStashwellUntil({"backup"}, [&] {
        std::error_code error;
        int folders = 0;
        for (std::filesystem::directory_iterator it(FsPath(store), error), end;
             !error && it != end && folders < 50; it.increment(error))
            ++folders;
        return folders >= 50;
    });
    ASSERT_EQ(killed.signal, kKillSignal) << "the run ended before it could be killed";
    EXPECT_EQ(AuditBackupFolder(f.backup, AuditMoment::kJustKilled), Lines{});

    const ProgramRun again = RunStashwell({"backup"});
    ASSERT_EQ(again.exitCode, 0) << again.out << again.err;
    EXPECT_EQ(AuditBackupFolder(f.backup), Lines{});
    EXPECT_EQ(CommittedRuns(f.backup), Lines{"1"});

    const std::string to = f.env.Path("restored");
    const ProgramRun restore = RunQrv({"restore", "1", "--to", to});
    ASSERT_EQ(restore.exitCode, 0) << restore.out << restore.err;
    for (const auto& [relative, content] : tree)
        EXPECT_TRUE(Read(Join(to, relative)) == content) << relative << " differs";
}

} // namespace
