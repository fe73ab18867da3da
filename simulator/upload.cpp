// SPDX-License-Identifier: MIT
#include "upload.h"

#include <QDir>
#include <utility>

namespace Simulator {

QString safeFileName(const QString& name)
{
    QString safe = name.section(QLatin1Char('/'), -1).section(QLatin1Char('\\'), -1);
    for (QChar& character : safe) {
        if (character.unicode() < 0x20 || character.unicode() == 0x7F) {
            character = QLatin1Char('_');
        }
    }
    const bool nameless = safe.isEmpty() || safe == QLatin1String(".") || safe == QLatin1String("..");
    return nameless ? QStringLiteral("unnamed") : safe;
}

Upload::Upload(QString formField, const QString& sentName, const QString& directory)
    : field(std::move(formField))
    , name(sentName)
{
    if (directory.isEmpty()) {
        return;
    }
    file = std::make_unique<QSaveFile>(QDir(directory).absoluteFilePath(safeFileName(sentName)));
    file->open(QIODevice::WriteOnly); // finish() reports a failure from the file's error
}

void Upload::append(const char* octets, qint64 count)
{
    size += count;
    digest.addData(octets, static_cast<int>(count));
    if (file && file->isOpen()) {
        file->write(octets, count);
    }
}

QJsonObject Upload::finish()
{
    QJsonObject result{{QStringLiteral("field"), field},
                       {QStringLiteral("name"), name},
                       {QStringLiteral("size"), static_cast<double>(size)},
                       {QStringLiteral("md5"), QString::fromLatin1(digest.result().toHex())}};
    if (!file) {
        return result;
    }
    result.insert(QStringLiteral("stored"), file->fileName());
    if (!file->isOpen() || !file->commit()) {
        result.insert(QStringLiteral("error"), file->errorString());
    }
    return result;
}

} // namespace Simulator
