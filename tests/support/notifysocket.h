// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include <QSocketNotifier>
#include <QStringList>
#include <QTemporaryDir>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

/// A service manager's end of sd_notify(3): a datagram socket of its own, whose messages are kept in the
/// order in which they come.
class NotifySocket
{
    Q_DISABLE_COPY_MOVE(NotifySocket)

public:
    NotifySocket()
        : handle(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
        , notifier(handle, QSocketNotifier::Read)
    {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        path().copy(address.sun_path, sizeof address.sun_path - 1);
        if (::bind(handle, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            qFatal("cannot bind %s", path().c_str());
        }
        QObject::connect(&notifier, &QSocketNotifier::activated, &notifier, [this] { receive(); });
    }
    ~NotifySocket() { ::close(handle); }

    /// The socket's address: the value of NOTIFY_SOCKET.
    std::string path() const { return directory.filePath(QStringLiteral("notify")).toStdString(); }

    /// All messages so far, those included that only wait in the socket.
    QStringList messages()
    {
        receive();
        return received;
    }
    void clear()
    {
        receive();
        received.clear();
    }

private:
    void receive()
    {
        char buffer[512];
        ssize_t count = 0;
        while ((count = ::recv(handle, buffer, sizeof buffer, 0)) > 0) {
            received.append(QString::fromLatin1(buffer, static_cast<int>(count)));
        }
    }

    QTemporaryDir directory;
    int handle;
    QSocketNotifier notifier;
    QStringList received;
};
