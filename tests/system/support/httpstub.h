// SPDX-License-Identifier: MIT
#pragma once

#include <functional>

#include <QList>
#include <QMap>
#include <QObject>
#include <QTcpServer>
#include <QTcpSocket>

#include "logreader.h"

namespace VarnelTest {

/// One request as it arrived: its first line's words, its header lines with names in lower case.
struct HttpRequest
{
    QByteArray method;
    QByteArray path;
    QMap<QByteArray, QByteArray> headers;
};

/// What may be wrong with an answer, beyond what its octets say.
enum class AfterAnswer
{
    Close,    ///< end the connection in order
    Reset,    ///< break it off
    KeepOpen, ///< leave it open and say no more
};

/// A web server that gives exactly the octets it was told to, right or wrong, and remembers every request. It
/// reads no more of HTTP than the first lines of a request, so that nothing repairs a wrong answer on its
/// way.
class HttpStub : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(HttpStub)

public:
    explicit HttpStub(QObject* parent = nullptr);

    /// Listens on `address`, port 80, unless it listens already.
    [[nodiscard]] bool listen(const QString& address = QStringLiteral("192.168.7.2"));
    /// Stops to listen and breaks all connections off.
    void close();

    /// Answers requests for `path` with exactly these octets from now on; with a query behind it, too, unless
    /// that has an answer of its own.
    void answer(const QByteArray& path, const QByteArray& octets, AfterAnswer after = AfterAnswer::Close);
    /// The same with a well-formed answer around `body`.
    void serve(const QByteArray& path, const QByteArray& body, const QByteArray& contentType = "text/html");
    /// Answers with `status` (such as "404 Not Found") and a short text.
    void refuse(const QByteArray& path, const QByteArray& status);
    /// Lets every answer begin so much later.
    void setDelay(std::chrono::milliseconds time) { delay = time; }
    /// Sends body octets without end for `path`.
    void serveEndlessly(const QByteArray& path);

    /// All requests so far, in order.
    const QList<HttpRequest>& requests() const { return received; }
    /// How many requests for `path` came so far.
    int count(const QByteArray& path) const;
    /// Waits until there were at least `wanted` requests for `path`.
    [[nodiscard]] bool awaitCount(const QByteArray& path, int wanted,
                                  std::chrono::milliseconds limit = patience) const;
    /// Forgets the requests so far.
    void clear() { received.clear(); }

signals:
    void requested(const QByteArray& path);

private:
    struct Answer
    {
        QByteArray octets;
        AfterAnswer after = AfterAnswer::Close;
        bool endless = false;
    };

    void read(QTcpSocket* socket);
    Answer answerTo(const QByteArray& path) const;
    void reply(QTcpSocket* socket, const QByteArray& path);

    QTcpServer server;
    std::chrono::milliseconds delay{0};
    QMap<QByteArray, Answer> answers;
    QList<HttpRequest> received;
};

} // namespace VarnelTest
