#include "BackupFixture.h"

#include "app/modPaths.h"
#include "app/modSetup.h"
#include "catalogue/ADOSQLite.h"
#include "catalogue/modSQLQuote.h"
#include "platform/CFolderListing.h"
#include "platform/modFileSystem.h"
#include "support/modDateText.h"

#include <algorithm>
#include <ctime>
#include <deque>
#include <random>
#include <set>
#include <stdexcept>

BackupFixture::BackupFixture() {
    UseBackupPath(env.Path("backup"));
}

void BackupFixture::UseBackupPath(const std::string& path) {
    backup = path;
    WriteRegSetting("BackupPath", backup);
    CreateDB();
    db = GetDBPath();
}

void BackupFixture::AddSource(const std::string& source) {
    ADOSQLite sql;
    sql.Connect(db);
    sql.Table("Sources");
    sql.Action(sqlaction::kInsert);
    sql.Field("source", SQLLiteral(source));
    sql.Exec();
    if (sql.Err()) throw std::runtime_error(sql.ErrMsg());
}

void BackupFixture::Exec(const std::string& statement) const {
    ADOSQLite sql;
    sql.Connect(db);
    sql.Action(sqlaction::kAsIs);
    std::string text = statement;
    sql.Exec(text);
    if (sql.Err()) throw std::runtime_error(sql.ErrMsg() + " in " + statement);
}

void BackupFixture::SetOption(const std::string& key, const std::string& value) {
    SetSetupValue(key, value);
}

std::string BackupFixture::TodaysLogPath() const {
    return backup + Native("/Logs/QRV-") + DateStamp(std::time(nullptr)) + ".LOG";
}

std::string BackupFixture::TodaysLog() const {
    return ReadFile(TodaysLogPath());
}

std::vector<std::string> BackupFixture::Rows(const std::string& sql) const {
    std::vector<std::string> out;
    for (const auto& row : SqlRows(db, sql))
        for (const auto& value : row)
            out.push_back(value);
    return out;
}

std::vector<std::string> BackupFixture::RowTexts(const std::string& sql) const {
    std::vector<std::string> out;
    for (const auto& row : SqlRows(db, sql)) {
        std::string text;
        for (size_t i = 0; i < row.size(); ++i)
            text += (i ? "|" : "") + row[i];
        out.push_back(text);
    }
    return out;
}

std::string TestSignature(const std::string& content) {
    return PlainMD5(content + std::string((content.size() + 8191) / 8192, '\0'));
}

std::string StoreFile(const std::string& backup, const std::string& content) {
    const std::string sig = TestSignature(content);
    return backup +
           Native("/Files/" + sig.substr(0, 2) + "/" + sig.substr(2, 2) + "/" + sig + ".QRV");
}

std::vector<std::string> StoreEntries(const std::vector<std::string>& contents) {
    std::set<std::string> entries;
    for (const std::string& content : contents) {
        const std::string sig = TestSignature(content);
        entries.insert(sig.substr(0, 2) + "/");
        entries.insert(sig.substr(0, 2) + "/" + sig.substr(2, 2) + "/");
        entries.insert(sig.substr(0, 2) + "/" + sig.substr(2, 2) + "/" + sig + ".QRV");
    }
    return {entries.begin(), entries.end()};
}

std::string Encoded(const std::string& path) {
    std::string stored;
    for (const char c : path) {
#ifdef _WIN32
        // No Windows name holds a "/", so an apostrophe becomes one and nothing needs an escape.
        stored += c == '\'' ? '/' : c;
#else
        if (c == '\'')
            stored += '\\';
        else if (c == '\\')
            stored += "\001b";
        else if (c == '\x01')
            stored += "\x01\x01";
        else
            stored += c;
#endif
    }
    return stored;
}

TreeWalk WalkBreadthFirst(const std::string& root) {
    TreeWalk walk;
    std::deque<std::string> queue{root};
    while (!queue.empty()) {
        const std::string folder = queue.front();
        queue.pop_front();
        CFolderListing listing;
        if (listing.Open(folder) != 0) continue;
        std::string name;
        PathKind kind = PathKind::kNone;
        while (listing.Next(name, kind)) {
            if (name == "." || name == "..") continue;
            const std::string path = folder + kPathSeparator + name;
            if (kind == PathKind::kFolder) {
                walk.folders.push_back(path);
                queue.push_back(path);
            } else if (kind == PathKind::kFile) {
                walk.files.push_back(path);
            }
        }
    }
    return walk;
}

std::vector<std::string> WalkOrder(const std::string& root) {
    return WalkBreadthFirst(root).files;
}

void MakeRandomFiles(const std::string& root, int count, unsigned seed) {
    std::mt19937 random(seed);
    std::vector<std::pair<std::string, TestNode>> folders;
    for (int folder = 0; folder * 10 < count; ++folder) {
        std::vector<std::pair<std::string, TestNode>> files;
        for (int i = folder * 10; i < std::min(count, folder * 10 + 10); ++i) {
            std::string content(1024 * (1 + random() % 24), '\0');
            for (char& c : content)
                c = static_cast<char>(random());
            files.emplace_back("f" + std::to_string(i) + ".dat", File(content));
        }
        folders.emplace_back("d" + std::to_string(folder), Dir(files));
    }
    CreateTree(root, Dir(folders));
}
