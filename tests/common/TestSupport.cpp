#include "TestSupport.h"

#include "WindowsTestHelpers.h"
#include "app/CProgramSettings.h"
#include "app/modSchedule.h"
#include "platform/CMd5.h"
#include "platform/modFileStatus.h"
#include "platform/modFileSystem.h"
#include "support/modServices.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <sqlite3.h>
#include <sstream>
#include <stdexcept>
#ifndef _WIN32
#include <csignal>
#include <fcntl.h>
#include <linux/capability.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>
#endif

namespace fs = std::filesystem;

std::string Native(std::string path) {
    std::replace(path.begin(), path.end(), '/', kPathSeparator);
    return path;
}

fs::path FsPath(const std::string& path) {
#ifdef _WIN32
    return fs::path(std::u8string(path.begin(), path.end()));
#else
    return fs::path(path);
#endif
}

std::string PathText(const fs::path& path) {
#ifdef _WIN32
    const std::u8string text = path.u8string();
    return std::string(text.begin(), text.end());
#else
    return path.string();
#endif
}

void SetEnv(const std::string& name, const std::string& value) {
#ifdef _WIN32
    SetWindowsEnvironment(name, value);
#else
    ::setenv(name.c_str(), value.c_str(), 1);
#endif
}

void UnsetEnv(const std::string& name) {
#ifdef _WIN32
    SetWindowsEnvironment(name, "");
#else
    ::unsetenv(name.c_str());
#endif
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(FsPath(path), std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

void WriteFile(const std::string& path, const std::string& content) {
    std::ofstream out(FsPath(path), std::ios::binary | std::ios::trunc);
    out << content;
    if (!out) throw std::runtime_error("cannot write " + path);
}

bool Exists(const std::string& path) {
    return StatusOf(path, true).Exists();
}

std::string PatternContent(size_t n) {
    std::string s(n, '\0');
    for (size_t i = 0; i < n; ++i)
        s[i] = static_cast<char>((i * 31 + 7) % 251);
    return s;
}

std::vector<std::string> ListTree(const std::string& root) {
    std::vector<std::string> out;
    for (auto it = fs::recursive_directory_iterator(FsPath(root));
         it != fs::recursive_directory_iterator(); ++it) {
        std::string rel = PathText(fs::relative(it->path(), FsPath(root)));
        std::replace(rel.begin(), rel.end(), kPathSeparator, '/');
        if (it->is_directory() && !it->is_symlink()) rel += "/";
        out.push_back(rel);
    }
    std::sort(out.begin(), out.end());
    return out;
}

std::vector<std::vector<std::string>> SqlRows(const std::string& dbPath, const std::string& sql) {
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(dbPath.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
        sqlite3_close(db);
        throw std::runtime_error("cannot open " + dbPath);
    }
    sqlite3_stmt* stmt = nullptr;
    if (sqlite3_prepare_v2(db, sql.c_str(), -1, &stmt, nullptr) != SQLITE_OK) {
        std::string msg = sqlite3_errmsg(db);
        sqlite3_close(db);
        throw std::runtime_error(msg);
    }
    std::vector<std::vector<std::string>> rows;
    while (sqlite3_step(stmt) == SQLITE_ROW) {
        std::vector<std::string> row;
        for (int c = 0; c < sqlite3_column_count(stmt); ++c) {
            auto text = sqlite3_column_text(stmt, c);
            row.emplace_back(text ? reinterpret_cast<const char*>(text) : "");
        }
        rows.push_back(std::move(row));
    }
    sqlite3_finalize(stmt);
    sqlite3_close(db);
    return rows;
}

std::vector<std::string> LogMessages(const std::string& logText) {
    std::vector<std::string> out;
    size_t pos = 0;
    while (pos < logText.size()) {
        size_t end = logText.find("\r\n", pos);
        end = end == std::string::npos ? logText.size() : end + 2;
        std::string line = logText.substr(pos, end - pos);
        // "dd/MM/yyyy HH:mm:ss: " is 21 characters.
        if (line.size() >= 21 && line[2] == '/' && line.compare(19, 2, ": ") == 0)
            line.erase(0, 21);
        out.push_back(line);
        pos = end;
    }
    return out;
}

int CScriptedMessageBox::Show(const std::string& text, int style, const std::string& title) {
    calls.push_back({text, style, title});
    if (onShow) onShow(calls.back());
    if (answers.empty()) return FirstButton(style);
    const int answer = answers.front();
    answers.pop_front();
    return answer;
}

std::string CScriptedFolderPicker::Pick(const std::string& title) {
    prompts.push_back(title);
    if (answers.empty()) return {};
    std::string folder = std::move(answers.front());
    answers.pop_front();
    return folder;
}

bool CRecordingDesktop::Open(const std::string& target) {
    opened.push_back(target);
    return answer;
}

bool CRecordingDesktop::Start(const std::string& program) {
    started.push_back(program);
    return answer;
}

#ifdef _WIN32
const char* const kConfigHomeVariable = "APPDATA";
const char* const kStateHomeVariable = "LOCALAPPDATA";
#else
const char* const kConfigHomeVariable = "XDG_CONFIG_HOME";
const char* const kStateHomeVariable = "XDG_STATE_HOME";
#endif

std::string TestProgramFolder() {
#ifdef _WIN32
    const std::string program = WindowsProgramFile();
    return program.substr(0, program.find_last_of('\\'));
#else
    return fs::read_symlink("/proc/self/exe").parent_path().string();
#endif
}

namespace {

// A new folder of the test's own in the system's temporary folder.
std::string MakeTestRoot() {
#ifdef _WIN32
    std::string temp = PathText(fs::temp_directory_path());
    while (temp.size() > 3 && IsPathSeparator(temp.back()))
        temp.pop_back();
    std::mt19937 random(std::random_device{}());
    for (int attempt = 0; attempt < 100; ++attempt) {
        const std::string root = temp + "\\stashwell-test-" + std::to_string(random() % 1000000);
        if (MakeFolder(root) == 0) return root;
    }
    throw std::runtime_error("cannot make a test folder in " + temp);
#else
    std::string tmpl = (fs::temp_directory_path() / "stashwell-test-XXXXXX").string();
    if (!::mkdtemp(tmpl.data())) throw std::runtime_error("mkdtemp failed");
    return tmpl;
#endif
}

} // namespace

ScopedTestEnv::ScopedTestEnv() : m_services(std::make_unique<CScopedServiceContext>()) {
    m_root = MakeTestRoot();
    std::vector<std::pair<std::string, std::string>> variables = {
        {kConfigHomeVariable, ConfigHome()}, {kStateHomeVariable, StateHome()}};
#ifdef _WIN32
    variables.emplace_back("STASHWELL_PER_USER_STATE", "1");
    // The test root's own name is unique among the tests that run at once. The programs the
    // test starts read and write the same keys as the test itself.
    m_registryPath =
        "Software\\StashwellTests\\" + m_root.substr(m_root.find_last_of(kPathSeparator) + 1);
    variables.emplace_back("STASHWELL_SETTINGS_KEY", m_registryPath);
#endif
    for (const auto& [name, value] : variables) {
#ifdef _WIN32
        const std::string old = WindowsEnvironment(name);
        m_savedEnv.emplace_back(name, old.empty() ? std::string("\x01") : old);
#else
        const char* old = std::getenv(name.c_str());
        m_savedEnv.emplace_back(name, old ? old : std::string("\x01"));
#endif
        SetEnv(name, value);
    }
#ifdef _WIN32
    if (m_machine.Create(reg::kCurrentUser, m_registryPath + "\\Machine", reg::kAllAccess) != 0 ||
        m_user.Create(reg::kCurrentUser, m_registryPath + "\\User", reg::kAllAccess) != 0)
        ADD_FAILURE() << "the test's registry keys cannot be made below " << m_registryPath;
    CProgramSettings::RootsForTests(m_machine.AsRoot(), m_user.AsRoot());
#endif
    SetMessageBoxService(&box);
    SetSchedulerSource([] { return std::vector<std::unique_ptr<IScheduler>>(); });
    SetFolderPickerService(&picker);
    SetDesktopService(&desktop);
}

ScopedTestEnv::~ScopedTestEnv() {
    // The test's logger closes its file, which the removal below needs on Windows.
    m_services.reset();
#ifdef _WIN32
    m_machine.Close();
    m_user.Close();
    DeleteRegKeyTree(reg::kCurrentUser, m_registryPath);
#endif
    for (auto& [name, value] : m_savedEnv) {
        if (value == "\x01")
            UnsetEnv(name);
        else
            SetEnv(name, value);
    }
    std::error_code ec;
    // Tests may leave unreadable folders (Linux) and read-only files (Windows) behind; open them
    // up so that the removal succeeds.
    const fs::path root = FsPath(m_root);
    for (auto it = fs::recursive_directory_iterator(root, ec);
         !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
        if (it->is_directory(ec) && !it->is_symlink(ec))
            fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ec);
#ifdef _WIN32
        else if (!it->is_symlink(ec))
            fs::permissions(it->path(), fs::perms::owner_write, fs::perm_options::add, ec);
#endif
    }
    fs::permissions(root, fs::perms::owner_all, fs::perm_options::add, ec);
    fs::remove_all(root, ec);
}

TestNode File(std::string content) {
    return TestNode{false, std::move(content), {}};
}

TestNode Dir(std::vector<std::pair<std::string, TestNode>> children) {
    return TestNode{true, {}, std::move(children)};
}

void CreateTree(const std::string& root, const TestNode& tree) {
    if (!tree.isDir) {
        WriteFile(root, tree.content);
        return;
    }
    fs::create_directories(FsPath(root));
    for (const auto& [name, child] : tree.children)
        CreateTree(root + kPathSeparator + name, child);
}

#ifndef _WIN32
ScopedNoPermissionOverride::ScopedNoPermissionOverride() {
    if (::geteuid() != 0) {
        m_ok = true;
        return;
    }
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct saved[2]{};
    if (::syscall(SYS_capget, &header, saved) != 0) return;
    static_assert(sizeof saved == sizeof m_saved);
    std::memcpy(m_saved, saved, sizeof saved);
    __user_cap_data_struct reduced[2] = {saved[0], saved[1]};
    reduced[0].effective &= ~((1u << CAP_DAC_OVERRIDE) | (1u << CAP_DAC_READ_SEARCH));
    m_ok = m_changed = ::syscall(SYS_capset, &header, reduced) == 0;
}

ScopedNoPermissionOverride::~ScopedNoPermissionOverride() {
    if (!m_changed) return;
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct saved[2]{};
    std::memcpy(saved, m_saved, sizeof saved);
    ::syscall(SYS_capset, &header, saved);
}

#endif

std::string StartTestLog(const ScopedTestEnv& env, int level) {
    const std::string path = env.Path("t.log");
    Logger().LogFile(path);
    Logger().LogLevel(level);
    Logger().StartLogger();
    return path;
}

std::string PlainMD5(const std::string& data) {
    CMd5 md5;
    if (!md5.Add(data.data(), data.size())) throw std::runtime_error("MD5 is not available");
    return md5.Finish();
}

bool SetFileTimes(const std::string& path, int64_t accessNs, int64_t writeNs) {
#ifdef _WIN32
    return SetWindowsFileTimes(path, accessNs, writeNs);
#else
    const timespec times[2] = {{accessNs / 1'000'000'000, accessNs % 1'000'000'000},
                               {writeNs / 1'000'000'000, writeNs % 1'000'000'000}};
    return ::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW) == 0;
#endif
}

