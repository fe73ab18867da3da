// SPDX-License-Identifier: MIT
#pragma once

#include "httpmessages.h"
#include "outcome.h"

#include <QHostAddress>
#include <QJsonObject>
#include <QObject>
#include <QSet>
#include <QTimer>

#include <functional>
#include <memory>

struct MHD_Connection;
struct MHD_Daemon;
class QSocketNotifier;

namespace Simulator {

/// HTTP for the site: libmicrohttpd, driven by Qt's event loop, so that everything runs on one thread.
class HttpServer : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(HttpServer)

public:
    using Handler = std::function<HttpReply(const HttpRequest&)>;

    explicit HttpServer(Handler requestHandler, QObject* parent = nullptr);
    ~HttpServer() override;

    /// The login that every request must carry; an empty login requires none.
    void setLogin(const QString& newLogin, const QString& newPassword);

    /// Where uploaded files are stored; empty: they are only measured.
    void setUploadDirectory(const QString& path) { uploadDirectory = path; }

    /// Listens on an IPv4 address; port 0 lets the system choose.
    Varnel::Outcome<> listen(const QHostAddress& newAddress, quint16 newPort);

    /// Closes all connections and the listening socket; listen() with port() opens it again.
    void close();

    /// Calls close() as soon as no answer is being written; for actions that came over HTTP themselves.
    void closeWhenIdle();

    /// True between listen() and close().
    [[nodiscard]] bool isListening() const { return daemon != nullptr; }

    /// The port that listen() got; it stays known after close().
    [[nodiscard]] quint16 port() const { return boundPort; }

    [[nodiscard]] QHostAddress address() const { return boundAddress; }

signals:
    /// Emitted when an answer begins or a request is left unanswered, with request and answer for the log.
    void answered(const QJsonObject& description);

private:
    friend class HttpExchange;
    friend struct HttpCallbacks;

    void run();
    void suspend(MHD_Connection* connection);
    void suspendFor(MHD_Connection* connection, int milliseconds);
    void resume(MHD_Connection* connection);

    Handler handler;
    QString login;
    QString password;
    QString uploadDirectory;
    QHostAddress boundAddress;
    quint16 boundPort = 0;
    MHD_Daemon* daemon = nullptr;
    std::unique_ptr<QSocketNotifier> activity;
    QTimer wakeUp;
    QSet<MHD_Connection*> suspended;
    int exchanges = 0;
    bool closing = false;
};

} // namespace Simulator
