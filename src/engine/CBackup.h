#pragma once

// The backup of one source into the content-addressed store. One Exec is one run: a Backups
// row, a Paths row per folder (written by the enumerator), and a Files row for every file
// whose content ends up in the store. Each distinct content is stored once, as
// <store>/ab/cd/<signature>.QRV; a file whose signature is already stored is only recorded.
//
// Every catalogue write of the run is one transaction. New content reaches the store (CStore)
// with no store name and takes the name of the signature of the bytes written: the read-ahead
// (CSignatureAhead) stages content of sizes the store does not hold while it signs it, and the
// run copies the rest itself, signing the copy. The store's file system is flushed before the
// Commit, so a killed run leaves no partial store file and no row that refers to lost content.
// A row records the signature and the length of the content that the store holds for the
// file, even when the file changed during the run.
// Progress reaches the caller through three events; Cancel is seen after the current file.
// A source that is the backup folder or lies inside it is not walked (the run would store the
// store into itself); a source that holds the backup folder is walked around it (CDriveMap).
// With QuickCheck on, a file unchanged since the source's last committed run (CQuickCheck) takes
// that run's signature without being read.

#include "catalogue/CDatabase.h"
#include "catalogue/CMetadataDB.h"
#include "engine/CQuickCheck.h"
#include "engine/CSignatureAhead.h"
#include "engine/CStore.h"
#include "engine/SourceProblems.h"
#include "engine/kvCryptDriver.h"
#include "support/CMMTimer.h"
#include "support/CProcTrap.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class CBackup {
public:
    // What Exec returns: nothing after a complete run (or an error), "Cancel" when cancelled,
    // false when the source folder does not exist or lies inside the backup folder.
    enum class Result { kEmpty, kCancel, kFalse };

    CBackup();

    void Source(const std::string& value) { m_source = value; }
    const std::string& BackupDB() const { return m_dbPath; }
    void BackupDB(const std::string& value) { m_dbPath = value; }
    const std::string& BackupPath() const { return m_backupPath; }
    void BackupPath(const std::string& value) { m_backupPath = value; }
    // The folder that holds the catalogue, the store and the logs; "" for none.
    const std::string& BackupFolder() const { return m_backupFolder; }
    void BackupFolder(const std::string& value) { m_backupFolder = value; }
    bool IncludeHidden() const { return m_includeHidden; }
    void IncludeHidden(bool value) { m_includeHidden = value; }
    bool IncludeSystem() const { return m_includeSystem; }
    void IncludeSystem(bool value) { m_includeSystem = value; }
    bool Verify() const { return m_verify; }
    // Has no effect: the flag keeps its own value, so the verification stage never runs.
    void Verify(bool value);
    void Exclude(const std::string& value) { m_exclude = value; }
    void ExDirs(const std::string& value) { m_exDirs = value; }
    int32_t MD5CalcMethod() const { return m_calcMethod; }
    void MD5CalcMethod(int32_t value) { m_calcMethod = value; }
    // Off by default; its data lives beside the catalogue (CQuickCheckDB::PathBeside).
    bool QuickCheck() const { return m_quickCheck; }
    void QuickCheck(bool value) { m_quickCheck = value; }

    void Cancel() { m_cancel = true; }
    Result Exec();

    // Run statistics of the last Exec.
    int32_t FilesFound() const { return m_filesFound; }
    double BytesProcessed() const { return m_bytes; }
    int32_t Duplicates() const { return m_duplicates; }
    double DuplicateBytes() const { return m_duplicateBytes; }
    // What the last Exec could not do (nothing after a cancel or a missing source).
    const SourceProblems& Problems() const { return m_problems; }
    // What the last Exec did, in numbers, with its problems as they stand (the run's record
    // keeps them as they stood when the run was saved).
    RunTally Tally() const;

    // Events, in their declared order.
    std::function<void(int32_t done, float bytesPerSecond)> OnFileProgress;
    std::function<void(int32_t fileCount)> OnStart;
    std::function<void(double bytes)> OnFinish;
    // Beside them: the bytes of the source done of the total its listing told (done: read by
    // the read-ahead, or found unchanged by the quick check, so a large file moves it while it
    // is read), after Start at most every kBytesEveryMs while the run goes and once at its end
    // with done equal to the total.
    static constexpr uint32_t kBytesEveryMs = 200;
    std::function<void(uint64_t done, uint64_t total)> OnBytesProgress;

    // The store file name of a signature, or a fresh temporary one without it.
    static std::string GetBackupFileName(const std::string& signature = {});

private:
    void BackupOneFile(const std::string& path, CSignatureAhead& ahead, size_t index, bool& stored);
    // How the read-ahead may stage new content: files of sizes no stored content has.
    std::optional<CSignatureAhead::StagingPlan> StagingPlan();
    // Stores new content: moved from the legacy place (the store file `name` right in the
    // backup folder), placed when a worker staged it (or reported when its copy failed there),
    // copied otherwise; `content` becomes what was stored, and a file that could not be stored
    // is a problem of the run with its cause.
    void StoreNew(const std::string& path, SignedContent& content, const std::string& target,
                  const std::string& name, CSignatureAhead::Prepared& prepared, bool& stored);
    void ReportCollision(const std::string& path, const std::string& target);
    // The stamps of the source's last committed run, when the quick check is on.
    std::unique_ptr<CQuickCheck> LoadQuickCheck();
    // The run's date as the catalogue recorded it, read once after the commit.
    std::string RunDate();
    // Keep the stamps and the metadata record of the run just committed, of date `datebk`; a
    // failure only costs the next run its speed, or this run its record.
    void SaveQuickCheck(const std::string& datebk);
    void KeepMetadata(const std::string& datebk);
    void NoteUnreadable(const std::string& path);
    // True, with the log line and the run's problem, when the source is the backup folder or
    // lies inside it.
    bool SourceInBackupFolder();
    // Commits the run's rows; a row that could not be written, or a commit that fails, is an
    // error of the run.
    void CommitRun();
    // The end of a run whose rows were committed when a later step raised: a problem of a
    // saved run, never a lost one. Called inside the catch.
    Result AfterCommitFailed(CProcTrap& trap);
    void LogTotals();
    float Rate();
    // Raises OnBytesProgress when kBytesEveryMs have passed since it last was, or when `now`.
    void ReportBytes(uint64_t done, bool now = false);

    std::string m_source;
    std::string m_dbPath;
    std::string m_backupPath;
    std::string m_backupFolder;
    bool m_includeHidden = false;
    bool m_includeSystem = false;
    bool m_verify = false;
    std::string m_exclude;
    std::string m_exDirs;
    int32_t m_calcMethod = 0;
    bool m_quickCheck = false;
    CMetadataDB m_record;
    int32_t m_filesFound = 0;
    double m_bytes = 0;
    int32_t m_duplicates = 0;
    double m_duplicateBytes = 0;
    bool m_cancel = false;
    CMMTimer m_timer;
    CDatabase m_db;
    CStore m_store;

    // Per run.
    int32_t m_bid = 0;
    SourceProblems m_problems;
    RunTally m_tally; // the counts the run keeps as it goes
    std::vector<std::string> m_duplicateList;
    std::string m_backupDrive;
    std::unique_ptr<CQuickCheck> m_quick;
    uint64_t m_totalBytes = 0;
    uint32_t m_bytesReported = 0; // when OnBytesProgress was last raised (CMMTimer::Now)
};
