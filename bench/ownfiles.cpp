// SPDX-License-Identifier: MIT
#include "ownfiles.h"

#include <fcntl.h>
#include <unistd.h>

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QtDebug>

namespace VarnelBench {

namespace {

const QString plugins = QStringLiteral("/qt5/plugins/");

QStringList mappedFiles(const Run& run)
{
    QFile file(QStringLiteral("/proc/%1/maps").arg(run.pid()));
    if (!file.open(QIODevice::ReadOnly)) {
        qFatal("cannot read the maps of a process");
    }
    QStringList result;
    const QList<QByteArray> lines = file.readAll().split('\n');
    for (const QByteArray& line : lines) {
        const int path = line.indexOf('/');
        if (path > 0 && !line.endsWith(" (deleted)")) {
            result.append(QFile::decodeName(line.mid(path)));
        }
    }
    result.removeDuplicates();
    return result;
}

} // namespace

OwnFiles::OwnFiles(QString directory)
    : directory(std::move(directory))
{
}

void OwnFiles::copyFilesOf(const Run& run)
{
    const QStringList mapped = mappedFiles(run);
    for (const QString& path : mapped) {
        if (known.contains(path)) {
            continue;
        }
        known.insert(path);
        if (path.contains(plugins)) {
            copy(path, directory + QLatin1String("/plugins/") + path.section(plugins, 1));
        } else if (path.contains(QLatin1String(".so"))) {
            copyLibrary(path);
        } else if (path.startsWith(QLatin1String("/usr/share/")) ||
                   path.startsWith(QLatin1String("/var/cache/"))) {
            files.insert(path);
        }
    }
}

/// Copies a library with the links by which it is found. Those in directories of their own are not looked up
/// by name, so they stay where they are.
void OwnFiles::copyLibrary(const QString& path)
{
    const QFileInfo library(path);
    if (library.dir().exists(QStringLiteral("libc.so.6"))) {
        const QString target = directory + QLatin1String("/lib/") + library.fileName();
        copy(path, target);
        const QString stem = library.fileName().section(QLatin1String(".so"), 0, 0) + QLatin1String(".so*");
        QDirIterator names(library.path(), {stem}, QDir::Files);
        while (names.hasNext()) {
            names.next();
            if (names.fileInfo().isSymLink() && names.fileInfo().canonicalFilePath() == path) {
                QFile::link(library.fileName(), directory + QLatin1String("/lib/") + names.fileName());
            }
        }
    }
}

void OwnFiles::copy(const QString& from, const QString& to)
{
    if (files.contains(to)) {
        return;
    }
    QFile file(to);
    if (!QDir().mkpath(QFileInfo(to).path()) || !QFile::copy(from, to) || !file.open(QIODevice::ReadOnly) ||
        ::fsync(file.handle()) != 0) {
        qFatal("cannot copy %s to the disk", qPrintable(from));
    }
    files.insert(to);
}

Subject OwnFiles::alone(const Subject& subject)
{
    Subject result = subject;
    QString& program = result.command.first();
    const QString own = directory + QLatin1String("/bin/") + QFileInfo(program).fileName();
    copy(program, own);
    program = own;
    result.environment += {QLatin1String("LD_LIBRARY_PATH=") + directory + QLatin1String("/lib"),
                           QLatin1String("QT_PLUGIN_PATH=") + directory + QLatin1String("/plugins")};
    return result;
}

void OwnFiles::dropFromCache() const
{
    for (const QString& path : files) {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly) ||
            ::posix_fadvise(file.handle(), 0, 0, POSIX_FADV_DONTNEED) != 0) {
            qFatal("cannot drop %s from the cache", qPrintable(path));
        }
    }
}

QString diskDirectory(const QStringList& arguments)
{
    const int option = arguments.indexOf(QLatin1String("--disk"));
    QString directory = option >= 0 ? arguments.value(option + 1) : QString();
    if (directory.isEmpty()) {
        qFatal("--disk DIRECTORY is missing");
    }
    return directory;
}

} // namespace VarnelBench
