// SPDX-License-Identifier: MIT
#include "sources.h"

#include <chrono>

#include <unistd.h>

#include <QCoreApplication>
#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QNetworkDatagram>
#include <QSocketNotifier>
#include <QTimer>
#include <QUdpSocket>

#include "hextext.h"
#include "progress.h"
#include "signalwatcher.h"

namespace {

qint64 nowUs()
{
    return QDateTime::currentMSecsSinceEpoch() * 1000;
}

/// Runs the event loop until a signal to end, and advances the panel's clock meanwhile.
void waitForEnd(CheckRun* run)
{
    const Varnel::SignalWatcher signalWatcher;
    QTimer clock;
    QObject::connect(&clock, &QTimer::timeout, qApp, [run] { run->advance(nowUs()); });
    clock.start(std::chrono::milliseconds(200));
    QCoreApplication::exec();
}

} // namespace

QString readCaptureFile(const QString& path, CheckRun* run)
{
    Capture capture;
    QString problem = capture.openFile(path);
    if (!problem.isEmpty()) {
        return problem;
    }
    Progress progress("checked", QFileInfo(path).size(), isatty(STDOUT_FILENO) == 0);
    while (!run->isComplete()) {
        const std::optional<CapturedPacket> packet = capture.next();
        if (!packet) {
            break;
        }
        run->addPacket(*packet);
        progress.show(capture.position());
    }
    return capture.error();
}

QString readHexText(const QString& path, CheckRun* run)
{
    QFile file(path);
    const bool isOpen =
        path == QLatin1String("-") ? file.open(stdin, QIODevice::ReadOnly) : file.open(QIODevice::ReadOnly);
    if (!isOpen) {
        return file.errorString();
    }
    HexText text(&file);
    qint64 number = 0;
    while (!run->isComplete()) {
        const std::optional<QByteArray> frame = text.next();
        if (!frame) {
            break;
        }
        run->addOctets(++number, *frame);
    }
    return file.error() != QFileDevice::NoError ? file.errorString() : text.error();
}

QString readInterface(const QString& name, quint16 port, CheckRun* run)
{
    Capture capture;
    QString problem = capture.openInterface(name, port);
    if (!problem.isEmpty()) {
        return problem;
    }
    QSocketNotifier waiting(capture.descriptor(), QSocketNotifier::Read);
    QObject::connect(&waiting, &QSocketNotifier::activated, qApp, [&] {
        while (const std::optional<CapturedPacket> packet = capture.next()) {
            run->addPacket(*packet);
            if (run->isComplete()) {
                break;
            }
        }
        if (run->isComplete() || !capture.error().isEmpty()) {
            QCoreApplication::quit();
        }
    });
    waitForEnd(run);
    return capture.error();
}

QString readPort(quint16 port, CheckRun* run)
{
    QUdpSocket socket;
    if (!socket.bind(QHostAddress(QHostAddress::AnyIPv4), port,
                     QUdpSocket::ShareAddress | QUdpSocket::ReuseAddressHint)) {
        return socket.errorString();
    }
    qint64 number = 0;
    QObject::connect(&socket, &QUdpSocket::readyRead, qApp, [&] {
        while (socket.hasPendingDatagrams() && !run->isComplete()) {
            const QNetworkDatagram datagram = socket.receiveDatagram();
            const Endpoints ends{datagram.senderAddress(), datagram.destinationAddress(),
                                 quint16(std::max(0, datagram.senderPort())), port};
            run->addDatagram(++number, nowUs(), {ends, datagram.data()});
        }
        if (run->isComplete()) {
            QCoreApplication::quit();
        }
    });
    waitForEnd(run);
    return {};
}
