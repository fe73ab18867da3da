// SPDX-License-Identifier: MIT
#pragma once

#include <QHostAddress>
#include <QObject>
#include <QString>

#include "modbusinterface.h"
#include "outputs.h"
#include "rlpdecoder.h"
#include "rlprecords.h"
#include "sectionkinds.h"

class QTimer;
class QUdpSocket;

namespace Varnel {

class MainWindow;
class WebBrowser;

/// The panel's agent for one controller: receives its RLP frames over UDP, follows its presence, registers it
/// by script, points the browser at it, drives the LEDs and the buzzer and applies its configuration by
/// scripts. Nothing is ever sent back. Everything happens on the event loop's thread; scripts block it.
class UdpHandler : public QObject, public RlpDecoder, private SectionUser
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(UdpHandler)

public:
    /// Keeps address, port and window (not owned, must outlive the handler) and does nothing else.
    UdpHandler(const QString& listenAddr, short listenPort, MainWindow* mainWindow, QObject* parent);
    ~UdpHandler() override;

    /// Loads the Modbus mapping, restarts the Modbus server, binds the socket, sets the LEDs to slow blink.
    /// Call it once, right after construction. A failed bind is not detected; the handler then receives
    /// nothing.
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

    /// The GPIO lines of LEDs and buzzer, as Outputs drives them.
    void initializeGPIO(quint8 pin, bool high) { Outputs::initializeLine(pin, high); }
    void handleGPIO(quint8 pin, quint8 value) { Outputs::switchLine(pin, value); }
    void initializeGPIOs() { Outputs::initializeLines(); }

signals:
    void finished();

public slots:
    /// Handles the datagrams in the socket for 30 ms at most; the rest follows after other events.
    void processDatagrams();
    /// Stops the timers, closes the socket and emits finished(), on which the handler deletes itself later.
    void stop();
    void packetTimeout();
    void blinkFastTimeout() { outputs.blinkFast(); }
    void blinkSlowTimeout() { outputs.blinkSlow(); }

private:
    void loadModbusMap();
    void connectAll();
    void bindSocket();
    void startPacketTimer();
    void postNextTurn();
    bool waitingFrameIsAccepted();
    void record(const RlpFrame& frame, const QHostAddress& sender);
    void useDevInfo(const RlpFrame& frame) override;
    void useGpioState(const RlpFrame& frame) override;
    void useSnmpCfg(const RlpFrame& frame) override;
    void useNetCfg(const RlpFrame& frame) override;
    void useCore(const RlpFrame& frame) override;
    void useModbusCfg(const RlpFrame& frame) override;
    void welcome(const QHostAddress& sender);

    QUdpSocket* udpSocket = nullptr;
    QByteArray datagram; ///< the current one; its memory is reused
    bool nextTurnPosted = false;
    QString listenAddr;
    quint16 listenPort = 0;
    [[maybe_unused]] WebBrowser* webBrowser = nullptr; ///< unused, kept
    MainWindow* main_window = nullptr;
    QTimer* packetTimer = nullptr;
    QTimer* blinkFastTimer = nullptr;
    QTimer* blinkSlowTimer = nullptr;
    devinfo_s last_devinfo;
    netcfg_s last_netcfg;
    modbuscfg_s last_modbuscfg;
    snmpcfg_s last_snmpcfg;
    Outputs outputs;                            ///< with their commands and phases
    [[maybe_unused]] quint16 receivedFrame = 0; ///< unused, kept
    ModbusInterface modbusInterface;
};

} // namespace Varnel
