// SPDX-License-Identifier: MIT
#pragma once

#include <QHostAddress>
#include <QObject>
#include <QString>

#include "modbusinterface.h"
#include "rlpdecoder.h"
#include "rlprecords.h"

class QTimer;
class QUdpSocket;

namespace Varnel {

class MainWindow;
class WebBrowser;

/// The panel's agent for one controller: receives its RLP frames over UDP, follows its presence, registers it
/// by script, points the browser at it, drives the LEDs and the buzzer and applies its configuration by
/// scripts. Nothing is ever sent back. Everything happens on the event loop's thread; scripts block it.
class UdpHandler : public QObject, public RlpDecoder
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(UdpHandler)

public:
    /// Keeps address, port and window (not owned, must outlive the handler) and does nothing else.
    UdpHandler(const QString& listenAddr, short listenPort, MainWindow* mainWindow, QObject* parent);
    ~UdpHandler() override;

    /// Loads the Modbus mapping, restarts the Modbus server, binds the socket, sets the LEDs to slow blink.
    /// To be called once, right after construction. A failed bind is not noticed: nothing is received then.
    void init();

    /// Checks, decodes, records and applies one datagram. `data` is changed.
    void handleData(QByteArray* data, QHostAddress* sender);

    /// Runs the registration script with "add" or "delete" for the last known controller.
    void addR7M();
    void removeR7M();

    bool isNetCfgChanged(const netcfg_s& cfg) const;
    bool isSnmpCfgChanged(const snmpcfg_s& cfg) const;
    bool isModbusCfgChanged(const modbuscfg_s& cfg) const;
    /// Each runs the scripts of its kind and returns whether the configuration was accepted; a missing script
    /// is logged.
    bool applyNetCfg(const netcfg_s& cfg);
    bool applySnmpCfg(const snmpcfg_s& cfg);
    bool applyModbusCfg(const modbuscfg_s& cfg);

    /// Prepares one GPIO line as an output with the given active level, exporting it if need be.
    void initializeGPIO(quint8 pin, bool high);
    /// Switches one GPIO line on (any value but 0) or off; a line that is not there is ignored.
    void handleGPIO(quint8 pin, quint8 value);
    /// Prepares the four lines: green, yellow, red, buzzer.
    void initializeGPIOs();

signals:
    void finished();

public slots:
    /// Handles what waits in the socket, for a moment at most; the rest has its turn after other events.
    void processDatagrams();
    /// Stops the timers, closes the socket and emits finished(), on which the handler deletes itself later.
    void stop();
    void packetTimeout();
    void blinkFastTimeout();
    void blinkSlowTimeout();

private:
    void loadModbusMap();
    void connectAll();
    void bindSocket();
    void startOutputs();
    void startLossPattern();
    void startPacketTimer();
    void postNextTurn();
    bool waitingFrameIsAccepted();
    void record(const RlpFrame& frame, const QHostAddress& sender);
    void apply(const RlpFrame& frame);
    void applyDevInfo(const devinfo_s& devinfo);
    void applyGpioState(const gpiostate_s& gpiostate);
    void applyCore();
    void welcome(const QHostAddress& sender);
    void toggle(quint8 command);

    QUdpSocket* udpSocket = nullptr;
    QByteArray datagram; ///< the one being handled, in memory kept from one to the next
    bool nextTurnPosted = false;
    QString listenAddr;
    quint16 listenPort;
    [[maybe_unused]] WebBrowser* webBrowser = nullptr;
    MainWindow* main_window;
    QTimer* packetTimer = nullptr;
    QTimer* blinkFastTimer = nullptr;
    QTimer* blinkSlowTimer = nullptr;
    devinfo_s last_devinfo;
    netcfg_s last_netcfg;
    modbuscfg_s last_modbuscfg;
    gpiostate_s last_gpiostate; ///< the current command of each output
    snmpcfg_s last_snmpcfg;
    gpiostate_s blink_gpiostate; ///< the current phase of each output: 0 dark, 1 lit
    [[maybe_unused]] quint16 receivedFrame = 0;
    ModbusInterface modbusInterface;
};

} // namespace Varnel
