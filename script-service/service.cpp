// SPDX-License-Identifier: MIT
// Runs the device scripts for the confined panel, one at a time. systemd hands over the listening socket.
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include "protocol.h"

using namespace ScriptService;

namespace {

/// The panel sends a request in one go; who does not is let go.
constexpr timeval patienceForRequest{5, 0};
/// The panel kills its end after 30 s; this is for one that is stopped meanwhile.
constexpr int longestRunMs = 40000;

class Descriptor
{
public:
    explicit Descriptor(int number)
        : number(number)
    {
    }
    ~Descriptor()
    {
        if (number >= 0) {
            ::close(number);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return number; }

private:
    const int number;
};

/// The words of one request; nothing, if it is too long, cut off or does not come.
std::optional<std::vector<std::string>> readRequest(int connection)
{
    ::setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &patienceForRequest, sizeof patienceForRequest);
    std::string octets;
    char buffer[16384];
    ssize_t count = 0;
    while ((count = ::recv(connection, buffer, sizeof buffer, 0)) > 0) {
        octets.append(buffer, static_cast<std::size_t>(count));
        if (octets.size() > longestRequest) {
            return std::nullopt;
        }
    }
    if (count < 0 || octets.empty() || octets.back() != '\0') {
        return std::nullopt;
    }
    std::vector<std::string> words;
    for (std::size_t at = 0; at < octets.size(); at += words.back().size() + 1) {
        words.emplace_back(octets.c_str() + at);
    }
    return words;
}

bool isKnown(const std::string& name)
{
    return std::find(scriptNames.begin(), scriptNames.end(), name) != scriptNames.end();
}

/// In the child: becomes the script, at the head of a process group of its own. Standard error stays: it is
/// the journal.
[[noreturn]] void becomeScript(std::string path, std::vector<std::string>& words)
{
    sigset_t none;
    sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    ::setpgid(0, 0);
    const int nothing = ::open("/dev/null", O_RDWR);
    ::dup2(nothing, STDIN_FILENO);
    ::dup2(nothing, STDOUT_FILENO);
    std::vector<char*> arguments;
    arguments.push_back(path.data());
    for (std::size_t i = 1; i < words.size(); ++i) {
        arguments.push_back(words[i].data());
    }
    arguments.push_back(nullptr);
    ::execv(path.c_str(), arguments.data());
    say("cannot run " + path + ": " + std::strerror(errno));
    ::_exit(notRun);
}

unsigned char reap(pid_t script)
{
    int status = 0;
    while (::waitpid(script, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? static_cast<unsigned char>(WEXITSTATUS(status)) : killed;
}

/// Waits until the script has ended, or the asker has gone: then nobody wants the script any more.
unsigned char await(pid_t script, int connection, int childSignals)
{
    pollfd events[] = {{childSignals, POLLIN, 0}, {connection, 0, 0}};
    int ready = 0;
    do {
        ready = ::poll(events, std::size(events), longestRunMs);
    } while (ready < 0 && errno == EINTR);
    if (events[0].revents == 0) {
        say(std::string("killing the script: ") +
            (ready == 0 ? "it takes too long" : "the panel no longer waits for it"));
        ::kill(-script, SIGKILL);
        ::kill(script, SIGKILL); // if it has no group yet
    }
    const unsigned char status = reap(script);
    signalfd_siginfo ignored = {};
    while (::read(childSignals, &ignored, sizeof ignored) > 0) {
    }
    return status;
}

unsigned char serve(int connection, const std::string& directory, int childSignals)
{
    std::optional<std::vector<std::string>> words = readRequest(connection);
    if (!words || !isKnown(words->front())) {
        say("refused a request that names no script of the panel");
        return notRun;
    }
    const std::string path = directory + '/' + words->front();
    if (::access(path.c_str(), X_OK) != 0) {
        say("no script " + path + ", do nothing");
        return notFound;
    }
    const pid_t script = ::fork();
    if (script < 0) {
        say("cannot start " + path + ": " + std::strerror(errno));
        return notRun;
    }
    if (script == 0) {
        becomeScript(path, *words);
    }
    return await(script, connection, childSignals);
}

/// Ends of children as octets to read, so that they and the connection can be awaited together.
int openChildSignals()
{
    sigset_t children;
    sigemptyset(&children);
    sigaddset(&children, SIGCHLD);
    ::sigprocmask(SIG_BLOCK, &children, nullptr);
    return ::signalfd(-1, &children, SFD_CLOEXEC | SFD_NONBLOCK);
}

} // namespace

int main(int argc, char* argv[])
{
    if (argc != 2 || argv[1][0] != '/') {
        say(std::string("Usage: ") + argv[0] + " SCRIPT-DIRECTORY (with a listening socket from systemd)");
        return 2;
    }
    if (::sd_listen_fds(1) != 1) {
        say(std::string(argv[0]) + ": systemd handed over no socket");
        return 1;
    }
    const Descriptor childSignals(openChildSignals());
    while (true) {
        const Descriptor connection(::accept4(SD_LISTEN_FDS_START, nullptr, nullptr, SOCK_CLOEXEC));
        if (connection.get() < 0) {
            if (errno == EINTR || errno == ECONNABORTED) {
                continue;
            }
            say(std::string(argv[0]) + ": " + std::strerror(errno));
            return 1;
        }
        const unsigned char status = serve(connection.get(), argv[1], childSignals.get());
        ::send(connection.get(), &status, sizeof status, MSG_NOSIGNAL);
    }
}
