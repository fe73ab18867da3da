// SPDX-License-Identifier: MIT
#pragma once

#include <QFile>
#include <QMap>

#include "literals.h"

/// The panel's settings file, at its fixed path.
class SettingsFile
{
public:
    /// Sets one key, named "Group/Key"; `text` is written to the file unchanged.
    SettingsFile& set(const char* name, const QString& text)
    {
        values[QString::fromLatin1(name)] = text;
        return *this;
    }
    SettingsFile& set(const char* name, const char* text) { return set(name, QString::fromUtf8(text)); }
    /// Writes the keys that were set, replacing the file. False when it cannot be written.
    [[nodiscard]] bool write() const
    {
        QByteArray text;
        for (auto value = values.cbegin(); value != values.cend(); ++value) {
            const QString group = value.key().section(QLatin1Char('/'), 0, 0);
            text += "[%1]\n%2=%3\n"_s.arg(group, value.key().mid(group.size() + 1), *value).toUtf8();
        }
        QFile file(path);
        return file.open(QIODevice::WriteOnly) && file.write(text) == text.size();
    }

    static void remove() { QFile::remove(path); }

private:
    inline static const QString path = "/usr/local/etc/varnel-browser.ini"_s;

    QMap<QString, QString> values;
};
