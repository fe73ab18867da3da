// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkDatagram>
#include <QNetworkReply>
#include <QTest>
#include <QUdpSocket>
#include <QtEndian>

#include "program.h"

using Reply = std::unique_ptr<QNetworkReply>;

inline bool finish(const Reply& reply)
{
    return QTest::qWaitFor([&reply] { return reply->isFinished(); }, 60000);
}

inline int status(const Reply& reply)
{
    return reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
}

/// The real program as a child process, HTTP on a free loopback port, and a client of its site.
class SimulatorProcess : public Program
{
public:
    SimulatorProcess()
        : Program("r7m-simulator"_s)
    {
    }

    /// Starts it with --log, --stdin and `options`, and waits for its ready line. A value with blanks is
    /// quoted; an empty one follows a "=".
    [[nodiscard]] bool start(const QString& options = {})
    {
        const QStringList usual = "--http 127.0.0.1:0 --log --stdin"_words;
        return Program::start(usual + QProcess::splitCommand(options)) &&
               QTest::qWaitFor([this] { return !ready().isEmpty() || !isRunning(); }, 10000) &&
               !ready().isEmpty();
    }

    /// Its ready line, which follows what --do did.
    [[nodiscard]] QByteArray ready() const
    {
        const int at = ('\n' + output()).indexOf("\nlistening");
        return at < 0 ? QByteArray() : output().mid(at, output().indexOf('\n', at) - at);
    }

    /// The address of a path below the web site.
    [[nodiscard]] QUrl url(const QString& path) const
    {
        const QString endpoint =
            QString::fromLatin1(ready()).section("http="_s, 1).section(QLatin1Char(' '), 0, 0);
        return QUrl("http://"_s + endpoint + path);
    }

    /// A request for `path`, with the credentials if there are any.
    [[nodiscard]] QNetworkRequest request(const QString& path) const
    {
        QNetworkRequest made(url(path));
        if (!credentials.isEmpty()) {
            made.setRawHeader("Authorization", "Basic " + credentials.toBase64());
        }
        return made;
    }

    /// The answer to a request for `path`; finished() waits for its end.
    Reply get(const QString& path) { return Reply(client.get(request(path))); }
    Reply finished(const QString& path)
    {
        Reply reply = get(path);
        if (!finish(reply)) {
            qWarning() << "No answer to" << path;
        }
        return reply;
    }

    /// Sends one action on standard input.
    void act(const QByteArray& line) { write(line + '\n'); }

    /// All events of this kind so far.
    [[nodiscard]] QList<QJsonObject> events(const QString& kind) const
    {
        QList<QJsonObject> found;
        for (const QByteArray& line : output().split('\n')) {
            const QJsonObject event = QJsonDocument::fromJson(line).object();
            if (event.value(QLatin1String("event")).toString() == kind) {
                found.append(event);
            }
        }
        return found;
    }

    QByteArray credentials; ///< LOGIN:PASSWORD of the requests
    QNetworkAccessManager client;
};

/// A socket that plays the panel.
class PanelSocket
{
public:
    PanelSocket() { socket.bind(QHostAddress(QHostAddress::LocalHost)); }

    [[nodiscard]] QString target() const
    {
        return "%1:%2"_s.arg(socket.localAddress().toString()).arg(socket.localPort());
    }

    /// The next datagram; an invalid one after five seconds without.
    QNetworkDatagram next()
    {
        QCoreApplication::processEvents(); // sends actions that wait
        if (!socket.hasPendingDatagrams()) {
            socket.waitForReadyRead(5000);
        }
        return socket.receiveDatagram();
    }
    /// The octets of the next datagram, and its sequence number.
    QByteArray nextFrame() { return next().data(); }
    quint32 nextSequence()
    {
        const QByteArray frame = nextFrame();
        return frame.size() < 12 ? 0 : qFromLittleEndian<quint32>(frame.constData() + 8);
    }

    QUdpSocket socket;
};
