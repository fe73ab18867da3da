// SPDX-License-Identifier: MIT
#include "bodyserver.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace VarnelBench {

namespace {

bool writeAll(int socket, const std::string& octets, std::size_t size)
{
    for (std::size_t sent = 0; sent < size;) {
        const ssize_t count = ::send(socket, octets.data() + sent, size - sent, MSG_NOSIGNAL);
        if (count <= 0) {
            return false;
        }
        sent += static_cast<std::size_t>(count);
    }
    return true;
}

void answer(int socket)
{
    char request[4096] = {};
    if (::read(socket, request, sizeof request - 1) <= 0) {
        return;
    }
    const char* const path = std::find(request, request + sizeof request - 1, '/');
    std::size_t size = std::strtoul(path + 1, nullptr, 10);
    const std::string head = "HTTP/1.1 200 OK\r\nContent-Type: application/octet-stream\r\nContent-Length: " +
                             std::to_string(size) + "\r\nConnection: close\r\n\r\n";
    const std::string piece(65536, 'x');
    bool open = writeAll(socket, head, head.size());
    for (; open && size > 0; size -= std::min(size, piece.size())) {
        open = writeAll(socket, piece, std::min(size, piece.size()));
    }
}

[[noreturn]] void serve(int listener)
{
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (;;) {
        const int socket = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (socket >= 0) {
            answer(socket);
            ::close(socket);
        }
    }
}

} // namespace

BodyServer::BodyServer()
{
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const any = reinterpret_cast<sockaddr*>(&address);
    if (::bind(listener, any, size) != 0 || ::listen(listener, 16) != 0 ||
        ::getsockname(listener, any, &size) != 0) {
        std::perror("cannot listen");
        std::exit(1);
    }
    listeningPort = ntohs(address.sin_port);
    process = ::fork();
    if (process == 0) {
        serve(listener);
    }
    ::close(listener);
}

BodyServer::~BodyServer()
{
    ::kill(process, SIGKILL);
    ::waitpid(process, nullptr, 0);
}

} // namespace VarnelBench
