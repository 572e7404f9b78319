#pragma once

// Helpers shared by every test: a private temporary folder with the program's per-user folders
// inside it (XDG folders on Linux, LOCALAPPDATA and APPDATA on Windows) and fresh process-wide
// services, a scripted message box that records every call, trees built from a literal, and
// small file and SQL readers. Paths are UTF-8 texts, with the platform's separator where the
// program writes one.

#include "platform/modFileSystem.h" // kPathSeparator
#ifdef _WIN32
#include "platform/modRegistry.h"
#endif
#include "support/CServiceContext.h"
#include "support/modBrowseFolder.h"
#include "support/modMsgBox.h"
#include "support/modShell.h"

#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <utility>
#include <vector>

// `path` written with "/" between its names, with the platform's separator instead ("\" on
// Windows; unchanged on Linux): the path as the program writes it.
std::string Native(std::string path);
// The standard library's path for a UTF-8 path text (on Windows a plain std::string would be
// read in the ANSI code page), and the text of such a path.
std::filesystem::path FsPath(const std::string& path);
std::string PathText(const std::filesystem::path& path);
// The environment variables that name the program's per-user folders: XDG_CONFIG_HOME and
// XDG_STATE_HOME on Linux, APPDATA and LOCALAPPDATA on Windows.
extern const char* const kConfigHomeVariable;
extern const char* const kStateHomeVariable;
// The folder that holds this test program.
std::string TestProgramFolder();
// Sets the environment variable `name` of this process and of the programs it starts.
void SetEnv(const std::string& name, const std::string& value);
void UnsetEnv(const std::string& name);

std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& content);
bool Exists(const std::string& path);
// The test content of length n: byte i is (i * 31 + 7) mod 251.
std::string PatternContent(size_t n);
// Every file and folder below root, relative with "/" between names on every system, sorted;
// folders end in "/".
std::vector<std::string> ListTree(const std::string& root);
// The rows of a query on a SQLite file, every value as text ("" for NULL).
std::vector<std::vector<std::string>> SqlRows(const std::string& dbPath, const std::string& sql);
// The plain MD5 of some bytes in lower-case hex.
std::string PlainMD5(const std::string& data);
#ifndef _WIN32
// A bound Unix socket at `path` (a socket file in the tree); the descriptor, or -1.
int MakeUnixSocket(const std::string& path);
#endif
// Sets the last access and last write times of the file at `path`, in nanoseconds since 1970;
// false when they could not be set.
bool SetFileTimes(const std::string& path, int64_t accessNs, int64_t writeNs);
// A new folder named `prefix` and a few more characters on another file system than the one of
// `beside`: in /dev/shm on Linux; on Windows in the folder "tmp" of another fixed drive (Z:\tmp
// under Wine). "" when there is none.
std::string FolderOnAnotherFileSystem(const std::string& beside, const std::string& prefix);
// Whether only the user may reach the file or folder at `path`: mode 0600 for a file and 0700
// for a folder on Linux; on Windows a security that lets in nobody but the user, the system and
// the administrators.
::testing::AssertionResult IsPrivate(const std::string& path);
// Log lines without their "dd/MM/yyyy HH:mm:ss: " stamp; each keeps its CR LF.
std::vector<std::string> LogMessages(const std::string& logText);

// A message box that answers from a script (first button when the script is empty).
class CScriptedMessageBox : public IMessageBoxService {
public:
    struct Call {
        std::string text;
        int style;
        std::string title;
        bool operator==(const Call&) const = default;
    };
    int Show(const std::string& text, int style, const std::string& title) override;
    void Beep() override { ++beeps; }
    void Answer(int answer) { answers.push_back(answer); }

    std::vector<Call> calls;
    std::deque<int> answers;
    int beeps = 0;
    // Called with each box as it shows, to look at the program while it waits for the answer.
    std::function<void(const Call&)> onShow;
};

// A folder picker that answers from a script: each queued folder in turn, "" for a cancel, and
// a cancel when the script is empty. Every prompt is recorded.
class CScriptedFolderPicker : public IFolderPickerService {
public:
    std::string Pick(const std::string& title) override;
    void Answer(std::string folder) { answers.push_back(std::move(folder)); }

    std::vector<std::string> prompts;
    std::deque<std::string> answers;
};

// The desktop's opener, recorded instead of run: every document or address opened and every
// program started, each answered with `answer`.
class CRecordingDesktop : public IDesktopService {
public:
    bool Open(const std::string& target) override;
    bool Start(const std::string& program) override;

