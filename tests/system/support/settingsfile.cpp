// SPDX-License-Identifier: MIT
#include "settingsfile.h"

#include <QDir>
#include <QFile>

namespace VarnelTest {

QString SettingsFile::path()
{
    return QStringLiteral("/usr/local/etc/varnel-browser.ini");
}

SettingsFile& SettingsFile::set(const QString& name, const QString& text)
{
    const int slash = name.indexOf(QLatin1Char('/'));
    groups[name.left(slash)][name.mid(slash + 1)] = text;
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

} // namespace VarnelTest
