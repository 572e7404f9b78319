#include "engine/CBackup.h"

#include "catalogue/CCatalogueReader.h"
#include "catalogue/modBulkQuery.h"
#include "catalogue/modSQLQuote.h"
#include "engine/CDriveMap.h"
#include "engine/CSignatureAhead.h"
#include "engine/modFolderIdentity.h"
#include "platform/modClock.h"
#include "platform/modFileStatus.h"
#include "platform/modFileSystem.h"
#include "support/CProcTrap.h"
#include "support/modFSCommon.h"
#include "support/modMsgBox.h"
#include "support/modNumText.h"
#include "support/modServices.h"
#include "support/modYield.h"

#include <charconv>
#include <cstdlib>
#include <ctime>

namespace {
constexpr double kDisplayMegabyte = 1024000.0;
// The problems of one kind that a run's tally names; the rest are counted.
constexpr size_t kListedProblems = 50;
constexpr const char* kSupportAddress = "support@korvex.invalid";
// The sizes recorded by the newest committed run of each source (see StagingPlan).
constexpr const char* kNewestRunsSizes =
    "SELECT DISTINCT size FROM Files WHERE bid IN (SELECT MAX(bid) FROM Backups GROUP BY source)";
} // namespace

CBackup::CBackup() {
    m_timer.ScaleFactor(1000);
}

void CBackup::Verify(bool /*value*/) {
    // The accessor stores the flag's own value back: verification after a copy stays off.
    m_verify = m_verify;
}

std::string CBackup::GetBackupFileName(const std::string& signature) {
    CProcTrap trap("CBackup_GetBackupFileName");
    if (!signature.empty()) return signature + ".QRV";
    const std::string temp = FSGetTempName();
    return temp.substr(0, temp.size() - 4) + ".QRV";
}

