// SPDX-License-Identifier: MIT
#pragma once

#include <QPointer>
#include <QTimer>
#include <QUdpSocket>

#include "frame.h"
#include "panelview.h"
#include "scriptdirectory.h"
#include "udphandler.h"

/// The panel with its link to the controller, as main() puts them together, and a controller's socket.
class PanelLink : public PanelView
{
public:
    static constexpr quint16 port = 9876;

    explicit PanelLink(const QString& listenAddress = QStringLiteral("0.0.0.0"), quint16 listenPort = port)
        : handler(new Varnel::UdpHandler(listenAddress, static_cast<short>(listenPort), &window, nullptr))
    {
        handler->init();
        clear();
    }

    ~PanelLink() { delete handler.data(); }

    Q_DISABLE_COPY_MOVE(PanelLink)

    /// Hands a frame to the handler, as the socket would.
    void receive(const QByteArray& datagram, const QString& sender = QStringLiteral("192.168.7.2")) const
    {
        QByteArray data = datagram;
        QHostAddress address(sender);
        handler->handleData(&data, &address);
    }

    /// A frame with the next sequence number, handed over the same way.
    void receiveSections(std::initializer_list<QByteArray> sections)
    {
        Frame frame;
        for (const QByteArray& octets : sections) {
            frame.add(octets);
        }
        receive(frame.sequence(++sequence).octets());
    }

    /// Sends a datagram over the network from `sender`, which is one of this machine's addresses.
    static void send(const QByteArray& datagram, const QString& sender = QStringLiteral("192.168.7.2"),
                     const QString& receiver = QStringLiteral("192.168.7.1"), quint16 to = port)
    {
        QUdpSocket socket;
        if (!socket.bind(QHostAddress(sender)) ||
            socket.writeDatagram(datagram, QHostAddress(receiver), to) != datagram.size()) {
            qFatal("cannot send from %s: %s", qPrintable(sender), qPrintable(socket.errorString()));
        }
    }

    /// The handler's timers by their period in milliseconds.
    QTimer* timerOf(int interval) const
    {
        const auto timers = handler->findChildren<QTimer*>();
        for (QTimer* const candidate : timers) {
            if (candidate->interval() == interval) {
                return candidate;
            }
        }
        return nullptr;
    }

    /// The supervision of the link: the only one that fires once.
    QTimer* packetTimer() const
    {
        const auto timers = handler->findChildren<QTimer*>();
        for (QTimer* const candidate : timers) {
            if (candidate->isSingleShot()) {
                return candidate;
            }
        }
        return nullptr;
    }

    QPointer<Varnel::UdpHandler> handler;
    quint32 sequence = 100;
};

/// A link whose controller is registered, by a frame without configuration.
class RegisteredLink : public PanelLink
{
public:
    explicit RegisteredLink(const ScriptDirectory& scripts)
    {
        receiveSections({gpioSection(1, 1, 1, 0)});
        scripts.clear();
        clear();
    }
};
