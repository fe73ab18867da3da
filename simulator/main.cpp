// SPDX-License-Identifier: MIT
#include "log.h"
#include "options.h"
#include "signalwatcher.h"
#include "simulation.h"

#include <QCoreApplication>
#include <QSocketNotifier>
#include <QtDebug>

#include <csignal>
#include <memory>
#include <tuple>
#include <unistd.h>

namespace {

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
        if (const Varnel::Outcome<> outcome = simulation.perform(line); !outcome) {
            qWarning().noquote() << outcome.refusal.text;
        }
    }

    Simulator::Simulation& simulation;
    QSocketNotifier notifier;
    QByteArray pending;
};

} // namespace

int main(int argc, char* argv[])
{
    Varnel::logToStandardError("r7m-simulator");
    std::ignore = std::signal(SIGPIPE, SIG_IGN); // go on when the reader of standard output goes away
    QCoreApplication application(argc, argv);
    const Varnel::Invocation<Simulator::SimulatorOptions> invocation =
        Simulator::parseOptions(QCoreApplication::arguments());
    if (!invocation.options) {
        return invocation.end();
    }
    const Varnel::SignalWatcher signalWatcher;
    Simulator::Simulation simulation(*invocation.options);
    QObject::connect(&simulation, &Simulator::Simulation::quitWanted, &application, &QCoreApplication::quit,
                     Qt::QueuedConnection); // an action over HTTP is answered first
    if (const Varnel::Outcome<> started = simulation.start(); !started) {
        qCritical().noquote() << started.refusal.text;
        return 1;
    }
    std::unique_ptr<InputReader> input;
    if (invocation.options->readInput) {
        input = std::make_unique<InputReader>(simulation);
    }
    return QCoreApplication::exec();
}
