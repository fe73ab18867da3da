// SPDX-License-Identifier: MIT
#include "httpserver.h"

#include "httpexchange.h"

#include <QSocketNotifier>

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>

namespace Simulator {

HttpServer::HttpServer(Handler requestHandler, QObject* parent)
    : QObject(parent)
    , handler(std::move(requestHandler))
{
    wakeUp.setSingleShot(true);
    connect(&wakeUp, &QTimer::timeout, this, &HttpServer::run);
}

HttpServer::~HttpServer()
{
    close();
}

void HttpServer::setLogin(const QString& newLogin, const QString& newPassword)
{
    login = newLogin;
    password = newPassword;
}

Varnel::Outcome<> HttpServer::listen(const QHostAddress& newAddress, quint16 newPort)
{
    close();
    sockaddr_in where{};
    where.sin_family = AF_INET;
    where.sin_port = htons(newPort);
    where.sin_addr.s_addr = htonl(newAddress.toIPv4Address());
    errno = 0;
    daemon = MHD_start_daemon(MHD_USE_EPOLL | MHD_ALLOW_SUSPEND_RESUME, newPort, nullptr, nullptr,
                              &HttpCallbacks::access, this, MHD_OPTION_SOCK_ADDR, static_cast<void*>(&where),
                              MHD_OPTION_NOTIFY_COMPLETED, &HttpCallbacks::completed,
                              static_cast<void*>(nullptr), MHD_OPTION_END);
    if (daemon == nullptr) {
        return Varnel::Refusal(QStringLiteral("cannot serve HTTP on %1:%2: %3")
                                   .arg(newAddress.toString(), QString::number(newPort),
                                        QString::fromLocal8Bit(std::strerror(errno))));
    }
    boundAddress = newAddress;
    boundPort = MHD_get_daemon_info(daemon, MHD_DAEMON_INFO_BIND_PORT)->port;
    const int descriptor = MHD_get_daemon_info(daemon, MHD_DAEMON_INFO_EPOLL_FD)->epoll_fd;
    activity = std::make_unique<QSocketNotifier>(descriptor, QSocketNotifier::Read);
    connect(activity.get(), &QSocketNotifier::activated, this, &HttpServer::run);
    return {};
}

void HttpServer::close()
{
    if (daemon == nullptr) {
        return;
    }
    const QSet<MHD_Connection*> waiting = suspended;
    for (MHD_Connection* connection : waiting) {
        resume(connection); // the daemon must not be stopped with suspended connections
    }
    activity.reset();
    wakeUp.stop();
    MHD_stop_daemon(daemon);
    daemon = nullptr;
    suspended.clear();
    exchanges = 0;
    closing = false;
}

void HttpServer::closeWhenIdle()
{
    closing = true;
    wakeUp.start(0);
}

void HttpServer::run()
{
    if (daemon == nullptr) {
        return;
    }
    MHD_run(daemon);
    if (closing && exchanges <= suspended.size()) {
        close();
        return;
    }
    // Connections that are ready without new input from the network show up only as a timeout.
    MHD_UNSIGNED_LONG_LONG milliseconds = 0;
    if (MHD_get_timeout(daemon, &milliseconds) == MHD_YES) {
        wakeUp.start(static_cast<int>(std::min<MHD_UNSIGNED_LONG_LONG>(milliseconds, 60000)));
    } else {
        wakeUp.stop();
    }
}

void HttpServer::suspend(MHD_Connection* connection)
{
    suspended.insert(connection);
    MHD_suspend_connection(connection);
}

void HttpServer::suspendFor(MHD_Connection* connection, int milliseconds)
{
    suspend(connection);
    // The notifier lives as long as the daemon: a timer must not outlive the connection it resumes.
    QTimer::singleShot(milliseconds, activity.get(), [this, connection] { resume(connection); });
}

void HttpServer::resume(MHD_Connection* connection)
{
    if (!suspended.remove(connection)) {
        return;
    }
    MHD_resume_connection(connection);
    wakeUp.start(0);
}

} // namespace Simulator