CBackup::Result CBackup::Exec() {
    CProcTrap trap("CBackup_Exec");
    m_problems = {};
    m_tally = {};
    m_duplicates = 0;
    bool committed = false;
    try {
        trap.Check();
        if (!FSFolderExists(m_source)) {
            Log(1, m_source + " not accessible. Skipping");
            trap.KeepOnStack(); // this exit does not pop
            return Result::kFalse;
        }
        if (SourceInBackupFolder()) return Result::kFalse;
        // The store is opened before anything else: a run whose store folder cannot be had (a
        // drive that is not there) fails before it writes anything.
        m_store.Open(m_backupPath);
        struct CloseStore {
            CStore& store;
            ~CloseStore() { store.Close(); }
        } closeStore{m_store};
        m_timer.StartTimer();
        m_db.Connect(m_dbPath);
        CDriveMap map;
        m_filesFound = 0;
        m_bytes = 0;
        m_duplicates = 0;
        m_duplicateBytes = 0;
        m_duplicateList.clear();
        m_quick = LoadQuickCheck();
        // The run's rows stay in memory until the commit instead of spilling to the journal, up
        // to 16 MB (some 60,000 rows): a bigger run spills, and keeps its memory.
        std::string pragmaError;
        ForEachRow(
            m_db.Connection(), "PRAGMA cache_size = -16384", [](const auto&) {}, pragmaError);
        m_db.Begin();
        m_bid = m_db.BackupRun(m_source);
        // Times, permission bits and what the catalogue lists not, kept beside it; a run whose
        // record cannot be written goes on without one.
        const bool recording =
            m_bid > 0 && m_record.Begin(CMetadataDB::PathBeside(m_dbPath), m_bid);
        if (m_bid > 0 && !recording) Log(2, "The metadata of this run cannot be kept");

        Operation("Finding Files");
        Log(1, "Finding files in source : " + m_source);
        map.Reset();
        map.Database(&m_db);
        map.Hidden(m_includeHidden);
        map.System(m_includeSystem);
        map.SourcePath(m_source);
        map.BackupID(m_bid);
        map.ExcludeFiles(m_exclude);
        map.ExcludeDirs(m_exDirs);
        map.SkipFolder(m_backupFolder);
        map.Metadata(recording ? &m_record : nullptr);
        map.KeepStamps(m_quick != nullptr);
        map.Exec();
        m_problems.unreadableFolders = map.UnreadableFolders();
        m_filesFound = map.FileCount();
        m_tally.seen = m_filesFound;
        m_tally.hidden = map.HiddenFiles();
        m_tally.system = map.SystemFiles();
        m_tally.excluded = map.ExcludedFiles();
        Log(1, "Elapsed time : " + FormatElapsed(ToInt32(m_timer.ElapsedTime())));
        Log(1, "Files found  : " + NumText(m_filesFound));
        if (OnStart) OnStart(m_filesFound);
        m_totalBytes = map.TotalBytes();
        ReportBytes(0, true);
        map.MoveFirst();

        // The stored flag is set once per run, not per file: a file that meets a full disk
        // after an earlier file was stored is still recorded. This carry-over is intended.
        bool stored = false;
        m_backupDrive = FSDriveFromPath(m_backupPath);
        // The workers may be 512 files ahead of the run (and hold at most 32 staged copies):
        // a run of small files that hands each to the next thread as it comes waits on those
        // hand-overs more than on its work (a quick run of 200,000 tiny files: 2.15 s with 512
        // files ahead, 2.96 s with 32).
        CSignatureAhead ahead(map.Files(), 512, StagingPlan(), 0, m_quick.get());
        // The Files rows are written beside the run, which goes on with its next file.
        m_db.WriteRowsAside();
        while (!map.Eof()) {
            BackupOneFile(map.FilePath(), ahead, static_cast<size_t>(map.Idx() - 1), stored);
            const float rate = Rate();
            if (OnFileProgress) OnFileProgress(map.Idx(), rate);
            ReportBytes(ahead.BytesRead());
            if (m_cancel) {
                m_record.Abandon();
                m_db.Rollback();
                trap.KeepOnStack(); // this exit does not pop
                return Result::kCancel;
            }
            map.MoveNext();
        }

        // The store's content is on disk before rows refer to it; a store that cannot be flushed
        // (an I/O error, a drive pulled out) is an error of the run, which then commits nothing.
        ReportBytes(m_totalBytes, true);
        Operation("Flush backup files");
        m_store.CheckIdentity();
        if (!FSSyncFileSystem(m_backupPath)) Raise(err::kDeviceIO);
        CommitRun();
        committed = true;
        const std::string datebk = RunDate();
        KeepMetadata(datebk);
        SaveQuickCheck(datebk);
        m_timer.StopTimer();
        if (OnFinish) OnFinish(m_bytes);
        DoEvents();
        Operation("Source backup complete");
        Log(2, "List of duplicates");
        for (const std::string& entry : m_duplicateList)
            Log(2, entry);
        LogTotals();
        return Result::kEmpty;
    } catch (...) {
        if (committed) return AfterCommitFailed(trap);
        // Nothing of the run is committed: it is lost, and the log and the run's end say so.
        m_problems.lost = CurrentRuntimeError().Description();
        try {
            Log(1, "The run of " + m_source + " was lost: " + m_problems.lost);
        } catch (...) {
            // a log that cannot be written: the run's end still names the loss
        }
        trap.Handle();
        m_record.Abandon();
        // Lets go of the catalogue's locks at once, and of the failed statement's error, which
        // would otherwise keep the next source's Connect from connecting.
        m_db.Rollback();
        m_db.Connection().Reset();
        return Result::kEmpty;
    }
}

CBackup::Result CBackup::AfterCommitFailed(CProcTrap& trap) {
    // The run's rows are in the catalogue: a step after the commit that fails (the totals' time
    // text of a run of 10 hours or more, a log that cannot be written) leaves a saved run.
    m_problems.afterCommit = CurrentRuntimeError().Description();
    try {
        Log(1, "The run of " + m_source +
                   " was saved, but a step after saving it failed: " + m_problems.afterCommit);
    } catch (...) {
        // a log that cannot be written: the run's end still says what happened
    }
    trap.Handle();
    return Result::kEmpty;
}

void CBackup::CommitRun() {
    Operation("Commit");
    m_db.FinishRows();
    if (m_bid <= 0 || m_db.FailedWrites() > 0) {
        const std::string why =
            m_db.FailedWrites() > 0 ? m_db.LastWriteError() : m_db.Connection().ErrMsg();
        Raise(err::kCatalogueWrite,
              "the catalogue could not record " +
                  (m_bid <= 0 ? std::string("the run")
                              : NumText(m_db.FailedWrites()) + " of its rows") +
                  ": " + why);
    }
    m_db.Commit();
    if (m_db.Connection().Err())
        Raise(err::kCatalogueWrite,
              "the catalogue could not record the run: " + m_db.Connection().ErrMsg());
}

