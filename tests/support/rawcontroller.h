// SPDX-License-Identifier: MIT
#pragma once

#include <QHostAddress>
#include <QUdpSocket>

#include "frame.h"
#include "literals.h"

/// A controller that sends any datagram, from a given address of this host.
class RawController
{
public:
    /// Sends from `source` to the panel's default port at `panel`, by default the broadcast address of the
    /// sandbox's eth1, where a panel with default settings listens.
    explicit RawController(const QString& source = "192.168.7.2"_s, const QString& panel = "192.168.7.255"_s,
                           quint16 port = 9876)
        : panelAddress(panel)
        , panelPort(port)
    {
        if (!socket.bind(QHostAddress(source))) {
            qWarning() << "Cannot send from" << source << socket.errorString();
        }
    }

    /// Sends one datagram; false when the kernel refuses.
    bool send(const QByteArray& datagram)
    {
        const bool sent = socket.writeDatagram(datagram, panelAddress, panelPort) == datagram.size();
        if (!sent) {
            qWarning() << "Cannot send" << datagram.size() << "octets:" << socket.errorString();
        }
        return sent;
    }
    bool send(const Frame& frame) { return send(frame.octets()); }

private:
    QUdpSocket socket;
    QHostAddress panelAddress;
    quint16 panelPort;
};
