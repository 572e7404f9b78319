#pragma once

// Helpers shared by every test: a private temporary folder with XDG folders inside it and fresh
// process-wide services, a scripted message box that records every call, trees built from a
// literal, and small file and SQL readers.

#include "support/modBrowseFolder.h"
#include "support/modMsgBox.h"
#include "support/modShell.h"

#include <deque>
#include <functional>
#include <string>
#include <utility>
#include <vector>

std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& content);
bool Exists(const std::string& path);
// The test content of length n: byte i is (i * 31 + 7) mod 251.
std::string PatternContent(size_t n);
// Every file and folder below root, relative, sorted; folders end in "/".
std::vector<std::string> ListTree(const std::string& root);
// The rows of a query on a SQLite file, every value as text ("" for NULL).
std::vector<std::vector<std::string>> SqlRows(const std::string& dbPath, const std::string& sql);
// The plain MD5 of some bytes in lower-case hex.
std::string PlainMD5(const std::string& data);
// A bound Unix socket at `path` (a socket file in the tree); the descriptor, or -1.
int MakeUnixSocket(const std::string& path);
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

// A temporary folder for one test, with XDG_CONFIG_HOME and XDG_STATE_HOME inside it, fresh
// error handler and logger, the scripted message box, folder picker and desktop installed, and
// every other process-wide hook at its default (yield, copy methods, timer tick source, SQLite
// version probe, maintenance view). All of it is undone and the folder removed when the object
// goes, so tests stay independent when one binary runs them all.
class ScopedTestEnv {
public:
    ScopedTestEnv();
    ~ScopedTestEnv();
    ScopedTestEnv(const ScopedTestEnv&) = delete;
    ScopedTestEnv& operator=(const ScopedTestEnv&) = delete;

    const std::string& Root() const { return m_root; }
    std::string Path(const std::string& relative) const { return m_root + "/" + relative; }
    std::string ConfigHome() const { return Path("config"); }
    std::string StateHome() const { return Path("state"); }

    CScriptedMessageBox box;
    CScriptedFolderPicker picker;
    CRecordingDesktop desktop;

private:
    static void DefaultHooks();

    std::string m_root;
    std::vector<std::pair<std::string, std::string>> m_savedEnv;
};

// Starts the shared logger on `env`'s "t.log" at `level`; returns the log's path.
std::string StartTestLog(const ScopedTestEnv& env, int level = 3);

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
