#include "EngineFixture.h"

#include "app/modPaths.h"
#include "app/modSetup.h"
#include "support/CMMTimer.h"
#include "support/modFileCopy.h"
#include "support/modServices.h"
#include "support/modYield.h"

EngineFixture::EngineFixture() : source(env.Path("src")) {
    WriteRegSetting("BackupPath", env.Path("bk"));
    CreateDB();
    Logger().LogFile(env.Path("t.log"));
    Logger().StartLogger();
    Logger().LogLevel(3);
    CMMTimer::SetTickSource([this] { return now; });
}

void EngineFixture::SetUp() {
    if (GetParam() == StagingWay::kAnonymous && !HasAnonymousFiles(env.Root()))
        GTEST_SKIP() << "no anonymous files on the test's file system";
}

std::string EngineFixture::StoreFile(const std::string& content) const {
    return ::StoreFile(GetBackupPath(), content);
}

EngineFixture::Strings EngineFixture::StoreListing() const {
    return ListTree(GetFilesPath());
}

EngineFixture::Strings EngineFixture::LogLines() const {
    Strings lines;
    for (std::string line : LogMessages(ReadFile(env.Path("t.log")))) {
        if (line.size() >= 2 && line.compare(line.size() - 2, 2, "\r\n") == 0)
            line.resize(line.size() - 2);
        lines.push_back(line);
    }
    return lines;
}

EngineFixture::Rows EngineFixture::Query(const std::string& sql) const {
    return SqlRows(GetDBPath(), sql);
}
