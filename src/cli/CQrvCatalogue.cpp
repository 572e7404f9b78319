#include "cli/CQrvCatalogue.h"

#include "app/CBackupFolderLock.h"
#include "app/modPaths.h"
#include "catalogue/ADOSQLite.h"
#include "catalogue/modSQLQuote.h"
#include "cli/modQrvExit.h"
#include "cli/modQrvText.h"
#include "platform/modFileStatus.h"
#include "platform/modFileSystem.h"
#include "platform/modPlatformKind.h"

std::string LockProblem(const CBackupFolderLock& lock) {
    const std::string& problem = lock.Problem();
    return problem.rfind("Error: ", 0) == 0 ? problem.substr(7) : problem;
}

std::string BackupFolderProblem(int& status) {
    status = kQrvCannotOpen;
    const std::string path = GetBackupPath();
    if (path.empty())
        return "no backup path is set: choose one in Stashwell or give --backup-path DIR";
    if (!IsAbsolutePath(path))
        return "the backup path \"" + LineText(path) + "\" is not a full path (one that begins " +
               (kWindowsBuild ? "with a drive, such as C:\\)" : "with /)");
    if (StatusOf(path).kind != PathKind::kFolder)
        return "the backup folder " + LineText(path) + " is not there: is its drive plugged in?";
    status = kQrvDone;
    return {};
}

CQrvCatalogue::~CQrvCatalogue() {
    Close();
}

void CQrvCatalogue::Close() {
    m_db.Close();
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
    if (!m_db.Open(m_path))
        return Fail(kQrvCannotOpen,
                    "the catalogue " + LineText(m_path) + " cannot be read: " + m_db.Error());
    // The first read finds a busy, damaged or interrupted catalogue.
    return Rows("SELECT count(*) FROM Backups", [](const Row&) {});
}

bool CQrvCatalogue::Rows(const std::string& statement, const std::function<void(const Row&)>& row) {
    if (m_db.Rows(statement, row)) return true;
    const CCatalogueReader::Failure failure = m_db.LastFailure();
    if (failure == CCatalogueReader::Failure::kBusy)
        return Fail(kQrvBusy, "the catalogue " + LineText(m_path) +
                                  " is busy: another program has held it for more than " +
                                  std::to_string(ADOSQLite::kBusyTimeoutMs / 1000) +
                                  " seconds; try again later");
    if (failure == CCatalogueReader::Failure::kInterrupted)
        return Fail(kQrvCannotOpen, "the catalogue " + LineText(m_path) +
                                        " holds the journal of an interrupted run; start "
                                        "Stashwell once (stashwell backup) to recover it");
    return Fail(kQrvCannotOpen,
                "the catalogue " + LineText(m_path) + " cannot be read: " + m_db.Error());
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
    if (folder.empty() || !IsPathSeparator(folder.back())) folder += kPathSeparator;
    const std::string before = SQLQuoteEncodeBeforeEscape(folder);
    if (before == SQLQuoteEncode(folder)) return true;
    return Rows("SELECT 1 FROM Paths WHERE bid = " + run.bid + " AND instr(path, " +
                    SQLLiteral(before) + ") = 1 LIMIT 1",
                [&](const Row&) { run.storedBeforeEscape = true; });
}
