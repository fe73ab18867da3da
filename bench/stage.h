// SPDX-License-Identifier: MIT
#pragma once

#include <functional>

#include <QTemporaryDir>

#include "framebuffer.h"
#include "rawcontroller.h"
#include "subject.h"
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

    /// The panel. `program` is another build's, if not empty.
    Subject panel(const QString& program, double target) const;
    /// The floor program with these arguments and the environment of a default desktop.
    Subject plainFloor(const QString& name, const QStringList& options = {}) const;
    /// The same without everything that the page does not need.
    Subject tunedFloor(const QString& name, const QStringList& options = {}) const;

    /// Sends the controller's next frame, as broadcast.
    void sendFrame();
    /// Sends a frame about every 2 ms while await() waits, as if the controller had been there for long.
    void setControllerSending(bool on) { sending = on; }
    /// How often the page was asked for.
    int pageRequests() const { return server.count("/index.html"); }
    /// True when the controller's page is painted.
    bool isPageShown() const;
    /// True when a window is on the screen with something written on it.
    bool isTextShown() const;

    /// Waits, serving the page meanwhile, until `condition` holds; returns the time as nowMs() gives it. Ends
    /// this program, naming `what`, after 20 s.
    double await(const char* what, const std::function<bool()>& condition);
    /// Serves for this time.
    void serveFor(double ms);
    /// Waits until the screen is empty again.
    void awaitEmptyScreen();

private:
    void turn();

    VirtualScreen screen;
    WebServer server{QHostAddress()};
    RawController controller;
    QTemporaryDir directory;
    FrameBuffer frame;
    quint32 sequence = 0;
    bool sending = false;
    double nextFrame = 0;
};

/// True when a UDP socket of this network is bound to `port`.
bool isPortBound(quint16 port);

/// The other build's panel that "--panel PROGRAM" names; empty without that option.
QString otherPanel(const QStringList& arguments);

} // namespace VarnelBench
