#pragma once

// The companion's way into a backup folder's catalogue: read-only, so that it can list and
// check while a backup runs, and can never change a run. Opening says in one line why the
// catalogue cannot be used (no backup path, a folder that is not there, no catalogue, a
// catalogue another program keeps busy, or one that an interrupted run left to be recovered)
// and which exit status that is.

#include "catalogue/CCatalogueReader.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

// One run of the catalogue.
struct QrvRun {
    std::string bid;
    std::string source;
    std::string datebk;
    // Its rows were stored before names kept their backslashes (SQLQuoteEncodeBeforeEscape),
    // which matters, and is told, only when its source's own path holds a "\".
    bool storedBeforeEscape = false;
};

class CQrvCatalogue {
public:
    using Row = CCatalogueReader::Row;

    CQrvCatalogue() = default;
    ~CQrvCatalogue();
    CQrvCatalogue(const CQrvCatalogue&) = delete;
    CQrvCatalogue& operator=(const CQrvCatalogue&) = delete;

    // Opens the catalogue of the backup path (GetBackupPath). False with Problem() and
    // Status() set when it cannot be used.
    bool Open();
    void Close();
    const std::string& Problem() const { return m_problem; }
    int Status() const { return m_status; }

    // Runs `statement`, calling `row` per result row; false with Problem() and Status() set.
    bool Rows(const std::string& statement, const std::function<void(const Row&)>& row);
    // Run `bid`; false with Problem() set ("the catalogue holds no run 7") when there is none.
    bool Run(const std::string& bid, QrvRun& run);

private:
    bool Fail(int status, const std::string& problem);
    // Sets run.storedBeforeEscape: its folder rows begin with the older form of its source.
    bool ReadStoredForm(QrvRun& run);

    CCatalogueReader m_db;
    std::string m_path;
    std::string m_problem;
    int m_status = 0;
};

class CBackupFolderLock;

// Why the backup folder's lock could not be taken, as one line for the companion.
std::string LockProblem(const CBackupFolderLock& lock);

// Why the backup path cannot be used (not set, not a full path, its folder not there), with
// the exit status it calls for; "" when it can.
std::string BackupFolderProblem(int& status);
