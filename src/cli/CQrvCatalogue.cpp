#include "cli/CQrvCatalogue.h"

#include "app/CBackupFolderLock.h"
#include "app/modPaths.h"
#include "catalogue/ADOSQLite.h"
#include "catalogue/modBulkQuery.h"
#include "catalogue/modSQLQuote.h"
#include "cli/modQrvExit.h"
#include "cli/modQrvText.h"
#include "platform/modFileStatus.h"

#include <sqlite3.h>

std::string LockProblem(const CBackupFolderLock& lock) {
    const std::string& problem = lock.Problem();
    return problem.rfind("Error: ", 0) == 0 ? problem.substr(7) : problem;
}

std::string BackupFolderProblem(int& status) {
    status = kQrvCannotOpen;
    const std::string path = GetBackupPath();
    if (path.empty())
        return "no backup path is set: choose one in Stashwell or give --backup-path DIR";
    if (path[0] != '/')
        return "the backup path \"" + LineText(path) +
               "\" is not a full path (one that begins "
               "with /)";
    if (StatusOf(path).kind != PathKind::kFolder)
        return "the backup folder " + LineText(path) + " is not there: is its drive plugged in?";
    status = kQrvDone;
    return {};
}

CQrvCatalogue::~CQrvCatalogue() {
    Close();
}

void CQrvCatalogue::Close() {
    if (m_db) sqlite3_close_v2(m_db);
    m_db = nullptr;
}

bool CQrvCatalogue::Fail(int status, const std::string& problem) {
    m_status = status;
    m_problem = problem;
    return false;
}

bool CQrvCatalogue::Open() {
    Close();
    int status = 0;
    if (const std::string problem = BackupFolderProblem(status); !problem.empty())
        return Fail(status, problem);
    m_path = GetDBPath();
    if (!StatusOf(m_path).Exists())
        return Fail(kQrvCannotOpen,
                    "the backup folder holds no catalogue: " + LineText(m_path) + " is not there");
    if (sqlite3_open_v2(m_path.c_str(), &m_db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
        const std::string error = m_db ? sqlite3_errmsg(m_db) : "out of memory";
        Close();
        return Fail(kQrvCannotOpen,
                    "the catalogue " + LineText(m_path) + " cannot be read: " + error);
    }
    sqlite3_busy_timeout(m_db, ADOSQLite::kBusyTimeoutMs);
    // The first read finds a busy, damaged or interrupted catalogue.
    return Rows("SELECT count(*) FROM Backups", [](const Row&) {});
}

bool CQrvCatalogue::Rows(const std::string& statement, const std::function<void(const Row&)>& row) {
    std::string error;
    if (ForEachRow(m_db, statement, row, error)) return true;
    const int code = sqlite3_extended_errcode(m_db);
    if ((code & 0xFF) == SQLITE_BUSY || (code & 0xFF) == SQLITE_LOCKED)
        return Fail(kQrvBusy, "the catalogue " + LineText(m_path) +
                                  " is busy: another program has held it for more than " +
                                  std::to_string(ADOSQLite::kBusyTimeoutMs / 1000) +
                                  " seconds; try again later");
    if (code == SQLITE_READONLY_ROLLBACK || code == SQLITE_READONLY_RECOVERY)
        return Fail(kQrvCannotOpen, "the catalogue " + LineText(m_path) +
                                        " holds the journal of an interrupted run; start "
                                        "Stashwell once (stashwell backup) to recover it");
    return Fail(kQrvCannotOpen, "the catalogue " + LineText(m_path) + " cannot be read: " + error);
}

bool CQrvCatalogue::Run(const std::string& bid, QrvRun& run) {
    bool found = false;
    if (!IsRunId(bid)) return Fail(kQrvUsage, "'" + LineText(bid) + "' is not a run's bid");
    if (!Rows("SELECT bid, source, datebk FROM Backups WHERE bid = " + bid, [&](const Row& r) {
            run = {std::string(r[0]), std::string(r[1]), std::string(r[2])};
            found = true;
        }))
        return false;
    if (!found) return Fail(kQrvCannotOpen, "the catalogue holds no run " + bid);
    return ReadStoredForm(run);
}

bool CQrvCatalogue::ReadStoredForm(QrvRun& run) {
    std::string folder = run.source;
    if (folder.empty() || folder.back() != '/') folder += '/';
    const std::string before = SQLQuoteEncodeBeforeEscape(folder);
    if (before == SQLQuoteEncode(folder)) return true;
    return Rows("SELECT 1 FROM Paths WHERE bid = " + run.bid + " AND instr(path, " +
                    SQLLiteral(before) + ") = 1 LIMIT 1",
                [&](const Row&) { run.storedBeforeEscape = true; });
}
