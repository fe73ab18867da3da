// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>

#include <QList>
#include <QMap>
#include <QStringList>

#include "logreader.h"

/// Plain files in place of the kernel's files below /sys: GPIO lines, display, interfaces.
class StandInSys
{
public:
    /// GPIO numbers of the default settings.
    static constexpr int green = 224;
    static constexpr int yellow = 225;
    static constexpr int red = 228;
    static constexpr int buzzer = 230;

    static QString lineFile(int line, const char* file)
    {
        return "/sys/class/gpio/gpio%1/%2"_s.arg(line).arg(QLatin1String(file));
    }
    static QString valueFile(int line) { return lineFile(line, "value"); }
    static QString blankFile() { return "/sys/class/graphics/fb0/blank"_s; }
    static QString backlightFile()
    {
        return "/sys/devices/platform/pwm-backlight.0/backlight/pwm-backlight.0/bl_power"_s;
    }
    static QString exportFile() { return "/sys/class/gpio/export"_s; }

    /// A fresh tree: the four lines exported, inputs, low, active high; display lit; eth1 up, usb0 down.
    StandInSys();

    /// Sets what /sys/class/net/`interface`/operstate reads, a line end added.
    void setOperState(const QString& interface, const QString& text);

    /// The text of one file, without blanks at its ends; null when there is none.
    static QString read(const QString& path);
    /// The text that the line's value file holds.
    static QString value(int line) { return read(valueFile(line)); }
    /// The values of green, yellow, red and buzzer, such as "1001".
    static QString outputs() { return value(green) + value(yellow) + value(red) + value(buzzer); }
};

/// Watches files from a thread of its own and keeps every text written to them, in order, with the time. Two
/// writes within microseconds may be seen as two of the second text: the file is read after the event.
class WriteRecorder
{
    Q_DISABLE_COPY_MOVE(WriteRecorder)

public:
    struct Write
    {
        QString path;
        QString text;
        std::chrono::steady_clock::time_point time;
    };

    /// Starts to watch; the files must exist.
    explicit WriteRecorder(const QStringList& paths);
    ~WriteRecorder();

    /// All writes so far, or those to `path`.
    QList<Write> writes(const QString& path = {}) const;
    /// The texts written to `path` so far, in order.
    QStringList texts(const QString& path) const;
    /// Waits until `path` has been written at least `count` times.
    [[nodiscard]] bool awaitWrites(const QString& path, int count) const;
    /// Forgets the writes so far.
    void clear();

private:
    void run();
    void record(const QString& path);

    int inotify = -1;
    QMap<int, QString> watched;
    mutable std::mutex mutex;
    QList<Write> recorded;
    std::atomic<bool> ending{false};
    std::thread thread;
};