    std::vector<std::string> opened;
    std::vector<std::string> started;
    bool answer = true;
};

// A temporary folder for one test, with the program's per-user folders inside it: on Linux
// XDG_CONFIG_HOME ("config") and XDG_STATE_HOME ("state"); on Windows APPDATA and LOCALAPPDATA
// in their places, and STASHWELL_PER_USER_STATE set so that the error report and the trace stay
// in the state folder. Also fresh error handler and logger, the scripted message box, folder picker
// and desktop installed, and every other process-wide hook at its default (yield, copy methods,
// timer tick source, SQLite version probe, maintenance view). All of it is undone and the folder
// removed when the object goes, so tests stay independent when one binary runs them all.
class ScopedTestEnv {
public:
    ScopedTestEnv();
    ~ScopedTestEnv();
    ScopedTestEnv(const ScopedTestEnv&) = delete;
    ScopedTestEnv& operator=(const ScopedTestEnv&) = delete;

    const std::string& Root() const { return m_root; }
    // `relative`, written with "/", below the root, with the platform's separators.
    std::string Path(const std::string& relative) const { return m_root + Native("/" + relative); }
    std::string ConfigHome() const { return Path("config"); }
    std::string StateHome() const { return Path("state"); }

    CScriptedMessageBox box;
    CScriptedFolderPicker picker;
    CRecordingDesktop desktop;

#ifdef _WIN32
    // The keys that stand for HKEY_LOCAL_MACHINE and HKEY_CURRENT_USER while the test runs
    // (CProgramSettings::RootsForTests): each test's own, below HKEY_CURRENT_USER\Software,
    // deleted afterwards, so that no test sees another's settings or the machine's.
    const CRegKey& MachineKey() const {
        return m_machine;
    }
    const CRegKey& UserKey() const {
        return m_user;
    }
#endif

private:
    // Everything the test sets through the process-wide services (boxes, hooks, the logger,
    // the copy ways, the chosen backup folder) is the test's own and ends with it. The
    // schedule controls get no scheduler at all: no test reaches the machine's own systemd or
    // crontab unless it gives schedulers itself (SetSchedulerSource).
    std::unique_ptr<CScopedServiceContext> m_services;
#ifdef _WIN32
    std::string m_registryPath;
    CRegKey m_machine;
    CRegKey m_user;
#endif

    std::string m_root;
    std::vector<std::pair<std::string, std::string>> m_savedEnv;
};

// Starts the shared logger on `env`'s "t.log" at `level`; returns the log's path.
std::string StartTestLog(const ScopedTestEnv& env, int level = 3);

#ifndef _WIN32
// The test process runs as root on some machines; a file without read permission is only
// unreadable while the capabilities that bypass permissions are dropped. Ok() is false when
// they could not be dropped (the test should then skip).
class ScopedNoPermissionOverride {
public:
    ScopedNoPermissionOverride();
    ~ScopedNoPermissionOverride();
    ScopedNoPermissionOverride(const ScopedNoPermissionOverride&) = delete;
    ScopedNoPermissionOverride& operator=(const ScopedNoPermissionOverride&) = delete;
    bool Ok() const { return m_ok; }

private:
    unsigned m_saved[6] = {};
    bool m_ok = false;
    bool m_changed = false;
};

// Files may not grow past `limit` bytes while it lives: a write beyond fails with EFBIG (the
// signal the kernel sends first is ignored), as a FAT32 drive refuses a file of 4 GiB.
class ScopedFileSizeLimit {
public:
    explicit ScopedFileSizeLimit(unsigned long limit);
    ~ScopedFileSizeLimit();
    ScopedFileSizeLimit(const ScopedFileSizeLimit&) = delete;
    ScopedFileSizeLimit& operator=(const ScopedFileSizeLimit&) = delete;

private:
    unsigned long m_saved[2] = {};
    void (*m_handler)(int) = nullptr;
};
#endif

// Trees from a literal:
//   CreateTree(root, Dir({{"sub", Dir({{"f.txt", File("hello")}})}, {"a.txt", File("x")}}));
struct TestNode {
    bool isDir = false;
    std::string content;
    std::vector<std::pair<std::string, TestNode>> children;
};
TestNode File(std::string content);
TestNode Dir(std::vector<std::pair<std::string, TestNode>> children = {});
void CreateTree(const std::string& root, const TestNode& tree);
