// SPDX-License-Identifier: MIT
#pragma once

#include <optional>

#include <QByteArray>
#include <QTimer>

#include "rawcontroller.h"

/// The commands for the outputs: 0 off, 1 on, 2 slow blink, 3 fast blink.
struct Outputs
{
    quint8 good = 0;
    quint8 warning = 0;
    quint8 critical = 0;
    quint8 buzzer = 0;
};

/// The controller's frames, fifty a second: the outputs change with each, the values of the registers once a
/// second, a configuration every ten seconds.
class Traffic : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(Traffic)

public:
    explicit Traffic(QObject* parent = nullptr);

    /// The mapping file that gives the values their registers.
    static QByteArray modbusMap();

    void start() { pace.start(); }
    void stop() { pace.stop(); }
    /// Starts again with number 1, as a controller that has rebooted.
    void reboot() { sequence = 0; }
    void setLanguage(const QByteArray& code) { language = code; }
    /// Keeps the outputs as they are given; without any they change with every frame.
    void hold(const std::optional<Outputs>& outputs) { held = outputs; }
    qint64 sent() const { return frames; }

private:
    void sendFrame();
    void addValues(Frame* frame) const;
    void addConfiguration(Frame* frame) const;
    Outputs outputs() const;

    RawController controller;
    QTimer pace;
    QByteArray language = "en";
    std::optional<Outputs> held;
    quint32 sequence = 0;
    qint64 frames = 0;
};
