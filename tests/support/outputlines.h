// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <utility>

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QList>
#include <QStringList>

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

/// Stand-in GPIO lines under /sys/class/gpio, whose files are pipes: every write to them is seen, with its
/// text and in its order among all lines. To be used in the sandbox alone.
class OutputLines
{
public:
    explicit OutputLines(const QList<int>& lines = {224, 225, 228, 230})
        : watcher(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
    {
        QDir(root()).removeRecursively();
        QDir().mkpath(root());
        watch(root());
        addPipe(QStringLiteral("export"));
        for (const int line : lines) {
            add(line);
        }
        clear();
    }

    ~OutputLines()
    {
        for (const auto& [name, descriptor] : pipes) {
            ::close(descriptor);
        }
        ::close(watcher);
        QDir(root()).removeRecursively();
    }

    Q_DISABLE_COPY_MOVE(OutputLines)

    static QString root() { return QStringLiteral("/sys/class/gpio"); }

    /// The line as the kernel shows it once it is exported.
    void add(int line)
    {
        const QString name = QStringLiteral("gpio%1").arg(line);
        QDir(root()).mkdir(name);
        watch(root() + QLatin1Char('/') + name);
        for (const char* const file : {"direction", "active_low", "value"}) {
            addPipe(name + QLatin1Char('/') + QLatin1String(file));
        }
    }

    /// Takes a file or a whole line away.
    void remove(const QString& name)
    {
        const QString path = root() + QLatin1Char('/') + name;
        QDir(path).removeRecursively();
        QFile::remove(path);
        for (auto pipe = pipes.begin(); pipe != pipes.end();) {
            const bool gone = pipe->first == name || pipe->first.startsWith(name + QLatin1Char('/'));
            if (gone) {
                ::close(pipe->second);
            }
            pipe = gone ? pipes.erase(pipe) : std::next(pipe);
        }
    }

    /// A directory in the place of the file: it can be neither opened nor written.
    void spoil(const QString& name)
    {
        remove(name);
        QDir(root()).mkdir(name);
    }

    /// The writes since the last clear(), each as "gpio224/value=1", in order.
    QStringList writes()
    {
        readEvents();
        return seen;
    }

    /// The same, and clears them.
    QStringList taken()
    {
        readEvents();
        return std::exchange(seen, {});
    }

    void clear() { taken(); }

private:
    void watch(const QString& path)
    {
        const int id = ::inotify_add_watch(watcher, QFile::encodeName(path).constData(),
                                           IN_OPEN | IN_MODIFY | IN_CLOSE_WRITE);
        directories[id] = path.mid(root().size() + 1);
    }

    void addPipe(const QString& name)
    {
        const QByteArray path = QFile::encodeName(root() + QLatin1Char('/') + name);
        // Open for both directions, so that neither side waits for the other.
        if (::mkfifo(path.constData(), 0600) != 0 ||
            (pipes[name] = ::open(path.constData(), O_RDWR | O_NONBLOCK | O_CLOEXEC)) < 0) {
            qFatal("cannot make the pipe %s", path.constData());
        }
    }

    /// The text of one write. Later text in the pipe belongs to later ones: the texts of each file have one
    /// length.
    QByteArray take(const QString& name)
    {
        const bool single =
            name.endsWith(QLatin1String("/value")) || name.endsWith(QLatin1String("/active_low"));
        QByteArray text(single ? 1 : 3, '\0');
        const auto got = ::read(pipes[name], text.data(), static_cast<size_t>(text.size()));
        return text.left(static_cast<int>(qMax<ssize_t>(0, got)));
    }

    void readEvents()
    {
        alignas(inotify_event) char buffer[16384];
        for (ssize_t size = 0; (size = ::read(watcher, buffer, sizeof buffer)) > 0;) {
            for (const char* at = buffer; at < buffer + size;) {
                const auto* const event = static_cast<const inotify_event*>(static_cast<const void*>(at));
                at += sizeof(inotify_event) + event->len;
                if ((event->mask & IN_CLOSE_WRITE) == 0) {
                    continue;
                }
                const QString directory = directories[event->wd];
                const QString name = (directory.isEmpty() ? QString() : directory + QLatin1Char('/')) +
                                     QFile::decodeName(event->name);
                if (pipes.count(name) != 0) {
                    seen << name + QLatin1Char('=') + QString::fromLatin1(take(name));
                }
            }
        }
    }

    int watcher;
    std::map<int, QString> directories;
    std::map<QString, int> pipes;
    QStringList seen;
};
