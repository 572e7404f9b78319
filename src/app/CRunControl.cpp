#include "app/CRunControl.h"

#include "app/CBackupFolderLock.h"
#include "app/modLastBackup.h"
#include "app/modOwedRun.h"
#include "app/modPaths.h"
#include "app/modRetention.h"
#include "support/CProcTrap.h"
#include "support/modNumText.h"
#include "support/modServices.h"
#include "support/modText.h"
#include "support/modYield.h"

#include <algorithm>
#include <ctime>

namespace {
constexpr double kDisplayMegabyte = 1024000.0;
constexpr const char* kCancel = "Cancel";

} // namespace

std::string FailureSummary(int32_t lost) {
    return "Backup failed: the run of " + NumText(lost) + (lost == 1 ? " source" : " sources") +
           " was lost";
}

std::string BackupSummary(double totalBytes, int32_t seconds) {
    const double megabytes = RoundHalfEven(totalBytes / kDisplayMegabyte, 2);
    return "Backup Complete. " + FormatGrouped(megabytes) + "MB in " + FormatElapsed(seconds);
}

CRunControl::CRunControl(std::vector<std::string> sources, BackupOptions options)
    : m_sources(std::move(sources)), m_options(std::move(options)) {
    ShowLastBackup();
}

void CRunControl::ShowLastBackup() {
    const LastBackupLine line = LastBackupText(ReadLastBackup(), std::time(nullptr));
    m_view.lblLastBackup = line.text;
    m_view.lastBackupWarning = line.warning;
}

void CRunControl::Inputs(std::vector<std::string> sources, BackupOptions options) {
    m_sources = std::move(sources);
    m_options = std::move(options);
}

void CRunControl::Changed() {
    if (OnViewChanged) OnViewChanged(m_view);
}

void CRunControl::cmdBackup_Click() {
    CProcTrap trap("cmdBackup_Click");
    try {
        trap.Check();
        if (m_running)
            RequestCancel();
        else
            StartRun();
    } catch (...) {
        const std::string error = CurrentRuntimeError().Description();
        trap.Handle();
        if (m_running && m_finishing && m_outcome.LostSources() == 0) {
            // Every source's run was committed before the end failed: nothing was lost.
            m_outcome.EndFailed(error);
            try {
                LogProblems();
            } catch (...) {
                // a log that cannot be written (its drive gone) keeps the problems from it only
            }
            SetIdle();
        } else if (m_running) {
            // The sources after the one that met the error were not backed up.
            m_outcome.Stopped(error);
            for (size_t row = m_row + 1; row < m_sources.size(); ++row)
                m_outcome.SourceSkipped(m_sources[row], "the run stopped before it");
            try {
                LogProblems();
            } catch (...) {
                // a log that cannot be written (its drive gone) keeps the problems from it only
            }
            SetIdle();
        }
    }
}

void CRunControl::LogProblems() {
    for (const std::string& line : m_outcome.Lines())
        Log(1, kProblemMark + line);
}

void CRunControl::RequestCancel() {
    m_view.lblSource = "Cancel requested. Stopping...";
    Changed();
    Log(1, m_view.lblSource);
    m_bkup->Cancel();
    DoEvents();
    ClosingSteps();
}

