// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <vector>

#include <QObject>
#include <QTimer>

namespace Varnel {

/// What the panel tells the service manager that started it (sd_notify(3)): that it is up, that its event
/// loop turns, that it ends. Nothing is told, and nothing logged, when nobody asked for it by the
/// environment.
class Watchdog : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(Watchdog)

public:
    /// Gives a sign of life at half the interval that the service manager asks for, while the event loop
    /// runs.
    explicit Watchdog(QObject* parent = nullptr);

    /// The start is complete: the panel hears its controller.
    void announceReady();
    /// The orderly end has begun.
    void announceEnd();

private:
    QTimer timer;
};

/// One sign of life. To be given ahead of all that blocks the event loop, so that a wait begins with the
/// whole interval.
void feedWatchdog();

/// For a wait that may be longer than the interval: while one of these lives, the service manager waits
/// `limit` for the next sign of life. Not to be nested.
class WatchdogPatience
{
    Q_DISABLE_COPY_MOVE(WatchdogPatience)

public:
    explicit WatchdogPatience(std::chrono::microseconds limit);
    ~WatchdogPatience();

private:
    std::chrono::microseconds usual{0}; ///< 0: nobody waits
};

/// The panel's environment as execve(2) takes it, for a program that the panel runs: without what is between
/// the panel and its service manager. The texts are those of the process itself.
[[nodiscard]] std::vector<char*> environmentForPrograms();

} // namespace Varnel
