// Writes the user manual as a PDF from its text (docs/manual.md), with Qt's own document
// printing: `make_manual IN.md OUT.pdf`.

#include <QFile>
#include <QGuiApplication>
#include <QPageSize>
#include <QPdfWriter>
#include <QTextDocument>

#include <cstdio>

int main(int argc, char** argv) {
    QGuiApplication application(argc, argv);
    if (argc != 3) {
        std::fprintf(stderr, "usage: make_manual IN.md OUT.pdf\n");
        return 2;
    }
    QFile in(QString::fromLocal8Bit(argv[1]));
    if (!in.open(QIODevice::ReadOnly)) {
        std::fprintf(stderr, "cannot read %s\n", argv[1]);
        return 1;
    }
    QTextDocument manual;
    manual.setMarkdown(QString::fromUtf8(in.readAll()));
    QPdfWriter pdf(QString::fromLocal8Bit(argv[2]));
    pdf.setTitle(QStringLiteral("Stashwell user manual"));
    pdf.setCreator(QStringLiteral("Stashwell"));
    pdf.setPageSize(QPageSize(QPageSize::A4));
    pdf.setPageMargins(QMarginsF(20, 20, 20, 20), QPageLayout::Millimeter);
    manual.print(&pdf);
    return 0;
}
