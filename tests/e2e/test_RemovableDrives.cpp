// Backups onto the file systems that removable drives carry, with the real programs: a folder
// where the file-system shim refuses anonymous files and renames with flags (as exFAT, FAT32,
// NTFS through FUSE, NFS and SMB do), a real exFAT image and a real FAT32 image mounted through
// FUSE where the machine allows it (root, a free loop device, /dev/fuse and the tools from
// scripts/install-deps.sh); elsewhere those tests are skipped with the reason. Each drive is
// backed up twice and restored; on FAT32, whose fusefat driver appends nothing to a file of
// less than 512 bytes, a start that cannot write the day's log says which and why.

#include "BackupFixture.h"
#include "FSShimEnv.h"
#include "StoreAudit.h"
#include "TestProgram.h"

#include <cstdio>
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

// A shell command's exit status and what it wrote (stdout and stderr together).
struct Command {
    int status = -1;
    std::string output;
};

std::string Quoted(const std::string& text) {
    std::string quoted = "'";
    for (char c : text)
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

Command Shell(const std::string& command) {
    Command result;
    FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
    if (!pipe) return result;
    char buffer[4096];
    for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;)
        result.output.append(buffer, n);
    const int status = ::pclose(pipe);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

bool HasTool(const std::string& name) {
    return Shell("command -v " + name).status == 0;
}

// A drive image of `mebibytes` made by the test, on a free loop device, mounted through FUSE
// for the test's life, and unmounted and detached again whatever the test did. Why() says why
// it could not be mounted (empty when it is).
class FuseDrive {
public:
    enum class Kind { kExFat, kFat32 };

    FuseDrive(Kind kind, const std::string& folder, int mebibytes)
        : m_mount(folder + "/mnt"), m_image(folder + "/drive.img") {
        const bool exfat = kind == Kind::kExFat;
        const std::string format = exfat ? "mkfs.exfat" : "mkfs.vfat";
        const std::string driver = exfat ? "mount.exfat-fuse" : "fusefat";
        if (::geteuid() != 0) {
            m_why = "mounting a drive image needs root";
            return;
        }
        if (::access("/dev/fuse", R_OK | W_OK) != 0) {
            m_why = "/dev/fuse is not there";
            return;
        }
        for (const std::string& tool : {format, driver, std::string("losetup")})
            if (!HasTool(tool)) {
                m_why = tool + " is not installed (scripts/install-deps.sh installs it)";
                return;
            }
        fs::create_directories(m_mount);
        WriteFile(m_image, "");
        if (::truncate(m_image.c_str(), off_t{mebibytes} << 20) != 0) {
            m_why = "cannot make the drive image";
            return;
        }
        const Command made = Shell(format + (exfat ? " " : " -F 32 ") + Quoted(m_image));
        if (made.status != 0) {
            m_why = format + " failed: " + made.output;
            return;
        }
        const Command loop = Shell("losetup -f --show " + Quoted(m_image));
        if (loop.status != 0 || loop.output.rfind("/dev/loop", 0) != 0) {
            m_why = "no free loop device: " + loop.output;
            return;
        }
        m_device = loop.output.substr(0, loop.output.find('\n'));
        const Command mounted =
            Shell(driver + (exfat ? " " : " -o rw+ ") + m_device + " " + Quoted(m_mount));
        // Unmounted at the end also when the mount shows too late.
        m_mounted = mounted.status == 0;
        if (!m_mounted || !WaitForMount()) {
            m_why = driver + " could not mount " + m_device + ": " + mounted.output;
            return;
        }
        m_why.clear();
    }

    ~FuseDrive() {
        if (m_mounted && ::umount2(m_mount.c_str(), 0) != 0) ::umount2(m_mount.c_str(), MNT_DETACH);
        // A loop device still held by a driver on its way out is detached once it lets go.
        if (!m_device.empty()) Shell("losetup -d " + m_device);
    }

    FuseDrive(const FuseDrive&) = delete;
    FuseDrive& operator=(const FuseDrive&) = delete;

    const std::string& Why() const { return m_why; }
    const std::string& Path() const { return m_mount; }

private:
    // The driver may answer before the mount is in place.
    bool WaitForMount() const {
        for (int i = 0; i < 500; ++i) {
            struct stat mount {};
            struct stat parent {};
            if (::stat(m_mount.c_str(), &mount) == 0 &&
                ::stat((m_mount + "/..").c_str(), &parent) == 0 && mount.st_dev != parent.st_dev)
                return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    }

    std::string m_mount;
    std::string m_image;
    std::string m_device;
    std::string m_why = "the drive was not mounted";
    bool m_mounted = false;
};

// Twenty files of different sizes, each content its own; path -> content.
std::map<std::string, std::string> MakeTwentyFiles(const std::string& src) {
    std::map<std::string, std::string> files;
    std::vector<std::pair<std::string, TestNode>> nodes;
    for (int i = 1; i <= 20; ++i) {
        const std::string name =
            "file" + std::string(i < 10 ? "0" : "") + std::to_string(i) + ".dat";
        const std::string content = name + "\n" + PatternContent(static_cast<size_t>(i) * 7000);
        nodes.emplace_back(name, File(content));
        files[src + "/" + name] = content;
    }
    CreateTree(src, Dir(nodes));
    return files;
}

std::vector<std::string> Contents(const std::map<std::string, std::string>& files) {
    std::vector<std::string> contents;
    for (const auto& [path, content] : files)
        contents.push_back(content);
    return contents;
}

// Everything in the backup folder that a run leaves only while it works: temporary files
// (".<name>.<hex>.tmp") and the store's mark of an unfinished run.
Lines Leftovers(const std::string& backup) {
    Lines left;
    for (const std::string& entry : ListTree(backup)) {
        const std::string name = entry.substr(entry.rfind('/') + 1);
        if (name.ends_with(".tmp") || name == ".unfinished") left.push_back(entry);
    }
    return left;
}

// Each store file with its inode and modification time: a store file rewritten shows.
std::map<std::string, std::pair<ino_t, int64_t>> StoreState(const std::string& backup) {
    std::map<std::string, std::pair<ino_t, int64_t>> state;
    for (const std::string& entry : ListTree(backup + "/Files")) {
        struct stat st {};
        if (entry.back() == '/' || ::stat((backup + "/Files/" + entry).c_str(), &st) != 0) continue;
        state[entry] = {st.st_ino, int64_t{st.st_mtim.tv_sec} * 1000000000 + st.st_mtim.tv_nsec};
    }
    return state;
}

std::string TotalBytes(const std::map<std::string, std::string>& files) {
    size_t total = 0;
    for (const auto& [path, content] : files)
        total += content.size();
    return std::to_string(total);
}

// A folder of twenty files backed up twice onto `f`'s backup folder by programs started with
// `env`, then restored with qrv and verified: the store holds each content once under its
// signature, nothing temporary is left, the second run stores nothing, the restore gives back
// every byte. A file system that keeps no modes cannot keep store files private: the audit
// then finds that of each, and nothing else.
void BackUpTwiceAndRestore(BackupFixture& f, const ProgramEnv& env, bool keepsModes = true) {
    const std::string src = f.env.Path("src");
    const auto files = MakeTwentyFiles(src);
    f.AddSource(src);
    Lines audit;
    for (const std::string& entry : StoreEntries(Contents(files)))
        if (!keepsModes && entry.back() != '/') audit.push_back("not private: " + entry);

    const ProgramRun first = RunStashwell({"backup"}, 120, env);
    EXPECT_EQ(first.exitCode, 0);
    EXPECT_EQ(first.err, "");
    EXPECT_EQ(f.Rows("SELECT count(*) FROM Files WHERE bid = 1"), Lines{"20"});
    EXPECT_EQ(ListTree(f.backup + "/Files"), StoreEntries(Contents(files)));
    EXPECT_EQ(AuditBackupFolder(f.backup), audit);
    EXPECT_EQ(Leftovers(f.backup), Lines{});

    const auto stored = StoreState(f.backup);
    const ProgramRun second = RunStashwell({"backup"}, 120, env);
    EXPECT_EQ(second.exitCode, 0);
    EXPECT_EQ(second.err, "");
    EXPECT_EQ(CommittedRuns(f.backup), (Lines{"1", "2"}));
    EXPECT_EQ(f.Rows("SELECT count(*) FROM Files WHERE bid = 2"), Lines{"20"});
    EXPECT_EQ(StoreState(f.backup), stored);
    EXPECT_EQ(Leftovers(f.backup), Lines{});

    const std::string to = f.env.Path("restored");
    const ProgramRun restore = RunQrv({"restore", "2", "--to", to, "--verify"}, 120, env);
    EXPECT_EQ(restore.exitCode, 0);
    EXPECT_EQ(restore.err, "");
    EXPECT_EQ(restore.out, "Restored and verified 20 files (" + TotalBytes(files) +
                               " bytes) of run 2 into " + to + ".\n");
    std::map<std::string, std::string> expected;
    for (const auto& [path, content] : files)
        expected[to + path.substr(src.size())] = content;
    std::map<std::string, std::string> restored;
    for (const std::string& path : WalkOrder(to))
        restored[path] = ReadFile(path);
    EXPECT_TRUE(restored == expected) << restored.size() << " files restored";
}

TEST(NoAnonymousFiles, BackupStoresEverythingUnderTemporaryNamesAndRestores) {
    BackupFixture f;
    BackUpTwiceAndRestore(f, ShimEnv(f.backup, "no-tmpfile,no-rename-flags"));
}

TEST(ModesTheDriveCannotKeep, AreNoProblemAtAll) {
    // exFAT and FAT32 refuse every change of mode: the store files are made private as they
    // are created, and a refused chmod is no problem (BackUpTwiceAndRestore wants no stderr).
    BackupFixture f;
    BackUpTwiceAndRestore(f, ShimEnv(f.backup, "no-tmpfile,no-chmod"));
    EXPECT_EQ(f.TodaysLog().find("Problem: "), std::string::npos);
}

TEST(FileOf4GiB, OnAFat32BackupFolderIsANamedProblemAndTheOtherFilesAreCommitted) {
    BackupFixture f;
    const std::string src = f.env.Path("src");
    CreateTree(src, Dir({{"small.txt", File("small content")}}));
    // A sparse file of exactly 4 GiB: nothing on disk, and the shim turns the zeros written
    // into the store into holes.
    const std::string big = src + "/big.bin";
    WriteFile(big, "");
    ASSERT_EQ(::truncate(big.c_str(), off_t{4} << 30), 0);
    f.AddSource(src);
    const ProgramRun run =
        RunStashwell({"backup"}, 600, ShimEnv(f.backup, "no-tmpfile,fat32-size"));
    const std::string problem = "Not backed up: " + big +
                                ": the copy into the store failed: the file system cannot hold a "
                                "file this large (FAT32 takes files below 4 GiB)";
    EXPECT_EQ(run.exitCode, 4);
    EXPECT_EQ(run.err, problem + "\nBackup completed with problems. The log " + f.TodaysLogPath() +
                           " has the details.\n");
    EXPECT_NE(f.TodaysLog().find(": Problem: " + problem + "\r\n"), std::string::npos);
    EXPECT_EQ(f.Rows("SELECT file FROM Files"), Lines{src + "/small.txt"});
    EXPECT_EQ(ListTree(f.backup + "/Files"), StoreEntries({"small content"}));
    EXPECT_EQ(Leftovers(f.backup), Lines{});
}

TEST(ExFatDrive, BackupStoresEverythingAndRestores) {
    BackupFixture f;
    FuseDrive drive(FuseDrive::Kind::kExFat, f.env.Path("exfat"), 64);
    if (!drive.Why().empty()) GTEST_SKIP() << drive.Why();
    f.UseBackupPath(drive.Path() + "/backup");
    // exFAT keeps no modes: every file shows 0777.
    BackUpTwiceAndRestore(f, {}, false);
}

TEST(Fat32Drive, BackupStoresEverythingAndTheNextStartThatCannotAppendToTheLogNamesIt) {
    BackupFixture f;
    FuseDrive drive(FuseDrive::Kind::kFat32, f.env.Path("fat32"), 64);
    if (!drive.Why().empty()) GTEST_SKIP() << drive.Why();
    f.UseBackupPath(drive.Path() + "/backup");
    // fusefat shows every file with mode 0700 and tells of no free space at all.
    BackUpTwiceAndRestore(f, {}, false);

    // fusefat writes a new file but appends nothing to one that holds less than 512 bytes, as
    // the log of a day whose first start did nothing does: the next start cannot write its log
    // and says so.
    const std::string log = " \r\n25/11/2026 08:00:00: QRV 1.0.0 Started\r\n";
    fs::remove(f.TodaysLogPath());
    WriteFile(f.TodaysLogPath(), log);
    for (const char* words : {"compact", "backup"}) {
        const ProgramRun next = RunStashwell({words});
        EXPECT_EQ(next.signal, 0) << words;
        EXPECT_EQ(next.exitCode, 1) << words;
        EXPECT_EQ(next.err, "Error: Stashwell cannot write its daily log " + f.TodaysLogPath() +
                                ": permission denied\n")
            << words;
    }
    EXPECT_EQ(f.TodaysLog(), log);
    EXPECT_EQ(CommittedRuns(f.backup), (Lines{"1", "2"}));
}

} // namespace
