// SPDX-License-Identifier: MIT
// Starting a script and waiting for its end, against posix_spawn and waitpid, in a process that has written
// to as much memory as the panel with its page. Before that, what the panel's most frequent script costs,
// against the start of a program that does nothing: mbserverupdate.sh by itself, and through the script
// service, both with a Modbus server that publishes. To be run in the sandbox. Options: --rounds N, --quick.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QCoreApplication>

#include "figures.h"
#include "files.h"
#include "modbusbench.h"
#include "scriptrunner.h"

using namespace VarnelBench;

namespace {

const QString programs = QStringLiteral(VARNEL_PROGRAM_DIR "/");
const QString scripts = QStringLiteral("/usr/local/bin/");
const QString update = QStringLiteral("mbserverupdate.sh");

/// Starts the script with null streams and waits for its end.
void spawnAndWait(const QString& script, const QString& argument)
{
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    QByteArray path = QFile::encodeName(script);
    QByteArray text = argument.toUtf8();
    char* const arguments[] = {path.data(), text.data(), nullptr};
    pid_t pid = 0;
    int status = -1;
    if (::posix_spawn(&pid, path.constData(), &actions, nullptr, arguments, environ) != 0 ||
        ::waitpid(pid, &status, 0) != pid || status != 0) {
        qFatal("%s failed", path.constData());
    }
    ::posix_spawn_file_actions_destroy(&actions);
}

/// Measures starts of scripts, in wall time: single runs in turn, the median of some of them as one value. A
/// run is short, and whatever else the machine does meanwhile hits one or the other.
std::vector<Series> measureScripts(const std::vector<Work>& works, int rounds)
{
    constexpr int runsPerRound = 20;
    std::vector<Series> result = measureInTurn(works, rounds * runsPerRound, 1, CLOCK_MONOTONIC);
    for (Series& one : result) {
        std::vector<double> medians;
        for (auto run = one.values.begin(); run != one.values.end(); run += runsPerRound) {
            medians.push_back(medianOf({run, run + runsPerRound}));
        }
        one.values = medians;
    }
    return result;
}

/// An update of one table of 100 registers, as the bare program, by itself, and through the script service.
void benchUpdate(int rounds)
{
    const QString asker = QStringLiteral("/run/panel/") + update;
    ModbusBench bus;
    Program server(QStringLiteral("varnel-modbus-server"));
    Program service(QStringLiteral("/usr/bin/systemd-socket-activate"));
    const bool ready =
        bus.start() && server.start() && server.log().await(QRegularExpression(QStringLiteral("ready on"))) &&
        ModbusBench::run(
            QStringLiteral("mbserverstart.sh"),
            {ModbusBench::writeInit(QStringLiteral("tcp"),
                                    QStringLiteral(R"("listen":"127.0.0.1","port":502,"clients":10)"),
                                    QStringLiteral(R"({"address":100,"length":100,"mode":"r"})"))})
                .status == 0 &&
        service.start({QStringLiteral("--listen=/run/varnel-scripts.socket"),
                       programs + QStringLiteral("varnel-script-service"), scripts}) &&
        service.log().await(QRegularExpression(QStringLiteral("Listening"))) &&
        QDir().mkpath(QStringLiteral("/run/panel")) &&
        QFile::copy(programs + QStringLiteral("varnel-script-request"), asker);
    if (!ready) {
        qFatal("the Modbus server or the script service does not start");
    }
    const QString command = ModbusBench::update(100, QVector<quint16>(100, 4660));
    const QString bare = programs + QStringLiteral("floor-program");
    printFigure("register update by mbserverupdate.sh", "us",
                measureScripts({{"start of a bare program", [&] { spawnAndWait(bare, command); }},
                                {"the script", [&] { spawnAndWait(scripts + update, command); }, 2},
                                {"the script through the service", [&] { spawnAndWait(asker, command); }, 3}},
                               rounds));
}

void benchStart(int rounds)
{
    const std::vector<char> asMuchAsThePanel(48U << 20U, 1);
    const QString path = scripts + QStringLiteral("script.sh");
    writeFile(path, "#!/bin/sh\nexit 0\n");
    QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    const QString argument = QStringLiteral("add");
    printFigure("script start and wait", "us",
                measureScripts({{"`posix_spawn`, `waitpid`", [&] { spawnAndWait(path, argument); }},
                                {"panel", [&] { Varnel::runScript(path, {argument}); }, 1.5}},
                               rounds));
}

} // namespace

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    const int rounds = roundsFrom(argc, argv);
    benchUpdate(rounds);
    dropLog();
    benchStart(rounds);
    return 0;
}