std::string FolderOnAnotherFileSystem(const std::string& beside, const std::string& prefix) {
#ifdef _WIN32
    return FolderOnAnotherDrive(beside, prefix);
#else
    struct stat tmp {
    }, shm{};
    if (::stat(beside.c_str(), &tmp) != 0 || ::stat("/dev/shm", &shm) != 0 ||
        tmp.st_dev == shm.st_dev)
        return "";
    std::string folder = "/dev/shm/" + prefix + "XXXXXX";
    return ::mkdtemp(folder.data()) ? folder : "";
#endif
}

::testing::AssertionResult IsPrivate(const std::string& path) {
    const PathStatus status = StatusOf(path);
    if (!status.Exists()) return ::testing::AssertionFailure() << path << " is not there";
#ifdef _WIN32
    const std::string other = WhoElseMayReach(path);
    if (!other.empty()) return ::testing::AssertionFailure() << path << ": " << other;
#else
    struct stat st {};
    ::stat(path.c_str(), &st);
    const unsigned mode = st.st_mode & 07777;
    const unsigned want = status.kind == PathKind::kFolder ? 0700 : 0600;
    if (mode != want) {
        std::ostringstream octal;
        octal << std::oct << mode;
        return ::testing::AssertionFailure() << path << " has mode 0" << octal.str();
    }
#endif
    return ::testing::AssertionSuccess();
}

#ifndef _WIN32
int MakeUnixSocket(const std::string& path) {
    const int sock = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (sock < 0 || path.size() >= sizeof(address.sun_path)) return -1;
    path.copy(address.sun_path, path.size());
    if (::bind(sock, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
        ::close(sock);
        return -1;
    }
    return sock;
}

ScopedFileSizeLimit::ScopedFileSizeLimit(unsigned long limit) {
    struct rlimit saved {};
    ::getrlimit(RLIMIT_FSIZE, &saved);
    m_saved[0] = saved.rlim_cur;
    m_saved[1] = saved.rlim_max;
    m_handler = ::signal(SIGXFSZ, SIG_IGN);
    const struct rlimit lowered = {limit, saved.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &lowered);
}

ScopedFileSizeLimit::~ScopedFileSizeLimit() {
    const struct rlimit saved = {m_saved[0], m_saved[1]};
    ::setrlimit(RLIMIT_FSIZE, &saved);
    ::signal(SIGXFSZ, m_handler);
}
#endif
