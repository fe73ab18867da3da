// SPDX-License-Identifier: MIT
#include "webserver.h"

#include <algorithm>

#include <sys/socket.h>

#include <QTimer>

namespace {

QByteArray withoutQuery(const QByteArray& path)
{
    return path.split('?').constFirst();
}

/// The request at the front of `octets`; without a method while it is incomplete.
WebServer::Request parse(const QByteArray& octets)
{
    const int end = octets.indexOf("\r\n\r\n");
    if (end < 0) {
        return {};
    }
    QList<QByteArray> lines = octets.left(end).split('\n');
    const QList<QByteArray> words = lines.takeFirst().trimmed().split(' ');
    WebServer::Request request;
    request.path = words.value(1);
    for (const QByteArray& line : qAsConst(lines)) {
        const int colon = line.indexOf(':');
        request.headers.insert(line.left(colon).trimmed().toLower(), line.mid(colon + 1).trimmed());
    }
    request.body = octets.mid(end + 4);
    if (request.body.size() >= request.headers.value("content-length").toInt()) {
        request.method = words.value(0);
    }
    return request;
}

QByteArray head(const WebServer::Answer& answer)
{
    if (!answer.hasHead) {
        return {};
    }
    QByteArray octets = "HTTP/1.1 " + answer.status + "\r\n";
    if (answer.withLength) {
        octets += "Content-Length: " + QByteArray::number(answer.body.size()) + "\r\n";
    }
    return octets + "Connection: close\r\n" + answer.headers + "\r\n";
}

void end(QTcpSocket* socket, AfterAnswer after)
{
    if (after == AfterAnswer::Close) {
        socket->disconnectFromHost();
    } else if (after == AfterAnswer::Reset) {
        // With a lingering time of zero the kernel ends the connection by a reset.
        const linger none{1, 0};
        ::setsockopt(static_cast<int>(socket->socketDescriptor()), SOL_SOCKET, SO_LINGER, &none, sizeof none);
        socket->abort();
    } else if (after == AfterAnswer::Stream) {
        auto* const pace = new QTimer(socket);
        QObject::connect(pace, &QTimer::timeout, socket,
                         [socket] { socket->write(QByteArray(1024, 'x') + "<br>"); });
        pace->start(std::chrono::milliseconds(20));
    }
}

} // namespace

WebServer::WebServer(const QHostAddress& address, quint16 port)
{
    if (!address.isNull() && !QTcpServer::listen(address, port)) {
        qFatal("cannot listen on %s", qPrintable(address.toString()));
    }
    connect(this, &QTcpServer::newConnection, this, &WebServer::accept);
}

bool WebServer::listen(const QString& address)
{
    const bool listening = isListening() || QTcpServer::listen(QHostAddress(address), 80);
    if (!listening) {
        qWarning() << "Cannot listen on" << address << errorString();
    }
    return listening;
}

void WebServer::close()
{
    QTcpServer::close();
    const QList<QTcpSocket*> sockets = findChildren<QTcpSocket*>();
    for (QTcpSocket* const socket : sockets) {
        socket->abort();
    }
}

QUrl WebServer::url(const Path& path) const
{
    return QUrl(
        "http://%1:%2%3"_s.arg(serverAddress().toString()).arg(serverPort()).arg(QLatin1String(path)));
}

int WebServer::count(const Path& path) const
{
    return static_cast<int>(std::count_if(received.cbegin(), received.cend(),
                                          [&path](const Request& request) { return request.path == path; }));
}

bool WebServer::awaitCount(const Path& path, int wanted, std::chrono::milliseconds limit) const
{
    const bool reached = awaitTrue([&] { return count(path) >= wanted; }, limit);
    if (!reached) {
        qWarning() << "Only" << count(path) << "of" << wanted << "requests for" << path;
    }
    return reached;
}

WebServer::Request WebServer::last(const Path& path) const
{
    const auto found = std::find_if(received.crbegin(), received.crend(),
                                    [&path](const Request& request) { return request.path == path; });
    return found != received.crend() ? *found : Request();
}

void WebServer::sendMore(const Path& path, int octets)
{
    if (QTcpSocket* const socket = held.value(path)) {
        socket->write(rest[path].left(octets));
        rest[path].remove(0, octets);
    }
}

void WebServer::release(const Path& path)
{
    sendMore(path, rest.value(path).size());
    breakOff(path);
}

void WebServer::breakOff(const Path& path)
{
    if (QTcpSocket* const socket = held.value(path)) {
        socket->disconnectFromHost();
    }
}

bool WebServer::isConnected(const Path& path) const
{
    const QTcpSocket* const socket = held.value(path);
    return socket && socket->state() == QAbstractSocket::ConnectedState;
}

void WebServer::accept()
{
    while (QTcpSocket* const socket = nextPendingConnection()) {
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] { read(socket); });
    }
}

void WebServer::read(QTcpSocket* socket)
{
    const Request request = parse(socket->peek(socket->bytesAvailable()));
    if (request.method.isEmpty()) {
        return;
    }
    socket->readAll();
    received += request;
    emit requested(request.path);
    if (delay.count() == 0) {
        reply(socket, request.path);
    } else {
        QTimer::singleShot(delay, socket, [this, socket, path = request.path] { reply(socket, path); });
    }
}

WebServer::Answer WebServer::answerTo(const QByteArray& path) const
{
    Answer missing;
    missing.status = "404 Not Found";
    const auto exact = answers.constFind(path);
    return exact != answers.cend() ? *exact : answers.value(withoutQuery(path), missing);
}

void WebServer::reply(QTcpSocket* socket, const QByteArray& requestedPath)
{
    const QByteArray path = withoutQuery(requestedPath);
    const Answer answer = answerTo(requestedPath);
    held.insert(path, socket);
    if (answer.silent) {
        rest.insert(path, head(answer) + answer.body);
        return;
    }
    socket->write(head(answer));
    rest.insert(path, answer.body);
    sendMore(path, answer.firstPart < 0 ? answer.body.size() : answer.firstPart);
    if (answer.firstPart < 0) {
        socket->flush();
        end(socket, answer.after);
    }
}
