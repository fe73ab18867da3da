// SPDX-License-Identifier: MIT
// The floor for a program that receives frames: an event loop, a socket, a table CRC. Usage: floor-frames
// PORT
#include <QCoreApplication>

#include "floorloop.h"

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    QUdpSocket socket;
    const bool bound = socket.bind(QHostAddress::AnyIPv4, QCoreApplication::arguments().value(1).toUShort());
    unsigned sum = 0;
    QObject::connect(&socket, &QUdpSocket::readyRead, &socket,
                     [&] { VarnelBench::readFrames(&socket, &sum); });
    const int status = bound ? QCoreApplication::exec() : 1;
    return sum == 0xFFFFFFFFU ? 2 : status; // so that the sums are computed
}
