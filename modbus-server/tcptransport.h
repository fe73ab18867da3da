// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <list>

#include <QElapsedTimer>
#include <QTcpServer>

#include "mbapdecoder.h"
#include "serverconfig.h"
#include "transport.h"

class QTcpSocket;

namespace Varnel {

/// Modbus/TCP for several clients at once. Nothing here waits for a client: one that is silent, sends half a
/// request or does not read its answers costs its own place and a few kilobytes, and does not affect the
/// others.
class TcpTransport : public Transport
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(TcpTransport)

public:
    /// `idleLimit`: when all places are taken, a new client gets that of a client that has asked nothing for
    /// a second since it connected, or whose last request is at least this long ago, or whose address has two
    /// places more than the new one's; 0 keeps every place. A PLC that lost its power never closes its
    /// connection, so without this a few such losses, or one host, would lock all other clients out.
    TcpTransport(const TcpEndpoint& endpoint, std::chrono::milliseconds idleLimit, AnswerFunction answer,
                 QObject* parent = nullptr);
    ~TcpTransport() override;

    Outcome<> open() override;
    [[nodiscard]] int clientCount() const override { return static_cast<int>(clients.size()); }

    /// The port listened on, 0 before open(). Differs from the endpoint's only if that is 0.
    [[nodiscard]] quint16 port() const { return server.serverPort(); }

private:
    struct Client
    {
        QTcpSocket* socket = nullptr;
        MbapDecoder decoder;
        QElapsedTimer lastRequest; ///< or connection, before the first
        bool hasAsked = false;
    };
    using Clients = std::list<Client>;

    void acceptClients();
    void welcome(QTcpSocket* socket);
    bool makeRoom(const QHostAddress& newcomer);
    Clients::iterator longestSilent(const std::function<bool(const Client&)>& among);
    [[nodiscard]] int placesOf(const QHostAddress& address) const;
    void drop(QTcpSocket* socket);
    void serve(Client& client);
    void answerPending(Client& client);
    void pauseAccepting();

    TcpEndpoint endpoint;
    std::chrono::milliseconds idleLimit;
    AnswerFunction answer;
    QTcpServer server;
    Clients clients;
    bool limitReported = false;
};

} // namespace Varnel