void CRunControl::StartRun() {
    // A run holds its backup folder: no other program backs it up or compacts it meanwhile.
    CBackupFolderLock lock;
    if (!LockBackupFolder(lock)) return;
    m_totalBytes = 0;
    m_outcome.Clear();
    m_tallies.clear();
    m_row = 0;
    m_running = true;
    m_finishing = false;
    m_view.sourceButtonsEnabled = false;
    m_view.tabsEnabled = false;
    m_view.cmdBackupCaption = kCancel;
    m_view.cmdBackupToolTip = "Cancel backup in progress";
    Changed();
    Logger().BlankLine();
    Log(1, "Backup started");

    m_bkup = std::make_unique<CBackup>();
    m_sourceBytes.assign(m_sources.size(), 0);
    m_bkup->OnStart = [this](int32_t count) { Bkup_Start(count); };
    m_bkup->OnFileProgress = [this](int32_t done, float rate) { Bkup_FileProgress(done, rate); };
    m_bkup->OnFinish = [this](double bytes) { Bkup_Finish(bytes); };
    m_bkup->OnBytesProgress = [this](uint64_t done, uint64_t total) {
        Bkup_BytesProgress(done, total);
    };
    m_timer = std::make_unique<CMMTimer>();
    m_timer->StartTimer();

    CBackup::Result result = CBackup::Result::kEmpty;
    const int32_t count = static_cast<int32_t>(m_sources.size());
    for (int32_t row = 0; row < count; ++row) {
        m_row = static_cast<size_t>(row);
        const std::string& source = m_sources[m_row];
        BackupSource(ToInt16(row), result);
        // A cancelled source gets no retention, and no further source starts.
        if (result == CBackup::Result::kCancel) break;
        if (result == CBackup::Result::kFalse)
            m_outcome.SourceSkipped(source, m_bkup->Problems().refused.empty()
                                                ? SourceProblem(source)
                                                : m_bkup->Problems().refused);
        else
            m_outcome.Add(source, m_bkup->Problems());
        int16_t limit = 0;
        try {
            limit = TextToInt16(m_options.maxBackups);
        } catch (...) {
            m_outcome.LimitInvalid(m_options.maxBackups);
            throw; // the conversion error of the limit ends the run
        }
        PruneSource(source, limit);
    }
    Finish(result);
}

void CRunControl::BackupSource(int16_t row, CBackup::Result& result) {
    const std::string& source = m_sources[static_cast<size_t>(row)];
    m_view.progress = 0;
    m_view.lblCount.clear();
    m_view.lblDone.clear();
    m_view.lblThruPut = "MB/s";
    m_view.lblBytes.clear();
    m_bytesStarted = false;
    m_view.selectedSource = row;
    m_bkup->Source(source);
    Logger().BlankLine();
    Log(1, "Source: " + source);
    m_view.lblSource =
        "Processing " + NumText(row + 1) + " of " + NumText(double(m_sources.size()));
    m_view.lblProcessing = source;
    Changed();
    DoEvents();

    m_bkup->IncludeHidden(m_options.hidden != 0);
    m_bkup->IncludeSystem(m_options.system != 0);
    m_bkup->Exclude(m_options.exclude);
    m_bkup->ExDirs(FoldersToExclude(m_options));
    m_bkup->BackupDB(GetDBPath());
    m_bkup->BackupPath(GetFilesPath());
    // The walk steps around the backup folder, and a source inside it is not walked at all.
    m_bkup->BackupFolder(GetBackupPath());
    m_bkup->QuickCheck(m_options.quickCheck != 0);
    result = m_bkup->Exec();
    // A source that was walked has a tally, a cancelled one none (nothing of it is kept).
    if (result == CBackup::Result::kEmpty) m_tallies.emplace_back(source, m_bkup->Tally());
}

std::string CRunControl::CompleteSummary() {
    try {
        Operation("Backup summary");
        return BackupSummary(m_totalBytes, ToInt32(m_timer->ElapsedTime()));
    } catch (...) {
        // The time text stops at 10 hours, a limit that is kept; the error is reported as
        // before, and the summary says that the backup was saved all the same.
        const CRuntimeError error = CurrentRuntimeError();
        ErrHandler().HandleError(error);
        m_outcome.EndFailed(error.Description());
        return "Backup Complete. Every run was saved; the time it took could not be shown (" +
               error.Description() + ")";
    }
}

void CRunControl::Finish(CBackup::Result result) {
    m_finishing = true; // every source that was backed up is committed by now
    m_timer->StopTimer();
    DoEvents();
    Logger().BlankLine();
    if (result == CBackup::Result::kCancel)
        m_view.lblSource = "Backup cancelled";
    else if (m_outcome.LostSources() > 0)
        m_view.lblSource = FailureSummary(m_outcome.LostSources());
    else
        m_view.lblSource = CompleteSummary();
    Changed();
    Log(1, m_view.lblSource);
    LogProblems();
    Log(1, "Backup complete");
    SetIdle();
    ClosingSteps();
}

