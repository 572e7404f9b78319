#pragma once

// The window's side of a backup run, without the window: the Backup button that starts a run
// over all sources or, while one is going, asks it to cancel; the engine's three events; the
// labels, progress and totals the window shows (exposed as RunView for an observer); retention
// after each source; and the unattended words of the command line.
//
// Everything runs on one thread. A Cancel click arrives by re-entry: the window's event
// processing (the yield hook) calls cmdBackup_Click while Exec is running.

#include "app/CRunOutcome.h"
#include "app/modOptions.h"
#include "app/modRunSummary.h"
#include "engine/CBackup.h"
#include "support/CByteProgress.h"
#include "support/CMMTimer.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

// What the window shows of a run.
struct RunView {
    std::string lblSource;
    std::string lblProcessing;
    std::string lblCount;
    std::string lblDone;
    std::string lblThruPut;
    int32_t progress = 0; // XP_PB1, 0 to 100
    // lblBytes, under the progress bar: the source's bytes done of its total and, after the
    // first seconds, the time left ("1.4 GB of 3.0 GB, about 2 minutes left"); "" until known.
    // Of several sources, the last adds the whole run's, all their totals being known then
    // ("...; whole run 3.1 GB of 4.7 GB").
    std::string lblBytes;
    std::string cmdBackupCaption = "Backup";
    std::string cmdBackupToolTip = "Commence backup run";
    bool sourceButtonsEnabled = true; // cmdAddSrc, cmdRemove
    bool tabsEnabled = true;          // tabs 1 and 2
    int32_t selectedSource = -1;      // the row of lstSources being backed up
    // lblLastBackup: when the last run ended and how (modLastBackup), a warning when overdue.
    std::string lblLastBackup;
    bool lastBackupWarning = false;
    bool operator==(const RunView&) const = default;
};

class CRunControl {
public:
    CRunControl(std::vector<std::string> sources, BackupOptions options);

    // What the next run backs up, and with which options (the window reads its controls anew
    // before every run).
    void Inputs(std::vector<std::string> sources, BackupOptions options);

    // Starts a run when none is going; requests cancellation when one is.
    void cmdBackup_Click();
    // Performs the words of a non-empty command line ("backup", "compact", any case).
    void RunUnattended(const std::string& commandLine);

    void Bkup_Start(int32_t fileCount);
    void Bkup_FileProgress(int32_t done, float bytesPerSecond);
    void Bkup_Finish(double bytes);
    // Beside the three: the source's bytes done of its total (CBackup::OnBytesProgress), shown
    // at most 5 times a second.
    void Bkup_BytesProgress(uint64_t done, uint64_t total);

    bool Running() const { return m_running; }
    double TotalBytes() const { return m_totalBytes; }
    const RunView& View() const { return m_view; }
    // How the last run ended, problem by problem.
    const CRunOutcome& Outcome() const { return m_outcome; }
    // What the last run did, in a few lines for the top of its report (modRunSummary); none
    // when no source was backed up.
    std::vector<std::string> SummaryLines() const { return RunSummaryLines(m_tallies); }

    // Called after every change of the view.
    std::function<void(const RunView&)> OnViewChanged;
    // Shows the run's report (the current log file); the logger is stopped meanwhile.
    std::function<void()> OnShowReport;

private:
    void StartRun();
    void RequestCancel();
    void BackupSource(int16_t row, CBackup::Result& result);
    void Finish(CBackup::Result result);
    // The summary of a run that lost nothing; one whose time cannot be shown says it was saved.
    std::string CompleteSummary();
    void SetIdle();
    void ShowLastBackup();
    // Each problem of the run as a "Problem: " line of the log, which keeps the day's log
    // from the purge.
    void LogProblems();
    void ClosingSteps();
    void Changed();

    std::vector<std::string> m_sources;
    BackupOptions m_options;
    bool m_running = false;
    bool m_finishing = false; // past the last source: an error now loses no run
    double m_totalBytes = 0;
    // The file count as last read back from its label, so that the label is parsed once.
    std::string m_countLabel;
    double m_count = 0;
    std::unique_ptr<CBackup> m_bkup;
    std::unique_ptr<CMMTimer> m_timer;
    RunView m_view;
    CByteProgress m_bytes;
    bool m_bytesStarted = false;
    CRunOutcome m_outcome;
    std::vector<std::pair<std::string, RunTally>> m_tallies; // of the sources backed up
    size_t m_row = 0;                                        // the source being backed up
    std::vector<uint64_t> m_sourceBytes; // each source's total, once its walk has told it
};

// The summary of a run in which `lost` sources were not recorded.
std::string FailureSummary(int32_t lost);

// The summary line of a complete run: "Backup Complete. " + megabytes (1,024,000 bytes,
// "###,###,###", nothing for 0) + "MB in " + hh:mm:ss.
std::string BackupSummary(double totalBytes, int32_t seconds);

// The words of a command line, split at blanks, in lower case, as RunUnattended reads them.
std::vector<std::string> CommandWords(const std::string& commandLine);
// Whether one of them is "backup".
bool HasBackupWord(const std::string& commandLine);
