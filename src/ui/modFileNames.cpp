#include "ui/modFileNames.h"

#include <QByteArray>
#include <QFile>

QString ShownName(const std::string& bytes) {
    return QFile::decodeName(QByteArray::fromStdString(bytes));
}

std::string NameBytes(const QString& text) {
    return QFile::encodeName(text).toStdString();
}