std::unique_ptr<CQuickCheck> CBackup::LoadQuickCheck() {
    if (!m_quickCheck) return nullptr;
    // Read before the run begins: only a committed run counts.
    QuickCheckRun last;
    std::string error;
    ForEachRow(
        m_db.Connection(),
        "SELECT bid, datebk FROM Backups WHERE source = " + SQLLiteral(m_source) +
            " ORDER BY bid DESC LIMIT 1",
        [&](const auto& row) {
            last.bid = static_cast<int32_t>(std::strtol(std::string(row[0]).c_str(), nullptr, 10));
            last.datebk = std::string(row[1]);
        },
        error);
    const int64_t startNs = RealTimeNs();
    return std::make_unique<CQuickCheck>(CQuickCheckDB::PathBeside(m_dbPath), m_source, last,
                                         startNs);
}

std::string CBackup::RunDate() {
    std::string datebk;
    std::string error;
    ForEachRow(
        m_db.Connection(), "SELECT datebk FROM Backups WHERE bid = " + std::to_string(m_bid),
        [&](const auto& row) { datebk = std::string(row[0]); }, error);
    return datebk;
}

RunTally CBackup::Tally() const {
    RunTally tally = m_tally;
    tally.stored = m_duplicates;
    tally.unreadable = static_cast<int64_t>(m_problems.unreadableFiles.size());
    tally.problems = ProblemLines(m_source, m_problems, kListedProblems);
    return tally;
}

void CBackup::KeepMetadata(const std::string& datebk) {
    if (!m_record.Recording()) return;
    const RunTally tally = Tally();
    if (!m_record.Keep(datebk, &tally)) Log(2, "The metadata of this run could not be kept");
}

void CBackup::SaveQuickCheck(const std::string& datebk) {
    if (!m_quick) return;
    if (!m_quick->Save({m_bid, datebk}))
        Log(2, "The quick check could not keep the stamps of this run");
    m_quick.reset();
}

bool CBackup::SourceInBackupFolder() {
    if (m_backupFolder.empty()) return false;
    const FolderPlace place = PlaceOf(m_source, m_backupFolder);
    if (place == FolderPlace::kOutside) return false;
    const std::string where = place == FolderPlace::kSame
                                  ? std::string("is the backup folder")
                                  : "lies inside the backup folder " + m_backupFolder;
    Log(1, m_source + " " + where + ". Skipping");
    m_problems.refused = "it " + where + ", and Stashwell does not back up its own store";
    return true;
}

void CBackup::NoteUnreadable(const std::string& path) {
    std::string cause = FSReadProblem(path);
    if (cause.empty()) cause = "it could not be read to its end";
    m_problems.unreadableFiles.push_back(path + ": " + cause);
}

std::optional<CSignatureAhead::StagingPlan> CBackup::StagingPlan() {
    CSignatureAhead::StagingPlan plan;
    // The sizes of the content that the newest committed run of each source recorded, read
    // beside the run's own connection, only when a file may be new. Older runs are left out, so
    // that the read costs one run's rows however many runs are kept: a file of a size only they
    // hold is staged, and the staged copy is dropped when its content turns out to be stored.
    plan.loadSizes = [db = m_dbPath](std::unordered_set<uint64_t>& sizes) {
        CCatalogueReader catalogue;
        return catalogue.Open(db) && catalogue.Rows(kNewestRunsSizes, [&](const auto& row) {
            uint64_t size = 0;
            const auto [end, fault] =
                std::from_chars(row[0].data(), row[0].data() + row[0].size(), size);
            if (fault == std::errc() && end == row[0].data() + row[0].size()) sizes.insert(size);
        });
    };
    plan.storedSize = [this](const std::string& signature) {
        return m_store.StoredSize(signature);
    };
    plan.stage = [this](const std::string& source, const std::atomic<bool>* stop,
                        std::atomic<uint64_t>* read) {
        return m_store.StageAhead(source, stop, read);
    };
    plan.hasRoomFor = [this](uint64_t size) {
        // Asked from the workers: the platform's own call, outside the error traps.
        uint64_t free = 0;
        bool known = true;
        return FreeSpace(m_backupDrive, free, known) != 0 || !known || free > size;
    };
    return plan;
}

