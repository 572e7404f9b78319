#include "TestSupport.h"

#include "app/modPaths.h"
#include "app/modRetention.h"
#include "catalogue/ADOSQLite.h"
#include "support/CMMTimer.h"
#include "support/modFileCopy.h"
#include "support/modServices.h"
#include "support/modYield.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <linux/capability.h>
#include <openssl/evp.h>
#include <sqlite3.h>
#include <sstream>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

namespace fs = std::filesystem;

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

void WriteFile(const std::string& path, const std::string& content) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
    if (!out) throw std::runtime_error("cannot write " + path);
}

bool Exists(const std::string& path) {
    struct stat st {};
    return ::lstat(path.c_str(), &st) == 0;
}

std::string PatternContent(size_t n) {
    std::string s(n, '\0');
    for (size_t i = 0; i < n; ++i)
        s[i] = static_cast<char>((i * 31 + 7) % 251);
    return s;
}

std::vector<std::string> ListTree(const std::string& root) {
    std::vector<std::string> out;
    for (auto it = fs::recursive_directory_iterator(root); it != fs::recursive_directory_iterator();
         ++it) {
        std::string rel = fs::relative(it->path(), root).string();
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

void ScopedTestEnv::DefaultHooks() {
    ResetServices();
    SetMessageBoxService(nullptr);
    SetFolderPickerService(nullptr);
    SetDesktopService(nullptr);
    SetYieldHook(nullptr);
    ActiveCopyMethods() = DefaultCopyMethods();
    CMMTimer::SetTickSource(nullptr);
    ADOSQLite::SetLibVersionProbe(nullptr);
    SetMaintenanceView({});
    ::UseBackupPath({});
}

ScopedTestEnv::ScopedTestEnv() {
    std::string tmpl = (fs::temp_directory_path() / "stashwell-test-XXXXXX").string();
    if (!::mkdtemp(tmpl.data())) throw std::runtime_error("mkdtemp failed");
    m_root = tmpl;
    for (const char* name : {"XDG_CONFIG_HOME", "XDG_STATE_HOME"}) {
        const char* old = std::getenv(name);
        m_savedEnv.emplace_back(name, old ? old : std::string("\x01"));
    }
    ::setenv("XDG_CONFIG_HOME", ConfigHome().c_str(), 1);
    ::setenv("XDG_STATE_HOME", StateHome().c_str(), 1);
    DefaultHooks();
    SetMessageBoxService(&box);
    SetFolderPickerService(&picker);
    SetDesktopService(&desktop);
}

ScopedTestEnv::~ScopedTestEnv() {
    DefaultHooks();
    for (auto& [name, value] : m_savedEnv) {
        if (value == "\x01")
            ::unsetenv(name.c_str());
        else
            ::setenv(name.c_str(), value.c_str(), 1);
    }
    std::error_code ec;
    // Tests may leave unreadable folders behind; open them up so that the removal succeeds.
    for (auto it = fs::recursive_directory_iterator(m_root, ec);
         !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
        if (it->is_directory(ec) && !it->is_symlink(ec))
            fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ec);
    }
    fs::permissions(m_root, fs::perms::owner_all, fs::perm_options::add, ec);
    fs::remove_all(m_root, ec);
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
    fs::create_directories(root);
    for (const auto& [name, child] : tree.children)
        CreateTree(root + "/" + name, child);
}

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

std::string StartTestLog(const ScopedTestEnv& env, int level) {
    const std::string path = env.Path("t.log");
    Logger().LogFile(path);
    Logger().LogLevel(level);
    Logger().StartLogger();
    return path;
}

std::string PlainMD5(const std::string& data) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned size = 0;
    EVP_Digest(data.data(), data.size(), digest, &size, EVP_md5(), nullptr);
    static const char* digits = "0123456789abcdef";
    std::string hex;
    for (unsigned i = 0; i < size; ++i) {
        hex += digits[digest[i] >> 4];
        hex += digits[digest[i] & 15];
    }
    return hex;
}

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
