// SPDX-License-Identifier: MIT
#include "processfigures.h"

#include <unistd.h>

#include <QByteArray>
#include <QDir>
#include <QFile>

namespace {

QByteArray contents(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// The number behind the first line "`name`: number".
qint64 numberOf(const QByteArray& text, const QByteArray& name)
{
    const int at = ('\n' + text).indexOf('\n' + name + ':');
    if (at < 0) {
        return 0;
    }
    const int begin = at + name.size() + 1;
    return text.mid(begin, text.indexOf('\n', begin) - begin)
        .simplified()
        .split(' ')
        .constFirst()
        .toLongLong();
}

/// The fields of a "stat" file behind the program's name, which may hold anything; the first is the state.
QList<QByteArray> statFields(const QString& directory)
{
    const QByteArray text = contents(directory + QStringLiteral("/stat"));
    return text.mid(text.lastIndexOf(')') + 2).split(' ');
}

qint64 heapOf(const QString& directory)
{
    const QByteArray text = contents(directory + QStringLiteral("/smaps"));
    const int at = text.indexOf("[heap]\n");
    return at < 0 ? 0 : numberOf(text.mid(at, 1000), "Rss");
}

int childrenOf(qint64 pid)
{
    int children = 0;
    const QStringList entries =
        QDir(QStringLiteral("/proc")).entryList({QStringLiteral("[1-9]*")}, QDir::Dirs);
    for (const QString& entry : entries) {
        children += statFields(QStringLiteral("/proc/") + entry).value(1).toLongLong() == pid ? 1 : 0;
    }
    return children;
}

void addDescriptors(const QString& directory, ProcessFigures* figures)
{
    const QDir descriptors(directory + QStringLiteral("/fd"));
    const QStringList numbers = descriptors.entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot);
    figures->descriptors = numbers.size();
    for (const QString& number : numbers) {
        QByteArray target(128, '\0');
        const QByteArray link = QFile::encodeName(descriptors.filePath(number));
        target.truncate(
            static_cast<int>(qMax(ssize_t(0), ::readlink(link.constData(), target.data(),
                                                         static_cast<std::size_t>(target.size())))));
        figures->sockets += target.startsWith("socket:") ? 1 : 0;
        figures->timerDescriptors += target.contains("timerfd") ? 1 : 0;
    }
}

void addThreads(const QString& directory, ProcessFigures* figures)
{
    const QDir tasks(directory + QStringLiteral("/task"));
    const QStringList threads = tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    figures->threads = threads.size();
    for (const QString& thread : threads) {
        const QByteArray status = contents(tasks.filePath(thread + QStringLiteral("/status")));
        figures->voluntarySwitches += numberOf(status, "voluntary_ctxt_switches");
        figures->involuntarySwitches += numberOf(status, "nonvoluntary_ctxt_switches");
    }
}

} // namespace

ProcessFigures processFigures(qint64 pid)
{
    const QString directory = QStringLiteral("/proc/%1").arg(pid);
    const QByteArray memory = contents(directory + QStringLiteral("/smaps_rollup"));
    ProcessFigures figures;
    figures.rss = numberOf(memory, "Rss");
    figures.pss = numberOf(memory, "Pss");
    figures.anonymous = numberOf(memory, "Anonymous");
    figures.heap = heapOf(directory);
    addDescriptors(directory, &figures);
    addThreads(directory, &figures);
    figures.children = childrenOf(pid);
    const QList<QByteArray> fields = statFields(directory);
    // User and system time are the fields 14 and 15 of the whole line.
    const qint64 ticks = fields.value(11).toLongLong() + fields.value(12).toLongLong();
    figures.cpuMs = ticks * 1000 / ::sysconf(_SC_CLK_TCK);
    return figures;
}
