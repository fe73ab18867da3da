// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <QtGlobal>

namespace VarnelBench {

/// A web server in a process of its own, so that its bodies do not count as the panel's memory: "/N" gives N
/// bytes as a download. It ends with the object.
class BodyServer
{
    Q_DISABLE_COPY_MOVE(BodyServer)

public:
    /// Create it before the application object: it forks.
    BodyServer();
    ~BodyServer();

    /// The port at 127.0.0.1.
    quint16 port() const { return listeningPort; }

private:
    pid_t process = 0;
    quint16 listeningPort = 0;
};

} // namespace VarnelBench
