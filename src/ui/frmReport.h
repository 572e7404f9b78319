#pragma once

// The report shown after a run, modeless: the current log file in a read-only text box
// (txtReport), with OKButton to close it. The caller stops the logger before it opens the
// report, so the file is complete; a log that cannot be read is reported by the error handler.
// Above the log, what the run did in a few lines (txtSummary), when there is a summary.

#include <QDialog>

#include <string>
#include <vector>

class QPlainTextEdit;

class frmReport : public QDialog {
    Q_OBJECT

public:
    explicit frmReport(const QString& logFile, QWidget* parent = nullptr);
    // Reads the log file again into the open report (its load, once more).
    void Reload(const QString& logFile);
    // Shows `lines` above the log; none hides the summary.
    void Summary(const std::vector<std::string>& lines);

    // The report as it was read: every line of the log followed by CR LF.
    const std::string& Text() const { return m_text; }

private:
    std::string m_text;
    QPlainTextEdit* txtSummary;
    QPlainTextEdit* txtReport;
};
