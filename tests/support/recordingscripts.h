// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArrayList>
#include <QStringList>

#include "logreader.h"

/// Stand-ins for the device's scripts, each of which appends its name and its arguments to one record.
class RecordingScripts
{
public:
    /// Every script that the panel knows.
    static QStringList allNames();

    /// Removes the panel's scripts from the directory, and the record.
    explicit RecordingScripts(const QString& scriptDirectory = "/usr/local/bin"_s);

    QString path(const QString& name) const { return directory + QLatin1Char('/') + name; }
    /// Puts the script `name` in place; after the record it runs the shell's `commands`. False when that
    /// fails.
    [[nodiscard]] bool install(const QString& name, const QByteArray& commands = {}) const;
    /// Puts all scripts in place.
    [[nodiscard]] bool installAll() const;
    void remove(const QString& name) const;

    /// Every run so far, in order: name, then arguments, as the octets that arrived.
    QList<QByteArrayList> calls() const;
    /// The same as one text each: name and arguments separated by a blank.
    QStringList runLines() const;
    /// The arguments of each run of the script `name`, as one text each.
    QStringList argumentsOf(const QString& name) const;
    /// Waits until there are at least `count` runs.
    [[nodiscard]] bool awaitRuns(int count) const;
    /// Forgets the runs so far.
    void clear() const;

private:
    QString record() const { return path(".runs"_s); }

    QString directory;
};
