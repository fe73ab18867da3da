// SPDX-License-Identifier: MIT
#include "httpstub.h"

#include <sys/socket.h>

#include <QTest>
#include <QTimer>

namespace VarnelTest {

namespace {

const QByteArray endOfHead = "\r\n\r\n";

HttpRequest parse(const QByteArray& head)
{
    QList<QByteArray> lines = head.split('\n');
    const QList<QByteArray> words = lines.takeFirst().trimmed().split(' ');
    HttpRequest request{words.value(0), words.value(1), {}};
    for (const QByteArray& line : qAsConst(lines)) {
        const int colon = line.indexOf(':');
        request.headers.insert(line.left(colon).trimmed().toLower(), line.mid(colon + 1).trimmed());
    }
    return request;
}

QByteArray wellFormed(const QByteArray& status, const QByteArray& contentType, const QByteArray& body)
{
    return "HTTP/1.1 " + status + "\r\nContent-Type: " + contentType +
           "\r\nContent-Length: " + QByteArray::number(body.size()) + "\r\nConnection: close" + endOfHead +
           body;
}

} // namespace

HttpStub::HttpStub(QObject* parent)
    : QObject(parent)
{
    connect(&server, &QTcpServer::newConnection, this, [this] {
        while (QTcpSocket* const socket = server.nextPendingConnection()) {
            connect(socket, &QTcpSocket::readyRead, this, [this, socket] { read(socket); });
            connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        }
    });
}

bool HttpStub::listen(const QString& address)
{
    const bool listening = server.isListening() || server.listen(QHostAddress(address), 80);
    if (!listening) {
        qWarning() << "Cannot listen on" << address << server.errorString();
    }
    return listening;
}

void HttpStub::close()
{
    server.close();
    const QList<QTcpSocket*> sockets = server.findChildren<QTcpSocket*>();
    for (QTcpSocket* const socket : sockets) {
        socket->abort();
    }
}

void HttpStub::answer(const QByteArray& path, const QByteArray& octets, AfterAnswer after)
{
    answers[path] = {octets, after, false};
}

void HttpStub::serve(const QByteArray& path, const QByteArray& body, const QByteArray& contentType)
{
    answer(path, wellFormed("200 OK", contentType, body));
}

void HttpStub::refuse(const QByteArray& path, const QByteArray& status)
{
    answer(path, wellFormed(status, "text/plain", status));
}

void HttpStub::serveEndlessly(const QByteArray& path)
{
    answers[path] = {"HTTP/1.1 200 OK\r\nContent-Type: text/html" + endOfHead + "<html><body>",
                     AfterAnswer::KeepOpen, true};
}

int HttpStub::count(const QByteArray& path) const
{
    return static_cast<int>(std::count_if(received.cbegin(), received.cend(),
                                          [&path](const auto& request) { return request.path == path; }));
}

bool HttpStub::awaitCount(const QByteArray& path, int wanted, std::chrono::milliseconds limit) const
{
    const bool reached =
        QTest::qWaitFor([&] { return count(path) >= wanted; }, static_cast<int>(limit.count()));
    if (!reached) {
        qWarning() << "Only" << count(path) << "of" << wanted << "requests for" << path;
    }
    return reached;
}

void HttpStub::read(QTcpSocket* socket)
{
    // One request a connection, as each answer ends it or leaves it hanging.
    const QByteArray soFar = socket->peek(65536);
    const int end = soFar.indexOf(endOfHead);
    if (end < 0 || socket->property("answered").toBool()) {
        return;
    }
    socket->setProperty("answered", true);
    const HttpRequest request = parse(soFar.left(end));
    received += request;
    emit requested(request.path);
    if (delay.count() == 0) {
        reply(socket, request.path);
    } else {
        QTimer::singleShot(delay, socket, [this, socket, path = request.path] { reply(socket, path); });
    }
}

HttpStub::Answer HttpStub::answerTo(const QByteArray& path) const
{
    const auto exact = answers.constFind(path);
    if (exact != answers.cend()) {
        return *exact;
    }
    const Answer nothing{wellFormed("404 Not Found", "text/plain", "nothing here"), AfterAnswer::Close,
                         false};
    return answers.value(path.left(path.indexOf('?')), nothing);
}

void HttpStub::reply(QTcpSocket* socket, const QByteArray& path)
{
    const Answer answer = answerTo(path);
    socket->write(answer.octets);
    if (answer.endless) {
        auto* const pace = new QTimer(socket);
        connect(pace, &QTimer::timeout, socket, [socket] { socket->write(QByteArray(1024, 'x') + "<br>"); });
        pace->start(std::chrono::milliseconds(20));
        return;
    }
    socket->flush();
    if (answer.after == AfterAnswer::Close) {
        socket->disconnectFromHost();
    } else if (answer.after == AfterAnswer::Reset) {
        // With a lingering time of zero the kernel ends the connection by a reset.
        const linger none{1, 0};
        ::setsockopt(static_cast<int>(socket->socketDescriptor()), SOL_SOCKET, SO_LINGER, &none, sizeof none);
        socket->abort();
    }
}

} // namespace VarnelTest
