// SPDX-License-Identifier: MIT
// Runs the device scripts for the confined panel, one at a time. systemd hands over the listening socket.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <list>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include "plain.h"
#include "protocol.h"
#include "scriptrun.h"

using namespace ScriptService;
using Varnel::Descriptor;
using Varnel::say;

namespace {

using Clock = std::chrono::steady_clock;

/// Time limit from the connection to the request's last byte. The panel sends a request in one piece.
constexpr std::chrono::seconds longestSending{5};
/// Time limit for a script. The panel ends its side after 30 s; this limit serves when the panel itself is
/// stopped.
constexpr std::chrono::seconds longestRun{40};
/// Connections at the same time. The panel has one.
constexpr std::size_t mostConnections = 16;

/// One connection: it sends its request, then waits for its turn.
struct Asker
{
    Descriptor connection;
    Clock::time_point deadline;
    std::string octets;
    std::vector<std::string> words = {};
};

void answer(const Asker& asker, unsigned char status)
{
    ::send(asker.connection.get(), &status, sizeof status, MSG_NOSIGNAL | MSG_DONTWAIT);
}

bool hasHungUp(const Asker& asker)
{
    pollfd state{asker.connection.get(), 0, 0};
    return ::poll(&state, 1, 0) == 1 && (state.revents & (POLLHUP | POLLERR)) != 0;
}

/// SIGCHLD and SIGTERM as data to read, so that poll() can wait for them and for connections together.
int openSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGCHLD);
    sigaddset(&signals, SIGTERM);
    ::sigprocmask(SIG_BLOCK, &signals, nullptr);
    return ::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
}

class ScriptServer
{
public:
    ScriptServer(int listener, std::string directory)
        : listener(listener)
        , directory(std::move(directory))
        , signals(openSignals())
    {
    }

    /// Serves until SIGTERM, or until the socket breaks.
    int run();

private:
    void await();
    void accept();
    void receive();
    bool receive(Asker& asker);
    void makeRoom();
    void startNext();
    void start(Asker asker);
    void readSignals();
    void reap();
    void endRun(const char* why);

    const int listener;
    const std::string directory;
    const Descriptor signals;
    std::list<Asker> senders;
    std::list<Asker> queue;
    std::optional<Asker> current;
    ScriptRun script;
    bool isEnding = false;
    bool isBroken = false;
};

int ScriptServer::run()
{
    while (!isEnding && !isBroken) {
        await();
        readSignals();
        accept();
        receive();
        if (current && hasHungUp(*current)) {
            endRun("the panel no longer waits for it");
        } else if (current && Clock::now() >= current->deadline) {
            endRun("it takes too long");
        }
        startNext();
    }
    if (current) {
        endRun("the service ends");
    }
    return isBroken ? 1 : 0;
}

/// Waits for an event, or until the next deadline.
void ScriptServer::await()
{
    std::vector<pollfd> events = {{listener, POLLIN, 0}, {signals.get(), POLLIN, 0}};
    Clock::time_point next = Clock::time_point::max();
    for (const Asker& asker : senders) {
        events.push_back({asker.connection.get(), POLLIN, 0});
        next = std::min(next, asker.deadline);
    }
    if (current) {
        events.push_back({current->connection.get(), 0, 0});
        next = std::min(next, current->deadline);
    }
    int timeout = -1;
    if (next != Clock::time_point::max()) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(next - Clock::now());
        timeout = static_cast<int>(std::max<long>(0, left.count()));
    }
    ::poll(events.data(), events.size(), timeout);
}

void ScriptServer::accept()
{
    while (true) {
        Descriptor connection(::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (!connection.isOpen()) {
            isBroken = errno != EAGAIN && errno != EINTR && errno != ECONNABORTED;
            if (isBroken) {
                say(std::string("cannot accept a connection: ") + std::strerror(errno));
            }
            return;
        }
        makeRoom();
        senders.push_back({std::move(connection), Clock::now() + longestSending, {}});
    }
}

/// Closes the connection that has been sending for longest.
void ScriptServer::makeRoom()
{
    if (senders.size() + queue.size() < mostConnections) {
        return;
    }
    std::list<Asker>& from = senders.empty() ? queue : senders;
    say("refused a request: there are too many at the same time");
    answer(from.front(), notRun);
    from.pop_front();
}

void ScriptServer::receive()
{
    for (auto asker = senders.begin(); asker != senders.end();) {
        if (receive(*asker)) {
            asker = senders.erase(asker);
        } else {
            ++asker;
        }
    }
}

/// Reads the data that has arrived. True when no more is expected: the request is refused, or in the queue.
bool ScriptServer::receive(Asker& asker)
{
    char buffer[65536];
    ssize_t count = 0;
    while (asker.octets.size() <= longestRequest &&
           (count = ::recv(asker.connection.get(), buffer, sizeof buffer, 0)) > 0) {
        asker.octets.append(buffer, static_cast<std::size_t>(count));
    }
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) {
        if (Clock::now() < asker.deadline) {
            return false;
        }
        say("refused a request: it did not end in time");
        answer(asker, notRun);
        return true;
    }
    ScriptRequest request = parse(asker.octets);
    if (request.words.empty()) {
        say(request.refusal);
        answer(asker, notRun);
        return true;
    }
    asker.words = std::move(request.words);
    asker.octets = {};
    queue.push_back(std::move(asker));
    return true;
}

void ScriptServer::startNext()
{
    while (!current && !queue.empty()) {
        Asker asker = std::move(queue.front());
        queue.pop_front();
        if (!hasHungUp(asker)) {
            start(std::move(asker));
        }
    }
}

/// Starts a script, or answers why it does not.
void ScriptServer::start(Asker asker)
{
    const std::string& name = asker.words.front();
    const std::string path = directory + '/' + name;
    if (::access(path.c_str(), X_OK) != 0) {
        say("no script " + path + ", do nothing");
        answer(asker, notFound);
        return;
    }
    std::string refusal = ScriptRun::distrust(path);
    if (refusal.empty()) {
        if (const int error = script.start(path, asker.words); error != 0) {
            refusal = std::string("it cannot be started: ") + std::strerror(error);
        }
    }
    if (!refusal.empty()) {
        say("refused " + name + ": " + refusal);
        answer(asker, notRun);
        return;
    }
    asker.deadline = Clock::now() + longestRun;
    current = std::move(asker);
}

void ScriptServer::readSignals()
{
    signalfd_siginfo signal = {};
    while (::read(signals.get(), &signal, sizeof signal) == static_cast<ssize_t>(sizeof signal)) {
        isEnding = isEnding || signal.ssi_signo == SIGTERM;
    }
    reap();
}

/// Also reaps processes that scripts left running, and ignores their status.
void ScriptServer::reap()
{
    int status = 0;
    for (pid_t pid = 0; (pid = ::waitpid(-1, &status, WNOHANG)) > 0;) {
        if (script.reaped(pid, status) && current) {
            answer(*current, WIFEXITED(status) ? static_cast<unsigned char>(WEXITSTATUS(status)) : killed);
            current.reset();
        }
    }
}

void ScriptServer::endRun(const char* why)
{
    const std::string& name = current->words.front();
    say("killing " + name + " with all it has started: " + why);
    if (!script.end()) {
        say("processes that " + name + " started do not end");
    }
    answer(*current, killed);
    current.reset();
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
    ::fcntl(SD_LISTEN_FDS_START, F_SETFL, O_NONBLOCK);
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
    return ScriptServer(SD_LISTEN_FDS_START, argv[1]).run();
}
