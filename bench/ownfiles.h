// SPDX-License-Identifier: MIT
#pragma once

#include <QSet>
#include <QString>

#include "subject.h"

namespace VarnelBench {

/// Copies of the libraries and plug-ins that programs map, and of the programs. A program that runs from them
/// shares no memory with other processes of the machine, as on a panel, where nothing else uses a web engine.
/// They can also be dropped from the kernel's cache, which keeps files that other processes have mapped.
class OwnFiles
{
    Q_DISABLE_COPY_MOVE(OwnFiles)

public:
    /// Keeps the copies in `directory`, which must be on a disk.
    explicit OwnFiles(QString directory);

    /// Copies all files that the process has mapped so far.
    void copyFilesOf(const Run& run);

    /// The same subject, run from copies. Its libraries have to be copied before.
    Subject alone(const Subject& subject);

    /// Drops copies, fonts and their indices from the kernel's cache.
    void dropFromCache() const;

private:
    void copyLibrary(const QString& path);
    void copy(const QString& from, const QString& to);

    QString directory;
    QSet<QString> known; ///< files met
    QSet<QString> files; ///< files to drop
};

/// The directory on a disk that "--disk DIRECTORY" names; ends this program without that option.
QString diskDirectory(const QStringList& arguments);

} // namespace VarnelBench
