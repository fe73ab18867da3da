// SPDX-License-Identifier: MIT
#include "helpers.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QFile>
#include <QLocale>
#include <QMutex>
#include <QWaitCondition>

#include "logline.h"

namespace Varnel {

bool Helpers::echo(const QString& path, const QString& text)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        logCriticalLine(QStringLiteral("Error opening file '%1'").arg(path));
        return false;
    }
    file.write(text.toLatin1());
    file.close();
    return true;
}

bool Helpers::echo(const QString& path, int value)
{
    return echo(path, QString::number(value));
}

QString Helpers::now()
{
    // QDateTime::toString() would use the digits of the system's locale, which a Latin-1 line cannot hold.
    return QLocale::c().toString(QDateTime::currentDateTime(), QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz"));
}

void Helpers::sleep(int milliseconds)
{
    // No thread signals the condition, so the wait ends with its time-out.
    QMutex mutex;
    QWaitCondition never;
    mutex.lock();
    never.wait(&mutex, static_cast<unsigned long>(qMax(0, milliseconds)));
    mutex.unlock();
}

QByteArray Helpers::calculateHash(const QByteArray& data)
{
    return QCryptographicHash::hash(data, QCryptographicHash::Md5);
}

QByteArray Helpers::calculateFileHash(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    return calculateHash(file.readAll());
}

} // namespace Varnel
