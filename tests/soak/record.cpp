// SPDX-License-Identifier: MIT
#include "record.h"

#include <QStringList>
#include <QtDebug>

namespace {

const char* const heading =
    "seconds,step,rss_kib,pss_kib,anonymous_kib,heap_kib,descriptors,sockets,timer_descriptors,children,"
    "threads,"
    "voluntary_switches,involuntary_switches,cpu_ms,frames,log_lines,log_octets,requests,cycles,reloads,"
    "languages,losses,downloads,darkenings,error_pages,failures,driver_rss_kib\n";

} // namespace

bool Record::open(const QString& path)
{
    file.setFileName(path);
    clock.start();
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(heading) > 0 && file.flush();
}

void Record::add(const QString& step, const ProcessFigures& panel, const ProcessFigures& driver,
                 const Counts& counts)
{
    QStringList fields{QString::number(double(clock.elapsed()) / 1000, 'f', 1), step};
    for (const qint64 value : {panel.rss,
                               panel.pss,
                               panel.anonymous,
                               panel.heap,
                               qint64(panel.descriptors),
                               qint64(panel.sockets),
                               qint64(panel.timerDescriptors),
                               qint64(panel.children),
                               qint64(panel.threads),
                               panel.voluntarySwitches,
                               panel.involuntarySwitches,
                               panel.cpuMs,
                               counts.frames,
                               counts.logLines,
                               counts.logOctets,
                               counts.requests,
                               qint64(counts.cycles),
                               qint64(counts.reloads),
                               qint64(counts.languages),
                               qint64(counts.losses),
                               qint64(counts.downloads),
                               qint64(counts.darkenings),
                               qint64(counts.errorPages),
                               qint64(counts.failures),
                               driver.rss}) {
        fields += QString::number(value);
    }
    if (file.write(fields.join(QLatin1Char(',')).toLatin1() + '\n') < 0 || !file.flush()) {
        qWarning() << "Cannot write" << file.fileName() << file.errorString();
    }
}