void CBackup::BackupOneFile(const std::string& path, CSignatureAhead& ahead, size_t index,
                            bool& stored) {
    Operation("Check File is readable");
    CSignatureAhead::Prepared prepared = ahead.Prepare(index, [this, &ahead] {
        ReportBytes(ahead.BytesRead()); // a large file moves the bytes while it is read
        return m_cancel;
    });
    if (prepared.cancelled) return; // the run stops after this file: nothing of it is kept
    // A file that a worker signed was read to its end; only the others are probed.
    if (!prepared.SignedAhead() && !FSIsReadable(path)) {
        NoteUnreadable(path);
        return;
    }

    // The stamp holds the size already, unless the content signed has another length: the
    // file changed since the stamp was taken, and is asked again.
    const bool stampSize = prepared.stamp.Known() &&
                           (!prepared.SignedAhead() ||
                            prepared.content.length == static_cast<uint64_t>(prepared.stamp.size));
    const double size = stampSize ? static_cast<double>(prepared.stamp.size) : FSGetFileSize(path);
    m_bytes += size;
    // The per-file lines are made only for a log that keeps them (most runs log at level 1).
    const bool fileLines = Logger().LogLevel() >= 2;
    if (fileLines) {
        Log(2, "FIL: " + path);
        Log(2, "SIZ: " + NumText(size));
    }

    Operation("Calculate MD5 signature");
    SignedContent content = prepared.SignedAhead() ? prepared.content : SignFile(path);
    if (content.signature.empty()) {
        Log(2, "Skipping " + path);
        NoteUnreadable(path);
        return;
    }
    if (fileLines) Log(2, "MD5: " + content.signature);
    DoEvents();

    Operation("Backup file");
    const std::string name = GetBackupFileName(content.signature);
    const std::string target = CStore::StorePath(m_backupPath, name);

    Operation("Is zero length?");
    if (size <= 0 || content.length == 0) {
        Log(2, "Skipping " + path + ". Zero length file");
        ++m_tally.empty;
        return;
    }

    Operation("Already backed up?");
    // One look at the store file tells whether it exists and its size; a worker that found it
    // there looked already (one that did not may have looked before an earlier file stored it).
    const double targetSize = prepared.SignedAhead() && prepared.storedSize
                                  ? *prepared.storedSize
                                  : m_store.StoredSize(content.signature);
    if (targetSize >= 0) {
        Operation("Check if 2 files have same MD5");
        if (Logger().LogLevel() >= 3) {
            Log(3, "File size: " + NumText(FSGetFileSize(path)));
            Log(3, "File size: " + NumText(targetSize));
        }
        // Only stored content of another length than the content signed is a collision; the
        // source itself may have changed since it was signed.
        if (static_cast<double>(content.length) != targetSize) ReportCollision(path, target);
        Log(2, "File already in backup collection");
        stored = true;
        if (++m_duplicates > kMaxListEntries) Raise(err::kSubscript);
        m_duplicateBytes += size;
        // Only a log that keeps level 2 lines writes the list at the run's end.
        if (fileLines) m_duplicateList.push_back("Duplicate: " + path);
    } else {
        Operation("Enough disk space?");
        // Staged content is on the backup drive already.
        if (!prepared.staged && FSGetFreeDiskSpace(m_backupDrive) <= size) {
            Log(1, "Insufficient disk space on backup drive");
            // The stored flag of an earlier file still records this one (intended).
            (stored ? m_problems.recordedNotStored : m_problems.notStored)
                .push_back(path + ": not enough free space on the backup drive");
        } else {
            StoreNew(path, content, target, name, prepared, stored);
            if (!stored) return;
            if (content.length == 0) {
                Log(2, "Skipping " + path + ". Zero length file");
                ++m_tally.empty;
                return;
            }
            ++m_tally.added;
            m_tally.addedBytes += static_cast<int64_t>(content.length);
        }
    }

    if (stored) {
        // The row describes what the store holds: the signature and length of the content
        // stored for the file (a file that changed during the run was stored as copied).
        Operation("AddBackupRecord");
        // `target` is the place of the content signed, unless the copy stored other content.
        const bool signedStored = name.size() == content.signature.size() + 4 &&
                                  name.compare(0, content.signature.size(), content.signature) == 0;
        m_db.AddBackupRecord(m_bid, content.signature, path,
                             signedStored ? target : m_store.Target(content.signature),
                             NumTextSigned(static_cast<double>(content.length)));
        // The stamp vouches only for the content that the worker signed.
        if (m_quick && prepared.SignedAhead() && content == prepared.content)
            m_quick->Note(path, prepared.stamp, content, prepared.kept);
        DoEvents();
    }
}

