#pragma once

// The last backup, as the Backup tab's line "Last backup: ..." tells it: every run, from the
// window or unattended, and every unattended start that could not run (the drive not ready),
// writes at its end a small record in the user's state folder ("last-backup"), so that it is
// known also while the backup drive is away. The record keeps when the last run ended and how
// (completed, completed with N problems, failed with its reason) and when the last run that
// completed ended. A line whose last completed run is older than 7 days, or that has none,
// is a warning: "No backup for N days".

#include <ctime>
#include <string>

class CRunOutcome;

struct LastBackup {
    enum class Outcome { kNone, kCompleted, kProblems, kFailed };
    std::time_t ended = 0;
    Outcome outcome = Outcome::kNone;
    int problems = 0;
    std::string reason;            // kFailed: why
    std::time_t lastCompleted = 0; // 0: none ever
};

// The record as it stands; an outcome of kNone when there is none (or it cannot be read).
LastBackup ReadLastBackup();
// A run over all sources ended at `now` with `outcome` (a lost run is a failed one).
void RecordRunEnd(const CRunOutcome& outcome, std::time_t now);
// An unattended start that could not run ended at `now`: `reason` says why.
void RecordRunFailed(const std::string& reason, std::time_t now);

struct LastBackupLine {
    std::string text;
    bool warning = false; // shown in the palette's warning colour
};
// "Last backup: 26/11/2026 21:30:00, completed" (", completed with 3 problems", ", failed: ...");
// "Last backup: none yet" without a record; ". No backup for N days" after it when the last
// completed run ended more than 7 days before `now`.
LastBackupLine LastBackupText(const LastBackup& last, std::time_t now);

inline constexpr int kBackupOverdueDays = 7;