void CRunControl::SetIdle() {
    // The run's end is kept for the line "Last backup: ..." (also for the next start).
    // A run that was made also makes a backup that was owed (modOwedRun).
    if (m_running) {
        RecordRunEnd(m_outcome, std::time(nullptr));
        PayOwedRun();
    }
    ShowLastBackup();
    m_view.sourceButtonsEnabled = true;
    m_view.tabsEnabled = true;
    m_view.cmdBackupCaption = "Backup";
    m_view.cmdBackupToolTip = "Commence backup run";
    m_running = false;
    Changed();
}

void CRunControl::ClosingSteps() {
    PurgeOldLogs();
    if (ErrHandler().DisplayMsgOnError()) {
        Logger().StopLogger();
        if (OnShowReport) OnShowReport();
        Logger().StartLogger();
    }
}

void CRunControl::Bkup_Start(int32_t fileCount) {
    m_view.lblCount = NumText(fileCount);
    Changed();
    DoEvents();
}

void CRunControl::Bkup_FileProgress(int32_t done, float bytesPerSecond) {
    m_view.lblDone = NumText(done);
    // The file count is read back from its label, the only place that keeps it.
    if (m_view.lblCount != m_countLabel) {
        m_countLabel = m_view.lblCount;
        m_count = TextToNumber(m_countLabel);
    }
    m_view.progress = ToInt32(Divide(done, m_count) * 100);
    m_view.lblThruPut =
        NumText(RoundHalfEven(double(bytesPerSecond) / kDisplayMegabyte, 2)) + " MB/s";
    Changed();
    DoEvents();
}

void CRunControl::Bkup_BytesProgress(uint64_t done, uint64_t total) {
    if (!m_bytesStarted || total != m_bytes.Total()) {
        m_bytes.Start(total);
        m_bytesStarted = true;
    }
    if (m_row < m_sourceBytes.size()) m_sourceBytes[m_row] = total;
    if (!m_bytes.Update(done)) return;
    m_view.lblBytes = m_bytes.Text();
    if (m_sourceBytes.size() > 1 && m_row + 1 == m_sourceBytes.size()) {
        uint64_t runDone = done, runTotal = 0;
        for (size_t row = 0; row < m_sourceBytes.size(); ++row) {
            runTotal += m_sourceBytes[row];
            if (row < m_row) runDone += m_sourceBytes[row];
        }
        m_view.lblBytes += "; whole run " + ByteSizeText(runDone) + " of " + ByteSizeText(runTotal);
    }
    // Nothing done yet is shown with the next change, so that the first file done is the first
    // progress the window paints.
    if (done > 0) Changed();
}

void CRunControl::Bkup_Finish(double bytes) {
    m_totalBytes += bytes;
    Log(3, "RaiseEvent: CBackup_Finish " + NumText(bytes));
}

std::vector<std::string> CommandWords(const std::string& commandLine) {
    std::vector<std::string> words;
    size_t start = 0;
    while (true) {
        const size_t blank = commandLine.find(' ', start);
        words.push_back(LowerAscii(commandLine.substr(start, blank - start)));
        if (blank == std::string::npos) break;
        start = blank + 1;
    }
    return words;
}

bool HasBackupWord(const std::string& commandLine) {
    const std::vector<std::string> words = CommandWords(commandLine);
    return std::find(words.begin(), words.end(), "backup") != words.end();
}

void CRunControl::RunUnattended(const std::string& commandLine) {
    ErrHandler().DisplayMsgOnError(false);
    for (const std::string& word : CommandWords(commandLine)) {
        if (word == "backup") {
            cmdBackup_Click();
        } else if (word == "compact") {
            Log(1, "Compacting database");
            CBackupFolderLock lock;
            if (LockBackupFolder(lock)) CompactCatalogue();
        }
    }
    Log(1, "Unattended backup complete");
}
