#include "BackupFixture.h"

#include "app/modPaths.h"
#include "app/modSetup.h"
#include "catalogue/ADOSQLite.h"
#include "support/modDateText.h"

#include <ctime>
#include <deque>
#include <dirent.h>
#include <stdexcept>

BackupFixture::BackupFixture() : backup(env.Path("backup")) {
    WriteRegSetting("BackupPath", backup);
    CreateDB();
    db = GetDBPath();
}

void BackupFixture::AddSource(const std::string& source) {
    ADOSQLite sql;
    sql.Connect(db);
    sql.Table("Sources");
    sql.Action(sqlaction::kInsert);
    sql.Field("source", "'" + source + "'");
    sql.Exec();
    if (sql.Err()) throw std::runtime_error(sql.ErrMsg());
}

void BackupFixture::SetOption(const std::string& key, const std::string& value) {
    SetSetupValue(key, value);
}

std::string BackupFixture::TodaysLogPath() const {
    return backup + "/Logs/QRV-" + DateStamp(std::time(nullptr)) + ".LOG";
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
    return backup + "/Files/" + sig.substr(0, 2) + "/" + sig.substr(2, 2) + "/" + sig + ".QRV";
}

std::vector<std::string> WalkOrder(const std::string& root) {
    std::vector<std::string> files;
    std::deque<std::string> folders{root};
    while (!folders.empty()) {
        const std::string folder = folders.front();
        folders.pop_front();
        DIR* dir = ::opendir(folder.c_str());
        if (!dir) continue;
        while (dirent* e = ::readdir(dir)) {
            const std::string name = e->d_name;
            if (name == "." || name == "..") continue;
            if (e->d_type == DT_DIR)
                folders.push_back(folder + "/" + name);
            else if (e->d_type == DT_REG)
                files.push_back(folder + "/" + name);
        }
        ::closedir(dir);
    }
    return files;
}
