// SPDX-License-Identifier: MIT
#include "standinsys.h"

#include <algorithm>
#include <array>
#include <iterator>

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <QDir>
#include <QFile>

namespace {

void write(const QString& path, const QByteArray& octets)
{
    QDir().mkpath(path.section(QLatin1Char('/'), 0, -2));
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(octets) != octets.size()) {
        qWarning() << "Cannot write" << path << file.errorString();
    }
}

} // namespace

StandInSys::StandInSys()
{
    QDir("/sys/class"_s).removeRecursively();
    write(exportFile(), {});
    for (const int line : {green, yellow, red, buzzer}) {
        write(lineFile(line, "direction"), "in\n");
        write(lineFile(line, "active_low"), "0\n");
        write(valueFile(line), "0\n");
    }
    write(blankFile(), "0\n");
    write(backlightFile(), "0\n");
    setOperState("eth1"_s, "up"_s);
    setOperState("usb0"_s, "down"_s);
}

void StandInSys::setOperState(const QString& interface, const QString& text)
{
    write("/sys/class/net/%1/operstate"_s.arg(interface), text.toUtf8() + '\n');
}

QString StandInSys::read(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromLatin1(file.readAll()).trimmed() : QString();
}

WriteRecorder::WriteRecorder(const QStringList& paths)
    : inotify(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
{
    for (const QString& path : paths) {
        // The modification is watched, too, so that the kernel does not merge the closings of two writes.
        const int watch =
            ::inotify_add_watch(inotify, QFile::encodeName(path).constData(), IN_MODIFY | IN_CLOSE_WRITE);
        if (watch < 0) {
            qWarning() << "Cannot watch" << path;
        }
        watched.insert(watch, path);
    }
    thread = std::thread([this] { run(); });
}

WriteRecorder::~WriteRecorder()
{
    ending = true;
    thread.join();
    ::close(inotify);
}

void WriteRecorder::run()
{
    alignas(inotify_event) std::array<char, 4096> buffer{};
    while (!ending) {
        pollfd ready{inotify, POLLIN, 0};
        if (::poll(&ready, 1, 50) <= 0) {
            continue;
        }
        const ssize_t size = ::read(inotify, buffer.data(), buffer.size());
        for (ssize_t at = 0; at < size;) {
            inotify_event event{};
            std::copy_n(buffer.data() + at, sizeof event, reinterpret_cast<char*>(&event));
            if ((event.mask & IN_CLOSE_WRITE) != 0) {
                record(watched.value(event.wd));
            }
            at += static_cast<ssize_t>(sizeof event + event.len);
        }
    }
}

void WriteRecorder::record(const QString& path)
{
    const Write write{path, StandInSys::read(path), std::chrono::steady_clock::now()};
    const std::lock_guard lock(mutex);
    recorded += write;
}

QList<WriteRecorder::Write> WriteRecorder::writes(const QString& path) const
{
    const std::lock_guard lock(mutex);
    QList<Write> result;
    std::copy_if(recorded.cbegin(), recorded.cend(), std::back_inserter(result),
                 [&path](const Write& write) { return path.isEmpty() || write.path == path; });
    return result;
}

QStringList WriteRecorder::texts(const QString& path) const
{
    QStringList result;
    const QList<Write> all = writes(path);
    for (const Write& write : all) {
        result += write.text;
    }
    return result;
}

bool WriteRecorder::awaitWrites(const QString& path, int count) const
{
    return awaitTrue([&] { return writes(path).size() >= count; });
}

void WriteRecorder::clear()
{
    const std::lock_guard lock(mutex);
    recorded.clear();
}
