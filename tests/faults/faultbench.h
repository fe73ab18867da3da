// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include <QElapsedTimer>

#include "scene.h"
#include "simulator.h"
#include "traffic.h"
#include "virtualscreen.h"

/// The contents of the screen, by their colour; any other is the panel's own text, or nothing expected.
enum class Shown : QRgb
{
    ControllerPage = qRgb(0, 0xc0, 0),
    OtherControllersPage = qRgb(0xc0, 0xc0, 0),
    ErrorPage = qRgb(0xc0, 0, 0),
    Blank = qRgb(0xff, 0xff, 0xff),
};

/// The panel at work: a controller that sends frames, a page that asks its server for something twice a
/// second and loads itself again every three seconds, a Modbus server that a PLC reads, all of them the real
/// ones but for the controller. A fault is caused while all of them run.
class FaultBench : public Scene
{
public:
    /// Frames a second.
    static constexpr int usualRate = 5;

    explicit FaultBench(VirtualScreen& virtualScreen);
    ~FaultBench();
    Q_DISABLE_COPY_MOVE(FaultBench)

    /// Settings that start() writes; more may be set before. A silent controller counts as lost after 3 s, a
    /// failed page is tried again after 4 s.
    SettingsFile settings;
    /// Starts everything and waits until it works, touch included. With `served` false, no PLC reads, and
    /// nothing is asked of the Modbus server.
    [[nodiscard]] bool start(bool served = true);
    /// Ends the panel and starts it again, and lets the PLC read; false unless the panel ended in order.
    [[nodiscard]] bool restartPanelAndRead();

    /// The present contents of the screen.
    Shown shown() const;
    [[nodiscard]] bool awaitShown(Shown wanted, std::chrono::milliseconds limit = patience) const;
    [[nodiscard]] bool awaitErrorPage() const { return awaitShown(Shown::ErrorPage); }
    /// Takes the present as the beginning of a recovery.
    void mark();
    /// Waits until the page is on the screen, has asked its server for something, and the PLC has read a
    /// value of a frame, all of them younger than the mark. Seconds since the mark; negative at the limit.
    [[nodiscard]] double awaitWorking(std::chrono::milliseconds limit);
    /// Waits until the page on the screen has asked its server for something this often.
    [[nodiscard]] bool awaitTicks(int wanted) const;
    [[nodiscard]] bool pageGoesOn() const { return awaitTicks(3); }
    /// Touches the page and waits until it shows that, and has said so to its server.
    [[nodiscard]] bool answersTouch();
    /// Touches the page and forgets it; true when the page has shown it within `limit`.
    [[nodiscard]] bool showsTouch(std::chrono::milliseconds limit = patience);
    /// Lets the controller be silent, or send frames.
    void silence() { frames.setRate(0); }
    void speak() { frames.setRate(usualRate); }
    /// Lets the controller be silent until the panel has noticed.
    [[nodiscard]] bool loseLink();
    /// Lets the page leave for another address at its next question.
    void sendPageTo(const QByteArray& url);
    /// Makes all the answers of the page's server what they are when nothing is wrong.
    void serveUsual();
    /// How often the page has asked so far.
    int ticks() const { return server.count("/tick"); }
    /// The time in milliseconds that the page's script last read off its clock.
    qint64 pageClock() const { return server.last("/tick").headers.value("x-now").toLongLong(); }
    /// The number of a frame that the PLC last read; 0 where none reads.
    quint32 plcValue() const { return plc ? plc->value() : 0; }
    /// Puts the device's Modbus scripts in place, all others as recording ones.
    [[nodiscard]] bool installScripts() const;

    ModbusBench bus;
    WebServer otherServer{QHostAddress()};
    FrameSource frames{"192.168.7.2"_s};
    FrameSource otherFrames{"192.168.7.3"_s};
    VirtualScreen& screen;
    /// Further stations, each for a fault of its own: a source of garbage, a name server, a server of files.
    std::unique_ptr<FrameSource> garbage;
    std::unique_ptr<QUdpSocket> nameServer;
    std::unique_ptr<Simulator> files;

private:
    bool isWorking() const;

    std::unique_ptr<PlcReader> plc;
    QElapsedTimer sinceMark;
    int ticksAtMark = 0;
    quint32 valueAtMark = 0;
};
