// SPDX-License-Identifier: MIT
// Starting a script and waiting for its end, against posix_spawn and waitpid: in a small process, and in one
// that has written to as much memory as the panel with its page. Then what the panel's most frequent script
// costs, against the start of a program that does nothing: mbserverupdate.sh by itself, and through the
// script service, both with a Modbus server that publishes. To be run in the sandbox. Options: --rounds N,
// --quick.
#include <cstring>

#include <sys/mman.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include "figures.h"
#include "scriptfloor.h"
#include "scriptrunner.h"

using namespace VarnelBench;

namespace {

/// As many pages, in small pieces, as the panel has written to by the time its page is shown.
void growToThePanelsSize()
{
    constexpr std::size_t size = 48U << 20U;
    void* const memory = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        qFatal("no memory");
    }
    ::madvise(memory, size, MADV_NOHUGEPAGE);
    std::memset(memory, 1, size);
}

const QString programs = QStringLiteral(VARNEL_PROGRAM_DIR "/");
const QString scripts = QStringLiteral("/usr/local/bin/");
const QString askers = QStringLiteral("/run/panel/");
const QString update = QStringLiteral("mbserverupdate.sh");

/// A helper program that ends with this one.
class Companion
{
public:
    Companion(const QString& program, const QStringList& arguments, const QString& sign)
    {
        process.setProcessChannelMode(QProcess::MergedChannels);
        process.start(program, arguments);
        QByteArray said;
        while (!said.contains(sign.toUtf8())) {
            if (!process.waitForReadyRead()) {
                qFatal("%s does not start: %s", qPrintable(program), said.constData());
            }
            said += process.readAll();
        }
    }
    ~Companion()
    {
        process.kill();
        process.waitForFinished();
    }
    Companion(const Companion&) = delete;
    Companion& operator=(const Companion&) = delete;

private:
    QProcess process;
};

void install(const QString& program, const QString& path)
{
    QDir().mkpath(QFileInfo(path).path());
    if (!QFile::copy(program, path)) {
        qFatal("cannot install %s", qPrintable(path));
    }
}

/// The tables of the sample mapping's size, served at any port.
void serveTables()
{
    QFile init(QStringLiteral("/run/init"));
    const bool written =
        init.open(QIODevice::WriteOnly) &&
        init.write(R"({"cmd":"init","protocol":"tcp","tcp":{"listen":"127.0.0.1","port":502,"clients":10},)"
                   R"("tables":[{"address":100,"length":100,"mode":"r"}]})") > 0;
    init.close();
    const QString server = QStringLiteral("org.varnel.ModbusServer1");
    if (!written ||
        QProcess::execute(QStringLiteral("busctl"),
                          {QStringLiteral("call"), server, QStringLiteral("/org/varnel/ModbusServer1"),
                           server, QStringLiteral("Start"), QStringLiteral("s"), init.fileName()}) != 0) {
        qFatal("the Modbus server does not start");
    }
}

void runOrDie(const QByteArray& path, const QByteArray& argument)
{
    if (spawnAndWait(path, argument) != 0) {
        qFatal("%s failed", path.constData());
    }
}

/// An update of one table of 100 registers, as the bare program, by itself, and through the script service.
void measureUpdate(int rounds)
{
    install(programs + update, scripts + update);
    install(programs + QStringLiteral("varnel-script-request"), askers + update);
    QDir().mkpath(QStringLiteral("/run/dbus/services"));
    const Companion bus(QStringLiteral("dbus-daemon"),
                        {QStringLiteral("--config-file=" VARNEL_SOURCE_DIR "/scripts/sandbox-bus.conf"),
                         QStringLiteral("--nofork"), QStringLiteral("--nopidfile"),
                         QStringLiteral("--nosyslog"), QStringLiteral("--print-address")},
                        QStringLiteral("unix:"));
    const Companion server(programs + QStringLiteral("varnel-modbus-server"), {}, QStringLiteral("ready on"));
    const Companion service(QStringLiteral("systemd-socket-activate"),
                            {QStringLiteral("--listen=/run/varnel-scripts.socket"),
                             programs + QStringLiteral("varnel-script-service"), scripts},
                            QStringLiteral("Listening"));
    serveTables();
    const QByteArray bare = QFile::encodeName(programs + QStringLiteral("floor-program"));
    const QByteArray alone = QFile::encodeName(scripts + update);
    const QByteArray served = QFile::encodeName(askers + update);
    const QByteArray command = R"({"cmd":"setconfig","data":[{"address":100,"values":[)" +
                               QByteArray("4660,").repeated(99) + "4660]}]}";
    printFigure("register update by mbserverupdate.sh", "us",
                measureScripts({{"start of a bare program", [&] { runOrDie(bare, command); }},
                                {"the script", [&] { runOrDie(alone, command); }, 2},
                                {"the script through the service", [&] { runOrDie(served, command); }, 3}},
                               rounds));
}

} // namespace

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    const int rounds = roundsFrom(argc, argv);
    measureUpdate(rounds);
    dropLog();
    const QTemporaryDir directory;
    const QString path = writeScript(directory.filePath(QStringLiteral("script.sh")));
    const QByteArray name = QFile::encodeName(path);
    const std::vector<Work> works = {
        {"posix_spawn, waitpid", [&] { runOrDie(name, "add"); }},
        {"panel", [&] { Varnel::runScript(path, {QStringLiteral("add")}); }, 1.5},
    };
    printFigure("script start and wait, small process", "us", measureScripts(works, rounds));
    growToThePanelsSize();
    printFigure("script start and wait, process of the panel's size", "us", measureScripts(works, rounds));
    return 0;
}
