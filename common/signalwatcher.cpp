// SPDX-License-Identifier: MIT
#include "signalwatcher.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <tuple>

#include <QCoreApplication>
#include <QSocketNotifier>

#include <fcntl.h>
#include <unistd.h>

namespace Varnel {

namespace {

constexpr std::array watchedSignals = {SIGTERM, SIGINT};

// A signal handler may do little more than write to a pipe (signal-safety(7)); the event loop reads its other
// end.
std::array<int, 2> wakeUpPipe = {-1, -1};

volatile std::sig_atomic_t endRequested = 0;

void wakeUp(int /*signal*/)
{
    endRequested = 1;
    const int interrupted = errno; // the interrupted code may need it
    const char octet = 0;
    // A full pipe means that the loop is already notified.
    std::ignore = ::write(wakeUpPipe[1], &octet, 1);
    errno = interrupted;
}

void handleWith(void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    for (const int signal : watchedSignals) {
        ::sigaction(signal, &action, nullptr);
    }
}

} // namespace

SignalWatcher::SignalWatcher(QObject* parent)
    : QObject(parent)
{
    if (::pipe2(wakeUpPipe.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
        return; // no descriptors left: the signals keep their default, which ends the program as well
    }
    auto* notifier = new QSocketNotifier(wakeUpPipe[0], QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, [notifier] {
        notifier->setEnabled(false);
        QCoreApplication::quit();
    });
    handleWith(&wakeUp);
}

SignalWatcher::~SignalWatcher()
{
    handleWith(SIG_DFL);
    for (int& end : wakeUpPipe) {
        if (end >= 0) {
            ::close(end);
            end = -1;
        }
    }
    endRequested = 0;
}

bool SignalWatcher::isEndRequested()
{
    return endRequested != 0;
}

} // namespace Varnel
