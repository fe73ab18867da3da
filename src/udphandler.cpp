// SPDX-License-Identifier: MIT
#include "udphandler.h"

#include <chrono>

#include <QDeadlineTimer>
#include <QTimer>
#include <QUdpSocket>
#include <QtDebug>

#include "configarguments.h"
#include "mainwindow.h"
#include "scriptrunner.h"
#include "settings.h"
#include "signalwatcher.h"

namespace Varnel {

namespace {

/// Limit, in octets, for one UDP datagram.
constexpr int largestDatagram = 65535;

/// How long datagrams are handled before other events get their turn. Without a limit, a sender that is
/// faster than the scripts which its frames start would block touches, timers and SIGTERM.
constexpr std::chrono::milliseconds longestTurn{30};

constexpr quint16 defaultSnmpPort = 161;
constexpr quint16 defaultSnmpTrapPort = 162;
constexpr quint16 defaultModbusPort = 502;

} // namespace

UdpHandler::UdpHandler(const QString& listenAddr, short listenPort, MainWindow* mainWindow, QObject* parent)
    : QObject(parent)
    , listenAddr(listenAddr)
    , listenPort(static_cast<quint16>(listenPort))
    , main_window(mainWindow)
    , modbusInterface(nullptr)
{
}

UdpHandler::~UdpHandler() = default;

void UdpHandler::init()
{
    udpSocket = new QUdpSocket(this);
    packetTimer = new QTimer(this);
    blinkFastTimer = new QTimer(this);
    blinkSlowTimer = new QTimer(this);
    // A coarse timer, Qt's default, may fire 5 % early: a loss would be reported too soon.
    for (QTimer* timer : {packetTimer, blinkFastTimer, blinkSlowTimer}) {
        timer->setTimerType(Qt::PreciseTimer);
    }
    lastSeqno = 0;

    loadModbusMap();
    connectAll();
    bindSocket();

    last_snmpcfg.port = defaultSnmpPort;
    last_snmpcfg.port_trap = defaultSnmpTrapPort;
    last_modbuscfg.tcp_port = defaultModbusPort;
    last_netcfg.resetcfg = true;
    last_snmpcfg.resetcfg = true;
    last_modbuscfg.resetcfg = true;

    outputs.start();
    blinkFastTimer->start(Outputs::fastBlinkPeriod);
    blinkSlowTimer->start(Outputs::slowBlinkPeriod);
}

void UdpHandler::loadModbusMap()
{
    if (!modbusInterface.LoadConfig(Settings::getModbusMap())) {
        qDebug() << "Failed to load modbus map";
    }
    if (modbusInterface.GenerateDbusInit(Settings::getFilesTmpCfgDir())) {
        modbusInterface.DbusStopMonitor();
        modbusInterface.DbusStartMonitor(Settings::getFilesTmpCfgDir());
    } else {
        qDebug() << "Failed to load modbus map";
    }
}

void UdpHandler::connectAll()
{
    connect(udpSocket, &QUdpSocket::readyRead, this, &UdpHandler::processDatagrams);
    connect(udpSocket, &QUdpSocket::disconnected, this, &UdpHandler::stop);
    connect(this, &UdpHandler::finished, udpSocket, &QObject::deleteLater);
    connect(this, &UdpHandler::finished, this, &QObject::deleteLater);
    connect(packetTimer, &QTimer::timeout, this, &UdpHandler::packetTimeout);
    connect(blinkFastTimer, &QTimer::timeout, this, &UdpHandler::blinkFastTimeout);
    connect(blinkSlowTimer, &QTimer::timeout, this, &UdpHandler::blinkSlowTimeout);
}

void UdpHandler::bindSocket()
{
    qDebug() << "UDP listen " << listenAddr << ":" << listenPort;
    udpSocket->bind(QHostAddress(listenAddr), listenPort);
    qDebug() << "UDP bound";
}

void UdpHandler::processDatagrams()
{
    if (udpSocket->state() != QAbstractSocket::BoundState) {
        return; // a posted turn can arrive after stop()
    }
    // The loop reads until nothing is left. To ask first whether a datagram waits, and how long it is, would
    // cost two more system calls for each. The reserved memory stays when the array is cut to a frame's size.
    datagram.reserve(largestDatagram);
    QHostAddress sender;
    const QDeadlineTimer turn(longestTurn);
    while (!turn.hasExpired()) {
        if (SignalWatcher::isEndRequested()) {
            return; // the scripts of each further frame could delay the end by 30 s
        }
        datagram.resize(largestDatagram);
        const qint64 received = udpSocket->readDatagram(datagram.data(), datagram.size(), &sender);
        if (received < 0) {
            return;
        }
        datagram.truncate(static_cast<int>(received));
        handleData(&datagram, &sender);
    }
    postNextTurn();
}

/// The socket would report the remaining datagrams by itself, but timers would then not run in between.
void UdpHandler::postNextTurn()
{
    if (nextTurnPosted) {
        return;
    }
    nextTurnPosted = true;
    const auto takeTurn = [this] {
        nextTurnPosted = false;
        processDatagrams();
    };
    QMetaObject::invokeMethod(this, takeTurn, Qt::QueuedConnection);
}

void UdpHandler::handleData(QByteArray* data, QHostAddress* sender)
{
    Header header;
    if (!checkFrame(data, *sender, &header)) {
        return;
    }
    startPacketTimer();
    RlpFrame frame;
    walkSections(*data, header, &frame);
    record(frame, *sender);
    useSections(frame, this);
    welcome(*sender);
}

void UdpHandler::startPacketTimer()
{
    packetTimer->setSingleShot(true);
    packetTimer->start(std::chrono::seconds(Settings::getNetUdpTimeout()));
}

void UdpHandler::record(const RlpFrame& frame, const QHostAddress& sender)
{
    lastSeqno = frame.seqno;
    if (!hasPacketSender) {
        packetSender = sender;
    }
}

void UdpHandler::useDevInfo(const RlpFrame& frame)
{
    if (!frame.devinfo.lang.isEmpty()) {
        main_window->setLanguage(frame.devinfo.lang);
    }
    last_devinfo = frame.devinfo;
}

void UdpHandler::useGpioState(const RlpFrame& frame)
{
    outputs.apply(frame.gpiostate);
}

void UdpHandler::useCore(const RlpFrame& /*frame*/)
{
    const QVector<int> tables = modbusInterface.CheckTableToUpdate(m_itemList);
    const QVector<MbRawData_s> rawData = modbusInterface.ComputeRawData(tables);
    modbusInterface.DbusUpdateRegisters(ModbusInterface::GenerateDbusUpdateQuery(rawData));
}

void UdpHandler::welcome(const QHostAddress& sender)
{
    if (hasPacketSender) {
        return;
    }
    hasPacketSender = true;
    packetSender = sender;
    qDebug() << "First frame, try to connect to the web server at " << sender.toString();
    addR7M();
    const QString url = QLatin1String("http://") + sender.toString() + QLatin1String("/index.html");
    main_window->setDefaultUrl(url);
    main_window->openUrlForce(url, true);
}

void UdpHandler::packetTimeout()
{
    if (SignalWatcher::isEndRequested() || waitingFrameIsAccepted()) {
        return;
    }
    qDebug() << "No packet received within the " << packetTimer->interval() / 1000 << "s window, unregister "
             << packetSender.toString();
    hasPacketSender = false;
    lastSeqno = 0;
    removeR7M();
    main_window->displayError(main_window->getLanguage());
    outputs.showLoss();
}

/// A script may have blocked the panel for longer than the window, while frames of the controller arrived in
/// the socket. Handles them; true when one of them has restarted the supervision.
bool UdpHandler::waitingFrameIsAccepted()
{
    packetTimer->stop();
    processDatagrams();
    return packetTimer->isActive();
}

void UdpHandler::stop()
{
    blinkFastTimer->stop();
    blinkSlowTimer->stop();
    packetTimer->stop();
    qDebug() << "UDP stop";
    disconnect(udpSocket, &QUdpSocket::readyRead, this, &UdpHandler::processDatagrams);
    disconnect(udpSocket, &QUdpSocket::readyRead, this, &UdpHandler::processDatagrams); // documented: twice
    udpSocket->close();
    emit finished();
}

} // namespace Varnel
