// SPDX-License-Identifier: MIT
#pragma once

#include <QHash>
#include <QMap>
#include <QPointer>
#include <QTcpServer>
#include <QTcpSocket>
#include <QUrl>

#include "logreader.h"

/// The action of a web server after the bytes of an answer.
enum class AfterAnswer
{
    Close,    ///< ends the connection in order
    Reset,    ///< breaks it off
    KeepOpen, ///< leaves it open and says no more
    Stream,   ///< sends body octets without end
};

/// A web server that gives exactly the configured answers, right or wrong, in one piece or delayed half-way,
/// and remembers every request. It reads no more of HTTP than it needs, so that nothing repairs a wrong
/// answer on its way.
class WebServer : public QTcpServer
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(WebServer)

public:
    /// A path, as whichever kind of text is at hand.
    struct Path : QByteArray
    {
        using QByteArray::QByteArray;
        Path(const QByteArray& text)
            : QByteArray(text)
        {
        } // NOLINT(google-explicit-constructor)
        Path(const QString& text)
            : QByteArray(text.toLatin1())
        {
        } // NOLINT(google-explicit-constructor)
    };

    struct Answer
    {
        QByteArray headers;     ///< further header lines, each ending in "\r\n"
        QByteArray body;        ///< the whole body
        int firstPart = -1;     ///< octets sent at once, the rest on release(); -1 for all
        bool withLength = true; ///< announce the length; without it the end of the connection ends the body
        QByteArray status = "200 OK";
        bool silent = false; ///< send nothing, not even the head, before release()
        bool hasHead = true; ///< otherwise the body is all that is sent
        AfterAnswer after = AfterAnswer::Close;
    };

    /// One request as it arrived; header names in lower case.
    struct Request
    {
        QByteArray method;
        QByteArray path;
        QMap<QByteArray, QByteArray> headers;
        QByteArray body;
    };

    /// Listens there; with a null address only after listen().
    explicit WebServer(const QHostAddress& address = QHostAddress::LocalHost, quint16 port = 0);

    /// Listens on `address`, port 80, unless it listens already.
    [[nodiscard]] bool listen(const QString& address = QStringLiteral("192.168.7.2"));
    /// Stops to listen and breaks all connections off.
    void close();

    /// Answers requests for `path` so from now on; with a query behind it, too, unless that has an answer of
    /// its own. Paths without an answer are answered by 404.
    void serve(const Path& path, const Answer& answer) { answers.insert(path, answer); }
    /// The same for a body alone.
    void serve(const Path& path, const QByteArray& body, const QByteArray& contentType = "text/html")
    {
        serve(path, Answer{"Content-Type: " + contentType + "\r\n", body});
    }
    /// The same with exactly these octets.
    void answer(const Path& path, const QByteArray& octets, AfterAnswer after = AfterAnswer::Close)
    {
        serve(path, Answer{{}, octets, -1, false, {}, false, false, after});
    }
    /// Answers with the page `body`, but only on release().
    void hold(const Path& path, const QByteArray& body = {})
    {
        serve(path, body);
        answers[path].silent = true;
    }
    /// Answers with `status` (such as "404 Not Found") and a short text.
    void refuse(const Path& path, const QByteArray& status)
    {
        serve(path, Answer{"Content-Type: text/plain\r\n", status, -1, true, status});
    }
    /// Sends a page without end.
    void serveEndlessly(const Path& path)
    {
        answer(path, "HTTP/1.1 200 OK\r\nContent-Type: text/html\r\n\r\n<html><body>", AfterAnswer::Stream);
    }
    /// Delays the beginning of every answer.
    void setDelay(std::chrono::milliseconds time) { delay = time; }

    QUrl url(const Path& path) const;

    /// Every request so far, in order.
    const QList<Request>& requests() const { return received; }
    /// How many requests for `path` came so far.
    int count(const Path& path) const;
    /// Waits until there were at least `wanted` requests for `path`.
    [[nodiscard]] bool awaitCount(const Path& path, int wanted,
                                  std::chrono::milliseconds limit = patience) const;
    /// The last request for `path`; empty when there was none.
    Request last(const Path& path) const;
    /// Forgets the requests so far.
    void clear() { received.clear(); }

    /// Sends up to `octets` more bytes of the delayed rest of the answer under `path`.
    void sendMore(const Path& path, int octets);
    /// Sends the delayed rest of the answer under `path`.
    void release(const Path& path);
    /// Closes the connection of the answer under `path` with the rest unsent.
    void breakOff(const Path& path);
    /// True while the client still keeps the connection of the answer under `path`.
    bool isConnected(const Path& path) const;

signals:
    void requested(const QByteArray& path);

private:
    void accept();
    void read(QTcpSocket* socket);
    Answer answerTo(const QByteArray& path) const;
    void reply(QTcpSocket* socket, const QByteArray& path);

    std::chrono::milliseconds delay{0};
    QHash<QByteArray, Answer> answers;
    QHash<QByteArray, QPointer<QTcpSocket>> held;
    QHash<QByteArray, QByteArray> rest;
    QList<Request> received;
};
