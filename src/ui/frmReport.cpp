#include "ui/frmReport.h"

#include "app/modReport.h"
#include "support/CProcTrap.h"

#include <QFile>
#include <QFontDatabase>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTextCursor>
#include <QVBoxLayout>

frmReport::frmReport(const QString& logFile, QWidget* parent) : QDialog(parent) {
    setObjectName(QStringLiteral("frmReport"));
    setWindowTitle(tr("Backup report"));
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
    layout->addWidget(txtReport);
    layout->addWidget(ok, 0, Qt::AlignRight);
    resize(720, 480);
    Reload(logFile);
}

void frmReport::Reload(const QString& logFile) {
    m_text.clear();
    CProcTrap trap("frmReport Form_Load");
    try {
        trap.Check();
        m_text = ReportText(QFile::encodeName(logFile).toStdString());
    } catch (...) {
        trap.Handle();
    }
    QString shown = QString::fromUtf8(m_text.data(), static_cast<qsizetype>(m_text.size()));
    shown.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
    txtReport->setPlainText(shown);
    txtReport->moveCursor(QTextCursor::End); // the run just made is at the end
}
