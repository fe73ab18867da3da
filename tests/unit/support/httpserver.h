// SPDX-License-Identifier: MIT
#pragma once

#include <QHash>
#include <QPointer>
#include <QTcpServer>
#include <QTcpSocket>
#include <QUrl>

/// A web server on the loopback address for real replies: serves what the test has put under each path, in
/// one piece or held up half-way, and breaks off on request.
class HttpServer : public QTcpServer
{
public:
    struct Answer
    {
        QByteArray headers;     ///< further header lines, each ending in "\r\n"
        QByteArray body;        ///< the whole body
        int firstPart = -1;     ///< octets sent at once, the rest on release(); -1 for all
        bool withLength = true; ///< announce the length; without it the end of the connection ends the body
    };

    HttpServer()
    {
        if (!listen(QHostAddress::LocalHost)) {
            qFatal("cannot listen on the loopback address");
        }
        connect(this, &QTcpServer::newConnection, this, &HttpServer::accept);
    }

    Q_DISABLE_COPY_MOVE(HttpServer)

    void serve(const QString& path, const Answer& answer) { answers.insert(path, answer); }

    QUrl url(const QString& path) const
    {
        return QUrl(QStringLiteral("http://127.0.0.1:%1%2").arg(QString::number(serverPort()), path));
    }

    /// Sends up to `octets` more of what was held back of the answer under `path`.
    void sendMore(const QString& path, int octets)
    {
        if (QTcpSocket* const socket = held.value(path)) {
            socket->write(rest[path].left(octets));
            rest[path].remove(0, octets);
        }
    }

    /// Sends all that was held back of the answer under `path`.
    void release(const QString& path)
    {
        sendMore(path, rest.value(path).size());
        breakOff(path);
    }

    /// Closes the connection of the answer under `path` with the rest unsent.
    void breakOff(const QString& path)
    {
        if (QTcpSocket* const socket = held.value(path)) {
            socket->disconnectFromHost();
        }
    }

    /// True while the client still keeps the connection of the answer under `path`.
    bool isConnected(const QString& path) const
    {
        const QTcpSocket* const socket = held.value(path);
        return socket && socket->state() == QAbstractSocket::ConnectedState;
    }

private:
    void accept()
    {
        while (QTcpSocket* const socket = nextPendingConnection()) {
            connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            connect(socket, &QTcpSocket::readyRead, this, [this, socket] { answerRequest(socket); });
        }
    }

    void answerRequest(QTcpSocket* socket)
    {
        const QByteArray head = socket->peek(socket->bytesAvailable());
        if (!head.contains("\r\n\r\n")) {
            return;
        }
        socket->readAll();
        const QString target = QString::fromLatin1(head.split(' ').value(1));
        const QString path = QUrl(target).path(QUrl::FullyEncoded);
        const bool known = answers.contains(path);
        const Answer answer = answers.value(path);
        socket->write(known ? "HTTP/1.1 200 OK\r\n" : "HTTP/1.1 404 Not Found\r\n");
        if (answer.withLength) {
            socket->write("Content-Length: " + QByteArray::number(answer.body.size()) + "\r\n");
        }
        socket->write("Connection: close\r\n" + answer.headers + "\r\n");
        held.insert(path, socket);
        rest.insert(path, answer.body);
        sendMore(path, answer.firstPart < 0 ? answer.body.size() : answer.firstPart);
        if (answer.firstPart < 0) {
            socket->disconnectFromHost();
        }
    }

    QHash<QString, Answer> answers;
    QHash<QString, QPointer<QTcpSocket>> held;
    QHash<QString, QByteArray> rest;
};
