// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include <QElapsedTimer>

#include "framesource.h"
#include "modbusbench.h"
#include "panel.h"
#include "plcreader.h"
#include "recordingscripts.h"
#include "settingsfile.h"
#include "standinsys.h"
#include "virtualscreen.h"
#include "webserver.h"

/// The contents of the screen.
enum class Shown
{
    ControllerPage,
    OtherControllersPage,
    ErrorPage,
    Blank, ///< a white screen
    Else,  ///< the panel's own text, or anything unexpected
};

/// The panel at work: a controller that sends frames, a page that asks its server for something twice a
/// second and loads itself again every three seconds, a Modbus server that a PLC reads, all of them the real
/// ones but for the controller. A fault is caused while all of them run.
class FaultBench
{
    Q_DISABLE_COPY_MOVE(FaultBench)

public:
    /// Seconds until a silent controller counts as lost, and until a failed page is tried again.
    static constexpr int udpTimeout = 3;
    static constexpr int retryTimeout = 4;
    /// Frames a second.
    static constexpr int usualRate = 5;

    explicit FaultBench(VirtualScreen& virtualScreen);
    ~FaultBench();

    /// Settings that start() writes; more may be set before.
    SettingsFile settings;
    /// Starts everything and waits until it works, touch included. With `served` false, no PLC reads, and
    /// nothing is asked of the Modbus server.
    [[nodiscard]] bool start(bool served = true);
    /// Lets the PLC read, where it did not from the start.
    void startPlc();
    /// Ends the panel, if it runs, and starts it again; false unless it ended in order.
    [[nodiscard]] bool restartPanel();

    /// The present contents of the screen.
    Shown shown() const;
    [[nodiscard]] bool awaitShown(Shown wanted, std::chrono::milliseconds limit = patience) const;
    /// Takes the present as the beginning of a recovery.
    void mark();
    /// Waits until the page is on the screen, has asked its server for something, and the PLC has read a
    /// value of a frame, all of them younger than the mark. Seconds since the mark; negative at the limit.
    [[nodiscard]] double awaitWorking(std::chrono::milliseconds limit);
    /// Touches the page and waits until it shows that, and has said so to its server.
    [[nodiscard]] bool answersTouch(std::chrono::milliseconds limit = patience);
    /// Touches the page and forgets it; true when the page has shown it within `limit`.
    [[nodiscard]] bool showsTouch(std::chrono::milliseconds limit);
    /// Lets the page leave for another address at its next question.
    void sendPageTo(const QByteArray& url);
    /// Makes all the answers of the page's server what they are when nothing is wrong.
    void serveUsual();
    /// How often the page has asked so far.
    int ticks() const { return server.count("/tick"); }
    /// The time in milliseconds that the page's script last read off its clock.
    qint64 pageClock() const { return lastHeader("x-now").toLongLong(); }
    /// The number of a frame that the PLC last read; 0 where none reads.
    quint32 plcValue() const { return plc ? plc->value() : 0; }
    /// Bytes of the panel that are in memory.
    qint64 panelMemory() const;
    /// Puts the device's Modbus scripts in place, all others as recording ones.
    [[nodiscard]] bool installScripts();

    StandInSys sys;
    RecordingScripts scripts;
    ModbusBench bus;
    WebServer server{QHostAddress()};
    WebServer otherServer{QHostAddress()};
    FrameSource frames{QStringLiteral("192.168.7.2")};
    FrameSource otherFrames{QStringLiteral("192.168.7.3")};
    Panel panel;
    VirtualScreen& screen;

private:
    QByteArray lastHeader(const QByteArray& name) const;
    bool isWorking() const;

    bool served = true;
    std::unique_ptr<PlcReader> plc;
    QElapsedTimer sinceMark;
    int ticksAtMark = 0;
    quint32 valueAtMark = 0;
};
