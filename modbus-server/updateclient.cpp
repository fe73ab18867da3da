// SPDX-License-Identifier: MIT
// mbserverupdate.sh: hands new register values to the Modbus server. The panel runs it with each frame that
// carries values, so it is a program that starts quickly.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <tuple>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "plain.h"
#include "updatesocketpath.h"

using namespace Varnel;

namespace {

constexpr char deviceSettings[] = "/usr/local/etc/varnel-device.conf";

/// The panel kills a script after 30 s; this limit is shorter, so that the program can report the problem
/// itself.
constexpr timeval patience{20, 0};

std::string usageOf(const std::string& name)
{
    return "Usage: " + name + R"( COMMAND

Publishes the register values in COMMAND, a JSON object in one argument, to the Modbus server's clients: all of them
at once, or none of them if something is wrong with one. Example:
    )" + name +
           R"( '{"cmd":"setconfig","data":[{"address":100,"values":[0,1,4660,22136]}]}'
)";
}

/// The text of a small file; empty when there is none.
std::string contentOf(const char* path)
{
    const Descriptor file(::open(path, O_RDONLY | O_CLOEXEC));
    std::string text;
    char buffer[4096];
    for (ssize_t count = 0; (count = ::read(file.get(), buffer, sizeof buffer)) > 0;) {
        text.append(buffer, static_cast<std::size_t>(count));
    }
    return text;
}

/// Whether the device's settings name another bus than the system's: the socket belongs to the server on the
/// system bus.
bool isOnAnotherBus()
{
    constexpr std::string_view key = "MODBUS_BUS=";
    const std::string text = contentOf(deviceSettings);
    std::string_view bus = "system";
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        const std::string_view line = std::string_view(text).substr(start, end - start);
        if (line.substr(0, key.size()) == key) {
            bus = line.substr(key.size());
        }
        start = end + 1;
    }
    return bus != "system" && bus != "\"system\"" && bus != "'system'";
}

/// The connection; none when no server listens.
Descriptor connectToServer()
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, updateSocketPath, sizeof address.sun_path - 1);
    Descriptor connection(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ::setsockopt(connection.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    ::setsockopt(connection.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    if (::connect(connection.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        connection.reset();
    }
    return connection;
}

/// Sends the command with its NUL. After an early answer the send fails; the answer says more than that
/// failure.
void send(int connection, const char* command)
{
    const std::size_t size = std::strlen(command) + 1;
    for (std::size_t sent = 0; sent < size;) {
        const ssize_t count = ::send(connection, command + sent, size - sent, MSG_NOSIGNAL);
        if (count < 0 && errno != EINTR) {
            return;
        }
        sent += count < 0 ? 0 : static_cast<std::size_t>(count);
    }
}

std::string receive(int connection)
{
    std::string answer;
    char buffer[512];
    ssize_t count = 0;
    do {
        count = ::recv(connection, buffer, sizeof buffer, 0);
        answer.append(buffer, count > 0 ? static_cast<std::size_t>(count) : 0);
    } while (count > 0 || (count < 0 && errno == EINTR));
    return answer;
}

/// D-Bus starts a server that does not run, and reaches one on another bus.
int callOverBus(char* path, char* command)
{
    char shell[] = "sh";
    char option[] = "-euc";
    char script[] =
        R"sh(. "$(dirname -- "$(readlink -f -- "$0")")/varnel-modbus.sh"; server_call Update "$1")sh";
    char* const arguments[] = {shell, option, script, path, command, nullptr};
    ::execv("/bin/sh", arguments);
    say(std::string(path) + ": cannot run /bin/sh: " + std::strerror(errno));
    return 1;
}

} // namespace

int main(int argc, char* argv[])
{
    const char* const slash = std::strrchr(argv[0], '/');
    const std::string name = slash != nullptr ? slash + 1 : argv[0];
    if (argc > 1 && (std::strcmp(argv[1], "-h") == 0 || std::strcmp(argv[1], "--help") == 0)) {
        std::ignore = std::fputs(usageOf(name).c_str(), stdout);
        return 0;
    }
    if (argc != 2) {
        say(name + ": one argument expected, " + std::to_string(argc - 1) + " given (" + name +
            " --help shows the usage)");
        return 2;
    }
    const Descriptor connection = isOnAnotherBus() ? Descriptor() : connectToServer();
    if (!connection.isOpen()) {
        return callOverBus(argv[0], argv[1]);
    }
    send(connection.get(), argv[1]);
    const std::string answer = receive(connection.get());
    if (answer == "+") {
        return 0;
    }
    say(name + ": " + (answer.empty() ? "the Modbus server gave no answer" : answer.substr(1)));
    return 1;
}
