// SPDX-License-Identifier: MIT
#include "downloadname.h"

#include <QDateTime>
#include <QFileInfo>
#include <QTextCodec>
#include <QUrl>

#include "logline.h"

namespace Varnel {

namespace {

QString fromHeader(const QByteArray& octets)
{
    QTextCodec::ConverterState state;
    QString text = QTextCodec::codecForName("UTF-8")->toUnicode(octets.constData(), octets.size(), &state);
    return state.invalidChars + state.remainingChars == 0
               ? text
               : QString::fromLatin1(octets.constData(), octets.size());
}

/// True for a link to nowhere too, which opening would follow.
bool isTaken(const QDir& drive, const QString& name)
{
    const QFileInfo info(pathOnDrive(drive, name));
    return info.exists() || info.isSymLink();
}

} // namespace

QString headerFileName(const QByteArray& contentDisposition)
{
    const QLatin1String key("filename=");
    const QString header = fromHeader(contentDisposition);
    QString name;
    for (const QString& part : header.split(QLatin1Char(';'), Qt::SkipEmptyParts)) {
        const QString trimmed = part.trimmed();
        if (trimmed.startsWith(key)) {
            name = trimmed.mid(key.size());
        }
    }
    return name;
}

QString downloadFileName(const QByteArray& contentDisposition, const QUrl& url)
{
    QString name = headerFileName(contentDisposition);
    if (name.isEmpty()) {
        name = QFileInfo(url.path()).fileName();
    }
    if (name.isEmpty()) {
        name = QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-hhmmss"));
        logStamped(QStringLiteral("No filename specified, using '%1'").arg(name));
    }
    return name;
}

bool staysOnDrive(const QString& name)
{
    return !name.contains(QLatin1Char('/')) && !name.contains(QChar(u'\0')) && name != QLatin1String("..");
}

QString pathOnDrive(const QDir& drive, const QString& name)
{
    // A colon in front is taken for a resource of the program, whose path would count as absolute.
    return name.startsWith(QLatin1Char(':')) ? drive.absolutePath() + QLatin1Char('/') + name
                                             : drive.absoluteFilePath(name);
}

QString freeFileName(const QDir& drive, const QString& name)
{
    if (!staysOnDrive(name) || !isTaken(drive, name)) {
        return name;
    }
    const QFileInfo parts(pathOnDrive(drive, name));
    QString candidate;
    int n = 0;
    do {
        candidate =
            QStringLiteral("%1-%2.%3").arg(parts.completeBaseName(), QString::number(++n), parts.suffix());
    } while (isTaken(drive, candidate));
    return candidate;
}

} // namespace Varnel