void CBackup::StoreNew(const std::string& path, SignedContent& content, const std::string& target,
                       const std::string& name, CSignatureAhead::Prepared& prepared, bool& stored) {
    // The store makes the folders of the place where it puts the content.
    Operation("Make backup");
    const std::string legacy = FSBuildPath(m_backupPath, name);
    Log(2, "COP: " + path);
    StoreFailure problem = CStore::CopyFailure({});
    if (m_store.HoldsLegacy(FSGetNamePart(legacy)) && FSFileExists(legacy)) {
        // Content left in the earlier flat layout is moved into its folder instead of copied.
        stored = m_store.CreateFolders(target, &problem) && m_store.MoveLegacy(legacy, target);
    } else if (prepared.failedCopy) {
        // A worker's copy failed after all its tries: reported as the run's own copy would be,
        // unless the store folder itself went away (a drive pulled out), which stops the run.
        m_store.CheckIdentity();
        for (const auto& [level, line] : prepared.failedCopy->lines)
            Log(level, line);
        stored = FSCopyEnded(path, prepared.failedCopy->outcome);
        problem = CStore::CopyFailure(prepared.failedCopy->outcome);
    } else if (prepared.staged) {
        for (const auto& [level, line] : prepared.copyLines)
            Log(level, line);
        stored = m_store.Place(*prepared.staged, target, problem);
    } else {
        const SignedContent copied = m_store.Copy(path, target, problem);
        stored = !copied.signature.empty();
        if (stored && copied.signature != content.signature) {
            Log(1, "File changed while it was backed up: " + path);
            Log(2, "MD5: " + copied.signature);
        }
        if (stored) content = copied;
    }
    if (!stored) {
        Log(1, "Failed to copy. Disk could be full");
        m_problems.notStored.push_back(path + ": " + problem.cause);
        DoEvents();
        return;
    }
    DoEvents();

    if (m_verify) {
        Log(2, "VER: " + path);
        Operation("Verify backup file");
        const std::string backupFile = m_store.Target(content.signature);
        if (MD5File(backupFile) != content.signature) {
            Log(1, path + " failed verification");
            FSDeleteFile(backupFile);
        }
    }
}

void CBackup::ReportCollision(const std::string& path, const std::string& target) {
    Log(1, "WARNING: two different files share one MD5 signature");
    Log(1, path);
    Log(1, target);
    Log(1, "These two files have the same MD5 and are different");
    MsgBox(std::string("Woah! MD5 signature found 2 different files with same signature. ") +
               "Please send both files to " + kSupportAddress +
               " so that we can look into it: " + "'" + path + "' and '" + target,
           mb::kCritical | mb::kOKOnly, "QRV");
}

void CBackup::ReportBytes(uint64_t done, bool now) {
    if (!OnBytesProgress) return;
    const uint32_t tick = CMMTimer::Now();
    if (!now && tick - m_bytesReported < kBytesEveryMs) return;
    m_bytesReported = tick;
    OnBytesProgress(std::min(done, m_totalBytes), m_totalBytes);
}

float CBackup::Rate() {
    // Bytes per second since the run began; a run younger than the clock's millisecond
    // resolution counts as one millisecond old.
    const double elapsed = m_timer.ElapsedTime();
    return static_cast<float>(m_bytes / (elapsed < 0.001 ? 0.001 : elapsed));
}

void CBackup::LogTotals() {
    Log(1, "Total Files : " + FormatGrouped(m_filesFound));
    Log(1, "Tot Filesize: " + FormatGrouped(m_bytes));
    Log(1, "Fil not copd: " + FormatGrouped(m_duplicates));
    Log(1, "Siz not copd: " + FormatGrouped(m_duplicateBytes));
    const double elapsed = m_timer.ElapsedTime();
    Log(1, "Elapsed time: " + FormatElapsed(ToInt32(elapsed)));
    const double megabytes = Divide(Divide(m_bytes, elapsed), kDisplayMegabyte);
    Log(1, "Throughput  : " + NumText(RoundHalfEven(megabytes, 2)) + " MB/s");
}
