// SPDX-License-Identifier: MIT
#pragma once

#include <optional>

#include <QTimer>

#include "rawcontroller.h"

/// The controller's frames, fifty a second: the outputs change with each, the values of the registers once a
/// second, a configuration every ten seconds.
class Traffic : public QObject
{
public:
    Traffic();

    /// The mapping file that gives the values their registers.
    static QByteArray modbusMap();

    void start() { pace.start(); }
    void stop() { pace.stop(); }
    /// Starts again with number 1, as a controller that has rebooted.
    void reboot() { sequence = 0; }
    void setLanguage(const QByteArray& code) { language = code; }
    /// Keeps the outputs as they are given, green, yellow, red and buzzer; without any they change with every
    /// frame.
    void hold(const std::optional<QByteArray>& outputs) { held = outputs; }
    qint64 sent() const { return frames; }

private:
    void sendFrame();
    QByteArray values() const;
    QByteArray configuration() const;

    RawController controller;
    QTimer pace;
    QByteArray language = "en";
    std::optional<QByteArray> held;
    quint32 sequence = 0;
    qint64 frames = 0;
};
