// SPDX-License-Identifier: MIT
#include "tcptransport.h"

#include <algorithm>
#include <cerrno>

#include <sys/socket.h>

#include <QLoggingCategory>
#include <QTcpSocket>
#include <QTimer>

#include "logcategories.h"

namespace Varnel {

namespace {

// Room for several of the longest requests. The kernel keeps the rest and slows the sender down.
constexpr qint64 readBufferSize = 4096;
// Limit for answers that a client has not read. Above it, the client's requests wait until it reads.
constexpr qint64 writeBacklog = 16384;
// A client usually asks as soon as it is connected; one that does not may only occupy a place.
constexpr std::chrono::milliseconds firstRequest{1000};
// Out of file descriptors: trying again at once would spin.
constexpr std::chrono::seconds acceptPause{1};

QString peer(const QTcpSocket* socket)
{
    return QStringLiteral("%1:%2").arg(socket->peerAddress().toString()).arg(socket->peerPort());
}

/// True when the peer has closed the connection and nothing is left to read, though the event loop does not
/// know yet.
bool isGone(const QTcpSocket* socket)
{
    char octet = 0;
    const auto descriptor = static_cast<int>(socket->socketDescriptor());
    const ssize_t size = ::recv(descriptor, &octet, 1, MSG_PEEK | MSG_DONTWAIT);
    return size == 0 || (size < 0 && errno == ECONNRESET);
}

} // namespace

TcpTransport::TcpTransport(const TcpEndpoint& endpoint, std::chrono::milliseconds idleLimit,
                           AnswerFunction answer, QObject* parent)
    : Transport(parent)
    , endpoint(endpoint)
    , idleLimit(idleLimit)
    , answer(std::move(answer))
{
    connect(&server, &QTcpServer::newConnection, this, &TcpTransport::acceptClients);
    connect(&server, &QTcpServer::acceptError, this, &TcpTransport::pauseAccepting);
}

TcpTransport::~TcpTransport()
{
    // The sockets are children of the server; their last signals must not reach a half-destroyed object.
    for (const Client& client : clients) {
        client.socket->disconnect(this);
    }
}

Outcome<> TcpTransport::open()
{
    if (server.listen(endpoint.listen, endpoint.port)) {
        return {};
    }
    return Refusal(server.errorString());
}

void TcpTransport::acceptClients()
{
    while (QTcpSocket* socket = server.nextPendingConnection()) {
        if (clientCount() < endpoint.clients || makeRoom(socket->peerAddress())) {
            welcome(socket);
            continue;
        }
        if (!limitReported) {
            qCWarning(lcServer).noquote()
                << "refused" << peer(socket) << ": the limit of" << endpoint.clients << "clients is reached";
            limitReported = true;
        }
        // Closing at once tells the client; left in the queue it would wait for its own time-out.
        socket->abort();
        socket->deleteLater();
    }
}

void TcpTransport::welcome(QTcpSocket* socket)
{
    socket->setReadBufferSize(readBufferSize);
    socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    socket->setSocketOption(QAbstractSocket::KeepAliveOption, 1);
    Client& client = clients.emplace_back();
    client.socket = socket;
    client.lastRequest.start();
    qCDebug(lcClients).noquote() << "connected" << peer(socket);
    connect(socket, &QTcpSocket::readyRead, this, [this, &client] { serve(client); });
    connect(socket, &QTcpSocket::bytesWritten, this, [this, &client] { serve(client); });
    connect(socket, &QTcpSocket::disconnected, this, [this, socket] { drop(socket); });
    serve(client); // octets that came with the connection have been signalled already
}

int TcpTransport::placesOf(const QHostAddress& address) const
{
    return static_cast<int>(std::count_if(clients.begin(), clients.end(), [&address](const Client& client) {
        return client.socket->peerAddress() == address;
    }));
}

/// Among the clients that `among` accepts, the one whose last request, or connection, is the oldest.
TcpTransport::Clients::iterator TcpTransport::longestSilent(const std::function<bool(const Client&)>& among)
{
    auto found = clients.end();
    for (auto client = clients.begin(); client != clients.end(); ++client) {
        if (among(*client) &&
            (found == clients.end() || client->lastRequest.elapsed() > found->lastRequest.elapsed())) {
            found = client;
        }
    }
    return found;
}

/// Frees the place of a client that has left, or of the one with the lowest priority.
bool TcpTransport::makeRoom(const QHostAddress& newcomer)
{
    // When a client closes and connects again at once, the new connection may be seen first.
    const auto gone = std::find_if(clients.begin(), clients.end(),
                                   [](const Client& client) { return isGone(client.socket); });
    if (gone != clients.end()) {
        drop(gone->socket);
        return true;
    }
    if (idleLimit.count() == 0) {
        return false;
    }
    const qint64 share = placesOf(newcomer) + 1;
    const struct
    {
        const char* what;
        std::function<bool(const Client&)> applies;
    } rules[] = {
        {"silent",
         [this](const Client& client) {
             return !client.hasAsked && client.lastRequest.elapsed() >= qMin(firstRequest, idleLimit).count();
         }},
        {"silent",
         [this](const Client& client) { return client.lastRequest.elapsed() >= idleLimit.count(); }},
        {"greedy",
         [this, share](const Client& client) { return placesOf(client.socket->peerAddress()) > share; }},
    };
    for (const auto& rule : rules) {
        const auto loser = longestSilent(rule.applies);
        if (loser != clients.end()) {
            qCInfo(lcServer).noquote()
                << "dropped the" << rule.what << "client" << peer(loser->socket) << "for a new one";
            drop(loser->socket);
            return true;
        }
    }
    return false;
}

void TcpTransport::drop(QTcpSocket* socket)
{
    const auto client = std::find_if(clients.begin(), clients.end(),
                                     [socket](const Client& entry) { return entry.socket == socket; });
    if (client == clients.end()) {
        return;
    }
    qCDebug(lcClients).noquote() << "disconnected" << peer(socket);
    socket->disconnect(this);
    socket->abort();
    socket->deleteLater(); // we may be inside one of its signals
    clients.erase(client);
    limitReported = false;
}

void TcpTransport::serve(Client& client)
{
    QTcpSocket* socket = client.socket;
    while (socket->bytesAvailable() > 0 && socket->bytesToWrite() < writeBacklog &&
           !client.decoder.isBroken()) {
        client.decoder.append(socket->read(readBufferSize));
        answerPending(client);
    }
    if (client.decoder.isBroken()) {
        qCDebug(lcClients).noquote() << "no Modbus/TCP from" << peer(socket);
        drop(socket);
    }
}

void TcpTransport::answerPending(Client& client)
{
    while (const std::optional<MbapRequest> request = client.decoder.next()) {
        client.lastRequest.restart();
        client.hasAsked = true;
        client.socket->write(mbapResponse(*request, answer(request->pdu)));
    }
}

void TcpTransport::pauseAccepting()
{
    // QTcpServer stops accepting after such an error, so resume it here.
    qCWarning(lcServer).noquote() << "cannot accept a client:" << server.errorString();
    QTimer::singleShot(acceptPause, &server, [this] { server.resumeAccepting(); });
}

} // namespace Varnel
