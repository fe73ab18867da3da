// SPDX-License-Identifier: MIT
#include "updatesocket.h"

#include <QDir>
#include <QFileInfo>
#include <QLocalSocket>

#include "logcategories.h"
#include "registerupdate.h"
#include "service.h"

namespace Varnel {

UpdateSocket::UpdateSocket(Service& service, QObject* parent)
    : QObject(parent)
    , service(service)
{
    server.setSocketOptions(QLocalServer::UserAccessOption);
    connect(&server, &QLocalServer::newConnection, this, &UpdateSocket::accept);
}

UpdateSocket::~UpdateSocket()
{
    // The sockets are children of the server; their last signals must not reach a half-destroyed object.
    for (const auto& [socket, command] : commands) {
        socket->disconnect(this);
    }
}

void UpdateSocket::listen(const QString& path)
{
    QDir().mkpath(QFileInfo(path).path());
    QLocalServer::removeServer(path); // of a server that was killed
    if (!server.listen(path)) {
        qCWarning(lcServer).noquote()
            << "updates come by D-Bus alone, no socket at" << path + QLatin1Char(':') << server.errorString();
    }
}

void UpdateSocket::accept()
{
    while (QLocalSocket* const socket = server.nextPendingConnection()) {
        commands.emplace(socket, QByteArray());
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] { read(socket); });
        connect(socket, &QLocalSocket::disconnected, this, [this, socket] {
            commands.erase(socket);
            socket->deleteLater();
        });
        read(socket); // data that came with the connection has been signalled already
    }
}

void UpdateSocket::read(QLocalSocket* socket)
{
    QByteArray& command = commands[socket];
    command += socket->readAll();
    const int end = command.indexOf('\0');
    if (end < 0 && command.size() <= maxUpdateSize) {
        return;
    }
    const Outcome<> outcome = service.update(end < 0 ? command : command.left(end));
    socket->disconnect(this);
    commands.erase(socket);
    socket->write(outcome ? QByteArray("+") : '-' + outcome.refusal.text.toUtf8());
    connect(socket, &QLocalSocket::disconnected, socket, &QLocalSocket::deleteLater);
    socket->disconnectFromServer(); // once the answer is written
}

} // namespace Varnel
