// SPDX-License-Identifier: MIT
#include "settingsfile.h"

#include <QDir>
#include <QFile>

QString SettingsFile::path()
{
    return QStringLiteral("/usr/local/etc/varnel-browser.ini");
}

SettingsFile& SettingsFile::set(const char* name, const QString& text)
{
    const QString key = QString::fromLatin1(name);
    groups[key.section(QLatin1Char('/'), 0, 0)][key.section(QLatin1Char('/'), 1)] = text;
    return *this;
}

bool SettingsFile::write() const
{
    QString text;
    for (auto group = groups.cbegin(); group != groups.cend(); ++group) {
        text += QLatin1Char('[') + group.key() + QLatin1String("]\n");
        for (auto key = group->cbegin(); key != group->cend(); ++key) {
            text += key.key() + QLatin1Char('=') + key.value() + QLatin1Char('\n');
        }
    }
    return writeRaw(text.toUtf8());
}

bool SettingsFile::writeRaw(const QByteArray& octets)
{
    QFile file(path());
    return file.open(QIODevice::WriteOnly) && file.write(octets) == octets.size();
}

void SettingsFile::remove()
{
    if (!QFile::remove(path())) {
        QDir().rmdir(path());
    }
}
