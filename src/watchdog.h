// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <vector>

#include <QObject>
#include <QTimer>

namespace Varnel {

/// Tells the service manager that started the panel (sd_notify(3)) that the panel is up, that its event loop
/// runs, and that it ends. Sends and logs nothing unless the environment asks for it.
class Watchdog : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(Watchdog)

public:
    /// Sends a heartbeat at half the interval that the service manager expects, while the event loop runs.
    explicit Watchdog(QObject* parent = nullptr);

    /// The start is complete: the panel hears its controller.
    void announceReady();
    /// The orderly end has begun.
    void announceEnd();

private:
    QTimer timer;
};

/// Sends one heartbeat. Call it before anything that blocks the event loop, so that the wait begins with the
/// whole interval.
void feedWatchdog();

/// For a wait that may be longer than the interval: while one of these exists, the service manager waits
/// `limit` for the next heartbeat. Do not nest them.
class WatchdogPatience
{
    Q_DISABLE_COPY_MOVE(WatchdogPatience)

public:
    explicit WatchdogPatience(std::chrono::microseconds limit);
    ~WatchdogPatience();

private:
    std::chrono::microseconds usual{0}; ///< 0: no heartbeat is expected
};

/// The panel's environment as execve(2) takes it, for a program that the panel runs: without what is between
/// the panel and its service manager. The texts are those of the process itself.
[[nodiscard]] std::vector<char*> environmentForPrograms();

} // namespace Varnel
