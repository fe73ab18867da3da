// SPDX-License-Identifier: MIT
#include "processfigures.h"

#include <unistd.h>

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QRegularExpression>

#include "literals.h"

namespace {

QByteArray contents(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// The number behind the first line "`name`: number".
qint64 numberOf(const QByteArray& text, const char* name)
{
    const QRegularExpression line("^%1:\\s*(\\d+)"_s.arg(QLatin1String(name)),
                                  QRegularExpression::MultilineOption);
    return line.match(QString::fromLatin1(text)).captured(1).toLongLong();
}

qint64 heapOf(const QString& directory)
{
    const QByteArray text = contents(directory + "/smaps"_s);
    const int at = text.indexOf("[heap]\n");
    return at < 0 ? 0 : numberOf(text.mid(at, 1000), "Rss");
}

void addDescriptors(const QString& directory, ProcessFigures* figures)
{
    const QDir descriptors(directory + "/fd"_s);
    const QStringList numbers = descriptors.entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot);
    figures->descriptors = numbers.size();
    for (const QString& number : numbers) {
        const QString target = QFile::symLinkTarget(descriptors.filePath(number));
        figures->sockets += target.contains("socket:"_s) ? 1 : 0;
        figures->timerDescriptors += target.contains("timerfd"_s) ? 1 : 0;
    }
}

void addThreads(const QString& directory, ProcessFigures* figures)
{
    const QDir tasks(directory + "/task"_s);
    const QStringList threads = tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    figures->threads = threads.size();
    for (const QString& thread : threads) {
        const QByteArray status = contents(tasks.filePath(thread + "/status"_s));
        figures->voluntarySwitches += numberOf(status, "voluntary_ctxt_switches");
        figures->children += contents(tasks.filePath(thread + "/children"_s)).count(' ');
    }
}

} // namespace

ProcessFigures processFigures(qint64 pid)
{
    const QString directory = "/proc/%1"_s.arg(pid);
    const QByteArray memory = contents(directory + "/smaps_rollup"_s);
    ProcessFigures figures;
    figures.rss = numberOf(memory, "Rss");
    figures.pss = numberOf(memory, "Pss");
    figures.anonymous = numberOf(memory, "Anonymous");
    figures.heap = heapOf(directory);
    addDescriptors(directory, &figures);
    addThreads(directory, &figures);
    // User and system time are the fields 14 and 15, counted behind the program's name, which may hold
    // anything.
    const QByteArray stat = contents(directory + "/stat"_s);
    const QList<QByteArray> fields = stat.mid(stat.lastIndexOf(')') + 2).split(' ');
    const qint64 ticks = fields.value(11).toLongLong() + fields.value(12).toLongLong();
    figures.cpuMs = ticks * 1000 / ::sysconf(_SC_CLK_TCK);
    return figures;
}
