// SPDX-License-Identifier: MIT
#include "standinsys.h"

#include <array>

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QTest>

namespace {

void write(const QString& path, const QByteArray& octets)
{
    QDir().mkpath(path.section(QLatin1Char('/'), 0, -2));
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(octets) != octets.size()) {
        qWarning() << "Cannot write" << path << file.errorString();
    }
}

QString lineDirectory(int line)
{
    return QStringLiteral("/sys/class/gpio/gpio%1").arg(line);
}

} // namespace

QString StandInSys::valueFile(int line)
{
    return lineDirectory(line) + QStringLiteral("/value");
}

QString StandInSys::blankFile()
{
    return QStringLiteral("/sys/class/graphics/fb0/blank");
}

QString StandInSys::backlightFile()
{
    return QStringLiteral("/sys/devices/platform/pwm-backlight.0/backlight/pwm-backlight.0/bl_power");
}

QString StandInSys::exportFile()
{
    return QStringLiteral("/sys/class/gpio/export");
}

StandInSys::StandInSys()
{
    QDir(QStringLiteral("/sys/class")).removeRecursively();
    write(exportFile(), {});
    for (const int line : {green, yellow, red, buzzer}) {
        addLine(line);
    }
    write(blankFile(), "0\n");
    write(backlightFile(), "0\n");
    setOperState(QStringLiteral("eth1"), QStringLiteral("up"));
    setOperState(QStringLiteral("usb0"), QStringLiteral("down"));
}

void StandInSys::addLine(int line)
{
    write(lineDirectory(line) + QStringLiteral("/direction"), "in\n");
    write(lineDirectory(line) + QStringLiteral("/active_low"), "0\n");
    write(valueFile(line), "0\n");
}

void StandInSys::removeLine(int line)
{
    QDir(lineDirectory(line)).removeRecursively();
}

void StandInSys::setOperState(const QString& interface, const QString& text)
{
    write(QStringLiteral("/sys/class/net/%1/operstate").arg(interface), text.toUtf8() + '\n');
}

void StandInSys::removeInterface(const QString& interface)
{
    QDir(QStringLiteral("/sys/class/net/") + interface).removeRecursively();
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

QList<WriteRecorder::Write> WriteRecorder::writes() const
{
    const std::lock_guard lock(mutex);
    return recorded;
}

QStringList WriteRecorder::texts(const QString& path) const
{
    QStringList result;
    const QList<Write> all = writes();
    for (const Write& write : all) {
        if (write.path == path) {
            result += write.text;
        }
    }
    return result;
}

bool WriteRecorder::awaitWrites(const QString& path, int count, std::chrono::milliseconds limit) const
{
    return QTest::qWaitFor([&] { return texts(path).size() >= count; }, static_cast<int>(limit.count()));
}

void WriteRecorder::clear()
{
    const std::lock_guard lock(mutex);
    recorded.clear();
}
