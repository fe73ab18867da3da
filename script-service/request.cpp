// SPDX-License-Identifier: MIT
// Stands in for each device script within the panel's unit: asks the script service to run it, waits, ends
// with its status.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "plain.h"
#include "protocol.h"

namespace {

/// argv[0] is the script's path; the service expects the name alone.
std::string requestOf(int argc, char* argv[])
{
    const char* const slash = std::strrchr(argv[0], '/');
    std::string request = slash != nullptr ? slash + 1 : argv[0];
    request.push_back('\0');
    for (int i = 1; i < argc; ++i) {
        request.append(argv[i]).push_back('\0');
    }
    return request;
}

/// The connection, or -1 with errno set.
int connectTo(const char* path)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path, sizeof address.sun_path - 1);
    const int connection = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connection >= 0 &&
        ::connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        const int reason = errno;
        ::close(connection);
        errno = reason;
        return -1;
    }
    return connection;
}

bool sendAll(int connection, const std::string& octets)
{
    std::size_t sent = 0;
    while (sent < octets.size()) {
        const ssize_t count = ::send(connection, octets.data() + sent, octets.size() - sent, MSG_NOSIGNAL);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            return false;
        }
        sent += static_cast<std::size_t>(count);
    }
    return ::shutdown(connection, SHUT_WR) == 0;
}

/// The script's status, or -1 when the service went away without one.
int awaitStatus(int connection)
{
    unsigned char status = 0;
    ssize_t count = 0;
    do {
        count = ::recv(connection, &status, sizeof status, 0);
    } while (count < 0 && errno == EINTR);
    return count == 1 ? status : -1;
}

} // namespace

int main(int argc, char* argv[])
{
    const int connection = connectTo(ScriptService::socketPath);
    if (connection < 0) {
        Varnel::say(std::string(argv[0]) + ": no script service at " + ScriptService::socketPath + ": " +
                    std::strerror(errno));
        return ScriptService::notRun;
    }
    // A service that refuses a request closes early; its answer says more than the failed send.
    const bool sent = sendAll(connection, requestOf(argc, argv));
    const int status = awaitStatus(connection);
    if (status < 0) {
        Varnel::say(std::string(argv[0]) + ": the script service " +
                    (sent ? "gave no answer" : "took no request"));
        return ScriptService::notRun;
    }
    return status;
}
