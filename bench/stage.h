// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <optional>

#include <QFile>
#include <QTemporaryDir>

#include "processfigures.h"
#include "program.h"
#include "rawcontroller.h"
#include "virtualscreen.h"
#include "webserver.h"

namespace VarnelBench {

/// The environment of a program with a screen, in the sandbox: X server, window manager, a controller at
/// 192.168.7.2 with its page. There are no device scripts, as the floors run none.
class Stage
{
    Q_DISABLE_COPY_MOVE(Stage)

public:
    /// Starts it all; ends this program when something is missing.
    Stage();

    /// Starts a program of the build on the empty screen, a floor with the variables that the panel sets for
    /// itself; ends this program when that fails.
    std::unique_ptr<Program> start(const QStringList& command);
    /// The command for a bare web view with the controller's page.
    static QStringList webView()
    {
        return {QStringLiteral("floor-browser"), QStringLiteral("http://192.168.7.2/index.html")};
    }

    /// Sends the controller's next frame, as broadcast.
    void sendFrame();
    /// Waits for the painted page.
    double awaitPage();
    /// The same while the controller sends, as if it had been there for long.
    double awaitPageWhileSending();

    /// Waits, serving the page meanwhile, until `condition` holds; returns the time as nowMs() gives it. Ends
    /// this program, naming `what`, after 20 s.
    double await(const char* what, const std::function<bool()>& condition);
    /// Serves for this time.
    void serveFor(double ms);

private:
    unsigned pixel(QPoint at) const;
    void turn();

    VirtualScreen screen;
    WebServer server{QHostAddress()};
    RawController controller;
    QTemporaryDir directory;
    QFile screenFile;
    const uchar* dump = nullptr;
    quint32 sequence = 0;
};

/// Datagrams that wait in the socket of the panel's port, and those it has lost.
struct SocketQueue
{
    bool empty = true;
    qint64 lost = 0;
};

constexpr quint16 panelPort = 9876;

/// The queue of the panel's port; nothing while no socket is bound to it.
std::optional<SocketQueue> socketQueue();

/// Milliseconds since some time in the past.
double nowMs();

/// CPU time of a process so far in milliseconds, finer than processFigures() tells it.
double cpuMs(const Program& program);

} // namespace VarnelBench
