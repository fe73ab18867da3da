// SPDX-License-Identifier: MIT
#pragma once

#include <QHash>
#include <QMap>
#include <QPointer>
#include <QTcpServer>
#include <QTcpSocket>
#include <QUrl>

/// A web server on the loopback address for real replies: serves what the test has put under each path, in
/// one piece or held up half-way, breaks off on request, and remembers every request.
class HttpServer : public QTcpServer
{
public:
    struct Answer
    {
        QByteArray headers;     ///< further header lines, each ending in "\r\n"
        QByteArray body;        ///< the whole body
        int firstPart = -1;     ///< octets sent at once, the rest on release(); -1 for all
        bool withLength = true; ///< announce the length; without it the end of the connection ends the body
        QByteArray status = "200 OK";
        bool silent = false; ///< send nothing, not even the head, before release()
    };

    /// One request as it arrived; header names in lower case.
    struct Request
    {
        QByteArray method;
        QString target;
        QMap<QByteArray, QByteArray> headers;
        QByteArray body;
    };

    explicit HttpServer(const QHostAddress& address = QHostAddress::LocalHost, quint16 port = 0)
    {
        if (!listen(address, port)) {
            qFatal("cannot listen on %s", qPrintable(address.toString()));
        }
        connect(this, &QTcpServer::newConnection, this, &HttpServer::accept);
    }

    Q_DISABLE_COPY_MOVE(HttpServer)

    /// Paths without an answer are answered by 404.
    void serve(const QString& path, const Answer& answer) { answers.insert(path, answer); }

    /// The same for a body alone.
    void serve(const QString& path, const QByteArray& body, const QByteArray& contentType = "text/html")
    {
        Answer answer;
        answer.headers = "Content-Type: " + contentType + "\r\n";
        answer.body = body;
        serve(path, answer);
    }

    /// Answers with an error from now on.
    void refuse(const QString& path, const QByteArray& status)
    {
        Answer answer;
        answer.status = status;
        answer.body = "refused";
        serve(path, answer);
    }

    QUrl url(const QString& path) const
    {
        const QString host = serverAddress().toString();
        return QUrl(QStringLiteral("http://%1:%2%3").arg(host, QString::number(serverPort()), path));
    }

    /// Every request so far, in order.
    const QList<Request>& requests() const { return received; }

    /// How many requests for `path` came so far.
    int count(const QString& path) const
    {
        int found = 0;
        for (const Request& request : received) {
            found += request.target == path ? 1 : 0;
        }
        return found;
    }

    /// The last request for `path`; empty when there was none.
    Request last(const QString& path) const
    {
        for (int i = received.size() - 1; i >= 0; --i) {
            if (received.at(i).target == path) {
                return received.at(i);
            }
        }
        return {};
    }

    void clearRequests() { received.clear(); }

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

    /// The request at the front of `octets`; without a method while it is incomplete.
    static Request parse(const QByteArray& octets)
    {
        const int end = octets.indexOf("\r\n\r\n");
        if (end < 0) {
            return {};
        }
        QList<QByteArray> lines = octets.left(end).split('\n');
        const QList<QByteArray> words = lines.takeFirst().split(' ');
        Request request;
        request.target = QString::fromLatin1(words.value(1));
        for (const QByteArray& line : lines) {
            const int colon = line.indexOf(':');
            request.headers.insert(line.left(colon).toLower(), line.mid(colon + 1).trimmed());
        }
        request.body = octets.mid(end + 4);
        if (request.body.size() >= request.headers.value("content-length").toInt()) {
            request.method = words.value(0);
        }
        return request;
    }

    static QByteArray head(const Answer& answer)
    {
        QByteArray octets = "HTTP/1.1 " + answer.status + "\r\n";
        if (answer.withLength) {
            octets += "Content-Length: " + QByteArray::number(answer.body.size()) + "\r\n";
        }
        return octets + "Connection: close\r\n" + answer.headers + "\r\n";
    }

    void answerRequest(QTcpSocket* socket)
    {
        const Request request = parse(socket->peek(socket->bytesAvailable()));
        if (request.method.isEmpty()) {
            return;
        }
        socket->readAll();
        received.append(request);
        const QString path = QUrl(request.target).path(QUrl::FullyEncoded);
        Answer missing;
        missing.status = "404 Not Found";
        const Answer answer = answers.value(path, missing);
        held.insert(path, socket);
        if (answer.silent) {
            rest.insert(path, head(answer) + answer.body);
            return;
        }
        socket->write(head(answer));
        rest.insert(path, answer.body);
        sendMore(path, answer.firstPart < 0 ? answer.body.size() : answer.firstPart);
        if (answer.firstPart < 0) {
            socket->disconnectFromHost();
        }
    }

    QHash<QString, Answer> answers;
    QHash<QString, QPointer<QTcpSocket>> held;
    QHash<QString, QByteArray> rest;
    QList<Request> received;
};
