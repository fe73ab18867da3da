// SPDX-License-Identifier: MIT
#pragma once

#include <QUdpSocket>

#include "kermit.h"

namespace VarnelBench {

/// The least that a program on this toolkit does with frames: reads all that wait, and adds up their
/// checksums by table. Returns how many there were.
inline int readFrames(QUdpSocket* socket, unsigned* sum)
{
    int count = 0;
    for (qint64 size = socket->pendingDatagramSize(); size >= 0; size = socket->pendingDatagramSize()) {
        QByteArray data(static_cast<int>(size), Qt::Uninitialized);
        QHostAddress sender;
        socket->readDatagram(data.data(), size, &sender);
        *sum += kermitByTable(reinterpret_cast<const unsigned char*>(data.constData()), data.size());
        ++count;
    }
    return count;
}

} // namespace VarnelBench
