// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>

/// The panel's settings file, at its fixed path.
class SettingsFile
{
public:
    static QString path();

    /// Sets one key, named "Group/Key"; `text` is written to the file unchanged.
    SettingsFile& set(const char* name, const QString& text);
    SettingsFile& set(const char* name, const char* text) { return set(name, QString::fromUtf8(text)); }
    /// Writes the keys that were set, replacing the file. False when it cannot be written.
    [[nodiscard]] bool write() const;

    /// Replaces the file's contents by `octets`.
    [[nodiscard]] static bool writeRaw(const QByteArray& octets);
    /// Removes the file, or the empty directory in its place.
    static void remove();

private:
    QMap<QString, QMap<QString, QString>> groups;
};
