// SPDX-License-Identifier: MIT
// Faults of names, addresses and the cable.

#include <QFile>
#include <QHostAddress>
#include <QTest>
#include <QUdpSocket>

#include "fault.h"

namespace {

constexpr auto lossLine = "^No packet received within the  3 s window, unregister";
constexpr auto nothingIsLost = "nothing; the page begins anew";

bool errorPage(FaultBench& bench)
{
    return bench.awaitShown(Shown::ErrorPage);
}

Fault::Step run(const QStringList& command)
{
    return [command](FaultBench&) { return Program::runTool(command); };
}

/// Makes the interface as it was.
bool plugInterfaceIn(FaultBench& /*bench*/)
{
    const auto address = [](const QString& text) {
        return Program::runTool(
            {"ip"_s, "address"_s, "add"_s, text, "broadcast"_s, "192.168.7.255"_s, "dev"_s, "eth1"_s});
    };
    return Program::runTool(
               {"ip"_s, "link"_s, "add"_s, "eth1"_s, "type"_s, "veth"_s, "peer"_s, "name"_s, "cable"_s}) &&
           address("192.168.7.1/24"_s) && address("192.168.7.2/24"_s) && address("192.168.7.3/24"_s) &&
           Program::runTool({"ip"_s, "link"_s, "set"_s, "cable"_s, "up"_s}) &&
           Program::runTool({"ip"_s, "link"_s, "set"_s, "eth1"_s, "up"_s});
}

bool leaveForUnknownName(FaultBench& bench)
{
    bench.sendPageTo("http://controller.invalid/");
    return true;
}

bool stay(FaultBench& bench)
{
    bench.serveUsual();
    return true;
}

/// Lets the names of this host be asked for at `server`.
bool useNameServer(const QByteArray& server)
{
    QFile file("/tmp/resolv.conf"_s);
    return file.open(QIODevice::WriteOnly) && file.write("nameserver " + server + "\n") > 0 &&
           (file.close(), Program::runTool({"mount"_s, "--bind"_s, file.fileName(), "/etc/resolv.conf"_s}));
}

Fault silentNameServer()
{
    const auto socket = std::make_shared<std::unique_ptr<QUdpSocket>>();
    return {"name server silent",
            "page stays until the name is given up, then error page until the next try",
            nothingIsLost,
            "^HTTP ERROR$",
            leaveForUnknownName,
            [socket](FaultBench& bench) {
                // Asked, and left without an answer.
                return QTest::qWaitFor([&] { return (*socket)->hasPendingDatagrams(); },
                                       int(patience.count())) &&
                       bench.awaitShown(Shown::ErrorPage, std::chrono::seconds(40));
            },
            [socket](FaultBench& bench) {
                socket->reset();
                return stay(bench) && Program::runTool({"umount"_s, "/etc/resolv.conf"_s});
            },
            [socket](FaultBench&) {
                *socket = std::make_unique<QUdpSocket>();
                return (*socket)->bind(QHostAddress("192.168.7.3"_s), 53) && useNameServer("192.168.7.3");
            }};
}

} // namespace

Faults networkFaults()
{
    return {
        {"name not resolvable", "error page until the next try", nothingIsLost, "^HTTP ERROR$",
         leaveForUnknownName, errorPage, stay},
        silentNameServer(),
        {"interface down", "error page", nothingIsLost, lossLine,
         run({"ip"_s, "link"_s, "set"_s, "eth1"_s, "down"_s}), errorPage,
         run({"ip"_s, "link"_s, "set"_s, "eth1"_s, "up"_s})},
        {"interface gone", "error page", nothingIsLost, lossLine, run({"ip"_s, "link"_s, "del"_s, "eth1"_s}),
         errorPage, plugInterfaceIn},
    };
}
