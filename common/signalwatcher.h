// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>

namespace Varnel {

/// Turns SIGTERM and SIGINT into an orderly end of the event loop: QCoreApplication::quit() is called from
/// the loop, so the program's tear-down runs. One instance at a time; after its destruction, both signals end
/// the program at once again.
class SignalWatcher : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(SignalWatcher)

public:
    explicit SignalWatcher(QObject* parent = nullptr);
    ~SignalWatcher() override;

    /// True from the first signal on, even before the event loop has noticed it, until the watcher is
    /// destroyed: do not begin long work while it is true.
    static bool isEndRequested();
};

} // namespace Varnel
