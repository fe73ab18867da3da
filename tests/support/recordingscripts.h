// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>

#include <QList>
#include <QStringList>

#include "logreader.h"

/// The action of a recording script after it has recorded its run.
enum class ScriptBehaviour
{
    Succeeds,
    Fails,       ///< exit status 3
    Hangs,       ///< never ends by itself
    KillsItself, ///< ends by SIGKILL
};

/// Stand-ins for the device's scripts in the panel's default script directory, each of which appends its
/// name and its arguments to one record.
class RecordingScripts
{
public:
    /// Every script that the panel knows.
    static QStringList allNames();

    /// An empty script directory and an empty record.
    RecordingScripts();

    /// Puts the script `name` in place; false when that fails.
    [[nodiscard]] bool install(const QString& name, ScriptBehaviour behaviour = ScriptBehaviour::Succeeds);
    /// Puts all scripts in place.
    [[nodiscard]] bool installAll();
    void remove(const QString& name);
    /// Takes the executable bits away.
    void makeNotExecutable(const QString& name);

    /// Every run so far, in order: name, then arguments.
    QList<QStringList> runs() const;
    /// The same as one text each: name and arguments separated by a blank.
    QStringList runLines() const;
    /// The runs of the script `name`, in order, without the name.
    QList<QStringList> runsOf(const QString& name) const;
    /// Waits until there are at least `count` runs.
    [[nodiscard]] bool awaitRuns(int count, std::chrono::milliseconds limit = patience) const;
    /// Forgets the runs so far.
    void clear();
};
