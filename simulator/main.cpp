// SPDX-License-Identifier: MIT
#include "action.h"
#include "options.h"
#include "simulation.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <csignal>
#include <cstdio>
#include <sys/signalfd.h>
#include <tuple>
#include <unistd.h>

namespace {

/// SIGTERM and SIGINT as a descriptor, so that the event loop can end in an orderly way; a reader of
/// standard output that went away must not end the program.
int openSignals()
{
    std::ignore = std::signal(SIGPIPE, SIG_IGN);
    sigset_t ending;
    sigemptyset(&ending);
    sigaddset(&ending, SIGTERM);
    sigaddset(&ending, SIGINT);
    sigprocmask(SIG_BLOCK, &ending, nullptr);
    return signalfd(-1, &ending, SFD_CLOEXEC);
}

int fail(const QString& problem)
{
    std::ignore = std::fprintf(stderr, "r7m-simulator: %s\n", problem.toLocal8Bit().constData());
    return 1;
}

/// Reads actions from standard input without blocking the event loop.
class InputReader
{
public:
    explicit InputReader(Simulator::Simulation& simulated)
        : simulation(simulated)
        , notifier(STDIN_FILENO, QSocketNotifier::Read)
    {
        QObject::connect(&notifier, &QSocketNotifier::activated, &notifier, [this] { read(); });
    }

private:
    void read()
    {
        char block[4096];
        const ssize_t count = ::read(STDIN_FILENO, block, sizeof block);
        if (count <= 0) {
            notifier.setEnabled(false);
        } else {
            pending.append(block, static_cast<int>(count));
        }
        for (int end = pending.indexOf('\n'); end >= 0; end = pending.indexOf('\n')) {
            perform(QString::fromUtf8(pending.left(end)).trimmed());
            pending.remove(0, end + 1);
        }
    }

    void perform(const QString& line)
    {
        if (line.isEmpty()) {
            return;
        }
        QString problem;
        const QJsonObject action = Simulator::readAction(line, &problem);
        if (problem.isEmpty()) {
            problem = simulation.perform(action);
        }
        if (!problem.isEmpty()) {
            std::ignore = std::fprintf(stderr, "r7m-simulator: %s\n", problem.toLocal8Bit().constData());
        }
    }

    Simulator::Simulation& simulation;
    QSocketNotifier notifier;
    QByteArray pending;
};

} // namespace

int main(int argc, char* argv[])
{
    const int signalDescriptor = openSignals();
    QCoreApplication application(argc, argv);
    const Simulator::ParsedOptions parsed = Simulator::parseOptions(QCoreApplication::arguments());
    if (!parsed.error.isEmpty()) {
        return fail(parsed.error);
    }
    if (!parsed.options) {
        std::ignore = std::fputs(parsed.output.toLocal8Bit().constData(), stdout);
        return 0;
    }

    Simulator::Simulation simulation(*parsed.options);
    QSocketNotifier signalled(signalDescriptor, QSocketNotifier::Read);
    QObject::connect(&signalled, &QSocketNotifier::activated, &application, &QCoreApplication::quit);
    QObject::connect(&simulation, &Simulator::Simulation::quitWanted, &application, &QCoreApplication::quit,
                     Qt::QueuedConnection); // the answer to a wish by HTTP goes out first
    const QString problem = simulation.start();
    if (!problem.isEmpty()) {
        return fail(problem);
    }
    std::unique_ptr<InputReader> input;
    if (parsed.options->readInput) {
        input = std::make_unique<InputReader>(simulation);
    }
    return QCoreApplication::exec();
}
