// SPDX-License-Identifier: MIT
#pragma once

#include <map>

#include <QLocalServer>
#include <QObject>

class QLocalSocket;

namespace Varnel {

class Service;

/// Takes update commands from mbserverupdate.sh: each frame of the controller brings one, and a call by D-Bus
/// takes the script ten times as long. Only the server's own user and root may connect.
///
/// A connection carries one command, ended by a NUL, and one answer: "+" when it was published, else "-" and
/// one line that says why not.
class UpdateSocket : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(UpdateSocket)

public:
    /// `service` must outlive this object.
    explicit UpdateSocket(Service& service, QObject* parent = nullptr);
    ~UpdateSocket() override;

    /// Listens at `path` and creates its directory if permitted. Without the socket, updates come by D-Bus
    /// alone.
    void listen(const QString& path);

private:
    void accept();
    void read(QLocalSocket* socket);

    Service& service;
    QLocalServer server;
    std::map<QLocalSocket*, QByteArray> commands; ///< what has arrived of each connection's command
};

} // namespace Varnel
