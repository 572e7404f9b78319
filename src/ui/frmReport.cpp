#include "ui/frmReport.h"

#include "app/modReport.h"
#include "support/CProcTrap.h"
#include "ui/modFileNames.h"

#include <QFontDatabase>
#include <QFontMetrics>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTextCursor>
#include <QTextDocument>
#include <QVBoxLayout>

#include <algorithm>

frmReport::frmReport(const QString& logFile, QWidget* parent) : QDialog(parent) {
    setObjectName(QStringLiteral("frmReport"));
    setWindowTitle(tr("Backup report"));
    txtSummary = new QPlainTextEdit(this);
    txtSummary->setObjectName(QStringLiteral("txtSummary"));
    txtSummary->setAccessibleName(tr("What the backup did"));
    txtSummary->setReadOnly(true);
    txtSummary->setLineWrapMode(QPlainTextEdit::WidgetWidth);
    txtSummary->hide();
    txtReport = new QPlainTextEdit(this);
    txtReport->setObjectName(QStringLiteral("txtReport"));
    txtReport->setAccessibleName(tr("Report"));
    txtReport->setReadOnly(true);
    txtReport->setLineWrapMode(QPlainTextEdit::NoWrap);
    txtReport->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    auto* ok = new QPushButton(tr("OK"), this);
    ok->setObjectName(QStringLiteral("OKButton"));
    ok->setDefault(true);
    connect(ok, &QPushButton::clicked, this, &QDialog::accept);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(txtSummary);
    layout->addWidget(txtReport, 1);
    layout->addWidget(ok, 0, Qt::AlignRight);
    resize(720, 480);
    Reload(logFile);
}

void frmReport::Summary(const std::vector<std::string>& lines) {
    QStringList shown;
    for (const std::string& line : lines)
        shown << QString::fromUtf8(line.data(), static_cast<qsizetype>(line.size()));
    txtSummary->setPlainText(shown.join(QLatin1Char('\n')));
    // As many lines as it holds, up to eight; more scroll.
    const int rows = std::min<int>(static_cast<int>(lines.size()), 8);
    const QFontMetrics metrics(txtSummary->font());
    txtSummary->setFixedHeight(metrics.lineSpacing() * rows + 2 * txtSummary->frameWidth() +
                               static_cast<int>(txtSummary->document()->documentMargin() * 2));
    txtSummary->setVisible(!lines.empty());
}

void frmReport::Reload(const QString& logFile) {
    m_text.clear();
    CProcTrap trap("frmReport Form_Load");
    try {
        trap.Check();
        m_text = ReportText(NameBytes(logFile));
    } catch (...) {
        trap.Handle();
    }
    QString shown = QString::fromUtf8(m_text.data(), static_cast<qsizetype>(m_text.size()));
    shown.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
    txtReport->setPlainText(shown);
    txtReport->moveCursor(QTextCursor::End); // the run just made is at the end
}
