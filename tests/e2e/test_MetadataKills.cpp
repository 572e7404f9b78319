#include "BackupFixture.h"
#include "StoreAudit.h"
#include "TestProgram.h"

#include <chrono>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sqlite3.h>
#include <iostream>

namespace {
using Clock = std::chrono::steady_clock;

std::string Probe(const std::string& file) {
    sqlite3* db = nullptr;
    int rc = sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
    std::string out = "open " + std::to_string(rc);
    sqlite3_stmt* st = nullptr;
    rc = sqlite3_prepare_v2(db, "SELECT bid, datebk FROM Runs", -1, &st, nullptr);
    out += " prep " + std::to_string(rc) + "/" + std::to_string(sqlite3_extended_errcode(db));
    if (st) {
        while ((rc = sqlite3_step(st)) == SQLITE_ROW) out += " [" + std::to_string(sqlite3_column_int(st, 0)) + "]";
        out += " step " + std::to_string(sqlite3_extended_errcode(db));
    }
    sqlite3_finalize(st);
    sqlite3_close(db);
    return out;
}

TEST(Probe, Sequence) {
    for (int delay : {0, 2, 4, 6, 8, 10, 12}) {
    BackupFixture f;
    const std::string src = f.env.Path("src");
    MakeRandomFiles(src, 300, 1);
    f.AddSource(src);
    f.SetOption("MaxBackups", "100");
    for (int i = 0; i < 2; ++i) ASSERT_EQ(RunStashwell({"backup"}).exitCode, 0);
    const std::string cj = f.db + "-journal";
    const std::string mj = f.backup + "/db/Metadata.db-journal";
    std::string last;
    bool seenC = false;
    Clock::time_point at{};
    const ProgramRun run = RunStashwellUntil({"backup"}, [&] {
        struct stat st;
        bool c = ::stat(cj.c_str(), &st) == 0, m = ::stat(mj.c_str(), &st) == 0;
        if (c) seenC = true;
        if (seenC && !c && m && at == Clock::time_point{}) at = Clock::now();
        return at != Clock::time_point{} && Clock::now() - at >= std::chrono::milliseconds(delay);
    });
    std::cout << delay << ": sig " << run.signal << " mj " << Exists(mj) << " " << Probe(f.backup + "/db/Metadata.db") << "\n";
    const ProgramRun r = RunQrv({"restore", "1", "--to", f.env.Path("to")});
    std::cout << "  restore " << r.exitCode << " " << r.err << "\n";
    }
}
} // namespace
